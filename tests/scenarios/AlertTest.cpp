// Alerts, and what goes on while one stands.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tests/support/Lines.h"
#include "tests/support/Play.h"
#include "tests/support/Seat.h"

using namespace lines;
using nlohmann::json;
using Texts = std::vector<std::string>;

namespace {

constexpr std::uint64_t seeds = 10;

const std::string permissionAlert = "Dalvane needs System Audio Recording";
const std::string screen = output(10, {{"uid", "HDMI-1"}, {"name", "Screen"}, {"default", true}});
const std::string denied = capture({{"permission", "denied"}});
const std::string check = click("Check for Updates…");
const std::string failingLogin = loginItem({{"error", "Operation not permitted"}});

json release(const std::string& version, const std::string& address) {
  return {{"version", version}, {"date", ""}, {"dmg_url", address}, {"size_bytes", 1}, {"notes", "Notes."}};
}

const std::string address14 = "https://downloads.dalvane.example/Dalvane-1.4.0.dmg";
const std::string address15 = "https://downloads.dalvane.example/Dalvane-1.5.0.dmg";
const std::string running = bundle({{"version", "1.3.9"}});
std::string published(const json& release) { return feed({{"releases", json::array({release})}}); }
const std::string published14 = published(release("1.4.0", address14)) + image(address14, {{"version", "1.4.0"}});
const std::string published15 = published(release("1.5.0", address15)) + image(address15, {{"version", "1.5.0"}});
const std::string unreachable = feed({{"error", "The Internet connection appears to be offline."}});
const std::string install = answer("Install and Relaunch");

// The program runs, has been asked to check, and asks whether to install 1.4.0; no ten seconds have passed.
const std::string asked = running + published14 + launch + leaveNextAlertOpen + check + settle;

std::string openAlert(Seat& seat) {
  const json alert = seat.snapshot()["alert"];
  return alert.is_null() ? "" : alert["message"].get<std::string>();
}

// The alerts and the answers to those that stood, in their order.
Texts conversation(const std::vector<json>& records) {
  Texts texts;
  for (const json& record : records) {
    if (record["what"] == "alert") texts.push_back(record["message"]);
    if (record["what"] == "answer") texts.push_back("> " + record["button"].get<std::string>());
  }
  return texts;
}

std::size_t requests(const std::vector<json>& records) {
  return callsOf(records, "NSURLSession.dataTaskWithRequest").size();
}

bool logged(const std::vector<json>& records, const std::string& text) {
  return std::ranges::any_of(recordsOf(records, "log"), [&](const json& record) { return record["text"] == text; });
}

}  // namespace

// ---- Showing ----

TEST(Alert, ComesOnceTheApplicationIsInFront) {
  const struct {
    std::string lines;
    std::string message;
  } cases[] = {
      {screen + denied + launch + settle, permissionAlert},
      {failingLogin + launch + click("Start at Login"), "Operation not permitted"},
      {running + published14 + launch + answer("Later") + check + settle, "Dalvane 1.4.0 is available"},
      {launch + check + settle, "Dalvane is up to date"},
      {unreachable + launch + check + settle, "Could not check for updates"},
      {running + published14 + image(address14, {{"error", "no such host"}}) + launch + check + settle,
       "Could not install the update"},
  };
  for (const auto& each : cases) {
    WITH_SEEDS(seed, seeds) {
      Seat seat(seed);
      seat.play(each.lines);
      const auto records = seat.takeRecords();
      const auto alert = std::ranges::find_if(
          records, [&](const json& record) { return record["what"] == "alert" && record["message"] == each.message; });
      ASSERT_NE(alert, records.end()) << each.message;
      ASSERT_NE(alert, records.begin());
      EXPECT_EQ(std::prev(alert)->value("api", ""), "NSApplication.activate") << each.message;
      EXPECT_TRUE(seat.shutDown());
    }
  }
}

TEST(Alert, WaitsForTheMenuToClose) {
  WITH_SEEDS(seed, seeds) {
    Seat seat(seed);
    seat.play(launch + check + menu(true) + settle);
    EXPECT_EQ(conversation(seat.takeRecords()), Texts{});
    EXPECT_TRUE(seat.snapshot()["menu"].is_array());
    seat.play(menu(false));
    EXPECT_EQ(conversation(seat.takeRecords()), Texts{"Dalvane is up to date"});
    EXPECT_TRUE(seat.shutDown());
  }
}

TEST(Alert, WaitsForTheOneThatStands) {
  WITH_SEEDS(seed, seeds) {
    Seat seat(seed);
    seat.play(screen + denied + leaveNextAlertOpen + launch + settle + leaveNextAlertOpen);
    EXPECT_EQ(openAlert(seat), permissionAlert);
    // The user asks for an update and for something that fails, both from the menu.
    seat.play(failingLogin + click("Start at Login") + check + settle);
    EXPECT_EQ(openAlert(seat), permissionAlert);
    seat.play(answer("OK") + settle);
    EXPECT_EQ(openAlert(seat), "Operation not permitted");
    seat.play(answer("OK") + settle);
    EXPECT_EQ(openAlert(seat), "");
    EXPECT_EQ(conversation(seat.takeRecords()),
              (Texts{permissionAlert, "> OK", "Operation not permitted", "> OK", "Dalvane is up to date"}));
    EXPECT_TRUE(seat.shutDown());
  }
}

TEST(Alert, OfThePermissionIsShownOnceHoweverLongItStands) {
  WITH_SEEDS(seed, seeds) {
    Seat seat(seed);
    seat.play(screen + denied + leaveNextAlertOpen + launch + wake + wake + settle + wake + answer("OK") + wake +
              settle);
    EXPECT_EQ(conversation(seat.takeRecords()), (Texts{permissionAlert, "> OK"}));
    EXPECT_TRUE(seat.shutDown());
  }
}

// ---- What goes on meanwhile ----

TEST(Alert, OfThePermissionHoldsNothingUp) {
  WITH_SEEDS(seed, seeds) {
    Seat seat(seed);
    seat.play(twoDisplays + screen + denied + leaveNextAlertOpen + launch + settle);
    EXPECT_EQ(openAlert(seat), permissionAlert);
    // The brightness controller runs …
    seat.play(key("brightnessUp") + settle);
    EXPECT_EQ(seat.snapshot()["displays"][1]["brightness"], 56);
    // … and so does the updater.
    seat.takeRecords();
    seat.play(advance(10) + settle);
    EXPECT_EQ(requests(seat.takeRecords()), 1U);
    EXPECT_EQ(openAlert(seat), permissionAlert);
    EXPECT_TRUE(seat.shutDown());
  }
}

TEST(Alert, LetsMonitorsBeReadMeanwhile) {
  WITH_SEEDS(seed, seeds) {
    Seat seat(seed);
    seat.play(twoDisplays + asked);
    EXPECT_EQ(openAlert(seat), "Dalvane 1.4.0 is available");
    seat.play(display(3, {{"name", "New"},
                          {"frame", {5000, 0, 100, 100}},
                          {"serial", 9},
                          {"monitor", {{"current", 20}, {"maximum", 100}}}}) +
              pointer(5050, 50) + settle + key("brightnessUp") + settle);
    EXPECT_EQ(seat.snapshot()["displays"][2]["brightness"], 25);
    seat.play(wake + settle);
    EXPECT_EQ(openAlert(seat), "Dalvane 1.4.0 is available");
    EXPECT_TRUE(seat.shutDown());
  }
}

TEST(Alert, LetsTheOutputChangeMeanwhile) {
  WITH_SEEDS(seed, seeds) {
    Seat seat(seed);
    seat.play(screen + asked);
    seat.takeRecords();
    seat.play(output(11, {{"uid", "HDMI-2"}, {"name", "Television"}, {"default", true}}) + settle + key("volumeDown") +
              settle);
    const auto records = seat.takeRecords();
    EXPECT_TRUE(logged(records, "Controlling the volume of Television"));
    EXPECT_EQ(recordsOf(records, "preference").front()["key"], "steps.HDMI-2");
    EXPECT_EQ(openAlert(seat), "Dalvane 1.4.0 is available");
    EXPECT_TRUE(seat.shutDown());
  }
}

TEST(Alert, LetsUpdatesBeFoundMeanwhile) {
  WITH_SEEDS(seed, seeds) {
    Seat seat(seed);
    seat.play(asked + published15 + advance(10) + settle);
    EXPECT_EQ(seat.updateItem(), "Update to 1.5.0…");
    EXPECT_EQ(openAlert(seat), "Dalvane 1.4.0 is available");
    EXPECT_TRUE(seat.shutDown());
  }
}

// ---- The texts ----

TEST(Alert, ShowsNotesWithANull) {
  Seat seat;
  json noted = release("1.4.0", address14);
  noted["notes"] = std::string("Before\0after", 12);
  seat.play(running + published(noted) + launch + answer("Later") + check + settle);
  EXPECT_EQ(recordsOf(seat.takeRecords(), "alert")[0]["informative"],
            std::string("Before\0after\n\nYou have version 1.3.9.", 37));
}

TEST(Alert, CutsWhatIsTooLongForIt) {
  const std::string megabytes(2'000'000, 'x');
  const std::string shown = std::string(4000, 'x') + "…";
  Seat seat;
  json noted = release("1.4.0" + megabytes, address14);
  noted["notes"] = megabytes;
  seat.play(running + published(noted) + launch + answer("Later") + check + settle);
  const json question = recordsOf(seat.takeRecords(), "alert")[0];
  EXPECT_EQ(question["message"], "Dalvane 1.4.0" + std::string(3995, 'x') + "… is available");
  EXPECT_EQ(question["informative"], shown + "\n\nYou have version 1.3.9.");
  EXPECT_EQ(seat.updateItem(), "Update to 1.4.0" + std::string(3995, 'x') + "……");

  // What is wrong with a feed quotes the feed, but not all of it.
  seat.play(feed({{"body", "[{\"" + megabytes}}) + advance(21600) + settle + check + settle);
  const json failure = recordsOf(seat.takeRecords(), "alert")[0];
  EXPECT_EQ(failure["message"], "Could not check for updates");
  const auto informative = failure["informative"].get<std::string>();
  EXPECT_TRUE(informative.starts_with("[json.exception.parse_error")) << informative.substr(0, 100);
  EXPECT_LT(informative.size(), shown.size());

  seat.play(feed({{"error", megabytes}}) + check + settle);
  EXPECT_EQ(recordsOf(seat.takeRecords(), "alert")[0]["informative"], shown);
  EXPECT_TRUE(seat.shutDown());
}

// ---- The answer to the question ----

TEST(InstallQuestion, InstallsWhatWasShownThoughACheckHasBegun) {
  WITH_SEEDS(seed, seeds) {
    Seat seat(seed);
    // The first automatic check begins while the question stands, and takes its time.
    seat.play(asked + unreachable + feed({{"status", 500}, {"delay", 5}}) +
              image(address14, {{"version", "1.4.0"}, {"delay", 20}}));
    seat.play(advance(10));
    EXPECT_EQ(seat.updateItem(), "Checking for Updates… (disabled)");
    seat.play(install);
    EXPECT_EQ(seat.updateItem(), "Installing Update… (disabled)");
    // Its late answer changes nothing, and nobody is told of it.
    seat.takeRecords();
    seat.play(advance(9));
    EXPECT_EQ(seat.updateItem(), "Installing Update… (disabled)");
    EXPECT_EQ(errorsIn(seat.takeRecords()), Texts{});
    seat.play(settle + advance(21) + settle);
    EXPECT_EQ(seat.snapshot()["bundle"], json::parse(R"({"version":"1.4.0","backup":false})"));
    const auto records = seat.takeRecords();
    EXPECT_EQ(conversation(records), Texts{});
    EXPECT_EQ(recordsOf(records, "open").size(), 1U);
    EXPECT_TRUE(seat.shutDown());
  }
}

TEST(InstallQuestion, InstallsWhatWasShownWhateverWasFoundSince) {
  const std::string found[] = {published15, published(release("1.3.9", address14)), unreachable};
  for (const std::string& each : found) {
    WITH_SEEDS(seed, seeds) {
      Seat seat(seed);
      seat.play(asked + each + advance(10) + settle);
      seat.takeRecords();
      seat.play(install + settle);
      const auto downloads = callsOf(seat.takeRecords(), "NSURLSession.downloadTaskWithURL");
      ASSERT_EQ(downloads.size(), 1U);
      EXPECT_EQ(downloads[0]["args"]["url"], address14);
      EXPECT_EQ(seat.snapshot()["bundle"]["version"], "1.4.0");
      EXPECT_TRUE(seat.shutDown());
    }
  }
}

TEST(InstallQuestion, IsAskedOnceHoweverOftenItIsAskedFor) {
  for (const std::string button : {"Install and Relaunch", "Later"}) {
    WITH_SEEDS(seed, seeds) {
      // The check ends while the menu is open, so that the question waits; the item then asks for it once more.
      Seat seat(seed);
      seat.play(running + published14 + launch + answer(button) + check + menu(true) + advance(2) +
                click("Update to 1.4.0…") + settle);
      EXPECT_EQ(conversation(seat.takeRecords()), Texts{"Dalvane 1.4.0 is available"});
      EXPECT_EQ(seat.snapshot()["bundle"]["version"], button == "Later" ? "1.3.9" : "1.4.0");
      // Put off, it can be asked for again.
      seat.play(leaveNextAlertOpen + (button == "Later" ? click("Update to 1.4.0…") : check) + settle);
      EXPECT_EQ(openAlert(seat), button == "Later" ? "Dalvane 1.4.0 is available" : "Dalvane is up to date");
    }
  }
}

TEST(InstallQuestion, IsAboutWhatIsOfferedWhenItsTurnComes) {
  for (const std::string& turn : {menu(false), click("Update to 1.5.0…")}) {
    WITH_SEEDS(seed, seeds) {
      // While the menu is open the check by itself, ten seconds after the launch, finds another release.
      Seat seat(seed);
      seat.play(running + published14 + launch + check + menu(true) + advance(2) + published15 + advance(10));
      seat.takeRecords();
      seat.play(turn + settle);
      EXPECT_EQ(conversation(seat.takeRecords()), Texts{"Dalvane 1.5.0 is available"});
      EXPECT_EQ(seat.snapshot()["bundle"]["version"], "1.5.0");
    }
  }
}

TEST(InstallQuestion, WhatIsAskedForMeanwhileComesAfterIt) {
  const std::string choices[] = {published15 + advance(10) + click("Update to 1.5.0…"),
                                 unreachable + advance(10) + published15 + check};
  for (const std::string& choice : choices) {
    WITH_SEEDS(seed, seeds) {
      Seat seat(seed);
      seat.play(asked + choice + settle);
      EXPECT_EQ(openAlert(seat), "Dalvane 1.4.0 is available");
      seat.play(leaveNextAlertOpen + answer("Later") + settle);
      EXPECT_EQ(openAlert(seat), "Dalvane 1.5.0 is available");
      seat.play(leaveNextAlertOpen + answer("Later") + settle);
      EXPECT_EQ(openAlert(seat), "");
    }
  }
}

TEST(InstallQuestion, IsNotAnsweredTwice) {
  WITH_SEEDS(seed, seeds) {
    Seat seat(seed);
    // The user asks again while the question stands, and then installs both times.
    seat.play(asked + image(address14, {{"version", "1.4.0"}, {"delay", 20}}) + click("Update to 1.4.0…") + settle);
    EXPECT_EQ(openAlert(seat), "Dalvane 1.4.0 is available");
    seat.play(answer("Install and Relaunch") + settle);
    seat.play(advance(21) + settle);
    EXPECT_EQ(callsOf(seat.takeRecords(), "NSURLSession.downloadTaskWithURL").size(), 1U);
    EXPECT_EQ(seat.snapshot()["bundle"]["version"], "1.4.0");
    EXPECT_TRUE(seat.shutDown());
  }
}

TEST(InstallQuestion, ThatNobodyAnswersIsNoReasonNotToQuit) {
  Seat seat;
  seat.play(asked + quit);
  EXPECT_EQ(seat.snapshot()["running"], true);
  seat.play(answer("Later") + quit);
  EXPECT_EQ(seat.snapshot()["running"], false);
  EXPECT_TRUE(seat.shutDown());
}

TEST(InstallQuestion, TheRelaunchWaitsForAnotherAlert) {
  WITH_SEEDS(seed, seeds) {
    Seat seat(seed);
    seat.play(asked + image(address14, {{"version", "1.4.0"}, {"delay", 5}}) + install + failingLogin +
              leaveNextAlertOpen + click("Start at Login") + advance(20) + settle);
    EXPECT_EQ(openAlert(seat), "Operation not permitted");
    EXPECT_EQ(seat.snapshot()["bundle"]["version"], "1.4.0");
    EXPECT_TRUE(recordsOf(seat.takeRecords(), "exit").empty());
    seat.play(answer("OK") + settle);
    const auto records = seat.takeRecords();
    EXPECT_EQ(recordsOf(records, "exit").size(), 1U);
    EXPECT_EQ(recordsOf(records, "open").size(), 1U);
    EXPECT_TRUE(callsOf(records, "NSApplication.terminate").empty());
    EXPECT_EQ(seat.snapshot()["running"], true);
    EXPECT_TRUE(seat.shutDown());
  }
}

// ---- Reports ----

TEST(Report, OfAnAutomaticCheckIsNotMade) {
  WITH_SEEDS(seed, seeds) {
    Seat seat(seed);
    // The question is answered while an automatic check is under way that will fail, and so will the next ones.
    seat.play(asked + feed({{"status", 500}, {"delay", 5}}) + advance(10) + install + settle + advance(20) + settle);
    seat.play(unreachable + advance(3 * 21600));
    EXPECT_EQ(conversation(seat.takeRecords()), (Texts{"Dalvane 1.4.0 is available", "> Install and Relaunch"}));
    EXPECT_TRUE(seat.shutDown());
  }
}

TEST(Report, IsMadeOnce) {
  const struct {
    std::string lines;
    std::string message;
  } cases[] = {
      {launch + check + settle, "Dalvane is up to date"},
      {unreachable + launch + check + settle, "Could not check for updates"},
      {running + published14 + image(address14, {{"error", "no such host"}}) + launch + check + settle,
       "Could not install the update"},
      {running + published14 + launch + answer("Later") + check + settle, "Dalvane 1.4.0 is available"},
  };
  for (const auto& each : cases) {
    Seat seat;
    seat.play(each.lines);
    EXPECT_EQ(conversation(seat.takeRecords()).back(), each.message);
    // None of the outcomes of later checks is reported.
    seat.play(advance(21600) + settle + unreachable + advance(21600) + settle + published15 + advance(21600) + settle);
    EXPECT_EQ(conversation(seat.takeRecords()), Texts{}) << each.message;
    EXPECT_TRUE(seat.shutDown());
  }
}
