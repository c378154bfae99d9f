// The program with its threads running freely, in real time: what the thread sanitizer watches.
#include <gtest/gtest.h>

#include "tests/support/Lines.h"
#include "tests/support/Play.h"

using namespace lines;

namespace {

// Presses on each of the displays 2 to 4, several times, while the drains before are under way.
std::string keys(int rounds) {
  std::string presses;
  for (int i = 0; i < rounds; ++i) {
    for (int id = 2; id <= 4; ++id) presses += pointAt(id) + key("brightnessUp");
    presses += advance(0.007);
  }
  return presses;
}

const std::string start = displayAt(2) + displayAt(3) + displayAt(4) + launch + settle;

}  // namespace

TEST(Live, KeysOnSeveralMonitorsArriveTogether) {
  const Played played = playScenario(start + keys(6) + settle, 1, simulator::Clock::live);
  EXPECT_EQ(played.status, 0);
  for (int id = 2; id <= 4; ++id) EXPECT_EQ(played.lights(id).back(), 88) << id;  // 8 steps and 6
}

TEST(Live, DisplaysComeAndGoUnderTheKeys) {
  const Played played = playScenario(start + keys(2) + wake + keys(2) + displayGone(3) + snapshot("s") + keys(1) +
                                         displayAt(3) + wake + wake + menu(true) + snapshot("s") + keys(2) +
                                         disableTap("timeout") + keys(1) + settle + keys(1) + quit + launch + settle,
                                     1, simulator::Clock::live);
  EXPECT_EQ(played.status, 0);
  EXPECT_EQ(played.of("exit").size(), 2U);
}

TEST(Live, MonitorsThatFailTogetherAreLogged) {
  std::string faults;
  for (int id = 2; id <= 4; ++id) faults += monitor(id, {{"fault", "write-fails"}});
  const Played played = playScenario(start + faults + keys(1) + settle, 1, simulator::Clock::live);
  EXPECT_EQ(played.status, 0);
  const auto logs = played.logs();
  EXPECT_EQ(std::ranges::count(logs, "error DDC: Writing VCP 0x10 = 56 failed after 5 attempts"), 3);
}

TEST(Live, AlertsStandWhileTheRestGoesOn) {
  const Played played =
      playScenario(line("output", 10, {{"uid", "HDMI-1"}, {"name", "Screen"}, {"default", true}}) +
                       capture({{"permission", "denied"}}) + leaveNextAlertOpen + start + snapshot("s") + keys(2) +
                       wake + settle + keys(1) + answer("OK") + settle + snapshot("s") + leaveNextAlertOpen +
                       click("Check for Updates…") + settle + keys(1) + settle,
                   1, simulator::Clock::live);
  EXPECT_EQ(played.status, 0);
  EXPECT_EQ(played.of("snapshot")[0]["alert"]["message"], "Dalvane needs System Audio Recording");
  EXPECT_EQ(played.of("snapshot")[1]["alert"], nullptr);
  EXPECT_EQ(played.of("alert").size(), 2U);
  for (int id = 2; id <= 4; ++id) EXPECT_EQ(played.lights(id).back(), 75) << id;  // 8 steps and 4
}
