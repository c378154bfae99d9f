// The start-at-login switch.
#include <gtest/gtest.h>

#include "tests/support/Seat.h"

namespace {

bool isTicked(Seat& seat) {
  seat.play(R"({"do":"menu","open":true})");
  const nlohmann::json menu = seat.snapshot()["menu"];
  seat.play(R"({"do":"menu","open":false})");
  for (const auto& item : menu) {
    if (item["title"] == "Start at Login") return item["ticked"];
  }
  ADD_FAILURE() << "the item is missing";
  return false;
}

}  // namespace

TEST(StartAtLogin, TheTickFollowsTheService) {
  Seat seat;
  seat.play(R"({"do":"launch"})");
  EXPECT_FALSE(isTicked(seat));
  seat.play(R"({"do":"login-item","enabled":true})");
  EXPECT_TRUE(isTicked(seat));
  seat.play(R"({"do":"login-item","enabled":false})");
  EXPECT_FALSE(isTicked(seat));
  EXPECT_TRUE(seat.shutDown());
}

TEST(StartAtLogin, ChoosingItRegistersAndUnregisters) {
  Seat seat;
  seat.play(R"({"do":"launch"}
{"do":"click","item":"Start at Login"})");
  EXPECT_EQ(callsOf(seat.takeRecords(), "SMAppService.register").size(), 1U);
  EXPECT_EQ(seat.snapshot()["login_item"], true);
  EXPECT_TRUE(isTicked(seat));
  seat.play(R"({"do":"click","item":"Start at Login"})");
  EXPECT_EQ(callsOf(seat.takeRecords(), "SMAppService.unregister").size(), 1U);
  EXPECT_EQ(seat.snapshot()["login_item"], false);
  EXPECT_FALSE(isTicked(seat));
  EXPECT_TRUE(seat.shutDown());
}

TEST(StartAtLogin, AFailureIsShownAndChangesNothing) {
  for (const bool enabled : {false, true}) {
    Seat seat;
    seat.play(R"({"do":"login-item","enabled":)" + std::string(enabled ? "true" : "false") +
              R"(,"error":"Operation not permitted"}
{"do":"launch"}
{"do":"click","item":"Start at Login"})");
    EXPECT_EQ(alertsIn(seat.takeRecords()), std::vector<std::string>{"Operation not permitted: "});
    EXPECT_EQ(seat.snapshot()["login_item"], enabled);
    EXPECT_EQ(isTicked(seat), enabled);
    // The next change succeeds.
    seat.play(R"({"do":"click","item":"Start at Login"})");
    EXPECT_EQ(seat.snapshot()["login_item"], !enabled);
    EXPECT_TRUE(seat.shutDown());
  }
}

TEST(StartAtLogin, AFailureWaitsForTheNextChange) {
  Seat seat;
  seat.play(R"({"do":"login-item","error":"Operation not permitted"}
{"do":"login-item","enabled":true}
{"do":"launch"}
{"do":"click","item":"Start at Login"})");
  EXPECT_EQ(alertsIn(seat.takeRecords()), std::vector<std::string>{"Operation not permitted: "});
  EXPECT_EQ(seat.snapshot()["login_item"], true);
  seat.play(R"({"do":"login-item","error":"Operation not permitted"}
{"do":"login-item","error":null}
{"do":"click","item":"Start at Login"})");
  EXPECT_TRUE(alertsIn(seat.takeRecords()).empty());
  EXPECT_EQ(seat.snapshot()["login_item"], false);
  EXPECT_TRUE(seat.shutDown());
}
