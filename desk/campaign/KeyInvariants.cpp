// What must be so of keys.
#include "desk/campaign/Invariant.h"
#include "simulator/mac/Mac.h"

namespace campaign {
namespace {

using namespace std::chrono_literals;

std::string nameOf(const KeyEvent& event) {
  static constexpr const char* names[] = {"volumeUp", "volumeDown", "brightnessUp", "brightnessDown", "mute"};
  return std::string(event.isPress ? "the press of " : "the release of ") + names[static_cast<int>(event.key)];
}

// Every key that the user presses is offered to the program, as long as it may see keys at all.
class KeysArrive : public Invariant {
 public:
  KeysArrive() : Invariant("keys-arrive", "Every key is offered to the program, whatever has happened before.") {}

  void see(const World& world, const Record& record) override {
    if (record.what == "input" && owed_ > 0) --owed_;
    if (record.what == "exit") owed_ = 0;
    if (world.seesKeys() != Expected::yes) owed_ = 0;
    if (record.what != "do") return;
    const auto& line = record["line"];
    const bool isEvent = line["do"] == "event" && (line["type"] == 10 || line["type"] == 14);
    if (line["do"] != "key" && !isEvent) return;
    if (world.seesKeys() != Expected::yes) {
      owed_ = 0;
      return;
    }
    // A key that is held is let go of later.
    owed_ += !isEvent && line.value("action", "tap") == "tap" && !line.contains("hold") ? 2 : 1;
    since_ = world.mac.scheduler.uptime();
  }

  void look(const World& world) override {
    if (world.seesKeys() != Expected::yes) owed_ = 0;
    if (owed_ > 0 && world.mac.scheduler.uptime() >= since_ + 1s) {
      isBroken(std::to_string(owed_) + " key events did not come to the program");
    }
  }

 private:
  int owed_ = 0;
  Time since_{0};
};

// What becomes of a press and of a release follows from what is under the pointer and which output is chosen at that
// moment, and is so the same for both unless that has changed in between.
class FateOfKeys : public Invariant {
 public:
  FateOfKeys()
      : Invariant("fate-of-keys",
                  "A key's press and its release are taken exactly while the program controls what they are for.") {}

  void see(const World& world, const Record& record) override {
    const auto event = KeyEvent::of(record);
    if (!event) return;
    // An event that cannot be converted is passed on as it is; those of plain keys need not be.
    if (record["type"] == 14 && world.failsSince({"NSEvent.eventWithCGEvent"}, record.time)) return;
    const Expected expected = event->isVolume() ? world.controlsVolume() : world.takesBrightnessKeys();
    if (expected == Expected::unknown) return;
    const bool isTaken = record["swallowed"] == true;
    if (isTaken != (expected == Expected::yes)) {
      isBroken(nameOf(*event) + (isTaken ? " was taken, and there is nothing that it is for" : " was not taken"));
    }
  }
};

// A press that is taken shows what it did; a key that is not taken does nothing.
class NothingIsSwallowed : public Invariant {
 public:
  NothingIsSwallowed()
      : Invariant("nothing-is-swallowed", "No key is swallowed for nothing, and none acts that is not swallowed.") {}

  void see(const World& world, const Record& record) override {
    if (record.isCall("OSDManager.showImage")) ++shown_;
    if (record.what == "exit") shown_ = 0;
    const auto event = KeyEvent::of(record);
    if (!event) return;
    const int shown = std::exchange(shown_, 0);
    if (!world.hasLibraries()) return;
    const bool acts =
        record["swallowed"] == true && event->isPress && !(event->key == KeyEvent::Key::mute && event->isRepeat);
    if (shown != (acts ? 1 : 0)) isBroken(nameOf(*event) + " showed " + std::to_string(shown) + " pop-ups");
  }

 private:
  int shown_ = 0;
};

}  // namespace

void addKeyInvariants(Invariants& all) {
  all.push_back(std::make_unique<KeysArrive>());
  all.push_back(std::make_unique<FateOfKeys>());
  all.push_back(std::make_unique<NothingIsSwallowed>());
}

}  // namespace campaign
