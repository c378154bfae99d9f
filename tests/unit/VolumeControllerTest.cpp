// The controller without the rest of the program: the slider's side of it.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <thread>

#include "simulator/audio/Audio.h"
#include "simulator/foundation/NotificationCenters.h"
#include "simulator/foundation/RunLoop.h"
#include "simulator/kernel/Call.h"
#include "simulator/mac/Mac.h"
#include "tests/support/Lines.h"
#include "tests/support/Program.h"
#include "volume/VolumeController.h"

using namespace lines;
using nlohmann::json;
using simulator::Mac;
using Logs = std::vector<std::string>;

namespace {

const std::string screen = output(10, {{"uid", "HDMI-1"}, {"name", "Screen"}, {"default", true}});

// The values written under a key, one after the other.
std::vector<json> written(const Played& played, const std::string& key) {
  std::vector<json> values;
  for (const json& record : played.of("preference")) {
    if (record["key"] == key) values.push_back(record["value"]);
  }
  return values;
}

// Lets the main thread do the next thing that waits for it.
void runLoopOnce() { simulator::Call::unguarded().part<simulator::RunLoop>().runOnce(simulator::commonModes); }

simulator::Audio& audio() { return simulator::Call::unguarded().part<simulator::Audio>(); }
void changeInputs(std::uint32_t inputs) {
  simulator::OutputDevice& device = *audio().output(10);
  simulator::OutputSettings settings = device.settings();
  settings.inputs = inputs;
  audio().changeOutput(device, settings);
}

const std::string beamer = output(11, {{"uid", "HDMI-2"}, {"name", "Beamer"}});
const Logs controllingScreen = {"info VolumeController: Controlling the volume of Screen"};

// Runs `body` with a controller that has been started, and stops it.
Played withController(const std::string& scenario, const std::function<void(VolumeController&)>& body) {
  Played played = runAsProgram(scenario, [&body] {
    const auto controller = std::make_shared<VolumeController>(nullptr);
    controller->start();
    body(*controller);
    controller->stop();
  });
  EXPECT_TRUE(played.of("leak").empty());
  return played;
}

}  // namespace

TEST(VolumeController, TheSliderShowsTheStoredLevel) {
  withController(screen + preference("steps.HDMI-1", 5), [](VolumeController& controller) {
    EXPECT_EQ(controller.sliderState(), (SliderState{"Screen", 5, 16}));
    controller.handle(MediaKey::mute, true, false);
    EXPECT_EQ(controller.sliderState(), (SliderState{"Screen", 0, 16}));
    controller.handle(MediaKey::mute, true, false);
    EXPECT_EQ(controller.sliderState(), (SliderState{"Screen", 5, 16}));
  });
  withController(screen, [](VolumeController& controller) {
    EXPECT_EQ(controller.sliderState(), (SliderState{"Screen", 16, 16}));
  });
}

TEST(VolumeController, WithoutADeviceToControlThereIsNoSlider) {
  withController(output(10, {{"uid", "U"}, {"name", "N"}, {"volume", "settable"}, {"default", true}}),
                 [](VolumeController& controller) {
                   EXPECT_EQ(controller.sliderState(), std::nullopt);
                   for (const MediaKey key : {MediaKey::volumeUp, MediaKey::volumeDown, MediaKey::mute}) {
                     EXPECT_FALSE(controller.handle(key, true, false));
                     EXPECT_FALSE(controller.handle(key, false, false));
                   }
                   controller.setSteps(3);
                 });
}

TEST(VolumeController, LeavesBrightnessKeysAlone) {
  withController(screen, [](VolumeController& controller) {
    EXPECT_FALSE(controller.handle(MediaKey::brightnessUp, true, false));
    EXPECT_FALSE(controller.handle(MediaKey::brightnessDown, true, false));
  });
}

TEST(VolumeController, TheSliderIsLimitedAndUnmutes) {
  const Played played = withController(screen + preference("muted.HDMI-1", true), [](VolumeController& controller) {
    controller.setSteps(-3);
    EXPECT_EQ(controller.sliderState()->steps, 0);
    controller.handle(MediaKey::mute, true, false);
    controller.setSteps(40);
    EXPECT_EQ(controller.sliderState()->steps, 16);
  });
  EXPECT_EQ(written(played, "steps.HDMI-1"), (std::vector<json>{0, 0, 16}));
  EXPECT_EQ(written(played, "muted.HDMI-1"), (std::vector<json>{false, true, false}));
  EXPECT_EQ(played.calls("AudioDeviceStart").size(), 1U);
  EXPECT_EQ(played.calls("AudioDeviceStop").size(), 1U);  // full volume needs no router
  EXPECT_TRUE(played.calls("OSDManager.showImage").empty());
}

TEST(VolumeController, StopsMoreThanOnceAndIsIdleAfterwards) {
  const Played played = withController(screen + preference("steps.HDMI-1", 5), [](VolumeController& controller) {
    controller.stop();
    EXPECT_EQ(controller.sliderState(), std::nullopt);
    EXPECT_FALSE(controller.handle(MediaKey::volumeUp, true, false));
  });
  const auto removed = played.calls("AudioObjectRemovePropertyListenerBlock");
  EXPECT_EQ(std::ranges::count_if(removed, [](const json& call) { return call["args"]["selector"] == "dOut"; }), 1);
  EXPECT_EQ(played.calls("AudioDeviceStop").size(), 1U);
}

TEST(VolumeController, AListenerThatCannotBeRemovedIsNoMatter) {
  const Played played = runAsProgram(screen + fail("AudioObjectRemovePropertyListenerBlock", -1), [] {
    const auto controller = std::make_shared<VolumeController>(nullptr);
    controller->start();
    controller->stop();
  });
  EXPECT_EQ(played.logs().size(), 1U);  // that it controls the screen
  ASSERT_EQ(played.of("leak").size(), 1U);
  EXPECT_EQ(played.of("leak")[0]["kind"], "property listener");
}

// ---- The slider ----

TEST(VolumeController, TheSliderShowsNoPopUp) {
  const Played played = runAsProgram(screen, [] {
    const auto controller = std::make_shared<VolumeController>(std::make_shared<const NativeOSD>());
    controller->start();
    controller->setSteps(8);
    controller->setSteps(0);
    controller->setSteps(16);
    EXPECT_TRUE(controller->handle(MediaKey::volumeDown, true, false));
    controller->stop();
  });
  EXPECT_EQ(played.calls("OSDManager.showImage").size(), 1U);  // the key's
}

TEST(VolumeController, TheSliderFindsThePermissionGoneToo) {
  const Played played = withController(screen, [](VolumeController& controller) {
    simulator::Call::unguarded().faults.fail("TCCAccessPreflight", 2, 1, 1);  // not determined
    controller.setSteps(8);
    EXPECT_EQ(controller.sliderState(), std::nullopt);
  });
  EXPECT_EQ(played.calls("TCCAccessRequest").size(), 1U);
  EXPECT_TRUE(played.calls("AudioHardwareCreateProcessTap").empty());
  EXPECT_EQ(written(played, "steps.HDMI-1"), std::vector<json>{8});
}

// ---- Who keeps whom ----

// Nobody but its owner: not the listeners, the wake's observer or a question on the screen.
TEST(VolumeController, IsNobodysButItsOwners) {
  for (const bool asked : {false, true}) {
    const std::string scenario =
        screen + preference("steps.HDMI-1", 8) + (asked ? capture({{"permission", "undetermined"}}) : "");
    runAsProgram(scenario, [asked] {
      auto controller = std::make_shared<VolumeController>(nullptr);
      const std::weak_ptr<VolumeController> watched = controller;
      controller->start();
      controller.reset();
      EXPECT_TRUE(watched.expired()) << (asked ? "asked" : "routing");
      // What comes now finds nobody.
      audio().setDefaultOutput(std::nullopt);
      simulator::Call::unguarded().part<simulator::NotificationCenters>().post(
          simulator::NotificationCenters::workspaceCenter, NS::WorkspaceDidWakeNotification());
      runLoopOnce();
      if (!asked) return;
      std::this_thread::sleep_for(std::chrono::seconds(2));
      runLoopOnce();
    });
  }
}

// ---- What arrives after the stop ----

TEST(VolumeController, NotificationsThatComeTooLateDoNothing) {
  const Played played =
      runAsProgram(screen + beamer + preference("steps.HDMI-1", 8) + preference("steps.HDMI-2", 8), [] {
        const auto controller = std::make_shared<VolumeController>(nullptr);
        controller->start();
        audio().setDefaultOutput(11);
        changeInputs(1);
        audio().restart();
        simulator::Call::unguarded().part<simulator::NotificationCenters>().post(
            simulator::NotificationCenters::workspaceCenter, NS::WorkspaceDidWakeNotification());
        controller->stop();
        for (int call = 0; call < 4; ++call) runLoopOnce();
        EXPECT_EQ(controller->sliderState(), std::nullopt);
      });
  EXPECT_EQ(played.logs("AudioRouter"), controllingScreen);
  EXPECT_EQ(played.calls("AudioHardwareCreateProcessTap").size(), 1U);
}

TEST(VolumeController, AnAnswerThatComesTooLateDoesNothing) {
  for (const bool granted : {true, false}) {
    const Played played = runAsProgram(screen + capture({{"permission", "undetermined"}, {"answer", granted}}), [] {
      const auto controller = std::make_shared<VolumeController>(nullptr);
      controller->start();
      controller->stop();
      std::this_thread::sleep_for(std::chrono::seconds(2));
      runLoopOnce();
      EXPECT_EQ(controller->sliderState(), std::nullopt);
    });
    EXPECT_TRUE(played.logs().empty());
    EXPECT_TRUE(played.of("alert").empty());
  }
}

TEST(VolumeController, StartsOnce) {
  const Played played = withController(screen, [](VolumeController& controller) { controller.start(); });
  EXPECT_EQ(played.calls("AudioObjectAddPropertyListenerBlock").size(), 2U);  // the default output, and restarts
  EXPECT_EQ(played.logs(), controllingScreen);
}

TEST(VolumeController, StartsAgainAfterAStop) {
  const Played played = runAsProgram(screen + beamer, [] {
    const auto controller = std::make_shared<VolumeController>(nullptr);
    controller->start();
    controller->stop();
    controller->start();
    audio().setDefaultOutput(11);
    runLoopOnce();
    EXPECT_EQ(controller->sliderState(), (SliderState{"Beamer", 16, 16}));
    controller->stop();
  });
  EXPECT_TRUE(played.of("leak").empty());
}

// ---- The order of the start ----

TEST(VolumeController, ListensBeforeItChooses) {
  const Played played = withController(screen + preference("steps.HDMI-1", 8), [](VolumeController&) {});
  std::vector<std::string> calls;
  for (const json& call : played.of("call")) {
    const std::string api = call["api"];
    if (api == "AudioObjectAddPropertyListenerBlock") calls.push_back(call["args"]["selector"]);
    if (api == "TCCAccessPreflight" || api == "AudioHardwareCreateProcessTap") calls.push_back(api);
  }
  // So that no change is missed between the two, of the default output and of the device.
  EXPECT_EQ(calls, (std::vector<std::string>{"dOut", "srst", "TCCAccessPreflight", "stm#", "stm#", "sfmt", "nsrt",
                                             "livn", "AudioHardwareCreateProcessTap", "stpd"}));
}
