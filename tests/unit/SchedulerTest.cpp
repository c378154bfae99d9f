#include <gtest/gtest.h>

#include <set>

#include "simulator/kernel/Scheduler.h"

using namespace std::chrono_literals;
using simulator::Clock;
using simulator::Scheduler;
using simulator::Time;
using simulator::Waiting;

TEST(Scheduler, SleepsOnTheMachinesClock) {
  Scheduler scheduler(Clock::deterministic, 1);
  std::vector<Time> woken;
  scheduler.spawn("a", [&] {
    scheduler.sleep(20ms);
    woken.push_back(scheduler.now());
  });
  scheduler.spawn("b", [&] {
    scheduler.sleep(10ms);
    woken.push_back(scheduler.now());
  });
  EXPECT_TRUE(scheduler.settle());
  EXPECT_EQ(woken, (std::vector<Time>{10ms, 20ms}));
  EXPECT_EQ(scheduler.now(), Time(20ms));
}

TEST(Scheduler, SettlesWithoutLongWaitsAndPeriodicTimers) {
  Scheduler scheduler(Clock::deterministic, 1);
  int fired = 0;
  scheduler.after(9s, Waiting::work, [&] { ++fired; });
  scheduler.after(10s, Waiting::work, [&] { fired += 100; });
  scheduler.after(1s, Waiting::background, [&] { fired += 10; });
  EXPECT_TRUE(scheduler.settle());
  EXPECT_EQ(fired, 11);  // the periodic one came due on the way
  EXPECT_EQ(scheduler.now(), Time(9s));
  scheduler.advance(1s);
  EXPECT_EQ(fired, 111);
}

TEST(Scheduler, GivesUpOnAProgramThatNeverRests) {
  Scheduler scheduler(Clock::deterministic, 1);
  scheduler.spawn("busy", [&] {
    for (;;) scheduler.sleep(9s);
  });
  EXPECT_FALSE(scheduler.settle());
}

TEST(Scheduler, ChoosesAmongReadyThreadsByItsSeed) {
  const auto order = [](std::uint64_t seed) {
    Scheduler scheduler(Clock::deterministic, seed);
    std::string text;
    for (const char name : {'a', 'b', 'c', 'd'}) {
      scheduler.spawn({name}, [&scheduler, &text, name] {
        for (int i = 0; i < 3; ++i) {
          text += name;
          scheduler.preempt();
        }
      });
    }
    scheduler.runReady();
    return text;
  };
  std::set<std::string> orders;
  for (std::uint64_t seed = 1; seed <= 50; ++seed) {
    EXPECT_EQ(order(seed), order(seed));
    orders.insert(order(seed));
  }
  EXPECT_GT(orders.size(), 40U);
}

TEST(Scheduler, UnwindsThreadsWhenTheProcessEnds) {
  for (const Clock clock : {Clock::deterministic, Clock::live}) {
    int unwound = 0;
    {
      Scheduler scheduler(clock, 1);
      struct Guard {
        int& count;
        ~Guard() { ++count; }
      };
      scheduler.spawn("sleeper", [&] {
        const Guard guard{unwound};
        scheduler.sleep(1h);
        ADD_FAILURE() << "the thread outlived its process";
      });
      scheduler.runReady();
    }
    EXPECT_EQ(unwound, 1);
  }
}

TEST(Scheduler, LetsOneThreadInitialiseAStaticThatOthersNeed) {
  for (const Clock clock : {Clock::deterministic, Clock::live}) {
    struct Made {
      Made(Scheduler& scheduler, int& count) {
        for (int i = 0; i < 5; ++i) scheduler.preempt();
        ++count;
      }
    };
    int made = 0;
    Scheduler scheduler(clock, 1);
    const auto use = [&](auto which) {
      static const Made object(scheduler, made);
      return which;
    };
    for (int i = 0; i < 3; ++i) {
      scheduler.spawn("user", [&] {
        if (clock == Clock::live) {
          use(1);
        } else {
          use(1.0);  // a static of its own
        }
      });
    }
    scheduler.runReady();
    EXPECT_EQ(made, 1);
  }
}
