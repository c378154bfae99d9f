// The consent to recording the system's audio, as the user meets it.
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/support/Lines.h"
#include "tests/support/Play.h"

using namespace lines;
using nlohmann::json;
using Logs = std::vector<std::string>;

namespace {

const std::string screen = display(1, {{"name", "Built-in"}, {"builtin", true}, {"frame", {0, 0, 1512, 982}}}) +
                           output(10, {{"uid", "HDMI-1"}, {"name", "Screen"}, {"default", true}}) + play("music", 10);
const std::string down = key("volumeDown");

// The permission, and what the user will say when asked.
std::string permission(const std::string& state, bool willAllow = true) {
  return capture({{"permission", state}, {"answer", willAllow}});
}

bool logged(const Played& played, const std::string& line) {
  const auto logs = played.logs();
  return std::ranges::find(logs, line) != logs.end();
}

void expectAlerts(const Played& played, std::size_t count) {
  const auto alerts = played.of("alert");
  ASSERT_EQ(alerts.size(), count);
  for (const json& alert : alerts) {
    EXPECT_EQ(alert["message"], "Dalvane needs System Audio Recording");
    EXPECT_EQ(alert["informative"],
              "Allow Dalvane in System Settings > Privacy & Security > Screen & System Audio Recording, then quit and "
              "reopen it.");
    EXPECT_EQ(alert["buttons"], json::array({"OK"}));
  }
}

void expectNothingLeft(const Played& played) {
  EXPECT_EQ(played.status, 0);
  EXPECT_TRUE(played.of("leak").empty());
}

float level(const Played& played) { return played.of("snapshot").back()["speakers"][0]["level"].get<float>(); }

}  // namespace

TEST(AudioPermission, DeniedIsToldOnceAndLeavesTheKeys) {
  WITH_SEEDS(seed, 10) {
    const Played played =
        playScenario(screen + permission("denied") + launch + settle + down + wake + wake + settle, seed);
    expectAlerts(played, 1);
    EXPECT_EQ(played.swallowed(), (std::vector<bool>{false, false}));
    EXPECT_TRUE(played.calls("TCCAccessRequest").empty());
    EXPECT_TRUE(played.of("prompt").empty());
    expectNothingLeft(played);
  }
}

TEST(AudioPermission, DeniedIsToldAgainInTheNextRun) {
  const Played played = playScenario(screen + permission("denied") + launch + settle + quit + launch + settle);
  expectAlerts(played, 2);
}

TEST(AudioPermission, IsAskedForAndGranted) {
  WITH_SEEDS(seed, 10) {
    const Played played =
        playScenario(screen + permission("undetermined") + launch + settle + down + settle + snapshot("s"), seed);
    EXPECT_EQ(played.calls("TCCAccessRequest").size(), 1U);
    ASSERT_EQ(played.of("prompt").size(), 1U);
    EXPECT_EQ(played.of("prompt")[0]["for"], "capture");
    expectAlerts(played, 0);
    EXPECT_TRUE(logged(played, "info VolumeController: Controlling the volume of Screen"));
    EXPECT_EQ(level(played), 0.5F * 3375 / 4096);
    EXPECT_EQ(played.swallowed(), (std::vector<bool>{true, true}));
    expectNothingLeft(played);
  }
}

TEST(AudioPermission, IsAskedForAndRefused) {
  WITH_SEEDS(seed, 10) {
    const Played played =
        playScenario(screen + permission("undetermined", false) + launch + settle + down + wake + settle, seed);
    EXPECT_EQ(played.calls("TCCAccessRequest").size(), 1U);
    EXPECT_EQ(played.of("prompt").size(), 1U);
    expectAlerts(played, 1);
    EXPECT_EQ(played.swallowed(), (std::vector<bool>{false, false}));
    expectNothingLeft(played);
  }
}

TEST(AudioPermission, IsAskedForTwice) {
  for (const bool granted : {true, false}) {
    WITH_SEEDS(seed, 10) {
      // The Mac wakes while the question is on the screen.
      const Played played = playScenario(
          screen + permission("undetermined", granted) + launch + wake + wake + settle + down + settle + snapshot("s"),
          seed);
      EXPECT_EQ(played.calls("TCCAccessRequest").size(), 3U);
      EXPECT_EQ(played.of("prompt").size(), 1U);
      expectAlerts(played, granted ? 0 : 1);
      EXPECT_EQ(level(played), granted ? 0.5F * 3375 / 4096 : 0.5F);
      expectNothingLeft(played);
    }
  }
}

TEST(AudioPermission, GrantedLaterByTheUser) {
  const Played played = playScenario(screen + permission("denied") + launch + settle + permission("authorized") + down +
                                     wake + settle + down + settle + snapshot("s"));
  expectAlerts(played, 1);
  EXPECT_EQ(played.swallowed(), (std::vector<bool>{false, false, true, true}));
  EXPECT_EQ(level(played), 0.5F * 3375 / 4096);
  expectNothingLeft(played);
}

TEST(AudioPermission, TakenAwayItIsMissedBeforeTheSoundIs) {
  WITH_SEEDS(seed, 10) {
    const Played played = playScenario(screen + launch + settle + permission("denied") + press("volumeDown") + settle +
                                           snapshot("s") + release("volumeDown") + down + settle + wake + settle,
                                       seed);
    const json speaker = played.of("snapshot")[0]["speakers"][0];
    EXPECT_EQ(speaker["level"], 0.5F);
    EXPECT_EQ(speaker["direct"], true);
    EXPECT_TRUE(played.calls("AudioHardwareCreateProcessTap").empty());
    expectAlerts(played, 1);
    // The press that finds it out is taken, and its level kept; from then on keys are the system's.
    EXPECT_EQ(played.swallowed(), (std::vector<bool>{true, false, false, false}));
    EXPECT_EQ(played.of("snapshot")[0]["preferences"]["steps.HDMI-1"], 15);
    expectNothingLeft(played);
  }
}

TEST(AudioPermission, TakenAwayAndGivenBack) {
  const Played played = playScenario(screen + launch + settle + permission("denied") + down + settle +
                                     permission("authorized") + wake + settle + snapshot("s"));
  expectAlerts(played, 1);
  EXPECT_EQ(level(played), 0.5F * 3375 / 4096);
  expectNothingLeft(played);
}

TEST(AudioPermission, ForgottenItIsAskedForAgain) {
  for (const bool granted : {true, false}) {
    WITH_SEEDS(seed, 5) {
      const Played played = playScenario(
          screen + launch + settle + permission("undetermined", granted) + down + settle + snapshot("s") + down, seed);
      EXPECT_EQ(played.of("prompt").size(), 1U);
      expectAlerts(played, granted ? 0 : 1);
      EXPECT_EQ(level(played), granted ? 0.5F * 3375 / 4096 : 0.5F);
      EXPECT_EQ(played.swallowed(), (std::vector<bool>{true, false, granted, granted}));
      expectNothingLeft(played);
    }
  }
}

TEST(AudioPermission, AnOpenRouterGoesOnWithoutAsking) {
  const Played played =
      playScenario(screen + launch + settle + down + settle + permission("denied") + down + settle + snapshot("s"));
  expectAlerts(played, 0);
  EXPECT_EQ(level(played), 0.5F * 2744 / 4096);
}

TEST(AudioPermission, ThatCannotBeAskedForEndsInNoSilence) {
  const Played played =
      playScenario(screen + launch + settle + fail("dlopen", 1) + down + settle + snapshot("s") + down);
  EXPECT_TRUE(played.logs().back().starts_with("error VolumeController: Loading TCC.framework: "));
  EXPECT_EQ(level(played), 0.5F);
  EXPECT_EQ(played.swallowed(), (std::vector<bool>{true, false, false, false}));
  expectNothingLeft(played);
}

// The user is told once, and asked whenever the answer is open.
TEST(AudioPermission, IsAskedForAlsoAfterTheAlert) {
  for (const bool granted : {true, false}) {
    const Played played =
        playScenario(screen + permission("denied") + launch + settle + permission("undetermined", granted) + wake +
                     settle + down + settle + snapshot("s"));
    EXPECT_EQ(played.calls("TCCAccessRequest").size(), 1U);
    EXPECT_EQ(played.of("prompt").size(), 1U);
    expectAlerts(played, 1);
    EXPECT_EQ(level(played), granted ? 0.5F * 3375 / 4096 : 0.5F);
    expectNothingLeft(played);
  }
}

TEST(AudioPermission, GrantedButTheDeviceCannotBeRead) {
  WITH_SEEDS(seed, 5) {
    // The reads of the first choice are three: the default output, its name, and whether it has a volume of its own.
    const Played played =
        playScenario(screen + permission("undetermined") + fail("AudioObjectGetPropertyData", -50, 3, 1) + launch +
                         settle + down + wake + settle + down + settle + snapshot("s"),
                     seed);
    EXPECT_TRUE(logged(played, "error VolumeController: Reading property 1682929012 failed (OSStatus -50)"));
    EXPECT_EQ(played.swallowed(), (std::vector<bool>{false, false, true, true}));
    EXPECT_EQ(level(played), 0.5F * 3375 / 4096);
    expectNothingLeft(played);
  }
}

TEST(AudioPermission, IsNotMissedAnyMoreWhenTheAlertsTurnComes) {
  const std::string behindAMenu = screen + launch + settle + menu(true) + permission("denied") + wake + settle;
  // Given while the alert waits, it is told of when it is missed again; as often as once.
  const Played given = playScenario(behindAMenu + permission("authorized") + wake + settle + menu(false) + settle +
                                    snapshot("s") + advance(1) + permission("denied") + wake + settle + wake + settle);
  expectAlerts(given, 1);
  EXPECT_GT(given.of("alert")[0]["t"], given.of("snapshot")[0]["t"]);
  expectNothingLeft(given);
  // Not given, it is told of once, however often it was missed.
  const Played missing = playScenario(behindAMenu + wake + settle + menu(false) + settle + wake + settle);
  expectAlerts(missing, 1);
}

TEST(AudioPermission, QuittingWhileTheUserIsAsked) {
  WITH_SEEDS(seed, 10) {
    const Played played = playScenario(
        screen + permission("undetermined") + launch + quit + settle + launch + settle + snapshot("s"), seed);
    EXPECT_EQ(played.of("prompt").size(), 2U);
    expectNothingLeft(played);
  }
}

TEST(AudioPermission, WithoutTheLibraryTheKeysGoOn) {
  const Played played = playScenario(missingLibrary("TCC") + screen + launch + settle + down);
  const auto logs = played.logs();
  EXPECT_EQ(logs.back().find("error VolumeController: Loading TCC.framework: "), 0U) << logs.back();
  EXPECT_EQ(played.swallowed(), (std::vector<bool>{false, false}));
  expectNothingLeft(played);
}

TEST(AudioPermission, WithoutItsFunctionsTheKeysGoOn) {
  const Played preflight = playScenario(missingSymbol("TCCAccessPreflight") + screen + launch + settle + down);
  EXPECT_TRUE(logged(preflight, "error VolumeController: TCCAccessPreflight not found in TCC.framework"));
  EXPECT_EQ(preflight.swallowed(), (std::vector<bool>{false, false}));
  expectNothingLeft(preflight);

  const Played request = playScenario(missingSymbol("TCCAccessRequest") + screen + permission("undetermined") + launch +
                                      settle + down + permission("authorized") + wake + settle + down);
  EXPECT_TRUE(logged(request, "error VolumeController: TCCAccessRequest not found in TCC.framework"));
  EXPECT_TRUE(request.of("prompt").empty());
  EXPECT_EQ(request.swallowed(), (std::vector<bool>{false, false, true, true}));
  expectNothingLeft(request);
}

TEST(AudioPermission, IsNotAskedForADeviceWithItsOwnVolume) {
  const Played played =
      playScenario(output(10, {{"uid", "SPK"}, {"name", "Speakers"}, {"volume", "settable"}, {"default", true}}) +
                   permission("denied") + launch + settle);
  expectAlerts(played, 0);
  EXPECT_TRUE(played.calls("TCCAccessPreflight").empty());
}
