// The tap without the rest of the program.
#include <IOKit/hidsystem/IOLLEvent.h>
#include <dispatch/dispatch.h>
#include <gtest/gtest.h>

#include <chrono>
#include <thread>
#include <vector>

#include "app/MediaKeyTap.h"
#include "simulator/desktop/EventStream.h"
#include "simulator/foundation/RunLoop.h"
#include "simulator/kernel/Call.h"
#include "simulator/mac/Mac.h"
#include "tests/support/Lines.h"
#include "tests/support/Program.h"

using namespace lines;

namespace {

MediaKeyTap::Handler takesNothing() {
  return [](MediaKey, bool, bool) { return false; };
}

void ignore() {}

void runOnce() { simulator::Call::unguarded().part<simulator::RunLoop>().runOnce(simulator::defaultMode); }

}  // namespace

TEST(MediaKeyTap, IsInstalledOnceHoweverOftenItIsStarted) {
  const Played played = runAsProgram("", [] {
    MediaKeyTap tap(takesNothing(), ignore);
    tap.stop();
    EXPECT_TRUE(tap.start());
    EXPECT_TRUE(tap.start());
    tap.stop();
    tap.stop();
    EXPECT_TRUE(tap.start());
    tap.stop();
  });
  EXPECT_EQ(played.calls("CGEventTapCreate").size(), 2U);
  EXPECT_EQ(played.calls("CFMachPortInvalidate").size(), 2U);
  EXPECT_TRUE(played.of("leak").empty());
}

TEST(MediaKeyTap, IsNotStartedWithoutThePermission) {
  const Played played = runAsProgram(accessibility(false), [] {
    MediaKeyTap tap(takesNothing(), ignore);
    EXPECT_FALSE(tap.start());
    EXPECT_FALSE(tap.isDead());
  });
  EXPECT_TRUE(played.of("leak").empty());
}

TEST(MediaKeyTap, IsDeadOnceThePermissionWasTakenAway) {
  runAsProgram("", [] {
    auto& events = simulator::Call::unguarded().part<simulator::EventStream>();
    MediaKeyTap tap(takesNothing(), ignore);
    EXPECT_FALSE(tap.isDead());
    tap.start();
    EXPECT_FALSE(tap.isDead());
    events.permissionLost();
    EXPECT_TRUE(tap.isDead());
    // Switching it on again does not help.
    events.disableTaps(kCGEventTapDisabledByTimeout);
    runOnce();
    EXPECT_TRUE(tap.isDead());
    tap.stop();
    EXPECT_FALSE(tap.isDead());
    tap.start();
    EXPECT_FALSE(tap.isDead());
    tap.stop();
  });
}

TEST(MediaKeyTap, OffersKeysWithTheirFlags) {
  std::vector<MediaKeyEvent> offered;
  const Played played = runAsProgram("", [&offered] {
    auto& events = simulator::Call::unguarded().part<simulator::EventStream>();
    MediaKeyTap tap(
        [&offered](MediaKey key, bool isPressed, bool isRepeat) {
          offered.push_back({key, isPressed, isRepeat});
          return key == MediaKey::mute;
        },
        ignore);
    tap.start();
    for (const std::int64_t data1 : {0x00000A00, 0x00010B00, 0x00070A01}) {
      events.send({.type = NX_SYSDEFINED, .subtype = NX_SUBTYPE_AUX_CONTROL_BUTTONS, .data1 = data1});
      runOnce();
    }
    for (const bool isRepeat : {false, true}) {
      events.send({.type = kCGEventKeyDown, .keycode = 145, .autorepeat = isRepeat});
      runOnce();
    }
    tap.stop();
  });
  EXPECT_EQ(offered, (std::vector<MediaKeyEvent>{{MediaKey::volumeUp, true, false},
                                                 {MediaKey::volumeDown, false, false},
                                                 {MediaKey::mute, true, true},
                                                 {MediaKey::brightnessDown, true, false},
                                                 {MediaKey::brightnessDown, true, true}}));
  EXPECT_EQ(played.swallowed(), (std::vector<bool>{false, false, true, false, false}));
}

TEST(MediaKeyTapDeathTest, StopsOffTheMainThread) {
  const auto body = [] {
    MediaKeyTap tap(takesNothing(), ignore);
    tap.start();
    simulator::Call::unguarded().part<simulator::EventStream>().send({.type = kCGEventKeyDown, .keycode = 144});
    dispatch_async(dispatch_get_global_queue(QOS_CLASS_DEFAULT, 0), ^{
      runOnce();
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    tap.stop();
  };
  EXPECT_EXIT(runStrictly(body), testing::ExitedWithCode(1), "dispatch_assert_queue");
}

TEST(MediaKeyTap, TellsThatItWasSwitchedOffAfterItIsOnAgain) {
  const Played played = runAsProgram("", [] {
    auto& machine = simulator::Call::unguarded();
    int told = 0;
    MediaKeyTap tap(takesNothing(), [&] {
      ++told;
      EXPECT_FALSE(tap.isDead());
    });
    tap.start();
    machine.part<simulator::EventStream>().disableTaps(kCGEventTapDisabledByUserInput);
    EXPECT_TRUE(tap.isDead());
    runOnce();
    EXPECT_EQ(told, 1);
    tap.stop();
  });
  EXPECT_EQ(played.calls("CGEventTapEnable").size(), 1U);
}
