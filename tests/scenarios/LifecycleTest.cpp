// Launching, the menu, and quitting at any point.
#include <gtest/gtest.h>

#include <sstream>

#include "desk/Desk.h"
#include "simulator/kernel/Object.h"
#include "simulator/mac/Mac.h"
#include "simulator/mac/Scenario.h"
#include "tests/support/Lines.h"
#include "tests/support/Play.h"

using namespace lines;
using nlohmann::json;

namespace {

const json* itemNamed(const json& menu, const std::string& title) {
  for (const auto& item : menu) {
    if (item["title"] == title) return &item;
  }
  return nullptr;
}

}  // namespace

TEST(Lifecycle, MenuHoldsItsFixedItems) {
  const Played played = playScenario(launched + menu(true) + snapshot("open") + menu(false) + snapshot("closed"));
  const auto snapshots = played.of("snapshot");
  ASSERT_EQ(snapshots.size(), 2U);
  EXPECT_EQ(snapshots[0]["name"], "open");
  EXPECT_EQ(snapshots[0]["running"], true);
  const json& menu = snapshots[0]["menu"];
  ASSERT_GE(menu.size(), 5U);
  const std::vector<json> items(menu.end() - 5, menu.end());  // below the sliders
  EXPECT_EQ(items[0]["title"], "Start at Login");
  EXPECT_EQ(items[1]["title"], "Check for Updates…");
  EXPECT_EQ(items[2]["separator"], true);
  EXPECT_EQ(items[3]["title"].get<std::string>().find("Version "), 0U);
  EXPECT_EQ(items[3]["enabled"], false);
  EXPECT_EQ(items[4]["title"], "Quit Dalvane");
  EXPECT_EQ(items[4]["enabled"], true);
  std::string keys;
  for (const json& item : items) keys += item["key"].get<std::string>() + "|";
  EXPECT_EQ(keys, "||||q|");
  EXPECT_EQ(snapshots[0]["displays"], json::parse(R"([{"id":1,"brightness":null},{"id":2,"brightness":50}])"));
  EXPECT_TRUE(snapshots[1]["menu"].is_null());
}

TEST(Lifecycle, TheStatusItemIsAsWideAsTheMenuBarIsThick) {
  const Played played = playScenario(snapshot("before") + launched + snapshot("launched"));
  EXPECT_EQ(played.of("snapshot")[0]["status_item"], nullptr);
  EXPECT_EQ(played.of("snapshot")[1]["status_item"]["length"], -2);
}

TEST(Lifecycle, QuitsFromItsMenu) {
  for (const std::string& open : {std::string(), menu(true)}) {
    const Played played = playScenario(launched + open + click("Quit Dalvane") + snapshot("after"));
    EXPECT_EQ(played.of("exit").size(), 1U);
    EXPECT_EQ(played.of("snapshot")[0]["running"], false);
    EXPECT_EQ(played.status, 0);
  }
}

TEST(Lifecycle, OpenMenuIsNotOpenedAgain) {
  const Played played = playScenario(launched + menu(true) + menu(true) + menu(false) + snapshot("closed"));
  EXPECT_TRUE(played.of("snapshot")[0]["menu"].is_null());
  EXPECT_EQ(played.status, 0);
}

TEST(Lifecycle, DisabledItemCannotBeChosen) {
  const Played open = playScenario(launched + menu(true) + snapshot("menu"));
  const std::string version = (open.of("snapshot")[0]["menu"].end() - 2)->at("title");
  ASSERT_TRUE(itemNamed(open.of("snapshot")[0]["menu"], version));
  const Played played = playScenario(launched + click(version) + snapshot("after"));
  EXPECT_EQ(played.of("snapshot")[0]["running"], true);
  EXPECT_EQ(played.status, 0);
}

TEST(Lifecycle, QuitsAtEveryPoint) {
  for (const std::string& before :
       {std::string(), key("brightnessUp"), wake, disableTap("timeout"), menu(true), displayGone(2)}) {
    for (const double time : {0.0, 0.005, 0.01, 0.013, 0.02, 0.045, 0.07, 0.2}) {
      WITH_SEEDS(seed, 3) {
        for (const std::string& start : {launched, twoDisplays + launch}) {
          const Played played = playScenario(start + before + advance(time) + quit + advance(1), seed);
          EXPECT_EQ(played.status, 0) << before << " " << time;
          EXPECT_EQ(played.of("exit").size(), 1U) << before << " " << time;
        }
      }
    }
  }
}

TEST(Lifecycle, StopsInOrder) {
  const Played played = playScenario(launched + quit);
  const auto& last = played.records;
  ASSERT_GE(last.size(), 4U);
  EXPECT_EQ(last[last.size() - 4]["api"], "CFMachPortInvalidate");
  for (const std::size_t listener : {3U, 2U}) {  // of restarts of the audio service, and of the default output
    EXPECT_EQ(last[last.size() - listener]["api"], "AudioObjectRemovePropertyListenerBlock");
  }
  EXPECT_EQ(last.back()["what"], "exit");
  EXPECT_EQ(last.back()["status"], 0);
}

namespace {

// How much of a kind is alive when the program first makes a call.
std::size_t aliveAt(const std::string& call, const std::string& kind) {
  std::vector<std::size_t> alive;
  const auto look = [&](std::string_view record) {
    if (json::parse(record).value("api", "") == call) alive.push_back(simulator::liveObjects()[kind]);
  };
  simulator::Mac machine(dalvaneProgram(), {.trace = look, .fatal = {}});
  simulator::Scenario scenario(machine);
  std::istringstream steps(launched + quit);
  scenario.add(steps, "test");
  scenario.play();
  EXPECT_TRUE(machine.shutDown());
  return alive.at(0);
}

}  // namespace

TEST(Lifecycle, StartsTheVolumeBeforeTheBrightness) {
  // When the volume begins to listen to the output only the delegate observes something: the brightness adds two.
  EXPECT_EQ(aliveAt("AudioObjectAddPropertyListenerBlock", "notification observer"), 1U);
}

TEST(Lifecycle, StopsTheUpdaterThenTheVolumeThenTheBrightness) {
  // The updater's timer goes after the event tap and before the volume; when that stops listening to the output it has
  // given its own observer back, and the brightness still has its two.
  EXPECT_EQ(aliveAt("CFMachPortInvalidate", "CFRunLoopTimer"), 1U);
  EXPECT_EQ(aliveAt("AudioObjectRemovePropertyListenerBlock", "CFRunLoopTimer"), 0U);
  EXPECT_EQ(aliveAt("CFMachPortInvalidate", "notification observer"), 3U);
  EXPECT_EQ(aliveAt("AudioObjectRemovePropertyListenerBlock", "notification observer"), 2U);
}

TEST(Lifecycle, CanBeLaunchedAgain) {
  const Played played =
      playScenario(launched + quit + key("brightnessUp") + launch + settle + key("brightnessUp") + settle);
  EXPECT_EQ(played.of("exit").size(), 2U);
  EXPECT_EQ(played.lights(2), (std::vector<int>{56}));
  EXPECT_EQ(played.of("input").size(), 2U);  // nobody was there for the first key
  EXPECT_EQ(played.status, 0);
}

TEST(Lifecycle, SecondLaunchChangesNothing) {
  const Played played = playScenario(launched + launch + settle);
  EXPECT_EQ(played.calls("CGEventTapCreate").size(), 1U);
}

TEST(Lifecycle, LastsADayAtRestLookingForUpdatesOnly) {
  const Played played = playScenario(launched + advance(86400));
  for (const auto& record : played.records) {
    if (record["what"] == "call" && record["api"] == "NSURLSession.dataTaskWithRequest") continue;
    EXPECT_TRUE(record["t"] <= 1 || record["t"] >= 86400) << record;
  }
}
