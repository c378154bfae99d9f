// Core Audio as badly as it can go on a Mac, and formats that no router passes on.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <set>

#include "tests/support/Lines.h"
#include "tests/support/Sound.h"

using namespace lines;
using nlohmann::json;

namespace {

const std::string rough = temper({{"audio", "rough"}});
const std::string builtIn = display(1, {{"name", "Built-in"}, {"builtin", true}, {"frame", {0, 0, 1512, 982}}});
const json hdmi = {{"uid", "HDMI-1"}, {"name", "Screen"}, {"default", true}};
const std::string screen = output(10, hdmi);
const std::string other = output(11, {{"uid", "HDMI-2"}, {"name", "Beamer"}});
const std::string music = play("music", 10);
const std::string down = key("volumeDown");
const std::string up = key("volumeUp");
const std::string playing = builtIn + screen + music + rough + launch + settle;

float gain(int steps) { return std::pow(static_cast<float>(steps) / 16, 3.0F); }

json snapshotOf(const Played& played, const std::string& name) {
  for (const json& record : played.of("snapshot")) {
    if (record["name"] == name) return record;
  }
  return nullptr;
}

void expectSpeaker(const Played& played, const std::string& name, float level, bool direct, std::size_t taps) {
  const json state = snapshotOf(played, name);
  ASSERT_TRUE(state.is_object()) << name;
  EXPECT_EQ(state["speakers"][0]["level"].get<float>(), level) << name;
  EXPECT_EQ(state["speakers"][0]["direct"], direct) << name;
  EXPECT_EQ(state["taps"], taps) << name;
  EXPECT_EQ(state["aggregates"], taps) << name;
}
void expectRouted(const Played& played, const std::string& name, float level) {
  expectSpeaker(played, name, level, false, 1);
}
void expectUnrouted(const Played& played, const std::string& name, float level) {
  expectSpeaker(played, name, level, level > 0, 0);
}

void expectNothingLeft(const Played& played) {
  EXPECT_EQ(played.status, 0);
  EXPECT_TRUE(played.of("leak").empty());
  EXPECT_TRUE(played.of("fatal").empty());
}

std::size_t failedStarts(const Played& played) {
  const auto logs = played.logs();
  return static_cast<std::size_t>(std::ranges::count_if(
      logs, [](const std::string& log) { return log.find("Starting the capture") != std::string::npos; }));
}

}  // namespace

// ---- Starting and stopping ----

TEST(RoughAudio, EverythingComesRightInTheEnd) {
  WITH_SEEDS(seed, 20) {
    const Played played =
        playScenario(playing + snapshot("full") + down + settle + snapshot("15") + down + settle + snapshot("14") +
                         wake + settle + snapshot("woken") + up + up + settle + snapshot("back"),
                     seed);
    expectUnrouted(played, "full", 0.5F);
    expectRouted(played, "15", 0.5F * gain(15));
    expectRouted(played, "14", 0.5F * gain(14));
    expectRouted(played, "woken", 0.5F * gain(14));
    expectUnrouted(played, "back", 0.5F);
    expectNothingLeft(played);
  }
}

// A start takes its cycles: both paths at once, or neither, and buffers that are short. No sound but this is made of
// it.
TEST(RoughAudio, AStartIsHeardForWhatItIs) {
  bool both = false;
  bool neither = false;
  bool shortBuffer = false;
  WITH_SEEDS(seed, 20) {
    const Heard heard = listenTo(10, playing + down + settle, seed);
    const float routed = 0.5F * gain(15);
    const std::set<float> possible = {0, 0.5F, routed, 0.5F + routed};
    std::size_t frames = 0;
    for (const float sample : heard.left()) {
      ASSERT_TRUE(possible.contains(sample)) << sample;
      both = both || sample == 0.5F + routed;
      neither = neither || sample == 0;
      shortBuffer = shortBuffer || (frames % 512 != 0 && sample == 0.5F);
      frames = sample == 0.5F + routed ? frames + 1 : 0;
    }
  }
  EXPECT_TRUE(both);
  EXPECT_TRUE(neither);
  EXPECT_TRUE(shortBuffer);
}

TEST(RoughAudio, AStartThatWaitsForSoundHoldsNothingUp) {
  bool hasWaited = false;
  WITH_SEEDS(seed, 20) {
    const Played played = playScenario(builtIn + screen + rough + preference("steps.HDMI-1", 8) + launch + settle +
                                           down + up + up + menu(true) + settle + snapshot("quiet") + menu(false) +
                                           advance(60) + music + settle + snapshot("9") + quit,
                                       seed);
    EXPECT_EQ(played.swallowed(), std::vector<bool>(6, true));
    EXPECT_TRUE(snapshotOf(played, "quiet")["menu"].is_array());
    hasWaited = hasWaited || played.calls("AudioDeviceStart")[0]["t"] > 60;
    expectRouted(played, "9", 0.5F * gain(9));
    expectNothingLeft(played);
  }
  EXPECT_TRUE(hasWaited);
}

TEST(RoughAudio, AStartThatWaitsIsTakenBack) {
  for (const std::string& end : {up, quit, wake, outputGone(10), restartAudio, defaultOutput(11), std::string()}) {
    WITH_SEEDS(seed, 10) {
      const Played played =
          playScenario(builtIn + screen + other + rough + preference("steps.HDMI-1", 15) + launch + settle + end +
                           settle + screen + settle + music + settle + snapshot("in the end"),
                       seed);
      SCOPED_TRACE(end);
      if (end == up || end == quit) {
        expectUnrouted(played, "in the end", 0.5F);
      } else {
        expectRouted(played, "in the end", 0.5F * gain(15));
      }
      // Taking it back is no failure of the start; that the service ends is one, until its restart is told.
      if (end != restartAudio) EXPECT_EQ(failedStarts(played), 0U);
      expectNothingLeft(played);
    }
  }
}

TEST(RoughAudio, AStartThatIsRefusedLaterIsToldAsAnyOther) {
  WITH_SEEDS(seed, 10) {
    const Played played = playScenario(
        playing + fail("AudioDeviceStart", -50) + down + settle + snapshot("failed") + down + settle + snapshot("14"),
        seed);
    EXPECT_EQ(failedStarts(played), 1U);
    expectUnrouted(played, "failed", 0.5F);
    expectRouted(played, "14", 0.5F * gain(14));
    expectNothingLeft(played);
  }
}

// The device is told of its change after the start has failed of it.
TEST(RoughAudio, AStartThatFailsOfAChangeIsMadeAnew) {
  std::size_t failed = 0;
  for (const json& change : {json{{"rate", 96000}}, json{{"channels", 4}}}) {
    WITH_SEEDS(seed, 40) {
      const Played played = playScenario(builtIn + screen + rough + preference("steps.HDMI-1", 15) + launch + settle +
                                             output(10, change) + settle + music + settle + snapshot("15") + down +
                                             settle + snapshot("14") + up + up + settle + snapshot("16"),
                                         seed);
      failed += failedStarts(played);
      expectRouted(played, "15", 0.5F * gain(15));
      expectRouted(played, "14", 0.5F * gain(14));
      expectUnrouted(played, "16", 0.5F);
      expectNothingLeft(played);
    }
  }
  EXPECT_GT(failed, 0U);
}

// ---- Changes ----

TEST(RoughAudio, AFormatThatChangesIsTakenUp) {
  for (const json& change : {json{{"rate", 96000}}, json{{"channels", 8}}, json{{"inputs", 2}}}) {
    WITH_SEEDS(seed, 10) {
      const Played played = playScenario(playing + down + settle + output(10, change) + settle + snapshot("15") + down +
                                             settle + snapshot("14") + up + up + settle + snapshot("16"),
                                         seed);
      expectRouted(played, "15", 0.5F * gain(15));
      expectRouted(played, "14", 0.5F * gain(14));
      expectUnrouted(played, "16", 0.5F);
      EXPECT_EQ(snapshotOf(played, "15")["audio"]["microphone"], false);
      EXPECT_TRUE(played.of("prompt").empty());
      expectNothingLeft(played);
    }
  }
}

// When the notices arrive the device is as it was, but what ran on it has been stopped.
TEST(RoughAudio, AFormatThatChangesAndComesBackLeavesNoDeadRouter) {
  WITH_SEEDS(seed, 40) {
    const Played played =
        playScenario(playing + down + settle + output(10, {{"rate", 96000}}) + output(10, {{"rate", 48000}}) + settle +
                         snapshot("15") + up + settle + snapshot("16"),
                     seed);
    expectRouted(played, "15", 0.5F * gain(15));
    expectUnrouted(played, "16", 0.5F);
    expectNothingLeft(played);
  }
}

TEST(RoughAudio, NoticesComeTwiceAndLate) {
  bool late = false;
  WITH_SEEDS(seed, 10) {
    const Played played = playScenario(
        builtIn + screen + other + music + play("film", 11, {{"tone", 0}, {"level", 0.25}}) + rough +
            preference("steps.HDMI-2", 8) + launch + settle + down + settle + defaultOutput(11) + down + advance(0.01) +
            down + settle + snapshot("beamer") + defaultOutput(10) + settle + snapshot("screen"),
        seed);
    const json beamer = snapshotOf(played, "beamer");
    // Each press turned down the one or the other, and by one step.
    const long onScreen = beamer["preferences"]["steps.HDMI-1"];
    const long onBeamer = beamer["preferences"]["steps.HDMI-2"];
    EXPECT_EQ((15 - onScreen) + (8 - onBeamer), 2);
    late = late || onScreen < 15;
    EXPECT_EQ(beamer["speakers"][0]["level"].get<float>(), 0.5F);
    EXPECT_EQ(beamer["speakers"][1]["level"].get<float>(), 0.25F * gain(static_cast<int>(onBeamer)));
    EXPECT_EQ(beamer["taps"], 1);
    expectRouted(played, "screen", 0.5F * gain(static_cast<int>(onScreen)));
    expectNothingLeft(played);
  }
  EXPECT_TRUE(late);
}

TEST(RoughAudio, ADeviceThatVanishesAndComesBack) {
  WITH_SEEDS(seed, 20) {
    const Played played = playScenario(playing + down + settle + outputGone(10) + down + settle + snapshot("gone") +
                                           screen + settle + snapshot("back"),
                                       seed);
    EXPECT_EQ(snapshotOf(played, "gone")["taps"], 0);
    EXPECT_EQ(snapshotOf(played, "gone")["aggregates"], 0);
    EXPECT_EQ(snapshotOf(played, "back")["taps"], 1);
    EXPECT_EQ(snapshotOf(played, "back")["speakers"][0]["direct"], false);
    expectNothingLeft(played);
  }
}

// A key in the moment in which the device has another number already goes on to the system.
TEST(RoughAudio, TheAudioServiceRestartsInTheMiddleOfEverything) {
  WITH_SEEDS(seed, 20) {
    const Played played = playScenario(playing + down + restartAudio + advance(0.01) + restartAudio + down +
                                           restartAudio + advance(0.3) + wake + restartAudio + settle + snapshot("end"),
                                       seed);
    const json preferences = snapshotOf(played, "end")["preferences"];
    const int steps = preferences.value("steps.HDMI-1", 16);
    EXPECT_EQ(16 - steps, static_cast<int>(played.calls("OSDManager.showImage").size()));
    if (steps == 16) {
      expectUnrouted(played, "end", 0.5F);
    } else {
      expectRouted(played, "end", 0.5F * gain(steps));
    }
    expectNothingLeft(played);
  }
}

TEST(RoughAudio, QuittingAtAnyMoment) {
  for (const double moment : {0.0, 0.003, 0.011, 0.02, 0.05, 0.1}) {
    WITH_SEEDS(seed, 10) {
      const Played played = playScenario(playing + down + advance(moment) + quit + settle + snapshot("after") + launch +
                                             settle + up + advance(moment) + wake + advance(moment),
                                         seed);
      expectUnrouted(played, "after", 0.5F);
      expectNothingLeft(played);
    }
  }
}

TEST(RoughAudio, CallsTakeTime) {
  double longest = 0;
  WITH_SEEDS(seed, 10) {
    const Played played = playScenario(playing + down + settle, seed);
    const double begin = played.of("input")[0]["t"];
    longest = std::max(longest, begin - played.of("do").back()["t"].get<double>());
    const double tap = played.calls("AudioHardwareCreateProcessTap")[0]["t"];
    const double proc = played.calls("AudioDeviceCreateIOProcIDWithBlock")[0]["t"];
    longest = std::max(longest, proc - tap);
  }
  EXPECT_GT(longest, 0.01);
}

TEST(RoughAudio, TheSameSeedGivesTheSameBytes) {
  const std::string scenario = playing + other + down + output(10, {{"rate", 96000}}) + wake + down + settle +
                               defaultOutput(11) + down + settle + restartAudio + quit + launch + settle + up;
  WITH_SEEDS(seed, 10) {
    const std::string bytes = playScenario(scenario, seed).bytes;
    EXPECT_EQ(bytes, playScenario(scenario, seed).bytes);
    EXPECT_EQ(bytes, listenTo(10, scenario, seed).played.bytes);
  }
}

TEST(RoughAudio, OnTheLiveClock) {
  const json quick = {{"uid", "HDMI-1"}, {"name", "Screen"}, {"frames", 64}, {"default", true}};
  std::string scenario = builtIn + output(10, quick) + other + rough + music + launch + settle;
  for (int i = 0; i < 10; ++i) {
    scenario += down + advance(0.003) + wake + advance(0.01) + up + down;
    if (i % 4 == 1) scenario += playStops("music") + advance(0.01) + wake + advance(0.02) + music;
    if (i % 4 == 3) scenario += output(10, {{"rate", i == 3 ? 96000 : 48000}}) + restartAudio;
  }
  const Played played = listenTo(10, scenario + settle + quit, 1, simulator::Clock::live).played;
  expectNothingLeft(played);
}

// ---- What is shown ----

TEST(RoughAudio, ShowsWhatKeepsTheMacAwake) {
  const Played played = playScenario(builtIn + screen + launch + settle + down + settle + snapshot("quiet") + music +
                                     settle + snapshot("music") + up + settle + snapshot("full"));
  EXPECT_EQ(snapshotOf(played, "quiet")["audio"]["keeps_awake"], false);
  EXPECT_EQ(snapshotOf(played, "music")["audio"]["keeps_awake"], true);
  EXPECT_EQ(snapshotOf(played, "full")["audio"]["keeps_awake"], false);
}

// ---- Formats ----

namespace {

constexpr int isFloatAndPacked = 9;

struct Refusal {
  std::string name;
  json change;
};

const json bothEmpty = {{"format", {{"channels", 0}}}, {"tap-format", {{"channels", 0}}}};

}  // namespace

TEST(StreamFormats, EveryOtherFormatIsRefused) {
  const std::vector<Refusal> refusals = {
      {"a tap that is not linear", {{"tap-format", {{"id", "ac-3"}}}}},
      {"a tap of integers", {{"tap-format", {{"flags", 12}}}}},
      {"a tap with a buffer for each channel", {{"tap-format", {{"flags", isFloatAndPacked + 32}}}}},
      {"a tap of 64 bits", {{"tap-format", {{"bits", 64}}}}},
      {"a tap of other channels", {{"tap-format", {{"channels", 6}}}}},
      {"a tap at another rate", {{"tap-rate", 44100}}},
      {"a device that is not linear", {{"format", {{"id", "ac-3"}}}}},
      {"a device of integers", {{"format", {{"flags", 12}}}}},
      {"a device with a buffer for each channel", {{"format", {{"flags", isFloatAndPacked + 32}}}}},
      {"a device of 16 bits", {{"format", {{"bits", 16}}}}},
      {"no channels", bothEmpty},
  };
  for (const Refusal& refusal : refusals) {
    SCOPED_TRACE(refusal.name);
    json device = hdmi;
    device.update(refusal.change);
    const Played played =
        playScenario(builtIn + output(10, device) + music + launch + settle + down + settle + snapshot("refused"));
    EXPECT_EQ(failedStarts(played), 1U);
    const auto logs = played.logs();
    EXPECT_NE(logs.back().find(" does not match output format "), std::string::npos) << logs.back();
    EXPECT_EQ(played.calls("AudioHardwareDestroyProcessTap").size(), 1U);
    EXPECT_TRUE(played.calls("AudioHardwareCreateAggregateDevice").empty());
    expectSpeaker(played, "refused", refusal.change == bothEmpty ? 0 : 0.5F, true, 0);
    EXPECT_EQ(played.swallowed(), std::vector<bool>(2, true));
    expectNothingLeft(played);
  }
}

TEST(StreamFormats, AFormatThatIsTheUsualOneIsTaken) {
  const json usual = {{"id", "lpcm"}, {"flags", isFloatAndPacked}, {"bits", 32}, {"channels", 6}};
  for (const json& change : {json{{"format", usual}, {"tap-format", usual}},
                             json{{"format", {{"flags", 1}}}, {"tap-format", {{"flags", 1}}}}}) {
    const Played played =
        playScenario(builtIn + screen + output(10, change) + music + launch + settle + down + settle + snapshot("15"));
    expectRouted(played, "15", 0.5F * gain(15));
    expectNothingLeft(played);
  }
}

TEST(StreamFormats, AFormatThatTurnsUnsuitableEndsTheRouter) {
  WITH_SEEDS(seed, 5) {
    for (const json& change : {json{{"id", "ac-3"}}, json{{"flags", 12}}, json{{"bits", 24}}}) {
      const Played played = playScenario(builtIn + screen + music + launch + settle + down + settle +
                                             output(10, {{"format", change}}) + settle + snapshot("unsuitable"),
                                         seed);
      SCOPED_TRACE(change.dump());
      expectUnrouted(played, "unsuitable", 0.5F);
      EXPECT_EQ(failedStarts(played), 1U);
      expectNothingLeft(played);
    }
  }
}

TEST(StreamFormats, AreReadStrictly) {
  const auto errorOf = [](const json& members) {
    json device = hdmi;
    device.update(members);
    return playScenario(output(10, device)).error;
  };
  EXPECT_EQ(errorOf({{"format", {{"id", "pcm"}}}}), R"(test:1: member "id" must be four characters)");
  EXPECT_EQ(errorOf({{"format", {{"rate", 1}}}}), R"(test:1: unknown member "format.rate")");
  EXPECT_EQ(errorOf({{"tap-format", 7}}), R"(test:1: member "tap-format" must be an object)");
  EXPECT_EQ(errorOf({{"channels", 2}, {"format", {{"channels", 1}}}}),
            R"(test:1: "channels" and "format.channels" are not the same)");
  EXPECT_EQ(errorOf({{"channels", 2}, {"format", {{"channels", 2}}}}), "");
}
