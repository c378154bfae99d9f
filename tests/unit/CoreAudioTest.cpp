// The typed reads of Core Audio's properties, and the process tap's parts, called by a program of the test's own.
#include <gtest/gtest.h>
#include <unistd.h>

#include "base/AppError.h"
#include "tests/support/Lines.h"
#include "tests/support/Program.h"
#include "volume/AudioRouter.h"
#include "volume/CoreAudio.h"
#include "volume/SystemAudioPermission.h"

using namespace lines;
using nlohmann::json;

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
    AudioRouter router(CoreAudio::defaultOutputDevice(), 0.5F);
    router.setGain(0.25F);
    router.stop();
    router.stop();
  });
  EXPECT_EQ(played.calls("AudioDeviceStop").size(), 1U);
  EXPECT_EQ(played.calls("AudioHardwareDestroyProcessTap").size(), 1U);
  EXPECT_TRUE(played.of("leak").empty());
}

TEST(AudioRouter, DescribesItsObjects) {
  const Played played = runAsProgram(screen, [] { AudioRouter(CoreAudio::defaultOutputDevice(), 0.5F).stop(); });
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
  EXPECT_EQ(device["taps"], json::parse(R"([{"uid":)" + tap["uuid"].dump() + R"(,"drift":true}])"));
  EXPECT_NE(device["uid"], tap["uuid"]);
}

TEST(AudioRouter, ADeviceThatIsGoneIsRefused) {
  const Played played = runAsProgram(screen, [] {
    EXPECT_EQ(errorOf([] { AudioRouter(4711, 1).stop(); }), "Counting streams failed (OSStatus 560947818)");
  });
  EXPECT_TRUE(played.calls("AudioHardwareCreateProcessTap").empty());
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
