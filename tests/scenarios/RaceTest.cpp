// Lines that happen in the middle of what the lines before them started.
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <random>
#include <set>

#include "tests/support/Lines.h"
#include "tests/support/Play.h"

using namespace lines;
using nlohmann::json;

namespace {

// Where in the trace the line of that name begins.
std::size_t placeOf(const Played& played, const std::string& name) {
  const auto found = std::ranges::find_if(
      played.records, [&name](const json& record) { return record["what"] == "do" && record["line"]["do"] == name; });
  EXPECT_NE(found, played.records.end()) << name;
  return static_cast<std::size_t>(found - played.records.begin());
}

}  // namespace

TEST(Race, HappensAtAMomentThatTheSeedChooses) {
  std::set<std::size_t> places;
  std::set<double> times;
  bool withinARead = false;
  WITH_SEEDS(seed, 60) {
    const Played played = playScenario(twoDisplays + launch + race(key("mute")) + settle + snapshot("end"), seed);
    EXPECT_EQ(played.status, 0);
    const std::size_t place = placeOf(played, "key");
    EXPECT_GT(place, placeOf(played, "launch"));
    EXPECT_LT(place, placeOf(played, "snapshot"));
    places.insert(place);
    times.insert(played.records[place]["t"].get<double>());
    const auto reads = played.calls("IOAVServiceReadI2C");
    ASSERT_FALSE(reads.empty());
    const double begun = played.calls("IOAVServiceWriteI2C")[0]["t"];
    const double now = played.records[place]["t"];
    withinARead |= now > begun && now < reads.back()["t"];
  }
  EXPECT_GE(places.size(), 5U);
  EXPECT_GE(times.size(), 3U);
  EXPECT_TRUE(withinARead);
}

TEST(Race, IsTheSameWithTheSameSeed) {
  const std::string story =
      twoDisplays + launch + race(displayGone(2)) + race(key("brightnessUp")) + race(wake) + settle + snapshot("end");
  WITH_SEEDS(seed, 10) { EXPECT_EQ(playScenario(story, seed).bytes, playScenario(story, seed).bytes); }
}

TEST(Race, IsOverBeforeTheNextLineThatIsNotAboutTime) {
  WITH_SEEDS(seed, 40) {
    const Played played = playScenario(
        twoDisplays + race(monitor(2, {{"current", 30}})) + launch + race(displayGone(2)) + snapshot("end"), seed);
    EXPECT_EQ(played.status, 0);
    EXPECT_LT(placeOf(played, "monitor"), placeOf(played, "launch"));
    EXPECT_LT(placeOf(played, "launch"), placeOf(played, "snapshot"));
    EXPECT_EQ(played.of("snapshot")[0]["displays"].size(), 1U);
  }
}

TEST(Race, HappensEvenWhereNothingRuns) {
  const Played played = playScenario(race(pointer(1, 1)));
  EXPECT_EQ(played.status, 0);
  EXPECT_EQ(placeOf(played, "pointer"), played.records.size() - 1);
}

// The trace tells when something happened in the middle of a call.
TEST(Race, TellsWhatHappensDuringACall) {
  const Played played = playScenario(twoDisplays + launch + settle + during("NSEvent.eventWithCGEvent", wake) +
                                     key("brightnessUp") + settle);
  EXPECT_LT(placeOf(played, "key"), placeOf(played, "wake"));
  EXPECT_LT(placeOf(played, "wake"), played.records.size());
}

// What the Mac sleeps in the middle of a wait comes on top of it.
TEST(Race, NeverTurnsTimeBack) {
  WITH_SEEDS(seed, 20) {
    const Played played =
        playScenario(twoDisplays + launch + race(macSleeps(4)) + advance(0.1) + snapshot("end"), seed);
    EXPECT_EQ(played.records[placeOf(played, "snapshot")]["t"], 4.1);
    double before = 0;
    for (const json& record : played.records) {
      EXPECT_GE(record["t"].get<double>(), before);
      before = record["t"];
    }
  }
}

TEST(Race, TimePassesFromWhereItStands) {
  WITH_SEEDS(seed, 3) {
    const auto play = [&](const std::string& pause, const std::string& rest) {
      auto records =
          playScenario(twoDisplays + launch + pause + key("brightnessUp") + rest + snapshot("end"), seed).records;
      for (json& record : records) record.erase("line");
      return records;
    };
    EXPECT_EQ(play(race(advance(1)), race(settle)), play(advance(1), settle));
  }
}

TEST(Race, SaysWhereAMistakeIs) {
  EXPECT_EQ(playScenario(twoDisplays + launch + race(displayGone(9)) + settle).error, "test:6: there is no display 9");
  EXPECT_EQ(playScenario(R"({"do":"wake","race":"yes"})").error, R"(test:1: member "race" must be true or false)");
  EXPECT_EQ(playScenario(during("dlopen", race(wake))).error,
            R"(test:1: member "line" happens in the middle of the call, not at another moment)");
}

// A monitor goes at any moment of the walk over the registry and of the reads: the others are none the worse for it.
TEST(Race, AMonitorThatGoesInTheMiddleHarmsNoOther) {
  WITH_SEEDS(seed, 100) {
    const Played played =
        playScenario(displayAt(1) + displayAt(2) + displayAt(3) + pointAt(3) + launch + race(displayGone(1)) +
                         race(displayAt(4, {{"monitor", {{"current", 20}, {"maximum", 100}}}})) + settle +
                         key("brightnessUp") + pointAt(4) + key("brightnessDown") + settle,
                     seed);
    EXPECT_EQ(played.status, 0);
    EXPECT_EQ(played.lights(3), std::vector<int>{56});
    EXPECT_EQ(played.lights(4), std::vector<int>{13});
  }
}

// The Mac falls asleep at any moment.
TEST(Race, ASleepInTheMiddleHarmsNothing) {
  WITH_SEEDS(seed, 60) {
    const Played played = playScenario(
        displayAt(1) + pointAt(1) + launch + race(macSleeps(3600)) + settle + key("brightnessUp") + settle, seed);
    EXPECT_EQ(played.status, 0);
    EXPECT_EQ(played.lights(1), std::vector<int>{56});
  }
}

namespace {

// Half an hour at a desk where everything happens at once.
std::string busyDesk(std::uint64_t seed) {
  std::mt19937_64 random(seed);
  const auto oneOf = [&random](const auto& choices) { return choices[random() % std::size(choices)]; };
  constexpr const char* keys[] = {"volumeUp", "volumeDown", "mute", "brightnessUp", "brightnessDown"};
  constexpr double pauses[] = {0.01, 0.5, 3};
  constexpr double sleeps[] = {1, 60, 3600};
  std::string story = output(10, {{"uid", "HDMI-1"}, {"name", "Television"}, {"default", true}}) + play("Music", 10);
  for (int id = 1; id < 4; ++id) story += displayAt(id);
  if (random() % 2 == 0) story += temper({{"audio", "rough"}, {"threads", "rough"}});
  story += launch;
  for (int i = 0; i < 40; ++i) {
    std::string happens;
    switch (random() % 10) {
      case 0:
        happens = wake;
        break;
      case 1:
        happens = pointer(static_cast<double>(random() % 400), 50);
        break;
      case 2:
        happens = menu(random() % 2 == 0);
        break;
      case 3:
        happens = macSleeps(oneOf(sleeps));
        break;
      case 4:
        happens = restartAudio;
        break;
      case 5:
        happens = output(11, {{"uid", "USB"}, {"name", "Amplifier"}, {"rate", random() % 2 ? 44100 : 96000}});
        break;
      case 6:
        happens = defaultOutput(10);
        break;
      default:
        happens = key(oneOf(keys));
        break;
    }
    story += random() % 3 == 0 ? happens : race(happens);
    if (random() % 3 == 0) story += advance(oneOf(pauses));
  }
  // What it comes to, when it is quiet again.
  story += temper({{"audio", "smooth"}, {"threads", "smooth"}}) + menu(false) + settle + wake + settle + advance(10);
  for (int id = 1; id < 4; ++id) story += monitor(id, {{"current", 50}});
  story += wake + settle;
  for (int id = 1; id < 4; ++id) story += pointAt(id) + key("brightnessUp") + settle;
  return story + snapshot("end");
}

}  // namespace

// Whatever happens in the middle of whatever else: nothing breaks, nothing is left, and every monitor obeys afterwards.
TEST(Race, AnythingMayHappenInTheMiddleOfAnything) {
  WITH_SEEDS(seed, seedsInTime(60)) {
    const Played played = playScenario(busyDesk(seed), seed);
    EXPECT_EQ(played.status, 0) << played.error;
    ASSERT_EQ(played.of("snapshot").size(), 1U);
    const json displays = played.of("snapshot")[0]["displays"];
    ASSERT_EQ(displays.size(), 3U);
    for (const json& display : displays) EXPECT_EQ(display["brightness"], 56);
  }
}
