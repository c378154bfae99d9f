// The Mac sleeps: links go down, outputs vanish, and everybody is told of it more than once.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "tests/support/Lines.h"
#include "tests/support/Play.h"

using namespace lines;
using nlohmann::json;

using Lights = std::vector<int>;

namespace {

std::string macSleeps(double seconds, double monitorsWakeAfter) {
  return line("sleep", {{"seconds", seconds}, {"wakes-after", monitorsWakeAfter}});
}

// The reads of monitors that were begun from that time on.
std::size_t readsSince(const Played& played, double time) {
  const auto reads = played.calls("IOAVServiceReadI2C");
  return static_cast<std::size_t>(
      std::ranges::count_if(reads, [time](const json& read) { return read["t"].get<double>() >= time; }));
}

const std::string television = output(10, {{"uid", "HDMI-1"}, {"name", "Television"}, {"default", true}}) +
                               output(11, {{"uid", "USB-1"}, {"name", "Headphones"}, {"volume", "settable"}});

}  // namespace

TEST(Sleep, ThenAMonitorAnswersOnlyWhenItIsAwake) {
  WITH_SEEDS(seed, 10) {
    // It is still dark when the program looks; the second press finds it.
    const Played played = playScenario(launched + macSleeps(3600, 5) + settle + advance(10) + key("brightnessUp") +
                                           settle + key("brightnessUp") + settle,
                                       seed);
    EXPECT_EQ(played.status, 0);
    EXPECT_EQ(played.lights(2), Lights{56});
    EXPECT_EQ(played.swallowed(), (std::vector<bool>{false, false, true, true}));
  }
}

TEST(Sleep, AMonitorThatIsAwakeAtOnceIsControlledAtOnce) {
  WITH_SEEDS(seed, 10) {
    const Played played = playScenario(
        launched + monitor(2, {{"wakes-after", 7}}) + macSleeps(60, 0) + settle + key("brightnessUp") + settle, seed);
    EXPECT_EQ(played.lights(2), Lights{56});
  }
}

TEST(Sleep, EachMonitorTakesItsOwnTime) {
  const Played played =
      playScenario(display(2, {{"name", "Slow"},
                               {"frame", {0, 0, 100, 100}},
                               {"serial", 1},
                               {"monitor", {{"current", 50}, {"maximum", 100}, {"wakes-after", 5}}}}) +
                   display(3, {{"name", "Fast"},
                               {"frame", {100, 0, 100, 100}},
                               {"serial", 2},
                               {"monitor", {{"current", 50}, {"maximum", 100}}}}) +
                   launch + settle + macSleeps(60) + settle + pointer(50, 50) + key("brightnessUp") + pointer(150, 50) +
                   key("brightnessUp") + settle);
  EXPECT_EQ(played.lights(2), Lights{});
  EXPECT_EQ(played.lights(3), Lights{56});
}

TEST(Sleep, WhatAMonitorOwedIsForgotten) {
  // It is asleep in the middle of the first read, between the request and the reply.
  const Played played =
      playScenario(twoDisplays + launch + advance(0.03) + macSleeps(60, 0) + settle + key("brightnessUp") + settle);
  EXPECT_EQ(played.lights(2), Lights{56});
}

TEST(Sleep, IsToldInBursts) {
  std::set<std::size_t> reads;
  WITH_SEEDS(seed, 30) {
    const Played played = playScenario(launched + macSleeps(60) + settle, seed);
    reads.insert(readsSince(played, 60));
  }
  EXPECT_GE(*reads.begin(), 1U);
  EXPECT_GE(reads.size(), 3U);
}

TEST(Sleep, OutputsVanishAndReturn) {
  std::set<bool> wasAway;
  WITH_SEEDS(seed, 20) {
    const Played played =
        playScenario(television + play("Music", 10) + launch + settle + key("volumeDown") + settle +
                         snapshot("before") + macSleeps(600) + snapshot("at once") + settle + snapshot("after"),
                     seed);
    EXPECT_EQ(played.status, 0);
    const auto snapshots = played.of("snapshot");
    wasAway.insert(snapshots[1]["speakers"].size() < 2);
    EXPECT_EQ(snapshots[2]["speakers"], snapshots[0]["speakers"]);
    EXPECT_EQ(snapshots[2]["taps"], 1);
    EXPECT_EQ(snapshots[2]["aggregates"], 1);
  }
  EXPECT_EQ(wasAway.size(), 2U);
}

TEST(Sleep, WhatIsDoneWithAnOutputBringsItBack) {
  WITH_SEEDS(seed, 20) {
    const Played played =
        playScenario(television + launch + settle + macSleeps(600) + play("Music", 10) + output(11, {{"rate", 44100}}) +
                         defaultOutput(11) + defaultOutput(10) + settle + snapshot("end"),
                     seed);
    EXPECT_EQ(played.error, "");
    const json speakers = played.of("snapshot")[0]["speakers"];
    ASSERT_EQ(speakers.size(), 2U);
    EXPECT_EQ(speakers[0]["default"], true);
    EXPECT_NEAR(speakers[0]["level"].get<double>(), 0.5, 1e-3);
  }
}

TEST(Sleep, NeedsAClockThatCanBeMoved) {
  EXPECT_EQ(playScenario(line("sleep", {{"seconds", 1}, {"wakes-after", -1}})).error,
            R"(test:1: member "wakes-after" must be from 0 to a billion)");
}
