// Seeds and schedules: who runs next.
#include <gtest/gtest.h>

#include <algorithm>

#include "simulator/kernel/Schedule.h"
#include "simulator/kernel/Scheduler.h"

using namespace std::chrono_literals;
using simulator::Clock;
using simulator::Departure;
using simulator::Scheduler;
using simulator::Seed;
using simulator::Time;

namespace {

// How often `worker`, which is ready from the beginning, is overtaken in a row by two others.
int overtaken(std::uint64_t seed) {
  Scheduler scheduler(Clock::deterministic, seed);
  int waited = 0;
  bool started = false;
  for (const char* const name : {"a", "b"}) {
    scheduler.spawn(name, [&] {
      for (int i = 0; i < 20; ++i) {
        if (!started) ++waited;
        scheduler.preempt();
      }
    });
  }
  scheduler.spawn("worker", [&] { started = true; });
  scheduler.runReady();
  return waited;
}

// The order in which three threads run that each offer to be preempted once.
std::string order(const Seed& seed) {
  Scheduler scheduler(Clock::deterministic, seed);
  std::string text;
  for (const char name : {'a', 'b', 'c'}) {
    scheduler.spawn({name}, [&scheduler, &text, name] {
      text += name;
      scheduler.preempt();
      text += name;
    });
  }
  scheduler.runReady();
  return text;
}

Seed departing(std::vector<Departure> departures) {
  Seed seed;
  seed.departures = std::move(departures);
  return seed;
}

}  // namespace

TEST(Seed, IsANumberOrTheDeparturesThemselves) {
  EXPECT_EQ(Seed::parse("7")->number, 7U);
  EXPECT_FALSE(Seed::parse("7")->departures);
  EXPECT_EQ(Seed::parse("18446744073709551615")->number, UINT64_MAX);
  EXPECT_EQ(Seed::parse("@")->departures, std::vector<Departure>());
  EXPECT_EQ(Seed::parse("@12:1,57:2")->departures, (std::vector<Departure>{{12, 1}, {57, 2}}));
  for (const char* const text : {"7", "@", "@12:1", "@12:1,57:2"}) EXPECT_EQ(Seed::parse(text)->text(), text);
  for (const char* const text : {"", "x", "7x", "-1", "18446744073709551616", "@1", "@1:", "@:1", "@1:1,", "@1:1 2:1",
                                 "@2:1,1:1", "@1:1,1:1", "@x"}) {
    EXPECT_FALSE(Seed::parse(text)) << text;
  }
}

TEST(Schedule, PlainlyAThreadRunsUntilItBlocksAndTheOthersFollowInTheirOrder) {
  EXPECT_EQ(order(departing({})), "aabbcc");
}

TEST(Schedule, DepartsWhereItIsTold) {
  EXPECT_EQ(order(departing({{0, 2}})), "ccaabb");          // who begins
  EXPECT_EQ(order(departing({{1, 1}})), "abbcca");          // a is preempted; it is ready behind c
  EXPECT_EQ(order(departing({{1, 2}, {2, 1}})), "acbbac");  // and so is c, for a
  EXPECT_EQ(order(departing({{0, 99}})), "ccaabb");         // the last possibility there is
  EXPECT_EQ(order(departing({{1000, 1}})), "aabbcc");       // never comes to it
}

TEST(Schedule, TellsHowManyPossibilitiesEachChoiceHad) {
  Scheduler scheduler(Clock::deterministic, departing({}));
  for (int i = 0; i < 3; ++i) scheduler.spawn("t", [&scheduler] { scheduler.preempt(); });
  scheduler.runReady();
  // Who begins, whether it goes on, who follows, whether that goes on; the last one has no choice.
  EXPECT_EQ(scheduler.choices(), (std::vector<std::uint32_t>{3, 3, 2, 2}));
}

TEST(Schedule, ByPrioritiesAThreadCanWaitForLong) {
  int uniform = 0;
  int byPriorities = 0;
  for (std::uint64_t seed = 1; seed <= 2000; ++seed) {
    int& count = seed % 2 == 0 ? byPriorities : uniform;
    if (overtaken(seed) >= 16) ++count;
  }
  EXPECT_LT(uniform, 20);         // at even odds it hardly ever waits for 16 others
  EXPECT_GT(byPriorities, 200);   // here many wait until both others are all but done
  EXPECT_LT(byPriorities, 1000);  // and not always
}

TEST(Schedule, ByPrioritiesARunningThreadFallsBehindNowAndThen) {
  // Both of two threads run on and on: that one is interrupted takes a change of priorities in the middle.
  int interrupted = 0;
  for (std::uint64_t seed = 2; seed <= 200; seed += 2) {
    Scheduler scheduler(Clock::deterministic, seed);
    std::string text;
    for (const char name : {'a', 'b'}) {
      scheduler.spawn({name}, [&scheduler, &text, name] {
        for (int i = 0; i < 8; ++i) {
          text += name;
          scheduler.preempt();
        }
      });
    }
    scheduler.runReady();
    if (text != "aaaaaaaabbbbbbbb" && text != "bbbbbbbbaaaaaaaa") ++interrupted;
  }
  EXPECT_GT(interrupted, 20);
  EXPECT_LT(interrupted, 95);
}

TEST(Schedule, AThreadThatWaitsWithoutBlockingLetsTheOthersThrough) {
  for (std::uint64_t seed = 1; seed <= 50; ++seed) {
    Scheduler scheduler(Clock::deterministic, seed);
    bool done = false;
    scheduler.spawn("waiting", [&] {
      while (!done) scheduler.yield();
    });
    scheduler.spawn("working", [&] {
      for (int i = 0; i < 10; ++i) scheduler.preempt();
      done = true;
    });
    scheduler.runReady();
    EXPECT_TRUE(done);
  }
}

TEST(Schedule, OnARoughMachineTimeOvertakesThreadsThatAreReady) {
  int overtakes = 0;
  for (std::uint64_t seed = 1; seed <= 200; ++seed) {
    Scheduler scheduler(Clock::deterministic, seed);
    scheduler.setRough(true);
    Time ran{-1};
    scheduler.spawn("worker", [&] { ran = scheduler.now(); });
    EXPECT_TRUE(scheduler.settle());
    EXPECT_GE(ran, Time(0));
    EXPECT_LT(ran, Time(50ms));
    if (ran > Time(0)) ++overtakes;
  }
  EXPECT_GT(overtakes, 1);
  EXPECT_LT(overtakes, 50);
}
