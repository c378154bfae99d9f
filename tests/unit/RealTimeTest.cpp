// The I/O callback allocates nothing, takes no lock and makes no system call.
#include <gtest/gtest.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <functional>
#include <mutex>
#include <vector>

#include "tests/support/RealTimeGuard.h"
#include "volume/Render.h"

namespace {

// A thousand cycles: ramping, steady, and with nothing to play.
void renderManyCycles() {
  std::vector<float> in(std::size_t{512} * 2, 0.5F);
  std::vector<float> out(in.size());
  const auto bytes = static_cast<UInt32>(in.size() * sizeof(float));
  const AudioBufferList input = {1, {{2, bytes, in.data()}}};
  const AudioBufferList nothing = {0, {}};
  AudioBufferList output = {1, {{2, bytes, out.data()}}};
  RenderState state(1, 0);
  const RealTimeGuard guard;
  for (int cycle = 0; cycle < 1000; ++cycle) {
    state.targetGain.store(static_cast<float>(cycle % 3) / 2, std::memory_order_relaxed);
    render(state, cycle % 7 == 0 ? nothing : input, output);
  }
}

}  // namespace

TEST(RealTime, RenderAllocatesAndLocksNothing) {
  RealTimeGuard::reset();
  renderManyCycles();
  EXPECT_EQ(RealTimeGuard::allocations(), 0U);
  EXPECT_EQ(RealTimeGuard::locks(), 0U);
}

TEST(RealTime, TheGuardSeesAllocations) {
  RealTimeGuard::reset();
  {
    const RealTimeGuard guard;
    const auto made = std::make_unique<std::vector<int>>(1000);
    EXPECT_NE(made, nullptr);
  }
  EXPECT_GT(RealTimeGuard::allocations(), 0U);
}

TEST(RealTime, TheGuardSeesLocks) {
  RealTimeGuard::reset();
  std::mutex mutex;
  {
    const RealTimeGuard guard;
    const std::lock_guard lock(mutex);
  }
  EXPECT_GT(RealTimeGuard::locks(), 0U);
}

#if !defined(__SANITIZE_ADDRESS__) && !__has_feature(address_sanitizer) && !__has_feature(thread_sanitizer)

namespace {

// Runs `body` where the kernel kills a process at its first system call but the one that ends it. How the process
// ended.
int runWithoutSystemCalls(void (*body)()) {
  const pid_t child = fork();
  if (child == 0) {
    prctl(PR_SET_SECCOMP, SECCOMP_MODE_STRICT);
    body();
    syscall(SYS_exit, 0);
  }
  int status = 0;
  waitpid(child, &status, 0);
  return status;
}

float samples[1024];

void renderOnly() {
  const AudioBufferList input = {1, {{2, sizeof samples, samples}}};
  static float played[1024];
  AudioBufferList output = {1, {{2, sizeof played, played}}};
  static RenderState state(1, 0);
  for (int cycle = 0; cycle < 1000; ++cycle) {
    state.targetGain.store(static_cast<float>(cycle % 3) / 2, std::memory_order_relaxed);
    render(state, input, output);
  }
}

}  // namespace

TEST(RealTime, RenderMakesNoSystemCall) {
  const int status = runWithoutSystemCalls(renderOnly);
  EXPECT_TRUE(WIFEXITED(status)) << "ended by signal " << WTERMSIG(status);
}

TEST(RealTime, TheKernelSeesSystemCalls) {
  const int status = runWithoutSystemCalls([] { (void)getppid(); });
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
}

#endif
