// Keys and other events on their way through the tap.
#include <gtest/gtest.h>

#include "tests/support/Play.h"

using Swallowed = std::vector<bool>;

namespace {

Played playEvents(const std::string& events, std::uint64_t seed = 1) {
  return playScenario(launched + events + R"({"do":"settle"})" + "\n", seed);
}

}  // namespace

TEST(KeyTap, IsInstalledOnceAheadOfOthersForKeysAlone) {
  const auto taps = playEvents("").calls("CGEventTapCreate");
  ASSERT_EQ(taps.size(), 1U);
  EXPECT_EQ(taps[0]["args"], (nlohmann::json{{"tap", 1}, {"place", 0}, {"options", 0}, {"mask", 0x4400}}));
}

TEST(KeyTap, VolumeKeysGoOnWithoutAVolumeToControl) {
  for (const char* const key : {"volumeUp", "volumeDown", "mute"}) {
    const Played played = playEvents(std::string(R"({"do":"key","key":")") + key + "\"}\n");
    EXPECT_EQ(played.swallowed(), (Swallowed{false, false})) << key;
  }
}

TEST(KeyTap, OtherSystemEventsGoOn) {
  EXPECT_EQ(playEvents(R"(
{"do":"event","type":14,"subtype":7,"data1":133632}
{"do":"event","type":14,"subtype":8,"data1":264704}
{"do":"event","type":14,"subtype":8,"data1":1051136}
)")
                .swallowed(),
            (Swallowed{false, false, false}));
}

TEST(KeyTap, DecodesAKeyUnderBitsItDoesNotKnow) {
  // 0x7fff000000020a00: brightness up, pressed.
  EXPECT_EQ(playEvents(R"({"do":"event","type":14,"subtype":8,"data1":9223090561878198784})"
                       "\n")
                .lights(2),
            (std::vector<int>{56}));
}

TEST(KeyTap, ReadsTheSameBitsFromAnUnsignedNumber) {
  // 0xffff000000020a00, above the signed numbers.
  EXPECT_EQ(playEvents(R"({"do":"event","type":14,"subtype":8,"data1":18446462598732974592})"
                       "\n")
                .lights(2),
            (std::vector<int>{56}));
}

TEST(KeyTap, TakesANoticeForWhatItSays) {
  const Played played = playEvents(R"(
{"do":"event","type":4294967294}
{"do":"event","type":11}
)");
  EXPECT_EQ(played.calls("CGEventTapEnable").size(), 1U);
  EXPECT_EQ(played.swallowed(), (Swallowed{false}));
}

TEST(KeyTap, TakesPlainBrightnessKeys) {
  const Played played = playEvents(R"(
{"do":"event","type":10,"keycode":144}
{"do":"settle"}
{"do":"event","type":10,"keycode":145,"autorepeat":true}
{"do":"settle"}
{"do":"event","type":10,"keycode":36}
{"do":"event","type":11,"keycode":144}
)");
  // Key-ups are not even offered.
  EXPECT_EQ(played.swallowed(), (Swallowed{true, true, false}));
  EXPECT_EQ(played.lights(2), (std::vector<int>{56, 50}));
}

TEST(KeyTap, IsNotOfferedOtherEvents) {
  EXPECT_TRUE(playEvents(R"(
{"do":"event","type":1}
{"do":"event","type":29}
)")
                  .of("input")
                  .empty());
}

TEST(KeyTap, IsSwitchedOnAgainWhenTheSystemSwitchesItOff) {
  for (const char* const by : {"timeout", "user-input"}) {
    WITH_SEEDS(seed, 10) {
      const Played played = playEvents(std::string(R"({"do":"key","key":"brightnessUp","action":"press"}
{"do":"disable-tap","by":")") + by + R"("}
{"do":"key","key":"brightnessUp","action":"press","repeat":true}
{"do":"key","key":"brightnessUp","action":"release"}
)",
                                       seed);
      const auto enabled = played.calls("CGEventTapEnable");
      ASSERT_EQ(enabled.size(), 1U);
      EXPECT_EQ(enabled[0]["args"]["enable"], true);
      const auto inputs = played.of("input");
      ASSERT_EQ(inputs.size(), 4U);
      EXPECT_EQ(inputs[1]["type"], by == std::string("timeout") ? 0xFFFFFFFE : 0xFFFFFFFF);
      EXPECT_EQ(played.swallowed(), (Swallowed{true, false, true, true}));
      EXPECT_EQ(played.lights(2).back(), 63);
    }
  }
}

TEST(KeyTap, WorksWhileTheMenuIsOpen) {
  const Played played = playEvents(R"(
{"do":"menu","open":true}
{"do":"key","key":"brightnessUp"}
{"do":"settle"}
{"do":"menu","open":false}
)");
  EXPECT_EQ(played.lights(2), (std::vector<int>{56}));
  EXPECT_EQ(played.swallowed(), (Swallowed{true, true}));
}
