// Scenarios that nobody thought of: made by a generator from a seed, and held against what must always be so.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <map>
#include <random>
#include <set>
#include <sstream>

#include "tests/support/Play.h"

namespace {

// Writes one scenario, and keeps in mind what of it matters for judging the trace.
class Generator {
 public:
  // With faults, monitors and calls fail now and then, and less can be said about how it must end.
  Generator(std::uint64_t seed, bool withFaults) : random_(seed), withFaults_(withFaults) {}

  std::string scenario() {
    for (std::uint64_t i = 0, n = 1 + upTo(5); i < n; ++i) connect();
    line() << R"({"do":"launch"})";
    for (std::uint64_t i = 0, n = 20 + upTo(60); i < n; ++i) step();
    line() << R"({"do":"menu","open":false})";
    line() << R"({"do":"settle"})";
    return text_.str();
  }

  // The maximum of displays that stay: their last pop-up says what their monitor was sent last.
  [[nodiscard]] const std::map<std::uint32_t, int>& undisturbed() const { return maximum_; }

 private:
  std::uint64_t upTo(std::uint64_t n) { return random_() % (n + 1); }
  std::ostream& line() { return text_ << '\n'; }

  void connect() {
    const std::uint32_t id = upTo(9) == 0 ? 4294967295U - used_ : 10 + used_;
    const std::uint64_t x = 1000ULL * used_;
    ++used_;
    const int maximum = upTo(6) == 0 ? 0 : static_cast<int>(1 + upTo(upTo(1) ? 65534 : 254));
    const int current = static_cast<int>(upTo(static_cast<std::uint64_t>(maximum)));
    const bool twin = upTo(7) == 0;
    const bool builtin = upTo(7) == 0;
    const bool external = !builtin && upTo(9) != 0;
    line() << R"({"do":"display","id":)" << id << R"(,"name":"D","frame":[)" << x << R"(,0,)" << (upTo(9) ? 1000 : 0)
           << R"(,500],"vendor":1,"product":2,"serial":)" << (twin ? 1 : id) << R"(,"builtin":)"
           << (builtin ? "true" : "false") << R"(,"location":")" << (external ? "External" : "Embedded")
           << R"(","monitor":{"current":)" << current << R"(,"maximum":)" << maximum << "}}";
    connected_[id] = x;
    maximum_[id] = maximum;
  }

  std::uint32_t anyDisplay() {
    auto each = connected_.begin();
    std::advance(each, static_cast<std::ptrdiff_t>(upTo(connected_.size() - 1)));
    return each->first;
  }

  void pointAt(std::uint32_t display) {
    line() << R"({"do":"pointer","at":[)" << connected_[display] + upTo(1000) << "," << upTo(500) << "]}";
  }

  void keys() {
    static constexpr std::array names = {"brightnessUp", "brightnessDown", "brightnessUp", "brightnessDown",
                                         "volumeUp",     "volumeDown",     "mute"};
    static constexpr std::array actions = {"tap", "press", "release"};
    for (std::uint64_t i = 0, n = 1 + upTo(upTo(3) ? 2 : 40); i < n; ++i) {
      line() << R"({"do":"key","key":")" << names[upTo(names.size() - 1)] << R"(","action":")"
             << actions[upTo(actions.size() - 1)] << R"(","repeat":)" << (upTo(1) ? "true" : "false") << "}";
      if (upTo(2) == 0) advance();
    }
  }

  void advance() { line() << R"({"do":"advance","seconds":)" << static_cast<double>(upTo(120)) / 1000 << "}"; }

  void step() {
    switch (upTo(withFaults_ ? 15 : 11)) {
      case 0:
      case 1:
      case 2:
        if (!connected_.empty()) pointAt(anyDisplay());
        return keys();
      case 3:
        return advance();
      case 4:
        line() << R"({"do":"settle"})";
        return;
      case 5:
        line() << R"({"do":"wake"})";
        return;
      case 6:
        if (connected_.size() > 1 && upTo(1)) {
          const std::uint32_t gone = anyDisplay();
          line() << R"({"do":"display","id":)" << gone << R"(,"gone":true})";
          connected_.erase(gone);
          maximum_.erase(gone);
        } else {
          connect();
        }
        return;
      case 7:
        line() << R"({"do":"disable-tap","by":")" << (upTo(1) ? "timeout" : "user-input") << R"("})";
        return;
      case 8:
        line() << R"({"do":"menu","open":)" << (upTo(1) ? "true" : "false") << "}";
        return;
      case 9:
        line() << R"({"do":"accessibility","granted":)" << (upTo(3) ? "true" : "false") << "}";
        return;
      case 10:
        line() << R"({"do":"event","type":)" << (upTo(1) ? R"(14,"subtype":8,"data1":)" : R"(10,"keycode":)")
               << (upTo(1) ? upTo(1ULL << 62) : 144 + upTo(1)) << "}";
        return;
      case 11:
        // A process that ends takes what it has not sent yet along.
        if (!withFaults_) line() << R"({"do":"settle"})";
        line() << (upTo(1) ? R"({"do":"quit"})" : R"({"do":"click","item":"Quit Dalvane"})");
        if (upTo(3)) line() << R"({"do":"launch"})";
        return;
      case 12:
      case 13: {
        static constexpr std::array faults = {"none", "no-answer", "bad-checksum", "write-fails", "second-write-fails"};
        if (connected_.empty()) return;
        line() << R"({"do":"monitor","display":)" << anyDisplay() << R"(,"fault":")" << faults[upTo(faults.size() - 1)]
               << R"(","attempts":)" << 1 + upTo(12) << "}";
        return;
      }
      default: {
        static constexpr std::array calls = {"IORegistryGetRootEntry",
                                             "IORegistryEntryCreateIterator",
                                             "IOIteratorNext",
                                             "IORegistryEntryGetName",
                                             "IORegistryEntryCreateCFProperty",
                                             "IOObjectRelease",
                                             "IOAVServiceCreateWithService",
                                             "IOAVServiceWriteI2C",
                                             "IOAVServiceReadI2C",
                                             "CGGetOnlineDisplayList",
                                             "CGEventTapCreate",
                                             "CFMachPortCreateRunLoopSource",
                                             "AXIsProcessTrusted",
                                             "NSEvent.eventWithCGEvent",
                                             "dlopen",
                                             "dlsym"};
        line() << R"({"do":"fail","call":")" << calls[upTo(calls.size() - 1)] << R"(","status":-1,"nth":)"
               << 1 + upTo(8) << R"(,"times":)" << 1 + upTo(3) << "}";
      }
    }
  }

  std::mt19937_64 random_;
  bool withFaults_;
  std::ostringstream text_;
  std::uint32_t used_ = 0;
  std::map<std::uint32_t, std::uint64_t> connected_;  // with their screens' left edges
  std::map<std::uint32_t, int> maximum_;
};

void expectTheUsual(const Played& played) {
  EXPECT_EQ(played.status, 0) << played.error;
  EXPECT_TRUE(played.of("fatal").empty());
  EXPECT_TRUE(played.of("leak").empty());
  double before = 0;
  for (const auto& record : played.records) {
    EXPECT_GE(record["t"], before);
    before = record["t"];
  }
  // A pop-up is for a swallowed press, and shows a level of the scale.
  for (const auto& call : played.calls("OSDManager.showImage")) {
    if (call["args"]["image"] != 1) continue;
    EXPECT_EQ(call["args"]["total"], 16);
    EXPECT_LE(call["args"]["filled"], 16);
    EXPECT_GE(call["args"]["filled"], 0);
  }
}

}  // namespace

TEST(Random, EveryPressThatIsTakenReachesItsMonitor) {
  std::size_t checked = 0;
  WITH_SEEDS(seed, 200) {
    Generator generator(seed, false);
    const std::string scenario = generator.scenario();
    const Played played = playScenario(scenario, seed);
    SCOPED_TRACE(scenario);
    expectTheUsual(played);
    std::map<std::uint32_t, int> shown;  // the last level that each display's pop-up showed
    for (const auto& call : played.calls("OSDManager.showImage")) {
      if (call["args"]["image"] == 1) shown[call["args"]["display"]] = call["args"]["filled"];
    }
    for (const auto& [display, filled] : shown) {
      const auto maximum = generator.undisturbed().find(display);
      if (maximum == generator.undisturbed().end()) continue;
      // A level that the monitor showed already is no change of its light.
      std::string last;
      for (const auto& call : played.calls("IOAVServiceWriteI2C")) {
        const std::string bytes = call["args"]["bytes"];
        if (call["args"]["display"] == display && bytes.starts_with("84 03 10 ")) last = bytes.substr(9, 5);
      }
      const long raw = std::lround(filled * maximum->second / 16.0);
      std::array<char, 8> expected{};
      std::snprintf(expected.data(), expected.size(), "%02lx %02lx", raw >> 8, raw & 0xFF);
      EXPECT_EQ(last, expected.data()) << "display " << display;
      ++checked;
    }
    if (seed % 10 == 0) {
      EXPECT_EQ(playScenario(scenario, seed).bytes, played.bytes);
    }
    if (HasFailure()) return;
  }
  EXPECT_GT(checked, 50U);
}

TEST(Random, NothingThatFailsStopsTheProgram) {
  WITH_SEEDS(seed, 200) {
    const std::string scenario = Generator(seed, true).scenario();
    SCOPED_TRACE(scenario);
    const Played played = playScenario(scenario, seed);
    expectTheUsual(played);
    if (seed % 10 == 0) {
      EXPECT_EQ(playScenario(scenario, seed).bytes, played.bytes);
    }
    if (HasFailure()) return;
  }
}
