// Brightness keys and monitors, as a person and the wire see them.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <random>

#include "tests/support/Lines.h"
#include "tests/support/Play.h"

using namespace lines;
using nlohmann::json;

using Lights = std::vector<int>;
using Swallowed = std::vector<bool>;
using Logs = std::vector<std::string>;

namespace {

const std::string brighter = key("brightnessUp");
const std::string darker = key("brightnessDown");

// A desk with one monitor under the pointer, launched and settled.
std::string monitorAt(int current, int maximum) {
  return displayAt(2, {{"monitor", {{"current", current}, {"maximum", maximum}}}}) + pointAt(2) + launch + settle;
}

// What connects the external display of `twoDisplays`.
std::string left(int current = 50) {
  return display(2, {{"name", "Left"},
                     {"frame", {1512, 0, 2560, 1440}},
                     {"vendor", 4268},
                     {"product", 41200},
                     {"serial", 7001},
                     {"monitor", {{"current", current}, {"maximum", 100}}}});
}

// The same display's framebuffer and AV service in the I/O Registry.
const json leftFramebuffer = {
    {"name", "AppleCLCD2"},
    {"properties",
     {{"DisplayAttributes",
       {{"ProductAttributes", {{"LegacyManufacturerID", 4268}, {"ProductID", 41200}, {"SerialNumber", 7001}}}}}}}};
json proxy() { return {{"name", "DCPAVServiceProxy"}, {"properties", {{"Location", "External"}}}}; }
json proxyOf(int display) {
  json entry = proxy();
  entry["display"] = display;
  return entry;
}

std::string times(int count, const std::string& lines) {
  std::string all;
  for (int i = 0; i < count; ++i) all += lines;
  return all;
}

// What the rest of the program than volume logged.
Logs logs(const Played& played) { return played.logs("VolumeController"); }

std::ptrdiff_t timesLogged(const Played& played, const std::string& text) {
  const auto all = logs(played);
  return std::ranges::count(all, text);
}

bool logged(const Played& played, const std::string& text) { return timesLogged(played, text) > 0; }

// The pop-ups, as image, display, filled and total.
using PopUps = std::vector<std::array<int, 4>>;

PopUps popUps(const Played& played) {
  PopUps shown;
  for (const auto& call : played.calls("OSDManager.showImage")) {
    const auto& args = call["args"];
    EXPECT_EQ(args["priority"], 500);
    EXPECT_EQ(args["fade"], 1000);
    EXPECT_EQ(args["locked"], false);
    shown.push_back({args["image"], args["display"], args["filled"], args["total"]});
  }
  return shown;
}

}  // namespace

// ---- Keys ----

TEST(Brightness, KeyRaisesTheMonitorUnderThePointer) {
  WITH_SEEDS(seed, 20) {
    const Played played = playScenario(launched + brighter + settle, seed);
    EXPECT_EQ(played.status, 0);
    EXPECT_EQ(logs(played), (Logs{"info AppDelegate: Media key tap installed",
                                  "info BrightnessController: Display 2 brightness 50/100"}));
    EXPECT_EQ(played.writes(2),
              (Logs{"0.01 82 01 10 fd", "0.02 82 01 10 fd", "0.08 84 03 10 00 38 90", "0.09 84 03 10 00 38 90"}));
    EXPECT_EQ(played.calls("IOAVServiceReadI2C").size(), 1U);
    EXPECT_EQ(played.swallowed(), (Swallowed{true, true}));
    EXPECT_EQ(played.lights(2), (Lights{56}));
    EXPECT_EQ(popUps(played), (PopUps{{1, 2, 9, 16}}));
    EXPECT_EQ(played.of("exit").size(), 1U);
    EXPECT_EQ(played.of("leak").size(), 0U);
  }
}

TEST(Brightness, SameSeedGivesTheSameBytes) {
  const std::string scenario = launched + brighter + brighter + wake + brighter + settle;
  WITH_SEEDS(seed, 5) { EXPECT_EQ(playScenario(scenario, seed).bytes, playScenario(scenario, seed).bytes); }
}

TEST(Brightness, KeyOnTheBuiltInPanelOrOffEveryScreenGoesOn) {
  for (const auto& [x, y] : std::vector<std::pair<double, double>>{{100, 100}, {-50, 20}, {2000, 1441}}) {
    const Played played = playScenario(launched + pointer(x, y) + brighter + settle);
    EXPECT_EQ(played.swallowed(), (Swallowed{false, false})) << x;
    EXPECT_TRUE(popUps(played).empty());
    EXPECT_TRUE(played.lights(2).empty());
  }
}

TEST(Brightness, PointerOnASharedEdgeBelongsToOneScreen) {
  // The screens meet at x = 1512. Left edges belong to a screen, right ones do not; of the others the top one does.
  const auto swallowedAt = [](double x, double y) -> bool {
    return playScenario(launched + pointer(x, y) + brighter + settle).swallowed()[0];
  };
  EXPECT_FALSE(swallowedAt(1511.5, 500));
  EXPECT_TRUE(swallowedAt(1512, 500));
  EXPECT_TRUE(swallowedAt(2000, 1440));
  EXPECT_FALSE(swallowedAt(2000, 0));
  EXPECT_TRUE(swallowedAt(2000, 0.5));
  EXPECT_FALSE(swallowedAt(4072, 500));
}

TEST(Brightness, AtFullScaleIsWrittenAgain) {
  const Played played = playScenario(monitorAt(100, 100) + brighter + settle);
  EXPECT_EQ(played.writes(2).back(), "0.09 84 03 10 00 64 cc");
  EXPECT_EQ(popUps(played), (PopUps{{1, 2, 16, 16}}));
  EXPECT_EQ(played.swallowed(), (Swallowed{true, true}));
}

TEST(Brightness, DownRoundsToTheNearestRawValue) {
  const Played played = playScenario(monitorAt(50, 100) + darker + settle);
  EXPECT_EQ(played.lights(2), (Lights{44}));
  EXPECT_EQ(popUps(played), (PopUps{{1, 2, 7, 16}}));
}

TEST(Brightness, OfAMonitorAboveItsMaximumComesBackIntoTheScale) {
  const Played played = playScenario(monitorAt(120, 100) + darker + settle);
  EXPECT_TRUE(logged(played, "info BrightnessController: Display 2 brightness 120/100"));
  EXPECT_EQ(played.lights(2), (Lights{100}));
  EXPECT_EQ(popUps(played), (PopUps{{1, 2, 16, 16}}));
}

TEST(Brightness, OfAMonitorWithoutMaximumCannotBeSet) {
  const Played played = playScenario(monitorAt(0, 0) + brighter + settle);
  EXPECT_TRUE(logged(played, "error BrightnessController: Display 2 reported a maximum brightness of 0"));
  EXPECT_EQ(played.swallowed(), (Swallowed{false, false}));
}

TEST(Brightness, ReleaseIsSwallowedAndSendsNothing) {
  const Played played = playScenario(launched + release("brightnessUp") + settle);
  EXPECT_EQ(played.swallowed(), (Swallowed{true}));
  EXPECT_EQ(played.writes(2).size(), 2U);  // the read's requests
  EXPECT_TRUE(popUps(played).empty());
}

TEST(Brightness, HeldKeySendsAtMostOneStaleValueAfterTheLastPress) {
  // 30 presses a second for 10 s, up and down so that every press changes the level.
  std::string held = press("brightnessUp");
  for (int i = 1; i < 300; ++i) {
    held += advance(0.033333333) + repeated((i / 7) % 2 ? "brightnessDown" : "brightnessUp");
  }
  WITH_SEEDS(seed, 5) {
    const Played played = playScenario(launched + held + settle, seed);
    double last = 0;
    for (const auto& input : played.of("input")) last = input["t"];
    std::vector<std::string> after;
    for (const auto& call : played.calls("IOAVServiceWriteI2C")) {
      if (call["t"] > last) after.push_back(call["args"]["bytes"]);
    }
    // Each value goes out twice.
    EXPECT_LE(after.size(), 4U);
    const int filled = popUps(played).back()[2];
    EXPECT_EQ(played.lights(2).back(), static_cast<int>(std::lround(filled * 6.25)));
    EXPECT_EQ(played.swallowed(), Swallowed(300, true));
    EXPECT_EQ(played.status, 0);
  }
}

TEST(Brightness, NewerValueIsSentAfterTheOneUnderWay) {
  const Played played = playScenario(launched + brighter + advance(0.015) + brighter + brighter + settle);
  EXPECT_EQ(played.writes(2), (Logs{"0.01 82 01 10 fd", "0.02 82 01 10 fd", "0.08 84 03 10 00 38 90",
                                    "0.09 84 03 10 00 38 90", "0.1 84 03 10 00 45 ed", "0.11 84 03 10 00 45 ed"}));
}

TEST(Brightness, ValueEqualToTheOneUnderWayIsNotSentAgain) {
  const Played played = playScenario(monitorAt(100, 100) + brighter + advance(0.015) + brighter + settle);
  EXPECT_EQ(played.writes(2).size(), 4U);
}

TEST(Brightness, EachMonitorHasAQueueOfItsOwn) {
  const std::string right = display(3, {{"name", "Right"},
                                        {"frame", {4072, 0, 1920, 1080}},
                                        {"vendor", 4268},
                                        {"product", 41200},
                                        {"serial", 7002},
                                        {"monitor", {{"current", 10}, {"maximum", 80}}}});
  const Played played = playScenario(launched + right + settle + brighter + pointer(5000, 500) + darker + settle);
  EXPECT_EQ(played.lights(2), (Lights{56}));
  EXPECT_EQ(played.lights(3), (Lights{5}));
  // Both drains run in the same 20 ms.
  EXPECT_EQ(played.writes(2).back().substr(0, 4), played.writes(3).back().substr(0, 4));
  EXPECT_EQ(popUps(played), (PopUps{{1, 2, 9, 16}, {1, 3, 1, 16}}));
}

TEST(Brightness, OfOverlappingScreensTheOneWithTheMenuBarIsTheFirst) {
  const std::string under = line("display", {{"id", 4294967295U},
                                             {"name", "Under"},
                                             {"frame", {-100, -100, 300, 300}},
                                             {"vendor", 1},
                                             {"product", 2},
                                             {"serial", 3},
                                             {"monitor", {{"current", 10}, {"maximum", 100}}}});
  const std::string main = display(2, {{"name", "Main"},
                                       {"frame", {0, 0, 100, 100}},
                                       {"vendor", 1},
                                       {"product", 2},
                                       {"serial", 4},
                                       {"monitor", {{"current", 50}, {"maximum", 65535}}}});
  const Played played =
      playScenario(under + main + launch + settle + pointer(50, 50) + brighter + pointer(-50, 50) + brighter + settle);
  EXPECT_EQ(played.lights(2), (Lights{4096}));
  const auto popUp = played.calls("OSDManager.showImage").back();
  EXPECT_EQ(popUp["args"]["display"], 4294967295U);
  EXPECT_EQ(popUp["args"]["filled"], 2);
}

// ---- Which monitor belongs to which display ----

TEST(Brightness, TwinsAreRefused) {
  const std::string twins =
      displayAt(2, {{"serial", 0}}) + displayAt(3, {{"serial", 0}}) + pointAt(2) + launch + settle;
  const Played played = playScenario(twins + brighter + settle);
  EXPECT_TRUE(logged(played, "error BrightnessController: Display 2 has 2 matching DDC services, skipping it"));
  EXPECT_TRUE(logged(played, "error BrightnessController: Display 3 has 2 matching DDC services, skipping it"));
  EXPECT_EQ(played.swallowed(), (Swallowed{false, false}));
  EXPECT_EQ(played.status, 0);

  // Once one of them goes, the other is no longer ambiguous.
  const Played one = playScenario(twins + displayGone(3) + settle + brighter + settle);
  EXPECT_EQ(one.lights(2), (Lights{56}));
  EXPECT_EQ(one.status, 0);
}

TEST(Brightness, TwinsOfWhichOneCanBeReachedAreRefusedToo) {
  // Nothing tells which of the two the one service reaches.
  const std::string twins = displayAt(2, {{"serial", 0}}) + displayAt(3, {{"serial", 0}, {"monitor", nullptr}});
  const std::string keys = pointAt(2) + brighter + pointAt(3) + brighter + settle;
  WITH_SEEDS(seed, 3) {
    const Played played = playScenario(twins + launch + settle + keys, seed);
    EXPECT_EQ(logs(played),
              (Logs{"info AppDelegate: Media key tap installed",
                    "error BrightnessController: Display 2 is one of 2 that match the same DDC service, skipping it",
                    "error BrightnessController: Display 3 is one of 2 that match the same DDC service, skipping it"}));
    EXPECT_EQ(played.swallowed(), Swallowed(4, false));
    EXPECT_TRUE(played.writes(2).empty());
  }

  // One that comes later takes the first along, and sets it free when it goes.
  const Played later = playScenario(displayAt(2, {{"serial", 0}}) + launch + settle +
                                    displayAt(3, {{"serial", 0}, {"monitor", nullptr}}) + settle + keys +
                                    displayGone(3) + settle + pointAt(2) + brighter + settle);
  EXPECT_EQ(later.swallowed(), (Swallowed{false, false, false, false, true, true}));
  EXPECT_EQ(later.lights(2), (Lights{56}));

  // A built-in panel has no service to mistake.
  const Played panel = playScenario(
      displayAt(2) + displayAt(3, {{"serial", 2}, {"builtin", true}, {"monitor", nullptr}}) + launch + settle + keys);
  EXPECT_EQ(panel.lights(2), (Lights{56}));
}

TEST(Brightness, DisplaysThatDifferInOneNumberAreToldApart) {
  for (const char* const number : {"vendor", "product", "serial"}) {
    json other = {{"serial", 2}};
    other[number] = 77;
    const Played played = playScenario(displayAt(2) + displayAt(3, other) + launch + settle + pointAt(2) + brighter +
                                       pointAt(3) + darker + settle);
    EXPECT_EQ(played.lights(2), (Lights{56})) << number;
    EXPECT_EQ(played.lights(3), (Lights{44})) << number;
  }
}

TEST(Brightness, OfADisplayWithoutServiceIsLoggedOnce) {
  const Played played = playScenario(displayAt(5, {{"monitor", nullptr}}) + launch + settle);
  EXPECT_EQ(logs(played), (Logs{"info AppDelegate: Media key tap installed",
                                "error BrightnessController: Display 5 has 0 matching DDC services, skipping it"}));
}

TEST(Brightness, OfAServiceThatIsNotExternalIsNotControlled) {
  const Played played = playScenario(
      displayAt(5, {{"monitor", {{"current", 1}, {"maximum", 2}}}, {"location", "Embedded"}}) + launch + settle);
  EXPECT_TRUE(logged(played, "error BrightnessController: Display 5 has 0 matching DDC services, skipping it"));
  EXPECT_TRUE(played.calls("IOAVServiceCreateWithService").empty());
}

TEST(Brightness, UsesWhateverTheRegistryHolds) {
  const Played played = playScenario(twoDisplays + registry({leftFramebuffer, {{"name", "IODPDevice"}}, proxyOf(2)}) +
                                     launch + settle + brighter + settle);
  EXPECT_EQ(played.lights(2), (Lights{56}));

  const Played two = playScenario(twoDisplays + registry({leftFramebuffer, proxy(), proxy()}) + launch + settle);
  EXPECT_TRUE(logged(two, "error BrightnessController: Display 2 has 2 matching DDC services, skipping it"));
}

TEST(Brightness, ServiceReachesTheMonitorOfItsDisplayAsItIsNow) {
  const std::string entries = registry({leftFramebuffer, proxyOf(2)});
  // The registry may name a display that is not there, or not yet.
  const Played before = playScenario(entries + launched + brighter + settle);
  EXPECT_EQ(before.lights(2), (Lights{56}));
  const Played again = playScenario(launched + entries + displayGone(2) + settle + left() + pointer(2000, 700) +
                                    settle + brighter + settle);
  EXPECT_EQ(again.lights(2), (Lights{56}));
  EXPECT_EQ(again.status, 0);
}

// ---- Reading and writing ----

TEST(Brightness, ReadIsTriedFiveTimes) {
  const Played played = playScenario(twoDisplays + fault(2, "no-answer") + launch + settle);
  EXPECT_TRUE(logged(played,
                     "error BrightnessController: Reading brightness of display 2 failed: Reading VCP 0x10 "
                     "failed after 5 attempts"));
  EXPECT_EQ(played.writes(2).size(), 10U);
  const auto reads = played.calls("IOAVServiceReadI2C");
  ASSERT_EQ(reads.size(), 5U);
  EXPECT_EQ(reads[0]["t"], 0.07);
  EXPECT_EQ(reads[4]["t"], 0.43);
  EXPECT_EQ(played.of("log").back()["t"], 0.45);
  EXPECT_EQ(played.status, 0);
}

TEST(Brightness, ReadSucceedsAtTheFifthAttempt) {
  for (const char* const name : {"no-answer", "bad-checksum"}) {
    const Played played = playScenario(twoDisplays + fault(2, name, 4) + launch + settle);
    EXPECT_TRUE(logged(played, "info BrightnessController: Display 2 brightness 50/100")) << name;
    EXPECT_EQ(played.calls("IOAVServiceReadI2C").size(), 5U);
  }
}

TEST(Brightness, WriteIsTriedFiveTimesAndDropped) {
  for (const char* const name : {"write-fails", "second-write-fails"}) {
    const Played played = playScenario(launched + fault(2, name) + brighter + settle + fault(2, "none") + settle);
    EXPECT_EQ(played.writes(2).size(), 2U + 10U) << name;
    EXPECT_EQ(logs(played).back(), "error DDC: Writing VCP 0x10 = 56 failed after 5 attempts");
    EXPECT_EQ(logs(played).size(), 3U);
    EXPECT_EQ(played.of("log").back()["t"], 0.07 + 5 * 0.04);
    EXPECT_EQ(played.status, 0);
  }
}

TEST(Brightness, WriteGoesOnToTheNextValueAfterAFailure) {
  const Played played =
      playScenario(launched + fault(2, "write-fails", 10) + brighter + advance(0.1) + brighter + settle);
  EXPECT_TRUE(logged(played, "error DDC: Writing VCP 0x10 = 56 failed after 5 attempts"));
  EXPECT_EQ(played.lights(2), (Lights{63}));
}

TEST(Brightness, RetriedWriteArrives) {
  const Played played = playScenario(launched + fault(2, "second-write-fails", 2) + brighter + settle);
  EXPECT_EQ(played.writes(2).size(), 2U + 6U);
  EXPECT_EQ(logs(played).size(), 2U);
  EXPECT_EQ(played.lights(2), (Lights{56}));
}

TEST(Brightness, MonitorsThatFailAtTheSameMomentAreAllLogged) {
  std::string desk;
  std::string keys;
  for (int id = 2; id <= 5; ++id) {
    desk += displayAt(id);
    keys += fault(id, "write-fails") + pointAt(id) + brighter;
  }
  WITH_SEEDS(seed, 5) {
    const Played played = playScenario(desk + launch + settle + keys + settle, seed);
    EXPECT_EQ(timesLogged(played, "error DDC: Writing VCP 0x10 = 56 failed after 5 attempts"), 4);
    EXPECT_EQ(played.status, 0);
  }
}

// ---- Monitors that are not read yet ----

// As it may be of a screen that is just about to go.
TEST(Brightness, KeyOverAScreenWithoutANumberGoesOn) {
  for (const int status : {-1, 0}) {
    const Played played = playScenario(launched + fail("NSScreen.deviceDescription", status, 1, 2) + brighter + settle +
                                       brighter + settle);
    EXPECT_EQ(played.swallowed(), (Swallowed{false, false, true, true}));
    EXPECT_EQ(played.lights(2), (Lights{56}));
  }
}

TEST(Brightness, AScreenWithoutANumberHasNoSlider) {
  const auto captions = [](const std::string& before) {
    const Played played =
        playScenario(twoDisplays + displayAt(30) + launch + settle + before + menu(true) + snapshot("open"));
    const nlohmann::json menu = played.of("snapshot")[0]["menu"];
    std::vector<std::string> rows;
    for (const auto& item : menu) {
      if (!item["slider"].is_null()) rows.push_back(item["slider"]["caption"]);
    }
    return rows;
  };
  EXPECT_EQ(captions(""), (std::vector<std::string>{"Left", "D"}));
  for (const int status : {-1, 0}) {
    // The first is the built-in screen's.
    EXPECT_EQ(captions(fail("NSScreen.deviceDescription", status, 2)), std::vector<std::string>{"D"});
  }
}

TEST(Brightness, KeyBeforeTheFirstReadGoesOn) {
  const Played played = playScenario(twoDisplays + launch + brighter + settle);
  EXPECT_EQ(played.swallowed(), (Swallowed{false, false}));
  EXPECT_EQ(played.calls("IOAVServiceReadI2C").size(), 1U);  // no second read while one is under way
}

TEST(Brightness, KeyOverAMonitorThatDidNotAnswerAsksItAgain) {
  const std::string slow = twoDisplays + fault(2, "no-answer") + launch + settle;
  WITH_SEEDS(seed, 3) {
    const Played played = playScenario(slow + fault(2, "none") + brighter + settle + brighter + settle, seed);
    EXPECT_EQ(played.swallowed(), (Swallowed{false, false, true, true}));
    EXPECT_EQ(played.lights(2), (Lights{56}));
    EXPECT_EQ(played.calls("IOAVServiceReadI2C").size(), 5U + 1U);
  }
  // One read at a time, however fast the keys come; after it has failed, the next.
  const Played held =
      playScenario(slow + times(10, repeated("brightnessUp") + advance(0.03)) + settle + brighter + settle);
  EXPECT_EQ(held.calls("IOAVServiceReadI2C").size(), 5U + 5U + 5U);
  EXPECT_EQ(held.swallowed(), Swallowed(12, false));
  EXPECT_EQ(held.status, 0);
  // A key elsewhere is no reason.
  const Played elsewhere = playScenario(slow + pointer(100, 100) + brighter + key("mute") + settle);
  EXPECT_EQ(elsewhere.calls("IOAVServiceReadI2C").size(), 5U);
}

TEST(Brightness, OpeningTheMenuAsksMonitorsThatDidNotAnswerAgain) {
  const std::string desk = displayAt(2) + displayAt(3) + displayAt(4) + fault(2, "no-answer") + fault(3, "no-answer") +
                           launch + settle + fault(2, "none") + fault(3, "none");
  const Played played = playScenario(desk + menu(true) + settle + menu(false) + menu(true) + settle + pointAt(2) +
                                     brighter + pointAt(3) + brighter + settle);
  EXPECT_EQ(played.swallowed(), Swallowed(4, true));
  EXPECT_EQ(played.lights(2), (Lights{56}));
  EXPECT_EQ(played.lights(3), (Lights{56}));
  // Only those that have told nothing yet are asked, and only once.
  EXPECT_EQ(played.calls("IOAVServiceReadI2C").size(), 5U + 5U + 1U + 2U);
}

TEST(Brightness, OpeningTheMenuDuringAReadStartsNoSecondOne) {
  const Played played = playScenario(twoDisplays + launch + menu(true) + menu(false) + menu(true) + settle);
  EXPECT_EQ(played.calls("IOAVServiceReadI2C").size(), 1U);
}

// ---- Displays that come and go, and wakes ----

TEST(Brightness, DisplayThatGoesWhileItIsReadLeavesNothing) {
  for (const double at : {0., 0.005, 0.01, 0.015, 0.03, 0.07, 0.1}) {
    WITH_SEEDS(seed, 10) {
      const Played played =
          playScenario(twoDisplays + launch + advance(at) + displayGone(2) + settle + brighter + settle, seed);
      EXPECT_EQ(played.status, 0) << at;
      EXPECT_EQ(played.swallowed(), (Swallowed{false, false})) << at;
    }
  }
}

TEST(Brightness, DisplayConnectedAgainIsReadAfresh) {
  const Played played = playScenario(launched + displayGone(2) + advance(0.02) + left(25) + settle + brighter + settle);
  EXPECT_TRUE(logged(played, "info BrightnessController: Display 2 brightness 25/100"));
  EXPECT_EQ(played.lights(2), (Lights{31}));
  EXPECT_EQ(played.status, 0);
}

TEST(Brightness, WakeReadsAgainAndTheStepsAreUnknownMeanwhile) {
  const Played played =
      playScenario(launched + monitor(2, {{"current", 80}}) + wake + brighter + settle + brighter + settle);
  EXPECT_EQ(played.swallowed(), (Swallowed{false, false, true, true}));
  EXPECT_EQ(played.lights(2), (Lights{81}));  // 80 of 100 is step 12
}

TEST(Brightness, WakesWhileAMonitorIsReadLeaveItControllable) {
  for (const int wakes : {1, 3}) {
    for (int milliseconds = 0; milliseconds <= 120; milliseconds += 5) {
      const std::string scenario = twoDisplays + launch + times(wakes, advance(milliseconds * 0.001) + wake);
      WITH_SEEDS(seed, 3) {
        const Played played = playScenario(scenario + settle + brighter + settle, seed);
        EXPECT_EQ(played.lights(2), (Lights{56})) << wakes << " wakes every " << milliseconds << " ms";
        EXPECT_EQ(played.status, 0);
      }
    }
  }
}

TEST(Brightness, WakeInTheMiddleOfADrainLetsTheValueThrough) {
  for (const double at : {0., 0.005, 0.01, 0.015, 0.02}) {
    WITH_SEEDS(seed, 10) {
      const Played played = playScenario(launched + brighter + advance(at) + wake + settle + brighter + settle, seed);
      EXPECT_EQ(played.status, 0);
      // The read comes after the drain, so that it sees what the first press has set: not quite nine steps.
      EXPECT_TRUE(logged(played, "info BrightnessController: Display 2 brightness 56/100")) << at;
      EXPECT_EQ(popUps(played), (PopUps{{1, 2, 9, 16}, {1, 2, 9, 16}})) << at;
      EXPECT_EQ(played.lights(2), (Lights{56})) << at;
    }
  }
}

TEST(Brightness, ReadingForARecordThatWasReplacedCountsForNothing) {
  // The wake comes after the monitor was asked and before it has answered.
  WITH_SEEDS(seed, 5) {
    const Played played = playScenario(
        twoDisplays + launch + advance(0.03) + wake + advance(0.045) + brighter + settle + brighter + settle, seed);
    EXPECT_EQ(timesLogged(played, "info BrightnessController: Display 2 brightness 50/100"), 1);
    EXPECT_EQ(played.swallowed(), (Swallowed{false, false, true, true}));
    EXPECT_EQ(played.calls("IOAVServiceReadI2C").size(), 2U);
  }
}

TEST(Brightness, ReadsForRecordsThatWereReplacedAreGivenUp) {
  // The first read finishes its attempt, the other three never begin one.
  const Played played =
      playScenario(twoDisplays + fault(2, "no-answer", 1) + launch + advance(0.03) + wake + wake + wake + settle);
  const auto reads = played.calls("IOAVServiceReadI2C");
  ASSERT_EQ(reads.size(), 2U);
  EXPECT_EQ(reads[0]["t"], 0.07);
  EXPECT_EQ(reads[1]["t"], 0.16);
  EXPECT_TRUE(logged(played, "info BrightnessController: Display 2 brightness 50/100"));
}

TEST(Brightness, WithTheProgramsThreadsRunningFreely) {
  const Played played =
      playScenario(launched + brighter + brighter + wake + brighter + settle + brighter + displayGone(2) + settle, 1,
                   simulator::Clock::live);
  EXPECT_EQ(played.status, 0);
}

// ---- Bursts of refreshes ----

namespace {

// On the wire each read follows the two requests that it answers, and a value goes out twice: jobs take turns.
void expectTurnsOnTheWire(const Played& played, int display) {
  std::string wire;
  for (const auto& call : played.of("call")) {
    if (call["args"].value("display", json()) != display) continue;
    if (call["api"] == "IOAVServiceReadI2C") wire += "R ";
    if (call["api"] == "IOAVServiceWriteI2C") {
      wire += call["args"]["bytes"].get<std::string>().starts_with("82 01") ? "g" : "s";
    }
  }
  for (std::size_t at = 0; at < wire.size();) {
    const bool whole = wire.compare(at, 4, "ggR ") == 0 || wire.compare(at, 2, "ss") == 0;
    ASSERT_TRUE(whole) << wire.substr(at) << " after " << at;
    at += wire[at] == 'g' ? 4 : 2;
  }
}

// After a burst of refreshes the monitors have their levels in half a second: the keys work on all of them.
void expectAlive(const std::string& burst, const std::vector<int>& displays, std::uint64_t seed) {
  std::string keys;
  for (const int id : displays) keys += pointAt(id) + brighter;
  const Played played = playScenario(burst + advance(0.5) + keys + settle, seed);
  EXPECT_EQ(played.swallowed(), Swallowed(2 * displays.size(), true));
  for (const int id : displays) {
    EXPECT_EQ(played.lights(id), (Lights{56})) << id;
    expectTurnsOnTheWire(played, id);
  }
  EXPECT_EQ(played.status, 0);
}

}  // namespace

TEST(Brightness, BurstOfWakesLeavesTheMonitorAlive) {
  for (const int wakes : {2, 6, 10, 50}) {
    for (const double spacing : {0., 0.001, 0.002, 0.005, 0.007, 0.01, 0.013, 0.017, 0.02}) {
      const std::string burst = displayAt(2) + launch + settle + times(wakes, wake + advance(spacing));
      WITH_SEEDS(seed, 10) {
        SCOPED_TRACE(std::to_string(wakes) + " wakes every " + std::to_string(spacing) + " s");
        expectAlive(burst, {2}, seed);
        if (testing::Test::HasFailure()) return;
      }
    }
  }
}

TEST(Brightness, BurstAtAnyMomentsLeavesTheMonitorsAlive) {
  std::mt19937_64 random(1);
  WITH_SEEDS(seed, 60) {
    // Wakes at moments of their own within a second, beside a write and a display that comes and goes.
    std::string burst = displayAt(2) + displayAt(3) + launch + settle;
    double left = 1;
    for (int i = 0; i < 48; ++i) {
      const double pause = std::min(left, static_cast<double>(random() % 40) / 1000);
      left -= pause;
      burst += wake + advance(pause);
      if (i == 20) burst += displayAt(4);
      if (i == 40) burst += displayGone(4);
    }
    SCOPED_TRACE(burst);
    expectAlive(burst, {2, 3}, seed);
    if (testing::Test::HasFailure()) return;
  }
}

TEST(Brightness, MonitorsPluggedInOneAfterTheOtherAreAllAlive) {
  for (const double spacing : {0., 0.001, 0.002, 0.003, 0.004, 0.005}) {
    std::string burst = launch + settle;
    std::vector<int> displays;
    for (int id = 2; id <= 7; ++id) {
      burst += displayAt(id) + advance(spacing);
      displays.push_back(id);
    }
    WITH_SEEDS(seed, 20) {
      SCOPED_TRACE(spacing);
      expectAlive(burst, displays, seed);
      if (testing::Test::HasFailure()) return;
    }
  }
}

TEST(Brightness, MonitorThatFlickersOnAndOffIsAlive) {
  for (const double spacing : {0., 0.005, 0.013, 0.04}) {
    WITH_SEEDS(seed, 10) {
      expectAlive(displayAt(2) + launch + settle +
                      times(24, displayGone(2) + advance(spacing / 2) + displayAt(2) + advance(spacing / 2)),
                  {2}, seed);
    }
  }
}

TEST(Brightness, ValuesGivenToAMonitorGoOutDuringABurst) {
  // The second value is waiting while the first is sent, and the monitor takes neither before the fourth attempt.
  for (const double at : {0., 0.015, 0.06, 0.15}) {
    WITH_SEEDS(seed, 5) {
      const Played played =
          playScenario(displayAt(2) + pointAt(2) + launch + settle + fault(2, "second-write-fails", 3) + brighter +
                           advance(0.005) + brighter + advance(at) + times(20, wake) + advance(0.5) + brighter + settle,
                       seed);
      EXPECT_EQ(played.lights(2), (Lights{56, 63, 69})) << at;
      EXPECT_TRUE(played.swallowed()[4]) << at;
      EXPECT_FALSE(logged(played, "error DDC: Writing VCP 0x10 = 56 failed after 5 attempts"));
      expectTurnsOnTheWire(played, 2);
    }
  }
}

TEST(Brightness, MonitorThatNeedsAllAttemptsIsAliveAfterABurst) {
  WITH_SEEDS(seed, 5) {
    const Played played = playScenario(displayAt(2) + pointAt(2) + launch + settle + fault(2, "bad-checksum", 4) +
                                           times(30, wake) + advance(0.5) + brighter + settle,
                                       seed);
    EXPECT_EQ(played.lights(2), (Lights{56}));
  }
}

// ---- What can be missing or fail ----

TEST(Brightness, WithoutAFunctionOfIOKitIsUnavailable) {
  for (const char* const symbol : {"IOAVServiceCreateWithService", "IOAVServiceWriteI2C", "IOAVServiceReadI2C"}) {
    const Played played = playScenario(missingSymbol(symbol) + launched + brighter + settle);
    EXPECT_TRUE(logged(played, std::string("error BrightnessController: Brightness control unavailable: ") + symbol +
                                   " not found in IOKit"))
        << symbol;
    EXPECT_EQ(played.swallowed(), (Swallowed{false, false}));
    EXPECT_EQ(played.status, 0);
  }
}

TEST(Brightness, FunctionsOfIOKitAreLookedUpInTheirOrder) {
  constexpr std::array order = {"IOAVServiceCreateWithService", "IOAVServiceWriteI2C", "IOAVServiceReadI2C"};
  for (std::size_t first = 0; first < order.size(); ++first) {
    std::string missing;
    for (std::size_t i = first; i < order.size(); ++i) missing += missingSymbol(order[i]);
    EXPECT_TRUE(logged(playScenario(missing + launched),
                       std::string("error BrightnessController: Brightness control unavailable: ") + order[first] +
                           " not found in IOKit"));
  }
}

TEST(Brightness, WithoutIOKitIsUnavailable) {
  const Played played = playScenario(missingLibrary("IOKit") + launched + brighter + wake + settle);
  EXPECT_EQ(logs(played).back().find("error BrightnessController: Brightness control unavailable: Loading IOKit: "
                                     "/System/Library/Frameworks/IOKit.framework/IOKit: "),
            0U)
      << logs(played).back();
  EXPECT_EQ(played.status, 0);
}

TEST(Brightness, WithoutThePopUpLibraryWorksSilently) {
  const std::string showImage = "showImage:onDisplayID:priority:msecUntilFade:filledChiclets:totalChiclets:locked:";
  for (const auto& [missing, message] : std::vector<std::pair<std::string, std::string>>{
           {missingLibrary("/System/Library/PrivateFrameworks/OSD.framework/OSD"), "Loading OSD.framework: "},
           {missingSymbol("OSDManager"), "OSDManager class not found"},
           {missingSymbol("+[OSDManager sharedManager]"), "OSDManager does not respond to sharedManager"},
           {missingSymbol("sharedManager"), "OSDManager does not respond to sharedManager"},
           {fail("OSDManager.sharedManager", 1), "OSDManager.sharedManager returned nil"},
           {missingSymbol("-[OSDManager " + showImage + "]"), "OSDManager does not respond to " + showImage},
           {missingSymbol(showImage), "OSDManager does not respond to " + showImage}}) {
    const Played played = playScenario(missing + launched + brighter + settle);
    EXPECT_EQ(logs(played)[0].find("error AppDelegate: Native pop-up unavailable: " + message), 0U) << logs(played)[0];
    EXPECT_TRUE(popUps(played).empty());
    EXPECT_EQ(played.lights(2), (Lights{56}));
    EXPECT_EQ(played.status, 0);
  }
}

TEST(Brightness, KeepsTheDisplaysWhenTheRegistryCannotBeWalked) {
  const Played played =
      playScenario(launched + fail("IORegistryEntryCreateIterator", -536870212) + wake + settle + brighter + settle);
  EXPECT_EQ(logs(played).back(), "error BrightnessController: Iterating the I/O Registry failed (-536870212)");
  EXPECT_EQ(played.lights(2), (Lights{56}));
  EXPECT_EQ(played.status, 0);
}

TEST(Brightness, WalksTheRegistryAgainWhenItChangesMeanwhile) {
  // A walk asks for a platform, for each display's pipe, framebuffer and service, and for the end.
  const std::string keys = pointAt(2) + brighter + pointAt(3) + brighter + settle;
  const std::string panel = displayAt(9, {{"builtin", true}, {"monitor", nullptr}});
  for (int nth = 1; nth <= 8; ++nth) {
    const Played other =
        playScenario(displayAt(2) + displayAt(3) + during("IOIteratorNext", panel, nth) + launch + settle + keys);
    EXPECT_EQ(other.lights(2), (Lights{56})) << nth;
    EXPECT_EQ(other.lights(3), (Lights{56})) << nth;
    EXPECT_EQ(other.status, 0);
  }
  for (int nth = 1; nth <= 5; ++nth) {
    const Played comes =
        playScenario(displayAt(2) + during("IOIteratorNext", displayAt(3), nth) + launch + settle + keys);
    EXPECT_EQ(comes.lights(2), (Lights{56})) << nth;
    EXPECT_EQ(comes.lights(3), (Lights{56})) << nth;
    EXPECT_EQ(timesLogged(comes, "error BrightnessController: Display 3 has 0 matching DDC services, skipping it"), 0);
  }
  for (int nth = 1; nth <= 8; ++nth) {
    const Played goes = playScenario(displayAt(2) + displayAt(3) + during("IOIteratorNext", displayGone(3), nth) +
                                     launch + settle + keys);
    EXPECT_EQ(goes.lights(2), (Lights{56})) << nth;
    EXPECT_EQ(goes.status, 0);
  }
}

TEST(Brightness, UsesWhatTheLastWalkFound) {
  // The first walk has found the service already when the registry is replaced by one with another in its place.
  const Played played = playScenario(twoDisplays + registry({leftFramebuffer, proxyOf(2), {{"name", "Last"}}}) +
                                     during("IOIteratorNext", registry({leftFramebuffer, proxyOf(2)}), 3) + launch +
                                     settle + brighter + settle);
  EXPECT_EQ(played.calls("IOAVServiceCreateWithService").size(), 2U);
  EXPECT_EQ(played.lights(2), (Lights{56}));  // not two matching services
}

TEST(Brightness, TakesWhatTheBestWalkFoundWhenTheRegistryNeverRests) {
  // Whatever changes, the display's service is found in each walk, and there are no more than five.
  const Played restless =
      playScenario(twoDisplays + fail("IOIteratorIsValid", 1, 1, 9) + launch + settle + brighter + settle);
  EXPECT_EQ(restless.calls("IOAVServiceCreateWithService").size(), 5U);
  EXPECT_EQ(logs(restless), (Logs{"info AppDelegate: Media key tap installed",
                                  "info BrightnessController: Display 2 brightness 50/100"}));
  EXPECT_EQ(restless.lights(2), (Lights{56}));
  // The first walk comes as far as the service, those after it not even there.
  const std::string both = registry({leftFramebuffer, proxyOf(2)});
  const Played once =
      playScenario(twoDisplays + both + during("IOIteratorNext", both, 3, 20) + launch + settle + brighter + settle);
  EXPECT_EQ(once.calls("IOAVServiceCreateWithService").size(), 1U);
  EXPECT_EQ(once.lights(2), (Lights{56}));
  // Of walks that come as far the last one counts: the others found a service that reaches nothing any more.
  const Played replaced =
      playScenario(twoDisplays + registry({leftFramebuffer, proxy()}) + during("IOIteratorNext", both, 3) +
                   fail("IOIteratorIsValid", 1, 1, 5) + launch + settle + brighter + settle);
  EXPECT_EQ(replaced.lights(2), (Lights{56}));
  // The fifth walk counts alone when nothing changed meanwhile, though those before it found more.
  const Played fifth = playScenario(twoDisplays + registry({leftFramebuffer, proxyOf(2), proxyOf(2)}) +
                                    fail("IOIteratorIsValid", 1, 1, 4) + during("IOIteratorIsValid", both, 4) + launch +
                                    settle + brighter + settle);
  EXPECT_EQ(fifth.calls("IOAVServiceCreateWithService").size(), 9U);
  EXPECT_EQ(fifth.lights(2), (Lights{56}));
}

TEST(Brightness, KeepsTheDisplaysWhenNoWalkFindsAny) {
  const std::string same = registry({leftFramebuffer, proxyOf(2)});
  const Played played =
      playScenario(launched + during("IOIteratorNext", same, 1, 99) + wake + settle + brighter + settle);
  EXPECT_EQ(logs(played).back(), "error BrightnessController: The I/O Registry changed during each of 5 walks");
  EXPECT_EQ(played.lights(2), (Lights{56}));
  EXPECT_EQ(played.status, 0);
}

TEST(Brightness, ForgetsTheDisplaysWhenTheirListCannotBeHad) {
  for (const int nth : {1, 2}) {
    const Played played =
        playScenario(launched + fail("CGGetOnlineDisplayList", 1000, nth) + wake + settle + brighter + settle);
    EXPECT_EQ(played.swallowed(), (Swallowed{false, false})) << nth;
    EXPECT_EQ(played.calls("IOAVServiceReadI2C").size(), 1U) << nth;
  }
}

TEST(Brightness, ForgetsTheLastDisplayWithItsService) {
  const Played played = playScenario(launched + registry(json::array()) + wake + settle + brighter + settle);
  EXPECT_TRUE(logged(played, "error BrightnessController: Display 2 has 0 matching DDC services, skipping it"));
  EXPECT_EQ(played.swallowed(), (Swallowed{false, false}));
}

TEST(Brightness, DisplayThatGoesWhileTheDisplaysAreListedIsLeftOut) {
  const Played played = playScenario(displayAt(2) + displayAt(3) + during("CGGetOnlineDisplayList", displayGone(3), 2) +
                                     launch + settle + pointAt(2) + brighter + settle);
  EXPECT_EQ(played.lights(2), (Lights{56}));
  EXPECT_EQ(played.status, 0);
  EXPECT_EQ(logs(played)[1], "info BrightnessController: Display 2 brightness 50/100");
}

TEST(Brightness, SkipsAServiceThatCannotBeMade) {
  const Played played = playScenario(fail("IOAVServiceCreateWithService", 1) + launched);
  EXPECT_EQ(logs(played),
            (Logs{"info AppDelegate: Media key tap installed", "error DDC: IOAVServiceCreateWithService returned nil",
                  "error BrightnessController: Display 2 has 0 matching DDC services, skipping it"}));

  // Nor one that does not tell its name: of the platform, pipe, framebuffer and service the fourth.
  const Played nameless =
      playScenario(displayAt(2) + fail("IORegistryEntryGetName", -1, 4) + launch + settle + pointAt(2) + brighter);
  EXPECT_TRUE(nameless.calls("IOAVServiceCreateWithService").empty());

  // Those after it are found all the same.
  const Played second = playScenario(displayAt(2) + displayAt(3) + fail("IOAVServiceCreateWithService", 1) + launch +
                                     settle + pointAt(3) + brighter + settle);
  EXPECT_EQ(second.lights(3), (Lights{56}));
}

TEST(Brightness, SurvivesEveryFailureOfDiscovery) {
  for (const char* const call :
       {"IORegistryGetRootEntry", "IORegistryEntryCreateIterator", "IOIteratorNext", "IOIteratorIsValid",
        "IORegistryEntryGetName", "IORegistryEntryCreateCFProperty", "CGGetOnlineDisplayList",
        "IOAVServiceCreateWithService", "dlopen", "dlsym", "objc_lookUpClass"}) {
    for (int nth = 1; nth <= 6; ++nth) {
      const Played played = playScenario(fail(call, -1, nth) + launched + brighter + settle);
      EXPECT_EQ(played.status, 0) << call << " " << nth;
    }
  }
}

TEST(Brightness, NothingIsLeftWhenAReleaseFails) {
  const Played played = playScenario(fail("IOObjectRelease", -1, 1, 100) + launched + brighter + settle);
  EXPECT_EQ(played.status, 0);
  EXPECT_EQ(played.lights(2), (Lights{56}));
}

TEST(Brightness, OnlyTheProgramsOwnLookUpsCountAsFailed) {
  // Three look-ups: the functions of IOKit. The class of the pop-up service is found by the runtime.
  const Played played = playScenario(fail("dlsym", 1, 3) + launched);
  EXPECT_EQ(played.logs().back(),
            "error BrightnessController: Brightness control unavailable: IOAVServiceReadI2C not found in IOKit");
  const Played symbol = playScenario(missingSymbol("OBJC_CLASS_$_OSDManager") + launched);
  EXPECT_EQ(symbol.logs()[0], "error AppDelegate: Native pop-up unavailable: OSDManager class not found");
}
