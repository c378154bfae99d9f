// The machine tells a program that breaks the platform's rules, and what a program leaves behind. The programs here are
// small ones that do nothing else.
#include <CoreGraphics/CoreGraphics.h>
#include <IOKit/IOKitLib.h>
#include <dispatch/dispatch.h>
#include <gtest/gtest.h>

#include <iostream>
#include <stdexcept>
#include <thread>

#include "platform/Alert.h"
#include "platform/AudioTap.h"
#include "platform/CF.h"
#include "platform/IO.h"
#include "platform/Menu.h"
#include "platform/Screen.h"
#include "platform/URL.h"
#include "platform/UserDefaults.h"
#include "simulator/desktop/EventStream.h"
#include "simulator/displays/Registry.h"
#include "simulator/foundation/RunLoop.h"
#include "simulator/kernel/Call.h"
#include "simulator/mac/Mac.h"
#include "tests/support/Program.h"

using namespace std::chrono_literals;
using simulator::Leaks;
using simulator::Mac;

namespace {

// Runs a program until it has ended by itself, with the trace on standard error; what it left behind.
Leaks run(std::function<void()> body) {
  Mac machine(programOf(std::move(body)),
              {.trace = [](std::string_view line) { std::cerr << line << '\n'; }, .fatal = {}});
  machine.process.launch();
  EXPECT_TRUE(machine.scheduler.settle());
  EXPECT_FALSE(machine.process.running());
  machine.shutDown();
  return machine.process.leaks();
}

// A program that the machine stops: with a `fatal` record of this text and exit status 1.
void expectFatal(const std::function<void()>& body, const std::string& text) {
  EXPECT_EXIT(run(body), testing::ExitedWithCode(1), "\"what\":\"fatal\",\"text\":\"" + text + "\"");
}

CFStringRef makeString() {
  const UInt8 text[] = {'a'};
  return CFStringCreateWithBytes(kCFAllocatorDefault, text, 1, kCFStringEncodingUTF8, false);
}

void throwing(int value) { throw value; }

void waitForQueues() { std::this_thread::sleep_for(10ms); }

}  // namespace

TEST(Strictness, FindsNothingInAProgramThatGivesEverythingBack) {
  EXPECT_EQ(run([] {
              const auto text = CF::string("a");
              const auto again = CF::retain(text.get());
              const auto number = CF::number(5);
              const CF::Ref<CFStringRef> copy = again;
              const NS::MenuItem item("Item", nullptr, "");
              const auto menu = NS::Menu::make();
              menu.addItem(item);
              const auto queue = dispatch_queue_create("q", nullptr);
              dispatch_async(queue, ^{
                CFStringGetLength(copy.get());
              });
              dispatch_release(queue);
              waitForQueues();
            }),
            Leaks{});
}

TEST(Strictness, FindsNothingInAProgramThatEndsInTheMiddleOfItsWork) {
  EXPECT_EQ(run([] {
              const auto queue = dispatch_queue_create("q", nullptr);
              const auto text = CF::string("a");
              for (int i = 0; i < 3; ++i) {
                dispatch_async(queue, ^{
                  CFStringGetLength(text.get());
                  std::this_thread::sleep_for(20ms);
                });
              }
              dispatch_async(dispatch_get_main_queue(), ^{
                CFStringGetLength(text.get());
              });
              dispatch_release(queue);
              waitForQueues();
            }),
            Leaks{});
}

TEST(Strictness, CountsWhatIsLeftBehind) {
  EXPECT_EQ(run([] {
              makeString();
              CFRetain(CF::string("b").get());
              CFRetain(CF::number(7).get());
              dispatch_queue_create("q", nullptr);
            }),
            (Leaks{{"CFString", 2}, {"CFNumber", 1}, {"dispatch queue", 1}}));
}

TEST(Strictness, CountsIteratorsAndEntries) {
  EXPECT_EQ(run([] {
              const io_registry_entry_t root = IORegistryGetRootEntry(kIOMainPortDefault);
              io_iterator_t iterator = IO_OBJECT_NULL;
              IORegistryEntryCreateIterator(root, kIOServicePlane, kIORegistryIterateRecursively, &iterator);
              IOIteratorNext(iterator);
            }),
            (Leaks{{"I/O iterator", 1}, {"I/O registry entry", 2}}));
}

TEST(Strictness, CountsTapsAndRepeatingTimers) {
  EXPECT_EQ(run([] {
              CGEventTapCreate(
                  kCGSessionEventTap, kCGHeadInsertEventTap, kCGEventTapOptionDefault, CGEventMaskBit(kCGEventKeyDown),
                  [](CGEventTapProxy, CGEventType, CGEventRef event, void*) { return event; }, nullptr);
              // The run loop holds it until it is invalidated.
              const auto timer = CF::adopt(CFRunLoopTimerCreateWithHandler(kCFAllocatorDefault, 2, 2, 0, 0,
                                                                           ^(CFRunLoopTimerRef){
                                                                           }));
              CFRunLoopAddTimer(CFRunLoopGetMain(), timer.get(), kCFRunLoopCommonModes);
            }),
            (Leaks{{"event tap", 1}, {"CFMachPort", 1}, {"timer", 1}}));
}

TEST(Strictness, IteratorEndsWhenTheRegistryChangesAndBeginsAnewWhenItIsReset) {
  EXPECT_EQ(run([] {
              auto& registry = simulator::Call::unguarded().part<simulator::Registry>();
              const auto fill = [&registry](const std::vector<std::string>& names) {
                std::vector<std::shared_ptr<const simulator::RegistryEntry>> entries;
                for (const std::string& name : names) {
                  auto entry = std::make_shared<simulator::RegistryEntry>();
                  entry->name = name;
                  entries.push_back(std::move(entry));
                }
                registry.replaceAll(std::move(entries));
              };
              fill({"A", "B"});
              const IO::Object root(IORegistryGetRootEntry(kIOMainPortDefault));
              io_iterator_t made = IO_OBJECT_NULL;
              IORegistryEntryCreateIterator(root.get(), kIOServicePlane, kIORegistryIterateRecursively, &made);
              const IO::Object iterator(made);
              const auto next = [&iterator]() -> std::string {
                const IO::Object entry(IOIteratorNext(iterator.get()));
                if (!entry) return "";
                io_name_t name = {};
                IORegistryEntryGetName(entry.get(), name);
                return name;
              };
              EXPECT_EQ(next(), "A");
              EXPECT_TRUE(IOIteratorIsValid(iterator.get()));
              fill({"A", "B", "C"});
              EXPECT_EQ(next(), "");
              EXPECT_FALSE(IOIteratorIsValid(iterator.get()));
              IOIteratorReset(iterator.get());
              for (const char* const name : {"A", "B", "C", ""}) EXPECT_EQ(next(), name);
              EXPECT_TRUE(IOIteratorIsValid(iterator.get()));
              IOIteratorReset(iterator.get());
              EXPECT_EQ(next(), "A");
            }),
            Leaks{});
}

TEST(Strictness, StopsAtATapThatIsRemovedInItsOwnCallback) {
  expectFatal(
      [] {
        static CFMachPortRef tap = nullptr;
        tap = CGEventTapCreate(
            kCGSessionEventTap, kCGHeadInsertEventTap, kCGEventTapOptionDefault, CGEventMaskBit(kCGEventKeyDown),
            [](CGEventTapProxy, CGEventType, CGEventRef event, void*) {
              CFMachPortInvalidate(tap);
              return event;
            },
            nullptr);
        const auto source = CF::adopt(CFMachPortCreateRunLoopSource(kCFAllocatorDefault, tap, 0));
        CFRunLoopAddSource(CFRunLoopGetMain(), source.get(), kCFRunLoopCommonModes);
        auto& machine = simulator::Call::unguarded();
        machine.part<simulator::EventStream>().send({.type = kCGEventKeyDown});
        machine.part<simulator::RunLoop>().runOnce(simulator::defaultMode);
      },
      "The event tap was removed inside its own callback");
}

TEST(Strictness, StopsAtAReleasedObject) {
  expectFatal(
      [] {
        const CFStringRef text = makeString();
        CFRelease(text);
        CFRelease(text);
      },
      "CFRelease was given a released object");
  expectFatal(
      [] {
        const CFStringRef text = makeString();
        CFRelease(text);
        // New objects do not take the place of the old one.
        std::vector<CF::Ref<CFStringRef>> others;
        for (int i = 0; i < 100; ++i) others.push_back(CF::string("b"));
        CFStringGetLength(text);
      },
      "CFStringGetLength was given a released object");
  expectFatal(
      [] {
        const io_registry_entry_t root = IORegistryGetRootEntry(kIOMainPortDefault);
        IOObjectRelease(root);
        IOObjectRelease(root);
      },
      "IOObjectRelease was given a released I/O object");
  expectFatal([] { CFRelease(nullptr); }, "CFRelease was given no object");
}

TEST(Strictness, StopsAtAnObjectOfAnotherType) {
  expectFatal([] { CFStringGetLength(reinterpret_cast<CFStringRef>(CF::number(1).get())); },
              "CFStringGetLength was given an object of type CFNumber");
}

TEST(Strictness, StopsAtAppKitOffTheMainThread) {
  expectFatal(
      [] {
        const auto queue = dispatch_queue_create("q", nullptr);
        dispatch_async(queue, ^{
          NS::Screen::screens();
        });
        waitForQueues();
      },
      "NSScreen.screens was called off the main thread");
}

TEST(Strictness, StopsAtATextThatIsNoText) {
  const std::string half = "half a character: \xc3";
  const auto expectRefused = [](const std::string& call, const std::function<void()>& body) {
    expectFatal(body, call + ": the text is not UTF-8");
  };
  expectRefused("NSAlert.setMessageText", [&] { NS::Alert::make().setMessageText(half); });
  expectRefused("NSAlert.setInformativeText", [&] { NS::Alert::make().setInformativeText(half); });
  expectRefused("NSAlert.addButtonWithTitle", [&] { NS::Alert::make().addButtonWithTitle(half); });
  expectRefused("NSMenuItem.init", [&] { const NS::MenuItem item(half, nullptr, ""); });
  expectRefused("NSMenuItem.init", [&] { const NS::MenuItem item("", nullptr, half); });
  expectRefused("NSMenuItem.setTitle", [&] { NS::MenuItem::separatorItem().setTitle(half); });
  expectRefused("NSURL.URLWithString", [&] { NS::URL::URLWithString(half, false); });
  const auto defaults = [] { return NS::UserDefaults::standardUserDefaults(); };
  expectRefused("NSUserDefaults.objectForKey", [&] { static_cast<void>(defaults().objectForKey(half)); });
  expectRefused("NSUserDefaults.boolForKey", [&] { static_cast<void>(defaults().boolForKey(half)); });
  expectRefused("NSUserDefaults.setInteger", [&] { defaults().setInteger(1, half); });
  expectRefused("NSUserDefaults.setBool", [&] { defaults().setBool(true, half); });
  expectRefused("CATapDescription.initExcludingProcesses",
                [&] { CA::TapDescription::initExcludingProcesses({}, half, 0); });
  expectRefused("CATapDescription.setName",
                [&] { CA::TapDescription::initExcludingProcesses({}, "", 0).setName(half); });

  EXPECT_TRUE(run([] { NS::Alert::make().setInformativeText("ä😀"); }).empty());
}

TEST(Strictness, StopsAtAnExceptionThatNothingCatches) {
  expectFatal([] { throw std::runtime_error("lost"); }, "The program ended with an uncaught exception: lost");
  expectFatal(
      [] {
        const auto queue = dispatch_queue_create("q", nullptr);
        dispatch_async(queue, ^{
          throw std::runtime_error("lost");
        });
        waitForQueues();
      },
      "The program ended with an uncaught exception: lost");
  expectFatal([] { throwing(7); }, "The program ended with an uncaught exception of an unknown type");
  expectFatal([] { std::abort(); }, "abort\\(\\) was called");
}
