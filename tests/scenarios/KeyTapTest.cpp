// Keys and other events on their way through the tap.
#include <gtest/gtest.h>

#include "tests/support/Lines.h"
#include "tests/support/Play.h"

using namespace lines;

using Swallowed = std::vector<bool>;

namespace {

constexpr std::uint32_t keyDown = 10;
constexpr std::uint32_t keyUp = 11;
constexpr std::uint32_t systemDefined = 14;

Played playEvents(const std::string& events, std::uint64_t seed = 1) {
  return playScenario(launched + events + settle, seed);
}

std::string systemEvent(int subtype, const nlohmann::json& data1) {
  return event(systemDefined, {{"subtype", subtype}, {"data1", data1}});
}

}  // namespace

TEST(KeyTap, IsInstalledOnceAheadOfOthersForKeysAlone) {
  const auto taps = playEvents("").calls("CGEventTapCreate");
  ASSERT_EQ(taps.size(), 1U);
  EXPECT_EQ(taps[0]["args"], (nlohmann::json{{"tap", 1}, {"place", 0}, {"options", 0}, {"mask", 0x4400}}));
}

TEST(KeyTap, VolumeKeysGoOnWithoutAVolumeToControl) {
  for (const char* const name : {"volumeUp", "volumeDown", "mute"}) {
    const Played played = playEvents(key(name));
    EXPECT_EQ(played.swallowed(), (Swallowed{false, false})) << name;
  }
}

TEST(KeyTap, OtherSystemEventsGoOn) {
  EXPECT_EQ(playEvents(systemEvent(7, 133632) + systemEvent(8, 264704) + systemEvent(8, 1051136)).swallowed(),
            (Swallowed{false, false, false}));
}

TEST(KeyTap, EventThatAppKitCannotReadGoesOn) {
  const Played played = playEvents(fail("NSEvent.eventWithCGEvent", 1) + key("brightnessUp"));
  EXPECT_EQ(played.swallowed(), (Swallowed{false, true}));
  EXPECT_TRUE(played.lights(2).empty());
}

TEST(KeyTap, DecodesAKeyUnderBitsItDoesNotKnow) {
  // Brightness up, pressed.
  EXPECT_EQ(playEvents(systemEvent(8, 0x7fff000000020a00)).lights(2), (std::vector<int>{56}));
}

TEST(KeyTap, ReadsTheSameBitsFromAnUnsignedNumber) {
  // Above the signed numbers.
  EXPECT_EQ(playEvents(systemEvent(8, 0xffff000000020a00)).lights(2), (std::vector<int>{56}));
}

TEST(KeyTap, TakesANoticeForWhatItSays) {
  const Played played = playEvents(event(4294967294) + event(keyUp));
  EXPECT_EQ(played.calls("CGEventTapEnable").size(), 1U);
  EXPECT_EQ(played.swallowed(), (Swallowed{false}));
}

TEST(KeyTap, TakesPlainBrightnessKeys) {
  const Played played = playEvents(event(keyDown, {{"keycode", 144}}) + settle +
                                   event(keyDown, {{"keycode", 145}, {"autorepeat", true}}) + settle +
                                   event(keyDown, {{"keycode", 36}}) + event(keyUp, {{"keycode", 144}}));
  // Key-ups are not even offered.
  EXPECT_EQ(played.swallowed(), (Swallowed{true, true, false}));
  EXPECT_EQ(played.lights(2), (std::vector<int>{56, 50}));
}

TEST(KeyTap, IsNotOfferedOtherEvents) { EXPECT_TRUE(playEvents(event(1) + event(29)).of("input").empty()); }

TEST(KeyTap, IsSwitchedOnAgainWhenTheSystemSwitchesItOff) {
  for (const std::string by : {"timeout", "user-input"}) {
    WITH_SEEDS(seed, 10) {
      const Played played =
          playEvents(press("brightnessUp") + disableTap(by) + repeated("brightnessUp") + release("brightnessUp"), seed);
      const auto enabled = played.calls("CGEventTapEnable");
      ASSERT_EQ(enabled.size(), 1U);
      EXPECT_EQ(enabled[0]["args"]["enable"], true);
      const auto inputs = played.of("input");
      ASSERT_EQ(inputs.size(), 4U);
      EXPECT_EQ(inputs[1]["type"], by == "timeout" ? 0xFFFFFFFE : 0xFFFFFFFF);
      EXPECT_EQ(played.swallowed(), (Swallowed{true, false, true, true}));
      EXPECT_EQ(played.lights(2).back(), 63);
      // It stays the tap that it was.
      EXPECT_EQ(played.calls("CGEventTapCreate").size(), 1U);
      EXPECT_EQ(played.calls("CFMachPortInvalidate").size(), 1U);
    }
  }
}

TEST(KeyTap, StaysWhatItIsAtWakesAndWhenTheMenuOpens) {
  const Played played = playEvents(wake + menu(true) + menu(false) + wake + settle + key("brightnessUp"));
  EXPECT_EQ(played.calls("CGEventTapCreate").size(), 1U);
  EXPECT_EQ(played.calls("CGEventTapEnable").size(), 0U);
  EXPECT_EQ(played.swallowed(), (Swallowed{true, true}));
}

TEST(KeyTap, WorksWhileTheMenuIsOpen) {
  const Played played = playEvents(menu(true) + key("brightnessUp") + settle + menu(false));
  EXPECT_EQ(played.lights(2), (std::vector<int>{56}));
  EXPECT_EQ(played.swallowed(), (Swallowed{true, true}));
}
