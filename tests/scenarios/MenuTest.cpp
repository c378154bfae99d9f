// The status menu's slider rows, as their user meets them.
#include <CoreGraphics/CoreGraphics.h>
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <sstream>

#include "simulator/kernel/Object.h"
#include "tests/support/Lines.h"
#include "tests/support/Play.h"
#include "tests/support/Seat.h"

using namespace lines;
using nlohmann::json;

namespace {

const std::string builtIn = display(1, {{"name", "Built-in"}, {"builtin", true}, {"frame", {0, 0, 1512, 982}}});
std::string screen(int id, const std::string& name, int current, int maximum = 100) {
  return display(id, {{"name", name},
                      {"frame", {1512 + id * 2000, 0, 2000, 1200}},
                      {"vendor", 4268},
                      {"product", 41200},
                      {"serial", 7000 + id},
                      {"monitor", {{"current", current}, {"maximum", maximum}}}});
}
std::string pointerOn(int id) { return pointer(1512 + id * 2000 + 10, 10); }
const std::string television = output(10, {{"uid", "tv"}, {"name", "Television"}, {"default", true}});
const std::string start = launch + settle;
const std::string look = snapshot("menu");

// Of each item what a reader sees: "[Header]", "-", "Title", or "Caption: value".
std::vector<std::string> seen(const json& menu) {
  std::vector<std::string> items;
  for (const json& item : menu) {
    const json& slider = item["slider"];
    if (item["separator"] == true) {
      items.emplace_back("-");
    } else if (slider.is_object()) {
      items.push_back(slider["caption"].get<std::string>() + ": " + slider["value"].dump());
    } else {
      const std::string title = item["title"];
      items.push_back(item["header"] == true ? "[" + title + "]" : title.starts_with("Version ") ? "Version" : title);
    }
  }
  return items;
}
using Items = std::vector<std::string>;
Items withFixedItems(Items items) {
  if (!items.empty()) items.emplace_back("-");
  for (const char* const fixed : {"Start at Login", "Check for Updates…", "-", "Version", "Quit Dalvane"}) {
    items.emplace_back(fixed);
  }
  return items;
}

// What every snapshot of a scenario shows.
std::vector<Items> menus(const Played& played) {
  std::vector<Items> all;
  for (const json& record : played.of("snapshot")) all.push_back(seen(record["menu"]));
  return all;
}

// The points that a path of SVG goes through; curves by their ends alone.
void expectPoints(const std::string& path, const std::vector<CGPoint>& points) {
  std::istringstream words(path);
  std::vector<CGPoint> found;
  for (std::string word; words >> word && word != "Z";) {
    CGPoint point{};
    for (int i = 0; i < (word == "C" ? 3 : 1); ++i) words >> point.x >> point.y;
    found.push_back(point);
  }
  ASSERT_EQ(found.size(), points.size()) << path;
  for (std::size_t i = 0; i < points.size(); ++i) {
    EXPECT_NEAR(found[i].x, points[i].x, 1e-9) << path;
    EXPECT_NEAR(found[i].y, points[i].y, 1e-9) << path;
  }
}

json sliderOf(const Played& played, const std::string& caption, std::size_t snapshot = 0) {
  const json menu = played.of("snapshot").at(snapshot)["menu"];
  for (const json& item : menu) {
    if (item["slider"].is_object() && item["slider"]["caption"] == caption) return item["slider"];
  }
  return nullptr;
}

// The levels that were stored for the television, in their order.
std::vector<int> storedSteps(const Played& played) {
  std::vector<int> steps;
  for (const json& record : played.of("preference")) {
    if (record["key"] == "steps.tv") steps.push_back(record["value"]);
  }
  return steps;
}

}  // namespace

// ---- What it holds ----

TEST(Menu, HoldsItsFixedItemsOnlyWhenNothingCanBeSet) {
  const Played played = playScenario(builtIn + start + menu(true) + look);
  EXPECT_EQ(menus(played), (std::vector<Items>{withFixedItems({})}));
}

TEST(Menu, ShowsOneRowForEachExternalDisplay) {
  const Played played =
      playScenario(builtIn + screen(2, "Left", 50) + screen(3, "Right", 75) + start + menu(true) + look);
  EXPECT_EQ(menus(played), (std::vector<Items>{withFixedItems({"[Brightness]", "Left: 8", "Right: 12"})}));
  EXPECT_EQ(played.status, 0);
}

TEST(Menu, ShowsTheVolumeAboveTheBrightness) {
  const Played both = playScenario(screen(2, "Left", 50) + television + start + menu(true) + look);
  EXPECT_EQ(menus(both),
            (std::vector<Items>{withFixedItems({"[Volume]", "Television: 16", "[Brightness]", "Left: 8"})}));
  const Played volumeOnly = playScenario(builtIn + television + start + menu(true) + look);
  EXPECT_EQ(menus(volumeOnly), (std::vector<Items>{withFixedItems({"[Volume]", "Television: 16"})}));
}

TEST(Menu, RowsSayWhatTheyAre) {
  const Played played = playScenario(screen(2, "Left", 50) + television + start + menu(true) + look);
  const json left = sliderOf(played, "Left");
  EXPECT_EQ(left["symbol"], "sun.max.fill");
  EXPECT_EQ(left["minimum"], 0);
  EXPECT_EQ(left["maximum"], 16);
  EXPECT_EQ(left["ticks"], 17);
  EXPECT_EQ(left["label"], "Left");
  EXPECT_EQ(sliderOf(played, "Television")["symbol"], "speaker.wave.2.fill");
  EXPECT_EQ(sliderOf(played, "Television")["label"], "Television");
}

TEST(Menu, HeadersCannotBeChosen) {
  const Played played = playScenario(screen(2, "Left", 50) + start + menu(true) + click("Brightness") + look);
  ASSERT_EQ(menus(played), (std::vector<Items>{withFixedItems({"[Brightness]", "Left: 8"})}));  // it is still open
  EXPECT_EQ(played.of("snapshot")[0]["menu"][0]["enabled"], false);
}

TEST(Menu, IsMadeAnewAtEachOpening) {
  WITH_SEEDS(seed, 5) {
    const std::string openings = menu(true) + look + menu(false);
    const Played played =
        playScenario(screen(2, "Left", 8, 16) + television + start + openings + openings + pointerOn(2) +
                         key("brightnessUp") + settle + screen(3, "Right", 75) + settle + openings + displayGone(2) +
                         output(10, {{"volume", "settable"}}) + defaultOutput(10) + wake + settle + openings,
                     seed);
    const Items first = withFixedItems({"[Volume]", "Television: 16", "[Brightness]", "Left: 8"});
    EXPECT_EQ(menus(played),
              (std::vector<Items>{
                  first, first, withFixedItems({"[Volume]", "Television: 16", "[Brightness]", "Left: 9", "Right: 12"}),
                  withFixedItems({"[Brightness]", "Right: 12"})}));
    EXPECT_EQ(played.status, 0);
  }
}

TEST(Menu, KeepsNoRowsOfEarlierOpenings) {
  Seat seat;
  const auto sliders = [] { return simulator::liveObjects()["NSSlider"]; };
  seat.play(screen(2, "Left", 50) + television + start + menu(true) + menu(false) + menu(true));
  EXPECT_EQ(sliders(), 2U);
  seat.play(menu(false) + displayGone(2) + outputGone(10) + settle + menu(true));
  EXPECT_EQ(sliders(), 0U);
  EXPECT_TRUE(seat.shutDown());
}

TEST(Menu, ShowsAMutedOutputAtNothing) {
  const Played played = playScenario(television + start + key("mute") + settle + menu(true) + look);
  EXPECT_EQ(sliderOf(played, "Television")["value"], 0);
}

TEST(Menu, ShowsAMonitorThatReportsTooMuchAtItsMaximum) {
  const Played played = playScenario(screen(2, "Left", 150) + start + menu(true) + look);
  EXPECT_EQ(sliderOf(played, "Left")["value"], 16);
}

// ---- Its layout ----

TEST(Menu, RowsAreAsWideAsTheMenu) {
  const Played played = playScenario(screen(2, "Left", 50) + start + menu(true) + look);
  const json frame = sliderOf(played, "Left")["frame"];
  EXPECT_EQ(frame[0], 0);
  EXPECT_EQ(frame[1], 0);
  EXPECT_EQ(frame[2], 260);
  // The slider reaches from the symbol to the margin, and ends at the lower one.
  const json slider = sliderOf(played, "Left")["slider_frame"];
  EXPECT_EQ(slider[0].get<double>() + slider[2].get<double>(), 260 - 14);
  EXPECT_EQ(slider[1].get<double>() + slider[3].get<double>(), frame[3].get<double>() - 4);

  const std::string version = "1.4.0-a.version.that.is.long.enough.to.make.the.menu.wider";
  const json release = {{"version", version},
                        {"date", "2026-01-01"},
                        {"dmg_url", "https://downloads.dalvane.example/a.dmg"},
                        {"size_bytes", 1},
                        {"notes", ""}};
  const Played wide =
      playScenario(screen(2, "Left", 50) + feed({{"releases", {release}}}) + start + advance(11) + menu(true) + look);
  const json wideFrame = sliderOf(wide, "Left")["frame"];
  EXPECT_GT(wideFrame[2], 300);
  EXPECT_EQ(wideFrame[2], wide.of("snapshot")[0]["menu"][0]["frame"][2]);
  EXPECT_EQ(wideFrame[3], frame[3]);
  const json wideSlider = sliderOf(wide, "Left")["slider_frame"];
  EXPECT_EQ(wideSlider[0].get<double>() + wideSlider[2].get<double>(), wideFrame[2].get<double>() - 14);
}

TEST(Menu, LongNameEndsInAnEllipsisInsteadOfWideningTheMenu) {
  const std::string name = "A monitor with a name that is far too long for any menu";
  const Played played = playScenario(screen(2, name, 50) + start + menu(true) + look);
  const json slider = sliderOf(played, name);
  EXPECT_EQ(slider["frame"][2], 260);
  const std::string shown = slider["shown_caption"];
  EXPECT_TRUE(shown.starts_with("A monitor with a name") && shown.ends_with("…")) << shown;
  EXPECT_EQ(slider["label"], name);
}

// ---- The keys ----

TEST(Menu, KeysMoveTheOpenMenusSlidersWithoutCallingBack) {
  WITH_SEEDS(seed, 10) {
    const Played played = playScenario(screen(2, "Left", 50) + television + start + pointerOn(2) + menu(true) +
                                           key("brightnessUp") + key("brightnessUp") + key("volumeDown") + settle +
                                           look + key("volumeUp") + key("mute") + settle + look,
                                       seed);
    EXPECT_EQ(menus(played),
              (std::vector<Items>{withFixedItems({"[Volume]", "Television: 15", "[Brightness]", "Left: 10"}),
                                  withFixedItems({"[Volume]", "Television: 0", "[Brightness]", "Left: 10"})}));
    // Had a slider called back, the mute would have been undone, and more would have been stored.
    EXPECT_EQ(storedSteps(played), (std::vector<int>{15, 16, 16}));
    EXPECT_EQ(played.lights(2).back(), 63);
    EXPECT_EQ(played.status, 0);
  }
}

TEST(Menu, KeyForADisplayWithoutARowMovesNoOther) {
  WITH_SEEDS(seed, 5) {
    const Played played =
        playScenario(screen(2, "Left", 50) + start + menu(true) + screen(3, "Right", 75) + settle + pointerOn(3) +
                         key("brightnessUp") + settle + look + menu(false) + menu(true) + look,
                     seed);
    EXPECT_EQ(menus(played), (std::vector<Items>{withFixedItems({"[Brightness]", "Left: 8"}),
                                                 withFixedItems({"[Brightness]", "Left: 8", "Right: 13"})}));
  }
}

TEST(Menu, DeclinedKeyLeavesTheSlidersAlone) {
  const Played played = playScenario(builtIn + screen(2, "Left", 50) + start + menu(true) + pointer(10, 10) +
                                     monitor(2, {{"current", 75}}) + key("brightnessUp") + settle + look);
  EXPECT_EQ(sliderOf(played, "Left")["value"], 8);
  EXPECT_EQ(played.swallowed(), (std::vector<bool>{false, false}));
}

// ---- Drags ----

TEST(Menu, DragSetsTheBrightness) {
  WITH_SEEDS(seed, 5) {
    const Played played = playScenario(
        screen(2, "Left", 50) + screen(3, "Right", 75) + start + menu(true) + slide("Right", 4) + settle + look, seed);
    EXPECT_EQ(played.lights(3), (std::vector<int>{25}));
    EXPECT_EQ(played.lights(2), (std::vector<int>{}));
    EXPECT_EQ(sliderOf(played, "Right")["value"], 4);
    EXPECT_EQ(sliderOf(played, "Left")["value"], 8);
    EXPECT_EQ(played.calls("OSDManager.showImage").size(), 0U);  // the slider itself shows the level
  }
}

TEST(Menu, DragOfTheVolumeIsHeard) {
  const Played played = playScenario(television + play("Music", 10) + start + snapshot("before") + menu(true) +
                                     slide("Television", 8) + advance(1) + snapshot("after"));
  EXPECT_EQ(played.of("snapshot")[0]["speakers"][0]["level"], 0.5);
  EXPECT_NEAR(played.of("snapshot")[1]["speakers"][0]["level"].get<double>(), 0.0625, 1e-6);
}

TEST(Menu, DragReportsEachStepOnce) {
  WITH_SEEDS(seed, 5) {
    const std::string through = slide("Television", 6.2, {{"through", {5.4, 5.6}}});
    const Played played = playScenario(television + start + menu(true) + through + settle + look, seed);
    EXPECT_EQ(storedSteps(played), (std::vector<int>{5, 6}));
    EXPECT_EQ(sliderOf(played, "Television")["value"], 6);
    // From 5 the first stop is nothing new.
    const Played again =
        playScenario(television + preference("steps.tv", 5) + start + menu(true) + through + settle, seed);
    EXPECT_EQ(storedSteps(again), (std::vector<int>{6}));
  }
}

TEST(Menu, DragToTheLevelThatAKeyHasSetReportsNothing) {
  const Played played = playScenario(television + start + menu(true) + key("volumeDown") + settle +
                                     slide("Television", 15) + settle + slide("Television", 14) + settle);
  EXPECT_EQ(storedSteps(played), (std::vector<int>{15, 14}));
}

TEST(Menu, DragEndsAtTheEndsOfTheSlider) {
  const Played played =
      playScenario(television + start + menu(true) + slide("Television", -3) + slide("Television", 99) + settle + look);
  EXPECT_EQ(storedSteps(played), (std::vector<int>{0, 16}));
  EXPECT_EQ(sliderOf(played, "Television")["value"], 16);
}

TEST(Menu, HeldDragGoesOnWithTheNextLine) {
  const json held = {{"release", false}};
  const Played played =
      playScenario(television + screen(2, "Left", 50) + start + menu(true) + slide("Television", 9, held) + advance(5) +
                   slide("Television", 3, held) + slide("Left", 4) + settle + look);
  EXPECT_EQ(storedSteps(played), (std::vector<int>{9, 3}));
  EXPECT_EQ(sliderOf(played, "Television")["value"], 3);
  EXPECT_EQ(sliderOf(played, "Left")["value"], 4);
  EXPECT_EQ(played.status, 0);
}

TEST(Menu, IsNotMadeAnewWhileASliderIsHeld) {
  WITH_SEEDS(seed, 5) {
    // AppKit asks the delegate of the open menu again.
    const Played played =
        playScenario(television + screen(2, "Left", 50) + start + menu(true) +
                         slide("Television", 9, {{"release", false}}) + screen(3, "Right", 75) + settle + menu(true) +
                         slide("Television", 3) + settle + look + menu(false) + menu(true) + look,
                     seed);
    EXPECT_EQ(storedSteps(played), (std::vector<int>{9, 3}));
    EXPECT_EQ(
        menus(played),
        (std::vector<Items>{withFixedItems({"[Volume]", "Television: 3", "[Brightness]", "Left: 8"}),
                            withFixedItems({"[Volume]", "Television: 3", "[Brightness]", "Left: 8", "Right: 12"})}));
  }
}

TEST(Menu, DisplayThatGoesAwayDuringADragLeavesARowThatDoesNothing) {
  WITH_SEEDS(seed, 5) {
    const Played played = playScenario(screen(2, "Left", 50) + screen(3, "Right", 75) + start + menu(true) +
                                           slide("Left", 9, {{"release", false}}) + displayGone(2) + settle +
                                           slide("Left", 3) + settle + look + menu(false) + menu(true) + look,
                                       seed);
    EXPECT_EQ(sliderOf(played, "Left")["value"], 3);
    EXPECT_EQ(played.lights(3), (std::vector<int>{}));
    EXPECT_EQ(menus(played)[1], withFixedItems({"[Brightness]", "Right: 12"}));
    EXPECT_EQ(played.status, 0);
  }
}

TEST(Menu, OutputThatGoesAwayDuringADragLeavesARowThatDoesNothing) {
  WITH_SEEDS(seed, 5) {
    const Played played =
        playScenario(television + output(11, {{"uid", "own"}, {"name", "Own"}, {"volume", "settable"}}) + start +
                         menu(true) + slide("Television", 9, {{"release", false}}) + settle + outputGone(10) + settle +
                         slide("Television", 3) + settle,
                     seed);
    EXPECT_EQ(storedSteps(played), (std::vector<int>{9}));
    EXPECT_EQ(played.status, 0);
  }
}

TEST(Menu, NothingIsDraggedWithoutTheMenuOrTheRow) {
  const Played played =
      playScenario(television + start + slide("Television", 3) + settle + menu(true) + slide("Beamer", 3) + settle +
                   slide("Quit Dalvane", 3) + menu(false) + slide("Television", 3) + settle);
  EXPECT_EQ(storedSteps(played), (std::vector<int>{}));
  EXPECT_EQ(played.status, 0);
}

TEST(Menu, QuitsInTheMiddleOfADrag) {
  WITH_SEEDS(seed, 5) {
    const std::string dragging =
        television + screen(2, "Left", 50) + start + menu(true) + slide("Television", 9, {{"release", false}});
    for (const std::string& end : {quit, click("Quit Dalvane"), std::string()}) {
      const Played played = playScenario(dragging + end, seed);
      EXPECT_EQ(played.of("exit").size(), 1U);
      EXPECT_EQ(played.status, 0);
    }
  }
}

TEST(Menu, GoesOnRealTimeToo) {
  const Played played =
      playScenario(screen(2, "Left", 50) + television + start + menu(true) + slide("Left", 9, {{"through", {4, 12}}}) +
                       look + slide("Television", 5) + settle + look + menu(false) + menu(true) + settle + look,
                   1, simulator::Clock::live);
  EXPECT_EQ(menus(played).back(), withFixedItems({"[Volume]", "Television: 5", "[Brightness]", "Left: 9"}));
  EXPECT_EQ(played.lights(2).back(), 56);
  EXPECT_EQ(played.of("snapshot")[0]["icon"]["paths"].size(), 3U);
  EXPECT_EQ(played.status, 0);
}

TEST(Menu, SlideIsReadStrictly) {
  EXPECT_EQ(playScenario(slide("A", 1, {{"through", 5}})).error,
            "test:1: member \"through\" must be a list of numbers");
  EXPECT_EQ(playScenario(slide("A", 1, {{"through", {1, "2"}}})).error,
            "test:1: member \"through\" must be a list of numbers");
  EXPECT_EQ(playScenario(line("slide", {{"row", "A"}})).status, 2);
  EXPECT_EQ(playScenario(line("slide", {{"to", 1}})).status, 2);
}

// ---- The icon ----

TEST(Menu, StatusItemShowsItsIcon) {
  WITH_SEEDS(seed, 5) {
    const Played played = playScenario(snapshot("off") + start + snapshot("on") + quit + snapshot("quit"), seed);
    EXPECT_EQ(played.of("snapshot")[0]["icon"], nullptr);
    EXPECT_EQ(played.of("snapshot")[2]["icon"], nullptr);
    const json icon = played.of("snapshot")[1]["icon"];
    EXPECT_EQ(icon["width"], 18);
    EXPECT_EQ(icon["height"], 18);
    EXPECT_EQ(icon["template"], true);
    EXPECT_EQ(icon["description"], "Dalvane");
    ASSERT_EQ(icon["paths"].size(), 3U);
    EXPECT_EQ(icon["paths"][0]["op"], "fill");
    for (const std::size_t stroke : {1U, 2U}) {
      EXPECT_EQ(icon["paths"][stroke]["op"], "stroke");
      EXPECT_EQ(icon["paths"][stroke]["line_width"], 1.4);
      EXPECT_EQ(icon["paths"][stroke]["cap"], "round");
    }
    EXPECT_EQ(icon["paths"][1]["d"],
              "M 3.6 9 L 2.2 9 M 4.9 5.9 L 3.9 4.9 M 4.9 12.1 L 3.9 13.1 M 8 4.4 L 8 3 M 8 13.6 L 8 15");
    // Half a disc: from its top over its left to its bottom, and closed.
    const std::string sun = icon["paths"][0]["d"];
    EXPECT_TRUE(sun.ends_with(" Z"));
    expectPoints(sun, {{8, 5.9}, {8, 5.9}, {4.9, 9}, {8, 12.1}});
    // Two waves, each from 40° above its centre to 40° below, and nothing that joins them.
    const auto wave = [](double radius) {
      const double x = 7.65 + radius * std::cos(40 * std::numbers::pi / 180);
      const double y = radius * std::sin(40 * std::numbers::pi / 180);
      return std::vector<CGPoint>{{x, 9 - y}, {x, 9 - y}, {x, 9 + y}};
    };
    const std::string waves = icon["paths"][2]["d"];
    const auto second = waves.find(" M ");
    ASSERT_NE(second, std::string::npos);
    expectPoints(waves.substr(0, second), wave(4.2));
    expectPoints(waves.substr(second + 1), wave(7.0));
  }
}

TEST(Menu, StatusItemWithoutAButtonHasItsMenuAllTheSame) {
  const Played played = playScenario(fail("NSStatusItem.button", 1) + start + menu(true) + look);
  EXPECT_EQ(played.of("snapshot")[0]["icon"], nullptr);
  EXPECT_EQ(menus(played), (std::vector<Items>{withFixedItems({})}));
  EXPECT_EQ(played.status, 0);
}

TEST(Menu, RowWithoutItsSymbolSetsTheBrightnessAllTheSame) {
  const Played played = playScenario(fail("NSImage.imageWithSystemSymbolName", 1) + screen(2, "Left", 50) + start +
                                     menu(true) + slide("Left", 4) + settle + look);
  EXPECT_EQ(played.lights(2), (std::vector<int>{25}));
  EXPECT_EQ(sliderOf(played, "Left")["value"], 4);
  EXPECT_EQ(played.status, 0);
}
