#include "tests/support/Program.h"

#include <gtest/gtest.h>

#include <utility>

#include "desk/Desk.h"
#include "platform/Application.h"
#include "platform/CF.h"
#include "simulator/foundation/RunLoop.h"
#include "simulator/kernel/Call.h"
#include "tests/support/Lines.h"
#include "tests/support/Seat.h"

Played runAsProgram(const std::string& scenario, const std::function<void()>& body, std::uint64_t seed) {
  const Preparation preparation = {.setUp = {}, .program = [&body] {
                                     body();
                                     return 0;
                                   }};
  Played played =
      playScenario(scenario + lines::launch + lines::settle, seed, simulator::Clock::deterministic, preparation);
  EXPECT_EQ(played.of("exit").size(), 1U) << "the program did not come to its end";
  return played;
}

void runProgram(const std::function<void()>& body) {
  const Played played = runAsProgram("", body);
  EXPECT_EQ(played.status, 0) << played.bytes;
}

void runLoopFor(std::chrono::milliseconds time) {
  __block bool isOver = false;
  const auto timer = CF::adopt(CFRunLoopTimerCreateWithHandler(
      kCFAllocatorDefault, CFAbsoluteTimeGetCurrent() + std::chrono::duration<double>(time).count(), 0, 0, 0,
      ^(CFRunLoopTimerRef) {
        isOver = true;
      }));
  CFRunLoopAddTimer(CFRunLoopGetMain(), timer.get(), kCFRunLoopCommonModes);
  while (!isOver) simulator::Call::unguarded().part<simulator::RunLoop>().runOnce(simulator::defaultMode);
}

simulator::Program programOf(std::function<void()> body) {
  return {.main =
              [body = std::move(body)] {
                body();
                return 0;
              },
          .name = "Test",
          .identifier = "example.test",
          .version = "1"};
}

void runStrictly(const std::function<void()>& body) { Seat(programOf(body), 1).play(lines::launch + lines::settle); }

simulator::Program application(std::function<void()> begins, std::function<void()> ends) {
  simulator::Program program = dalvaneProgram();
  program.main = [begins = std::move(begins), ends = std::move(ends)] {
    struct Delegate : NS::ApplicationDelegate {
      void applicationDidFinishLaunching() override { begins(); }
      void applicationWillTerminate() override {
        if (ends) ends();
      }
      std::function<void()> begins;
      std::function<void()> ends;
    };
    Delegate delegate;
    delegate.begins = begins;
    delegate.ends = ends;
    const NS::Application shared = NS::Application::sharedApplication();
    shared.setDelegate(&delegate);
    shared.run();
    return 0;
  };
  return program;
}
