// What must be so of monitors.
#include <algorithm>
#include <cmath>
#include <map>

#include "desk/campaign/Invariant.h"
#include "simulator/mac/Mac.h"

namespace campaign {
namespace {

using namespace std::chrono_literals;
using simulator::Display;
using simulator::Displays;

// The last value that the user was shown for a display is its monitor's, once it has had time to get there.
class LastValueArrives : public Invariant {
 public:
  LastValueArrives()
      : Invariant("last-value-arrives", "The last value reaches a monitor that answers, within its protocol's time.") {}

  void see(const World& world, const Record& record) override {
    if (record.isCall("OSDManager.showImage") && record["image"] == 1) {
      const auto id = record["display"].get<std::uint32_t>();
      const Display* const display = world.mac.part<Displays>().find(id);
      // What a key does beside a slider that is being moved may come before or after it.
      if (!display || !display->monitor || record.time < slidAt_ + 1s) return;
      // The program may not have heard yet that this is another monitor than before.
      values_.erase(id);
      if (replacedAt_.contains(id) && record.time < replacedAt_[id] + 100ms) return;
      const auto raw = std::lround(record["filled"].get<int>() * display->monitor->maximum() / 16.0);
      values_[id] = {.raw = raw, .shownAt = record.time};
    }
    if (record.what == "monitor" && record["display"].is_number())
      changedAt_[record["display"].get<std::uint32_t>()] = record.time;
    // A process that has ended, and a link that goes down, take along what has not been sent.
    if (record.what == "exit" || (record.what == "do" && record["line"]["do"] == "sleep")) {
      std::erase_if(values_, [&](const auto& each) { return record.time < each.second.shownAt + protocolTime; });
    }
    if (record.what != "do") return;
    const auto& line = record["line"];
    // The monitor's own buttons, and another monitor in its place.
    if (line["do"] == "monitor") values_.erase(line["display"].get<std::uint32_t>());
    if (line["do"] == "display" && line.contains("id")) {
      values_.erase(line["id"].get<std::uint32_t>());
      replacedAt_[line["id"].get<std::uint32_t>()] = record.time;
    }
    // A slider sends without showing it.
    if (line["do"] == "slide") {
      values_.clear();
      slidAt_ = record.time;
    }
  }

  void look(const World& world) override {
    std::erase_if(values_, [&](const auto& each) {
      const auto& [id, value] = each;
      if (world.now() < value.shownAt + protocolTime) return false;
      const Display* const display = world.mac.part<Displays>().find(id);
      if (!display || !display->monitor || world.troubledAt(id) >= value.shownAt) return true;
      // Also when the displays were looked for: then a monitor may have been taken for another's.
      if (world.failsSince(displayCalls, std::min(value.shownAt, world.displaysRefreshed().from))) return true;
      if (display->monitor->current() != value.raw) {
        isBroken("display " + std::to_string(id) + " was to be at " + std::to_string(value.raw) + " and is at " +
                 std::to_string(display->monitor->current()));
      } else if (changedAt_[id] > value.shownAt + protocolTime) {
        isBroken("display " + std::to_string(id) + " was to be at " + std::to_string(value.raw) +
                 " and got there after " + std::to_string((changedAt_[id] - value.shownAt) / 1ms) + " ms");
      }
      return true;
    });
  }

 private:
  struct Value {
    long raw;
    Time shownAt;
  };
  // Before it lie, at worst: a read that was given up in its last attempt (90 ms), the read after it (70 ms), and one
  // stale write (20 ms); it takes 20 ms itself. On a busy Mac each of their pauses lasts up to 5 ms longer.
  static constexpr Duration protocolTime = 300ms;

  std::map<std::uint32_t, Value> values_;
  std::map<std::uint32_t, Time> changedAt_;
  std::map<std::uint32_t, Time> replacedAt_;
  Time slidAt_{-1'000'000'000};
};

// A display that must be controlled is read each time that it is looked for, and no key says otherwise (see the keys).
class DisplaysComeBack : public Invariant {
 public:
  DisplaysComeBack()
      : Invariant("displays-come-back", "500 ms after the last refresh every monitor that answers is controlled.") {}

  void see(const World&, const Record& record) override {
    if (record.isCall("IOAVServiceReadI2C") && record["status"] == 0 && record["display"].is_number())
      readAt_[record["display"].get<std::uint32_t>()] = record.time;
    if (record.what == "exit") readAt_.clear();
    if (record.what == "do" && record["line"]["do"] == "display" && record["line"].contains("id")) {
      readAt_.erase(record["line"]["id"].get<std::uint32_t>());
    }
  }

  void look(const World& world) override {
    const Time last = world.displaysRefreshed().until;
    if (last == checked_ || world.now() < last + 500ms) return;
    checked_ = last;
    for (const Display& display : world.mac.part<Displays>().all()) {
      if (world.isControlled(display) != Expected::yes) continue;
      const auto read = readAt_.find(display.id);
      // Of several occasions in a row the last one counts, and what was read before it may be what it finds.
      if (read == readAt_.end() || read->second + 1s < last) {
        isBroken("display " + std::to_string(display.id) + " answers and has not been read");
      } else if (read->second > last + 500ms) {
        isBroken("display " + std::to_string(display.id) + " answers and has been read after " +
                 std::to_string((read->second - last) / 1ms) + " ms");
      }
    }
  }

 private:
  std::map<std::uint32_t, Time> readAt_;
  Time checked_{-1};
};

}  // namespace

void addDisplayInvariants(Invariants& all) {
  all.push_back(std::make_unique<LastValueArrives>());
  all.push_back(std::make_unique<DisplaysComeBack>());
}

}  // namespace campaign
