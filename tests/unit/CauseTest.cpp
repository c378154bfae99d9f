#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <vector>

#include "simulator/kernel/Scheduler.h"

namespace {

using simulator::Clock;
using simulator::Scheduler;
using simulator::Waiting;
using std::chrono::milliseconds;

class CauseTest : public testing::TestWithParam<std::uint64_t> {
 protected:
  Scheduler scheduler{Clock::deterministic, GetParam()};
  std::vector<std::uint64_t> seen;
  void note() { seen.push_back(scheduler.cause()); }
};

TEST_P(CauseTest, ATimerGoesBackToWhoSetIt) {
  scheduler.setCause(1);
  scheduler.after(milliseconds(20), Waiting::work, [this] { note(); });
  scheduler.setCause(2);
  scheduler.after(milliseconds(10), Waiting::work, [this] {
    note();
    scheduler.after(milliseconds(30), Waiting::work, [this] { note(); });
  });
  scheduler.setCause(3);
  scheduler.advance(milliseconds(100));
  EXPECT_EQ(seen, (std::vector<std::uint64_t>{2, 1, 2}));
}

TEST_P(CauseTest, AThreadGoesBackToWhoStartedItAndThenToWhoWokeIt) {
  Scheduler::Thread* sleeper = nullptr;
  scheduler.setCause(1);
  scheduler.spawn("sleeper", [&] {
    sleeper = Scheduler::current();
    note();
    scheduler.block();
    note();
  });
  scheduler.runReady();
  scheduler.setCause(2);
  scheduler.spawn("waker", [&] {
    scheduler.sleep(milliseconds(5));
    scheduler.makeReady(sleeper);
  });
  scheduler.runReady();
  scheduler.setCause(3);
  scheduler.runReady();
  scheduler.advance(milliseconds(10));
  EXPECT_EQ(seen, (std::vector<std::uint64_t>{1, 2}));
}

INSTANTIATE_TEST_SUITE_P(Seeds, CauseTest, testing::Values(1, 2, 3, 4));

}  // namespace
