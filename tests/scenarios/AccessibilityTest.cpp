// The wait for the user's permission.
#include <gtest/gtest.h>

#include "tests/support/Play.h"

namespace {

using Logs = std::vector<std::string>;

const std::string untrusted = twoDisplays + R"(
{"do":"accessibility","granted":false}
{"do":"launch"}
{"do":"settle"}
)";

}  // namespace

TEST(Accessibility, IsAskedForOnceAndPolled) {
  const Played played = playScenario(untrusted + R"(
{"do":"advance","seconds":3600}
{"do":"key","key":"brightnessUp"}
{"do":"settle"}
)");
  EXPECT_EQ(played.of("prompt").size(), 1U);
  EXPECT_EQ(played.of("prompt")[0]["for"], "accessibility");
  EXPECT_EQ(played.logs()[0], "info AppDelegate: Waiting for Accessibility permission");
  EXPECT_TRUE(played.calls("CGEventTapCreate").empty());
  EXPECT_TRUE(played.of("input").empty());
  EXPECT_EQ(played.status, 0);
}

TEST(Accessibility, GrantedLaterInstallsTheTapAtTheNextPoll) {
  for (const std::string menu : {"", R"({"do":"menu","open":true})"}) {
    const Played played = playScenario(untrusted + menu + R"(
{"do":"advance","seconds":2.95}
{"do":"accessibility","granted":true}
{"do":"advance","seconds":10}
{"do":"key","key":"brightnessUp"}
{"do":"settle"}
)");
    const auto taps = played.calls("CGEventTapCreate");
    ASSERT_EQ(taps.size(), 1U);
    EXPECT_EQ(taps[0]["t"], 4.0);
    EXPECT_EQ(played.logs().back(), "info AppDelegate: Media key tap installed");
    EXPECT_EQ(played.lights(2), (std::vector<int>{56}));
    EXPECT_EQ(played.status, 0);
  }
}

TEST(Accessibility, RefusedTapIsFinal) {
  for (const char* const call : {"CGEventTapCreate", "CFMachPortCreateRunLoopSource"}) {
    const Played played =
        playScenario(std::string(R"({"do":"fail","status":1,"call":")") + call + "\"}\n" + launched + R"(
{"do":"advance","seconds":100}
{"do":"key","key":"brightnessUp"}
{"do":"settle"}
)");
    EXPECT_EQ(played.logs()[0], "error AppDelegate: Could not install the media key tap");
    EXPECT_EQ(played.calls("CGEventTapCreate").size(), 1U);
    EXPECT_TRUE(played.of("input").empty());
    EXPECT_EQ(played.status, 0);
  }
}

TEST(Accessibility, RefusedTapAfterTheWaitIsFinalToo) {
  const Played played = playScenario(untrusted + R"(
{"do":"fail","call":"CGEventTapCreate","status":1}
{"do":"accessibility","granted":true}
{"do":"advance","seconds":100}
)");
  EXPECT_EQ(played.logs().back(), "error AppDelegate: Could not install the media key tap");
  EXPECT_EQ(played.calls("CGEventTapCreate").size(), 1U);
}

TEST(Accessibility, QuittingDuringTheWaitStopsThePoll) {
  const Played played = playScenario(untrusted + R"({"do":"quit"})"
                                                 "\n");
  EXPECT_EQ(played.status, 0);
  EXPECT_TRUE(played.of("leak").empty());
}

TEST(Accessibility, CannotBePolledForWithoutATimer) {
  const Played played = playScenario(R"({"do":"fail","call":"CFRunLoopTimerCreateWithHandler","status":1})"
                                     "\n" +
                                     untrusted + R"(
{"do":"accessibility","granted":true}
{"do":"advance","seconds":100}
)");
  EXPECT_TRUE(played.calls("CGEventTapCreate").empty());
  EXPECT_EQ(played.status, 0);
}

TEST(Accessibility, RevokedKeepsTheKeysAwayUntilItIsGrantedAgain) {
  const Played played = playScenario(launched + R"(
{"do":"accessibility","granted":false}
{"do":"key","key":"brightnessUp"}
{"do":"settle"}
{"do":"accessibility","granted":true}
{"do":"key","key":"brightnessUp"}
{"do":"settle"}
)");
  EXPECT_EQ(played.of("input").size(), 2U);
  EXPECT_EQ(played.lights(2), (std::vector<int>{56}));
  EXPECT_EQ(played.status, 0);
}
