#include <gtest/gtest.h>

#include "brightness/BrightnessController.h"

using Decision = BrightnessController::KeyDecision;

TEST(BrightnessSteps, AreRoundedToTheNearestRawValue) {
  EXPECT_EQ(BrightnessController::rawFromSteps(8, 255), 128);  // 127.5
  EXPECT_EQ(BrightnessController::rawFromSteps(9, 100), 56);   // 56.25
  EXPECT_EQ(BrightnessController::rawFromSteps(7, 100), 44);   // 43.75
  EXPECT_EQ(BrightnessController::rawFromSteps(0, 100), 0);
  EXPECT_EQ(BrightnessController::rawFromSteps(16, 100), 100);
  EXPECT_EQ(BrightnessController::rawFromSteps(16, 65535), 65535);
  EXPECT_EQ(BrightnessController::rawFromSteps(1, 8), 1);  // 0.5 goes away from zero
  EXPECT_EQ(BrightnessController::rawFromSteps(1, 7), 0);  // 0.4375
}

TEST(BrightnessSteps, OfAReadingAreTruncated) {
  EXPECT_EQ(BrightnessController::stepsFromReading(50, 100), 8);
  EXPECT_EQ(BrightnessController::stepsFromReading(100, 100), 16);
  EXPECT_EQ(BrightnessController::stepsFromReading(99, 100), 15);
  EXPECT_EQ(BrightnessController::stepsFromReading(6, 100), 0);
  EXPECT_EQ(BrightnessController::stepsFromReading(0, 100), 0);
}

TEST(BrightnessSteps, OfAMonitorAboveItsMaximumExceedTheScale) {
  EXPECT_EQ(BrightnessController::stepsFromReading(120, 100), 19);
  EXPECT_EQ(BrightnessController::stepsFromReading(65535, 1), 1048560);
}

TEST(BrightnessKey, MovesOneStepWithinTheScale) {
  EXPECT_EQ(BrightnessController::decide(MediaKey::brightnessUp, true, 8), (Decision{true, 9}));
  EXPECT_EQ(BrightnessController::decide(MediaKey::brightnessDown, true, 8), (Decision{true, 7}));
  EXPECT_EQ(BrightnessController::decide(MediaKey::brightnessUp, true, 16), (Decision{true, 16}));
  EXPECT_EQ(BrightnessController::decide(MediaKey::brightnessDown, true, 0), (Decision{true, 0}));
  EXPECT_EQ(BrightnessController::decide(MediaKey::brightnessDown, true, 19), (Decision{true, 16}));
  EXPECT_EQ(BrightnessController::decide(MediaKey::brightnessUp, true, 19), (Decision{true, 16}));
}

TEST(BrightnessKey, ReleaseIsConsumedAndChangesNothing) {
  EXPECT_EQ(BrightnessController::decide(MediaKey::brightnessUp, false, 8), (Decision{true, std::nullopt}));
}

TEST(BrightnessKey, WithoutAControllableDisplayGoesOn) {
  EXPECT_EQ(BrightnessController::decide(MediaKey::brightnessUp, true, std::nullopt), Decision{});
  EXPECT_EQ(BrightnessController::decide(MediaKey::brightnessUp, false, std::nullopt), Decision{});
}

TEST(BrightnessKey, OfTheVolumeGoesOn) {
  for (const MediaKey key : {MediaKey::volumeUp, MediaKey::volumeDown, MediaKey::mute}) {
    EXPECT_EQ(BrightnessController::decide(key, true, 8), Decision{});
  }
}
