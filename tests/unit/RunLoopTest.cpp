// The main thread's run loop and queue around alerts, and the clocks that waits count on. The programs here are small
// ones that do nothing else.
#include <CoreFoundation/CoreFoundation.h>
#include <dispatch/dispatch.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/Alert.h"
#include "platform/Application.h"
#include "platform/CF.h"
#include "platform/Menu.h"
#include "platform/NotificationCenter.h"
#include "simulator/kernel/Call.h"
#include "tests/support/Lines.h"
#include "tests/support/Program.h"
#include "tests/support/Seat.h"

using nlohmann::json;
using namespace lines;

namespace {

using Events = std::vector<std::string>;

void onMainQueue(void (^block)()) { dispatch_async(dispatch_get_main_queue(), block); }

void onRunLoop(CFRunLoopMode mode, void (^block)()) {
  CFRunLoopPerformBlock(CFRunLoopGetMain(), mode, block);
  CFRunLoopWakeUp(CFRunLoopGetMain());
}

void afterSeconds(std::int64_t seconds, void (^block)()) {
  dispatch_after(dispatch_time(DISPATCH_TIME_NOW, seconds * static_cast<std::int64_t>(NSEC_PER_SEC)),
                 dispatch_get_main_queue(), block);
}

CF::Ref<CFRunLoopTimerRef> everySecond(CFRunLoopMode mode, void (^handler)()) {
  auto timer = CF::adopt(CFRunLoopTimerCreateWithHandler(kCFAllocatorDefault, CFAbsoluteTimeGetCurrent() + 1, 1, 0, 0,
                                                         ^(CFRunLoopTimerRef) {
                                                           handler();
                                                         }));
  CFRunLoopAddTimer(CFRunLoopGetMain(), timer.get(), mode);
  return timer;
}

void showAlert(const char* message = "Alert") {
  const NS::Alert alert = NS::Alert::make();
  alert.setMessageText(message);
  alert.addButtonWithTitle("First");
  alert.addButtonWithTitle("Second");
  static_cast<void>(alert.runModal());
}

constexpr std::uint64_t seeds = 20;

}  // namespace

// ---- Alerts around the main queue ----

TEST(MainQueue, WaitsForABlockOfItsOwnThatShowsAnAlert) {
  WITH_SEEDS(seed, seeds) {
    Events events;
    Events* const seen = &events;
    Seat seat(application([seen] {
                onMainQueue(^{
                  seen->push_back("asks");
                  showAlert();
                  seen->push_back("answered");
                });
                onMainQueue(^{
                  seen->push_back("next");
                });
              }),
              seed);
    seat.play(leaveNextAlertOpen + launch + settle + advance(100));
    EXPECT_EQ(events, Events{"asks"});
    seat.play(answer("First"));
    EXPECT_EQ(events, (Events{"asks", "answered", "next"}));
    EXPECT_TRUE(seat.shutDown());
  }
}

TEST(MainQueue, GoesOnDuringAnAlertThatTheRunLoopShows) {
  WITH_SEEDS(seed, seeds) {
    Events events;
    Events* const seen = &events;
    Seat seat(application([seen] {
                onRunLoop(kCFRunLoopDefaultMode, ^{
                  showAlert();
                  seen->push_back("answered");
                });
                afterSeconds(1, ^{
                  seen->push_back("block");
                });
              }),
              seed);
    seat.play(leaveNextAlertOpen + launch + settle);
    EXPECT_EQ(events, Events{"block"});
    seat.play(answer("Second"));
    EXPECT_EQ(events, (Events{"block", "answered"}));
    EXPECT_TRUE(seat.shutDown());
  }
}

TEST(MainQueue, HoldsNotificationsBackDuringItsOwnAlert) {
  WITH_SEEDS(seed, seeds) {
    Events events;
    Events* const seen = &events;
    NS::Object token;
    NS::Object* const kept = &token;
    Seat seat(application(
                  [seen, kept] {
                    *kept = NS::Workspace::sharedWorkspace().notificationCenter().addObserverForName(
                        NS::WorkspaceDidWakeNotification(), ^{
                          seen->push_back("awake");
                        });
                    onMainQueue(^{
                      showAlert();
                      seen->push_back("answered");
                    });
                  },
                  [kept] {
                    NS::Workspace::sharedWorkspace().notificationCenter().removeObserver(*kept);
                    *kept = {};
                  }),
              seed);
    seat.play(leaveNextAlertOpen + launch + settle + wake + settle);
    EXPECT_EQ(events, Events{});
    seat.play(answer("First"));
    EXPECT_EQ(events, (Events{"answered", "awake"}));
    EXPECT_TRUE(seat.shutDown());
  }
}

TEST(MainQueue, GoesOnWhileTheMenuIsOpen) {
  Events events;
  Events* const seen = &events;
  NS::StatusItem item;
  NS::StatusItem* const kept = &item;
  Seat seat(application(
                [seen, kept] {
                  const NS::Menu menu = NS::Menu::make();
                  *kept = NS::StatusBar::systemStatusBar().statusItemWithLength(NS::SquareStatusItemLength);
                  kept->setMenu(menu);
                  afterSeconds(1, ^{
                    seen->push_back("block");
                  });
                },
                [kept] { *kept = {}; }),
            1);
  seat.play(launch + menu(true) + settle);
  EXPECT_TRUE(seat.snapshot()["menu"].is_array());
  EXPECT_EQ(events, Events{"block"});
  EXPECT_TRUE(seat.shutDown());
}

// ---- The run loop's blocks ----

TEST(RunLoop, ABlockWaitsForItsMode) {
  WITH_SEEDS(seed, seeds) {
    Events events;
    Events* const seen = &events;
    Seat seat(application([seen] {
                onRunLoop(kCFRunLoopDefaultMode, ^{
                  onRunLoop(kCFRunLoopDefaultMode, ^{
                    seen->push_back("default");
                  });
                  onRunLoop(kCFRunLoopCommonModes, ^{
                    seen->push_back("common");
                  });
                  showAlert();
                });
              }),
              seed);
    seat.play(leaveNextAlertOpen + launch + settle);
    EXPECT_EQ(events, Events{"common"});
    seat.play(answer("First"));
    EXPECT_EQ(events, (Events{"common", "default"}));
    EXPECT_TRUE(seat.shutDown());
  }
}

TEST(RunLoop, BlocksAreDoneInTurn) {
  WITH_SEEDS(seed, seeds) {
    Events events;
    Events* const seen = &events;
    Seat seat(application([seen] {
                onRunLoop(kCFRunLoopDefaultMode, ^{
                  showAlert("one");
                  seen->push_back("one");
                });
                onRunLoop(kCFRunLoopDefaultMode, ^{
                  seen->push_back("two");
                });
                // Taken up together with the first, and so held up by it, though it could be done meanwhile.
                onRunLoop(kCFRunLoopCommonModes, ^{
                  seen->push_back("three");
                });
              }),
              seed);
    seat.play(leaveNextAlertOpen + launch + settle);
    EXPECT_EQ(events, Events{});
    seat.play(answer("First"));
    EXPECT_EQ(events, (Events{"one", "two", "three"}));
    EXPECT_TRUE(seat.shutDown());
  }
}

TEST(RunLoop, ABlockAloneDoesNotWakeItUp) {
  for (const bool wakes : {false, true}) {
    Events events;
    Events* const seen = &events;
    Seat seat(application([seen, wakes] {
                CFRunLoopPerformBlock(CFRunLoopGetMain(), kCFRunLoopDefaultMode, ^{
                  seen->push_back("block");
                });
                if (wakes) CFRunLoopWakeUp(CFRunLoopGetMain());
                afterSeconds(60, ^{
                  seen->push_back("other");
                });
              }),
              1);
    seat.play(launch + advance(59));
    EXPECT_EQ(events, wakes ? Events{"block"} : Events{});
    seat.play(advance(1));
    EXPECT_EQ(events, wakes ? (Events{"block", "other"}) : (Events{"other", "block"}));
    EXPECT_TRUE(seat.shutDown());
  }
}

TEST(RunLoop, BlocksThatAreLeftAreGivenBack) {
  Seat seat(application([] {
              const auto text = CF::string("kept by a block");
              CFRunLoopPerformBlock(CFRunLoopGetMain(), kCFRunLoopDefaultMode, ^{
                CFStringGetLength(text.get());
              });
              CFRunLoopPerformBlock(CFRunLoopGetMain(), kCFRunLoopDefaultMode, ^{
                showAlert();
                CFStringGetLength(text.get());
              });
            }),
            1);
  seat.play(leaveNextAlertOpen + launch + settle);
  EXPECT_TRUE(seat.shutDown());
}

TEST(RunLoop, TimersFireInTheirModes) {
  WITH_SEEDS(seed, seeds) {
    int inDefault = 0;
    int inCommon = 0;
    int* const defaults = &inDefault;
    int* const commons = &inCommon;
    std::vector<CF::Ref<CFRunLoopTimerRef>> timers;
    auto* const kept = &timers;
    Seat seat(application(
                  [=] {
                    kept->push_back(everySecond(kCFRunLoopDefaultMode, ^{
                      ++*defaults;
                    }));
                    kept->push_back(everySecond(kCFRunLoopCommonModes, ^{
                      ++*commons;
                    }));
                    onMainQueue(^{
                      showAlert();
                    });
                  },
                  [=] {
                    for (const auto& timer : *kept) CFRunLoopTimerInvalidate(timer.get());
                    kept->clear();
                  }),
              seed);
    seat.play(leaveNextAlertOpen + launch + advance(10.5));
    EXPECT_EQ(inDefault, 0);
    EXPECT_EQ(inCommon, 10);
    seat.play(answer("First") + advance(1));
    EXPECT_EQ(inDefault, 2);  // once for all the times that it missed, and then as usual
    EXPECT_EQ(inCommon, 11);
    EXPECT_TRUE(seat.shutDown());
  }
}

// ---- The user in front of an alert ----

TEST(OpenAlert, StandsUntilItIsAnswered) {
  Seat seat(application([] {
              onRunLoop(kCFRunLoopDefaultMode, ^{
                showAlert("Which?");
              });
              onRunLoop(kCFRunLoopDefaultMode, ^{
                showAlert("And now?");
              });
            }),
            1);
  seat.play(leaveNextAlertOpen + launch + settle);
  EXPECT_EQ(seat.snapshot()["alert"],
            json::parse(R"({"message":"Which?","informative":"","buttons":["First","Second"]})"));
  auto records = seat.takeRecords();
  ASSERT_EQ(recordsOf(records, "alert").size(), 1U);
  EXPECT_EQ(recordsOf(records, "alert")[0]["answer"], nullptr);
  EXPECT_TRUE(recordsOf(records, "answer").empty());

  seat.play(answer("Second") + settle);
  records = seat.takeRecords();
  ASSERT_EQ(recordsOf(records, "answer").size(), 1U);
  EXPECT_EQ(recordsOf(records, "answer")[0]["message"], "Which?");
  EXPECT_EQ(recordsOf(records, "answer")[0]["button"], "Second");
  // Nobody said anything about the next one: its first button was pressed.
  ASSERT_EQ(recordsOf(records, "alert").size(), 1U);
  EXPECT_EQ(recordsOf(records, "alert")[0]["answer"], "First");
  EXPECT_EQ(seat.snapshot()["alert"], nullptr);
  EXPECT_TRUE(seat.shutDown());
}

TEST(OpenAlert, TheNextOneCanBeLeftOpenToo) {
  Seat seat(application([] {
              onRunLoop(kCFRunLoopDefaultMode, ^{
                showAlert("one");
              });
              onRunLoop(kCFRunLoopDefaultMode, ^{
                showAlert("two");
              });
            }),
            1);
  seat.play(leaveNextAlertOpen + launch + settle + leaveNextAlertOpen);
  EXPECT_EQ(seat.snapshot()["alert"]["message"], "one");
  seat.play(line("answer"));  // the first button
  EXPECT_EQ(seat.snapshot()["alert"]["message"], "two");
  EXPECT_EQ(recordsOf(seat.takeRecords(), "answer")[0]["button"], "First");
  EXPECT_TRUE(seat.shutDown());  // which closes the second one
  const auto records = seat.takeRecords();
  EXPECT_EQ(recordsOf(records, "answer")[0]["button"], "Second");
  EXPECT_EQ(recordsOf(records, "exit").size(), 1U);
}

TEST(OpenAlert, HasTheButtonsThatItHas) {
  Seat seat(application([] {
              onRunLoop(kCFRunLoopDefaultMode, ^{
                showAlert();
              });
            }),
            1);
  seat.play(leaveNextAlertOpen + launch + settle);
  EXPECT_THROW(seat.play(answer("Third")), simulator::ScenarioError);
  EXPECT_EQ(seat.snapshot()["alert"]["message"], "Alert");
  EXPECT_TRUE(seat.shutDown());
}

TEST(OpenAlert, KeepsTheApplicationFromEnding) {
  WITH_SEEDS(seed, seeds) {
    bool told = false;
    bool* const seen = &told;
    Seat seat(application(
                  [] {
                    onRunLoop(kCFRunLoopDefaultMode, ^{
                      showAlert();
                    });
                    afterSeconds(1, ^{
                      NS::Application::sharedApplication().terminate();
                    });
                  },
                  [seen] { *seen = true; }),
              seed);
    seat.play(leaveNextAlertOpen + launch + settle);
    auto records = seat.takeRecords();
    ASSERT_EQ(callsOf(records, "NSApplication.terminate").size(), 1U);
    EXPECT_EQ(callsOf(records, "NSApplication.terminate")[0]["status"], -128);
    seat.play(quit + settle);
    EXPECT_EQ(callsOf(seat.takeRecords(), "NSApplication.terminate").size(), 1U);
    EXPECT_EQ(seat.snapshot()["running"], true);
    EXPECT_FALSE(told);
    seat.play(answer("First") + quit);
    EXPECT_TRUE(told);
    EXPECT_EQ(seat.snapshot()["running"], false);
    EXPECT_TRUE(seat.shutDown());
  }
}

TEST(OpenAlert, GoesWithAProgramThatIsEnded) {
  Seat seat(application([] {
              onRunLoop(kCFRunLoopDefaultMode, ^{
                showAlert();
              });
            }),
            1);
  seat.play(leaveNextAlertOpen + launch + settle);
  seat.machine().process.kill();
  EXPECT_EQ(seat.snapshot()["alert"], nullptr);
  seat.play(leaveNextAlertOpen + launch + settle);
  EXPECT_EQ(seat.snapshot()["alert"]["message"], "Alert");
  EXPECT_TRUE(seat.shutDown());
}

// ---- The clocks ----

namespace {

// The times at which two waits of ten seconds ended, by uptime and by the wall clock.
struct Waits {
  double uptime = 0;
  double wall = 0;
};

Waits waits(const std::string& meanwhile) {
  Waits ended;
  Waits* const seen = &ended;
  const auto now = [] { return std::chrono::duration<double>(simulator::Call::unguarded().scheduler.now()).count(); };
  constexpr auto tenSeconds = static_cast<std::int64_t>(10 * NSEC_PER_SEC);
  Seat seat(application([=] {
              dispatch_after(dispatch_time(DISPATCH_TIME_NOW, tenSeconds), dispatch_get_main_queue(), ^{
                seen->uptime = now();
              });
              dispatch_after(dispatch_walltime(nullptr, tenSeconds), dispatch_get_main_queue(), ^{
                seen->wall = now();
              });
              dispatch_after(DISPATCH_TIME_FOREVER, dispatch_get_main_queue(), ^{
                ADD_FAILURE() << "for ever is over";
              });
            }),
            1);
  seat.play(launch + advance(5) + meanwhile + advance(10000));
  EXPECT_TRUE(seat.shutDown());
  return ended;
}

}  // namespace

TEST(Clocks, PartWhenTheMacSleeps) {
  EXPECT_EQ(waits("").uptime, 10);
  EXPECT_EQ(waits("").wall, 10);
  EXPECT_EQ(waits(macSleeps(3)).uptime, 13);
  EXPECT_EQ(waits(macSleeps(3)).wall, 10);
  EXPECT_EQ(waits(macSleeps(3600)).uptime, 3610);
  EXPECT_EQ(waits(macSleeps(3600)).wall, 3605);  // at once when the Mac wakes
}

TEST(Clocks, TheUserSetsTheOneOnTheWall) {
  EXPECT_EQ(waits(setClockForward(3)).uptime, 10);
  EXPECT_EQ(waits(setClockForward(3)).wall, 7);
  EXPECT_EQ(waits(setClockForward(3600)).wall, 5);
  EXPECT_EQ(waits(setClockForward(-3600)).uptime, 10);
  EXPECT_EQ(waits(setClockForward(-3600)).wall, 3610);
}

TEST(Clocks, ATimerOfTheRunLoopCountsUptime) {
  for (const std::string& meanwhile : {macSleeps(3600), setClockForward(3600), setClockForward(-3600)}) {
    std::vector<double> fired;
    auto* const seen = &fired;
    CF::Ref<CFRunLoopTimerRef> timer;
    auto* const kept = &timer;
    const double slept = meanwhile == macSleeps(3600) ? 3600 : 0;
    Seat seat(application(
                  [=] {
                    *kept = everySecond(kCFRunLoopDefaultMode, ^{
                      const auto now = simulator::Call::unguarded().scheduler.now();
                      seen->push_back(std::chrono::duration<double>(now).count());
                    });
                  },
                  [=] {
                    CFRunLoopTimerInvalidate(kept->get());
                    *kept = {};
                  }),
              1);
    seat.play(launch + advance(1.5) + meanwhile + advance(2));
    EXPECT_EQ(fired, (std::vector<double>{1, slept + 2, slept + 3}));
    EXPECT_TRUE(seat.shutDown());
  }
}
