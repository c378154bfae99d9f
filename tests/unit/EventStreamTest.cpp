// The event stream's taps, without Dalvane.
#include <ApplicationServices/ApplicationServices.h>
#include <CoreGraphics/CoreGraphics.h>
#include <IOKit/hidsystem/IOLLEvent.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "platform/CF.h"
#include "simulator/desktop/EventStream.h"
#include "simulator/foundation/RunLoop.h"
#include "simulator/kernel/Call.h"
#include "tests/support/Program.h"

using namespace std::chrono_literals;

namespace {

using Seen = std::vector<std::string>;

// A tap of the program that notes what it sees, passes it on, and takes its time.
class NotingTap {
 public:
  NotingTap(const char* name, CGEventTapPlacement place, Seen& seen) : name_(name), seen_(seen) {
    const auto callback = [](CGEventTapProxy, CGEventType type, CGEventRef event, void* tap) {
      return static_cast<NotingTap*>(tap)->note(type, event);
    };
    port_ = CF::adopt(CGEventTapCreate(kCGSessionEventTap, place, kCGEventTapOptionDefault,
                                       CGEventMaskBit(NX_SYSDEFINED), callback, this));
    source_ = CF::adopt(CFMachPortCreateRunLoopSource(kCFAllocatorDefault, port_.get(), 0));
    CFRunLoopAddSource(CFRunLoopGetMain(), source_.get(), kCFRunLoopDefaultMode);
  }
  NotingTap(const NotingTap&) = delete;
  NotingTap& operator=(const NotingTap&) = delete;
  ~NotingTap() {
    CFRunLoopRemoveSource(CFRunLoopGetMain(), source_.get(), kCFRunLoopDefaultMode);
    CFMachPortInvalidate(port_.get());
  }

  [[nodiscard]] bool isEnabled() const { return CGEventTapIsEnabled(port_.get()); }

  bool swallows = false;
  std::chrono::milliseconds takes{0};

 private:
  CGEventRef note(CGEventType type, CGEventRef event) {
    seen_.push_back(name_ + (type == kCGEventTapDisabledByTimeout ? " is off" : ""));
    std::this_thread::sleep_for(takes);
    return swallows ? nullptr : event;
  }

  const std::string name_;
  Seen& seen_;
  CF::Ref<CFMachPortRef> port_;
  CF::Ref<CFRunLoopSourceRef> source_;
};

void press() {
  simulator::Call::unguarded().part<simulator::EventStream>().send(
      {.type = NX_SYSDEFINED, .subtype = std::int16_t{8}, .data1 = 0x10A00, .keycode = {}});
}
void runOnce() { simulator::Call::unguarded().part<simulator::RunLoop>().runOnce(simulator::defaultMode); }

}  // namespace

TEST(EventStream, OffersEventsToTheTapsInTheirOrder) {
  Seen seen;
  runAsProgram("", [&seen] {
    NotingTap older("older", kCGHeadInsertEventTap, seen);
    const NotingTap newer("newer", kCGHeadInsertEventTap, seen);
    const NotingTap last("last", kCGTailAppendEventTap, seen);
    press();
    for (int i = 0; i < 3; ++i) runOnce();
    older.swallows = true;
    press();
    for (int i = 0; i < 2; ++i) runOnce();
  });
  EXPECT_EQ(seen, (Seen{"newer", "older", "last", "newer", "older"}));
}

TEST(EventStream, SwitchesATapOffWhoseCallbackTakesTooLong) {
  Seen seen;
  runAsProgram("", [&seen] {
    const NotingTap other("other", kCGTailAppendEventTap, seen);
    NotingTap tap("tap", kCGHeadInsertEventTap, seen);
    tap.swallows = true;
    tap.takes = 900ms;
    press();
    runOnce();
    EXPECT_TRUE(tap.isEnabled());
    tap.takes = 1100ms;
    press();
    runOnce();
    EXPECT_FALSE(tap.isEnabled());
    EXPECT_TRUE(other.isEnabled());
    tap.takes = 0ms;
    runOnce();
    press();  // it does not see it any more
    runOnce();
    EXPECT_FALSE(tap.isEnabled());
  });
  EXPECT_EQ(seen, (Seen{"tap", "tap", "tap is off", "other"}));
}
