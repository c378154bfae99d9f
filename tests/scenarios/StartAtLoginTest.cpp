// The start-at-login switch.
#include <gtest/gtest.h>

#include "tests/support/Lines.h"
#include "tests/support/Seat.h"

using namespace lines;
using nlohmann::json;

namespace {

const std::string chooseIt = click("Start at Login");

bool isTicked(Seat& seat) {
  seat.play(menu(true));
  const json items = seat.snapshot()["menu"];
  seat.play(menu(false));
  for (const auto& item : items) {
    if (item["title"] == "Start at Login") return item["ticked"];
  }
  ADD_FAILURE() << "the item is missing";
  return false;
}

}  // namespace

TEST(StartAtLogin, TheTickFollowsTheService) {
  Seat seat;
  seat.play(launch);
  EXPECT_FALSE(isTicked(seat));
  seat.play(loginItem({{"enabled", true}}));
  EXPECT_TRUE(isTicked(seat));
  seat.play(loginItem({{"enabled", false}}));
  EXPECT_FALSE(isTicked(seat));
  EXPECT_TRUE(seat.shutDown());
}

TEST(StartAtLogin, ChoosingItRegistersAndUnregisters) {
  Seat seat;
  seat.play(launch + chooseIt);
  EXPECT_EQ(callsOf(seat.takeRecords(), "SMAppService.register").size(), 1U);
  EXPECT_EQ(seat.snapshot()["login_item"], true);
  EXPECT_TRUE(isTicked(seat));
  seat.play(chooseIt);
  EXPECT_EQ(callsOf(seat.takeRecords(), "SMAppService.unregister").size(), 1U);
  EXPECT_EQ(seat.snapshot()["login_item"], false);
  EXPECT_FALSE(isTicked(seat));
  EXPECT_TRUE(seat.shutDown());
}

TEST(StartAtLogin, AFailureIsShownAndChangesNothing) {
  for (const bool enabled : {false, true}) {
    Seat seat;
    seat.play(loginItem({{"enabled", enabled}, {"error", "Operation not permitted"}}) + launch + chooseIt);
    EXPECT_EQ(alertsIn(seat.takeRecords()), std::vector<std::string>{"Operation not permitted: "});
    EXPECT_EQ(seat.snapshot()["login_item"], enabled);
    EXPECT_EQ(isTicked(seat), enabled);
    // The next change succeeds.
    seat.play(chooseIt);
    EXPECT_EQ(seat.snapshot()["login_item"], !enabled);
    EXPECT_TRUE(seat.shutDown());
  }
}

TEST(StartAtLogin, AFailureWaitsForTheNextChange) {
  Seat seat;
  seat.play(loginItem({{"error", "Operation not permitted"}}) + loginItem({{"enabled", true}}) + launch + chooseIt);
  EXPECT_EQ(alertsIn(seat.takeRecords()), std::vector<std::string>{"Operation not permitted: "});
  EXPECT_EQ(seat.snapshot()["login_item"], true);
  seat.play(loginItem({{"error", "Operation not permitted"}}) + loginItem({{"error", nullptr}}) + chooseIt);
  EXPECT_TRUE(alertsIn(seat.takeRecords()).empty());
  EXPECT_EQ(seat.snapshot()["login_item"], false);
  EXPECT_TRUE(seat.shutDown());
}

// Where the user has to approve it, the place to do that is opened: after the alert, which would hide it, if there is
// one.
TEST(StartAtLogin, OpensTheSettingsWhereItHasToBeApproved) {
  for (std::uint64_t seed = 1; seed <= 3; ++seed) {
    Seat seat(seed);
    seat.play(loginItem({{"approved", false}}) + launch + chooseIt);
    auto records = seat.takeRecords();
    EXPECT_TRUE(alertsIn(records).empty());
    EXPECT_EQ(callsOf(records, "SMAppService.openSystemSettingsLoginItems").size(), 1U);
    EXPECT_FALSE(isTicked(seat));

    seat.play(leaveNextAlertOpen + chooseIt);
    records = seat.takeRecords();
    EXPECT_EQ(alertsIn(records), std::vector<std::string>{"Operation not permitted: "});
    EXPECT_TRUE(callsOf(records, "SMAppService.openSystemSettingsLoginItems").empty());
    seat.play(answer("OK"));
    EXPECT_EQ(callsOf(seat.takeRecords(), "SMAppService.openSystemSettingsLoginItems").size(), 1U);

    // Approved there, it opens at login; what fails for another reason is nothing for the settings.
    seat.play(loginItem({{"approved", true}}));
    EXPECT_TRUE(isTicked(seat));
    seat.takeRecords();
    seat.play(chooseIt + chooseIt + loginItem({{"error", "No space left"}}) + chooseIt);
    EXPECT_TRUE(callsOf(seat.takeRecords(), "SMAppService.openSystemSettingsLoginItems").empty());
    EXPECT_TRUE(seat.shutDown());
  }
}

// Switched off in the System Settings, it is the user who has to switch it on again there.
TEST(StartAtLogin, WhatTheUserHasSwitchedOffIsNotSwitchedOnHere) {
  Seat seat;
  seat.play(loginItem({{"enabled", true}, {"approved", false}}) + launch);
  EXPECT_FALSE(isTicked(seat));
  EXPECT_EQ(seat.snapshot()["login_item"], false);
  for (int tries = 0; tries < 2; ++tries) {
    seat.play(chooseIt);
    const auto records = seat.takeRecords();
    EXPECT_EQ(alertsIn(records), std::vector<std::string>{"Operation not permitted: "});
    EXPECT_EQ(callsOf(records, "SMAppService.register").size(), 1U);
    EXPECT_TRUE(callsOf(records, "SMAppService.unregister").empty());
    EXPECT_FALSE(isTicked(seat));
  }
  seat.play(loginItem({{"approved", true}}));
  EXPECT_TRUE(isTicked(seat));
  seat.play(chooseIt);
  EXPECT_FALSE(isTicked(seat));
  // What was not registered before is registered then, though the user has to allow it first.
  seat.play(loginItem({{"approved", false}}) + chooseIt + loginItem({{"approved", true}}));
  EXPECT_TRUE(isTicked(seat));
  EXPECT_TRUE(seat.shutDown());
}
