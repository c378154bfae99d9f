// What needs a monitor, sound or a person: asked of whoever sits at the desk, and done by scenario lines on the
// simulated Mac.
#include <ApplicationServices/ApplicationServices.h>
#include <CoreAudio/CoreAudio.h>
#include <CoreGraphics/CoreGraphics.h>
#include <IOKit/IOKitLib.h>
#include <IOKit/IOReturn.h>
#include <Security/Security.h>
#include <dispatch/dispatch.h>
#include <dlfcn.h>
#include <objc/runtime.h>
#include <os/log.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/Alert.h"
#include "platform/AppService.h"
#include "platform/Application.h"
#include "platform/AudioTap.h"
#include "platform/BezierPath.h"
#include "platform/Block.h"
#include "platform/CF.h"
#include "platform/CFCollections.h"
#include "platform/Color.h"
#include "platform/Controls.h"
#include "platform/Event.h"
#include "platform/IO.h"
#include "platform/Menu.h"
#include "platform/NotificationCenter.h"
#include "platform/Screen.h"
#include "platform/URLSession.h"
#include "tests/conformance/Common.h"
#include "tests/conformance/Machine.h"
#include "tests/conformance/Sound.h"
#include "tests/support/Lines.h"

namespace {

using claims::ask;
using claims::at;
using claims::confirm;
using claims::contentOf;
using claims::defaultOutput;
using claims::functionOf;
using claims::ioKit;
using claims::letRun;
using claims::runUntil;
using claims::validity;
using nlohmann::json;

void sleepFor(int milliseconds) { std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds)); }

}  // namespace

// ---- Monitors ----

namespace {

using Bytes = std::vector<std::uint8_t>;

// The first external monitor's wire (VESA DDC/CI 1.1: chip address 0x37, host address 0x51).
class Wire {
 public:
  Wire() {
    const IO::Object root(IORegistryGetRootEntry(kIOMainPortDefault));
    io_iterator_t made = IO_OBJECT_NULL;
    IORegistryEntryCreateIterator(root.get(), kIOServicePlane, kIORegistryIterateRecursively, &made);
    const IO::Object iterator(made);
    while (const IO::Object entry{IOIteratorNext(iterator.get())}) {
      io_name_t name = {};
      IORegistryEntryGetName(entry.get(), name);
      if (std::strcmp(name, "DCPAVServiceProxy") != 0) continue;
      const auto location =
          CF::adopt(IORegistryEntryCreateCFProperty(entry.get(), CFSTR("Location"), kCFAllocatorDefault, 0));
      const auto where = CF::cast<CFStringRef>(location.get(), CFStringGetTypeID());
      if (!where || CF::text(where.get()) != "External") continue;
      using Create = CFTypeRef (*)(CFAllocatorRef, io_service_t);
      service_ = CF::adopt(functionOf<Create>(ioKit, "IOAVServiceCreateWithService")(kCFAllocatorDefault, entry.get()));
      return;
    }
  }

  explicit operator bool() const { return static_cast<bool>(service_); }

  // Sends a message: its bytes without checksum.
  [[nodiscard]] IOReturn write(Bytes message) const {
    std::uint8_t checksum = 0x6E ^ 0x51;
    for (const std::uint8_t byte : message) checksum = static_cast<std::uint8_t>(checksum ^ byte);
    message.push_back(checksum);
    using Write = IOReturn (*)(CFTypeRef, std::uint32_t, std::uint32_t, void*, std::uint32_t);
    return functionOf<Write>(ioKit, "IOAVServiceWriteI2C")(service_.get(), 0x37, 0x51, message.data(),
                                                           static_cast<std::uint32_t>(message.size()));
  }
  [[nodiscard]] std::pair<IOReturn, Bytes> read() const {
    Bytes reply(11);
    using Read = IOReturn (*)(CFTypeRef, std::uint32_t, std::uint32_t, void*, std::uint32_t);
    const IOReturn status = functionOf<Read>(ioKit, "IOAVServiceReadI2C")(service_.get(), 0x37, 0, reply.data(),
                                                                          static_cast<std::uint32_t>(reply.size()));
    return {status, reply};
  }
  // The luminance, where the monitor tells it: a request is answered after 40 ms, or some more.
  [[nodiscard]] std::optional<int> luminance() const {
    for (int tries = 0; tries < 5; ++tries) {
      if (write({0x82, 0x01, 0x10}) != kIOReturnSuccess) continue;
      sleepFor(60);
      const auto [status, reply] = read();
      std::uint8_t checksum = 0x50;
      for (const std::uint8_t byte : reply) checksum = static_cast<std::uint8_t>(checksum ^ byte);
      if (status == kIOReturnSuccess && checksum == 0 && reply[2] == 0x02 && reply[4] == 0x10) {
        return reply[8] << 8 | reply[9];
      }
    }
    return std::nullopt;
  }
  [[nodiscard]] IOReturn setLuminance(int value) const {
    return write({0x84, 0x03, 0x10, static_cast<std::uint8_t>(value >> 8), static_cast<std::uint8_t>(value & 0xFF)});
  }

 private:
  CF::Ref<CFTypeRef> service_;
};

void connectMonitor() {
  ask("Connect one external monitor that is no Apple display, directly, and switch DDC/CI on in its menu.",
      lines::monitor(2, {{"current", 50}}));
}

}  // namespace

DESK_CLAIM(Monitors, TellTheirLuminance,
           "A monitor answers a request for its luminance, 40 ms later or soon after, with a right checksum.",
           "VESA DDC/CI 1.1; IOAVServiceReadI2C is observed: no public header") {
  connectMonitor();
  const Wire wire;
  ASSERT_TRUE(wire);
  EXPECT_TRUE(wire.luminance());
}

DESK_CLAIM(Monitors, KeepTheLuminanceThatTheyAreGiven,
           "A monitor's luminance is what was written to it, and is seen to be.",
           "VESA DDC/CI 1.1; IOAVServiceWriteI2C is observed: no public header") {
  connectMonitor();
  const Wire wire;
  ASSERT_TRUE(wire);
  const auto before = wire.luminance();
  ASSERT_TRUE(before);
  const int other = *before >= 30 ? *before - 25 : *before + 25;
  EXPECT_EQ(wire.setLuminance(other), kIOReturnSuccess);
  sleepFor(60);
  EXPECT_EQ(wire.luminance(), other);
  EXPECT_TRUE(confirm("Did the monitor's brightness change just now?", {{"what", "monitor"}, {"brightness", other}}));
  EXPECT_EQ(wire.setLuminance(*before), kIOReturnSuccess);
  sleepFor(60);
  EXPECT_EQ(wire.luminance(), before);
}

DESK_CLAIM(Monitors, HaveNothingToSayUnasked,
           "A monitor that was asked nothing answers a read with an error or a null message.",
           "VESA DDC/CI 1.1; which of the two is assumed") {
  connectMonitor();
  const Wire wire;
  ASSERT_TRUE(wire);
  static_cast<void>(wire.luminance());  // whatever it owed
  const auto [status, reply] = wire.read();
  EXPECT_TRUE(status != kIOReturnSuccess || (reply[1] & 0x7F) == 0 || reply[2] != 0x02);
}

DESK_CLAIM(Monitors, NeedTheirTime, "A reply that is read at once after the request is not the answer yet.",
           "VESA DDC/CI 1.1: the host waits 40 ms; that a monitor is not faster is assumed") {
  connectMonitor();
  const Wire wire;
  ASSERT_TRUE(wire);
  EXPECT_EQ(wire.write({0x82, 0x01, 0x10}), kIOReturnSuccess);
  const auto [status, reply] = wire.read();
  EXPECT_TRUE(status != kIOReturnSuccess || (reply[1] & 0x7F) == 0);
  sleepFor(60);
  static_cast<void>(wire.read());
}

DESK_CLAIM(
    Monitors, WakeUpLate,
    "A monitor that was asleep with the Mac answers again within 20 seconds after the Mac has woken up, whatever "
    "the messages before that come to.",
    "assumed: no monitor's manual says how long it takes") {
  connectMonitor();
  const Wire wire;
  ASSERT_TRUE(wire);
  const auto before = wire.luminance();
  ask("Put the Mac to sleep, wait until the monitor is dark, and wake the Mac.",
      lines::line("sleep", {{"seconds", 60}, {"wakes-after", 8}}));
  const Wire anew;  // what reached it before the sleep need not
  EXPECT_TRUE(runUntil([&] { return anew.luminance().has_value(); }, 20));
  EXPECT_EQ(anew.luminance(), before);
}

DESK_CLAIM(Monitors, ForgetWhatTheyOweInTheirSleep,
           "A request that a monitor has not answered before the Mac slept is not answered afterwards.",
           "assumed; VESA DDC/CI 1.1 says nothing of it") {
  connectMonitor();
  const Wire wire;
  ASSERT_TRUE(wire);
  EXPECT_EQ(wire.write({0x82, 0x01, 0x10}), kIOReturnSuccess);
  ask("Put the Mac to sleep, wait until the monitor is dark, wake the Mac, and wait until the monitor is bright.",
      lines::line("sleep", {{"seconds", 60}, {"wakes-after", 0}}));
  const Wire anew;
  const auto [status, reply] = anew.read();
  EXPECT_TRUE(status != kIOReturnSuccess || (reply[1] & 0x7F) == 0 || reply[2] != 0x02);
}

DESK_CLAIM(Monitors, ThatAreGoneDoNotAnswer, "Messages to a monitor that has been disconnected fail.",
           "IOReturn.h; which error is assumed") {
  connectMonitor();
  const Wire wire;
  ASSERT_TRUE(wire);
  ask("Disconnect the monitor.", lines::displayGone(2));
  EXPECT_NE(wire.write({0x82, 0x01, 0x10}), kIOReturnSuccess);
}

DESK_CLAIM(Displays, ChangesAreTold,
           "When a display comes or goes, the application is told, by the time that the list of displays has changed.",
           "NSApplication.h, NSApplicationDidChangeScreenParametersNotification") {
  int heard = 0;
  int* const times = &heard;
  const auto center = NS::NotificationCenter::defaultCenter();
  const auto token = center.addObserverForName(NS::ApplicationDidChangeScreenParametersNotification(), ^{
    ++*times;
  });
  connectMonitor();
  const auto before = NS::Screen::screens().size();
  heard = 0;
  ask("Disconnect the monitor.", lines::displayGone(2));
  EXPECT_TRUE(runUntil([&] { return heard > 0; }));
  EXPECT_EQ(NS::Screen::screens().size(), before - 1);
  center.removeObserver(token);
}

DESK_CLAIM(Displays, ThatMirrorOthersHaveNoScreen, "A display that mirrors another is online and has no screen.",
           "CGDirectDisplay.h, CGGetOnlineDisplayList; NSScreen.h, screens; observed") {
  connectMonitor();
  const auto screens = NS::Screen::screens().size();
  ask("In the System Settings, let the monitor mirror another display.", lines::display(2, {{"mirrors", 1}}));
  EXPECT_EQ(NS::Screen::screens().size(), screens - 1);
  std::uint32_t online = 0;
  EXPECT_EQ(CGGetOnlineDisplayList(0, nullptr, &online), kCGErrorSuccess);
  EXPECT_GE(online, screens);
  ask("Let it mirror none again.", lines::display(2, {{"mirrors", nullptr}}));
}

DESK_CLAIM(Registry, AWalkEndsWhenTheRegistryChanges,
           "When a display comes or goes in the middle of a walk, the iterator has no next entry, and is not valid "
           "until it is reset.",
           "IOKitLib.h, IOIteratorIsValid") {
  connectMonitor();
  const IO::Object root(IORegistryGetRootEntry(kIOMainPortDefault));
  io_iterator_t made = IO_OBJECT_NULL;
  ASSERT_EQ(IORegistryEntryCreateIterator(root.get(), kIOServicePlane, kIORegistryIterateRecursively, &made),
            KERN_SUCCESS);
  const IO::Object iterator(made);
  EXPECT_TRUE(IO::Object(IOIteratorNext(iterator.get())));
  ask("Disconnect the monitor.", lines::displayGone(2));
  EXPECT_FALSE(IO::Object(IOIteratorNext(iterator.get())));
  EXPECT_FALSE(IOIteratorIsValid(iterator.get()));
  IOIteratorReset(iterator.get());
  EXPECT_TRUE(IOIteratorIsValid(iterator.get()));
  EXPECT_TRUE(IO::Object(IOIteratorNext(iterator.get())));
}

// ---- Pop-ups, alerts, menus ----

DESK_CLAIM(PopUps, ShowTheirSquares, "The pop-up shows as many squares as it is told, out of as many.",
           "observed: no public header") {
  ask("Watch the screen with the menu bar.", lines::pointer(100, 100));
  ASSERT_NE(dlopen(claims::osd, RTLD_LAZY), nullptr);
  const Class type = objc_lookUpClass("OSDManager");
  ASSERT_NE(type, nullptr);
  const id receiver = reinterpret_cast<id>(type);
  const SEL shared = sel_registerName("sharedManager");
  const id manager = reinterpret_cast<id (*)(id, SEL)>(
      class_getMethodImplementation(object_getClass(receiver), shared))(receiver, shared);
  ASSERT_NE(manager, nullptr);
  const SEL selector =
      sel_registerName("showImage:onDisplayID:priority:msecUntilFade:filledChiclets:totalChiclets:locked:");
  using Show =
      void (*)(id, SEL, std::int64_t, std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t, BOOL);
  reinterpret_cast<Show>(class_getMethodImplementation(object_getClass(manager), selector))(
      manager, selector, 1, CGMainDisplayID(), 500, 1000, 4, 16, false);
  EXPECT_TRUE(confirm("Did a pop-up show a sun and a quarter of its squares?",
                      {{"what", "call"}, {"api", "OSDManager.showImage"}, {"args", {{"image", 1}, {"filled", 4}}}}));
}

DESK_CLAIM(Alerts, AnswerTheButton,
           "An alert answers the button that was pressed, counted from the first that was added.",
           "NSAlert.h, runModal, NSAlertFirstButtonReturn") {
  ask("An alert comes up after you press Return. Press its button \"Second\".", lines::answer("Second"));
  NS::Application::sharedApplication().activate();
  const NS::Alert alert = NS::Alert::make();
  alert.setMessageText("Which button?");
  alert.setInformativeText("Press the second one.");
  alert.addButtonWithTitle("First");
  alert.addButtonWithTitle("Second");
  EXPECT_EQ(alert.runModal(), NS::AlertFirstButtonReturn + 1);
}

DESK_CLAIM(Alerts, LetTheMainQueueGoOn,
           "While an alert stands that no block of the main queue has shown, blocks of the main queue are done.",
           "observed: the main queue is drained in the modal mode") {
  ask("An alert comes up after you press Return. Wait three seconds, then press its button.", lines::answer(nullptr));
  bool done = false;
  bool* const seen = &done;
  dispatch_after(dispatch_time(DISPATCH_TIME_NOW, static_cast<std::int64_t>(NSEC_PER_SEC)), dispatch_get_main_queue(),
                 ^{
                   *seen = true;
                   claims::goOn(lines::answer("Done"));
                 });
  const NS::Alert alert = NS::Alert::make();
  alert.setMessageText("Wait three seconds.");
  alert.addButtonWithTitle("Done");
  EXPECT_EQ(alert.runModal(), NS::AlertFirstButtonReturn);
  EXPECT_TRUE(done);
}

DESK_CLAIM(Alerts, OfErrorsHaveTheirText, "The system's alert for an error has the error's text.",
           "NSAlert.h, alertWithError:") {
  NS::Error error;
  std::atomic<bool> done = false;
  NS::URLSession::sharedSession()
      .downloadTaskWithURL(NS::URL::URLWithString("file:///no/such/file", false),
                           [&](const std::string&, const NS::URLResponse&, const NS::Error& told) {
                             error = told;
                             done = true;
                           })
      .resume();
  ASSERT_TRUE(runUntil([&] { return done.load(); }));
  ask("An alert comes up after you press Return. Read it, and press its button.", lines::answer("OK"));
  static_cast<void>(NS::Alert::alertWithError(error).runModal());
  EXPECT_TRUE(
      confirm("Did it say that a URL was not found?", {{"what", "alert"}, {"message", error.localizedDescription()}}));
}

DESK_CLAIM(Alerts, KeepTheApplicationAlive,
           "An application that asks to be ended while an alert is open goes on, and the alert stays.",
           "NSWindow.h, preventsApplicationTerminationWhenModal") {
  ask("An alert comes up after you press Return. Wait three seconds, then press its button.", lines::answer(nullptr));
  dispatch_async(dispatch_get_global_queue(QOS_CLASS_DEFAULT, 0), ^{
    sleepFor(1000);
    // Not in a block of the main queue, which would hold up what the alert waits for.
    CFRunLoopPerformBlock(CFRunLoopGetMain(), kCFRunLoopCommonModes, ^{
      NS::Application::sharedApplication().terminate();
      claims::goOn(lines::answer("Done"));
    });
    CFRunLoopWakeUp(CFRunLoopGetMain());
  });
  const NS::Alert alert = NS::Alert::make();
  alert.setMessageText("Wait three seconds.");
  alert.addButtonWithTitle("Done");
  EXPECT_EQ(alert.runModal(), NS::AlertFirstButtonReturn);
}

namespace {

struct MenuWatcher : NS::MenuDelegate {
  void menuNeedsUpdate(const NS::Menu&) override { seen += "update "; }
  void menuWillOpen(const NS::Menu&) override { seen += "open "; }
  void menuDidClose(const NS::Menu&) override { seen += "close "; }
  std::string seen;
};

}  // namespace

DESK_CLAIM(Menus, AskTheirDelegateBeforeTheyOpen,
           "A status item's menu asks its delegate for an update, says that it opens, and later that it has closed.",
           "NSMenu.h, NSMenuDelegate; NSStatusItem.h, menu") {
  MenuWatcher watcher;
  const auto menu = NS::Menu::make();
  menu.setDelegate(&watcher);
  int chosen = 0;
  const NS::MenuItem item("Choose me", nullptr, "");
  item.setTargetAction([&chosen] { ++chosen; });
  menu.addItem(item);
  const auto status = NS::StatusBar::systemStatusBar().statusItemWithLength(NS::SquareStatusItemLength);
  status.button().setImage(NS::Image::imageWithSystemSymbolName("sun.max.fill"));
  status.setMenu(menu);
  ask("Open the menu of the new sun in the menu bar, and choose \"Choose me\".",
      lines::menu(true) + lines::click("Choose me"));
  EXPECT_TRUE(watcher.seen.starts_with("update open ")) << watcher.seen;
  EXPECT_TRUE(watcher.seen.ends_with("close ")) << watcher.seen;
  EXPECT_EQ(chosen, 1);
  menu.setDelegate(nullptr);
}

DESK_CLAIM(Sliders, InMenusSendEveryMove,
           "A continuous slider in an open menu sends its action while it is dragged, and keeps to its tick marks.",
           "NSSlider.h, continuous, allowsTickMarkValuesOnly") {
  const auto slider = NS::Slider::sliderWithValue(0, 0, 4);
  slider.setNumberOfTickMarks(5);
  slider.setAllowsTickMarkValuesOnly(true);
  slider.setContinuous(true);
  slider.setFrame(CGRectMake(0, 0, 200, 24));
  std::vector<double> values;
  slider.setTargetAction([&] { values.push_back(slider.doubleValue()); });
  const NS::MenuItem row("", nullptr, "");
  row.setView(NS::StackView::stackViewWithViews({NS::TextField::labelWithString("Drag"), slider}));
  const auto menu = NS::Menu::make();
  menu.addItem(row);
  const auto status = NS::StatusBar::systemStatusBar().statusItemWithLength(NS::SquareStatusItemLength);
  status.button().setImage(NS::Image::imageWithSystemSymbolName("sun.max.fill"));
  status.setMenu(menu);
  ask("Open the menu of the new sun in the menu bar, drag its slider slowly from the left end to the right, and close "
      "the menu.",
      lines::menu(true) + lines::slide("Drag", 4, {{"through", {1.2, 2, 3.1}}}) + lines::menu(false));
  EXPECT_GT(values.size(), 3U);
  for (const double value : values) EXPECT_EQ(value, std::round(value));
  slider.setTargetAction([] {});
}

// ---- Keys ----

namespace {

// A tap at the head of the event stream that notes what it sees, and takes its time.
class NotingTap {
 public:
  explicit NotingTap(CGEventMask mask)
      : tap_(CF::adopt(CGEventTapCreate(
            kCGSessionEventTap, kCGHeadInsertEventTap, kCGEventTapOptionDefault, mask,
            [](CGEventTapProxy, CGEventType type, CGEventRef event, void* self) {
              return static_cast<NotingTap*>(self)->note(type, event);
            },
            this))) {
    if (!tap_) return;
    source_ = CF::adopt(CFMachPortCreateRunLoopSource(kCFAllocatorDefault, tap_.get(), 0));
    CFRunLoopAddSource(CFRunLoopGetMain(), source_.get(), kCFRunLoopCommonModes);
  }
  ~NotingTap() {
    if (!tap_) return;
    CFRunLoopRemoveSource(CFRunLoopGetMain(), source_.get(), kCFRunLoopCommonModes);
    CFMachPortInvalidate(tap_.get());
  }
  NotingTap(const NotingTap&) = delete;
  NotingTap& operator=(const NotingTap&) = delete;

  explicit operator bool() const { return static_cast<bool>(tap_); }
  [[nodiscard]] bool isEnabled() const { return CGEventTapIsEnabled(tap_.get()); }

  std::vector<long> mediaKeys;  // data1 of system-defined events of subtype 8
  std::vector<std::int64_t> keys;
  bool swallows = false;
  bool wasSwitchedOff = false;
  int takes = 0;  // milliseconds

 private:
  CGEventRef note(CGEventType type, CGEventRef event) {
    sleepFor(takes);
    if (type == kCGEventTapDisabledByTimeout) wasSwitchedOff = true;
    if (type == kCGEventKeyDown) {
      EXPECT_EQ(CGEventGetIntegerValueField(event, kCGKeyboardEventAutorepeat), 0);
      keys.push_back(CGEventGetIntegerValueField(event, kCGKeyboardEventKeycode));
    }
    if (type == 14) {
      const NS::Event made = NS::Event::eventWithCGEvent(event);
      if (made && made.subtype() == 8) mediaKeys.push_back(made.data1());
    }
    return swallows ? nullptr : event;
  }

  CF::Ref<CFMachPortRef> tap_;
  CF::Ref<CFRunLoopSourceRef> source_;
};

}  // namespace

#define NEEDS_ACCESSIBILITY                                                                                         \
  ask("Allow the terminal that this runs in under Privacy & Security, Accessibility.", lines::accessibility(true)); \
  if (!AXIsProcessTrusted()) NOT_TRIED("Accessibility is not given")

DESK_CLAIM(Events, MediaKeysAreSystemDefined,
           "A media key is an event of type 14 and subtype 8, whose data has the key in its upper half, and 0x0A00 or "
           "0x0B00 for down and up.",
           "IOLLEvent.h, NX_SYSDEFINED, NX_SUBTYPE_AUX_CONTROL_BUTTONS; the data is observed") {
  NEEDS_ACCESSIBILITY;
  const NotingTap tap(CGEventMaskBit(14));
  ASSERT_TRUE(tap);
  ask("Press the volume-up key once.", lines::key("volumeUp"));
  ASSERT_EQ(tap.mediaKeys.size(), 2U);
  EXPECT_EQ(tap.mediaKeys[0], 0x0A00);
  EXPECT_EQ(tap.mediaKeys[1], 0x0B00);
}

DESK_CLAIM(Events, AreSwallowed,
           "Of two taps at the head the later one sees an event first, and what it answers null for the other never "
           "sees, nor does the system.",
           "CGEvent.h, CGEventTapCreate; CGEventTypes.h, CGEventTapCallBack") {
  NEEDS_ACCESSIBILITY;
  const NotingTap behind(CGEventMaskBit(14));
  NotingTap before(CGEventMaskBit(14));
  ASSERT_TRUE(behind && before);
  ask("Press the volume-up key once.", lines::key("volumeUp"));
  EXPECT_EQ(before.mediaKeys.size(), 2U);
  EXPECT_EQ(behind.mediaKeys, before.mediaKeys);
  before.swallows = true;
  ask("Press the volume-up key once more.", lines::key("volumeUp"));
  EXPECT_EQ(before.mediaKeys.size(), 4U);
  EXPECT_EQ(behind.mediaKeys.size(), 2U);
  EXPECT_TRUE(confirm("Did the volume stay as it was the second time?", {{"what", "input"}, {"swallowed", true}}));
}

DESK_CLAIM(Events, ATapNeedsThePermission, "A tap that could swallow events is not made without Accessibility.",
           "CGEvent.h, CGEventTapCreate") {
  ask("Take Accessibility away from the terminal that this runs in, if it has it.", lines::accessibility(false));
  EXPECT_FALSE(NotingTap(CGEventMaskBit(14)));
  ask("Give Accessibility back to the terminal.", lines::accessibility(true));
}

DESK_CLAIM(Events, KeysHaveTheirCodes, "A key is an event of type 10 with the key's code, and says whether it repeats.",
           "CGEventTypes.h, kCGKeyboardEventKeycode, kCGKeyboardEventAutorepeat") {
  NEEDS_ACCESSIBILITY;
  const NotingTap tap(CGEventMaskBit(kCGEventKeyDown));
  ASSERT_TRUE(tap);
  ask("Press F5 once, with fn if the keyboard needs it.", lines::event(10, {{"keycode", 96}}));
  ASSERT_GE(tap.keys.size(), 1U);
  EXPECT_EQ(tap.keys[0], 96);
}

DESK_CLAIM(Events, HeldKeysRepeat,
           "A media key that is held repeats, after half a second or so, several times a second.",
           "observed; the times are the user's own settings") {
  NEEDS_ACCESSIBILITY;
  const NotingTap tap(CGEventMaskBit(14));
  ASSERT_TRUE(tap);
  ask("Hold the volume-up key for about two seconds.", lines::key("volumeUp", {{"hold", 2}}) + lines::advance(3));
  EXPECT_GT(tap.mediaKeys.size(), 6U);
  int repeats = 0;
  for (const long data : tap.mediaKeys) {
    if (data == 0x0A01) ++repeats;
  }
  EXPECT_GT(repeats, 3);
}

DESK_CLAIM(Events, SlowTapsAreSwitchedOff,
           "A tap whose callback takes longer than a second is switched off and told so.",
           "CGEventTypes.h, kCGEventTapDisabledByTimeout; the second is observed") {
  NEEDS_ACCESSIBILITY;
  NotingTap tap(CGEventMaskBit(14));
  ASSERT_TRUE(tap);
  tap.takes = 1500;
  ask("Press the volume-up key once, and wait.", lines::press("volumeUp"));
  letRun(3);
  EXPECT_TRUE(tap.wasSwitchedOff);
  EXPECT_FALSE(tap.isEnabled());
}

DESK_CLAIM(Events, TapsDieWithThePermission,
           "A tap whose permission is taken away receives nothing any more, without being told.",
           "observed; CGEvent.h says nothing of it") {
  NEEDS_ACCESSIBILITY;
  const NotingTap tap(CGEventMaskBit(14));
  ASSERT_TRUE(tap);
  ask("Take Accessibility away from the terminal again.", lines::accessibility(false));
  ask("Press the volume-up key once.", lines::key("volumeUp"));
  EXPECT_TRUE(tap.mediaKeys.empty());
  EXPECT_FALSE(AXIsProcessTrusted());
  ask("Give Accessibility back to the terminal.", lines::accessibility(true));
}

// ---- Consents ----

DESK_CLAIM(Prompts, AccessibilityIsAskedForOnce,
           "A program that is not trusted is told so at once, while the user is asked.",
           "AXUIElement.h, kAXTrustedCheckOptionPrompt") {
  ask("Take Accessibility away from the terminal that this runs in, if it has it.", lines::accessibility(false));
  const auto options = CF::dictionary({{kAXTrustedCheckOptionPrompt, CF::value(true)}});
  EXPECT_FALSE(AXIsProcessTrustedWithOptions(options.get()));
  letRun(1);
  EXPECT_TRUE(confirm("Did the system ask you about Accessibility?", {{"what", "prompt"}, {"for", "accessibility"}}));
}

DESK_CLAIM(Prompts, RecordingIsAskedFor,
           "A request for the consent to record what the Mac plays asks the user, and is answered later, off the main "
           "thread or on it.",
           "observed: no public header") {
  ask("Take the permission to record system audio away from the terminal (tccutil reset AudioCapture). When you are "
      "asked, allow it.",
      lines::capture({{"permission", "undetermined"}, {"answer", true}}));
  using Request = void (*)(CFStringRef, CFDictionaryRef, void (^)(bool));
  const auto preflight = functionOf<claims::Preflight>(claims::tcc, "TCCAccessPreflight");
  ASSERT_NE(preflight, nullptr);
  if (preflight(CFSTR("kTCCServiceAudioCapture"), nullptr) != 2) NOT_TRIED("the consent is decided already");
  const auto answer = std::make_shared<std::atomic<int>>(-1);
  functionOf<Request>(claims::tcc, "TCCAccessRequest")(CFSTR("kTCCServiceAudioCapture"), nullptr, ^(bool granted) {
    *answer = granted;
  });
  EXPECT_EQ(*answer, -1);
  EXPECT_TRUE(runUntil([&] { return *answer != -1; }, 60));
  EXPECT_EQ(*answer, 1);
  EXPECT_EQ(preflight(CFSTR("kTCCServiceAudioCapture"), nullptr), 0);
  EXPECT_TRUE(confirm("Were you asked?", {{"what", "prompt"}, {"for", "capture"}}));
}

DESK_CLAIM(
    LoginItem, IsRegisteredAndNot,
    "A main application that is registered is enabled or waits for approval, and is neither when it is unregistered.",
    "SMAppService.h, registerAndReturnError:, unregisterAndReturnError:, status") {
  ask("Look at Login Items in the System Settings.", lines::loginItem({{"enabled", false}}));
  const auto service = NS::AppService::mainAppService();
  NS::Error error;
  if (!service.registerAndReturnError(error)) NOT_TRIED("it cannot be registered: " + error.localizedDescription());
  const auto status = service.status();
  EXPECT_TRUE(status == NS::AppServiceStatus::Enabled || status == NS::AppServiceStatus::RequiresApproval);
  EXPECT_TRUE(service.unregisterAndReturnError(error));
  EXPECT_EQ(service.status(), NS::AppServiceStatus::NotRegistered);
}

DESK_CLAIM(LoginItem, HasItsSettings, "The System Settings open at the login items when they are told to.",
           "SMAppService.h, openSystemSettingsLoginItems") {
  ask("Watch the screen.", lines::pointer(100, 100));
  NS::AppService::openSystemSettingsLoginItems();
  EXPECT_TRUE(confirm("Did the System Settings show Login Items?",
                      {{"what", "call"}, {"api", "SMAppService.openSystemSettingsLoginItems"}}));
}

// ---- Sleep ----

DESK_CLAIM(Sleep, IsToldWhenItIsOver, "When the Mac wakes up, the workspace's centre says so, once or more often.",
           "NSWorkspace.h, NSWorkspaceDidWakeNotification; that it may come more than once is assumed") {
  int heard = 0;
  int* const times = &heard;
  const auto center = NS::Workspace::sharedWorkspace().notificationCenter();
  const auto token = center.addObserverForName(NS::WorkspaceDidWakeNotification(), ^{
    ++*times;
  });
  ask("Put the Mac to sleep, wait half a minute, wake it, and log in.", lines::macSleeps(30));
  EXPECT_TRUE(runUntil([&] { return heard > 0; }));
  center.removeObserver(token);
}

DESK_CLAIM(Sleep, UptimeStandsStill,
           "A wait on the uptime is longer by the time that the Mac sleeps, one on the wall clock is not.",
           "dispatch/time.h, dispatch_time, dispatch_walltime") {
  constexpr auto minute = static_cast<std::int64_t>(60 * NSEC_PER_SEC);
  double byUptime = 0;
  double byWall = 0;
  double* const uptime = &byUptime;
  double* const wall = &byWall;
  const CFAbsoluteTime began = CFAbsoluteTimeGetCurrent();
  dispatch_after(dispatch_time(DISPATCH_TIME_NOW, minute), dispatch_get_main_queue(), ^{
    *uptime = CFAbsoluteTimeGetCurrent() - began;
  });
  dispatch_after(dispatch_walltime(nullptr, minute), dispatch_get_main_queue(), ^{
    *wall = CFAbsoluteTimeGetCurrent() - began;
  });
  ask("Put the Mac to sleep at once, wait two minutes, and wake it.", lines::macSleeps(120));
  EXPECT_TRUE(runUntil([&] { return byUptime > 0 && byWall > 0; }, 90));
  EXPECT_GT(byUptime, byWall + 20);
}

DESK_CLAIM(Dispatch, WallWaitsFollowTheClock,
           "A wait on the wall clock is over when the user sets the clock beyond its end; one on the uptime is not.",
           "dispatch/time.h, dispatch_time, dispatch_walltime") {
  constexpr auto tenMinutes = static_cast<std::int64_t>(600 * NSEC_PER_SEC);
  static bool byWall;
  static bool byUptime;
  byWall = byUptime = false;
  dispatch_after(dispatch_time(DISPATCH_TIME_NOW, tenMinutes), dispatch_get_main_queue(), ^{
    byUptime = true;
  });
  dispatch_after(dispatch_walltime(nullptr, tenMinutes), dispatch_get_main_queue(), ^{
    byWall = true;
  });
  letRun(1);
  EXPECT_FALSE(byWall);
  ask("Set this Mac's clock forward by an hour.", lines::setClockForward(3600));
  EXPECT_TRUE(runUntil([] { return byWall; }, 30));
  EXPECT_FALSE(byUptime);
  ask("Set it back to the right time.", lines::setClockForward(-3600));
}

DESK_CLAIM(Log, ShowsWhatIsPublic,
           "An error that is logged is shown with its subsystem, its category and what is marked as public.",
           "os/log.h, os_log_error; man 1 log") {
  ask("Enter in another terminal: log stream --predicate 'subsystem == \"example.dalvane.Conformance\"'",
      lines::pointer(100, 100));
  os_log_error(os_log_create("example.dalvane.Conformance", "Claims"), "It is %{public}s, and %d.", "seen", 7);
  letRun(1);
  EXPECT_TRUE(confirm("Does it show an error of the category Claims that says: It is seen, and 7.",
                      {{"what", "log"},
                       {"subsystem", "example.dalvane.Conformance"},
                       {"category", "Claims"},
                       {"level", "error"},
                       {"text", "It is seen, and 7."}}));
}

// ---- Updates ----

namespace fs = std::filesystem;

DESK_CLAIM(Updates, GoFromOneSignedVersionToTheNext,
           "A version that is installed is followed by the next of the same signer: another Info.plist, a valid "
           "signature, and the requirement of the version before is satisfied.",
           "SecCode.h, SecCodeCopyDesignatedRequirement; Dalvane's own Install and Relaunch") {
  ask("Build and sign Dalvane twice with one certificate, each time with -DDALVANE_FEED_HOST=HOST of a web server of "
      "yours: once with -DDALVANE_VERSION=1.0.0, once with 1.0.1. Make a disk image of the newer one "
      "(docs/releasing.md "
      "says how). Move the older one to Applications, and open it.",
      lines::bundle({{"version", "1.0"}}));
  ASSERT_TRUE(fs::exists(claims::installedApplication()));
  OSStatus status = errSecSuccess;
  const auto requirement = claims::requirementOf(claims::installedApplication(), status);
  ASSERT_EQ(status, errSecSuccess);
  ASSERT_EQ(validity(claims::installedApplication(), requirement.get()), errSecSuccess);
  const std::string before = contentOf(claims::installedApplication() / "Contents/Info.plist");

  ask("Put the disk image, and a releases.json that names it, on that server, the latter as "
      "/dalvane-releases/releases/releases.json. Choose \"Check for Updates…\" in Dalvane's menu, then \"Update to "
      "…\", "
      "and press \"Install and Relaunch\". Wait until Dalvane is back in the menu bar.",
      lines::bundle({{"version", "2.0"}}) + lines::snapshot("updated"));
  EXPECT_NE(contentOf(claims::installedApplication() / "Contents/Info.plist"), before);
  EXPECT_EQ(validity(claims::installedApplication(), nullptr), errSecSuccess);
  EXPECT_EQ(validity(claims::installedApplication(), requirement.get()), errSecSuccess);
  EXPECT_TRUE(
      confirm("Is the newer version in the menu bar, with its permissions, without a copy of the old one beside "
              "it in Applications?",
              {{"what", "snapshot"}, {"bundle", {{"version", "2.0"}, {"backup", false}}}}));
}

DESK_CLAIM(
    Updates, OfOthersAreToldApart,
    "A version that somebody else has signed is valid, and does not satisfy the requirement of the one installed.",
    "CSCommon.h, errSecCSReqFailed") {
  ask("Move a Dalvane that you have signed to Applications.", lines::bundle({{"version", "1.0"}}));
  ASSERT_TRUE(fs::exists(claims::installedApplication()));
  OSStatus status = errSecSuccess;
  const auto requirement = claims::requirementOf(claims::installedApplication(), status);
  ASSERT_EQ(status, errSecSuccess);
  ask("Replace it by one that is signed with another certificate.",
      lines::bundle({{"version", "2.0"}, {"signer", "Mallory"}}));
  EXPECT_EQ(validity(claims::installedApplication(), nullptr), errSecSuccess);
  EXPECT_EQ(validity(claims::installedApplication(), requirement.get()), errSecCSReqFailed);
}

// ---- The network ----

namespace {

constexpr const char* house = "http://localhost:8099/";

// The body of the answer to a request, or its error.
std::string bodyOf(NS::URLRequestCachePolicy policy, double timeout = 15) {
  struct Answer {
    std::atomic<bool> isThere = false;
    std::string text;
  };
  const auto answer = std::make_shared<Answer>();
  const auto request = NS::URLRequest::requestWithURL(NS::URL::URLWithString(house, false), policy, timeout);
  NS::URLSession::sharedSession()
      .dataTaskWithRequest(request,
                           [answer](const NS::Data& data, const NS::URLResponse&, const NS::Error& error) {
                             if (data && data.length() > 0) answer->text.assign(data.bytes(), data.length());
                             if (error) answer->text = error.localizedDescription();
                             answer->isThere = true;
                           })
      .resume();
  EXPECT_TRUE(runUntil([&] { return answer->isThere.load(); }, 60));
  return answer->text;
}
std::string server(const std::string& body) {
  return "Enter in another terminal (and end there what you entered before, by Control-C): while true; do printf "
         "'HTTP/1.1 200 OK\\r\\nCache-Control: max-age=600\\r\\nConnection: close\\r\\nContent-Length: 3\\r\\n\\r\\n" +
         body + "' | nc -l 8099; done";
}

}  // namespace

DESK_CLAIM(
    Network, AnswersAreKeptAsLongAsTheyMay,
    "The shared session answers from its cache within an answer's max-age, unless the request ignores the cache.",
    "NSURLRequest.h, NSURLRequestUseProtocolCachePolicy, NSURLRequestReloadIgnoringLocalCacheData; RFC 9111") {
  ask(server("old"), lines::image(house, {{"body", "old"}, {"cache-control", "max-age=600"}}));
  EXPECT_EQ(bodyOf(NS::URLRequestCachePolicy::ReloadIgnoringLocalCacheData), "old");
  EXPECT_EQ(bodyOf(NS::URLRequestCachePolicy::UseProtocolCachePolicy), "old");
  ask(server("new"), lines::image(house, {{"body", "new"}, {"cache-control", "max-age=600"}}));
  EXPECT_EQ(bodyOf(NS::URLRequestCachePolicy::UseProtocolCachePolicy), "old");
  EXPECT_EQ(bodyOf(NS::URLRequestCachePolicy::ReloadIgnoringLocalCacheData), "new");
}

DESK_CLAIM(Network, ServersThatSayNothingTimeOut,
           "A request to a server that says nothing ends with an error after the request's timeout.",
           "NSURLRequest.h, timeoutInterval; NSURLError.h, NSURLErrorTimedOut") {
  ask("Enter in another terminal (and end there what you entered before, by Control-C): nc -lk 8099",
      lines::image(house, {{"body", "late"}, {"delay", 40}}));
  const CFAbsoluteTime began = CFAbsoluteTimeGetCurrent();
  EXPECT_EQ(bodyOf(NS::URLRequestCachePolicy::ReloadIgnoringLocalCacheData, 3), "The request timed out.");
  EXPECT_NEAR(CFAbsoluteTimeGetCurrent() - began, 3, 1);
}

// ---- Sound ----

namespace {

double rateOf(AudioObjectID device) {
  return claims::read<Float64>(device, at(kAudioDevicePropertyNominalSampleRate)).second;
}

// How often the callback has come, how many frames it has played, and how many inputs it had data of: by themselves, as
// it may come once more when the loop is gone.
std::atomic<std::uint64_t> callbacks = 0;
std::atomic<std::uint64_t> frames = 0;
std::atomic<std::ptrdiff_t> inputs = 0;

std::size_t inputsOf(AudioObjectID device) {
  const auto [status, size] = claims::sizeOf(device, at(kAudioDevicePropertyStreams, kAudioObjectPropertyScopeInput));
  EXPECT_EQ(status, kAudioHardwareNoError);
  return size / sizeof(AudioObjectID);
}

// Everything that other programs play to the default output, by way of this one and at this gain. Begins at once when
// it mutes the sound on its own way meanwhile, as it does unless it is told otherwise.
class Loop {
 public:
  enum class Begins { atOnce, whenTold };

  explicit Loop(float gain, CA::TapMuteBehavior muting = CA::TapMuteBehavior::MutedWhenTapped,
                Begins begins = Begins::atOnce)
      : tap_(muting) {
    callbacks = frames = 0;
    EXPECT_EQ(tap_.status, kAudioHardwareNoError);
    EXPECT_EQ(aggregate_.status, kAudioHardwareNoError);
    EXPECT_EQ(AudioDeviceCreateIOProcIDWithBlock(
                  &proc_, device(), nullptr,
                  ^(const AudioTimeStamp*, const AudioBufferList* input, const AudioTimeStamp*, AudioBufferList* output,
                    const AudioTimeStamp*) {
                    const AudioBuffer& out = output->mBuffers[0];
                    const UInt32 last = input->mNumberBuffers;
                    const AudioBuffer* const in = last > 0 ? &input->mBuffers[last - 1] : nullptr;
                    const std::size_t samples = out.mDataByteSize / sizeof(float);
                    for (std::size_t i = 0; i < samples; ++i) {
                      const bool isThere = in && in->mData && i < in->mDataByteSize / sizeof(float);
                      static_cast<float*>(out.mData)[i] = isThere ? static_cast<float*>(in->mData)[i] * gain : 0;
                    }
                    inputs = std::count_if(input->mBuffers, input->mBuffers + last,
                                           [](const AudioBuffer& each) { return each.mData != nullptr; });
                    ++callbacks;
                    frames += samples / out.mNumberChannels;
                  }),
              kAudioHardwareNoError);
    if (begins == Begins::atOnce) start();
  }
  ~Loop() {
    stop();
    EXPECT_EQ(AudioDeviceDestroyIOProcID(device(), proc_), kAudioHardwareNoError);
  }
  Loop(const Loop&) = delete;
  Loop& operator=(const Loop&) = delete;

  void start() {
    isStarted_ = true;
    EXPECT_EQ(AudioDeviceStart(device(), proc_), kAudioHardwareNoError);
  }
  void stop() {
    if (isStarted_.exchange(false)) EXPECT_EQ(AudioDeviceStop(device(), proc_), kAudioHardwareNoError);
  }
  // Says that of all inputs only the last is used.
  [[nodiscard]] OSStatus useLastInputOnly() const {
    const std::size_t count = inputsOf(device());
    constexpr std::size_t header = offsetof(AudioHardwareIOProcStreamUsage, mStreamIsOn);
    std::vector<std::max_align_t> storage(header + count * sizeof(UInt32));  // more than is needed
    auto* const usage = reinterpret_cast<AudioHardwareIOProcStreamUsage*>(storage.data());
    usage->mIOProc = reinterpret_cast<void*>(proc_);
    usage->mNumberStreams = static_cast<UInt32>(count);
    usage->mStreamIsOn[count - 1] = 1;
    constexpr auto address = at(kAudioDevicePropertyIOProcStreamUsage, kAudioObjectPropertyScopeInput);
    return AudioObjectSetPropertyData(device(), &address, 0, nullptr,
                                      static_cast<UInt32>(header + count * sizeof(UInt32)), usage);
  }
  [[nodiscard]] AudioObjectID device() const { return aggregate_.device; }

 private:
  std::atomic<bool> isStarted_ = false;
  const claims::Tap tap_;
  const claims::Aggregate aggregate_{tap_, claims::Aggregate::Starts::withTheSound};
  AudioDeviceIOProcID proc_ = nullptr;
};

void playMusic(const std::string& temper = "smooth") {
  ask("Play some even sound, such as a tone, through the default output, and allow recording it if you are asked.",
      lines::temper({{"audio", temper}}) + lines::play("music", 10));
}
json heard(double level) { return {{"what", "snapshot"}, {"speakers", {{{"id", 10}, {"level", level}}}}}; }
void listen() { ask("Listen.", lines::snapshot("listening")); }
void chooseHeadset() {
  ask("Choose an output that has a microphone too, such as a headset on a cable.", lines::output(10, {{"inputs", 1}}));
}

}  // namespace

DESK_CLAIM(Sound, IsMutedWhileItsTapIsRead,
           "A tap that mutes when it is read makes the sound's own way silent, as long as it is read.",
           "CATapDescription.h, CATapMutedWhenTapped") {
  playMusic();
  {
    const Loop loop(0);
    letRun(1);
    listen();
    EXPECT_TRUE(confirm("Is it silent now?", heard(0)));
  }
  letRun(1);
  listen();
  EXPECT_TRUE(confirm("Is the sound back?", heard(0.5)));
}

DESK_CLAIM(
    Sound, ComesBackOnce,
    "Sound that goes through a tap that leaves this process out is heard once, at its gain, and does not feed back.",
    "CATapDescription.h, initExcludingProcesses:andDeviceUID:withStream:") {
  playMusic();
  const Loop loop(0.5F);
  letRun(1);
  listen();
  EXPECT_TRUE(confirm("Is it half as loud as before, without an echo?", heard(0.25)));
}

DESK_CLAIM(Sound, ATapComesBehindTheInputsOfItsDevice,
           "The inputs of an aggregate device are those of its output, and the tap's is the last.",
           "AudioHardware.h, kAudioAggregateDeviceTapListKey, says nothing of their order, which is assumed") {
  playMusic();
  chooseHeadset();
  const Loop loop(0.5F);
  EXPECT_EQ(inputsOf(loop.device()), inputsOf(defaultOutput()) + 1);
  EXPECT_GT(inputsOf(defaultOutput()), 0U);
  letRun(1);
  listen();
  EXPECT_TRUE(confirm("Is it half as loud as before, and nothing else, also when you speak?", heard(0.25)));
}

DESK_CLAIM(Sound, InputsCanBeDoneWithout,
           "A callback whose stream usage leaves out the inputs of its output gets no data of them, and the tap's as "
           "before.",
           "AudioHardware.h, kAudioDevicePropertyIOProcStreamUsage") {
  playMusic();
  chooseHeadset();
  Loop loop(0.5F, CA::TapMuteBehavior::MutedWhenTapped, Loop::Begins::whenTold);
  EXPECT_EQ(loop.useLastInputOnly(), kAudioHardwareNoError);
  loop.start();
  letRun(1);
  EXPECT_EQ(inputs, 1);
  listen();
  EXPECT_TRUE(confirm("Is it half as loud as before?", heard(0.25)));
}

DESK_CLAIM(Sound, DoesNotDriftAway,
           "A tap with drift compensation delivers as many frames as the device plays, for ten seconds.",
           "AudioHardware.h, kAudioSubTapDriftCompensationKey") {
  playMusic();
  const Loop loop(1);
  letRun(1);
  const std::uint64_t before = frames;
  letRun(10);
  EXPECT_NEAR(static_cast<double>(frames - before) / rateOf(defaultOutput()), 10, 0.2);
}

DESK_CLAIM(Sound, MayBeginRoughly,
           "Also where its first cycles come late or short, a tap's sound is heard at its gain within two seconds.",
           "assumed: nobody says what the first cycles have") {
  playMusic("rough");
  const Loop loop(0.5F);
  letRun(2);
  listen();
  EXPECT_TRUE(confirm("Is it half as loud as before?", heard(0.25)));
}

DESK_CLAIM(Sound, IsHeardTwiceThroughATapThatMutesNothing,
           "Sound that goes through a tap that mutes nothing is heard on its own way too: both are added.",
           "CATapDescription.h, CATapUnmuted") {
  playMusic();
  const Loop loop(0.5F, CA::TapMuteBehavior::Unmuted);
  letRun(1);
  listen();
  EXPECT_TRUE(confirm("Is it louder than before?", heard(0.75)));
}

DESK_CLAIM(Sound, AStartWaitsForSoundAtMost,
           "A device that starts with its tap plays nothing while nobody else does, and does once somebody does; its "
           "start comes back by then.",
           "AudioHardware.h, kAudioAggregateDeviceTapAutoStartKey") {
  for (const char* const temper : {"smooth", "rough"}) {
    playMusic(temper);
    ask("Stop every sound on this Mac.", lines::playStops("music"));
    // The block's own too: it may still wait when the claim is given up.
    const auto loop = std::make_shared<Loop>(0.5F, CA::TapMuteBehavior::MutedWhenTapped, Loop::Begins::whenTold);
    const auto isBack = std::make_shared<std::atomic<bool>>(false);
    dispatch_async(dispatch_get_global_queue(QOS_CLASS_DEFAULT, 0), ^{
      loop->start();
      *isBack = true;
    });
    letRun(1);
    EXPECT_EQ(frames, 0U);
    ask("Play the sound again.", lines::play("music", 10));
    EXPECT_TRUE(runUntil([&] { return *isBack && frames > 0; }));
    if (!*isBack) loop->stop();
    ASSERT_TRUE(runUntil([&] { return isBack->load(); }));
  }
}

DESK_CLAIM(Sound, ACallbackMayComeOnceMore,
           "After its stop, and after it has been destroyed, a callback comes once more at most.",
           "AudioHardware.h, AudioDeviceStop, says nothing of it; that it is once at most is assumed") {
  for (const char* const temper : {"smooth", "rough"}) {
    playMusic(temper);
    std::uint64_t before = 0;
    {
      Loop loop(0.5F);
      ASSERT_TRUE(runUntil([] { return callbacks > 10; }));
      loop.stop();
      before = callbacks;
      letRun(0.5);
      EXPECT_LE(callbacks, before + 1);
      loop.start();
      letRun(1);
      EXPECT_GT(callbacks, before + 1);
      before = callbacks;
    }
    // Between the look at the count and the stop there is a cycle or so.
    EXPECT_LE(callbacks, before + 5);
    before = callbacks;
    letRun(0.5);
    EXPECT_LE(callbacks, before + 1);
  }
}

DESK_CLAIM(Sound, CallsTakeTheirTime,
           "A call of Core Audio about a device is answered within a tenth of a second, on a busy Mac too.",
           "assumed: nobody says how long one may take") {
  for (const char* const temper : {"smooth", "rough"}) {
    playMusic(temper);
    for (int i = 0; i < 100; ++i) {
      const CFAbsoluteTime began = CFAbsoluteTimeGetCurrent();
      EXPECT_GT(rateOf(defaultOutput()), 0);
      EXPECT_LT(CFAbsoluteTimeGetCurrent() - began, 0.1);
    }
  }
}

namespace {

// Counts notices of a property, of the system object unless it is told of another.
class Ear {
 public:
  explicit Ear(AudioObjectPropertySelector selector, AudioObjectID object = kAudioObjectSystemObject)
      : object_(object), address_(at(selector)) {
    auto* const times = &heard;
    block_ = Block<AudioObjectPropertyListenerBlock>(^(UInt32, const AudioObjectPropertyAddress*) {
      ++*times;
    });
    EXPECT_EQ(AudioObjectAddPropertyListenerBlock(object_, &address_, dispatch_get_main_queue(), block_.get()),
              kAudioHardwareNoError);
  }
  ~Ear() {
    AudioObjectRemovePropertyListenerBlock(object_, &address_, dispatch_get_main_queue(), block_.get());
    letRun(0.5);  // what is on its way
  }
  Ear(const Ear&) = delete;
  Ear& operator=(const Ear&) = delete;

  int heard = 0;

 private:
  AudioObjectID object_;
  AudioObjectPropertyAddress address_;
  Block<AudioObjectPropertyListenerBlock> block_;
};

}  // namespace

DESK_CLAIM(
    Sound, AnotherDefaultOutputIsTold,
    "When the user chooses another output, listeners of the system object hear of it within a second, once or twice.",
    "AudioHardware.h, kAudioHardwarePropertyDefaultOutputDevice; how often and how late is assumed") {
  for (const char* const temper : {"smooth", "rough"}) {
    ask("Connect a second output for sound.", lines::temper({{"audio", temper}}) + lines::defaultOutput(10));
    const Ear ear(kAudioHardwarePropertyDefaultOutputDevice);
    const AudioObjectID before = defaultOutput();
    ask("Choose the other output in the Control Centre.", lines::defaultOutput(20));
    EXPECT_TRUE(runUntil([&] { return ear.heard > 0; }, 1));
    EXPECT_NE(defaultOutput(), before);
    letRun(0.5);
    EXPECT_LE(ear.heard, 2);
  }
}

DESK_CLAIM(Sound, AnotherRateIsFollowedOrTold,
           "When an output's rate changes, a callback on it goes on, or its end is told as an abnormal stop.",
           "AudioHardwareBase.h, kAudioDevicePropertyIOStoppedAbnormally; that one of the two happens is assumed") {
  for (const char* const temper : {"smooth", "rough"}) {
    playMusic(temper);
    const Loop loop(0.5F);
    const Ear ear(kAudioDevicePropertyIOStoppedAbnormally, loop.device());
    letRun(1);
    ask("Choose another rate for the output in Audio MIDI Setup.", lines::output(10, {{"rate", 44100}}));
    letRun(1);
    const std::uint64_t before = frames;
    letRun(0.5);
    EXPECT_TRUE(frames > before || ear.heard > 0);
    ask("Choose the rate that it had before.", lines::output(10, {{"rate", 48000}}));
  }
}

DESK_CLAIM(Sound, ServiceRestartsAreTold,
           "When the audio service restarts, listeners of the system object hear of it, and there is a default output "
           "afterwards.",
           "AudioHardware.h, kAudioHardwarePropertyServiceRestarted") {
  const Ear ear(kAudioHardwarePropertyServiceRestarted);
  ask("Restart the audio service: sudo killall coreaudiod", lines::restartAudio);
  EXPECT_TRUE(runUntil([&] { return ear.heard > 0; }));
  EXPECT_TRUE(runUntil([] { return defaultOutput() != kAudioObjectUnknown; }));
}

DESK_CLAIM(Sound, DevicesThatAreGoneAreDead,
           "A device that has been disconnected is an object that is not there, or one that is not alive.",
           "AudioHardwareBase.h, kAudioDevicePropertyDeviceIsAlive") {
  ask("Connect a second output for sound, and choose it.", lines::defaultOutput(20));
  const AudioObjectID device = defaultOutput();
  ask("Disconnect that output.", lines::outputGone(20));
  const auto [status, isAlive] = claims::read<UInt32>(device, at(kAudioDevicePropertyDeviceIsAlive), 1);
  EXPECT_TRUE(status == kAudioHardwareBadObjectError || isAlive == 0);
  EXPECT_NE(defaultOutput(), device);
}
