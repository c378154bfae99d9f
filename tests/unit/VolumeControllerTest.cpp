// The controller without the rest of the program: the slider's side of it.
#include <gtest/gtest.h>

#include <memory>

#include "tests/support/Lines.h"
#include "tests/support/Program.h"
#include "volume/VolumeController.h"

using namespace lines;
using nlohmann::json;

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
  EXPECT_EQ(played.calls("AudioObjectRemovePropertyListenerBlock").size(), 1U);
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
