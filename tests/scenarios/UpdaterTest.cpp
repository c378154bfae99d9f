// Checking for updates: when, with what outcome, and what the user is told.
#include <dispatch/dispatch.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/Lines.h"
#include "tests/support/Program.h"
#include "tests/support/Seat.h"
#include "updater/Updater.h"

using namespace lines;

namespace {

using nlohmann::json;

constexpr const char* dataTask = "NSURLSession.dataTaskWithRequest";
const std::string check = click("Check for Updates…");
const std::string clickCheck = check + settle;

std::vector<double> timesOf(const std::vector<json>& records) {
  std::vector<double> times;
  for (const json& record : records) times.push_back(record["t"]);
  return times;
}

json releaseOf(const std::string& version, const std::string& notes = "") {
  return {{"version", version},
          {"date", "2025-03-02"},
          {"dmg_url", "https://releases.dalvane.example/x.dmg"},
          {"size_bytes", 1},
          {"notes", notes}};
}

std::string published(const json& release) { return feed({{"releases", json::array({release})}}); }

}  // namespace

TEST(Updater, ChecksAfterTenSecondsAndThenEverySixHours) {
  Seat seat;
  seat.play(launch + advance(2592000));
  const auto requests = callsOf(seat.takeRecords(), dataTask);
  std::vector<double> expected{10};
  for (int i = 1; i <= 120; ++i) expected.push_back(21600.0 * i);
  EXPECT_EQ(timesOf(requests), expected);
  for (const json& request : requests) {
    EXPECT_EQ(request["args"],
              json({{"method", "GET"},
                    {"timeout", 15.0},
                    {"cache", "reloadIgnoringLocalCacheData"},
                    {"url", "https://releases.dalvane.example/dalvane-releases/releases/releases.json"}}));
  }
  EXPECT_TRUE(seat.shutDown());
}

TEST(Updater, SettlingDoesNotWaitForTheFirstCheck) {
  Seat seat;
  seat.play(launch + settle);
  EXPECT_TRUE(callsOf(seat.takeRecords(), dataTask).empty());
}

TEST(Updater, AnAutomaticCheckShowsItsOutcomeInTheMenuOnly) {
  Seat seat;
  seat.play(bundle({{"version", "1.3.9"}}) + published(releaseOf("1.4.0")) + launch);
  EXPECT_EQ(seat.updateItem(), "Check for Updates…");
  seat.play(advance(10));
  EXPECT_EQ(seat.updateItem(), "Checking for Updates… (disabled)");
  seat.play(settle);
  EXPECT_EQ(seat.updateItem(), "Update to 1.4.0…");
  // The next check replaces what the last one found.
  seat.play(published(releaseOf("1.3.9")) + advance(21600));
  EXPECT_EQ(seat.updateItem(), "Check for Updates…");
  seat.play(published(releaseOf("1.5.0")) + advance(21600));
  EXPECT_EQ(seat.updateItem(), "Update to 1.5.0…");
  seat.play(feed({{"status", 503}}) + advance(21600));
  EXPECT_EQ(seat.updateItem(), "Check for Updates…");
  const auto records = seat.takeRecords();
  EXPECT_TRUE(alertsIn(records).empty());
  EXPECT_EQ(errorsIn(records), std::vector<std::string>{"Update check failed: The release feed answered HTTP 503"});
  EXPECT_TRUE(seat.shutDown());
}

TEST(Updater, TellsTheUserWhatACheckOnDemandFound) {
  Seat seat;
  seat.play(bundle({{"version", "1.3.9"}}) + published(releaseOf("1.3.9")) + launch + clickCheck);
  EXPECT_EQ(alertsIn(seat.takeRecords()),
            std::vector<std::string>{"Dalvane is up to date: Version 1.3.9 is the newest version."});
  seat.play(feed({{"error", "The Internet connection appears to be offline."}}) + clickCheck);
  EXPECT_EQ(alertsIn(seat.takeRecords()),
            std::vector<std::string>{"Could not check for updates: The Internet connection appears to be offline."});
  // Without notes the question consists of the running version alone. "Later" leaves the offer where it is.
  seat.play(published(releaseOf("1.4.0")) + answer("Later") + clickCheck);
  EXPECT_EQ(alertsIn(seat.takeRecords()),
            std::vector<std::string>{"Dalvane 1.4.0 is available: You have version 1.3.9."});
  EXPECT_EQ(seat.updateItem(), "Update to 1.4.0…");
  // Choosing it then asks at once, without a new check.
  seat.play(answer("Later") + click("Update to 1.4.0…"));
  const auto records = seat.takeRecords();
  EXPECT_EQ(alertsIn(records), std::vector<std::string>{"Dalvane 1.4.0 is available: You have version 1.3.9."});
  EXPECT_TRUE(callsOf(records, dataTask).empty());
  // An outcome is told once.
  seat.play(advance(21600));
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
    seat.play(bundle({{"version", each.running}}) + published(releaseOf(each.published)));
    seat.launchAndCheck();
    EXPECT_EQ(seat.updateItem(),
              each.offered ? "Update to " + std::string(each.published) + "…" : "Check for Updates…");
    EXPECT_TRUE(seat.shutDown());
  }
}

TEST(Updater, FailuresOfTheFeedHaveTheirOwnTexts) {
  const json second = {{"version", "1"}, {"date", ""}, {"dmg_url", "https://a.example/"}, {"size_bytes", 1}};
  const struct {
    std::string line;
    std::string message;  // how the description begins
  } cases[] = {
      {feed({{"status", 404}}), "The release feed answered HTTP 404"},
      {feed({{"status", 304}}), "The release feed answered HTTP 304"},
      {feed({{"status", 204}}), "The release feed answered HTTP 204"},
      {feed({{"status", 201}, {"body", "[]"}}), "The release feed answered HTTP 201"},
      {feed({{"http", false}, {"body", "[]"}}), "The release feed gave no HTTP response"},
      {feed({{"body", "[]"}}), "No releases are published yet"},
      {feed({{"body", R"({"releases":[]})"}}), "[json.exception.type_error"},
      {feed({{"body", ""}}), "[json.exception.parse_error"},
      {feed({{"body", R"([{"version":)"}}), "[json.exception.parse_error"},
      // The decoder's message quotes half a character, which nobody can be shown.
      {feed({{"body", "[ü]"}}), "[json.exception.parse_error"},
      {published(json::object()), "[json.exception.out_of_range"},
      {feed({{"releases", {releaseOf("1.0"), second}}}), "[json.exception.out_of_range"},
      {feed({{"error", "A TLS error caused the secure connection to fail."}}),
       "A TLS error caused the secure connection to fail."},
      {feed({{"delay", 15}}), "The request timed out."},
      {feed({{"body", "[]"}, {"break-after", 1}}), "The network connection was lost."},
      {feed({{"certificate", "expired"}}), "The certificate for this server is invalid."},
      {feed({{"certificate", "another-host"}}), "The certificate for this server is invalid."},
      {feed({{"certificate", "unknown-authority"}}), "The certificate for this server is invalid."},
      {feed({{"redirect", "http://releases.dalvane.example/"}}), "The resource could not be loaded because the App"},
      {fail("NSURLSession.dataTaskWithRequest", -1009), "The Internet connection appears to be offline."},
  };
  for (const auto& each : cases) {
    Seat seat;
    seat.play(each.line + launch + clickCheck + advance(9) + advance(0.5) + advance(6));
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
  const std::string elsewhere = "https://elsewhere.example/feed.json";
  seat.play(image(elsewhere, {{"body", "[]"}}) + feed({{"redirect", elsewhere}}) + launch + clickCheck);
  EXPECT_EQ(errorsIn(seat.takeRecords()),
            std::vector<std::string>{"Update check failed: No releases are published yet"});
}

TEST(Updater, OneCheckAtATime) {
  for (std::uint64_t seed = 1; seed <= 10; ++seed) {
    Seat seat(seed);
    seat.play(published(releaseOf("1.0.0")));
    seat.play(feed({{"status", 500}, {"delay", 5}}) + launch + advance(7) + check + advance(3.5));
    // The check that the user asked for was under way when the first automatic one was due.
    EXPECT_EQ(seat.updateItem(), "Checking for Updates… (disabled)");
    seat.play(click("Checking for Updates…") + settle);
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
    seat.play(launch + advance(21580) + answer("Install and Relaunch") + click("Update to 1.4.0…") + advance(25));
    // The check that was due at 21600 seconds did not take place, and the menu still shows the install.
    EXPECT_EQ(timesOf(callsOf(seat.takeRecords(), dataTask)), std::vector<double>{10});
    EXPECT_EQ(seat.updateItem(), "Installing Update… (disabled)");
    seat.play(advance(10));
    EXPECT_EQ(seat.snapshot()["bundle"]["version"], "1.4.0");
    EXPECT_EQ(recordsOf(seat.takeRecords(), "open").size(), 1U);
    EXPECT_TRUE(seat.shutDown());
  }
}

namespace {

// A program that is an updater alone, with which `begins` does something at its first launch.
simulator::Program programOf(std::shared_ptr<Updater>& updater, std::function<void()> begins) {
  return application(
      [&updater, begins = std::move(begins), first = std::make_shared<bool>(true)] {
        updater = std::make_shared<Updater>();
        if (std::exchange(*first, false)) begins();
      },
      [&updater] {
        if (updater) updater->stop();
        updater.reset();
      });
}

void afterSeconds(std::int64_t seconds, void (^block)()) {
  dispatch_after(dispatch_time(DISPATCH_TIME_NOW, seconds * static_cast<std::int64_t>(NSEC_PER_SEC)),
                 dispatch_get_main_queue(), block);
}

// A release as a check would have found it, with the image that `publishUpdate` puts up.
Release found(const std::string& version) {
  return {.version = version,
          .date = "",
          .dmgURL = NS::URL::URLWithString("https://downloads.dalvane.example/Dalvane-1.4.0.dmg", false),
          .sizeBytes = 1,
          .notes = ""};
}

using States = std::vector<std::size_t>;
constexpr std::size_t checking = 1;
constexpr std::size_t upToDate = 2;
constexpr std::size_t available = 3;
constexpr std::size_t installing = 4;
constexpr std::size_t failed = 5;

}  // namespace

TEST(Updater, WhatComesTooEarlyChangesNothingAndCallsNobody) {
  States states;
  std::shared_ptr<Updater> updater;
  Seat seat(programOf(updater,
                      [&] {
                        updater->setOnChange([&] { states.push_back(updater->state().index()); });
                        updater->install(found("1.4.0"));  // nothing can have been found yet
                        EXPECT_TRUE(states.empty());
                        updater->check();
                        updater->check();  // one is under way: nothing changes
                        EXPECT_EQ(states, States{checking});
                      }),
            1);
  seat.publishUpdate();
  seat.play(launch + settle);
  EXPECT_EQ(states, (States{checking, available}));  // one call each
  EXPECT_TRUE(seat.shutDown());
}

TEST(Updater, AnInstallSupersedesACheck) {
  const std::string feeds[] = {published(releaseOf("1.3.9")), published(releaseOf("1.5.0")), feed({{"status", 500}})};
  for (const std::string& each : feeds) {
    for (std::uint64_t seed = 1; seed <= 10; ++seed) {
      States states;
      std::shared_ptr<Updater> updater;
      Seat seat(programOf(updater,
                          [&] {
                            updater->setOnChange([&] { states.push_back(updater->state().index()); });
                            updater->check();
                            updater->install(found("1.4.0"));
                            updater->check();  // and nothing else begins during an install
                            updater->install(found("1.4.0"));
                          }),
                seed);
      seat.publishUpdate({{"delay", 5}});
      seat.play(each + launch + settle + advance(10) + settle);
      EXPECT_EQ(states, (States{checking, installing}));
      const auto records = seat.takeRecords();
      EXPECT_EQ(errorsIn(records), std::vector<std::string>{});
      EXPECT_EQ(callsOf(records, dataTask).size(), 1U);
      EXPECT_EQ(callsOf(records, "NSURLSession.downloadTaskWithURL").size(), 1U);
      EXPECT_EQ(recordsOf(records, "open").size(), 1U);
    }
  }
}

TEST(Updater, InstallsInWhateverStateTheLastCheckLeftIt) {
  const struct {
    std::string feed;
    std::size_t state;
  } cases[] = {{published(releaseOf("1.3.9")), upToDate},
               {published(releaseOf("1.5.0")), available},
               {feed({{"status", 500}}), failed}};
  for (const auto& each : cases) {
    States states;
    std::shared_ptr<Updater> updater;
    Updater* kept = nullptr;
    Seat seat(programOf(updater,
                        [&] {
                          kept = updater.get();
                          updater->setOnChange([&] { states.push_back(kept->state().index()); });
                          updater->check();
                          Updater** const its = &kept;
                          afterSeconds(5, ^{
                            (*its)->install(found("1.4.0"));
                          });
                        }),
              1);
    seat.publishUpdate();
    seat.play(each.feed + launch + settle);
    EXPECT_EQ(states, (States{checking, each.state, installing}));
    EXPECT_EQ(seat.snapshot()["bundle"]["version"], "1.4.0");
  }
}

TEST(Updater, TheReleaseToInstallMayBeTheOneItHolds) {
  std::shared_ptr<Updater> updater;
  auto* const its = &updater;
  Seat seat(programOf(updater,
                      [its] {
                        (*its)->setOnChange([its] {
                          if (const auto* held = std::get_if<Updater::Available>(&(*its)->state())) {
                            (*its)->install(held->release);
                          }
                        });
                        (*its)->check();
                      }),
            1);
  seat.publishUpdate();
  seat.play(launch + settle);
  const auto downloads = callsOf(seat.takeRecords(), "NSURLSession.downloadTaskWithURL");
  ASSERT_EQ(downloads.size(), 1U);
  EXPECT_EQ(downloads[0]["args"]["url"], "https://downloads.dalvane.example/Dalvane-1.4.0.dmg");
  EXPECT_EQ(seat.snapshot()["bundle"]["version"], "1.4.0");
  EXPECT_TRUE(seat.shutDown());
}

TEST(Updater, BelongsToTheMainThread) {
  const std::function<void(Updater&)> uses[] = {[](Updater& updater) { updater.start(); },
                                                [](Updater& updater) { updater.check(); },
                                                [](Updater& updater) { updater.install(found("1.4.0")); }};
  for (const auto& use : uses) {
    EXPECT_EXIT(
        {
          std::shared_ptr<Updater> updater;
          auto* const its = &updater;
          Seat seat(programOf(updater,
                              [its, use] {
                                dispatch_async(dispatch_get_global_queue(QOS_CLASS_UTILITY, 0), ^{
                                  use(**its);
                                });
                              }),
                    1);
          seat.play(launch + settle);
        },
        testing::ExitedWithCode(1), "runs off the main thread");
  }
}

// ---- When it checks ----

namespace {

enum class End { stopped, dropped, stoppedAndDropped };

std::vector<double> checksWhenEnded(std::int64_t seconds, End end) {
  std::shared_ptr<Updater> updater;
  auto* const its = &updater;
  Seat seat(programOf(updater,
                      [its, seconds, end] {
                        (*its)->start();
                        afterSeconds(seconds, ^{
                          if (end != End::dropped) {
                            (*its)->stop();
                            (*its)->stop();
                          }
                          if (end != End::stopped) its->reset();
                        });
                      }),
            1);
  seat.play(launch + advance(100000));
  EXPECT_TRUE(seat.shutDown());
  return timesOf(callsOf(seat.takeRecords(), dataTask));
}

}  // namespace

TEST(Updater, StoppingEndsTheTimerButNotTheFirstCheck) {
  EXPECT_EQ(checksWhenEnded(5, End::stopped), std::vector<double>{10});
  EXPECT_EQ(checksWhenEnded(50000, End::stopped), (std::vector<double>{10, 21600, 43200}));
}

TEST(Updater, AnUpdaterThatIsGoneChecksNothing) {
  EXPECT_TRUE(checksWhenEnded(5, End::stoppedAndDropped).empty());
  EXPECT_TRUE(checksWhenEnded(5, End::dropped).empty());
  EXPECT_EQ(checksWhenEnded(15, End::dropped), std::vector<double>{10});
}

TEST(Updater, StartingItTwiceChangesNothing) {
  std::shared_ptr<Updater> updater;
  Seat seat(programOf(updater,
                      [&] {
                        updater->start();
                        updater->start();
                      }),
            1);
  seat.play(feed({{"delay", 1}}) + launch + advance(50000));
  EXPECT_EQ(timesOf(callsOf(seat.takeRecords(), dataTask)), (std::vector<double>{10, 21600, 43200}));
  EXPECT_TRUE(seat.shutDown());  // no timer is left
}

TEST(Updater, TheFirstCheckCountsTheTimeThatTheMacSleeps) {
  const auto firstCheck = [](const std::string& meanwhile) {
    Seat seat;
    seat.play(launch + advance(4) + meanwhile + advance(5000));
    EXPECT_TRUE(seat.shutDown());
    return timesOf(callsOf(seat.takeRecords(), dataTask)).front();
  };
  EXPECT_EQ(firstCheck(macSleeps(3)), 10);
  EXPECT_EQ(firstCheck(macSleeps(3600)), 3604);  // it is overdue when the Mac wakes
  EXPECT_EQ(firstCheck(setClockForward(3600)), 10);
  EXPECT_EQ(firstCheck(setClockForward(-3600)), 10);
}

TEST(Updater, TheFirstCheckGivesBackWhatItWaitedWith) {
  namespace fs = std::filesystem;
  // What stands for a kernel queue here.
  const auto queues = [] {
    return std::ranges::count_if(fs::directory_iterator("/proc/self/fd"), [](const fs::directory_entry& file) {
      std::error_code gone;  // that of the listing itself
      return fs::read_symlink(file.path(), gone) == "/dev/null";
    });
  };
  Seat seat;
  const auto before = queues();
  seat.play(launch + settle);
  EXPECT_EQ(queues(), before + 1);
  seat.play(advance(10));
  EXPECT_EQ(queues(), before);
  seat.play(quit + launch + settle + quit);
  EXPECT_EQ(queues(), before);
  EXPECT_TRUE(seat.shutDown());
}

TEST(Updater, TheFirstCheckIsMadeWhateverItsWaitEndsWith) {
  const auto firstCheck = [](const std::string& failure) {
    Seat seat;
    seat.play(failure + launch + advance(100));
    EXPECT_TRUE(seat.shutDown());
    return timesOf(callsOf(seat.takeRecords(), dataTask));
  };
  EXPECT_EQ(firstCheck(fail("kevent", EINTR, 1, 3)), std::vector<double>{10});  // signals
  EXPECT_EQ(firstCheck(fail("kqueue", EMFILE)), std::vector<double>{0});        // it does not wait then
}

TEST(Updater, APeriodicCheckWaitsForTheMenuAndForAlertsToClose) {
  for (std::uint64_t seed = 1; seed <= 5; ++seed) {
    Seat seat(seed);
    seat.play(launch + advance(20000));
    seat.takeRecords();
    seat.play(menu(true) + advance(2000));
    EXPECT_TRUE(callsOf(seat.takeRecords(), dataTask).empty());
    seat.play(menu(false));
    EXPECT_EQ(timesOf(callsOf(seat.takeRecords(), dataTask)), std::vector<double>{22000});
    seat.play(leaveNextAlertOpen + advance(20000) + clickCheck);
    seat.takeRecords();
    seat.play(advance(40000));
    EXPECT_TRUE(callsOf(seat.takeRecords(), dataTask).empty());
    // One check makes up for all that were due.
    seat.play(answer("OK"));
    EXPECT_EQ(callsOf(seat.takeRecords(), dataTask).size(), 1U);
    seat.play(advance(4000) + settle);
    EXPECT_TRUE(callsOf(seat.takeRecords(), dataTask).size() <= 1U);
    EXPECT_TRUE(seat.shutDown());
  }
}

TEST(Updater, WithoutATimerTheFirstCheckIsMadeAllTheSame) {
  Seat seat;
  seat.play(fail("CFRunLoopTimerCreateWithHandler", 1) + launch + advance(50000) + settle);
  EXPECT_EQ(timesOf(callsOf(seat.takeRecords(), dataTask)), std::vector<double>{10});
  seat.play(clickCheck);
  EXPECT_EQ(callsOf(seat.takeRecords(), dataTask).size(), 1U);
  EXPECT_TRUE(seat.shutDown());
}

// ---- The end ----

TEST(Updater, AnswersThatComeAfterwardsDoNothing) {
  for (const bool drops : {false, true}) {
    for (const bool installs : {false, true}) {
      for (std::uint64_t seed = 1; seed <= 10; ++seed) {
        States states;
        std::shared_ptr<Updater> updater;
        auto* const its = &updater;
        auto* const seen = &states;
        Seat seat(programOf(updater,
                            [=] {
                              (*its)->setOnChange([=] { seen->push_back((*its)->state().index()); });
                              (*its)->check();
                              if (installs) (*its)->install(found("1.4.0"));
                              afterSeconds(1, ^{
                                (*its)->stop();
                                if (drops) its->reset();
                              });
                            }),
                  seed);
        seat.publishUpdate({{"delay", 5}});
        seat.play(feed({{"status", 500}, {"delay", 5}}) + launch + settle + advance(20) + settle);
        EXPECT_EQ(states, installs ? (States{checking, installing}) : States{checking});
        const auto records = seat.takeRecords();
        EXPECT_EQ(errorsIn(records), std::vector<std::string>{});
        EXPECT_TRUE(recordsOf(records, "exit").empty());  // no relaunch
        EXPECT_TRUE(seat.shutDown());
      }
    }
  }
}

TEST(Updater, NothingBeginsBesideAnInstallThatStoppingLeft) {
  States states;
  std::shared_ptr<Updater> updater;
  auto* const its = &updater;
  auto* const seen = &states;
  Seat seat(programOf(updater,
                      [=] {
                        (*its)->setOnChange([=] { seen->push_back((*its)->state().index()); });
                        (*its)->check();
                        (*its)->install(found("1.4.0"));
                        (*its)->stop();
                        (*its)->check();
                        (*its)->install(found("1.4.0"));
                      }),
            1);
  seat.publishUpdate();
  seat.play(launch + settle);
  EXPECT_EQ(states, (States{checking, installing}));
  EXPECT_EQ(callsOf(seat.takeRecords(), "NSURLSession.downloadTaskWithURL").size(), 1U);
  EXPECT_TRUE(seat.shutDown());
}

TEST(Updater, ChecksAgainAfterACheckThatStoppingEnded) {
  States states;
  std::shared_ptr<Updater> updater;
  auto* const its = &updater;
  auto* const seen = &states;
  Seat seat(programOf(updater,
                      [=] {
                        (*its)->setOnChange([=] { seen->push_back((*its)->state().index()); });
                        (*its)->check();
                        (*its)->stop();
                        (*its)->check();
                      }),
            1);
  seat.publishUpdate();
  seat.play(launch + settle);
  EXPECT_EQ(states, (States{checking, checking, available}));
  EXPECT_TRUE(seat.shutDown());
}

TEST(Updater, QuittingDuringACheckOrAnInstallIsClean) {
  for (const double when : {0.0, 0.01, 0.05, 0.1, 0.25, 0.3, 0.45, 0.6, 0.66, 0.9}) {
    for (std::uint64_t seed = 1; seed <= 3; ++seed) {
      for (const bool duringInstall : {false, true}) {
        Seat seat(seed);
        seat.publishUpdate();
        seat.play(launch + advance(10));
        if (duringInstall) seat.play(settle + answer("Install and Relaunch") + click("Update to 1.4.0…"));
        seat.play(advance(when) + quit + settle);
        EXPECT_TRUE(recordsOf(seat.takeRecords(), "fatal").empty());
        // Whatever was under way, a whole application is installed.
        const json version = seat.snapshot()["bundle"]["version"];
        EXPECT_TRUE(version == "1.3.9" || version == "1.4.0") << version;
        EXPECT_TRUE(seat.shutDown()) << when << " " << duringInstall << " " << seed;
      }
    }
  }
}

TEST(Updater, WhatIsNotThereIsNotLaunched) {
  Seat seat;
  seat.publishUpdate();
  seat.launchAndCheck();
  // The old version cannot be put back where the new one could not be copied to.
  seat.play(fail("ditto", 1) + fail("rename", 13, 3) + answer("Install and Relaunch") + click("Update to 1.4.0…") +
            settle + quit + settle + launch + settle);
  const json state = seat.snapshot();
  EXPECT_EQ(state["running"], false);
  EXPECT_EQ(state["bundle"], json({{"version", nullptr}, {"backup", true}}));
  seat.play(bundle({{"version", "1.3.9"}}) + launch + settle);
  EXPECT_EQ(seat.snapshot()["running"], true);
}

TEST(Updater, ABundleWithoutAVersionIsABuildDefect) {
  for (const json& version : {json(nullptr), json(14), json(true)}) {
    EXPECT_EXIT(
        {
          Seat seat;
          seat.play(bundle({{"version", version}}) + launch);
        },
        testing::ExitedWithCode(1), "Info.plist has no CFBundleShortVersionString.*fatal");
  }
}

TEST(Updater, SoIsOneWithoutAnIdentifier) {
  EXPECT_EXIT(
      {
        Seat seat;
        seat.play(bundle({{"identifier", nullptr}, {"signer", nullptr}}) + launch);
      },
      testing::ExitedWithCode(1), "The main bundle has no identifier.*fatal");
}
