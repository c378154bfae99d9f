// Each invariant, in a world that somebody has broken behind its back.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <set>
#include <sstream>
#include <string>

#include "desk/Desk.h"
#include "desk/campaign/Attempt.h"
#include "desk/campaign/Invariant.h"
#include "desk/campaign/Run.h"
#include "simulator/audio/Audio.h"
#include "simulator/desktop/EventStream.h"
#include "simulator/displays/Displays.h"
#include "simulator/foundation/Preferences.h"
#include "simulator/foundation/RunLoop.h"
#include "simulator/mac/Mac.h"
#include "simulator/network/URLLoading.h"
#include "simulator/software/Applications.h"
#include "simulator/system/SystemRoot.h"
#include "simulator/system/Volumes.h"
#include "tests/support/Lines.h"

using namespace lines;
using namespace std::chrono_literals;
using campaign::Breach;
using campaign::Run;
using simulator::Audio;
using simulator::Duration;
using simulator::Mac;

namespace {

std::vector<std::string> split(const std::string& text) {
  std::vector<std::string> result;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) result.push_back(line);
  return result;
}

const std::string desk = displayAt(2) + output(11, {{"uid", "U"}, {"name", "Television"}, {"default", true}}) +
                         play("Music", 11, {{"tone", 0}, {"level", 0.25}}) + pointAt(2) + launch + settle + advance(20);

const std::string imageURL = "https://releases.dalvane.example/Dalvane.dmg";

// A release that is published.
std::string published(const std::string& version, const nlohmann::json& more = nlohmann::json::object()) {
  const nlohmann::json release = {
      {"version", version}, {"date", "2026-01-01"}, {"dmg_url", imageURL}, {"size_bytes", 1}, {"notes", "New."}};
  nlohmann::json members = {{"version", version}};
  members.update(more);
  return feed({{"releases", nlohmann::json::array({release})}}) + image(imageURL, members);
}
const std::string checkForUpdates = click("Check for Updates…");
// The same, found and installed, and the new version launched.
std::string updated(const std::string& version) { return published(version) + checkForUpdates + settle + advance(2); }

// A desk that is held against one invariant.
class OneInvariant {
 public:
  explicit OneInvariant(const std::string& name, std::uint64_t seed = 1)
      : run_(dalvaneProgram(), simulator::Seed(seed), only(name),
             [this](const Breach& breach) { broken = breach.how; }) {}

  void play(const std::string& text) { run_.play(split(text)); }
  void finish() { run_.finish(); }
  Mac& mac() { return run_.machine(); }

  std::optional<std::string> broken;

 private:
  static campaign::Invariants only(const std::string& name) {
    campaign::Invariants all = campaign::allInvariants();
    std::erase_if(all, [&name](const auto& each) { return each->name() != name; });
    EXPECT_EQ(all.size(), 1U) << name;
    return all;
  }

  Run run_;
};

// What the invariant says when `harm` is done after `before`, and `after` happens then; and that it says nothing when
// no harm is done.
std::string saidOf(const std::string& name, const std::string& before, const std::function<void(Mac&)>& harm,
                   const std::string& after) {
  {
    OneInvariant whole(name);
    whole.play(before);
    whole.play(after);
    whole.finish();
    EXPECT_EQ(whole.broken.value_or(""), "") << name;
  }
  OneInvariant harmed(name);
  harmed.play(before);
  EXPECT_EQ(harmed.broken.value_or(""), "") << name;
  harm(harmed.mac());
  harmed.play(after);
  harmed.finish();
  return harmed.broken.value_or("");
}

std::function<void(Mac&)> failing(const char* call, std::uint64_t times = 1000) {
  return [=](Mac& mac) { mac.faults.fail(call, -1, 1, times); };
}

// Three cycles that come out of the speaker at that level, whatever is played.
std::function<void(Mac&)> playing(float level) {
  return [level](Mac& mac) {
    for (int i = 0; i < 3; ++i) mac.part<Audio>().output(11)->speaker.play(std::vector(2, level), 2, 48000, true);
  };
}

simulator::Monitor& monitorOf(Mac& mac) { return *mac.part<simulator::Displays>().find(2)->monitor; }

}  // namespace

TEST(Invariant, EachHasANameOfItsOwnAndASentence) {
  std::set<std::string> names;
  for (const auto& invariant : campaign::allInvariants()) {
    EXPECT_TRUE(names.emplace(invariant->name()).second) << invariant->name();
    EXPECT_TRUE(invariant->sentence().ends_with(".")) << invariant->name();
  }
  // Every one of them is broken once below.
  EXPECT_EQ(names, (std::set<std::string>{"last-value-arrives", "displays-come-back", "keys-arrive", "fate-of-keys",
                                          "nothing-is-swallowed", "loudness-is-stored", "never-both-paths",
                                          "full-scale", "never-silent", "nothing-is-tapped", "preferences-hold",
                                          "nothing-is-left-behind", "bundle-is-whole", "nothing-leaks",
                                          "main-thread-is-quick", "idle-means-idle", "menu-shows-the-truth"}));
}

TEST(Invariant, LastValueArrives) {
  EXPECT_EQ(saidOf(
                "last-value-arrives", desk + key("brightnessUp") + advance(0.1),
                [](Mac& mac) { monitorOf(mac).setCurrent(3); }, advance(1)),
            "display 2 was to be at 56 and is at 3");
}

TEST(Invariant, DisplaysComeBack) {
  EXPECT_EQ(saidOf("displays-come-back", desk, failing("IOAVServiceReadI2C"), wake + advance(0.6) + advance(1)),
            "display 2 answers and has not been read");
}

// However long the step is in which it happens.
TEST(Invariant, LastValueArrivesInTime) {
  // The monitor does not answer, unknown to anybody else, until long after the key.
  const auto fallAsleep = [](Duration time) {
    return [time](Mac& mac) {
      mac.scheduler.after(time, simulator::Waiting::work, [&mac] {
        monitorOf(mac).setCurrent(56);
        mac.trace.record("monitor").number("display", 2).number("brightness", 56);
      });
      mac.faults.fail("IOAVServiceWriteI2C", -1, 1, 1000);
    };
  };
  EXPECT_EQ(saidOf("last-value-arrives", desk, fallAsleep(9s), key("brightnessUp") + advance(10)),
            "display 2 was to be at 56 and got there after 9000 ms");
  EXPECT_EQ(saidOf("last-value-arrives", desk, fallAsleep(400ms), key("brightnessUp") + advance(0.5)),
            "display 2 was to be at 56 and got there after 400 ms");
  EXPECT_EQ(saidOf("last-value-arrives", desk, fallAsleep(250ms), key("brightnessUp") + advance(0.5)), "");
}

// What a key shows before the program has heard of a new monitor went to the old one.
TEST(Invariant, LastValueIsOfTheMonitorThatIsThere) {
  for (std::uint64_t seed = 1; seed <= 30; ++seed) {
    OneInvariant replaced("last-value-arrives", seed);
    replaced.play(desk + race(key("brightnessDown")) + race(key("brightnessDown")) + race(displayGone(2)) +
                  displayAt(2) + advance(0.5));
    EXPECT_EQ(replaced.broken, std::nullopt) << seed;
  }
}

TEST(Invariant, DisplaysComeBackInTime) {
  // A key has the monitor read that did not answer to the wake.
  const auto readLate = [](Mac& mac) {
    mac.faults.fail("IOAVServiceReadI2C", -1, 1, 1000);
    mac.scheduler.after(3s, simulator::Waiting::work, [&mac] {
      mac.faults.mend("IOAVServiceReadI2C");
      mac.part<simulator::EventStream>().send({.type = 10, .data1 = {}, .keycode = 144});
    });
  };
  EXPECT_EQ(saidOf("displays-come-back", desk, readLate, wake + advance(10)),
            "display 2 answers and has been read after 3070 ms");
}

TEST(Invariant, KeysArrive) {
  EXPECT_EQ(saidOf("keys-arrive", displayAt(2), failing("CGEventTapCreate"),
                   launch + advance(2) + key("brightnessUp") + advance(2)),
            "2 key events did not come to the program");
}

TEST(Invariant, FateOfKeys) {
  EXPECT_EQ(saidOf("fate-of-keys", desk, failing("NSEvent.eventWithCGEvent"), key("brightnessUp")),
            "the press of brightnessUp was not taken");
  EXPECT_EQ(saidOf("fate-of-keys", desk, failing("NSEvent.eventWithCGEvent", 1), release("volumeUp")),
            "the release of volumeUp was not taken");
  // The output has a volume of its own by now, and the program has not been told.
  const auto harm = [](Mac& mac) {
    auto& device = *mac.part<Audio>().output(11);
    simulator::OutputSettings settings = device.settings();
    settings.volume = simulator::OutputSettings::Volume::settable;
    mac.part<Audio>().changeOutput(device, settings);
  };
  EXPECT_EQ(saidOf("fate-of-keys", desk, harm, key("mute")),
            "the press of mute was taken, and there is nothing that it is for");
}

// Brightness keys also come as plain key-downs; what another subtype says of media keys is about something else.
TEST(Invariant, KeysOfEveryKind) {
  const std::string plain = event(10, {{"keycode", 144}}) + event(10, {{"keycode", 145}, {"autorepeat", true}});
  const std::string other = event(14, {{"subtype", 7}, {"data1", 0x20A00}}) + event(10, {{"keycode", 143}});
  for (const char* const name : {"nothing-is-swallowed", "fate-of-keys", "keys-arrive"}) {
    OneInvariant keys(name);
    keys.play(desk + plain + key("brightnessUp") + other + key("mute") + advance(2));
    EXPECT_EQ(keys.broken, std::nullopt) << name;
  }
  const std::string late = launch + advance(2);
  EXPECT_EQ(saidOf("fate-of-keys", displayAt(2) + pointAt(2), failing("IOAVServiceReadI2C"), late + plain),
            "the press of brightnessUp was not taken");
  EXPECT_EQ(saidOf("keys-arrive", displayAt(2), failing("CGEventTapCreate"), late + plain + advance(2)),
            "2 key events did not come to the program");
}

TEST(Invariant, NothingIsSwallowed) {
  EXPECT_EQ(saidOf(
                "nothing-is-swallowed", displayAt(2) + pointAt(2),
                [](Mac& mac) { mac.part<simulator::SystemRoot>().removeLibrary("OSD"); },
                launch + settle + key("brightnessUp")),
            "the press of brightnessUp showed 0 pop-ups");
}

TEST(Invariant, LoudnessIsStored) {
  EXPECT_EQ(saidOf(
                "loudness-is-stored", desk + key("volumeDown") + advance(5),
                [](Mac& mac) { mac.part<simulator::Preferences>().set("steps.U", 8); }, advance(5) + settle),
            "output 11 plays 0.20599365234375 instead of 0.03125");
}

// What another program writes is known to the program, and judged again, with its next key.
TEST(Invariant, LoudnessIsStoredAfterAnotherProgramWroteIt) {
  EXPECT_EQ(saidOf(
                "loudness-is-stored", desk + preference("steps.U", 8) + key("volumeDown") + advance(5),
                [](Mac& mac) { mac.part<simulator::Preferences>().set("steps.U", 16); }, advance(5) + settle),
            "output 11 plays 0.02093505859375 instead of 0.25");
  OneInvariant untold("loudness-is-stored");
  untold.play(desk + preference("steps.U", 8) + advance(5) + settle);
  EXPECT_EQ(untold.broken, std::nullopt);
}

// A new level is heard behind the rest of the cycle that was under way and the one with the ramp.
TEST(Invariant, LoudnessFollowsInCycles) {
  OneInvariant slow("loudness-is-stored");
  slow.play(output(11, {{"uid", "U"}, {"name", "Television"}, {"frames", 4096}, {"default", true}}) +
            play("Music", 11, {{"tone", 0}, {"level", 0.25}}) + launch + settle + advance(20) +
            key("volumeDown", {{"hold", 1.3}}) + settle);
  EXPECT_EQ(slow.broken, std::nullopt);
}

TEST(Invariant, LoudnessFollowsAtOnceInShortCycles) {
  EXPECT_EQ(saidOf(
                "loudness-is-stored", desk + key("volumeDown") + advance(5),
                [](Mac& mac) { mac.part<simulator::Preferences>().set("steps.U", 8); }, advance(0.033) + settle),
            "output 11 plays 0.20599365234375 instead of 0.03125");
}

TEST(Invariant, NeverBothPaths) {
  EXPECT_EQ(saidOf("never-both-paths", desk, playing(0.5F), settle), "output 11 plays 0.5 of 0.25");
}

TEST(Invariant, FullScale) { EXPECT_EQ(saidOf("full-scale", desk, playing(1.25F), settle), "output 11 plays 1.25"); }

TEST(Invariant, NeverSilent) {
  EXPECT_EQ(saidOf("never-silent", desk, playing(0), settle), "output 11 has been silent for 3 cycles");
  // At 0 it is silent by right.
  OneInvariant muted("never-silent");
  muted.play(desk + key("mute") + advance(1) + settle);
  EXPECT_EQ(muted.broken, std::nullopt);
}

// A thread that was held back still is when the Mac is no longer busy.
TEST(Invariant, WhatABusyMacHeldBackComesLate) {
  const std::string changed = desk + temper({{"threads", "rough"}}) + key("volumeDown") + advance(4) +
                              output(11, {{"channels", 6}, {"frames", 64}});
  for (std::uint64_t seed = 1; seed <= 40; ++seed) {
    OneInvariant late("never-silent", seed);
    late.play(changed + advance(0.005) + temper({{"threads", "smooth"}}) + settle + advance(1));
    EXPECT_EQ(late.broken, std::nullopt) << seed;
  }
}

TEST(Invariant, NothingIsTapped) {
  EXPECT_EQ(saidOf("nothing-is-tapped", desk + key("volumeDown") + settle, failing("AudioHardwareDestroyProcessTap"),
                   key("volumeUp") + advance(5) + settle),
            "there are 1 taps and 0 aggregate devices instead of 0");
}

// A router is told late that its output has more inputs now, but it is told.
TEST(Invariant, AMicrophoneIsNeverOpenForLong) {
  const std::string before = desk + key("volumeDown") + temper({{"audio", "rough"}}) + advance(4) + settle;
  const auto deafen = [](Mac& mac) {
    auto& audio = mac.part<Audio>();
    audio.listeners.clear(audio.output(11)->id);
  };
  for (std::uint64_t seed = 1; seed <= 12; ++seed) {
    OneInvariant late("nothing-is-tapped", seed);
    late.play(before + race(output(11, {{"channels", 4}, {"inputs", 2}})) + settle + advance(4));
    EXPECT_EQ(late.broken, std::nullopt) << seed;
  }
  bool isNoticed = false;
  for (std::uint64_t seed = 1; seed <= 12; ++seed) {
    OneInvariant deaf("nothing-is-tapped", seed);
    deaf.play(before);
    deafen(deaf.mac());
    deaf.play(race(output(11, {{"inputs", 2}})) + advance(4) + settle);
    isNoticed = isNoticed || deaf.broken == "a microphone is open";
  }
  EXPECT_TRUE(isNoticed);
}

TEST(Invariant, AMicrophoneIsNotOpenForLongOnABusyMac) {
  const std::string before = desk + temper({{"threads", "rough"}}) + key("volumeDown") + advance(4);
  for (std::uint64_t seed = 1; seed <= 12; ++seed) {
    OneInvariant late("nothing-is-tapped", seed);
    late.play(before + output(11, {{"inputs", 2}}) + advance(4));
    EXPECT_EQ(late.broken, std::nullopt) << seed;
  }
  OneInvariant deaf("nothing-is-tapped");
  deaf.play(before);
  failing("AudioObjectAddPropertyListenerBlock")(deaf.mac());
  deaf.play(wake + advance(4) + output(11, {{"inputs", 2}}) + advance(0.05));
  EXPECT_EQ(deaf.broken, std::nullopt);
  deaf.play(advance(0.1));
  EXPECT_EQ(deaf.broken, "a microphone is open");
}

// Until the program knows that its output has inputs now, they come before the tap.
TEST(Invariant, AMicrophoneIsNeverHeard) {
  for (std::uint64_t seed = 1; seed <= 20; ++seed) {
    OneInvariant noise("never-both-paths", seed);
    noise.play(desk + key("volumeDown") + advance(1) + play("Music", 11, {{"tone", 0}, {"level", 0}}) + advance(1) +
               race(output(11, {{"inputs", 2}})) + advance(1));
    EXPECT_EQ(noise.broken, std::nullopt) << seed;
  }
}

// What rough hardware does at the beginning it may not go on doing.
TEST(Invariant, RoughHardwareComesToRest) {
  const std::string before = desk + temper({{"audio", "rough"}}) + key("volumeDown") + advance(4);
  EXPECT_EQ(saidOf("never-both-paths", before, playing(0.5F), settle), "output 11 plays 0.5 of 0.25");
  EXPECT_EQ(saidOf("full-scale", before, playing(1.25F), settle), "output 11 plays 1.25");
  EXPECT_EQ(saidOf("never-silent", before, playing(0), settle), "output 11 has been silent for 3 cycles");
  EXPECT_EQ(saidOf(
                "loudness-is-stored", before, [](Mac& mac) { mac.part<simulator::Preferences>().set("steps.U", 8); },
                advance(5) + settle),
            "output 11 plays 0.20599365234375 instead of 0.03125");
}

TEST(Invariant, PreferencesHold) {
  EXPECT_EQ(saidOf(
                "preferences-hold", desk + key("volumeDown"),
                [](Mac& mac) { mac.part<simulator::Preferences>().set("steps.U", 3); }, advance(1)),
            "steps.U is 3 instead of 15");
}

namespace {

void leaveSomething(Mac& mac) {
  std::filesystem::create_directory(mac.part<simulator::SystemRoot>().temporaryDirectory() / "dalvane-update-1");
}
const std::string left = "dalvane-update-1 is left";

}  // namespace

TEST(Invariant, NothingIsLeftBehind) { EXPECT_EQ(saidOf("nothing-is-left-behind", desk, leaveSomething, quit), left); }

TEST(Invariant, NothingIsLeftBehindByAnUpdate) {
  EXPECT_EQ(saidOf("nothing-is-left-behind", desk + updated("9.0.1"), leaveSomething, quit), left);
}

// What an install that was cut short has left is no excuse for anything else.
TEST(Invariant, NothingIsLeftBehindByTheNextUpdate) {
  const std::string cutShort = published("9.0.1") + checkForUpdates + advance(0.15) + quit + launch + advance(20);
  EXPECT_EQ(saidOf("nothing-is-left-behind", desk + cutShort, leaveSomething, quit), left);
  EXPECT_EQ(saidOf("nothing-is-left-behind", desk + cutShort + updated("9.0.2"), leaveSomething, quit), left);
}

// An address answers with so much, for longer than anybody waits.
std::function<void(Mac&)> dripping(const std::string& address) {
  return [address](Mac& mac) {
    mac.part<simulator::URLLoading>().publish(
        address, {.answer = {.status = 200, .body = std::string(1000, 'x'), .location = "", .breakAfter = {}},
                  .route = {.error = {}, .pieces = 1000, .pause = 10s}});
  };
}
const std::string feedURL = "https://releases.dalvane.example/dalvane-releases/releases/releases.json";

// An install that never ends.
TEST(Invariant, AnInstallEndsInItsTime) {
  const std::string said = saidOf("nothing-is-left-behind", desk + published("9.0.1", {{"delay", 8}}),
                                  dripping(imageURL), checkForUpdates + advance(16));
  EXPECT_TRUE(said.starts_with("dalvane-update-")) << said;
  // One that takes as long as its host does.
  OneInvariant slow("nothing-is-left-behind");
  slow.play(desk + published("9.0.1", {{"drip", {{"pieces", 4}, {"pause", 20}}}}) + checkForUpdates + advance(79));
  EXPECT_EQ(slow.broken, std::nullopt);
}

// While one offer is open, the same release is installed from another; that this failed is said when the second install
// has begun, and is not its end.
TEST(Invariant, ALateReportEndsNoOtherInstall) {
  const std::string twoOffers = leaveNextAlertOpen + checkForUpdates + settle + click("Update to 9.0.1…") + settle;
  const std::string firstFails = fail("ditto", 1) + leaveNextAlertOpen + answer("Install and Relaunch") + advance(2);
  const std::string again = image(imageURL, {{"version", "9.0.1"}, {"delay", 8}}) + answer("Install and Relaunch");
  OneInvariant late("nothing-is-left-behind");
  late.play(desk + published("9.0.1") + twoOffers + firstFails + again + advance(7));
  EXPECT_EQ(late.broken, std::nullopt);
}

// A call that fails excuses what its failure leaves, and nothing else.
TEST(Invariant, NothingIsLeftBehindWhenCallsFail) {
  const std::string install = published("9.0.1") + checkForUpdates + settle;
  for (const char* call : {"hdiutil attach", "hdiutil detach", "ditto", "rename", "remove_all", "waitpid",
                           "posix_spawn", "posix_spawnattr_init", "directory_iterator", "SecCodeCopySelf",
                           "SecStaticCodeCheckValidity", "NSURLSession.downloadTaskWithURL"}) {
    for (int nth = 1; nth <= 3; ++nth) {
      EXPECT_EQ(saidOf("nothing-is-left-behind", desk + fail(call, 5, nth) + install, leaveSomething, quit), left)
          << call << " " << nth;
    }
  }
}

// A folder cannot be removed while an image is attached in it, which is no excuse where nobody tried to detach that.
TEST(Invariant, NoImageIsLeftAttached) {
  const auto attachAgain = [](Mac& mac) {
    const auto& root = mac.part<simulator::SystemRoot>();
    const auto image = root.temporaryDirectory() / "image";
    std::ofstream(image) << mac.part<simulator::Applications>().makeImage({});
    for (const auto& entry : std::filesystem::directory_iterator(root.temporaryDirectory())) {
      if (entry.is_directory()) simulator::Volumes(root.path()).attach(image, entry.path() / "mnt");
    }
  };
  const std::string detached = desk + fail("ditto", 1) + published("9.0.1") + checkForUpdates + advance(0.55);
  const std::string said = saidOf("nothing-is-left-behind", detached, attachAgain, settle);
  EXPECT_TRUE(said.starts_with("dalvane-update-")) << said;
}

// A backup is all that is left of what was installed.
TEST(Invariant, BundleIsWholeAfterAnUpdate) {
  const auto moveAway = [](Mac& mac) {
    const auto& bundle = mac.part<simulator::Applications>().bundle();
    std::filesystem::rename(bundle, bundle.string() + ".bak");
  };
  EXPECT_EQ(saidOf("bundle-is-whole", desk + updated("9.0.1"), moveAway, quit), "nothing is installed");
  // Cut short while the image is attached, so that the bundle has not been touched, and while the new one is copied.
  const std::string inAttach = published("9.0.1") + checkForUpdates + advance(0.15) + quit + launch + advance(20);
  EXPECT_EQ(saidOf("bundle-is-whole", desk + inAttach + updated("9.0.2"), moveAway, quit), "nothing is installed");
  OneInvariant cutShort("bundle-is-whole");
  cutShort.play(desk + published("9.0.1") + fail("ditto", 1) + checkForUpdates + advance(0.35) + quit);
  EXPECT_EQ(cutShort.broken, std::nullopt);
}

// What cannot be put back lies beside its place until the next install does it; a call that fails elsewhere is no
// excuse.
TEST(Invariant, BundleIsWholeWhenCallsFail) {
  const auto moveAway = [](Mac& mac) {
    const auto& bundle = mac.part<simulator::Applications>().bundle();
    std::filesystem::rename(bundle, bundle.string() + ".bak");
  };
  const std::string install = published("9.0.1") + checkForUpdates + settle;
  EXPECT_EQ(saidOf("bundle-is-whole", desk + fail("ditto", 1) + install, moveAway, quit), "nothing is installed");
  EXPECT_EQ(saidOf("bundle-is-whole", desk + fail("hdiutil detach", 1) + fail("ditto", 1) + install, moveAway, quit),
            "nothing is installed");
  for (const std::string& fails : {fail("rename", 5, 3), fail("remove_all", 5)}) {
    const std::string putBack = desk + fail("ditto", 1) + fails + install + updated("9.0.2");
    EXPECT_EQ(saidOf("bundle-is-whole", putBack, moveAway, quit), "nothing is installed");
  }
}

TEST(Invariant, NothingLeaks) {
  EXPECT_EQ(saidOf("nothing-leaks", desk + key("volumeDown") + settle, failing("AudioHardwareDestroyProcessTap"), quit),
            "1 of process tap leaked");
}

TEST(Invariant, MainThreadIsQuick) {
  const auto harm = [](Mac& mac) {
    mac.part<simulator::RunLoop>().post(&mac, simulator::commonModes, [&mac] { mac.scheduler.sleep(1500ms); });
  };
  EXPECT_EQ(saidOf("main-thread-is-quick", desk, harm, advance(5)), "the main thread was held up for 1500 ms");
}

TEST(Invariant, IdleMeansIdle) {
  const auto once = [](Mac& mac) {
    for (const std::chrono::seconds when : {100s, 200s, 300s}) {
      mac.scheduler.after(when, simulator::Waiting::background,
                          [&mac] { mac.part<simulator::RunLoop>().post(&mac, simulator::commonModes, [] {}); });
    }
  };
  EXPECT_EQ(saidOf("idle-means-idle", desk + advance(70), once, advance(7200)),
            "the main thread woke up 3 times in 2 hours, instead of 2");
  const auto elsewhere = [](Mac& mac) {
    mac.scheduler.spawn("somebody", [&mac] {
      for (;;) mac.scheduler.sleep(600s, simulator::Waiting::background);
    });
  };
  EXPECT_EQ(saidOf("idle-means-idle", desk + advance(70), elsewhere, advance(7200)),
            "threads woke up 12 times in 2 hours, instead of 4");
  // Where the Accessibility permission is waited for, it is asked for every two seconds.
  OneInvariant polls("idle-means-idle");
  polls.play(accessibility(false) + desk + advance(70) + advance(36000));
  EXPECT_EQ(polls.broken, std::nullopt);
}

TEST(Invariant, MenuShowsTheTruth) {
  EXPECT_EQ(saidOf(
                "menu-shows-the-truth", desk, [](Mac& mac) { monitorOf(mac).setCurrent(3); }, menu(true) + settle),
            "the row of D shows 8 and its monitor is at 3");
}

// What cannot be done where it stands tells of no monitor.
TEST(Invariant, ADisplayThatIsThereWithoutAMonitorGetsNone) {
  OneInvariant plugged("displays-come-back");
  plugged.play(desk + displayAt(3, {{"monitor", nullptr}}) + settle + advance(5) + displayAt(3) + settle + advance(5));
  EXPECT_EQ(plugged.broken, std::nullopt);
}

// Its rows are made when it opens: nobody tells them of another monitor on the same link.
TEST(Invariant, MenuShowsTheMonitorThatItFound) {
  OneInvariant menuIsOpen("menu-shows-the-truth");
  menuIsOpen.play(desk + menu(true) + settle + displayAt(2, {{"monitor", {{"current", 3}, {"maximum", 100}}}}) + settle);
  EXPECT_EQ(menuIsOpen.broken, std::nullopt);
}

TEST(Invariant, MenuShowsTheTruthAboutUpdates) {
  const char* const name = "menu-shows-the-truth";
  const std::string decline = line("answer", {{"dismiss", true}});
  const std::string stuckInCheck = saidOf(name, desk + published("9.0.1"), dripping(feedURL),
                                          leaveNextAlertOpen + checkForUpdates + advance(30) + decline + menu(true));
  EXPECT_EQ(stuckInCheck, R"(the menu says "Checking for Updates…" instead of "Update to 9.0.1…")");
  const std::string stuckInInstall = saidOf(name, desk + published("9.0.1", {{"tampered", true}}), dripping(imageURL),
                                            checkForUpdates + advance(30) + menu(true));
  EXPECT_EQ(stuckInInstall, R"(the menu says "Installing Update…" instead of "Check for Updates…")");
  // An offer that there is not, and one that there is.
  const auto publishNothing = [](Mac& mac) {
    mac.part<simulator::URLLoading>().publish(
        feedURL, {.answer = {.status = 200, .body = "[]", .location = "", .breakAfter = {}}, .route = {}});
  };
  const std::string check = leaveNextAlertOpen + checkForUpdates + settle + decline + advance(1) + menu(true) + settle;
  EXPECT_EQ(saidOf(name, desk + published("9.0.1"), publishNothing, check),
            R"(the menu says "Check for Updates…" instead of "Update to 9.0.1…")");
  for (const std::string& nothingNew : {published("1.0.0"), published("0.9.7"), feed({{"status", 500}}),
                                        feed({{"error", "lost"}}), feed({{"body", "[{"}})}) {
    OneInvariant same(name);
    same.play(desk + nothingNew + check);
    EXPECT_EQ(same.broken, std::nullopt) << nothingNew;
  }
}

// ---- What ends the process ----

TEST(Invariant, TheProgramKeepsGoing) {
  simulator::Program program = dalvaneProgram();
  program.main = []() -> int { std::abort(); };
  const campaign::Outcome outcome = campaign::playOnce(program, 1, split(launch));
  ASSERT_TRUE(outcome.breach);
  EXPECT_EQ(outcome.breach->name, campaign::keepsGoing);
}

TEST(Invariant, WhatNeverEndsIsEnded) {
  Children children;
  children.start(7, 1, [](const Tell& tell) {
    tell("begun");
    for (volatile bool forever = true; forever;) {
    }
  });
  std::string told;
  int status = 0;
  while (children.count() > 0) {
    children.wait([&told](std::size_t number, const std::string& text) { told += std::to_string(number) + text; },
                  [&status](std::size_t, int ended) { status = ended; });
  }
  EXPECT_EQ(told, "7begun");
  EXPECT_EQ(campaign::crash(status, 0).name, "comes-to-an-end");
}
