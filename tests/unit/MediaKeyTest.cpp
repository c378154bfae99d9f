#include <gtest/gtest.h>

#include "app/MediaKeyTap.h"

using Event = MediaKeyEvent;

TEST(MediaKey, IsDecodedFromData1) {
  EXPECT_EQ(mediaKeyFromData1(0x00000A00), (Event{MediaKey::volumeUp, true, false}));
  EXPECT_EQ(mediaKeyFromData1(0x00000B00), (Event{MediaKey::volumeUp, false, false}));
  EXPECT_EQ(mediaKeyFromData1(0x00010A00), (Event{MediaKey::volumeDown, true, false}));
  EXPECT_EQ(mediaKeyFromData1(0x00020A00), (Event{MediaKey::brightnessUp, true, false}));
  EXPECT_EQ(mediaKeyFromData1(0x00030A01), (Event{MediaKey::brightnessDown, true, true}));
  EXPECT_EQ(mediaKeyFromData1(0x00070A01), (Event{MediaKey::mute, true, true}));
}

TEST(MediaKey, IsPressedInOneStateOnly) {
  for (int state = 0; state <= 0xFF; ++state) {
    const auto event = mediaKeyFromData1(std::int64_t{state} << 8);
    ASSERT_TRUE(event);
    EXPECT_EQ(event->isPressed, state == 0x0A);
  }
}

TEST(MediaKey, IsNoneForOtherKeyTypes) {
  for (std::int64_t type = 0; type <= 0xFFFF; ++type) {
    const bool known = type <= 3 || type == 7;
    EXPECT_EQ(mediaKeyFromData1(type << 16 | 0x0A00).has_value(), known) << type;
  }
}

TEST(MediaKey, IgnoresTheUpperHalfOfData1) {
  EXPECT_EQ(mediaKeyFromData1(0x7FFFFFFF00070A00), (Event{MediaKey::mute, true, false}));
  EXPECT_EQ(mediaKeyFromData1(static_cast<std::int64_t>(0xFFFFFFFF00020B00)),
            (Event{MediaKey::brightnessUp, false, false}));
}

TEST(MediaKey, IsDecodedFromPlainBrightnessKeys) {
  EXPECT_EQ(mediaKeyFromKeyDown(144, false), (Event{MediaKey::brightnessUp, true, false}));
  EXPECT_EQ(mediaKeyFromKeyDown(145, true), (Event{MediaKey::brightnessDown, true, true}));
  for (const std::int64_t other : {0, 36, 143, 146, 400}) EXPECT_FALSE(mediaKeyFromKeyDown(other, false));
}

TEST(MediaKey, HasItsVolumeKeysFirst) {
  EXPECT_LE(MediaKey::volumeUp, MediaKey::mute);
  EXPECT_LE(MediaKey::volumeDown, MediaKey::mute);
  EXPECT_GT(MediaKey::brightnessUp, MediaKey::mute);
  EXPECT_GT(MediaKey::brightnessDown, MediaKey::mute);
}
