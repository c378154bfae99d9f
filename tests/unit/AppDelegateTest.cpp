// The delegate before and after its time.
#include <gtest/gtest.h>

#include <chrono>
#include <memory>

#include "app/AppDelegate.h"
#include "simulator/desktop/EventStream.h"
#include "simulator/foundation/RunLoop.h"
#include "simulator/kernel/Call.h"
#include "simulator/mac/Mac.h"
#include "tests/support/Lines.h"
#include "tests/support/Program.h"
#include "tests/support/Seat.h"

using namespace lines;
using namespace std::chrono_literals;

namespace {

template <typename Part>
Part& part() {
  return simulator::Call::unguarded().part<Part>();
}

}  // namespace

// As when the user logs out in that moment.
TEST(AppDelegate, MayEndBeforeItHasLaunched) {
  const Played played = runAsProgram(twoDisplays, [] {
    const auto delegate = std::make_shared<AppDelegate>();
    delegate->applicationWillTerminate();
    delegate->applicationWillTerminate();
  });
  EXPECT_EQ(played.status, 0);
  EXPECT_TRUE(played.of("leak").empty());
}

TEST(AppDelegate, IsNotKeptByWhatItWaitsFor) {
  const auto program = [] {
    auto delegate = std::make_shared<AppDelegate>();
    delegate->applicationDidFinishLaunching();
    runLoopFor(1s);
    const std::weak_ptr<AppDelegate> weak = delegate;
    delegate.reset();
    EXPECT_TRUE(weak.expired());
    runLoopFor(20s);
    return 0;
  };
  // Nobody asks for keys any more, and nobody looks for monitors or updates.
  const Played played =
      playScenario(twoDisplays + accessibility(false) + launch + advance(2) + accessibility(true) + wake + advance(15),
                   1, simulator::Clock::deterministic, {.setUp = {}, .program = program});
  EXPECT_EQ(played.calls("CGEventTapCreate").size(), 0U);
  EXPECT_EQ(played.calls("IOAVServiceReadI2C").size(), 1U);
  EXPECT_EQ(played.calls("NSURLSession.dataTaskWithRequest").size(), 0U);
}

// The system has switched the tap off, and nobody has got to it when everything ends.
TEST(AppDelegate, IsNotKeptByATapThatWasSwitchedOff) {
  const Played played = runAsProgram(twoDisplays, [] {
    auto delegate = std::make_shared<AppDelegate>();
    delegate->applicationDidFinishLaunching();
    runLoopFor(1s);
    auto& events = part<simulator::EventStream>();
    events.permissionLost();
    events.disableTaps(kCGEventTapDisabledByTimeout);
    part<simulator::RunLoop>().runOnce(simulator::defaultMode);
    const std::weak_ptr<AppDelegate> weak = delegate;
    delegate->applicationWillTerminate();
    delegate.reset();
    EXPECT_TRUE(weak.expired());
    runLoopFor(1s);
  });
  EXPECT_EQ(played.calls("CGEventTapEnable").size(), 1U);
  EXPECT_EQ(played.calls("CGEventTapCreate").size(), 1U);
  EXPECT_TRUE(played.of("leak").empty());
}

// The poll for the permission, the observer of wakes and the updater's checks hold it weakly.
TEST(AppDelegate, WhatOutlivesItDoesNothing) {
  WITH_SEEDS(seed, 3) {
    Seat seat(application([] { std::make_shared<AppDelegate>()->applicationDidFinishLaunching(); }), seed);
    seat.play(accessibility(false) + launch + accessibility(true) + wake + advance(30));
    const auto records = seat.takeRecords();
    for (const auto& log : recordsOf(records, "log")) EXPECT_NE(log["text"], "Media key tap installed");
    EXPECT_EQ(seat.snapshot()["running"], true);
  }
}
