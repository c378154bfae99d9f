// The main thread: its run loop's timers and blocks, and the main queue.
#include <CoreFoundation/CoreFoundation.h>
#include <dispatch/dispatch.h>

#include <string>
#include <vector>

#include "platform/CF.h"
#include "tests/conformance/Machine.h"

namespace {

using Events = std::vector<std::string>;

void onMainQueue(void (^block)()) { dispatch_async(dispatch_get_main_queue(), block); }

}  // namespace

CLAIM(MainQueue, IsServedByTheRunLoop, "What is handed to the main queue is done on the main thread, by its run loop.",
      "dispatch/queue.h, dispatch_get_main_queue") {
  Events events;
  Events* const seen = &events;
  onMainQueue(^{
    dispatch_assert_queue(dispatch_get_main_queue());
    seen->push_back("done");
  });
  EXPECT_EQ(events, Events{});
  EXPECT_TRUE(claims::runUntil([&] { return !events.empty(); }));
}
