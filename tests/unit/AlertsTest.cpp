// Who an alert belongs to, and what waits for it. The program is a small one that does nothing else.
#include <dispatch/dispatch.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "base/Alerts.h"
#include "platform/Application.h"
#include "tests/support/Lines.h"
#include "tests/support/Program.h"
#include "tests/support/Seat.h"

using namespace lines;

namespace {

using Events = std::vector<std::string>;

NS::Alert question() {
  const NS::Alert alert = makeAlert("Question", "Text");
  alert.addButtonWithTitle("Yes");
  alert.addButtonWithTitle("No");
  return alert;
}

}  // namespace

TEST(Alerts, TellWhichButtonWasPressed) {
  for (const std::string button : {"Yes", "No"}) {
    std::vector<long> pressed;
    const auto owner = std::make_shared<int>();
    Seat seat(application([&] { presentAlert(owner, question, [&](long code) { pressed.push_back(code); }); }), 1);
    seat.play(answer(button) + launch + settle);
    EXPECT_EQ(pressed, std::vector<long>{NS::AlertFirstButtonReturn + (button == "Yes" ? 0 : 1)});
    EXPECT_EQ(alertsIn(seat.takeRecords()), Events{"Question: Text"});
    EXPECT_TRUE(seat.shutDown());
  }
}

TEST(Alerts, AreNotShownForAnOwnerThatIsGone) {
  auto owner = std::make_shared<int>();
  Seat seat(application([&] {
              presentAlert(owner, question, [](long) { ADD_FAILURE() << "nobody is there to be told"; });
              EXPECT_EQ(owner.use_count(), 1);
              owner.reset();
            }),
            1);
  seat.play(launch + settle);
  const auto records = seat.takeRecords();
  EXPECT_EQ(alertsIn(records), Events{});
  EXPECT_TRUE(callsOf(records, "NSApplication.activate").empty());
  EXPECT_TRUE(seat.shutDown());
}

TEST(Alerts, TellNobodyWhenTheOwnerWentMeanwhile) {
  auto owner = std::make_shared<int>();
  Seat seat(
      application([&] { presentAlert(owner, question, [](long) { ADD_FAILURE() << "nobody is there to be told"; }); }),
      1);
  seat.play(leaveNextAlertOpen + launch + settle);
  EXPECT_EQ(owner.use_count(), 1);
  owner.reset();
  seat.play(answer("Yes") + settle);
  EXPECT_EQ(seat.snapshot()["alert"], nullptr);
  EXPECT_TRUE(seat.shutDown());
}

TEST(Alerts, TakeTurnsWithWhatWaitsForThem) {
  for (std::uint64_t seed = 1; seed <= 10; ++seed) {
    Events events;
    const auto owner = std::make_shared<int>();
    Seat seat(application([&] {
                const auto note = [&events](const std::string& event) {
                  return [&events, event](long) { events.push_back(event); };
                };
                presentAlert(owner, question, note("one"));
                whenNoAlertIsOpen([&events] { events.emplace_back("between"); });
                presentAlert(owner, question, note("two"));
                presentAlert(owner, question);
              }),
              seed);
    seat.play(leaveNextAlertOpen + launch + settle);
    EXPECT_EQ(events, Events{});
    seat.play(leaveNextAlertOpen + answer("No") + settle);
    EXPECT_EQ(events, (Events{"one", "between"}));
    seat.play(answer("No") + settle);
    EXPECT_EQ(events, (Events{"one", "between", "two"}));
    EXPECT_EQ(alertsIn(seat.takeRecords()).size(), 3U);
    EXPECT_TRUE(seat.shutDown());
  }
}

TEST(Alerts, WakeTheRunLoopUp) {
  // Nothing else happens that would.
  bool done = false;
  Seat seat(application([&] { whenNoAlertIsOpen([&] { done = true; }); }), 1);
  seat.play(launch);
  EXPECT_TRUE(done);
  EXPECT_TRUE(seat.shutDown());
}

TEST(Alerts, BelongToTheMainThread) {
  EXPECT_EXIT(
      {
        Seat seat(application([] {
                    dispatch_async(dispatch_get_global_queue(QOS_CLASS_UTILITY, 0), ^{
                      whenNoAlertIsOpen([] {});
                    });
                  }),
                  1);
        seat.play(launch + settle);
      },
      testing::ExitedWithCode(1), "runs off the main thread");
}
