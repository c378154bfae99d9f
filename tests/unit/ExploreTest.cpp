// Every schedule of a small program.
#include <dispatch/dispatch.h>
#include <gtest/gtest.h>
#include <os/lock.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <thread>

#include "base/Assertions.h"
#include "desk/Explore.h"

namespace {

// Two queues count up, each with a look and a change of its own; somebody can come in between.
int racingProgram() {
  static int count;
  static int finished;
  count = finished = 0;
  const auto countUp = [] {
    os_unfair_lock lock = OS_UNFAIR_LOCK_INIT;  // calls of the platform are where threads can be preempted
    const int seen = count;
    os_unfair_lock_lock(&lock);
    os_unfair_lock_unlock(&lock);
    count = seen + 1;
    if (++finished == 2 && count != 2) fatalError("a count was lost");
  };
  const dispatch_queue_t queues[] = {dispatch_queue_create("one", nullptr), dispatch_queue_create("two", nullptr)};
  for (const dispatch_queue_t queue : queues) {
    dispatch_async(queue, ^{
      countUp();
    });
  }
  std::this_thread::sleep_for(std::chrono::seconds(1));
  for (const dispatch_queue_t queue : queues) dispatch_release(queue);
  return 0;
}

struct Explored {
  int status;
  std::string out;
  std::string errors;
};

Explored exploreLines(int (*program)(), const std::string& lines, std::size_t preemptions) {
  const std::string file = ::testing::TempDir() + ::testing::UnitTest::GetInstance()->current_test_info()->name();
  std::ofstream(file) << lines;
  std::ostringstream out;
  std::ostringstream errors;
  const int status = explore({.main = program, .name = "Racing", .identifier = "example.racing", .version = "1"},
                             {file}, preemptions, out, errors, nullptr);
  return {status, out.str(), errors.str()};
}

constexpr const char* run = "{\"do\":\"launch\"}\n{\"do\":\"settle\"}\n";

}  // namespace

TEST(Explore, FindsWhatOnePreemptionBreaks) {
  const Explored without = exploreLines(racingProgram, run, 0);
  EXPECT_EQ(without.status, 0) << without.out;
  EXPECT_EQ(without.out, "1 schedules with up to 0 preemptions, 0 failed\n");

  const Explored with = exploreLines(racingProgram, run, 1);
  EXPECT_EQ(with.status, 1);
  EXPECT_NE(with.out.find("Fails with status 1: dalvane-desk play --seed @"), std::string::npos) << with.out;
  EXPECT_NE(with.out.find("a count was lost"), std::string::npos) << with.out;
}

TEST(Explore, CountsEverySchedule) {
  const auto schedules = [](std::size_t preemptions) {
    const std::string out = exploreLines(racingProgram, run, preemptions).out;
    return std::stoi(out.substr(out.rfind('\n', out.size() - 2) + 1));
  };
  const int one = schedules(1);
  const int two = schedules(2);
  EXPECT_GT(one, 3);
  EXPECT_GT(two, 2 * one);
}

TEST(Explore, ACrashIsAFailureToo) {
  const Explored crashed = exploreLines(
      [] {
        std::_Exit(7);
        return 0;
      },
      run, 0);
  EXPECT_EQ(crashed.status, 1);
  EXPECT_NE(crashed.out.find("Fails with status 7"), std::string::npos) << crashed.out;
}

TEST(Explore, RefusesWhatCannotBeUnderstood) {
  const Explored refused = exploreLines(racingProgram, "{\"do\":\"jump\"}\n", 1);
  EXPECT_EQ(refused.status, 2);
  EXPECT_NE(refused.errors.find(":1: unknown \"do\": \"jump\""), std::string::npos) << refused.errors;
}
