// Launching, the menu, and quitting at any point.
#include <gtest/gtest.h>

#include <array>

#include "tests/support/Play.h"

namespace {

const nlohmann::json* itemNamed(const nlohmann::json& menu, const std::string& title) {
  for (const auto& item : menu) {
    if (item["title"] == title) return &item;
  }
  return nullptr;
}

}  // namespace

TEST(Lifecycle, MenuHoldsItsFixedItems) {
  const Played played = playScenario(launched + R"(
{"do":"menu","open":true}
{"do":"snapshot","name":"open"}
{"do":"menu","open":false}
{"do":"snapshot","name":"closed"}
)");
  const auto snapshots = played.of("snapshot");
  ASSERT_EQ(snapshots.size(), 2U);
  EXPECT_EQ(snapshots[0]["name"], "open");
  EXPECT_EQ(snapshots[0]["running"], true);
  const auto& menu = snapshots[0]["menu"];
  ASSERT_EQ(menu.size(), 5U);
  EXPECT_EQ(menu[0]["title"], "Start at Login");
  EXPECT_EQ(menu[1]["title"], "Check for Updates…");
  EXPECT_EQ(menu[2]["separator"], true);
  EXPECT_EQ(menu[3]["title"].get<std::string>().find("Version "), 0U);
  EXPECT_EQ(menu[3]["enabled"], false);
  EXPECT_EQ(menu[4]["title"], "Quit Dalvane");
  EXPECT_EQ(menu[4]["enabled"], true);
  EXPECT_EQ(snapshots[0]["displays"],
            nlohmann::json::parse(R"([{"id":1,"brightness":null},{"id":2,"brightness":50}])"));
  EXPECT_TRUE(snapshots[1]["menu"].is_null());
}

TEST(Lifecycle, QuitsFromItsMenu) {
  for (const std::string open : {"", R"({"do":"menu","open":true})"}) {
    const Played played = playScenario(launched + open + R"(
{"do":"click","item":"Quit Dalvane"}
{"do":"snapshot","name":"after"}
)");
    EXPECT_EQ(played.of("exit").size(), 1U);
    EXPECT_EQ(played.of("snapshot")[0]["running"], false);
    EXPECT_EQ(played.status, 0);
  }
}

TEST(Lifecycle, OpenMenuIsNotOpenedAgain) {
  const Played played = playScenario(launched + R"(
{"do":"menu","open":true}
{"do":"menu","open":true}
{"do":"menu","open":false}
{"do":"snapshot","name":"closed"}
)");
  EXPECT_TRUE(played.of("snapshot")[0]["menu"].is_null());
  EXPECT_EQ(played.status, 0);
}

TEST(Lifecycle, DisabledItemCannotBeChosen) {
  const Played open = playScenario(launched + R"(
{"do":"menu","open":true}
{"do":"snapshot","name":"menu"}
)");
  const std::string version = open.of("snapshot")[0]["menu"][3]["title"];
  ASSERT_TRUE(itemNamed(open.of("snapshot")[0]["menu"], version));
  const Played played = playScenario(launched + R"({"do":"click","item":")" + version + "\"}\n" +
                                     R"({"do":"snapshot","name":"after"})" + "\n");
  EXPECT_EQ(played.of("snapshot")[0]["running"], true);
  EXPECT_EQ(played.status, 0);
}

TEST(Lifecycle, QuitsAtEveryPoint) {
  constexpr std::array before = {"",
                                 R"({"do":"key","key":"brightnessUp"})",
                                 R"({"do":"wake"})",
                                 R"({"do":"disable-tap","by":"timeout"})",
                                 R"({"do":"menu","open":true})",
                                 R"({"do":"display","id":2,"gone":true})"};
  constexpr std::array times = {"0", "0.005", "0.01", "0.013", "0.02", "0.045", "0.07", "0.2"};
  for (const char* const setup : before) {
    for (const char* const time : times) {
      WITH_SEEDS(seed, 3) {
        const std::string leave =
            std::string(setup) + "\n{\"do\":\"advance\",\"seconds\":" + time + "}\n{\"do\":\"quit\"}\n";
        for (const std::string& start : {launched, twoDisplays + R"({"do":"launch"})" + "\n"}) {
          const Played played = playScenario(start + leave + R"({"do":"advance","seconds":1})" + "\n", seed);
          EXPECT_EQ(played.status, 0) << setup << " " << time;
          EXPECT_EQ(played.of("exit").size(), 1U) << setup << " " << time;
        }
      }
    }
  }
}

TEST(Lifecycle, StopsInOrder) {
  const Played played = playScenario(launched + R"({"do":"quit"})"
                                                "\n");
  const auto& last = played.records;
  ASSERT_GE(last.size(), 3U);
  EXPECT_EQ(last[last.size() - 3]["api"], "CFMachPortInvalidate");
  EXPECT_EQ(last[last.size() - 2]["api"], "AudioObjectRemovePropertyListenerBlock");
  EXPECT_EQ(last.back()["what"], "exit");
  EXPECT_EQ(last.back()["status"], 0);
}

TEST(Lifecycle, CanBeLaunchedAgain) {
  const Played played = playScenario(launched + R"(
{"do":"quit"}
{"do":"key","key":"brightnessUp"}
{"do":"launch"}
{"do":"settle"}
{"do":"key","key":"brightnessUp"}
{"do":"settle"}
)");
  EXPECT_EQ(played.of("exit").size(), 2U);
  EXPECT_EQ(played.lights(2), (std::vector<int>{56}));
  EXPECT_EQ(played.of("input").size(), 2U);  // nobody was there for the first key
  EXPECT_EQ(played.status, 0);
}

TEST(Lifecycle, SecondLaunchChangesNothing) {
  const Played played = playScenario(launched + R"({"do":"launch"})" + "\n" + R"({"do":"settle"})" + "\n");
  EXPECT_EQ(played.calls("CGEventTapCreate").size(), 1U);
}

TEST(Lifecycle, LastsADayAtRestLookingForUpdatesOnly) {
  const Played played = playScenario(launched + R"({"do":"advance","seconds":86400})" + "\n");
  for (const auto& record : played.records) {
    if (record["what"] == "call" && record["api"] == "NSURLSession.dataTaskWithRequest") continue;
    EXPECT_TRUE(record["t"] <= 1 || record["t"] >= 86400) << record;
  }
}
