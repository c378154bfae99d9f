// Volume keys and the speaker, as a person hears them.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <initializer_list>
#include <sstream>

#include "desk/Desk.h"
#include "simulator/mac/Mac.h"
#include "simulator/mac/Scenario.h"
#include "simulator/system/SystemRoot.h"
#include "tests/support/Lines.h"
#include "tests/support/RealTimeGuard.h"
#include "tests/support/Sound.h"

using namespace lines;
using nlohmann::json;
using Logs = std::vector<std::string>;
using Swallowed = std::vector<bool>;

namespace {

// ---- Scenario lines ----

const std::string builtIn = display(1, {{"name", "Built-in"}, {"builtin", true}, {"frame", {0, 0, 1512, 982}}});
const json hdmi = {{"uid", "HDMI-1"}, {"name", "Screen"}, {"default", true}};
const json headset = {{"uid", "USB"}, {"name", "Headset"}, {"volume", "settable"}};
const std::string screen = output(10, hdmi);
const std::string music = play("music", 10);
const std::string down = key("volumeDown");
const std::string up = key("volumeUp");
const std::string mute = key("mute");

// A screen without a volume, a constant signal of 0.5 to it, and the program running.
const std::string playing = builtIn + screen + music + launch + settle;

// ---- What came of them ----

float gain(int steps) { return std::pow(static_cast<float>(steps) / 16, 3.0F); }

// The speaker of that output in that snapshot.
json speaker(const Played& played, const std::string& snapshotName, int id = 10) {
  for (const json& record : played.of("snapshot")) {
    if (record["name"] != snapshotName) continue;
    for (const json& each : record["speakers"]) {
      if (each["id"] == id) return each;
    }
  }
  return nullptr;
}

json snapshotOf(const Played& played, const std::string& name) {
  for (const json& record : played.of("snapshot")) {
    if (record["name"] == name) return record;
  }
  return nullptr;
}

void expectSpeaker(const Played& played, const std::string& name, float level, bool direct, int id = 10) {
  const json heard = speaker(played, name, id);
  ASSERT_TRUE(heard.is_object()) << name;
  EXPECT_EQ(heard["level"].get<float>(), level) << name;
  EXPECT_EQ(heard["direct"], direct) << name;
}

bool logged(const Played& played, const std::string& line) {
  const auto logs = played.logs();
  return std::ranges::find(logs, line) != logs.end();
}

// The volume pop-ups, as image and filled steps.
std::vector<std::pair<int, int>> popUps(const Played& played) {
  std::vector<std::pair<int, int>> shown;
  for (const json& call : played.calls("OSDManager.showImage")) {
    EXPECT_EQ(call["args"]["total"], 16);
    EXPECT_EQ(call["args"]["display"], 1);
    shown.emplace_back(call["args"]["image"], call["args"]["filled"]);
  }
  return shown;
}
using PopUps = std::vector<std::pair<int, int>>;

// What was written to the preferences, "key=value".
std::vector<std::string> written(const Played& played) {
  std::vector<std::string> result;
  for (const json& record : played.of("preference")) {
    result.push_back(record["key"].get<std::string>() + "=" + record["value"].dump());
  }
  return result;
}

// The calls that build and take down, in their order.
std::vector<std::string> audioCalls(const Played& played) {
  std::vector<std::string> names;
  for (const json& record : played.of("call")) {
    const std::string api = record["api"];
    if (api.starts_with("AudioHardware") || api.starts_with("AudioDevice")) names.push_back(api);
  }
  return names;
}

const std::vector<std::string> building = {"AudioHardwareCreateProcessTap", "AudioHardwareCreateAggregateDevice",
                                           "AudioDeviceCreateIOProcIDWithBlock", "AudioDeviceStart"};
const std::vector<std::string> takingDown = {"AudioDeviceStop", "AudioDeviceDestroyIOProcID",
                                             "AudioHardwareDestroyAggregateDevice", "AudioHardwareDestroyProcessTap"};

std::vector<std::string> joined(std::initializer_list<std::vector<std::string>> lists) {
  std::vector<std::string> result;
  for (const auto& list : lists) result.insert(result.end(), list.begin(), list.end());
  return result;
}

// The properties that were listened to (or no longer), as "selector scope", in the order of the calls.
std::vector<std::string> watched(const Played& played, const std::string& call) {
  std::vector<std::string> result;
  for (const json& record : played.calls(call)) {
    result.push_back(record["args"]["selector"].get<std::string>() + " " + record["args"]["scope"].get<std::string>());
  }
  return result;
}

// How many listeners were removed before the first snapshot.
std::size_t unwatchedBeforeSnapshot(const Played& played) {
  std::size_t count = 0;
  for (const json& record : played.records) {
    if (record["what"] == "snapshot") break;
    if (record["what"] == "call" && record["api"] == "AudioObjectRemovePropertyListenerBlock") ++count;
  }
  return count;
}

std::size_t countOf(const Played& played, const std::string& log) {
  const auto logs = played.logs();
  return static_cast<std::size_t>(std::ranges::count(logs, log));
}
const std::string controlling = "info VolumeController: Controlling the volume of Screen";

// That a router, and only one, plays at that level.
void expectRouted(const Played& played, const std::string& name, float level) {
  expectSpeaker(played, name, level, false);
  EXPECT_EQ(snapshotOf(played, name)["taps"], 1) << name;
  EXPECT_EQ(snapshotOf(played, name)["aggregates"], 1) << name;
}
// That sound takes the direct path, or none, and that nothing stands in it.
void expectUnrouted(const Played& played, const std::string& name, float level) {
  expectSpeaker(played, name, level, level > 0);
  EXPECT_EQ(snapshotOf(played, name)["taps"], 0) << name;
  EXPECT_EQ(snapshotOf(played, name)["aggregates"], 0) << name;
}

void expectNothingLeft(const Played& played) {
  EXPECT_EQ(played.status, 0);
  EXPECT_TRUE(played.of("leak").empty());
  EXPECT_TRUE(played.of("fatal").empty());
}

}  // namespace

// ---- Level and path ----

TEST(Volume, FullIsDirectAndBelowItGoesThroughTheRouter) {
  WITH_SEEDS(seed, 20) {
    const Played played = playScenario(playing + snapshot("full") + down + settle + snapshot("15") + down + down +
                                           settle + snapshot("13") + mute + settle + snapshot("muted") + mute + settle +
                                           snapshot("unmuted") + up + up + up + settle + snapshot("back"),
                                       seed);
    expectSpeaker(played, "full", 0.5F, true);
    EXPECT_EQ(snapshotOf(played, "full")["taps"], 0);
    EXPECT_EQ(snapshotOf(played, "full")["aggregates"], 0);
    expectSpeaker(played, "15", 0.5F * gain(15), false);
    EXPECT_EQ(snapshotOf(played, "15")["taps"], 1);
    EXPECT_EQ(snapshotOf(played, "15")["aggregates"], 1);
    expectSpeaker(played, "13", 0.5F * gain(13), false);
    expectSpeaker(played, "muted", 0, false);
    expectSpeaker(played, "unmuted", 0.5F * gain(13), false);
    expectSpeaker(played, "back", 0.5F, true);
    EXPECT_EQ(snapshotOf(played, "back")["taps"], 0);
    EXPECT_EQ(snapshotOf(played, "back")["aggregates"], 0);
    EXPECT_EQ(audioCalls(played), joined({building, takingDown}));
    EXPECT_EQ(popUps(played), (PopUps{{3, 15}, {3, 14}, {3, 13}, {4, 0}, {3, 13}, {3, 14}, {3, 15}, {3, 16}}));
    EXPECT_EQ(played.swallowed(), Swallowed(16, true));
    expectNothingLeft(played);
  }
}

TEST(Volume, IsHeardWithinOneCycleOfTheKey) {
  constexpr double cycle = 512.0 / 48000;
  for (const double moment : {0.0, 0.001, 0.0053, 0.0106}) {
    const Played played = playScenario(playing + advance(moment) + down + advance(cycle) + snapshot("15") + down +
                                       advance(2 * cycle) + snapshot("14"));
    expectSpeaker(played, "15", 0.5F * gain(15), false);
    expectSpeaker(played, "14", 0.5F * gain(14), false);
  }
}

TEST(Volume, NeverSoundsTwiceNorStopsNorSteps) {
  WITH_SEEDS(seed, 20) {
    const Heard heard = listenTo(10,
                                 playing + down + advance(0.1) + down + advance(0.05) + up + advance(0.0001) + up +
                                     advance(0.1) + mute + advance(0.05) + mute + advance(0.05),
                                 seed);
    const std::vector<float> left = heard.left();
    ASSERT_GT(left.size(), 512U * 30);
    // From full to 15 steps the path changes at once; from there on the gain ramps. The largest step that a ramp makes
    // is from one level to the next over a cycle of 512 frames, and here from 16 steps to silence.
    const float largestStep = 0.5F / 512 * 1.001F;
    std::size_t jumps = 0;
    for (std::size_t i = 1; i < left.size(); ++i) {
      if (std::abs(left[i] - left[i - 1]) > largestStep) ++jumps;
    }
    EXPECT_LE(jumps, 4U);  // the router starts and stops twice at most
    for (const float sample : left) {
      ASSERT_GE(sample, 0);
      ASSERT_LE(sample, 0.5F);  // both paths together would be more
    }
    // Nothing is missing while it sounds: the only silence is the muted one.
    std::size_t silent = 0;
    for (const float sample : left) silent += sample == 0 ? 1 : 0;
    EXPECT_LE(silent, 512U * 6);
    expectNothingLeft(heard.played);
  }
}

TEST(Volume, RampsInEqualSteps) {
  const Heard heard = listenTo(10, playing + down + settle + down + advance(0.05));
  const std::vector<float> left = heard.left();
  const float from = gain(15);
  const float to = gain(14);
  const auto last = std::ranges::find(left, 0.5F * to);
  ASSERT_NE(last, left.end());
  const auto first = last - 511;
  float applied = from;
  const float step = (to - from) / 512;
  for (auto sample = first; sample <= last; ++sample) {
    applied = applied + step;
    ASSERT_EQ(*sample, 0.5F * applied);
  }
  EXPECT_EQ(*(first - 1), 0.5F * from);
}

TEST(Volume, ATapReadOnlyWhileSomethingPlays) {
  const Played played = playScenario(builtIn + screen + launch + settle + down + settle + snapshot("quiet") + music +
                                     settle + snapshot("music") + playStops("music") + settle + snapshot("stopped"));
  EXPECT_EQ(snapshotOf(played, "quiet")["audio"]["taps"][0]["read"], false);
  expectSpeaker(played, "quiet", 0, false);
  expectSpeaker(played, "music", 0.5F * gain(15), false);
  expectSpeaker(played, "stopped", 0, false);
  expectNothingLeft(played);
}

TEST(Volume, SumsSeveralProcesses) {
  const Played played = playScenario(playing + play("call", 10, {{"tone", 0}, {"level", 0.25}}) + settle +
                                     snapshot("full") + down + settle + snapshot("15"));
  expectSpeaker(played, "full", 0.75F, true);
  expectSpeaker(played, "15", 0.75F * gain(15), false);
}

TEST(Volume, SumsInOneOrderWheneverTheProcessesBegan) {
  // These three give another sum in each order.
  const std::vector<std::string> plays = {play("a", 10, {{"tone", 0}, {"level", 1e6}}),
                                          play("b", 10, {{"tone", 0}, {"level", -1e6}}),
                                          play("c", 10, {{"tone", 0}, {"level", 0.03}})};
  for (const std::string& begun : {plays[0] + plays[1] + plays[2], plays[2] + plays[1] + plays[0]}) {
    const Played played =
        playScenario(builtIn + screen + preference("steps.HDMI-1", 15) + launch + begun + settle + snapshot("15"));
    expectSpeaker(played, "15", 0.03F * gain(15), false);
  }
}

TEST(Volume, LeavesOtherOutputsAlone) {
  const Played played = playScenario(playing + output(11, {{"uid", "USB"}, {"name", "Headset"}}) +
                                     play("call", 11, {{"tone", 0}, {"level", 0.25}}) + down + settle + snapshot("s"));
  expectSpeaker(played, "s", 0.5F * gain(15), false);
  expectSpeaker(played, "s", 0.25F, true, 11);
}

// ---- Keys ----

TEST(Volume, StepsStayInTheirRange) {
  const Played played = playScenario(builtIn + screen + music + preference("steps.HDMI-1", 1) + launch + settle +
                                     snapshot("1") + down + settle + snapshot("0") + down + settle +
                                     snapshot("still 0") + quit + preference("steps.HDMI-1", 15) + launch + settle +
                                     up + settle + snapshot("16") + up + settle + snapshot("still 16"));
  expectSpeaker(played, "1", 0.5F * gain(1), false);
  expectSpeaker(played, "0", 0, false);
  expectSpeaker(played, "still 0", 0, false);
  expectSpeaker(played, "16", 0.5F, true);
  expectSpeaker(played, "still 16", 0.5F, true);
  EXPECT_EQ(popUps(played), (PopUps{{4, 0}, {4, 0}, {3, 16}, {3, 16}}));
  EXPECT_EQ(written(played), (Logs{"steps.HDMI-1=0", "muted.HDMI-1=false", "steps.HDMI-1=0", "muted.HDMI-1=false",
                                   "steps.HDMI-1=16", "muted.HDMI-1=false", "steps.HDMI-1=16", "muted.HDMI-1=false"}));
  EXPECT_EQ(played.swallowed(), Swallowed(8, true));
  expectNothingLeft(played);
}

TEST(Volume, MuteAtFullVolumeStartsTheRouterAndUnmuteStopsIt) {
  const Played played = playScenario(playing + mute + settle + snapshot("muted") + mute + settle + snapshot("back"));
  expectSpeaker(played, "muted", 0, false);
  expectSpeaker(played, "back", 0.5F, true);
  EXPECT_EQ(audioCalls(played), joined({building, takingDown}));
  EXPECT_EQ(popUps(played), (PopUps{{4, 0}, {3, 16}}));
}

TEST(Volume, AHeldMuteKeyTogglesOnce) {
  const std::string held = repeated("mute");
  const Played played =
      playScenario(playing + press("mute") + held + held + held + release("mute") + settle + snapshot("muted"));
  expectSpeaker(played, "muted", 0, false);
  EXPECT_EQ(written(played), (Logs{"steps.HDMI-1=16", "muted.HDMI-1=true"}));
  EXPECT_EQ(popUps(played), (PopUps{{4, 0}}));
  EXPECT_EQ(played.swallowed(), Swallowed(5, true));
}

TEST(Volume, AHeldVolumeKeyRepeats) {
  const std::string held = repeated("volumeDown");
  const Played played = playScenario(playing + held + held + held + settle + snapshot("13"));
  expectSpeaker(played, "13", 0.5F * gain(13), false);
}

TEST(Volume, AReleaseIsTakenAndChangesNothing) {
  const Played played = playScenario(playing + release("volumeDown") + release("mute") + settle);
  EXPECT_EQ(played.swallowed(), Swallowed(2, true));
  EXPECT_TRUE(written(played).empty());
  EXPECT_TRUE(popUps(played).empty());
  EXPECT_TRUE(audioCalls(played).empty());
}

TEST(Volume, StepKeysUnmute) {
  for (const auto& [keyPress, steps] : {std::pair{down, 11}, std::pair{up, 13}}) {
    const Played played =
        playScenario(builtIn + screen + music + preference("steps.HDMI-1", 12) + preference("muted.HDMI-1", true) +
                     launch + settle + snapshot("muted") + keyPress + settle + snapshot("heard"));
    expectSpeaker(played, "muted", 0, false);
    expectSpeaker(played, "heard", 0.5F * gain(steps), false);
    EXPECT_EQ(popUps(played), (PopUps{{3, steps}}));
  }
}

TEST(Volume, WithoutPopUpsKeysStillWork) {
  const Played played = playScenario(missingLibrary("OSD") + playing + down + settle + snapshot("15"));
  expectSpeaker(played, "15", 0.5F * gain(15), false);
  EXPECT_TRUE(popUps(played).empty());
  expectNothingLeft(played);
}

TEST(Volume, KeysOfADeviceWithItsOwnVolumeGoOn) {
  const Played played =
      playScenario(builtIn + output(10, {{"uid", "SPK"}, {"name", "Speakers"}, {"volume", "settable"}}) +
                   defaultOutput(10) + launch + settle + down + up + mute);
  EXPECT_EQ(played.swallowed(), Swallowed(6, false));
  EXPECT_TRUE(logged(played, "info VolumeController: Speakers has its own volume control, staying idle"));
  EXPECT_TRUE(written(played).empty());
  EXPECT_TRUE(audioCalls(played).empty());
  expectNothingLeft(played);
}

TEST(Volume, AFixedVolumeCountsAsNone) {
  const Played played =
      playScenario(builtIn + output(10, {{"uid", "TV"}, {"name", "Screen"}, {"volume", "fixed"}, {"default", true}}) +
                   music + launch + settle + down + settle + snapshot("15"));
  EXPECT_TRUE(logged(played, "info VolumeController: Controlling the volume of Screen"));
  expectSpeaker(played, "15", 0.5F * gain(15), false);
}

// ---- Devices of all kinds ----

TEST(Volume, DevicesOfAllKinds) {
  for (const json& kind : {json{{"channels", 1}}, json{{"channels", 6}}, json{{"channels", 8}}, json{{"rate", 96000}},
                           json{{"rate", 44100}}, json{{"inputs", 1}}, json{{"inputs", 3}, {"channels", 6}},
                           json{{"frames", 64}}, json{{"frames", 4096}}, json{{"rate", 44100}, {"tap-rate", 44100}}}) {
    json device = hdmi;
    device.update(kind);
    const Heard heard =
        listenTo(10, builtIn + output(10, device) + music + launch + settle + snapshot("full") + down + settle +
                         snapshot("15") + down + settle + snapshot("14") + up + up + settle + snapshot("back"));
    expectSpeaker(heard.played, "full", 0.5F, true);
    expectSpeaker(heard.played, "15", 0.5F * gain(15), false);
    expectSpeaker(heard.played, "14", 0.5F * gain(14), false);
    expectSpeaker(heard.played, "back", 0.5F, true);
    expectNothingLeft(heard.played);
    // All channels sound alike.
    for (std::size_t i = 0; i < heard.samples.size(); ++i) {
      ASSERT_EQ(heard.samples[i], heard.samples[i - i % heard.channels]) << kind.dump();
    }
  }
}

TEST(Volume, ATapAtAnotherRateIsRefused) {
  const Played played = playScenario(
      builtIn +
      output(10, {{"uid", "HDMI-1"}, {"name", "Screen"}, {"rate", 48000}, {"tap-rate", 44100}, {"default", true}}) +
      music + launch + settle + down + settle + snapshot("15") + output(10, {{"tap-rate", 48000}}) + down + settle +
      snapshot("14"));
  EXPECT_TRUE(logged(
      played,
      "error VolumeController: Starting the capture for Screen failed: Tap format AudioStreamBasicDescription("
      "mSampleRate: 44100, mFormatID: 1819304813, mFormatFlags: 9, mBytesPerPacket: 8, mFramesPerPacket: 1, "
      "mBytesPerFrame: 8, mChannelsPerFrame: 2, mBitsPerChannel: 32, mReserved: 0) does not match output format "
      "AudioStreamBasicDescription(mSampleRate: 48000, mFormatID: 1819304813, mFormatFlags: 9, mBytesPerPacket: 8, "
      "mFramesPerPacket: 1, mBytesPerFrame: 8, mChannelsPerFrame: 2, mBitsPerChannel: 32, mReserved: 0)"));
  expectSpeaker(played, "15", 0.5F, true);  // untouched
  EXPECT_EQ(snapshotOf(played, "15")["taps"], 0);
  EXPECT_EQ(played.swallowed(), Swallowed(4, true));
  expectSpeaker(played, "14", 0.5F * gain(14), false);
  expectNothingLeft(played);
}

TEST(Volume, ARateThatChangesWhileTheRouterRuns) {
  const Played played =
      playScenario(playing + down + settle + output(10, {{"rate", 96000}}) + settle + snapshot("96 kHz") + down +
                   settle + snapshot("14") + wake + settle + snapshot("woken") + up + up + settle + snapshot("back"));
  expectSpeaker(played, "96 kHz", 0.5F * gain(15), false);
  expectSpeaker(played, "14", 0.5F * gain(14), false);
  expectSpeaker(played, "woken", 0.5F * gain(14), false);
  expectSpeaker(played, "back", 0.5F, true);
  expectNothingLeft(played);
}

TEST(Volume, InputsThatComeAndGoWhileTheRouterRuns) {
  for (const auto& [before, after] : {std::pair{0, 1}, {2, 0}, {1, 3}, {3, 1}}) {
    WITH_SEEDS(seed, 5) {
      const Played played =
          playScenario(builtIn + screen + output(10, {{"inputs", before}}) + music + launch + settle + down + settle +
                           output(10, {{"inputs", after}}) + settle + snapshot("15") + down + settle + snapshot("14"),
                       seed);
      SCOPED_TRACE(std::to_string(before) + " inputs, then " + std::to_string(after));
      expectRouted(played, "15", 0.5F * gain(15));
      expectRouted(played, "14", 0.5F * gain(14));
      EXPECT_EQ(audioCalls(played), joined({building, takingDown, building, takingDown}));
      expectNothingLeft(played);
    }
  }
}

TEST(Volume, AFormatThatTheStartWouldRefuseEndsTheRouter) {
  const Played played =
      playScenario(builtIn + screen + output(10, {{"tap-rate", 48000}}) + music + launch + settle + down + settle +
                   snapshot("48 kHz") + output(10, {{"rate", 44100}}) + settle + snapshot("44.1 kHz") +
                   output(10, {{"rate", 48000}}) + down + settle + snapshot("48 kHz again"));
  expectRouted(played, "48 kHz", 0.5F * gain(15));
  expectUnrouted(played, "44.1 kHz", 0.5F);
  // One change is told under several properties, and met once.
  const auto logs = played.logs();
  EXPECT_EQ(std::ranges::count_if(logs, [](const auto& log) { return log.find("Starting the capture") != log.npos; }),
            1);
  EXPECT_TRUE(played.logs().back().starts_with("error VolumeController: Starting the capture for Screen failed: Tap "));
  expectRouted(played, "48 kHz again", 0.5F * gain(14));
  expectNothingLeft(played);
}

TEST(Volume, AFormatThatChangesIsTakenUp) {
  for (const json& change : {json{{"rate", 96000}}, json{{"channels", 8}}, json{{"rate", 44100}, {"channels", 1}}}) {
    WITH_SEEDS(seed, 5) {
      const Played played = playScenario(playing + down + settle + output(10, change) + settle + snapshot("15"), seed);
      SCOPED_TRACE(change.dump());
      expectRouted(played, "15", 0.5F * gain(15));
      EXPECT_EQ(audioCalls(played), joined({building, takingDown, building, takingDown}));
      expectNothingLeft(played);
    }
  }
}

TEST(Volume, ADeviceThatDiesAndLivesAgain) {
  WITH_SEEDS(seed, 5) {
    const Played played =
        playScenario(playing + down + settle + output(10, {{"alive", false}}) + settle + snapshot("dead") + down +
                         output(10, {{"alive", true}}) + settle + snapshot("alive") + down + settle + snapshot("13"),
                     seed);
    expectUnrouted(played, "dead", 0);
    EXPECT_TRUE(logged(played,
                       "error VolumeController: Starting the capture for Screen failed: Creating the process tap "
                       "failed (OSStatus 560227702)"));
    expectUnrouted(played, "alive", 0.5F);
    expectRouted(played, "13", 0.5F * gain(13));
    EXPECT_EQ(played.swallowed(), Swallowed(6, true));
    expectNothingLeft(played);
  }
}

TEST(Volume, TheAudioServiceRestarts) {
  WITH_SEEDS(seed, 10) {
    const Played played =
        playScenario(playing + restartAudio + settle + snapshot("16") + down + settle + snapshot("15") + restartAudio +
                         settle + snapshot("15 again") + down + settle + snapshot("14") + output(11, headset) +
                         defaultOutput(11) + settle + snapshot("elsewhere"),
                     seed);
    expectUnrouted(played, "16", 0.5F);
    expectRouted(played, "15", 0.5F * gain(15));
    expectRouted(played, "15 again", 0.5F * gain(15));
    expectRouted(played, "14", 0.5F * gain(14));
    expectUnrouted(played, "elsewhere", 0.5F);
    expectNothingLeft(played);
  }
}

TEST(Volume, TheAudioServiceRestartsInTheMiddleOfEverything) {
  WITH_SEEDS(seed, 20) {
    const Played played = playScenario(playing + down + restartAudio + restartAudio + mute + wake + restartAudio +
                                           defaultOutput(10) + restartAudio + mute + settle + snapshot("15"),
                                       seed);
    expectRouted(played, "15", 0.5F * gain(15));
    expectNothingLeft(played);
  }
}

TEST(Volume, NotificationsOfNothingChangeNothing) {
  WITH_SEEDS(seed, 10) {
    const Played played = playScenario(temper({{"audio", "rough"}}) + playing + down + settle + snapshot("15") + wake +
                                           settle + snapshot("woken") + up + settle + snapshot("16"),
                                       seed);
    expectRouted(played, "15", 0.5F * gain(15));
    expectRouted(played, "woken", 0.5F * gain(15));
    expectUnrouted(played, "16", 0.5F);
    // Only the wake takes down what need not be.
    EXPECT_EQ(audioCalls(played), joined({building, takingDown, building, takingDown}));
    EXPECT_EQ(countOf(played, controlling), 2U);  // at launch and at the wake
    expectNothingLeft(played);
  }
}

TEST(Volume, AWakeTakesDownAndBuildsAnew) {
  const Played played = playScenario(playing + down + settle + wake + settle + snapshot("woken"));
  expectRouted(played, "woken", 0.5F * gain(15));
  EXPECT_EQ(audioCalls(played), joined({building, takingDown, building, takingDown}));
  EXPECT_EQ(countOf(played, controlling), 2U);
}

TEST(Volume, WatchesTheDeviceOnlyWhileTheRouterRuns) {
  const Played played = playScenario(playing + down + settle + up + settle + snapshot("16") + down + settle + quit);
  const Logs router = {"stm# inpt", "stm# outp", "sfmt outp", "nsrt glob", "livn glob", "stpd glob"};
  EXPECT_EQ(watched(played, "AudioObjectAddPropertyListenerBlock"),
            joined({{"dOut glob", "srst glob"}, router, router}));
  Logs removed = watched(played, "AudioObjectRemovePropertyListenerBlock");
  Logs expected = joined({{"dOut glob", "srst glob"}, router, router});
  std::ranges::sort(removed);
  std::ranges::sort(expected);
  EXPECT_EQ(removed, expected);
  // They go with the router, not only with the program.
  EXPECT_EQ(unwatchedBeforeSnapshot(played), router.size());
  expectNothingLeft(played);
}

// The output's format is the same again before anybody can look at it.
TEST(Volume, AStopOfTheRouterIsNeverMissed) {
  const auto change = [](double rate) {
    return during("AudioObjectAddPropertyListenerBlock", output(10, {{"rate", rate}}), 6);
  };
  WITH_SEEDS(seed, 40) {
    const Played played = playScenario(
        temper({{"audio", "rough"}}) + playing + change(44100) + change(48000) + down + settle + snapshot("changed"),
        seed);
    expectRouted(played, "changed", 0.5F * gain(15));
  }
}

TEST(Volume, ARouterThatCannotBeMadeLeavesNoListener) {
  const Played played =
      playScenario(playing + fail("AudioHardwareCreateProcessTap", -50) + down + settle + snapshot("failed"));
  // The aggregate device, which would have one of its own, is not there yet.
  EXPECT_EQ(watched(played, "AudioObjectAddPropertyListenerBlock").size(), 2 + 5U);
  EXPECT_EQ(unwatchedBeforeSnapshot(played), 5U);
  expectNothingLeft(played);
}

// A device that changes meanwhile can be why, and tells of it later.
TEST(Volume, ARouterThatCannotBeStartedWatchesItsDevice) {
  const std::string failed = playing + fail("AudioDeviceStart", -50) + down + settle;
  EXPECT_EQ(unwatchedBeforeSnapshot(playScenario(failed + snapshot("failed"))), 1U);
  EXPECT_EQ(unwatchedBeforeSnapshot(playScenario(failed + up + settle + snapshot("full"))), 6U);
  const Played again = playScenario(failed + down + settle + snapshot("again"));
  EXPECT_EQ(watched(again, "AudioObjectAddPropertyListenerBlock").size(), 2 + 6U + 6);
  EXPECT_EQ(unwatchedBeforeSnapshot(again), 6U);
  expectNothingLeft(again);
}

TEST(Volume, ADeviceThatVanishesWhileTheRouterRuns) {
  WITH_SEEDS(seed, 10) {
    const Played played = playScenario(playing + down + settle + outputGone(10) + settle + snapshot("gone") + down +
                                           screen + settle + snapshot("back"),
                                       seed);
    EXPECT_EQ(snapshotOf(played, "gone")["taps"], 0);
    EXPECT_EQ(snapshotOf(played, "gone")["aggregates"], 0);
    EXPECT_EQ(played.swallowed(), (Swallowed{true, true, false, false}));
    expectSpeaker(played, "back", 0.5F * gain(15), false);
    expectNothingLeft(played);
  }
}

TEST(Volume, ADeviceWithoutNameOrUID) {
  const Played nameless = playScenario(builtIn + output(10, {{"uid", "HDMI-1"}, {"name", nullptr}, {"default", true}}) +
                                       launch + settle + down);
  EXPECT_TRUE(logged(nameless, "error VolumeController: String property 1819173229 is empty"));
  EXPECT_EQ(nameless.swallowed(), Swallowed(2, false));
  expectNothingLeft(nameless);

  const Played anonymous = playScenario(
      builtIn + output(10, {{"uid", nullptr}, {"name", "Screen"}, {"default", true}}) + launch + settle + down);
  EXPECT_TRUE(logged(anonymous, "error VolumeController: String property 1969841184 is empty"));
  EXPECT_EQ(anonymous.swallowed(), Swallowed(2, false));
  expectNothingLeft(anonymous);
}

TEST(Volume, WithoutAnyOutputKeysGoOn) {
  const Played played = playScenario(builtIn + launch + settle + down);
  EXPECT_EQ(played.logs(),
            (Logs{"info AppDelegate: Media key tap installed",
                  "error VolumeController: Reading string property 1819173229 failed (OSStatus 560947818)"}));
  EXPECT_EQ(played.swallowed(), Swallowed(2, false));
}

// ---- Changes of the default output, wakes, restarts ----

TEST(Volume, EachDeviceKeepsItsOwnLevel) {
  const std::string other = output(11, {{"uid", "HDMI-2"}, {"name", "Beamer"}});
  WITH_SEEDS(seed, 10) {
    const Played played =
        playScenario(builtIn + screen + other + music + play("film", 11, {{"tone", 0}, {"level", 0.25}}) + launch +
                         settle + down + down + settle + defaultOutput(11) + settle + snapshot("beamer") + down + mute +
                         settle + snapshot("beamer muted") + defaultOutput(10) + settle + snapshot("screen") +
                         defaultOutput(11) + settle + snapshot("beamer again") + wake + settle + snapshot("woken") +
                         quit + snapshot("without") + launch + settle + snapshot("restarted"),
                     seed);
    expectSpeaker(played, "beamer", 0.5F, true);
    expectSpeaker(played, "beamer", 0.25F, true, 11);
    expectSpeaker(played, "beamer muted", 0, false, 11);
    expectSpeaker(played, "screen", 0.5F * gain(14), false);
    expectSpeaker(played, "screen", 0.25F, true, 11);
    expectSpeaker(played, "beamer again", 0, false, 11);
    expectSpeaker(played, "woken", 0, false, 11);
    expectSpeaker(played, "restarted", 0, false, 11);
    const json expected = {{"steps.HDMI-1", 14}, {"muted.HDMI-1", false}, {"steps.HDMI-2", 15}, {"muted.HDMI-2", true}};
    EXPECT_EQ(snapshotOf(played, "restarted")["preferences"], expected);
    expectNothingLeft(played);
  }
}

TEST(Volume, ADefaultOutputThatChangesWhileAKeyIsHeld) {
  const std::string held = repeated("volumeDown");
  WITH_SEEDS(seed, 10) {
    const Played played =
        playScenario(builtIn + screen + output(11, headset) + music + launch + settle + press("volumeDown") + held +
                         defaultOutput(11) + settle + held + held + release("volumeDown") + defaultOutput(10) + settle +
                         held + settle + snapshot("13"),
                     seed);
    EXPECT_EQ(played.swallowed(), (Swallowed{true, true, false, false, false, true}));
    expectSpeaker(played, "13", 0.5F * gain(13), false);
    expectNothingLeft(played);
  }
}

TEST(Volume, AWakeStormLeavesOneRouter) {
  WITH_SEEDS(seed, 10) {
    const Played played =
        playScenario(playing + down + settle + wake + wake + wake + down + wake + wake + settle + defaultOutput(10) +
                         wake + wake + settle + snapshot("14") + quit + snapshot("end"),
                     seed);
    expectSpeaker(played, "14", 0.5F * gain(14), false);
    EXPECT_EQ(snapshotOf(played, "14")["taps"], 1);
    EXPECT_EQ(snapshotOf(played, "14")["aggregates"], 1);
    EXPECT_EQ(audioCalls(played).size() % 8, 0U);
    expectNothingLeft(played);
  }
}

TEST(Volume, QuittingGivesTheSoundBack) {
  const Played played = playScenario(playing + down + settle + quit + advance(0.03) + snapshot("after"));
  expectSpeaker(played, "after", 0.5F, true);
  expectNothingLeft(played);
}

TEST(Volume, StoredValuesOfOtherKinds) {
  const auto levelAt = [](const json& steps, const json& muted) {
    const Played played = playScenario(builtIn + screen + music + preference("steps.HDMI-1", steps) +
                                       preference("muted.HDMI-1", muted) + launch + settle + snapshot("s"));
    expectNothingLeft(played);
    return speaker(played, "s")["level"].get<float>();
  };
  EXPECT_EQ(levelAt("loud", false), 0.5F);  // a text is no integer: 16
  EXPECT_EQ(levelAt("8", false), 0.5F);     // the same
  EXPECT_EQ(levelAt(8, false), 0.5F * gain(8));
  EXPECT_EQ(levelAt(8.5, false), 0.5F);         // no integer
  EXPECT_EQ(levelAt(true, false), 0.5F);        // the same
  EXPECT_EQ(levelAt(40, false), 0.5F);          // above the range it is full
  EXPECT_EQ(levelAt(UINT64_MAX, false), 0.5F);  // the same
  EXPECT_EQ(levelAt(nullptr, nullptr), 0.5F);
  EXPECT_EQ(levelAt(8, true), 0);
  EXPECT_EQ(levelAt(8, 1), 0);
  EXPECT_EQ(levelAt(json::array({8}), false), 0.5F);
}

TEST(Volume, AStoredLevelOutOfEveryRangeDoesNoHarm) {
  for (const auto& [steps, isSilent] : {std::pair{json(-5), true},
                                        {json(-100), true},
                                        {json(INT64_MIN), true},
                                        {json(INT64_MAX), false},
                                        {json(UINT64_MAX), false},
                                        {json(1000), false}}) {
    // The next process finds it in the file.
    const Played played = playScenario(builtIn + screen + music + preference("steps.HDMI-1", steps) + launch + settle +
                                       snapshot("running") + quit + settle + snapshot("kept") + launch + settle + mute +
                                       mute + down + up + settle);
    EXPECT_EQ(snapshotOf(played, "kept")["preferences"]["steps.HDMI-1"], steps);
    // Ears first: a gain is from 0 to 1 whatever the level.
    expectSpeaker(played, "running", isSilent ? 0 : 0.5F, !isSilent);
    EXPECT_EQ(played.swallowed(), Swallowed(8, true));
    expectNothingLeft(played);
  }
}

TEST(Volume, ALevelThatSomebodyElseWritesIsNeverLouderThanFull) {
  for (const int steps : {-1, -16, -100, 17, 100000}) {
    // Muting and unmuting takes the stored level as it is.
    const Played played = playScenario(playing + down + settle + preference("steps.HDMI-1", steps) + mute + settle +
                                       snapshot("muted") + mute + settle + snapshot("heard"));
    expectRouted(played, "muted", 0);
    if (steps < 0) {
      expectRouted(played, "heard", 0);
    } else {
      expectUnrouted(played, "heard", 0.5F);
    }
    EXPECT_EQ(snapshotOf(played, "heard")["preferences"]["steps.HDMI-1"], steps);
  }
}

TEST(Volume, TheSliderTakesAStoredLevelAsItIs) {
  const Played played = playScenario(builtIn + screen + preference("steps.HDMI-1", -5) + preference("muted.HDMI-1", 0) +
                                     launch + settle + menu(true) + slide("Screen", 0) + settle);
  EXPECT_EQ(written(played), (Logs{"steps.HDMI-1=0", "muted.HDMI-1=false"}));
}

// ---- The microphone ----

TEST(Volume, TheMicrophoneStaysClosed) {
  for (const int inputs : {1, 3}) {
    const Played played = playScenario(builtIn + screen + output(10, {{"inputs", inputs}}) + music + launch + settle +
                                       down + settle + snapshot("15") + up + settle + snapshot("16"));
    expectRouted(played, "15", 0.5F * gain(15));
    EXPECT_EQ(snapshotOf(played, "15")["audio"]["microphone"], false);
    EXPECT_TRUE(played.of("prompt").empty());
    // Said before the start, of all streams: the device's own are off and the tap's is on.
    const auto calls = played.calls("AudioObjectSetPropertyData");
    ASSERT_EQ(calls.size(), 1U);
    EXPECT_EQ(calls[0]["args"]["selector"], "suse");
    EXPECT_EQ(calls[0]["args"]["scope"], "inpt");
    std::string data = calls[0]["args"]["data"];
    std::string expected = inputs == 1 ? "02 00 00 00" : "04 00 00 00";
    for (int input = 0; input < inputs; ++input) expected += " 00 00 00 00";
    EXPECT_EQ(data.substr(24), expected + " 01 00 00 00");
    expectNothingLeft(played);
  }
}

TEST(Volume, ADeviceWithoutInputsIsToldNothingOfThem) {
  const Played played = playScenario(playing + down + settle + snapshot("15"));
  EXPECT_TRUE(played.calls("AudioObjectSetPropertyData").empty());
  EXPECT_EQ(snapshotOf(played, "15")["audio"]["microphone"], false);
}

// A router that went on would have the user asked for the microphone, by a program for volume. Full volume is the
// lesser evil, and the next change tries again.
TEST(Volume, AMicrophoneThatCannotBeClosedIsNotOpened) {
  const Played played = playScenario(builtIn + screen + output(10, {{"inputs", 2}}) + music + launch + settle +
                                     fail("AudioObjectSetPropertyData", -50) + down + settle + snapshot("15") + down +
                                     settle + snapshot("14"));
  EXPECT_TRUE(logged(played,
                     "error VolumeController: Starting the capture for Screen failed: Switching the device's own "
                     "inputs off failed (OSStatus -50)"));
  expectUnrouted(played, "15", 0.5F);
  expectRouted(played, "14", 0.5F * gain(14));
  EXPECT_TRUE(played.of("prompt").empty());
  EXPECT_EQ(played.swallowed(), Swallowed(4, true));
  expectNothingLeft(played);
}

// ---- Failures ----

// Every call of the start sequence, which of its occurrences it is when the first key is pressed, and what is logged.
struct StartFailure {
  std::string call;
  int nth;
  std::string text;
  std::vector<std::string> calls;  // until it is given up
};

TEST(Volume, EveryCallOfTheStartFails) {
  const std::vector<StartFailure> failures = {
      {"AudioObjectGetPropertyDataSize", 1, "Counting streams failed (OSStatus -50)", {}},
      {"AudioObjectGetPropertyData", 1, "Reading string property 1969841184 failed (OSStatus -50)", {}},
      {"AudioHardwareCreateProcessTap",
       1,
       "Creating the process tap failed (OSStatus -50)",
       {"AudioHardwareCreateProcessTap"}},
      {"AudioObjectGetPropertyData",
       3,
       "Reading property 1952869748 failed (OSStatus -50)",
       {"AudioHardwareCreateProcessTap", "AudioHardwareDestroyProcessTap"}},
      {"AudioObjectGetPropertyData",
       4,
       "Reading property 1936092532 failed (OSStatus -50)",
       {"AudioHardwareCreateProcessTap", "AudioHardwareDestroyProcessTap"}},
      {"AudioHardwareCreateAggregateDevice",
       1,
       "Creating the aggregate device failed (OSStatus -50)",
       {"AudioHardwareCreateProcessTap", "AudioHardwareCreateAggregateDevice", "AudioHardwareDestroyProcessTap"}},
      {"AudioDeviceCreateIOProcIDWithBlock",
       1,
       "Creating the I/O proc failed (OSStatus -50)",
       {"AudioHardwareCreateProcessTap", "AudioHardwareCreateAggregateDevice", "AudioDeviceCreateIOProcIDWithBlock",
        "AudioHardwareDestroyAggregateDevice", "AudioHardwareDestroyProcessTap"}},
      {"AudioDeviceStart", 1, "Starting the aggregate device failed (OSStatus -50)", joined({building, takingDown})},
  };
  const auto isTapsEnd = [](const json& record) {
    return record["what"] == "call" && record["api"] == "AudioHardwareDestroyProcessTap";
  };
  for (const StartFailure& failure : failures) {
    WITH_SEEDS(seed, 3) {
      const Played played = playScenario(playing + fail(failure.call, -50, failure.nth) + down + settle +
                                             snapshot("failed") + down + settle + snapshot("14"),
                                         seed);
      EXPECT_TRUE(logged(played, "error VolumeController: Starting the capture for Screen failed: " + failure.text))
          << failure.text;
      EXPECT_EQ(audioCalls(played), joined({failure.calls, building, takingDown})) << failure.text;
      // Of what was built nothing is left when it is logged.
      const auto told = std::ranges::find_if(played.records, [&](const json& each) {
        return each["what"] == "log" && each["text"].get<std::string>().ends_with(failure.text);
      });
      EXPECT_EQ(std::count_if(told, played.records.end(), isTapsEnd), 1) << failure.text;  // the next router's
      expectSpeaker(played, "failed", 0.5F, true);
      EXPECT_EQ(snapshotOf(played, "failed")["taps"], 0);
      EXPECT_EQ(snapshotOf(played, "failed")["aggregates"], 0);
      EXPECT_EQ(snapshotOf(played, "failed")["preferences"]["steps.HDMI-1"], 15);
      expectSpeaker(played, "14", 0.5F * gain(14), false);
      EXPECT_EQ(played.swallowed(), Swallowed(4, true));
      EXPECT_EQ(popUps(played), (PopUps{{3, 15}, {3, 14}}));
      expectNothingLeft(played);
    }
  }
}

TEST(Volume, TheProcessLookUpFails) {
  const Played played = playScenario(playing + fail("AudioObjectGetPropertyData", -50, 2) + down + settle +
                                     snapshot("failed") + down + settle + snapshot("14"));
  const auto logs = played.logs();
  ASSERT_EQ(logs.size(), 3U);
  EXPECT_EQ(
      logs[2].find("error VolumeController: Starting the capture for Screen failed: Looking up the process object "
                   "for pid "),
      0U);
  EXPECT_TRUE(logs[2].ends_with(" failed (OSStatus -50)"));
  expectSpeaker(played, "14", 0.5F * gain(14), false);
  expectNothingLeft(played);
}

TEST(Volume, AFailedStartAtLaunchIsTriedAgain) {
  const Played played =
      playScenario(builtIn + screen + music + preference("steps.HDMI-1", 8) + fail("AudioDeviceStart", 2003329396) +
                   launch + settle + snapshot("failed") + down + settle + snapshot("7"));
  EXPECT_TRUE(
      logged(played,
             "error VolumeController: Starting the capture for Screen failed: Starting the aggregate device failed "
             "(OSStatus 2003329396)"));
  expectSpeaker(played, "failed", 0.5F, true);
  expectSpeaker(played, "7", 0.5F * gain(7), false);
  expectNothingLeft(played);
}

TEST(Volume, EveryCallOfTheTeardownFails) {
  struct Failure {
    std::string call;
    std::string text;
    json leaks;
  };
  const std::vector<Failure> failures = {
      {"AudioDeviceStop", "Stopping the aggregate device", json::object()},
      {"AudioDeviceDestroyIOProcID", "Destroying the I/O proc", json::object()},
      {"AudioHardwareDestroyAggregateDevice", "Destroying the aggregate device", {{"aggregate device", 1}}},
      {"AudioHardwareDestroyProcessTap", "Destroying the process tap", {{"process tap", 1}}},
  };
  for (const Failure& failure : failures) {
    const Played played = playScenario(playing + down + settle + fail(failure.call, -66) + up + settle +
                                       snapshot("full") + down + settle + snapshot("15") + up + settle);
    EXPECT_TRUE(logged(played, "error AudioRouter: " + failure.text + " failed (OSStatus -66)")) << failure.text;
    EXPECT_EQ(audioCalls(played), joined({building, takingDown, building, takingDown})) << failure.text;
    expectSpeaker(played, "full", 0.5F, true);
    expectSpeaker(played, "15", 0.5F * gain(15), false);
    json leaks = json::object();
    for (const json& leak : played.of("leak")) leaks[leak["kind"].get<std::string>()] = leak["count"];
    EXPECT_EQ(leaks, failure.leaks) << failure.text;
  }
}

TEST(Volume, EveryCallOfTheChoiceFails) {
  struct Failure {
    std::string call;
    int nth;
    std::string text;
  };
  const std::vector<Failure> failures = {
      {"AudioObjectGetPropertyData", 1, "Reading property 1682929012 failed (OSStatus -1)"},
      {"AudioObjectGetPropertyData", 2, "Reading string property 1819173229 failed (OSStatus -1)"},
      {"AudioObjectIsPropertySettable", 1, "Checking volume control failed (OSStatus -1)"},
      {"AudioObjectGetPropertyData", 3, "Reading string property 1969841184 failed (OSStatus -1)"},
  };
  for (const Failure& failure : failures) {
    const Played played = playScenario(
        builtIn + output(10, {{"uid", "HDMI-1"}, {"name", "Screen"}, {"volume", "fixed"}, {"default", true}}) + music +
        fail(failure.call, -1, failure.nth) + launch + settle + down + wake + settle + down + settle + snapshot("15"));
    EXPECT_TRUE(logged(played, "error VolumeController: " + failure.text)) << failure.text;
    EXPECT_EQ(played.swallowed(), (Swallowed{false, false, true, true})) << failure.text;
    expectSpeaker(played, "15", 0.5F * gain(15), false);
    expectNothingLeft(played);
  }
}

TEST(Volume, AListenerThatIsRefusedIsLoggedAndDoneWithout) {
  const Played played =
      playScenario(fail("AudioObjectAddPropertyListenerBlock", -4) + playing +
                   output(11, {{"uid", "USB"}, {"name", "Headset"}, {"volume", "settable"}, {"default", true}}) +
                   settle + down + settle + snapshot("15"));
  EXPECT_TRUE(logged(played, "error VolumeController: Could not watch the default output device (OSStatus -4)"));
  // Nobody told the program of the new default.
  expectSpeaker(played, "15", 0.5F * gain(15), false);
  for (const std::string& property : watched(played, "AudioObjectRemovePropertyListenerBlock")) {
    EXPECT_NE(property, "dOut glob");
  }
  expectNothingLeft(played);
}

TEST(Volume, RestartsThatCannotBeWatchedAreLoggedAndDoneWithout) {
  const Played played =
      playScenario(fail("AudioObjectAddPropertyListenerBlock", -4, 2) + playing + down + settle + snapshot("15"));
  EXPECT_TRUE(logged(played, "error VolumeController: Could not watch the audio service (OSStatus -4)"));
  expectRouted(played, "15", 0.5F * gain(15));
  for (const std::string& property : watched(played, "AudioObjectRemovePropertyListenerBlock")) {
    EXPECT_NE(property, "srst glob");
  }
  expectNothingLeft(played);
}

TEST(Volume, ADefaultOutputThatCannotBeReadLeavesTheKeys) {
  const char* const errors[] = {"error VolumeController: Reading property 1682929012 failed (OSStatus -50)",
                                "error VolumeController: Reading string property 1819173229 failed (OSStatus -50)"};
  for (const int failing : {1, 2}) {
    WITH_SEEDS(seed, 5) {
      const Played played =
          playScenario(playing + down + settle + output(11, {{"uid", "HDMI-2"}, {"name", "Beamer"}}) +
                           fail("AudioObjectGetPropertyData", -50, failing) + defaultOutput(11) + settle +
                           snapshot("unknown") + down + defaultOutput(10) + settle + snapshot("screen"),
                       seed);
      EXPECT_EQ(countOf(played, errors[failing - 1]), 1U);
      EXPECT_EQ(countOf(played, "info VolumeController: Controlling the volume of Beamer"), 0U);
      expectUnrouted(played, "unknown", 0.5F);
      EXPECT_EQ(played.swallowed(), (Swallowed{true, true, false, false}));
      // The next change is decided on, also back to what it was before.
      expectRouted(played, "screen", 0.5F * gain(15));
      expectNothingLeft(played);
    }
  }
}

// Where a key found that sound may not be tapped any more, nothing is decided on.
TEST(Volume, AnOutputThatWasGivenUpIsChosenAgain) {
  // When the program looks, the default is the same as before.
  const std::string thereAndBack = during("AudioObjectGetPropertyData", defaultOutput(10)) + defaultOutput(11);
  WITH_SEEDS(seed, 5) {
    const Played played = playScenario(
        playing + output(11, {{"uid", "HDMI-2"}, {"name", "Beamer"}}) + capture({{"permission", "denied"}}) + down +
            settle + capture({{"permission", "authorized"}}) + thereAndBack + settle + snapshot("back"),
        seed);
    EXPECT_EQ(countOf(played, controlling), 2U);
    expectRouted(played, "back", 0.5F * gain(15));
  }
}

// Of an output that goes both the output and the system tell.
TEST(Volume, WhatRemainsIsDecidedOnOnce) {
  const json own = {{"uid", "USB"}, {"name", "Headset"}, {"volume", "settable"}};
  const std::pair<std::string, std::string> remaining[] = {
      {"", "error VolumeController: Reading string property 1819173229 failed (OSStatus 560947818)"},
      {output(11, own), "info VolumeController: Headset has its own volume control, staying idle"},
      {output(11, {{"uid", "HDMI-2"}, {"name", "Beamer"}}), "info VolumeController: Controlling the volume of Beamer"}};
  for (const auto& [other, decision] : remaining) {
    WITH_SEEDS(seed, 10) {
      const Played played = playScenario(playing + other + mute + settle + outputGone(10) + settle, seed);
      EXPECT_EQ(countOf(played, decision), 1U) << decision;
      expectNothingLeft(played);
    }
  }
  // Nor is anybody asked twice.
  WITH_SEEDS(seed, 10) {
    const Played played = playScenario(playing + output(11, {{"uid", "HDMI-2"}, {"name", "Beamer"}}) + mute + settle +
                                           capture({{"permission", "undetermined"}}) + outputGone(10) + settle,
                                       seed);
    EXPECT_EQ(played.calls("TCCAccessRequest").size(), 1U);
    EXPECT_EQ(countOf(played, "info VolumeController: Controlling the volume of Beamer"), 1U);
  }
}

TEST(Volume, ADeviceThatCannotBeWatchedIsPlayedAllTheSame) {
  const Played played = playScenario(playing + fail("AudioObjectAddPropertyListenerBlock", -4, 1, 6) + down + settle +
                                     snapshot("15") + up + settle + snapshot("16"));
  EXPECT_EQ(countOf(played, "error VolumeController: Could not watch Screen (OSStatus -4)"), 5U);
  EXPECT_EQ(countOf(played, "error AudioRouter: Could not watch the aggregate device (OSStatus -4)"), 1U);
  expectRouted(played, "15", 0.5F * gain(15));
  expectUnrouted(played, "16", 0.5F);
  EXPECT_EQ(watched(played, "AudioObjectRemovePropertyListenerBlock"), (Logs{"srst glob", "dOut glob"}));
  expectNothingLeft(played);
}

TEST(Volume, TheSameSeedGivesTheSameBytes) {
  const std::string scenario = playing + down + wake + down + mute + settle + wake + quit + launch + settle + up;
  WITH_SEEDS(seed, 5) { EXPECT_EQ(playScenario(scenario, seed).bytes, playScenario(scenario, seed).bytes); }
}

TEST(Volume, QuittingAtAnyPoint) {
  const std::vector<std::string> steps = {
      builtIn,           screen,         music,  launch, down, wake, settle, mute, advance(0.005),
      defaultOutput(10), outputGone(10), screen, settle, up};
  for (std::size_t point = 4; point <= steps.size(); ++point) {
    WITH_SEEDS(seed, 5) {
      std::string scenario;
      for (std::size_t i = 0; i < point; ++i) scenario += steps[i] + "\n";
      const Played played = playScenario(scenario + quit + advance(0.05) + snapshot("after"), seed);
      EXPECT_EQ(played.of("exit").size(), 1U) << point;
      EXPECT_EQ(snapshotOf(played, "after")["taps"], 0) << point;
      expectNothingLeft(played);
    }
  }
}

TEST(Volume, OnTheLiveClock) {
  const std::string held = repeated("volumeDown");
  const json quick = {{"uid", "HDMI-1"}, {"name", "Screen"}, {"frames", 64}, {"default", true}};
  std::string scenario = builtIn + output(10, quick) + output(11, {{"uid", "HDMI-2"}, {"name", "Beamer"}}) +
                         play("music", 10, json::object()) + launch + settle;
  for (int i = 0; i < 20; ++i) {
    scenario += held + advance(0.003) + (i % 3 == 0 ? mute : wake) + advance(0.002) + up + held;
    if (i % 5 == 1) scenario += defaultOutput(11) + held + defaultOutput(10);
    if (i % 5 == 3) {
      scenario += outputGone(10) + advance(0.001) + output(10, quick) + advance(0.002);
    }
  }
  scenario += settle + snapshot("s") + quit;
  const Heard heard = listenTo(10, scenario, 1, simulator::Clock::live);
  expectNothingLeft(heard.played);
  EXPECT_GT(heard.samples.size(), 0U);
  for (const float sample : heard.samples) ASSERT_LE(std::abs(sample), 0.5F);
}

TEST(Volume, TheCallbackAllocatesAndLocksNothing) {
  RealTimeGuard::reset();
  const Heard heard = listenTo(10, playing + down + settle + down + settle + mute + settle + mute + advance(0.1) + up);
  EXPECT_GT(heard.samples.size(), 512U);
  EXPECT_EQ(RealTimeGuard::allocations(), 0U);
  EXPECT_EQ(RealTimeGuard::locks(), 0U);
}

TEST(Volume, PreferencesLieInAFile) {
  simulator::Mac machine(dalvaneProgram(), {});
  simulator::Scenario scenario(machine);
  std::istringstream steps(playing + down + mute + quit + settle);
  scenario.add(steps, "test");
  scenario.play();
  std::ifstream file(
      machine.part<simulator::SystemRoot>().below("/Users/user/Library/Preferences/example.dalvane.Dalvane.plist"));
  std::ostringstream text;
  text << file.rdbuf();
  EXPECT_NE(text.str().find("<key>steps.HDMI-1</key>\n\t<integer>15</integer>"), std::string::npos) << text.str();
  EXPECT_NE(text.str().find("<key>muted.HDMI-1</key>\n\t<true/>"), std::string::npos) << text.str();
  EXPECT_TRUE(machine.shutDown());
}
