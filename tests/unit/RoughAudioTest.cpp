// Core Audio under a program of the test's own: a rough one, and sound that goes on.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <thread>

#include "platform/AudioTap.h"
#include "platform/Block.h"
#include "platform/CFCollections.h"
#include "platform/UUID.h"
#include "simulator/audio/Audio.h"
#include "simulator/foundation/RunLoop.h"
#include "simulator/kernel/Call.h"
#include "simulator/mac/Mac.h"
#include "tests/support/Lines.h"
#include "tests/support/Program.h"
#include "volume/AudioRouter.h"
#include "volume/CoreAudio.h"

using namespace lines;
using nlohmann::json;

namespace {

const std::string rough = temper({{"audio", "rough"}});
const std::string screen = output(10, {{"uid", "HDMI-1"}, {"name", "Screen"}, {"default", true}});
const std::string music = play("music", 10);

void pause(int milliseconds) { std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds)); }

simulator::Audio& audio() { return simulator::Call::unguarded().part<simulator::Audio>(); }

// What a callback has seen.
struct Seen {
  int calls = 0;
  int lacking = 0;     // calls without a whole buffer of the tap's
  int absent = 0;      // calls without any buffer of the tap's
  bool fades = false;  // each call plays the tap at a lower level than the one before, until there is nothing left
};

// A tap of the screen and an aggregate device whose callback notes its calls, and plays nothing unless told otherwise.
class Listener {
 public:
  explicit Listener(bool startsWithTap = true, const std::string& uid = "L-1") {
    const CA::TapDescription description = CA::TapDescription::initExcludingProcesses({}, "HDMI-1", 0);
    description.setUUID(NS::UUID::make());
    description.setMuteBehavior(CA::TapMuteBehavior::MutedWhenTapped);
    EXPECT_EQ(CA::AudioHardwareCreateProcessTap(description, &tap), kAudioHardwareNoError);
    using CF::value;
    const auto subDevice = CF::dictionary({{CFSTR(kAudioSubDeviceUIDKey), value(std::string("HDMI-1"))}});
    const auto subTap = CF::dictionary({{CFSTR(kAudioSubTapUIDKey), value(description.UUID().UUIDString())},
                                        {CFSTR(kAudioSubTapDriftCompensationKey), value(true)}});
    const auto wanted = CF::dictionary({
        {CFSTR(kAudioAggregateDeviceNameKey), value(std::string("L"))},
        {CFSTR(kAudioAggregateDeviceUIDKey), value(uid)},
        {CFSTR(kAudioAggregateDeviceMainSubDeviceKey), value(std::string("HDMI-1"))},
        {CFSTR(kAudioAggregateDeviceIsPrivateKey), value(true)},
        {CFSTR(kAudioAggregateDeviceIsStackedKey), value(false)},
        {CFSTR(kAudioAggregateDeviceTapAutoStartKey), value(startsWithTap)},
        {CFSTR(kAudioAggregateDeviceSubDeviceListKey), CF::listOf(subDevice.get())},
        {CFSTR(kAudioAggregateDeviceTapListKey), CF::listOf(subTap.get())},
    });
    EXPECT_EQ(AudioHardwareCreateAggregateDevice(wanted.get(), &device), kAudioHardwareNoError);
    const std::shared_ptr<Seen> noted = seen;
    EXPECT_EQ(AudioDeviceCreateIOProcIDWithBlock(
                  &proc, device, nullptr,
                  ^(const AudioTimeStamp*, const AudioBufferList* input, const AudioTimeStamp*, AudioBufferList* output,
                    const AudioTimeStamp*) {
                    ++noted->calls;
                    const bool isWhole = input->mNumberBuffers == 1 &&
                                         input->mBuffers[0].mDataByteSize == output->mBuffers[0].mDataByteSize;
                    if (!isWhole) ++noted->lacking;
                    if (input->mNumberBuffers == 0) ++noted->absent;
                    if (!noted->fades || !isWhole) return;
                    const float level = std::max(0.0F, 1 - 0.01F * static_cast<float>(noted->calls));
                    const auto* const in = static_cast<const float*>(input->mBuffers[0].mData);
                    auto* const out = static_cast<float*>(output->mBuffers[0].mData);
                    const std::size_t samples = output->mBuffers[0].mDataByteSize / sizeof(float);
                    // By equal steps within the cycle, as the level of a ramp.
                    for (std::size_t i = 0; i < samples; ++i) {
                      const float within = static_cast<float>(i) / static_cast<float>(samples);
                      out[i] = in[i] * std::max(0.0F, level - 0.01F * within);
                    }
                  }),
              kAudioHardwareNoError);
  }
  ~Listener() {
    AudioDeviceDestroyIOProcID(device, proc);
    AudioHardwareDestroyAggregateDevice(device);
    CA::AudioHardwareDestroyProcessTap(tap);
  }
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;

  AudioObjectID tap = 0;
  AudioObjectID device = 0;
  AudioDeviceIOProcID proc = nullptr;
  const std::shared_ptr<Seen> seen = std::make_shared<Seen>();
};

}  // namespace

TEST(RoughCoreAudio, CallsACallbackOnceMoreAfterItsStop) {
  int late = 0;
  WITH_SEEDS(seed, 20) {
    const Played played = runAsProgram(
        screen + music + rough,
        [&late] {
          std::shared_ptr<Seen> seen;
          int calls = 0;
          {
            const Listener listener;
            seen = listener.seen;
            EXPECT_EQ(AudioDeviceStart(listener.device, listener.proc), kAudioHardwareNoError);
            pause(100);
            EXPECT_EQ(AudioDeviceStop(listener.device, listener.proc), kAudioHardwareNoError);
            calls = seen->calls;
          }
          pause(300);
          EXPECT_GT(calls, 0);
          EXPECT_LE(seen->calls, calls + 1);
          late += seen->calls - calls;
        },
        seed);
    EXPECT_TRUE(played.of("leak").empty());
  }
  EXPECT_GT(late, 2);
  EXPECT_LT(late, 18);
}

TEST(RoughCoreAudio, TapsDeliverLessAtFirst) {
  int lacking = 0;
  int absent = 0;
  WITH_SEEDS(seed, 10) {
    runAsProgram(
        screen + music + rough,
        [&lacking, &absent] {
          const Listener listener;
          EXPECT_EQ(AudioDeviceStart(listener.device, listener.proc), kAudioHardwareNoError);
          pause(300);
          lacking += listener.seen->lacking;
          absent += listener.seen->absent;
          EXPECT_LT(listener.seen->lacking, 12);
          const int before = listener.seen->lacking;
          pause(300);
          EXPECT_EQ(listener.seen->lacking, before);
        },
        seed);
  }
  EXPECT_GT(absent, 0);
  EXPECT_GT(lacking, absent);
}

TEST(RoughCoreAudio, AStartWaitsForSoundOrForItsEnd) {
  bool waited = false;
  WITH_SEEDS(seed, 10) {
    for (const bool startsWithTap : {true, false}) {
      runAsProgram(
          screen + rough,
          [&, startsWithTap] {
            const Listener listener(startsWithTap);
            const auto status = std::make_shared<OSStatus>(1);
            const AudioObjectID device = listener.device;
            const AudioDeviceIOProcID proc = listener.proc;
            dispatch_async(dispatch_get_global_queue(QOS_CLASS_DEFAULT, 0), ^{
              *status = AudioDeviceStart(device, proc);
            });
            pause(1000);
            const bool waits = *status == 1;
            waited = waited || waits;
            EXPECT_FALSE(waits && !startsWithTap);
            if (seed % 2 == 0) audio().play("music", 10, {.level = 0.5, .tone = 0});
            if (seed % 2 == 0) pause(1000);
            EXPECT_EQ(*status, waits && seed % 2 == 1 ? 1 : kAudioHardwareNoError);
            EXPECT_EQ(AudioDeviceStop(device, proc), kAudioHardwareNoError);
            pause(1000);
            EXPECT_EQ(*status, waits && seed % 2 == 1 ? kAudioHardwareNotRunningError : kAudioHardwareNoError);
          },
          seed);
    }
  }
  EXPECT_TRUE(waited);
}

TEST(RoughCoreAudio, AStartThatWaitsEndsWithWhatItIsToStart) {
  int refused = 0;
  WITH_SEEDS(seed, 10) {
    for (const bool restarts : {true, false}) {
      runAsProgram(
          screen + rough,
          [&refused, restarts] {
            const Listener listener;
            const auto status = std::make_shared<OSStatus>(1);
            const AudioObjectID device = listener.device;
            const AudioDeviceIOProcID proc = listener.proc;
            dispatch_async(dispatch_get_global_queue(QOS_CLASS_DEFAULT, 0), ^{
              *status = AudioDeviceStart(device, proc);
            });
            pause(1000);
            if (*status != 1) return;  // this one did not wait
            restarts ? audio().restart() : (void)AudioHardwareDestroyAggregateDevice(device);
            pause(1000);
            EXPECT_EQ(*status, kAudioHardwareNotRunningError);
            ++refused;
          },
          seed);
    }
  }
  EXPECT_GT(refused, 2);
}

TEST(RoughCoreAudio, NoticesComeLateAndThatOfTheDefaultOutputTwice) {
  bool late = false;
  WITH_SEEDS(seed, 10) {
    runAsProgram(
        screen + output(11, {{"uid", "HDMI-2"}, {"name", "Beamer"}}) + rough,
        [&late] {
          const auto told = std::make_shared<int>(0);
          const dispatch_queue_t queue = dispatch_queue_create("listener", nullptr);
          const Block<AudioObjectPropertyListenerBlock> changed(^(UInt32, const AudioObjectPropertyAddress*) {
            ++*told;
          });
          const AudioObjectPropertyAddress address =
              CoreAudio::propertyAddress(kAudioHardwarePropertyDefaultOutputDevice);
          EXPECT_EQ(AudioObjectAddPropertyListenerBlock(CoreAudio::system, &address, queue, changed.get()),
                    kAudioHardwareNoError);
          audio().setDefaultOutput(11);
          pause(1);
          late = late || *told < 2;
          pause(300);
          EXPECT_EQ(*told, 2);
          AudioObjectRemovePropertyListenerBlock(CoreAudio::system, &address, queue, changed.get());
          dispatch_release(queue);
        },
        seed);
  }
  EXPECT_TRUE(late);
}

TEST(RoughCoreAudio, AFormatThatChangesStopsIOOrLeavesTheTap) {
  bool stopped = false;
  bool left = false;
  bool followed = false;
  WITH_SEEDS(seed, 20) {
    runAsProgram(
        screen + music + rough,
        [&] {
          const Listener listener(false);
          EXPECT_EQ(AudioDeviceStart(listener.device, listener.proc), kAudioHardwareNoError);
          pause(300);
          simulator::OutputDevice& device = *audio().output(10);
          simulator::OutputSettings settings = device.settings();
          settings.rate = 96000;
          audio().changeOutput(device, settings);
          pause(300);
          const int calls = listener.seen->calls;
          pause(300);
          const bool isStopped = listener.seen->calls == calls;
          const bool isLeft = CoreAudio::tapFormat(listener.tap).mSampleRate == 48000;
          EXPECT_FALSE(isStopped && isLeft);
          stopped = stopped || isStopped;
          left = left || isLeft;
          followed = followed || (!isStopped && !isLeft);
        },
        seed);
  }
  EXPECT_TRUE(stopped);
  EXPECT_TRUE(left);
  EXPECT_TRUE(followed);
}

TEST(RoughCoreAudio, CallsOnADeviceThatIsGoneFail) {
  WITH_SEEDS(seed, 5) {
    runAsProgram(
        screen + music + rough,
        [] {
          const Listener listener(false);
          const AudioObjectID device = CoreAudio::defaultOutputDevice();
          const dispatch_queue_t queue = dispatch_queue_create("listener", nullptr);
          const auto changed = ^(UInt32, const AudioObjectPropertyAddress*) {
          };
          const AudioObjectPropertyAddress alive = CoreAudio::propertyAddress(kAudioDevicePropertyDeviceIsAlive);
          EXPECT_EQ(AudioObjectAddPropertyListenerBlock(device, &alive, queue, changed), kAudioHardwareNoError);
          EXPECT_EQ(AudioDeviceStart(listener.device, listener.proc), kAudioHardwareNoError);
          audio().removeOutput(*audio().output(10));
          EXPECT_NE(AudioObjectRemovePropertyListenerBlock(device, &alive, queue, changed), kAudioHardwareNoError);
          EXPECT_EQ(AudioDeviceStop(listener.device, listener.proc), kAudioHardwareBadDeviceError);
          EXPECT_EQ(AudioDeviceStart(listener.device, listener.proc), kAudioHardwareNotRunningError);
          dispatch_release(queue);
        },
        seed);
  }
}

// ---- The router ----

TEST(AudioRouter, TellsWhatCoreAudioDidToItUntilItIsStopped) {
  for (const bool isStopped : {false, true}) {
    const Played played = runAsProgram(screen + fail("AudioDeviceStart", -50), [isStopped] {
      std::string told;
      AudioRouter router(CoreAudio::defaultOutputDevice(), 0.5F,
                         {.startFailed = [&told](const AppError& error) { told = error.what(); }, .stopped = {}});
      pause(10);  // the start has been refused
      if (isStopped) router.stop();
      simulator::Call::unguarded().part<simulator::RunLoop>().runOnce(simulator::commonModes);
      EXPECT_EQ(told, isStopped ? "" : "Starting the aggregate device failed (OSStatus -50)");
      router.stop();
    });
    EXPECT_TRUE(played.of("leak").empty());
  }
}

TEST(AudioRouter, StopsListeningToTheDeviceBeforeItIsDestroyed) {
  const Played played = runAsProgram(screen, [] { AudioRouter(CoreAudio::defaultOutputDevice(), 0.5F, {}).stop(); });
  std::vector<std::string> calls;
  for (const json& call : played.of("call")) calls.push_back(call["api"]);
  const auto listenerGoes = std::ranges::find(calls, "AudioObjectRemovePropertyListenerBlock");
  ASSERT_NE(listenerGoes, calls.end());
  EXPECT_LT(listenerGoes, std::ranges::find(calls, "AudioHardwareDestroyAggregateDevice"));
  EXPECT_EQ(played.calls("AudioObjectRemovePropertyListenerBlock")[0]["args"]["selector"], "stpd");
}

// ---- Sound that goes on ----

// A callback that takes its time to reach a level is called until it has.
TEST(SteadyCoreAudio, NothingIsLeftOutWhileACallbackFades) {
  runAsProgram(screen + music, [] {
    const Listener listener;
    listener.seen->fades = true;
    EXPECT_EQ(AudioDeviceStart(listener.device, listener.proc), kAudioHardwareNoError);
    pause(3000);
    EXPECT_GT(listener.seen->calls, 100);
    EXPECT_EQ(audio().output(10)->speaker.level(), 0);
    EXPECT_EQ(AudioDeviceStop(listener.device, listener.proc), kAudioHardwareNoError);
  });
}

TEST(SteadyCoreAudio, ASteadyCallbackIsSparedTheCyclesBetween) {
  runAsProgram(screen + music, [] {
    const Listener listener;
    EXPECT_EQ(AudioDeviceStart(listener.device, listener.proc), kAudioHardwareNoError);
    pause(1000);
    const int calls = listener.seen->calls;
    for (int i = 0; i < 10; ++i) pause(5000);
    EXPECT_LT(listener.seen->calls, calls + 50);
    EXPECT_EQ(AudioDeviceStop(listener.device, listener.proc), kAudioHardwareNoError);
  });
}

// Of two I/O threads the seed chooses who comes first in each cycle; what is drawn from it later must not depend on who
// listens.
TEST(SteadyCoreAudio, SeveralDevicesDrawTheSameFromTheSeed) {
  const auto bytes = [](std::uint64_t seed, bool isListenedTo) {
    const auto program = [] {
      const Listener one(true, "L-1");
      const Listener two(true, "L-2");
      EXPECT_EQ(AudioDeviceStart(one.device, one.proc), kAudioHardwareNoError);
      EXPECT_EQ(AudioDeviceStart(two.device, two.proc), kAudioHardwareNoError);
      pause(2000);
      const Listener three(true, "L-3");
      return 0;
    };
    const auto listen = [isListenedTo](simulator::Mac& machine) {
      if (isListenedTo) machine.part<simulator::Audio>().listen(10, [](auto&&...) {});
    };
    return playScenario(screen + music + launch + settle, seed, simulator::Clock::deterministic,
                        {.setUp = listen, .program = program})
        .bytes;
  };
  WITH_SEEDS(seed, 10) { EXPECT_EQ(bytes(seed, false), bytes(seed, true)); }
}
