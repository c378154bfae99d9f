// The controller without the rest of the program: the sliders' side of it.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <tuple>

#include "brightness/BrightnessController.h"
#include "simulator/displays/Displays.h"
#include "simulator/foundation/Dispatch.h"
#include "simulator/foundation/NotificationCenters.h"
#include "simulator/foundation/RunLoop.h"
#include "simulator/kernel/Call.h"
#include "simulator/mac/Mac.h"
#include "tests/support/Lines.h"
#include "tests/support/Program.h"

using namespace lines;
using namespace std::chrono_literals;

namespace {

// The title, level and display of each slider.
using Sliders = std::vector<std::tuple<std::uint32_t, std::string, int, int>>;

Sliders sliders(const BrightnessController& controller) {
  Sliders all;
  for (const auto& [displayID, state] : controller.sliders()) {
    all.emplace_back(displayID, state.title, state.steps, state.totalSteps);
  }
  return all;
}

std::string screen(int id, const std::string& name, int x, const nlohmann::json& monitor) {
  return display(id, {{"name", name},
                      {"frame", {x, 0, 100, 100}},
                      {"vendor", 1},
                      {"product", 2},
                      {"serial", id},
                      {"monitor", monitor}});
}

// Two monitors, the one connected last with the menu bar.
const std::string desk = screen(3, "Right", 100, {{"current", 25}, {"maximum", 100}}) +
                         screen(2, "Left", 0, {{"current", 50}, {"maximum", 100}}) + pointer(50, 50);

// Runs `body` with a controller that has been started.
Played withController(const std::string& scenario, const std::function<void(BrightnessController&)>& body) {
  const Played played = runAsProgram(scenario, [&body] {
    const auto controller = std::make_shared<BrightnessController>(nullptr);
    controller->start();
    body(*controller);
    controller->stop();
  });
  EXPECT_TRUE(played.of("leak").empty());
  return played;
}

}  // namespace

TEST(BrightnessController, HasASliderForEachMonitorThatWasRead) {
  withController(desk + screen(4, "Mute", 200, nullptr) + fault(3, "no-answer", 5),
                 [](BrightnessController& controller) {
                   EXPECT_EQ(sliders(controller), Sliders{});
                   runLoopFor(500ms);
                   EXPECT_EQ(sliders(controller), (Sliders{{2, "Left", 8, 16}}));
                   controller.readUnreadDisplays();
                   runLoopFor(100ms);
                   // In the order of the screens: that with the menu bar first.
                   EXPECT_EQ(sliders(controller), (Sliders{{2, "Left", 8, 16}, {3, "Right", 4, 16}}));
                   controller.handle(MediaKey::brightnessUp, true);
                   EXPECT_EQ(sliders(controller), (Sliders{{2, "Left", 9, 16}, {3, "Right", 4, 16}}));
                 });
}

TEST(BrightnessController, ASliderSetsItsMonitorWithinTheScaleAndWithoutAPopUp) {
  const Played played = runAsProgram(desk, [] {
    const auto controller = std::make_shared<BrightnessController>(std::make_shared<NativeOSD>());
    controller->start();
    controller->setSteps(1, 2);  // not read yet
    runLoopFor(100ms);
    controller->setSteps(12, 3);
    EXPECT_EQ(sliders(*controller), (Sliders{{2, "Left", 8, 16}, {3, "Right", 12, 16}}));
    runLoopFor(100ms);
    controller->setSteps(-1, 3);
    runLoopFor(100ms);
    controller->setSteps(17, 3);
    EXPECT_EQ(sliders(*controller), (Sliders{{2, "Left", 8, 16}, {3, "Right", 16, 16}}));
    controller->setSteps(5, 4);  // there is no such display
    runLoopFor(100ms);
    controller->stop();
  });
  EXPECT_EQ(played.lights(3), (std::vector<int>{75, 0, 100}));
  EXPECT_TRUE(played.lights(2).empty());
  EXPECT_TRUE(played.calls("OSDManager.showImage").empty());
}

TEST(BrightnessController, ForgetsEverythingWhenItStopsAndFinishesWhatItWasGiven) {
  const Played played = withController(desk, [](BrightnessController& controller) {
    runLoopFor(100ms);
    controller.setSteps(12, 2);
    controller.stop();
    EXPECT_EQ(sliders(controller), Sliders{});
    EXPECT_FALSE(controller.handle(MediaKey::brightnessUp, true));
    controller.setSteps(3, 2);
    controller.readUnreadDisplays();
    controller.stop();
    // A change of the screens is no longer of interest.
    auto& displays = simulator::Call::unguarded().part<simulator::Displays>();
    displays.disconnect(3);
    displays.screensChanged();
    runLoopFor(500ms);
    EXPECT_EQ(sliders(controller), Sliders{});
  });
  EXPECT_EQ(played.lights(2), (std::vector<int>{75}));
  EXPECT_EQ(played.calls("IOAVServiceReadI2C").size(), 2U);
}

TEST(BrightnessController, NotificationsThatComeTooLateDoNothing) {
  const Played played = withController(desk, [](BrightnessController& controller) {
    runLoopFor(100ms);
    const auto& machine = simulator::Call::unguarded();
    machine.part<simulator::Displays>().disconnect(3);
    machine.part<simulator::Displays>().screensChanged();
    machine.part<simulator::NotificationCenters>().post(simulator::NotificationCenters::workspaceCenter,
                                                        NS::WorkspaceDidWakeNotification());
    controller.stop();
    runLoopFor(500ms);
    EXPECT_EQ(sliders(controller), Sliders{});
  });
  EXPECT_EQ(played.calls("IOAVServiceCreateWithService").size(), 2U);
}

TEST(BrightnessController, LetsReadsRunOutWhenItStops) {
  const Played played = withController(desk + fault(2, "no-answer", 2), [](BrightnessController& controller) {
    controller.stop();
    runLoopFor(500ms);
    EXPECT_EQ(sliders(controller), Sliders{});
  });
  EXPECT_EQ(played.calls("IOAVServiceReadI2C").size(), 3U + 1U);
  for (const std::string& text : played.logs()) EXPECT_EQ(text.find("Display"), std::string::npos) << text;
}

TEST(BrightnessController, CanBeStartedAgain) {
  withController(desk, [](BrightnessController& controller) {
    runLoopFor(100ms);
    controller.stop();
    controller.start();
    runLoopFor(100ms);
    EXPECT_EQ(sliders(controller), (Sliders{{2, "Left", 8, 16}, {3, "Right", 4, 16}}));
  });
}

TEST(BrightnessController, LeavesVolumeKeysAlone) {
  const Played played = withController(desk + fault(2, "no-answer", 5), [](BrightnessController& controller) {
    runLoopFor(500ms);
    for (const MediaKey key : {MediaKey::volumeUp, MediaKey::volumeDown, MediaKey::mute}) {
      EXPECT_FALSE(controller.handle(key, true));
      EXPECT_FALSE(controller.handle(key, false));
    }
    runLoopFor(500ms);
  });
  // The monitor under the pointer did not answer, but that is no business of theirs.
  EXPECT_EQ(played.calls("IOAVServiceReadI2C").size(), 5U + 1U);
}

TEST(BrightnessController, IsNotKeptByWhatItWatches) {
  const Played played = runAsProgram(desk, [] {
    auto controller = std::make_shared<BrightnessController>(nullptr);
    controller->start();
    runLoopFor(100ms);
    const std::weak_ptr<BrightnessController> weak = controller;
    controller.reset();
    EXPECT_TRUE(weak.expired());
    auto& displays = simulator::Call::unguarded().part<simulator::Displays>();
    displays.disconnect(3);
    displays.screensChanged();
    runLoopFor(100ms);
  });
  EXPECT_EQ(played.calls("IOAVServiceCreateWithService").size(), 2U);
}

TEST(BrightnessController, IsNotKeptByWhatItWaitsFor) {
  const Played played = runAsProgram(desk, [] {
    auto controller = std::make_shared<BrightnessController>(nullptr);
    controller->start();
    const std::weak_ptr<BrightnessController> weak = controller;
    runLoopFor(5ms);
    controller->stop();
    controller.reset();
    EXPECT_TRUE(weak.expired());
    runLoopFor(200ms);
  });
  EXPECT_TRUE(played.of("leak").empty());
}

// The system tells of changed screens a while after they have changed.
TEST(BrightnessController, LeavesABuiltInDisplayToTheSystemBeforeItIsTold) {
  withController(desk, [](BrightnessController& controller) {
    runLoopFor(500ms);
    EXPECT_TRUE(controller.handle(MediaKey::brightnessUp, true));
    auto& displays = simulator::Call::unguarded().part<simulator::Displays>();
    simulator::Display display = *displays.find(2);
    display.builtin = true;
    displays.disconnect(2);
    displays.connect(display);
    EXPECT_FALSE(controller.handle(MediaKey::brightnessUp, true));
  });
}

TEST(BrightnessController, HasAQueueForEachMonitorThatItCanReach) {
  withController(desk, [](BrightnessController&) {
    const auto queues = simulator::liveObjectsOf<dispatch_queue_s>();
    EXPECT_EQ(std::ranges::count(queues, "DDCChannel", &dispatch_queue_s::label), 2);
  });
}
