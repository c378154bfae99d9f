// The typed reads of Core Audio's properties, and the process tap's parts, called by a program of the test's own.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <functional>
#include <memory>
#include <thread>
#include <utility>

#include "base/AppError.h"
#include "platform/Block.h"
#include "simulator/audio/Audio.h"
#include "simulator/kernel/Call.h"
#include "simulator/mac/Mac.h"
#include "tests/support/Lines.h"
#include "tests/support/Program.h"
#include "volume/AudioRouter.h"
#include "volume/CoreAudio.h"
#include "volume/SystemAudioPermission.h"

using namespace lines;
using nlohmann::json;
using simulator::Mac;

namespace {

const json hdmi = {{"uid", "HDMI-1"}, {"name", "Bildschirm Ü"}, {"default", true}};
const std::string screen = output(10, hdmi);

// The text of the error that `call` throws; empty when it throws none.
template <typename Call>
std::string errorOf(Call call) {
  try {
    call();
  } catch (const AppError& error) {
    return error.what();
  }
  return "";
}

// Changes the screen under the program's hands.
void change(const std::function<void(simulator::OutputSettings&)>& how) {
  simulator::OutputDevice& device = *simulator::Call::unguarded().part<simulator::Audio>().output(10);
  simulator::OutputSettings settings = device.settings();
  how(settings);
  simulator::Call::unguarded().part<simulator::Audio>().changeOutput(device, settings);
}

}  // namespace

TEST(CoreAudio, ReadsADevice) {
  runAsProgram(screen + output(10, {{"inputs", 3}, {"rate", 44100}, {"channels", 6}}), [] {
    const AudioObjectID device = CoreAudio::defaultOutputDevice();
    EXPECT_NE(device, kAudioObjectUnknown);
    EXPECT_EQ(CoreAudio::name(device), "Bildschirm Ü");
    EXPECT_EQ(CoreAudio::deviceUID(device), "HDMI-1");
    EXPECT_EQ(CoreAudio::streamCount(device, kAudioObjectPropertyScopeInput), 3);
    EXPECT_EQ(CoreAudio::streamCount(device, kAudioObjectPropertyScopeOutput), 1);
    const AudioStreamBasicDescription format = CoreAudio::outputStreamFormat(device);
    EXPECT_EQ(format.mSampleRate, 44100);
    EXPECT_EQ(format.mChannelsPerFrame, 6U);
    EXPECT_EQ(format.mFormatID, kAudioFormatLinearPCM);
    EXPECT_EQ(format.mBitsPerChannel, 32U);
    EXPECT_EQ(format.mFormatFlags & (kAudioFormatFlagIsFloat | kAudioFormatFlagIsNonInterleaved),
              kAudioFormatFlagIsFloat);
  });
}

TEST(CoreAudio, CountsNoStreams) {
  runAsProgram(screen, [] {
    EXPECT_EQ(CoreAudio::streamCount(CoreAudio::defaultOutputDevice(), kAudioObjectPropertyScopeInput), 0);
  });
}

TEST(CoreAudio, AVolumeThatCannotBeSetIsNone) {
  for (const auto& [kind, controls] : {std::pair{"none", false}, {"fixed", false}, {"settable", true}}) {
    runAsProgram(screen + output(10, {{"volume", kind}}), [expected = controls] {
      EXPECT_EQ(CoreAudio::hasSystemVolumeControl(CoreAudio::defaultOutputDevice()), expected);
    });
  }
}

TEST(CoreAudio, ErrorsNameTheSelector) {
  runAsProgram(screen, [] {
    constexpr AudioObjectID nothing = 9999;
    const std::string suffix = " failed (OSStatus 560947818)";  // '!obj'
    EXPECT_EQ(errorOf([] { (void)CoreAudio::name(nothing); }), "Reading string property 1819173229" + suffix);
    EXPECT_EQ(errorOf([] { (void)CoreAudio::deviceUID(nothing); }), "Reading string property 1969841184" + suffix);
    EXPECT_EQ(errorOf([] { (void)CoreAudio::outputStreamFormat(nothing); }), "Reading property 1936092532" + suffix);
    EXPECT_EQ(errorOf([] { (void)CoreAudio::tapFormat(nothing); }), "Reading property 1952869748" + suffix);
    EXPECT_EQ(errorOf([] { (void)CoreAudio::streamCount(nothing, kAudioObjectPropertyScopeInput); }),
              "Counting streams" + suffix);
    // An object that isn't there has no volume control either, and that is no error.
    EXPECT_FALSE(CoreAudio::hasSystemVolumeControl(nothing));
  });
  runAsProgram(screen + fail("AudioObjectGetPropertyData", -50), [] {
    EXPECT_EQ(errorOf([] { (void)CoreAudio::defaultOutputDevice(); }),
              "Reading property 1682929012 failed (OSStatus -50)");
  });
}

TEST(CoreAudio, NullStringsAreErrorsOfTheirOwn) {
  runAsProgram(output(10, {{"uid", nullptr}, {"name", nullptr}, {"default", true}}), [] {
    const AudioObjectID device = CoreAudio::defaultOutputDevice();
    EXPECT_EQ(errorOf([&] { (void)CoreAudio::name(device); }), "String property 1819173229 is empty");
    EXPECT_EQ(errorOf([&] { (void)CoreAudio::deviceUID(device); }), "String property 1969841184 is empty");
  });
}

TEST(CoreAudio, FindsProcesses) {
  const Played played = runAsProgram(screen, [] {
    EXPECT_NE(CoreAudio::processObject(getpid()), kAudioObjectUnknown);
    EXPECT_EQ(errorOf([] { (void)CoreAudio::processObject(-7); }), "No Core Audio process object for pid -7");
  });
  EXPECT_TRUE(played.of("leak").empty());
  runAsProgram(screen + fail("AudioObjectGetPropertyData", 5), [] {
    EXPECT_EQ(errorOf([] { (void)CoreAudio::processObject(42); }),
              "Looking up the process object for pid 42 failed (OSStatus 5)");
  });
}

TEST(CoreAudio, AddressesHaveDefaults) {
  constexpr AudioObjectPropertyAddress address = CoreAudio::propertyAddress(kAudioObjectPropertyName);
  static_assert(address.mScope == 1735159650U && address.mElement == 0);
  static_assert(CoreAudio::system == 1);
}

// ---- The router ----

TEST(AudioRouter, StopsMoreThanOnce) {
  const Played played = runAsProgram(screen, [] {
    AudioRouter router(CoreAudio::defaultOutputDevice(), 0.5F, {});
    router.setGain(0.25F);
    router.stop();
    router.stop();
  });
  EXPECT_EQ(played.calls("AudioDeviceStop").size(), 1U);
  EXPECT_EQ(played.calls("AudioHardwareDestroyProcessTap").size(), 1U);
  EXPECT_TRUE(played.of("leak").empty());
}

TEST(AudioRouter, DescribesItsObjects) {
  const Played played = runAsProgram(screen, [] { AudioRouter(CoreAudio::defaultOutputDevice(), 0.5F, {}).stop(); });
  const auto tap = played.calls("AudioHardwareCreateProcessTap")[0]["args"];
  EXPECT_EQ(tap["name"], "Dalvane");
  EXPECT_EQ(tap["device"], "HDMI-1");
  EXPECT_EQ(tap["stream"], 0);
  EXPECT_EQ(tap["excluded"], json::array({"Dalvane"}));
  EXPECT_EQ(tap["private"], true);
  EXPECT_EQ(tap["mute"], 2);
  const auto device = played.calls("AudioHardwareCreateAggregateDevice")[0]["args"];
  EXPECT_EQ(device["name"], "Dalvane");
  EXPECT_EQ(device["master"], "HDMI-1");
  EXPECT_EQ(device["private"], true);
  EXPECT_EQ(device["stacked"], false);
  EXPECT_EQ(device["tapautostart"], true);
  EXPECT_EQ(device["subdevices"], json::array({"HDMI-1"}));
  EXPECT_EQ(device["taps"], json::array({{{"uid", tap["uuid"]}, {"drift", true}}}));
  EXPECT_NE(device["uid"], tap["uuid"]);
}

TEST(AudioRouter, ADeviceThatIsGoneIsRefused) {
  const Played played = runAsProgram(screen, [] {
    EXPECT_EQ(errorOf([] { AudioRouter(4711, 1, {}).stop(); }), "Counting streams failed (OSStatus 560947818)");
  });
  EXPECT_TRUE(played.calls("AudioHardwareCreateProcessTap").empty());
}

TEST(AudioRouter, KnowsWhenItsDeviceIsAnother) {
  const Played played =
      runAsProgram(output(10, {{"uid", "HDMI-1"}, {"name", "N"}, {"inputs", 1}, {"default", true}}), [] {
        AudioRouter router(CoreAudio::defaultOutputDevice(), 0.5F, {});
        EXPECT_TRUE(router.fitsDevice());
        change([](auto& settings) { settings.frames = 64; });
        EXPECT_TRUE(router.fitsDevice());
        change([](auto& settings) { settings.inputs = 2; });
        EXPECT_FALSE(router.fitsDevice());
        change([](auto& settings) { settings.inputs = 0; });
        EXPECT_FALSE(router.fitsDevice());
        change([](auto& settings) { settings.inputs = 1; });
        EXPECT_TRUE(router.fitsDevice());
        change([](auto& settings) { settings.rate = 44100; });
        EXPECT_FALSE(router.fitsDevice());
        change([](auto& settings) { settings.rate = 48000, settings.channels = 1; });
        EXPECT_FALSE(router.fitsDevice());
        change([](auto& settings) { settings.channels = 2, settings.isAlive = false; });
        EXPECT_FALSE(router.fitsDevice());
        change([](auto& settings) { settings.isAlive = true; });
        EXPECT_TRUE(router.fitsDevice());
        simulator::Call::unguarded().faults.fail("AudioObjectGetPropertyDataSize", -50, 1, 1);
        EXPECT_FALSE(router.fitsDevice());
        simulator::Call::unguarded().part<simulator::Audio>().removeOutput(
            *simulator::Call::unguarded().part<simulator::Audio>().output(10));
        EXPECT_FALSE(router.fitsDevice());
        router.stop();
      });
  EXPECT_TRUE(played.of("leak").empty());
}

// The callback owns what it needs: Core Audio may call it when the router could not take it down.
TEST(AudioRouter, ACallbackThatStaysNeedsNoRouter) {
  runAsProgram(screen + play("music", 10) + fail("AudioDeviceStop", -50) + fail("AudioDeviceDestroyIOProcID", -50) +
                   fail("AudioHardwareDestroyAggregateDevice", -50) + fail("AudioHardwareDestroyProcessTap", -50),
               [] {
                 {
                   AudioRouter router(CoreAudio::defaultOutputDevice(), 0.5F, {});
                   router.stop();
                 }
                 // What the router has given back is taken and written over.
                 std::vector<std::unique_ptr<std::array<float, sizeof(RenderState) / sizeof(float) + 8>>> taken;
                 for (int i = 0; i < 1000; ++i) {
                   taken.push_back(std::make_unique<std::array<float, sizeof(RenderState) / sizeof(float) + 8>>());
                   taken.back()->fill(7);
                 }
                 std::this_thread::sleep_for(std::chrono::milliseconds(100));
                 EXPECT_EQ(simulator::Call::unguarded().part<simulator::Audio>().output(10)->speaker.level(), 0.25F);
                 EXPECT_FALSE(simulator::Call::unguarded().part<simulator::Audio>().output(10)->speaker.direct());
               });
}

// ---- Aggregate devices, as strictly as they are checked ----

namespace {

CF::Ref<CFTypeRef> object(const std::string& text) { return CF::retain<CFTypeRef>(CF::string(text).get()); }

CF::Ref<CFDictionaryRef> dictionary(const std::vector<std::pair<std::string, CF::Ref<CFTypeRef>>>& entries) {
  std::vector<CF::Ref<CFStringRef>> names;
  std::vector<const void*> keys;
  std::vector<const void*> values;
  for (const auto& [key, value] : entries) {
    keys.push_back(names.emplace_back(CF::string(key)).get());
    values.push_back(value.get());
  }
  return CF::adopt(CFDictionaryCreate(kCFAllocatorDefault, keys.data(), values.data(),
                                      static_cast<CFIndex>(keys.size()), &kCFTypeDictionaryKeyCallBacks,
                                      &kCFTypeDictionaryValueCallBacks));
}

CF::Ref<CFTypeRef> list(const std::vector<CF::Ref<CFDictionaryRef>>& elements) {
  std::vector<const void*> values;
  for (const auto& each : elements) values.push_back(each.get());
  return CF::adopt<CFTypeRef>(
      CFArrayCreate(kCFAllocatorDefault, values.data(), static_cast<CFIndex>(values.size()), &kCFTypeArrayCallBacks));
}

using Entries = std::vector<std::pair<std::string, CF::Ref<CFTypeRef>>>;

Entries complete() {
  return {{"name", object("A")},
          {"uid", object("A-1")},
          {"master", object("HDMI-1")},
          {"private", CF::retain<CFTypeRef>(kCFBooleanTrue)},
          {"stacked", CF::retain<CFTypeRef>(kCFBooleanFalse)},
          {"tapautostart", CF::retain<CFTypeRef>(CF::number(1).get())},
          {"subdevices", list({dictionary({{"uid", object("HDMI-1")}})})},
          {"taps", list({})}};
}

// What comes of making a device from the description; it is destroyed again.
OSStatus made(const Entries& entries) {
  AudioObjectID device = 0;
  const OSStatus status = AudioHardwareCreateAggregateDevice(dictionary(entries).get(), &device);
  if (status == kAudioHardwareNoError) EXPECT_EQ(AudioHardwareDestroyAggregateDevice(device), kAudioHardwareNoError);
  return status;
}

}  // namespace

TEST(AggregateDevice, TakesACompleteDescription) {
  runAsProgram(screen, [] { EXPECT_EQ(made(complete()), kAudioHardwareNoError); });
}

TEST(AggregateDevice, RefusesEveryIncompleteOne) {
  const Played played = runAsProgram(screen, [] {
    for (std::size_t i = 0; i < complete().size(); ++i) {
      Entries missing = complete();
      missing.erase(missing.begin() + static_cast<std::ptrdiff_t>(i));
      EXPECT_EQ(made(missing), kAudioHardwareIllegalOperationError) << complete()[i].first;
      Entries wrong = complete();
      wrong[i].second = CF::retain<CFTypeRef>(dictionary({}).get());
      EXPECT_EQ(made(wrong), kAudioHardwareIllegalOperationError) << complete()[i].first;
    }
  });
  EXPECT_EQ(played.calls("AudioHardwareCreateAggregateDevice")[0]["args"]["problem"], "\"name\" is missing");
}

TEST(AggregateDevice, RefusesWhatItDoesNotKnow) {
  runAsProgram(screen, [] {
    Entries more = complete();
    more.emplace_back("clock", object("X"));
    EXPECT_EQ(made(more), kAudioHardwareIllegalOperationError);
    Entries tap = complete();
    tap[7].second =
        list({dictionary({{"uid", object("no such tap")}, {"drift", CF::retain<CFTypeRef>(kCFBooleanTrue)}})});
    EXPECT_EQ(made(tap), kAudioHardwareIllegalOperationError);
    Entries waiting = complete();
    waiting[3].second = CF::retain<CFTypeRef>(kCFBooleanFalse);
    EXPECT_EQ(made(waiting), kAudioHardwareIllegalOperationError);
    Entries elsewhere = complete();
    elsewhere[2].second = object("other");
    EXPECT_EQ(made(elsewhere), kAudioHardwareIllegalOperationError);
    Entries gone = complete();
    gone[2].second = object("gone");
    gone[6].second = list({dictionary({{"uid", object("gone")}})});
    EXPECT_EQ(made(gone), kAudioHardwareBadDeviceError);
  });
}

// ---- What a callback reads ----

namespace {

// A device of the program's own on the screen, and a callback on it that notes what it is given.
struct Reader {
  struct Seen {
    int cycles = 0;
    std::vector<bool> data;
    std::vector<UInt32> sizes;
  };

  Reader() {
    Entries entries = complete();
    entries[5].second = CF::retain<CFTypeRef>(kCFBooleanFalse);  // it waits for no tap
    EXPECT_EQ(AudioHardwareCreateAggregateDevice(dictionary(entries).get(), &device), kAudioHardwareNoError);
    const std::shared_ptr<Seen> noted = seen;
    noted->data.reserve(8);
    noted->sizes.reserve(8);
    EXPECT_EQ(AudioDeviceCreateIOProcIDWithBlock(&proc, device, nullptr,
                                                 ^(const AudioTimeStamp*, const AudioBufferList* input,
                                                   const AudioTimeStamp*, AudioBufferList*, const AudioTimeStamp*) {
                                                   ++noted->cycles;
                                                   noted->data.clear();
                                                   noted->sizes.clear();
                                                   for (UInt32 i = 0; i < input->mNumberBuffers; ++i) {
                                                     noted->data.push_back(input->mBuffers[i].mData != nullptr);
                                                     noted->sizes.push_back(input->mBuffers[i].mDataByteSize);
                                                   }
                                                 }),
              kAudioHardwareNoError);
  }
  ~Reader() {
    AudioDeviceStop(device, proc);
    AudioDeviceDestroyIOProcID(device, proc);
    AudioHardwareDestroyAggregateDevice(device);
  }
  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;

  // Says which input streams the callback uses; `streams` is how many it says there are.
  OSStatus use(const std::vector<UInt32>& on, UInt32 streams, AudioObjectPropertyScope scope,
               std::size_t missingBytes = 0) const {
    std::vector<UInt32> data = {0, 0, streams};
    const void* const client = reinterpret_cast<const void*>(proc);
    std::memcpy(data.data(), &client, sizeof client);
    data.insert(data.end(), on.begin(), on.end());
    const AudioObjectPropertyAddress address = CoreAudio::propertyAddress(kAudioDevicePropertyIOProcStreamUsage, scope);
    return AudioObjectSetPropertyData(device, &address, 0, nullptr,
                                      static_cast<UInt32>(data.size() * sizeof(UInt32) - missingBytes), data.data());
  }
  OSStatus use(const std::vector<UInt32>& on) const {
    return use(on, static_cast<UInt32>(on.size()), kAudioObjectPropertyScopeInput);
  }
  void start() const {
    EXPECT_EQ(AudioDeviceStart(device, proc), kAudioHardwareNoError);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }

  AudioObjectID device = 0;
  AudioDeviceIOProcID proc = nullptr;
  std::shared_ptr<Seen> seen = std::make_shared<Seen>();
};

bool microphoneIsOpen() { return simulator::Call::unguarded().snapshot()["audio"]["microphone"].get<bool>(); }

const std::string twoInputs = screen + output(10, {{"inputs", 2}});

}  // namespace

TEST(AggregateDevice, OpensTheMicrophoneForWhoReadsIt) {
  const Played played = runAsProgram(twoInputs, [] {
    const Reader reader;
    EXPECT_EQ(CoreAudio::streamCount(reader.device, kAudioObjectPropertyScopeInput), 2);
    EXPECT_FALSE(microphoneIsOpen());
    reader.start();
    EXPECT_TRUE(microphoneIsOpen());
    EXPECT_GT(reader.seen->cycles, 0);
    EXPECT_EQ(reader.seen->data, (std::vector<bool>{true, true}));
    AudioDeviceStop(reader.device, reader.proc);
    EXPECT_FALSE(microphoneIsOpen());
    reader.start();
  });
  ASSERT_EQ(played.of("prompt").size(), 1U);  // the user is asked once
  EXPECT_EQ(played.of("prompt")[0]["for"], "microphone");
}

TEST(AggregateDevice, GivesNoDataOfStreamsThatAreOff) {
  const Played played = runAsProgram(twoInputs, [] {
    const Reader reader;
    EXPECT_EQ(reader.use({0, 7}), kAudioHardwareNoError);
    reader.start();
    EXPECT_TRUE(microphoneIsOpen());
    EXPECT_EQ(reader.seen->data, (std::vector<bool>{false, true}));
    EXPECT_EQ(reader.seen->sizes, (std::vector<UInt32>{512 * sizeof(float), 512 * sizeof(float)}));
    // Also while it runs.
    EXPECT_EQ(reader.use({0, 0}), kAudioHardwareNoError);
    EXPECT_FALSE(microphoneIsOpen());
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(reader.seen->data, (std::vector<bool>{false, false}));
  });
  EXPECT_EQ(played.of("prompt").size(), 1U);
}

TEST(AggregateDevice, RefusesAUsageThatIsNoneOfItsStreams) {
  const Played played = runAsProgram(twoInputs, [] {
    const Reader reader;
    constexpr AudioObjectPropertyScope input = kAudioObjectPropertyScopeInput;
    EXPECT_EQ(reader.use({0}), kAudioHardwareIllegalOperationError);
    EXPECT_EQ(reader.use({0, 0, 0}), kAudioHardwareIllegalOperationError);
    EXPECT_EQ(reader.use({0, 0, 0}, 2, input), kAudioHardwareBadPropertySizeError);
    EXPECT_EQ(reader.use({0, 0}, 2, input, 1), kAudioHardwareBadPropertySizeError);
    EXPECT_EQ(reader.use({}, 2, input, 1), kAudioHardwareBadPropertySizeError);
    EXPECT_EQ(reader.use({0, 0}, 2, kAudioObjectPropertyScopeGlobal), kAudioHardwareIllegalOperationError);
    const AudioObjectPropertyAddress name = CoreAudio::propertyAddress(kAudioObjectPropertyName);
    for (const AudioObjectID object : {reader.device, CoreAudio::defaultOutputDevice(), CoreAudio::system}) {
      EXPECT_EQ(AudioObjectSetPropertyData(object, &name, 0, nullptr, 1, "x"), kAudioHardwareIllegalOperationError);
    }
    EXPECT_EQ(AudioObjectSetPropertyData(9999, &name, 0, nullptr, 1, "x"), kAudioHardwareBadObjectError);
    reader.start();
    EXPECT_TRUE(microphoneIsOpen());  // nothing was switched off
  });
}

// ---- What changes without the program ----

namespace {

// Notes the changes that a listener on a queue of its own hears of, as "selector scope".
class Ear {
 public:
  Ear() = default;
  ~Ear() {
    for (const auto& [object, address, block] : listeners_) {
      AudioObjectRemovePropertyListenerBlock(object, &address, queue_, block.get());
    }
    dispatch_release(queue_);
  }
  Ear(const Ear&) = delete;
  Ear& operator=(const Ear&) = delete;

  void listen(AudioObjectID object, const AudioObjectPropertyAddress& address, std::string name) {
    const auto heard = heard_;
    const Block<AudioObjectPropertyListenerBlock> block(^(UInt32, const AudioObjectPropertyAddress*) {
      heard->push_back(name);
    });
    ASSERT_EQ(AudioObjectAddPropertyListenerBlock(object, &address, queue_, block.get()), kAudioHardwareNoError);
    listeners_.push_back({object, address, block});
  }
  void listenToDevice(AudioObjectID device) {
    using CoreAudio::propertyAddress;
    listen(device, propertyAddress(kAudioDevicePropertyStreams), "streams");
    listen(device, propertyAddress(kAudioDevicePropertyStreams, kAudioObjectPropertyScopeInput), "inputs");
    listen(device, propertyAddress(kAudioDevicePropertyStreams, kAudioObjectPropertyScopeOutput), "outputs");
    listen(device, propertyAddress(kAudioDevicePropertyStreamFormat, kAudioObjectPropertyScopeOutput), "format");
    listen(device, propertyAddress(kAudioDevicePropertyNominalSampleRate), "rate");
    listen(device, propertyAddress(kAudioDevicePropertyDeviceIsAlive), "life");
  }
  void listenToSystem() {
    listen(CoreAudio::system, CoreAudio::propertyAddress(kAudioHardwarePropertyServiceRestarted), "restart");
    listen(CoreAudio::system, CoreAudio::propertyAddress(kAudioHardwarePropertyDefaultOutputDevice), "default");
  }
  // What was heard since the last time, in alphabetical order.
  std::vector<std::string> heard() {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    std::vector<std::string> result = std::exchange(*heard_, {});
    std::ranges::sort(result);
    return result;
  }

 private:
  struct Listener {
    AudioObjectID object;
    AudioObjectPropertyAddress address;
    Block<AudioObjectPropertyListenerBlock> block;
  };
  const dispatch_queue_t queue_ = dispatch_queue_create("ear", nullptr);
  const std::shared_ptr<std::vector<std::string>> heard_ = std::make_shared<std::vector<std::string>>();
  std::vector<Listener> listeners_;
};

using Heard = std::vector<std::string>;

}  // namespace

TEST(OutputDevice, TellsWhatChangesOnIt) {
  const Played played = runAsProgram(screen, [] {
    Ear ear;
    ear.listenToDevice(CoreAudio::defaultOutputDevice());
    change([](auto& settings) { settings.inputs = 1; });
    EXPECT_EQ(ear.heard(), (Heard{"inputs", "streams"}));
    change([](auto& settings) { settings.rate = 96000; });
    EXPECT_EQ(ear.heard(), (Heard{"format", "rate"}));
    change([](auto& settings) { settings.channels = 6; });
    EXPECT_EQ(ear.heard(), Heard{"format"});
    change([](auto& settings) { settings.isAlive = false; });
    EXPECT_EQ(ear.heard(), Heard{"life"});
    EXPECT_FALSE(CoreAudio::isAlive(CoreAudio::defaultOutputDevice()));
    change([](auto& settings) { settings.isAlive = true; });
    EXPECT_EQ(ear.heard(), Heard{"life"});
    EXPECT_TRUE(CoreAudio::isAlive(CoreAudio::defaultOutputDevice()));
    change([](auto& settings) { settings.frames = 64; });
    change([](auto&) {});
    EXPECT_EQ(ear.heard(), Heard{});
    simulator::Call::unguarded().part<simulator::Audio>().removeOutput(
        *simulator::Call::unguarded().part<simulator::Audio>().output(10));
    EXPECT_EQ(ear.heard(), Heard{"life"});
  });
  EXPECT_TRUE(played.of("leak").empty());
}

TEST(OutputDevice, IsToldOfWithoutAChangeWhenItIsRough) {
  runAsProgram(screen, [] {
    Ear ear;
    ear.listenToDevice(CoreAudio::defaultOutputDevice());
    ear.listenToSystem();
    EXPECT_EQ(made(complete()), kAudioHardwareNoError);
    EXPECT_EQ(ear.heard(), Heard{});
    simulator::Call::unguarded().part<simulator::Audio>().setRough(true);
    EXPECT_EQ(made(complete()), kAudioHardwareNoError);
    std::this_thread::sleep_for(std::chrono::seconds(1));  // some notices are late
    EXPECT_EQ(ear.heard(), (Heard{"default", "default", "format", "format", "inputs", "inputs", "rate", "rate"}));
  });
}

TEST(AudioService, TakesEverythingAlongWhenItRestarts) {
  bool hasKept = false;
  bool hasRenumbered = false;
  WITH_SEEDS(seed, 10) {
    const Played played = runAsProgram(
        twoInputs,
        [&] {
          Ear ear;
          const AudioObjectID before = CoreAudio::defaultOutputDevice();
          ear.listenToDevice(before);
          ear.listenToSystem();
          const Reader reader;
          reader.start();
          simulator::Call::unguarded().part<simulator::Audio>().restart();
          const AudioObjectID after = CoreAudio::defaultOutputDevice();
          EXPECT_EQ(ear.heard(), after == before ? Heard{"restart"} : (Heard{"default", "restart"}));
          (after == before ? hasKept : hasRenumbered) = true;
          EXPECT_EQ(CoreAudio::deviceUID(after), "HDMI-1");
          EXPECT_EQ(AudioDeviceStop(reader.device, reader.proc), kAudioHardwareBadDeviceError);
          EXPECT_FALSE(microphoneIsOpen());
          // Nobody listens to a device any more, but still to the system.
          change([](auto& settings) { settings.rate = 96000; });
          simulator::Call::unguarded().part<simulator::Audio>().setDefaultOutput(std::nullopt);
          EXPECT_EQ(ear.heard(), Heard{"default"});
        },
        seed);
    EXPECT_TRUE(played.of("leak").empty());
  }
  EXPECT_TRUE(hasKept && hasRenumbered);
}

// ---- The permission ----

TEST(SystemAudioPermission, MapsTheLibrarysAnswers) {
  for (const auto& [permission, status] : {std::pair{"authorized", SystemAudioPermission::Status::authorized},
                                           {"denied", SystemAudioPermission::Status::denied},
                                           {"undetermined", SystemAudioPermission::Status::notDetermined}}) {
    runAsProgram(capture({{"permission", permission}}),
                 [expected = status] { EXPECT_EQ(SystemAudioPermission::status(), expected); });
  }
  for (const int answer : {-1, 2, 3, 256}) {
    runAsProgram(fail("TCCAccessPreflight", answer),
                 [] { EXPECT_EQ(SystemAudioPermission::status(), SystemAudioPermission::Status::notDetermined); });
  }
}

TEST(SystemAudioPermission, NamesWhatIsMissing) {
  runAsProgram(missingLibrary("TCC"), [] {
    EXPECT_EQ(errorOf([] { (void)SystemAudioPermission::status(); }).find("Loading TCC.framework: "), 0U);
    EXPECT_EQ(errorOf([] {
                SystemAudioPermission::request(^(bool) {
                  FAIL();
                });
              }).find("Loading TCC.framework: "),
              0U);
  });
  runAsProgram(missingSymbol("TCCAccessPreflight"), [] {
    EXPECT_EQ(errorOf([] { (void)SystemAudioPermission::status(); }), "TCCAccessPreflight not found in TCC.framework");
  });
  runAsProgram(missingSymbol("TCCAccessRequest"), [] {
    EXPECT_EQ(SystemAudioPermission::status(), SystemAudioPermission::Status::authorized);
    EXPECT_EQ(errorOf([] {
                SystemAudioPermission::request(^(bool) {
                  FAIL();
                });
              }),
              "TCCAccessRequest not found in TCC.framework");
  });
}
