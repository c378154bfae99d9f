// Checking for updates: when, with what outcome, and what the user is told.
#include <dispatch/dispatch.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "desk/Desk.h"
#include "platform/Application.h"
#include "tests/support/Seat.h"
#include "updater/Updater.h"

namespace {

using nlohmann::json;

constexpr const char* dataTask = "NSURLSession.dataTaskWithRequest";
constexpr const char* clickCheck = R"({"do":"click","item":"Check for Updates…"}
{"do":"settle"})";

std::vector<double> timesOf(const std::vector<json>& records) {
  std::vector<double> times;
  for (const json& record : records) times.push_back(record["t"]);
  return times;
}

std::string release(const std::string& version, const std::string& notes = "") {
  return R"({"version":")" + version +
         R"(","date":"2025-03-02","dmg_url":"https://releases.dalvane.example/x.dmg","size_bytes":1,"notes":")" +
         notes + "\"}";
}

std::string feed(const std::string& releases) { return R"({"do":"feed","releases":[)" + releases + "]}"; }

}  // namespace

TEST(Updater, ChecksAfterTenSecondsAndThenEverySixHours) {
  Seat seat;
  seat.play(R"({"do":"launch"}
{"do":"advance","seconds":2592000})");
  const auto requests = callsOf(seat.takeRecords(), dataTask);
  std::vector<double> expected{10};
  for (int i = 1; i <= 120; ++i) expected.push_back(21600.0 * i);
  EXPECT_EQ(timesOf(requests), expected);
  for (const json& request : requests) {
    EXPECT_EQ(request["args"], json::parse(R"({"method":"GET","timeout":15.0,"cache":"reloadIgnoringLocalCacheData",
                              "url":"https://releases.dalvane.example/dalvane-releases/releases/releases.json"})"));
  }
  EXPECT_TRUE(seat.shutDown());
}

TEST(Updater, SettlingDoesNotWaitForTheFirstCheck) {
  Seat seat;
  seat.play(R"({"do":"launch"}
{"do":"settle"})");
  EXPECT_TRUE(callsOf(seat.takeRecords(), dataTask).empty());
}

TEST(Updater, AnAutomaticCheckShowsItsOutcomeInTheMenuOnly) {
  Seat seat;
  seat.play(R"({"do":"bundle","version":"1.3.9"})");
  seat.play(feed(release("1.4.0")));
  seat.play(R"({"do":"launch"})");
  EXPECT_EQ(seat.updateItem(), "Check for Updates…");
  seat.play(R"({"do":"advance","seconds":10})");
  EXPECT_EQ(seat.updateItem(), "Checking for Updates… (disabled)");
  seat.play(R"({"do":"settle"})");
  EXPECT_EQ(seat.updateItem(), "Update to 1.4.0…");
  // The next check replaces what the last one found.
  seat.play(feed(release("1.3.9")) + R"(
{"do":"advance","seconds":21600})");
  EXPECT_EQ(seat.updateItem(), "Check for Updates…");
  seat.play(feed(release("1.5.0")) + R"(
{"do":"advance","seconds":21600})");
  EXPECT_EQ(seat.updateItem(), "Update to 1.5.0…");
  seat.play(R"({"do":"feed","status":503}
{"do":"advance","seconds":21600})");
  EXPECT_EQ(seat.updateItem(), "Check for Updates…");
  const auto records = seat.takeRecords();
  EXPECT_TRUE(alertsIn(records).empty());
  EXPECT_EQ(errorsIn(records), std::vector<std::string>{"Update check failed: The release feed answered HTTP 503"});
  EXPECT_TRUE(seat.shutDown());
}

TEST(Updater, TellsTheUserWhatACheckOnDemandFound) {
  Seat seat;
  seat.play(R"({"do":"bundle","version":"1.3.9"})");
  seat.play(feed(release("1.3.9")));
  seat.play(R"({"do":"launch"})");
  seat.play(clickCheck);
  EXPECT_EQ(alertsIn(seat.takeRecords()),
            std::vector<std::string>{"Dalvane is up to date: Version 1.3.9 is the newest version."});
  seat.play(R"({"do":"feed","error":"The Internet connection appears to be offline."})");
  seat.play(clickCheck);
  EXPECT_EQ(alertsIn(seat.takeRecords()),
            std::vector<std::string>{"Could not check for updates: The Internet connection appears to be offline."});
  // Without notes the question consists of the running version alone. "Later" leaves the offer where it is.
  seat.play(feed(release("1.4.0")));
  seat.play(R"({"do":"answer","button":"Later"})");
  seat.play(clickCheck);
  EXPECT_EQ(alertsIn(seat.takeRecords()),
            std::vector<std::string>{"Dalvane 1.4.0 is available: You have version 1.3.9."});
  EXPECT_EQ(seat.updateItem(), "Update to 1.4.0…");
  // Choosing it then asks at once, without a new check.
  seat.play(R"({"do":"answer","button":"Later"}
{"do":"click","item":"Update to 1.4.0…"})");
  const auto records = seat.takeRecords();
  EXPECT_EQ(alertsIn(records), std::vector<std::string>{"Dalvane 1.4.0 is available: You have version 1.3.9."});
  EXPECT_TRUE(callsOf(records, dataTask).empty());
  // An outcome is told once.
  seat.play(R"({"do":"advance","seconds":21600})");
  EXPECT_TRUE(alertsIn(seat.takeRecords()).empty());
  EXPECT_TRUE(seat.shutDown());
}

TEST(Updater, AnyVersionRunsButOnlyANewerOneIsOffered) {
  const struct {
    const char* running;
    const char* published;
    bool offered;
  } cases[] = {{"1.3.9", "1.4.0", true},         {"1.3.0-beta.4", "1.3.0", true},
               {"1.3.0", "1.3.0-beta.5", false}, {"1.3.0-beta.4", "1.3.0-beta.5", true},
               {"2.0", "1.9.9", false},          {"1.2.3", "1.2.3.4", false}};
  for (const auto& each : cases) {
    Seat seat;
    seat.play(R"({"do":"bundle","version":")" + std::string(each.running) + "\"}");
    seat.play(feed(release(each.published)));
    seat.launchAndCheck();
    EXPECT_EQ(seat.updateItem(),
              each.offered ? "Update to " + std::string(each.published) + "…" : "Check for Updates…");
    EXPECT_TRUE(seat.shutDown());
  }
}

TEST(Updater, FailuresOfTheFeedHaveTheirOwnTexts) {
  const std::string second = R"({"version":"1","date":"","dmg_url":"https://a.example/","size_bytes":1})";
  const struct {
    std::string line;
    std::string message;  // how the description begins
  } cases[] = {
      {R"({"do":"feed","status":404})", "The release feed answered HTTP 404"},
      {R"({"do":"feed","status":304})", "The release feed answered HTTP 304"},
      {R"({"do":"feed","status":204})", "The release feed answered HTTP 204"},
      {R"({"do":"feed","status":201,"body":"[]"})", "The release feed answered HTTP 201"},
      {R"({"do":"feed","http":false,"body":"[]"})", "The release feed gave no HTTP response"},
      {R"({"do":"feed","body":"[]"})", "No releases are published yet"},
      {R"({"do":"feed","body":"{\"releases\":[]}"})", "[json.exception.type_error"},
      {R"({"do":"feed","body":""})", "[json.exception.parse_error"},
      {R"({"do":"feed","body":"[{\"version\":"})", "[json.exception.parse_error"},
      // The decoder's message quotes half a character, which nobody can be shown.
      {R"({"do":"feed","body":"[ü]"})", "[json.exception.parse_error"},
      {R"({"do":"feed","releases":[{}]})", "[json.exception.out_of_range"},
      {feed(release("1.0") + "," + second), "[json.exception.out_of_range"},
      {R"({"do":"feed","error":"A TLS error caused the secure connection to fail."})",
       "A TLS error caused the secure connection to fail."},
      {R"({"do":"feed","delay":15})", "The request timed out."},
      {R"({"do":"feed","body":"[]","break-after":1})", "The network connection was lost."},
      {R"({"do":"feed","certificate":"expired"})", "The certificate for this server is invalid."},
      {R"({"do":"feed","certificate":"another-host"})", "The certificate for this server is invalid."},
      {R"({"do":"feed","certificate":"unknown-authority"})", "The certificate for this server is invalid."},
      {R"({"do":"feed","redirect":"http://releases.dalvane.example/"})",
       "The resource could not be loaded because the App"},
      {R"({"do":"fail","call":"NSURLSession.dataTaskWithRequest","status":-1009})",
       "The Internet connection appears to be offline."},
  };
  for (const auto& each : cases) {
    Seat seat;
    seat.play(each.line);
    seat.play(R"({"do":"launch"})");
    seat.play(clickCheck);
    seat.play(R"({"do":"advance","seconds":9})");
    seat.play(R"({"do":"advance","seconds":0.5})");
    seat.play(R"({"do":"advance","seconds":6})");
    const auto records = seat.takeRecords();
    const auto errors = errorsIn(records);
    ASSERT_FALSE(errors.empty()) << each.line;
    const std::string prefix = "Update check failed: ";
    EXPECT_TRUE(errors[0].starts_with(prefix + each.message)) << errors[0];
    const auto alerts = alertsIn(records);
    ASSERT_EQ(alerts.size(), 1U) << each.line;
    EXPECT_EQ(alerts[0], "Could not check for updates: " + errors[0].substr(prefix.size()));
    EXPECT_EQ(seat.updateItem(), "Check for Updates…");
    EXPECT_TRUE(seat.shutDown());
  }
}

TEST(Updater, ARedirectedFeedIsTaken) {
  Seat seat;
  seat.play(R"({"do":"image","url":"https://elsewhere.example/feed.json","body":"[]"}
{"do":"feed","redirect":"https://elsewhere.example/feed.json"}
{"do":"launch"})");
  seat.play(clickCheck);
  EXPECT_EQ(errorsIn(seat.takeRecords()),
            std::vector<std::string>{"Update check failed: No releases are published yet"});
}

TEST(Updater, OneCheckAtATime) {
  for (std::uint64_t seed = 1; seed <= 10; ++seed) {
    Seat seat(seed);
    seat.play(feed(release("1.0.0")));
    seat.play(R"({"do":"feed","status":500,"delay":5}
{"do":"launch"}
{"do":"advance","seconds":7}
{"do":"click","item":"Check for Updates…"}
{"do":"advance","seconds":3.5})");
    // The check that the user asked for was under way when the first automatic one was due.
    EXPECT_EQ(seat.updateItem(), "Checking for Updates… (disabled)");
    seat.play(R"({"do":"click","item":"Checking for Updates…"}
{"do":"settle"})");
    const auto records = seat.takeRecords();
    EXPECT_EQ(timesOf(callsOf(records, dataTask)), std::vector<double>{7});
    EXPECT_EQ(alertsIn(records),
              std::vector<std::string>{"Could not check for updates: The release feed answered HTTP 500"});
    EXPECT_TRUE(seat.shutDown());
  }
}

TEST(Updater, NoCheckDuringAnInstall) {
  for (std::uint64_t seed = 1; seed <= 5; ++seed) {
    Seat seat(seed);
    seat.publishUpdate({{"delay", 30}});
    seat.play(R"({"do":"launch"}
{"do":"advance","seconds":21580}
{"do":"answer","button":"Install and Relaunch"}
{"do":"click","item":"Update to 1.4.0…"}
{"do":"advance","seconds":25})");
    // The check that was due at 21600 seconds did not take place, and the menu still shows the install.
    EXPECT_EQ(timesOf(callsOf(seat.takeRecords(), dataTask)), std::vector<double>{10});
    EXPECT_EQ(seat.updateItem(), "Installing Update… (disabled)");
    seat.play(R"({"do":"advance","seconds":10})");
    EXPECT_EQ(seat.snapshot()["bundle"]["version"], "1.4.0");
    EXPECT_EQ(recordsOf(seat.takeRecords(), "open").size(), 1U);
    EXPECT_TRUE(seat.shutDown());
  }
}

TEST(Updater, WhatComesTooEarlyChangesNothingAndCallsNobody) {
  simulator::Program program = dalvaneProgram();
  std::vector<std::size_t> states;
  program.main = [&states] {
    struct Delegate : NS::ApplicationDelegate {
      explicit Delegate(std::vector<std::size_t>& seen) : states(seen) {}
      void applicationDidFinishLaunching() override {
        updater = std::make_shared<Updater>();
        updater->setOnChange([this] { states.push_back(updater->state().index()); });
        updater->install();
        EXPECT_TRUE(states.empty());
        updater->check();
        updater->check();    // one is under way: nothing changes
        updater->install();  // nothing is available yet
        EXPECT_EQ(states, std::vector<std::size_t>{1});
      }
      void applicationWillTerminate() override { updater->setOnChange({}); }
      std::shared_ptr<Updater> updater;
      std::vector<std::size_t>& states;
    };
    Delegate delegate(states);
    const NS::Application application = NS::Application::sharedApplication();
    application.setDelegate(&delegate);
    application.run();
    return 0;
  };
  Seat seat(program, 1);
  seat.publishUpdate();
  seat.play(R"({"do":"launch"}
{"do":"settle"})");
  EXPECT_EQ(states, (std::vector<std::size_t>{1, 3}));  // checking, available: one call each
  EXPECT_TRUE(seat.shutDown());
}

namespace {

// A program that starts an updater and stops it again after some time.
simulator::Program programThatStops(std::int64_t afterSeconds, bool dropsIt) {
  simulator::Program program = dalvaneProgram();
  program.main = [afterSeconds, dropsIt] {
    struct Delegate : NS::ApplicationDelegate {
      void applicationDidFinishLaunching() override {
        updater = std::make_shared<Updater>();
        updater->start();
        dispatch_after(dispatch_time(DISPATCH_TIME_NOW, seconds * static_cast<std::int64_t>(NSEC_PER_SEC)),
                       dispatch_get_main_queue(), ^{
                         updater->stop();
                         updater->stop();
                         if (drops) updater.reset();
                       });
      }
      void applicationWillTerminate() override {}
      std::shared_ptr<Updater> updater;
      std::int64_t seconds = 0;
      bool drops = false;
    };
    Delegate delegate;
    delegate.seconds = afterSeconds;
    delegate.drops = dropsIt;
    const NS::Application application = NS::Application::sharedApplication();
    application.setDelegate(&delegate);
    application.run();
    return 0;
  };
  return program;
}

std::vector<double> checksWhenStopped(std::int64_t afterSeconds, bool drops) {
  Seat seat(programThatStops(afterSeconds, drops), 1);
  seat.play(R"({"do":"launch"}
{"do":"advance","seconds":100000})");
  EXPECT_TRUE(seat.shutDown());
  return timesOf(callsOf(seat.takeRecords(), dataTask));
}

}  // namespace

TEST(Updater, StoppingEndsTheTimerButNotTheFirstCheck) {
  EXPECT_EQ(checksWhenStopped(5, false), std::vector<double>{10});
  EXPECT_EQ(checksWhenStopped(50000, false), (std::vector<double>{10, 21600, 43200}));
}

TEST(Updater, AnUpdaterThatIsGoneChecksNothing) { EXPECT_TRUE(checksWhenStopped(5, true).empty()); }

TEST(Updater, QuittingDuringACheckOrAnInstallIsClean) {
  for (const double when : {0.0, 0.01, 0.05, 0.1, 0.25, 0.3, 0.45, 0.6, 0.66, 0.9}) {
    for (std::uint64_t seed = 1; seed <= 3; ++seed) {
      for (const bool installing : {false, true}) {
        Seat seat(seed);
        seat.publishUpdate();
        seat.play(R"({"do":"launch"}
{"do":"advance","seconds":10})");
        if (installing) {
          seat.play(R"({"do":"settle"}
{"do":"answer","button":"Install and Relaunch"}
{"do":"click","item":"Update to 1.4.0…"})");
        }
        seat.play(R"({"do":"advance","seconds":)" + std::to_string(when) + R"(}
{"do":"quit"}
{"do":"settle"})");
        EXPECT_TRUE(recordsOf(seat.takeRecords(), "fatal").empty());
        // Whatever was under way, a whole application is installed.
        const json version = seat.snapshot()["bundle"]["version"];
        EXPECT_TRUE(version == "1.3.9" || version == "1.4.0") << version;
        EXPECT_TRUE(seat.shutDown()) << when << " " << installing << " " << seed;
      }
    }
  }
}

TEST(Updater, ABundleWithoutAVersionIsABuildDefect) {
  for (const char* version : {"null", "14", "true"}) {
    EXPECT_EXIT(
        {
          Seat seat;
          seat.play(R"({"do":"bundle","version":)" + std::string(version) + R"(})");
          seat.play(R"({"do":"launch"})");
        },
        testing::ExitedWithCode(1), "Info.plist has no CFBundleShortVersionString.*fatal");
  }
}
