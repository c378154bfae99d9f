// Hardware as programs see it without a person: Core Audio, displays, the I/O Registry and its private services, the
// event stream, and the user's consents as far as nobody is asked.
#include <ApplicationServices/ApplicationServices.h>
#include <AudioToolbox/AudioHardwareService.h>
#include <CoreAudio/CoreAudio.h>
#include <CoreGraphics/CoreGraphics.h>
#include <IOKit/IOKitLib.h>
#include <dispatch/dispatch.h>
#include <dlfcn.h>
#include <objc/runtime.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/AppService.h"
#include "platform/AudioTap.h"
#include "platform/Block.h"
#include "platform/CF.h"
#include "platform/CFCollections.h"
#include "platform/Event.h"
#include "platform/IO.h"
#include "platform/Screen.h"
#include "tests/conformance/Common.h"
#include "tests/conformance/Machine.h"
#include "tests/conformance/Sound.h"

namespace {

using claims::Aggregate;
using claims::at;
using claims::defaultOutput;
using claims::functionOf;
using claims::ioKit;
using claims::osd;
using claims::Preflight;
using claims::processObject;
using claims::read;
using claims::readText;
using claims::sizeOf;
using claims::Tap;
using claims::tcc;

constexpr AudioObjectID noObject = 0x7FFF'FFF0;

// Whether this program may record what the Mac plays, so that nobody is asked when it does.
bool mayRecord() {
  const auto preflight = functionOf<Preflight>(tcc, "TCCAccessPreflight");
  return preflight && preflight(CFSTR("kTCCServiceAudioCapture"), nullptr) == 0;
}

}  // namespace

// What a claim about sound needs of the Mac.
#define NEEDS_AN_OUTPUT \
  if (defaultOutput() == kAudioObjectUnknown) NOT_TRIED("there is no output for sound")
#define NEEDS_THE_PERMISSION \
  NEEDS_AN_OUTPUT;           \
  if (!mayRecord()) NOT_TRIED("the permission to record what the Mac plays is not given, and would be asked for")

// ---- Core Audio: errors ----

CLAIM(Audio, ObjectsThatAreNotThereAreBad, "A call about an object that is not there answers '!obj'.",
      "AudioHardwareBase.h, kAudioHardwareBadObjectError") {
  EXPECT_EQ(kAudioHardwareBadObjectError, 0x216F626A);
  EXPECT_EQ(read<UInt32>(noObject, at(kAudioDevicePropertyDeviceIsAlive)).first, kAudioHardwareBadObjectError);
  EXPECT_EQ(sizeOf(noObject, at(kAudioDevicePropertyStreams)).first, kAudioHardwareBadObjectError);
}

CLAIM(Audio, PropertiesThatAreNotThereAreUnknown,
      "A call about a property that an object does not have answers 'who?'.",
      "AudioHardwareBase.h, kAudioHardwareUnknownPropertyError") {
  EXPECT_EQ(kAudioHardwareUnknownPropertyError, 0x77686F3F);
  EXPECT_EQ(read<UInt32>(kAudioObjectSystemObject, at(kAudioTapPropertyFormat)).first,
            kAudioHardwareUnknownPropertyError);
  constexpr AudioObjectPropertyAddress address = at(kAudioTapPropertyFormat);
  EXPECT_FALSE(AudioObjectHasProperty(kAudioObjectSystemObject, &address));
}

CLAIM(Audio, BuffersThatAreTooSmallAreRefused, "To read a property into too small a buffer answers '!siz'.",
      "AudioHardwareBase.h, kAudioHardwareBadPropertySizeError") {
  UInt16 half = 0;
  UInt32 size = sizeof half;
  constexpr AudioObjectPropertyAddress address = at(kAudioHardwarePropertyDefaultOutputDevice);
  EXPECT_EQ(AudioObjectGetPropertyData(kAudioObjectSystemObject, &address, 0, nullptr, &size, &half),
            kAudioHardwareBadPropertySizeError);
}

CLAIM(Audio, TheSystemTellsItsDevices,
      "The system object has a list of the devices' numbers, and the default output is among them.",
      "AudioHardware.h, kAudioHardwarePropertyDevices, kAudioHardwarePropertyDefaultOutputDevice") {
  auto [status, size] = sizeOf(kAudioObjectSystemObject, at(kAudioHardwarePropertyDevices));
  EXPECT_EQ(status, kAudioHardwareNoError);
  EXPECT_EQ(size % sizeof(AudioObjectID), 0U);
  std::vector<AudioObjectID> devices(size / sizeof(AudioObjectID) + 1);
  constexpr AudioObjectPropertyAddress address = at(kAudioHardwarePropertyDevices);
  EXPECT_EQ(AudioObjectGetPropertyData(kAudioObjectSystemObject, &address, 0, nullptr, &size, devices.data()),
            kAudioHardwareNoError);
  devices.resize(size / sizeof(AudioObjectID));
  NEEDS_AN_OUTPUT;
  EXPECT_EQ(std::ranges::count(devices, defaultOutput()), 1);
}

// ---- Core Audio: processes ----

CLAIM(Audio, ThisProcessHasAnObject, "A process that uses Core Audio has a process object, which tells its number.",
      "AudioHardware.h, kAudioHardwarePropertyTranslatePIDToProcessObject, kAudioProcessPropertyPID") {
  const AudioObjectID object = processObject(getpid());
  ASSERT_NE(object, AudioObjectID{kAudioObjectUnknown});
  EXPECT_EQ(read<pid_t>(object, at(kAudioProcessPropertyPID)), std::pair(OSStatus{kAudioHardwareNoError}, getpid()));
}

CLAIM(Audio, OtherNumbersHaveNone,
      "A number that is no process's is translated without an error, to the unknown object.",
      "AudioHardware.h, kAudioHardwarePropertyTranslatePIDToProcessObject") {
  EXPECT_EQ(processObject(-7), AudioObjectID{kAudioObjectUnknown});
}

// ---- Core Audio: devices ----

CLAIM(Audio, DevicesHaveTextsOfTheirOwn, "A device tells its name and its UID as strings, which the reader releases.",
      "AudioHardwareBase.h, kAudioObjectPropertyName, kAudioDevicePropertyDeviceUID") {
  NEEDS_AN_OUTPUT;
  EXPECT_NE(readText(defaultOutput(), kAudioObjectPropertyName), "");
  EXPECT_NE(readText(defaultOutput(), kAudioDevicePropertyDeviceUID), "");
}

CLAIM(Audio, TheDefaultOutputIsAlive, "The default output is alive and has output streams.",
      "AudioHardwareBase.h, kAudioDevicePropertyDeviceIsAlive, kAudioDevicePropertyStreams") {
  NEEDS_AN_OUTPUT;
  EXPECT_EQ(read<UInt32>(defaultOutput(), at(kAudioDevicePropertyDeviceIsAlive)).second, 1U);
  const auto [status, size] = sizeOf(defaultOutput(), at(kAudioDevicePropertyStreams, kAudioObjectPropertyScopeOutput));
  EXPECT_EQ(status, kAudioHardwareNoError);
  EXPECT_GE(size, sizeof(AudioObjectID));
}

CLAIM(Audio, FormatsAreFloats, "An output's stream format is interleaved 32-bit floats, at the device's rate.",
      "AudioHardwareBase.h, kAudioDevicePropertyStreamFormat; that it is always so is assumed") {
  NEEDS_AN_OUTPUT;
  const auto [status, format] = read<AudioStreamBasicDescription>(
      defaultOutput(), at(kAudioDevicePropertyStreamFormat, kAudioObjectPropertyScopeOutput));
  EXPECT_EQ(status, kAudioHardwareNoError);
  EXPECT_EQ(format.mFormatID, kAudioFormatLinearPCM);
  EXPECT_TRUE(format.mFormatFlags & kAudioFormatFlagIsFloat);
  EXPECT_EQ(format.mBitsPerChannel, 32U);
  EXPECT_EQ(format.mSampleRate, read<Float64>(defaultOutput(), at(kAudioDevicePropertyNominalSampleRate)).second);
}

CLAIM(Audio, TheVolumeIsInTheOutputsScope,
      "Where the system's volume has an effect, 'vmvc' is a property in the output scope, and not in the global one.",
      "AudioHardwareService.h, kAudioHardwareServiceDeviceProperty_VirtualMainVolume; the scope is observed") {
  NEEDS_AN_OUTPUT;
  constexpr auto volume = at(kAudioHardwareServiceDeviceProperty_VirtualMainVolume, kAudioObjectPropertyScopeOutput);
  constexpr auto elsewhere = at(kAudioHardwareServiceDeviceProperty_VirtualMainVolume);
  EXPECT_EQ(volume.mSelector, 0x766D7663U);
  if (!AudioObjectHasProperty(defaultOutput(), &volume)) NOT_TRIED("the output has no volume of its own");
  EXPECT_FALSE(AudioObjectHasProperty(defaultOutput(), &elsewhere));
  Boolean settable = 2;
  EXPECT_EQ(AudioObjectIsPropertySettable(defaultOutput(), &volume, &settable), kAudioHardwareNoError);
  EXPECT_LE(settable, 1);
  EXPECT_EQ(sizeOf(defaultOutput(), volume).second, sizeof(Float32));
}

CLAIM(Audio, TheListOfDevicesCannotBeSet,
      "The list of devices says that it cannot be set, and to set it all the same answers an error.",
      "AudioHardware.h, AudioObjectIsPropertySettable, AudioObjectSetPropertyData; which error is assumed") {
  constexpr AudioObjectPropertyAddress address = at(kAudioHardwarePropertyDevices);
  Boolean settable = 2;
  EXPECT_EQ(AudioObjectIsPropertySettable(kAudioObjectSystemObject, &address, &settable), kAudioHardwareNoError);
  EXPECT_EQ(settable, 0);
  const AudioObjectID value = 0;
  EXPECT_NE(AudioObjectSetPropertyData(kAudioObjectSystemObject, &address, 0, nullptr, sizeof value, &value),
            kAudioHardwareNoError);
}

// ---- Core Audio: listeners ----

CLAIM(Audio, ListenersAreTakenBack, "A listener is removed by the same object, address, queue and block.",
      "AudioHardware.h, AudioObjectRemovePropertyListenerBlock") {
  constexpr AudioObjectPropertyAddress address = at(kAudioHardwarePropertyDefaultOutputDevice);
  const Block<AudioObjectPropertyListenerBlock> block(^(UInt32, const AudioObjectPropertyAddress*){
  });
  EXPECT_EQ(
      AudioObjectAddPropertyListenerBlock(kAudioObjectSystemObject, &address, dispatch_get_main_queue(), block.get()),
      kAudioHardwareNoError);
  EXPECT_EQ(AudioObjectRemovePropertyListenerBlock(kAudioObjectSystemObject, &address, dispatch_get_main_queue(),
                                                   block.get()),
            kAudioHardwareNoError);
}

CLAIM(Audio, ObjectsThatAreNotThereHaveNoListeners, "A listener cannot be added to an object that is not there.",
      "AudioHardware.h, AudioObjectAddPropertyListenerBlock") {
  constexpr AudioObjectPropertyAddress address = at(kAudioDevicePropertyDeviceIsAlive);
  EXPECT_EQ(AudioObjectAddPropertyListenerBlock(noObject, &address, dispatch_get_main_queue(),
                                                ^(UInt32, const AudioObjectPropertyAddress*){
                                                }),
            kAudioHardwareBadObjectError);
}

// ---- Core Audio: taps and aggregate devices ----

CLAIM(Audio, TapDescriptionsHaveIdentifiers,
      "A tap's description has an identifier from the beginning, and has the one that it is given.",
      "CATapDescription.h, UUID") {
  const auto description = CA::TapDescription::initExcludingProcesses({}, "device", 0);
  EXPECT_EQ(description.UUID().UUIDString().size(), 36U);
  const NS::UUID uuid = NS::UUID::make();
  description.setUUID(uuid);
  EXPECT_EQ(description.UUID().UUIDString(), uuid.UUIDString());
}

CLAIM(Audio, TapsOfDevicesThatAreNotThereAreRefused, "A tap of a device that is not there cannot be made.",
      "AudioHardwareTapping.h, AudioHardwareCreateProcessTap; which error is assumed") {
  NEEDS_THE_PERMISSION;
  AudioObjectID tap = kAudioObjectUnknown;
  EXPECT_NE(
      CA::AudioHardwareCreateProcessTap(CA::TapDescription::initExcludingProcesses({}, "no such device", 0), &tap),
      kAudioHardwareNoError);
}

CLAIM(Audio, TapsThatAreNotThereAreNotDestroyed, "To destroy a tap that is not there answers '!obj'.",
      "AudioHardwareTapping.h, AudioHardwareDestroyProcessTap; that it is this error is assumed") {
  EXPECT_EQ(CA::AudioHardwareDestroyProcessTap(noObject), kAudioHardwareBadObjectError);
}

CLAIM(Audio, TapsAreDestroyedOnce, "A tap that has been destroyed is an object that is not there.",
      "AudioHardwareTapping.h, AudioHardwareDestroyProcessTap") {
  NEEDS_THE_PERMISSION;
  AudioObjectID gone = kAudioObjectUnknown;
  {
    const Tap tap;
    ASSERT_EQ(tap.status, kAudioHardwareNoError);
    gone = tap.tap;
  }
  EXPECT_EQ(read<AudioStreamBasicDescription>(gone, at(kAudioTapPropertyFormat)).first, kAudioHardwareBadObjectError);
  EXPECT_NE(CA::AudioHardwareDestroyProcessTap(gone), kAudioHardwareNoError);
}

CLAIM(Audio, TapsTellTheirFormat,
      "A tap has the identifier of its description, and tells the format of what it delivers.",
      "AudioHardware.h, kAudioTapPropertyUID, kAudioTapPropertyFormat") {
  NEEDS_THE_PERMISSION;
  const Tap tap;
  ASSERT_EQ(tap.status, kAudioHardwareNoError);
  EXPECT_EQ(readText(tap.tap, kAudioTapPropertyUID), tap.description.UUID().UUIDString());
  const auto [status, format] = read<AudioStreamBasicDescription>(tap.tap, at(kAudioTapPropertyFormat));
  EXPECT_EQ(status, kAudioHardwareNoError);
  EXPECT_GT(format.mSampleRate, 0);
  EXPECT_GE(format.mChannelsPerFrame, 1U);
}

CLAIM(Audio, AnAggregateDeviceHasATapAsInput,
      "An aggregate device with a tap is made, has a tap's stream among its inputs, and is gone when it is destroyed.",
      "AudioHardware.h, AudioHardwareCreateAggregateDevice, kAudioAggregateDeviceTapListKey") {
  NEEDS_THE_PERMISSION;
  const Tap tap;
  ASSERT_EQ(tap.status, kAudioHardwareNoError);
  AudioObjectID gone = kAudioObjectUnknown;
  {
    const Aggregate aggregate(tap, Aggregate::Starts::atOnce);
    ASSERT_EQ(aggregate.status, kAudioHardwareNoError);
    gone = aggregate.device;
    EXPECT_EQ(readText(gone, kAudioObjectPropertyName), "Claims");
    EXPECT_GE(sizeOf(gone, at(kAudioDevicePropertyStreams, kAudioObjectPropertyScopeInput)).second,
              sizeof(AudioObjectID));
  }
  EXPECT_NE(read<UInt32>(gone, at(kAudioDevicePropertyDeviceIsAlive)).first, kAudioHardwareNoError);
}

CLAIM(Audio, CallbacksComeAndGo,
      "A callback of an aggregate device is made, started, stopped and destroyed, once each.",
      "AudioHardware.h, AudioDeviceCreateIOProcIDWithBlock, AudioDeviceStart, AudioDeviceStop, "
      "AudioDeviceDestroyIOProcID") {
  NEEDS_THE_PERMISSION;
  const Tap tap;
  ASSERT_EQ(tap.status, kAudioHardwareNoError);
  // At once: nobody may be playing anything.
  const Aggregate aggregate(tap, Aggregate::Starts::atOnce);
  ASSERT_EQ(aggregate.status, kAudioHardwareNoError);
  AudioDeviceIOProcID proc = nullptr;
  EXPECT_EQ(AudioDeviceCreateIOProcIDWithBlock(&proc, aggregate.device, nullptr,
                                               ^(const AudioTimeStamp*, const AudioBufferList*, const AudioTimeStamp*,
                                                 AudioBufferList*, const AudioTimeStamp*){
                                               }),
            kAudioHardwareNoError);
  EXPECT_EQ(AudioDeviceStart(aggregate.device, proc), kAudioHardwareNoError);
  EXPECT_EQ(AudioDeviceStop(aggregate.device, proc), kAudioHardwareNoError);
  EXPECT_EQ(AudioDeviceDestroyIOProcID(aggregate.device, proc), kAudioHardwareNoError);
}

CLAIM(Audio, CallbacksNeedADevice,
      "A callback on a device that is not there cannot be started: the answer is an error.",
      "AudioHardware.h, AudioDeviceStart; which error is assumed") {
  EXPECT_NE(AudioDeviceStart(noObject, nullptr), kAudioHardwareNoError);
  EXPECT_NE(AudioHardwareDestroyAggregateDevice(noObject), kAudioHardwareNoError);
}

// ---- Displays and events ----

namespace {

std::vector<CGDirectDisplayID> onlineDisplays() {
  std::vector<CGDirectDisplayID> displays(16);
  std::uint32_t count = 0;
  EXPECT_EQ(CGGetOnlineDisplayList(16, displays.data(), &count), kCGErrorSuccess);
  displays.resize(count);
  return displays;
}

}  // namespace

CLAIM(Displays, AreListedAsFarAsThereIsRoom,
      "The list of displays tells how many it has written, and no more than there is room for.",
      "CGDirectDisplay.h, CGGetOnlineDisplayList") {
  CGDirectDisplayID displays[16] = {};
  std::uint32_t count = 99;
  ASSERT_EQ(CGGetOnlineDisplayList(16, displays, &count), kCGErrorSuccess);
  if (count == 0) NOT_TRIED("there is no display");
  EXPECT_LE(count, 16U);
  std::uint32_t some = 99;
  EXPECT_EQ(CGGetOnlineDisplayList(1, displays, &some), kCGErrorSuccess);
  EXPECT_EQ(some, 1U);
}

CLAIM(Displays, HaveNumbersOfTheirOwn, "No two displays have the same number, and at most one of them is built in.",
      "CGDirectDisplay.h, CGGetOnlineDisplayList, CGDisplayIsBuiltin") {
  const std::vector<CGDirectDisplayID> displays = onlineDisplays();
  if (displays.empty()) NOT_TRIED("there is no display");
  EXPECT_EQ(std::set(displays.begin(), displays.end()).size(), displays.size());
  EXPECT_LE(std::ranges::count_if(displays, [](auto display) { return CGDisplayIsBuiltin(display) != 0; }), 1);
}

CLAIM(
    Displays, ScreensKnowTheirDisplay,
    "A screen has an extent and a name, and its description the number of an online display under \"NSScreenNumber\".",
    "NSScreen.h, deviceDescription") {
  const auto screens = NS::Screen::screens();
  if (screens.empty()) NOT_TRIED("there is no screen");
  for (const NS::Screen& screen : screens) {
    const auto description = screen.deviceDescription();
    const auto number = CF::integer(CFDictionaryGetValue(description.get(), CFSTR("NSScreenNumber")));
    ASSERT_TRUE(number);
    EXPECT_EQ(std::ranges::count(onlineDisplays(), *number), 1);
    EXPECT_GT(screen.frame().size.width, 0);
    EXPECT_NE(screen.localizedName(), "");
  }
}

CLAIM(Displays, TheFirstScreenIsTheMainDisplay,
      "The first screen is the one with the menu bar, and its origin is that of all coordinates.",
      "NSScreen.h, screens; CGDirectDisplay.h, CGMainDisplayID") {
  const auto screens = NS::Screen::screens();
  if (screens.empty()) NOT_TRIED("there is no screen");
  EXPECT_EQ(screens[0].frame().origin.x, 0);
  EXPECT_EQ(screens[0].frame().origin.y, 0);
  const auto number = CF::integer(CFDictionaryGetValue(screens[0].deviceDescription().get(), CFSTR("NSScreenNumber")));
  EXPECT_EQ(number, std::int64_t{CGMainDisplayID()});
}

CLAIM(Displays, ThePointerIsOnAScreen, "The pointer's place is a point in the coordinates of the screens.",
      "NSEvent.h, mouseLocation") {
  const CGPoint place = NS::Event::mouseLocation();
  if (NS::Screen::screens().empty()) NOT_TRIED("there is no screen");
  int found = 0;
  for (const NS::Screen& screen : NS::Screen::screens()) {
    if (NS::MouseInRect(place, screen.frame(), false)) ++found;
  }
  EXPECT_EQ(found, 1);
}

CLAIM(Events, TrustIsToldWithoutAsking,
      "Whether the program is trusted with Accessibility is told without asking the user.",
      "AXUIElement.h, AXIsProcessTrusted, AXIsProcessTrustedWithOptions") {
  const bool isTrusted = AXIsProcessTrusted();
  const auto options = CF::dictionary({{kAXTrustedCheckOptionPrompt, CF::value(false)}});
  EXPECT_EQ(AXIsProcessTrustedWithOptions(options.get()) != 0, isTrusted);
}

CLAIM(Events, ATapIsEnabledFromTheBeginning, "A tap is enabled when it is made; it can be disabled and enabled.",
      "CGEvent.h, CGEventTapCreate, CGEventTapEnable, CGEventTapIsEnabled") {
  if (!AXIsProcessTrusted()) NOT_TRIED("Accessibility is not given, and would be asked for");
  const auto tap = CF::adopt(CGEventTapCreate(
      kCGSessionEventTap, kCGTailAppendEventTap, kCGEventTapOptionDefault, CGEventMaskBit(14),
      [](CGEventTapProxy, CGEventType, CGEventRef event, void*) { return event; }, nullptr));
  ASSERT_TRUE(tap);
  const auto source = CF::adopt(CFMachPortCreateRunLoopSource(kCFAllocatorDefault, tap.get(), 0));
  ASSERT_TRUE(source);
  CFRunLoopAddSource(CFRunLoopGetMain(), source.get(), kCFRunLoopCommonModes);
  EXPECT_TRUE(CGEventTapIsEnabled(tap.get()));
  CGEventTapEnable(tap.get(), false);
  EXPECT_FALSE(CGEventTapIsEnabled(tap.get()));
  CGEventTapEnable(tap.get(), true);
  EXPECT_TRUE(CGEventTapIsEnabled(tap.get()));
  CFRunLoopRemoveSource(CFRunLoopGetMain(), source.get(), kCFRunLoopCommonModes);
  CFMachPortInvalidate(tap.get());
}

CLAIM(Events, AnInvalidPortHasNoSource, "A port that has been invalidated gets no run-loop source.",
      "CFMachPort.h, CFMachPortCreateRunLoopSource; observed (Core Foundation's public sources)") {
  if (!AXIsProcessTrusted()) NOT_TRIED("Accessibility is not given, and would be asked for");
  const auto tap = CF::adopt(CGEventTapCreate(
      kCGSessionEventTap, kCGTailAppendEventTap, kCGEventTapOptionDefault, CGEventMaskBit(14),
      [](CGEventTapProxy, CGEventType, CGEventRef event, void*) { return event; }, nullptr));
  ASSERT_TRUE(tap);
  CFMachPortInvalidate(tap.get());
  EXPECT_FALSE(CF::adopt(CFMachPortCreateRunLoopSource(kCFAllocatorDefault, tap.get(), 0)));
}

// ---- The I/O Registry ----

namespace {

IO::Object walk() {
  const IO::Object root(IORegistryGetRootEntry(kIOMainPortDefault));
  io_iterator_t iterator = IO_OBJECT_NULL;
  EXPECT_EQ(IORegistryEntryCreateIterator(root.get(), kIOServicePlane, kIORegistryIterateRecursively, &iterator),
            KERN_SUCCESS);
  return IO::Object(iterator);
}

// What a framebuffer says of the display that it serves; null where it serves none.
CF::Ref<CFDictionaryRef> productAttributes(const IO::Object& framebuffer) {
  const auto attributes =
      CF::adopt(IORegistryEntryCreateCFProperty(framebuffer.get(), CFSTR("DisplayAttributes"), kCFAllocatorDefault, 0));
  const auto all = CF::cast<CFDictionaryRef>(attributes.get(), CFDictionaryGetTypeID());
  if (!all) return {};
  return CF::cast<CFDictionaryRef>(CFDictionaryGetValue(all.get(), CFSTR("ProductAttributes")),
                                   CFDictionaryGetTypeID());
}

std::string nameOf(const IO::Object& entry) {
  io_name_t name = {};
  EXPECT_EQ(IORegistryEntryGetName(entry.get(), name), KERN_SUCCESS);
  return name;
}

}  // namespace

CLAIM(Registry, AWalkComesToItsEnd,
      "A walk of the service plane has an entry after the other, and ends with a null one while it is still valid.",
      "IOKitLib.h, IORegistryEntryCreateIterator, IOIteratorNext, IOIteratorIsValid") {
  const IO::Object iterator = walk();
  int count = 0;
  while (const IO::Object entry{IOIteratorNext(iterator.get())}) {
    EXPECT_NE(nameOf(entry), "");
    ++count;
  }
  EXPECT_GT(count, 0);
  if (!IOIteratorIsValid(iterator.get())) NOT_TRIED("the registry changed during the walk");
}

CLAIM(Registry, AWalkCanBeginAnew, "A walk that is reset begins with the same first entry.",
      "IOKitLib.h, IOIteratorReset") {
  const IO::Object iterator = walk();
  const std::string first = nameOf(IO::Object(IOIteratorNext(iterator.get())));
  IOIteratorReset(iterator.get());
  EXPECT_EQ(nameOf(IO::Object(IOIteratorNext(iterator.get()))), first);
}

CLAIM(Registry, AnIteratorNeedsAnEntry, "A walk from no entry is refused, and the iterator is null.",
      "IOKitLib.h, IORegistryEntryCreateIterator; the status is assumed") {
  io_iterator_t iterator = IO_OBJECT_NULL;
  EXPECT_NE(IORegistryEntryCreateIterator(IO_OBJECT_NULL, kIOServicePlane, kIORegistryIterateRecursively, &iterator),
            KERN_SUCCESS);
  EXPECT_EQ(iterator, IO_OBJECT_NULL);
}

CLAIM(Registry, APropertyThatIsNotThereIsNull, "An entry has no object for a property that it does not have.",
      "IOKitLib.h, IORegistryEntryCreateCFProperty") {
  const IO::Object iterator = walk();
  const IO::Object entry(IOIteratorNext(iterator.get()));
  EXPECT_FALSE(
      CF::adopt(IORegistryEntryCreateCFProperty(entry.get(), CFSTR("NoSuchProperty"), kCFAllocatorDefault, 0)));
}

CLAIM(Registry, ADisplaysServiceComesAfterItsFramebuffer,
      "An external display's AV service comes after the framebuffer that has the display's vendor, model and serial "
      "numbers, before another service or framebuffer.",
      "observed on Apple silicon: AppleCLCD2 or IOMobileFramebufferShim, then DCPAVServiceProxy") {
  const IO::Object iterator = walk();
  CF::Ref<CFDictionaryRef> framebuffer;
  bool found = false;
  while (const IO::Object entry{IOIteratorNext(iterator.get())}) {
    const std::string name = nameOf(entry);
    if (name == "AppleCLCD2" || name == "IOMobileFramebufferShim") framebuffer = productAttributes(entry);
    if (name != "DCPAVServiceProxy") continue;
    const auto location =
        CF::adopt(IORegistryEntryCreateCFProperty(entry.get(), CFSTR("Location"), kCFAllocatorDefault, 0));
    const auto where = CF::cast<CFStringRef>(location.get(), CFStringGetTypeID());
    if (!where || CF::text(where.get()) != "External") continue;
    found = true;
    ASSERT_TRUE(framebuffer);
    const auto attribute = [&](const char* key) {
      return CF::integer(CFDictionaryGetValue(framebuffer.get(), CF::string(key).get())).value_or(-1);
    };
    EXPECT_EQ(std::ranges::count_if(onlineDisplays(),
                                    [&](CGDirectDisplayID display) {
                                      return CGDisplayVendorNumber(display) == attribute("LegacyManufacturerID") &&
                                             CGDisplayModelNumber(display) == attribute("ProductID") &&
                                             CGDisplaySerialNumber(display) == attribute("SerialNumber");
                                    }),
              1);
    framebuffer = {};
  }
  if (!found) NOT_TRIED("there is no external display with such a service");
}

// ---- Private libraries ----

CLAIM(Libraries, TheAVServicesAreInIOKit,
      "IOKit has the three functions of the AV services, though no header has them.", "observed: no public header") {
  for (const char* const name : {"IOAVServiceCreateWithService", "IOAVServiceReadI2C", "IOAVServiceWriteI2C"}) {
    EXPECT_NE(functionOf<void*>(ioKit, name), nullptr) << name;
  }
}

CLAIM(Libraries, TheConsentsAreInTCC, "TCC has the two functions that tell and ask for the user's consent.",
      "observed: no public header") {
  for (const char* const name : {"TCCAccessPreflight", "TCCAccessRequest"}) {
    EXPECT_NE(functionOf<void*>(tcc, name), nullptr) << name;
  }
}

CLAIM(Libraries, TheConsentIsToldWithoutAsking,
      "TCCAccessPreflight answers 0, 1 or 2 for the consent to record what the Mac plays, and asks nobody.",
      "observed: no public header") {
  const auto preflight = functionOf<Preflight>(tcc, "TCCAccessPreflight");
  ASSERT_NE(preflight, nullptr);
  const long answer = preflight(CFSTR("kTCCServiceAudioCapture"), nullptr);
  EXPECT_GE(answer, 0);
  EXPECT_LE(answer, 2);
}

CLAIM(Libraries, WhatIsMissingHasAReason, "A library that is not there is null, and dlerror tells why, once.",
      "man 3 dlopen; man 3 dlerror") {
  EXPECT_EQ(dlopen("/System/Library/Frameworks/None.framework/None", RTLD_NOW), nullptr);
  EXPECT_NE(dlerror(), nullptr);
  EXPECT_EQ(dlerror(), nullptr);
}

CLAIM(Libraries, SymbolsThatAreMissingHaveAReason,
      "A symbol that a library does not have is null, and dlerror tells why.", "man 3 dlsym") {
  EXPECT_EQ(functionOf<void*>(ioKit, "IOAVServiceNothing"), nullptr);
  EXPECT_NE(dlerror(), nullptr);
}

CLAIM(PopUps, HaveTheirManager,
      "The private framework OSD has the class OSDManager, which is known once the framework is loaded.",
      "observed: no public header") {
  ASSERT_NE(dlopen(osd, RTLD_LAZY), nullptr);
  EXPECT_NE(objc_lookUpClass("OSDManager"), nullptr);
  EXPECT_EQ(objc_lookUpClass("NoSuchManager"), nullptr);
}

CLAIM(PopUps, TheManagerIsShared, "OSDManager answers sharedManager, as a class; its instances do not.",
      "observed: no public header") {
  ASSERT_NE(dlopen(osd, RTLD_LAZY), nullptr);
  const Class type = objc_lookUpClass("OSDManager");
  ASSERT_NE(type, nullptr);
  const SEL selector = sel_registerName("sharedManager");
  const Class metaclass = object_getClass(reinterpret_cast<id>(type));
  EXPECT_TRUE(class_respondsToSelector(metaclass, selector));
  EXPECT_FALSE(class_respondsToSelector(type, selector));
}

CLAIM(PopUps, TheMessageHasItsParameters,
      "The message that shows a pop-up takes a 64-bit image, five unsigned 32-bit numbers and a truth value.",
      "observed: no public header; the types are assumed") {
  ASSERT_NE(dlopen(osd, RTLD_LAZY), nullptr);
  const SEL selector =
      sel_registerName("showImage:onDisplayID:priority:msecUntilFade:filledChiclets:totalChiclets:locked:");
  const Method method = class_getInstanceMethod(objc_lookUpClass("OSDManager"), selector);
  ASSERT_NE(method, nullptr);
  std::string types;  // without the offsets
  for (const char* c = method_getTypeEncoding(method); *c; ++c) {
    if (!std::isdigit(static_cast<unsigned char>(*c))) types += *c;
  }
  EXPECT_EQ(types, "v@:qIIIIIB");
}

CLAIM(PopUps, SelectorsAreUnique, "A selector is the same whenever it is registered.",
      "objc/runtime.h, sel_registerName") {
  EXPECT_EQ(sel_registerName("sharedManager"), sel_registerName("sharedManager"));
  EXPECT_NE(sel_registerName("sharedManager"), sel_registerName("showImage:"));
}

CLAIM(PopUps, UnknownMessagesHaveAForwarder,
      "The runtime answers a function for a message that a class does not know, and none for no class.",
      "objc/runtime.h, class_getMethodImplementation") {
  ASSERT_NE(dlopen(osd, RTLD_LAZY), nullptr);
  const Class type = objc_lookUpClass("OSDManager");
  EXPECT_NE(class_getMethodImplementation(type, sel_registerName("noSuchMessage")), nullptr);
  EXPECT_EQ(class_getMethodImplementation(nullptr, sel_registerName("noSuchMessage")), nullptr);
}

// ---- The login item ----

CLAIM(LoginItem, HasAStatus,
      "The service of the main application has one of four statuses, which is told without asking anybody.",
      "SMAppService.h, status") {
  const auto status = static_cast<long>(NS::AppService::mainAppService().status());
  EXPECT_GE(status, 0);
  EXPECT_LE(status, 3);
}
