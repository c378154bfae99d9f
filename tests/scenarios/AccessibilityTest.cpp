// The user's permission to receive keys: the wait for it, and its loss.
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/support/Lines.h"
#include "tests/support/Play.h"

using namespace lines;

namespace {

using Logs = std::vector<std::string>;
using Swallowed = std::vector<bool>;

const std::string brighter = key("brightnessUp");
const std::string untrusted = twoDisplays + accessibility(false) + launch + settle;

// What the delegate logged.
Logs logs(const Played& played) {
  Logs texts;
  for (const std::string& text : played.logs()) {
    const auto colon = text.find(" AppDelegate: ");
    if (colon != std::string::npos) texts.push_back(text.substr(colon + 14));
  }
  return texts;
}

const std::string waiting = "Waiting for Accessibility permission";
const std::string installed = "Media key tap installed";

}  // namespace

TEST(Accessibility, IsAskedForOnceAndPolled) {
  const Played played = playScenario(untrusted + advance(3600) + brighter + settle);
  EXPECT_EQ(played.of("prompt").size(), 1U);
  EXPECT_EQ(played.of("prompt")[0]["for"], "accessibility");
  EXPECT_EQ(played.logs()[0], "info AppDelegate: Waiting for Accessibility permission");
  EXPECT_TRUE(played.calls("CGEventTapCreate").empty());
  EXPECT_TRUE(played.of("input").empty());
  EXPECT_EQ(played.status, 0);
}

TEST(Accessibility, GrantedLaterInstallsTheTapAtTheNextPoll) {
  for (const std::string& open : {std::string(), menu(true)}) {
    const Played played =
        playScenario(untrusted + open + advance(2.95) + accessibility(true) + advance(10) + brighter + settle);
    const auto taps = played.calls("CGEventTapCreate");
    ASSERT_EQ(taps.size(), 1U);
    EXPECT_EQ(taps[0]["t"], 4.0);
    EXPECT_EQ(played.logs().back(), "info AppDelegate: Media key tap installed");
    EXPECT_EQ(played.lights(2), (std::vector<int>{56}));
    EXPECT_EQ(played.status, 0);
  }
}

// The poll that does not see the permission is the first.
TEST(Accessibility, IsFirstPolledForTwoSecondsAfterTheQuestion) {
  const Played played = playScenario(twoDisplays + accessibility(false) + fail("AXIsProcessTrusted", 1) + launch +
                                     accessibility(true) + advance(10));
  const auto taps = played.calls("CGEventTapCreate");
  ASSERT_EQ(taps.size(), 1U);
  EXPECT_EQ(taps[0]["t"], 4.0);
}

TEST(Accessibility, RefusedTapIsFinal) {
  // Also where the program looks after the tap: nobody has taken the permission away.
  for (const std::string& looks : {advance(100), wake + menu(true) + menu(false)}) {
    for (const char* const call : {"CGEventTapCreate", "CFMachPortCreateRunLoopSource"}) {
      const Played played = playScenario(fail(call, 1) + launched + looks + brighter + settle);
      EXPECT_EQ(played.logs()[0], "error AppDelegate: Could not install the media key tap");
      EXPECT_EQ(played.calls("CGEventTapCreate").size(), 1U);
      EXPECT_TRUE(played.of("input").empty());
      EXPECT_EQ(played.status, 0);
    }
  }
}

TEST(Accessibility, RefusedTapAfterTheWaitIsFinalToo) {
  const Played played = playScenario(untrusted + fail("CGEventTapCreate", 1) + accessibility(true) + advance(100));
  EXPECT_EQ(played.logs().back(), "error AppDelegate: Could not install the media key tap");
  EXPECT_EQ(played.calls("CGEventTapCreate").size(), 1U);
}

TEST(Accessibility, QuittingDuringTheWaitStopsThePoll) {
  const Played played = playScenario(untrusted + quit);
  EXPECT_EQ(played.status, 0);
  EXPECT_TRUE(played.of("leak").empty());
}

TEST(Accessibility, CannotBePolledForWithoutATimer) {
  const Played played =
      playScenario(fail("CFRunLoopTimerCreateWithHandler", 1) + untrusted + accessibility(true) + advance(100));
  EXPECT_TRUE(played.calls("CGEventTapCreate").empty());
  EXPECT_EQ(played.status, 0);
}

// ---- The permission is taken away ----

TEST(Accessibility, TakenAwayAndGivenBackRevivesTheKeys) {
  const std::vector<std::string> moments = {disableTap("timeout"), disableTap("user-input"), wake,
                                            menu(true) + menu(false), menu(true)};
  for (const std::string& moment : moments) {
    WITH_SEEDS(seed, 10) {
      const Played played = playScenario(launched + accessibility(false) + brighter + moment + brighter + advance(60) +
                                             brighter + accessibility(true) + advance(2) + brighter + settle,
                                         seed);
      EXPECT_EQ(logs(played), (Logs{installed, waiting, installed})) << moment;
      EXPECT_EQ(played.lights(2), (std::vector<int>{56})) << moment;
      // The old tap is gone before the new one comes.
      const auto taps = played.calls("CGEventTapCreate");
      const auto removals = played.calls("CFMachPortInvalidate");
      ASSERT_EQ(taps.size(), 2U) << moment;
      ASSERT_EQ(removals.size(), 2U) << moment;
      EXPECT_LE(removals[0]["t"], 0.1) << moment;
      EXPECT_GT(taps[1]["t"], 60) << moment;
      // The user is asked at launch and never again.
      EXPECT_EQ(played.calls("AXIsProcessTrustedWithOptions").size(), 1U);
      EXPECT_TRUE(played.of("prompt").empty());
      EXPECT_EQ(played.status, 0) << moment;
    }
  }
}

TEST(Accessibility, TakenAwayTwiceRevivesTheKeysTwice) {
  const std::string lost = accessibility(false) + wake + wake + menu(true) + menu(false) + advance(5);
  const std::string found = accessibility(true) + advance(2) + brighter + settle;
  const Played played = playScenario(launched + lost + found + lost + found);
  EXPECT_EQ(logs(played), (Logs{installed, waiting, installed, waiting, installed}));
  EXPECT_EQ(played.swallowed(), Swallowed(4, true));
  EXPECT_EQ(played.status, 0);
}

TEST(Accessibility, TakenAwayAndGivenBackBeforeAnyoneLooksRevivesTheKeysAtTheNextLook) {
  const std::string gap = launched + accessibility(false) + accessibility(true);
  // A tap that lost the permission is dead for good.
  const Played unseen = playScenario(gap + brighter + advance(100) + brighter + settle);
  EXPECT_TRUE(unseen.of("input").empty());
  for (const std::string& look : {disableTap("timeout"), wake, menu(true) + menu(false)}) {
    WITH_SEEDS(seed, 3) {
      const Played played = playScenario(gap + brighter + look + settle + brighter + settle, seed);
      EXPECT_EQ(logs(played), (Logs{installed, installed}));
      EXPECT_EQ(played.calls("CFMachPortInvalidate").size(), 2U);
      EXPECT_EQ(played.lights(2), (std::vector<int>{56}));
      EXPECT_EQ(played.status, 0);
    }
  }
}

TEST(Accessibility, TakenAwayAfterARefusedTapIsWaitedForAgain) {
  // The refusal was final for the permission as it was; a new one is tried.
  const Played played = playScenario(fail("CGEventTapCreate", 1) + launched + accessibility(false) + menu(true) +
                                     menu(false) + accessibility(true) + advance(2) + brighter + settle);
  EXPECT_EQ(logs(played), (Logs{"Could not install the media key tap", waiting, installed}));
  EXPECT_EQ(played.lights(2), (std::vector<int>{56}));
}

TEST(Accessibility, TakenAwayStopsNothingElse) {
  // The menu and the monitors go on without keys, and quitting leaves nothing.
  const Played played = playScenario(launched + accessibility(false) + wake + settle + menu(true) + snapshot("menu") +
                                     menu(false) + quit);
  EXPECT_EQ(played.of("snapshot")[0]["menu"].size(), 8U);
  const auto all = played.logs();
  EXPECT_EQ(std::ranges::count(all, "info BrightnessController: Display 2 brightness 50/100"), 2);
  EXPECT_EQ(played.status, 0);
}
