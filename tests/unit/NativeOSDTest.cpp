// The pop-up service's messages, and what must not be sent.
#include <dispatch/dispatch.h>
#include <gtest/gtest.h>
#include <objc/runtime.h>

#include <chrono>
#include <thread>

#include "osd/NativeOSD.h"
#include "tests/support/Lines.h"
#include "tests/support/Program.h"

using namespace lines;
using nlohmann::json;

namespace {

std::string screen(int id, int x, bool builtin) {
  return display(id, {{"name", "D"}, {"frame", {x, 0, 100, 100}}, {"builtin", builtin}});
}

json shown(int image, int display, int filled, int total) {
  return {{"image", image},   {"display", display}, {"priority", 500}, {"fade", 1000},
          {"filled", filled}, {"total", total},     {"locked", false}};
}

}  // namespace

TEST(NativeOSD, ShowsTheVolumeOnTheMainDisplay) {
  // The display with the menu bar is neither the first nor the built-in one.
  const Played played = runAsProgram(screen(1, 100, true) + screen(7, 0, false), [] {
    const NativeOSD osd;
    osd.showVolume(0, 16, true);
    osd.showVolume(5, 16, false);
  });
  const auto calls = played.calls("OSDManager.showImage");
  ASSERT_EQ(calls.size(), 2U);
  EXPECT_EQ(calls[0]["args"], shown(4, 7, 0, 16));
  EXPECT_EQ(calls[1]["args"], shown(3, 7, 5, 16));
}

TEST(NativeOSD, ShowsTheBrightnessOnItsDisplay) {
  const Played played = runAsProgram(screen(1, 0, true) + screen(7, 100, false), [] {
    const NativeOSD osd;
    osd.showBrightness(8, 16, 7);
    osd.showBrightness(8, 12, 1);
  });
  const auto calls = played.calls("OSDManager.showImage");
  ASSERT_EQ(calls.size(), 2U);
  EXPECT_EQ(calls[0]["args"], shown(1, 7, 8, 16));
  EXPECT_EQ(calls[1]["args"], shown(1, 1, 8, 12));
}

TEST(NativeOSDDeathTest, StopsAtANegativeCount) {
  EXPECT_EXIT(runStrictly([] { NativeOSD().showVolume(-1, 16, false); }), testing::ExitedWithCode(1),
              "A pop-up cannot show a negative number of steps");
  EXPECT_EXIT(runStrictly([] { NativeOSD().showBrightness(1, -16, 1); }), testing::ExitedWithCode(1),
              "A pop-up cannot show a negative number of steps");
}

TEST(NativeOSDDeathTest, StopsOffTheMainThread) {
  const auto show = [] {
    const NativeOSD osd;
    dispatch_async(dispatch_get_global_queue(QOS_CLASS_DEFAULT, 0), ^{
      osd.showBrightness(1, 16, 1);
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  };
  EXPECT_EXIT(runStrictly(show), testing::ExitedWithCode(1), "dispatch_assert_queue");
}

// The runtime answers for a method that is gone, until it is called.
TEST(NativeOSDDeathTest, MessageThatNobodyAnswersIsFatal) {
  const auto send = [](bool knows) {
    const NativeOSD loaded;
    const Class type = objc_lookUpClass("OSDManager");
    const SEL selector = sel_registerName(knows ? "sharedManager" : "hidden");
    const Class metaclass = object_getClass(reinterpret_cast<id>(type));
    EXPECT_EQ(class_respondsToSelector(metaclass, selector), knows);
    EXPECT_FALSE(class_respondsToSelector(type, selector));
    EXPECT_FALSE(class_respondsToSelector(nullptr, selector));
    const IMP method = class_getMethodImplementation(metaclass, selector);
    ASSERT_NE(method, nullptr);
    EXPECT_EQ(class_getMethodImplementation(nullptr, selector), nullptr);
    reinterpret_cast<id (*)(id, SEL)>(method)(reinterpret_cast<id>(type), selector);
  };
  runStrictly([&send] { send(true); });
  EXPECT_EXIT(runStrictly([&send] { send(false); }), testing::ExitedWithCode(1),
              "OSDManager: unrecognized selector hidden");
}
