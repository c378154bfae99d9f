// Sound that goes on unchanged: what is left out because it would be like what was before makes no difference.
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>

#include "tests/support/Lines.h"
#include "tests/support/Sound.h"

using namespace lines;
using nlohmann::json;

namespace {

const std::string screen = output(10, {{"uid", "HDMI-1"}, {"name", "Screen"}, {"default", true}});
const std::string other = output(11, {{"uid", "HDMI-2"}, {"name", "Beamer"}, {"rate", 44100}, {"frames", 441}});
const std::string music = play("music", 10, {{"tone", 440}});
const std::string down = key("volumeDown");

std::vector<float> levels(const Played& played, std::size_t speaker = 0) {
  std::vector<float> result;
  for (const json& record : played.of("snapshot")) result.push_back(record["speakers"][speaker]["level"]);
  return result;
}

}  // namespace

// Who listens hears every sample, and so nothing is left out.
TEST(SteadySound, WhatIsLeftOutMakesNoDifference) {
  const std::vector<std::string> scenarios = {
      screen + music + launch + settle + down + advance(2) + snapshot("a") + down + advance(0.0107) + snapshot("b") +
          advance(1.5) + snapshot("c") + key("mute") + advance(3) + snapshot("d") + key("mute") + wake + advance(3) +
          snapshot("e") + wake + settle + snapshot("f"),
      screen + music + play("call", 10, {{"tone", 1000.5}, {"level", 0.25}}) + launch + down + advance(1) +
          snapshot("a") + playStops("call") + advance(1) + snapshot("b") + output(10, {{"rate", 44100}}) + advance(1) +
          snapshot("c") + play("music", 10, {{"tone", 0}, {"level", -0.7}}) + advance(1) + snapshot("d"),
      screen + other + music + play("film", 11, {{"tone", 313}}) + launch + down + advance(1) + snapshot("a") +
          defaultOutput(11) + advance(1) + down + advance(1) + snapshot("b") + outputGone(10) + advance(1) +
          snapshot("c") + wake + advance(0.4) + wake + advance(0.4) + snapshot("d") + quit + advance(1) + snapshot("e"),
      screen + music + launch + down + advance(0.5) + macSleeps(3600) + advance(0.5) + snapshot("a") + restartAudio +
          advance(2) + snapshot("b")};
  for (const std::string& scenario : scenarios) {
    WITH_SEEDS(seed, 10) {
      const Played played = playScenario(scenario, seed);
      EXPECT_EQ(played.bytes, listenTo(10, scenario, seed).played.bytes);
      EXPECT_EQ(played.status, 0);
    }
  }
}

TEST(SteadySound, AnHourOfItIsPlayedInNoTime) {
  for (const int tone : {0, 440}) {
    const auto begin = std::chrono::steady_clock::now();
    const Played played = playScenario(screen + other + play("music", 10, {{"tone", tone}}) +
                                       play("film", 11, {{"tone", 313}}) + launch + settle + down + advance(3600) +
                                       snapshot("an hour later") + down + advance(0.05) + snapshot("turned down"));
    // The hour took seconds when each of its 337,500 cycles was carried out.
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(1));
    const float fifteen = std::pow(15.0F / 16, 3.0F);
    const float fourteen = std::pow(14.0F / 16, 3.0F);
    EXPECT_NEAR(levels(played)[0], 0.5F * fifteen, 0.0002);
    EXPECT_NEAR(levels(played)[1], 0.5F * fourteen, 0.0002);
    EXPECT_NEAR(levels(played, 1)[0], 0.5F, 0.0002);
  }
}

// While the Mac sleeps no device runs, and nothing is to be made up for.
TEST(SteadySound, StandsStillWhileTheMacSleeps) {
  const auto samples = [](const std::string& pause) {
    return listenTo(10, screen + music + launch + settle + down + advance(0.1) + pause + advance(0.1)).samples.size();
  };
  EXPECT_EQ(samples(macSleeps(60)), samples(""));
}
