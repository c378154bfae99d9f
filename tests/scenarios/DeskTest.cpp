// What people do to a desk: mirrored, moved and slow displays, buttons on a monitor, other programs that watch the
// keys, keys that are held.
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/support/Lines.h"
#include "tests/support/Play.h"

using namespace lines;
using nlohmann::json;

using Lights = std::vector<int>;
using Swallowed = std::vector<bool>;

namespace {

const std::string brighter = key("brightnessUp");

std::string tap(const std::string& process, const std::string& place, const json& swallows = json::array()) {
  return line("tap", {{"process", process}, {"place", place}, {"swallows", swallows}});
}

// Of the records of what another program saw: its name, with "!" after it when it swallowed the event.
std::vector<std::string> seen(const Played& played) {
  std::vector<std::string> result;
  for (const json& record : played.of("seen")) {
    result.push_back(record["process"].get<std::string>() + (record["swallowed"].get<bool>() ? "!" : ""));
  }
  return result;
}

using Names = std::vector<std::string>;

}  // namespace

// ---- Displays ----

TEST(Desk, AMirroringDisplayHasNoScreen) {
  const Played played = playScenario(displayAt(1) + displayAt(2, {{"mirrors", 1}, {"frame", {100, 0, 100, 100}}}) +
                                     pointAt(1) + launch + settle + brighter + settle);
  EXPECT_EQ(played.status, 0);
  // The screen under the pointer is the mirrored display's.
  EXPECT_EQ(played.lights(1), Lights{56});
  EXPECT_EQ(played.lights(2), Lights{});
}

TEST(Desk, MirroringBeginsAndEnds) {
  const std::string onTheRight = pointAt(2) + brighter + settle;
  const Played played =
      playScenario(displayAt(1) + displayAt(2) + launch + settle + onTheRight + display(2, {{"mirrors", 1}}) + settle +
                   onTheRight + display(2, {{"mirrors", nullptr}}) + settle + onTheRight + onTheRight);
  EXPECT_EQ(played.lights(2), (Lights{56, 63}));
  EXPECT_EQ(played.lights(1), Lights{});
}

TEST(Desk, AScreenThatMovesIsFoundWhereItIs) {
  const Played played =
      playScenario(displayAt(1) + displayAt(2) + launch + settle + display(2, {{"frame", {-100, 0, 100, 100}}}) +
                   settle + pointer(-50, 50) + brighter + settle);
  EXPECT_EQ(played.lights(2), Lights{56});
  EXPECT_EQ(playScenario(display(3, {{"frame", {0, 0, 1, 1}}})).error, "test:1: there is no display 3");
  EXPECT_EQ(playScenario(displayAt(3) + displayAt(3, {{"serial", 4}})).error, "test:2: display 3 is connected already");
}

TEST(Desk, SeveralChangesComeInOneNotification) {
  const json changes =
      json::array({{{"id", 1}, {"gone", true}}, json::parse(displayAt(3)), {{"id", 2}, {"frame", {100, 0, 100, 100}}}});
  json cleaned = changes;
  cleaned[1].erase("do");
  const std::string atOnce = line("display", {{"changes", cleaned}});
  const Played played = playScenario(displayAt(1) + displayAt(2) + launch + settle + atOnce + settle +
                                     pointer(150, 50) + brighter + pointAt(3) + brighter + settle);
  EXPECT_EQ(played.lights(2), Lights{56});
  EXPECT_EQ(played.lights(3), Lights{56});
  // One refresh: after the two of launch each monitor that is there is read once.
  EXPECT_EQ(played.calls("IOAVServiceReadI2C").size(), 4U);
  EXPECT_EQ(playScenario(line("display", {{"changes", {{{"id", 1}, {"colour", "red"}}}}})).error,
            R"(test:1: missing member "changes[0].name")");
}

// ---- Monitors ----

TEST(Desk, TheMonitorsOwnButtonsAreNotNoticedButAlsoNotFoughtWith) {
  const Played played = playScenario(launched + monitor(2, {{"current", 10}}) + brighter + settle);
  EXPECT_EQ(played.lights(2), Lights{56});
}

TEST(Desk, ASlowMonitorIsAskedAgain) {
  const Played played =
      playScenario(displayAt(2) + fault(2, "slow") + pointAt(2) + launch + settle + brighter + settle);
  EXPECT_EQ(played.lights(2), Lights{56});
  EXPECT_EQ(played.swallowed(), (Swallowed{true, true}));
  const auto reads = played.calls("IOAVServiceReadI2C");
  ASSERT_EQ(reads.size(), 2U);
  EXPECT_NE(reads[0]["status"], 0);
  EXPECT_EQ(reads[1]["status"], 0);
}

TEST(Desk, AMonitorWithALateReplyIsFoundByTheSecondPress) {
  const Played played =
      playScenario(displayAt(2, {{"monitor", {{"current", 50}, {"maximum", 100}, {"reply-delay", 0.12}}}}) +
                   pointAt(2) + launch + settle + brighter + settle + brighter + settle);
  EXPECT_EQ(played.lights(2), Lights{56});
  EXPECT_EQ(played.swallowed(), (Swallowed{false, false, true, true}));
  const auto reads = played.calls("IOAVServiceReadI2C");
  ASSERT_EQ(reads.size(), 2U);
  // What came first was the standard's null message, whose checksum covers the zeros behind it too.
  EXPECT_EQ(reads[0]["status"], 0);
  EXPECT_EQ(reads[0]["args"]["bytes"], "6e 80 be 00 00 00 00 00 00 00 00");
}

TEST(Desk, AMonitorThatHasNothingToSayIsNotControlled) {
  const Played played = playScenario(displayAt(2) + fault(2, "null-message") + pointAt(2) + launch + settle + brighter +
                                     settle + fault(2, "none") + brighter + settle + brighter + settle);
  EXPECT_EQ(played.lights(2), Lights{56});
  EXPECT_EQ(played.swallowed(), (Swallowed{false, false, false, false, true, true}));
}

// ---- The keyboard ----

TEST(Desk, ATapBeforeMaySwallowAKey) {
  const Played played = playScenario(launched + tap("Remapper", "head", {"brightnessUp"}) + brighter + settle +
                                     key("brightnessDown") + settle);
  EXPECT_EQ(played.lights(2), Lights{44});
  EXPECT_EQ(seen(played), (Names{"Remapper!", "Remapper!", "Remapper", "Remapper"}));
  EXPECT_EQ(played.swallowed(), (Swallowed{true, true}));
}

TEST(Desk, ATapBehindSeesWhatTheProgramPasses) {
  const Played played = playScenario(tap("Logger", "tail") + launched + brighter + settle + key("volumeUp") + settle);
  EXPECT_EQ(played.lights(2), Lights{56});
  // The volume keys are nobody's here: there is no output.
  EXPECT_EQ(seen(played), (Names{"Logger", "Logger"}));
  EXPECT_EQ(played.swallowed(), (Swallowed{true, true, false, false}));
}

TEST(Desk, ATapThatWasThereFirstComesAfterOneAtTheHead) {
  const Played played = playScenario(tap("Older", "head") + launched + tap("Newer", "head") + brighter + settle +
                                     line("tap", {{"process", "Newer"}, {"gone", true}}) + key("volumeUp") + settle);
  EXPECT_EQ(seen(played), (Names{"Newer", "Newer", "Older", "Older"}));
}

TEST(Desk, AHeldKeyRepeatsAsTheKeyboardDoes) {
  const Played played = playScenario(launched + key("brightnessUp", {{"hold", 0.7}}) + settle);
  // Pressed at once, again after 0.5 s and each 0.083 s, released at 0.7 s.
  std::vector<double> times;
  for (const json& record : played.of("input")) times.push_back(record["t"]);
  ASSERT_EQ(times.size(), 5U);
  EXPECT_NEAR(times[1] - times[0], 0.5, 1e-3);
  EXPECT_NEAR(times[2] - times[1], 0.0833, 1e-3);
  EXPECT_NEAR(times[4] - times[0], 0.7, 1e-3);
  EXPECT_EQ(played.lights(2), (Lights{56, 63, 69, 75}));
  EXPECT_EQ(playScenario(key("mute", {{"hold", 1}, {"action", "press"}})).error,
            R"(test:1: member "hold" says it all)");
}

TEST(Desk, AKeyThatIsHeldForShortIsPressedOnce) {
  const Played played = playScenario(launched + key("brightnessUp", {{"hold", 0.3}}) + settle);
  EXPECT_EQ(played.lights(2), Lights{56});
  EXPECT_EQ(played.of("input").size(), 2U);
}
