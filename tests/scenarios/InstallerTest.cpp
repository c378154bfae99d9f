// Installing an update: that it ends in the new version, or, whatever goes wrong, in the old one.
#include <Security/Security.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <initializer_list>
#include <regex>
#include <string>
#include <vector>

#include "desk/Desk.h"
#include "simulator/software/Applications.h"
#include "simulator/system/FileContent.h"
#include "simulator/system/SystemRoot.h"
#include "tests/support/Lines.h"
#include "tests/support/Seat.h"

namespace {

namespace fs = std::filesystem;
using lines::advance;
using lines::answer;
using lines::bundle;
using lines::click;
using lines::fail;
using lines::launch;
using lines::settle;
using nlohmann::json;

const std::string install = answer("Install and Relaunch") + click("Update to 1.4.0…") + settle;
// The same where the offer has been lost, as after a failure.
const std::string checkAndInstall = answer("Install and Relaunch") + click("Check for Updates…") + settle;

const json newVersion = {{"version", "1.4.0"}, {"backup", false}};
const json oldVersion = {{"version", "1.3.9"}, {"backup", false}};

// The programs that were run, as "hdiutil attach", "ditto" or "sh".
std::vector<std::string> programsIn(const std::vector<json>& records) {
  std::vector<std::string> programs;
  for (const json& call : callsOf(records, "posix_spawn")) {
    std::string name = call["args"]["executable"].get<std::string>();
    name.erase(0, name.rfind('/') + 1);
    if (name == "hdiutil") name += " " + call["args"]["arguments"][0].get<std::string>();
    programs.push_back(name);
  }
  return programs;
}

std::vector<std::string> changesIn(const std::vector<json>& records) {
  std::vector<std::string> changes;
  for (const json& call : recordsOf(records, "call")) {
    const json& args = call["args"];
    if (call["api"] == "rename")
      changes.push_back(args["from"].get<std::string>() + " -> " + args["to"].get<std::string>());
    if (call["api"] == "remove_all") changes.push_back("- " + args["path"].get<std::string>());
  }
  return changes;
}

}  // namespace

TEST(Installer, PutsTheNewVersionInPlaceAndRelaunches) {
  for (std::uint64_t seed = 1; seed <= 5; ++seed) {
    Seat seat(seed);
    seat.publishUpdate();
    seat.launchAndCheck();
    EXPECT_EQ(seat.updateItem(), "Update to 1.4.0…");
    seat.takeRecords();
    seat.play(install);
    const auto records = seat.takeRecords();

    const auto alerts = recordsOf(records, "alert");
    ASSERT_EQ(alerts.size(), 1U);
    EXPECT_EQ(alerts[0]["message"], "Dalvane 1.4.0 is available");
    EXPECT_EQ(alerts[0]["informative"], "Fixes volume keys after sleep.\n\nYou have version 1.3.9.");
    EXPECT_EQ(alerts[0]["buttons"], json::array({"Install and Relaunch", "Later"}));

    const auto spawns = callsOf(records, "posix_spawn");
    EXPECT_EQ(programsIn(records), (std::vector<std::string>{"hdiutil attach", "ditto", "hdiutil detach", "sh"}));
    ASSERT_EQ(spawns.size(), 4U);
    const json& attach = spawns[0]["args"]["arguments"];
    const std::string image = attach[1];
    const std::string directory = image.substr(0, image.rfind('/'));
    const std::string mountPoint = directory + "/mnt";
    EXPECT_TRUE(image.ends_with("/Dalvane.dmg"));
    const std::string uuid = directory.substr(directory.rfind('/') + 1);
    EXPECT_TRUE(std::regex_match(uuid, std::regex("dalvane-update-[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}"))) << uuid;
    EXPECT_EQ(attach, json::array({"attach", image, "-mountpoint", mountPoint, "-nobrowse", "-readonly", "-quiet"}));
    EXPECT_EQ(spawns[1]["args"]["arguments"], json::array({mountPoint + "/Dalvane.app", "/Applications/Dalvane.app"}));
    EXPECT_EQ(spawns[2]["args"]["arguments"], json::array({"detach", mountPoint, "-force", "-quiet"}));
    const json& script = spawns[3]["args"]["arguments"];
    ASSERT_EQ(script.size(), 4U);
    EXPECT_EQ(script[0], "-c");
    EXPECT_EQ(script[1], R"(while /bin/kill -0 "$0" 2>/dev/null; do sleep 0.2; done; /usr/bin/open "$1")");
    EXPECT_EQ(script[3], "/Applications/Dalvane.app");
    for (std::size_t i = 0; i < 3; ++i) EXPECT_EQ(spawns[i]["args"]["exit"], 0);

    const auto changes = changesIn(records);
    ASSERT_EQ(changes.size(), 4U);
    EXPECT_TRUE(changes[0].ends_with(" -> " + image));
    EXPECT_EQ(changes[1], "/Applications/Dalvane.app -> /Applications/Dalvane.app.bak");
    EXPECT_EQ(changes[2], "- /Applications/Dalvane.app.bak");
    EXPECT_EQ(changes[3], "- " + directory);

    // The script opens the new version once the old process has ended.
    const auto exits = recordsOf(records, "exit");
    const auto opened = recordsOf(records, "open");
    ASSERT_EQ(exits.size(), 1U);
    ASSERT_EQ(opened.size(), 1U);
    EXPECT_LT(exits[0]["t"], opened[0]["t"]);
    const json state = seat.snapshot();
    EXPECT_EQ(state["running"], true);
    EXPECT_EQ(state["bundle"], newVersion);
    EXPECT_EQ(state["volumes"], json::array());
    EXPECT_EQ(state["temporary"], json::array());
    EXPECT_TRUE(errorsIn(records).empty());

    // What runs now knows itself as 1.4.0, and finds nothing newer.
    seat.play(advance(10) + settle + click("Check for Updates…") + settle);
    EXPECT_EQ(alertsIn(seat.takeRecords()),
              std::vector<std::string>{"Dalvane is up to date: Version 1.4.0 is the newest version."});
    EXPECT_TRUE(seat.shutDown());
  }
}

TEST(Installer, TheSameSeedGivesTheSameTrace) {
  const auto run = [](std::uint64_t seed) {
    Seat seat(seed);
    seat.publishUpdate();
    seat.launchAndCheck();
    seat.play(install);
    seat.shutDown();
    return seat.takeRecords();
  };
  EXPECT_EQ(run(7), run(7));
  EXPECT_NE(run(7), run(8));
}

TEST(Installer, WithTheProgramsThreadsRunningFreely) {
  Seat seat(1, simulator::Clock::live);
  seat.publishUpdate();
  seat.play(launch + settle + click("Check for Updates…") + settle);
  EXPECT_EQ(seat.snapshot()["bundle"], newVersion);
  EXPECT_EQ(seat.snapshot()["running"], true);
  EXPECT_EQ(seat.snapshot()["temporary"], json::array());
  EXPECT_TRUE(seat.shutDown());
}

TEST(Installer, ANameWithShellCharactersIsOnlyAName) {
  simulator::Program program = dalvaneProgram();
  program.name = R"(Da"l' $(touch pwned) `touch pwned`; & vane)";
  Seat seat(program, 1);
  seat.publishUpdate();
  seat.launchAndCheck();
  seat.play(install);
  EXPECT_EQ(seat.snapshot()["bundle"], newVersion);
  EXPECT_EQ(seat.snapshot()["running"], true);
  const auto opened = recordsOf(seat.takeRecords(), "open");
  ASSERT_EQ(opened.size(), 1U);
  EXPECT_EQ(opened[0]["path"], "/Applications/" + program.name + ".app");
  EXPECT_FALSE(fs::exists("pwned"));
  EXPECT_TRUE(seat.shutDown());
}

TEST(Installer, TheHostsTemporaryDirectoryMayHaveAnyName) {
  // One of its own: this test may run in several processes at a time.
  const fs::path folder = fs::path(testing::TempDir()) / (R"(a b'c"$d)" + std::to_string(getpid()));
  fs::create_directories(folder / "inner");
  const char* const before = std::getenv("TMPDIR");
  const std::string restored = before ? before : "";
  for (const fs::path& name : {folder, folder / "", folder / "inner/../inner", fs::relative(folder)}) {
    setenv("TMPDIR", name.c_str(), 1);
    Seat seat;
    seat.publishUpdate();
    seat.launchAndCheck();
    seat.play(install);
    EXPECT_EQ(seat.snapshot()["bundle"], newVersion) << name;
    EXPECT_EQ(recordsOf(seat.takeRecords(), "open").size(), 1U) << name;
    EXPECT_TRUE(seat.shutDown());
  }
  if (before) {
    setenv("TMPDIR", restored.c_str(), 1);
  } else {
    unsetenv("TMPDIR");
  }
  fs::remove_all(folder);
}

TEST(Installer, TheRunningCopyDecidesNotTheOneInTheImage) {
  // A copy signed by somebody else, as a contributor builds it, takes updates of that signer only.
  for (const bool same : {false, true}) {
    Seat seat;
    seat.publishUpdate(same ? json{{"signer", "Contributor"}} : json::object());
    seat.play(bundle({{"version", "1.3.9"}, {"signer", "Contributor"}}));
    seat.launchAndCheck();
    seat.play(install);
    EXPECT_EQ(seat.snapshot()["bundle"]["version"], same ? "1.4.0" : "1.3.9");
    EXPECT_EQ(errorsIn(seat.takeRecords()).size(), same ? 0U : 1U);
  }
}

// Where it cannot be replaced, or would be gone afterwards, nothing is downloaded and nothing touched.
TEST(Installer, HasToBeMovedToApplicationsFirst) {
  const struct {
    const char* name;
    json place;          // further members of the bundle line
    std::string before;  // lines before the user chooses to install
    const char* volume;  // what is attached all the time
  } cases[] = {
      {"in its disk image", {{"place", "image"}}, "", "/Volumes/Dalvane"},
      {"translocated", {{"place", "translocated"}}, "", nullptr},
      {"in a folder of somebody else's", json::object(), fail("access", EACCES), nullptr},
      {"somebody else's itself", json::object(), fail("access", EACCES, 2), nullptr},
      {"in a protected folder", json::object(), fail("access", EPERM), nullptr},
  };
  for (const auto& each : cases) {
    for (std::uint64_t seed = 1; seed <= 3; ++seed) {
      Seat seat(seed);
      seat.publishUpdate();
      json installed = {{"version", "1.3.9"}};
      installed.update(each.place);
      seat.play(bundle(installed));
      seat.launchAndCheck();
      const std::string old = seat.installedBundle();
      seat.takeRecords();
      seat.play(each.before + install);
      const auto records = seat.takeRecords();
      const std::string message =
          "Dalvane cannot be updated where it is: it has to be moved to the Applications folder first";
      EXPECT_EQ(errorsIn(records), std::vector<std::string>{"Update install failed: " + message}) << each.name;
      const auto alerts = alertsIn(records);
      ASSERT_EQ(alerts.size(), 2U) << each.name;
      EXPECT_EQ(alerts[1], "Could not install the update: " + message) << each.name;
      EXPECT_TRUE(callsOf(records, "NSURLSession.downloadTaskWithURL").empty()) << each.name;
      EXPECT_TRUE(callsOf(records, "posix_spawn").empty()) << each.name;
      EXPECT_TRUE(changesIn(records).empty()) << each.name;
      EXPECT_EQ(seat.installedBundle(), old) << each.name;
      const json state = seat.snapshot();
      EXPECT_EQ(state["bundle"], oldVersion) << each.name;
      EXPECT_EQ(state["temporary"], json::array()) << each.name;
      EXPECT_EQ(state["volumes"], each.volume ? json::array({each.volume}) : json::array()) << each.name;

      // Moved, and opened there, it is updated.
      seat.play(lines::quit + settle + bundle({{"version", "1.3.9"}}));
      seat.launchAndCheck();
      seat.play(install);
      EXPECT_EQ(seat.snapshot()["bundle"], newVersion) << each.name;
      EXPECT_TRUE(seat.shutDown());
    }
  }
}

// Another address would not help there.
TEST(Installer, WhereItLiesComesBeforeWhereFrom) {
  Seat seat;
  seat.publishUpdate(json::object(), "http://downloads.dalvane.example/Dalvane-1.4.0.dmg");
  seat.play(bundle({{"version", "1.3.9"}, {"place", "translocated"}}));
  seat.launchAndCheck();
  seat.takeRecords();
  seat.play(install);
  EXPECT_NE(errorsIn(seat.takeRecords()).at(0).find("it has to be moved"), std::string::npos);
}

// What cannot be told apart from a place that can be written is tried.
TEST(Installer, IsNotStoppedByAQuestionThatFails) {
  for (const int nth : {1, 2}) {
    Seat seat;
    seat.publishUpdate();
    seat.launchAndCheck();
    seat.play(fail("access", EIO, nth) + install);
    EXPECT_EQ(seat.snapshot()["bundle"], newVersion);
    EXPECT_TRUE(seat.shutDown());
  }
}

TEST(Installer, AWaitThatASignalInterruptsGoesOn) {
  Seat seat;
  seat.publishUpdate();
  seat.launchAndCheck();
  seat.play(fail("waitpid", EINTR, 1, 5) + install);
  EXPECT_EQ(seat.snapshot()["bundle"], newVersion);
  EXPECT_TRUE(errorsIn(seat.takeRecords()).empty());
  EXPECT_TRUE(seat.shutDown());
}

TEST(Installer, TheTemporaryDirectoryIsTheUsersOwnWhateverTheEnvironmentSays) {
  for (const char* const named : {"", "/tmp"}) {
    Seat seat;
    const fs::path own = seat.machine().part<simulator::SystemRoot>().temporaryDirectory();
    const std::string before = std::getenv("TMPDIR");
    if (*named) {
      setenv("TMPDIR", named, 1);
    } else {
      unsetenv("TMPDIR");
    }
    seat.publishUpdate();
    seat.launchAndCheck();
    seat.play(install);
    const auto spawns = callsOf(seat.takeRecords(), "posix_spawn");
    ASSERT_FALSE(spawns.empty());
    const std::string image = spawns[0]["args"]["arguments"][1];
    EXPECT_TRUE(image.starts_with("/var/folders/")) << image;
    EXPECT_EQ(seat.machine().part<simulator::SystemRoot>().below(image).parent_path().parent_path(), own);
    EXPECT_EQ(seat.snapshot()["bundle"], newVersion);
    EXPECT_TRUE(seat.shutDown());
    setenv("TMPDIR", before.c_str(), 1);
  }
}

TEST(Installer, AddressesAreEncodedAsTheyHaveToBe) {
  const struct {
    const char* published;
    const char* requested;
  } cases[] = {
      {"https://downloads.dalvane.example/Dalvane 1.4.0.dmg", "https://downloads.dalvane.example/Dalvane%201.4.0.dmg"},
      {"https://downloads.dalvane.example/für/alle.dmg", "https://downloads.dalvane.example/f%C3%BCr/alle.dmg"},
      {"https://Bücher.example/x.dmg?für=alle", "https://xn--bcher-kva.example/x.dmg?f%C3%BCr=alle"},
      {"HTTPS://downloads.dalvane.example/x.dmg", "HTTPS://downloads.dalvane.example/x.dmg"}};
  for (const auto& each : cases) {
    Seat seat;
    seat.publishUpdate(json::object(), each.published);
    seat.play(lines::image(each.requested, {{"version", "1.4.0"}}));
    seat.launchAndCheck();
    seat.play(install);
    const auto requests = callsOf(seat.takeRecords(), "NSURLSession.downloadTaskWithURL");
    ASSERT_EQ(requests.size(), 1U) << each.published;
    EXPECT_EQ(requests[0]["args"]["url"], each.requested);
    EXPECT_EQ(seat.snapshot()["bundle"], newVersion);
    EXPECT_TRUE(seat.shutDown());
  }
}

TEST(Installer, OnlyAnHTTPSAddressIsDownloadedFrom) {
  for (const std::string address :
       {"http://downloads.dalvane.example/Dalvane-1.4.0.dmg", "http://downloads/x.dmg", "http://downloads.local/x.dmg",
        "file:///Users/Shared/Dalvane.dmg", "ftp://downloads.dalvane.example/x.dmg", "Dalvane.dmg", "https.dmg",
        "//downloads.dalvane.example/x.dmg", "data:,x"}) {
    Seat seat;
    seat.publishUpdate(json::object(), address);
    const fs::path local = seat.machine().part<simulator::SystemRoot>().below("/Users/Shared/Dalvane.dmg");
    fs::create_directories(local.parent_path());
    simulator::writeFile(local, seat.machine().part<simulator::Applications>().makeImage({}));
    seat.launchAndCheck();
    const std::string old = seat.installedBundle();
    seat.takeRecords();
    seat.play(install);
    const auto records = seat.takeRecords();
    EXPECT_EQ(errorsIn(records),
              std::vector<std::string>{"Update install failed: The update is not offered over HTTPS"})
        << address;
    EXPECT_TRUE(callsOf(records, "NSURLSession.downloadTaskWithURL").empty()) << address;
    EXPECT_TRUE(callsOf(records, "posix_spawn").empty()) << address;
    EXPECT_EQ(seat.installedBundle(), old);
    EXPECT_EQ(seat.snapshot()["temporary"], json::array());
    EXPECT_TRUE(seat.shutDown());
  }
}

// What a link in the image leads to can be exchanged after it has been checked.
TEST(Installer, AnApplicationThatLiesElsewhereIsNotInstalled) {
  Seat seat;
  seat.publishUpdate({{"apps", json::array()}, {"links", {{"Dalvane.app", "/Users/Shared/Dalvane.app"}}}});
  const fs::path genuine = seat.machine().part<simulator::SystemRoot>().below("/Users/Shared/Dalvane.app");
  fs::create_directories(genuine.parent_path());
  fs::copy(seat.machine().part<simulator::Applications>().bundle(), genuine,
           fs::copy_options::recursive | fs::copy_options::copy_symlinks);
  seat.launchAndCheck();
  seat.takeRecords();
  seat.play(install);
  const auto records = seat.takeRecords();
  EXPECT_EQ(errorsIn(records),
            std::vector<std::string>{"Update install failed: The app in the update image is not a folder of its own"});
  EXPECT_EQ(programsIn(records), (std::vector<std::string>{"hdiutil attach", "hdiutil detach"}));
  EXPECT_TRUE(seat.shutDown());
}

TEST(Installer, WhatOnlyHasTheExtensionAsItsNameIsNoApplication) {
  Seat seat;
  seat.publishUpdate({{"apps", {"Dalvane.app", ".app"}}, {"files", {"app", "Dalvane.app.txt"}}});
  seat.launchAndCheck();
  seat.play(install);
  EXPECT_EQ(seat.snapshot()["bundle"], newVersion);
  EXPECT_TRUE(seat.shutDown());
}

namespace {

// What an earlier install left, and what the next one does about it when its own copy succeeds and when it fails.
struct LeftBehind {
  const char* name;
  std::string before;                // an install that fails, or the state that one of an earlier run has left
  std::string kept;                  // where the copy then lies that must not be lost
  std::vector<std::string> changes;  // of the next install, after the download has been moved
};

const std::string place = "/Applications/Dalvane.app";
const std::string bak = "/Applications/Dalvane.app.bak";

const LeftBehind leftBehind[] = {
    {"Nothing", "", place, {place + " -> " + bak, "- " + bak}},
    {"AStaleBackup",
     bundle({{"version", "1.3.9"}, {"backup", true}}),
     place,
     {"- " + bak, place + " -> " + bak, "- " + bak}},
    // The rollback could not move the backup: its place is empty.
    {"AnEmptyPlace",
     fail("ditto", 1) + fail("rename", 13, 3) + checkAndInstall,
     bak,
     {bak + " -> " + place, place + " -> " + bak, "- " + bak}},
    // The rollback could not remove the half of a copy.
    {"HalfACopy",
     fail("ditto", 1) + fail("remove_all", 13) + checkAndInstall,
     bak,
     {"- " + place, bak + " -> " + place, place + " -> " + bak, "- " + bak}},
    // The power failed during the copy.
    {"ACopyWithoutItsLastFile",
     bundle({{"version", "1.3.9"}, {"tampered", "missing"}, {"backup", true}}),
     bak,
     {"- " + place, bak + " -> " + place, place + " -> " + bak, "- " + bak}},
    // Removing the backup failed: the place is whole, the backup perhaps not.
    {"HalfABackup",
     bundle({{"version", "1.3.9"}, {"backup", "missing"}}),
     place,
     {"- " + bak, place + " -> " + bak, "- " + bak}},
    // Nothing whole is left that could be lost: what runs is kept.
    {"TwoHalves",
     bundle({{"version", "1.3.9"}, {"tampered", "missing"}, {"backup", "added"}}),
     place,
     {"- " + bak, place + " -> " + bak, "- " + bak}},
};

void PrintTo(const LeftBehind& left, std::ostream* out) { *out << left.name; }

class LeftBehindTest : public testing::TestWithParam<LeftBehind> {
 protected:
  // A seat at which that has been left behind. `kept` becomes the digest of the copy that must not be lost.
  static void prepare(Seat& seat, std::string& kept) {
    seat.publishUpdate();
    seat.play(launch + settle + GetParam().before);
    kept = seat.digestOf(GetParam().kept);
    EXPECT_FALSE(kept.empty());
    seat.takeRecords();
  }
};

}  // namespace

TEST_P(LeftBehindTest, IsClearedAwayByTheNextInstall) {
  Seat seat;
  std::string kept;
  prepare(seat, kept);
  seat.play(checkAndInstall);
  const auto records = seat.takeRecords();
  auto changes = changesIn(records);
  ASSERT_GE(changes.size(), 2U);
  changes.erase(changes.begin());  // the download
  changes.pop_back();              // the working directory
  EXPECT_EQ(changes, GetParam().changes);
  EXPECT_TRUE(errorsIn(records).empty());
  EXPECT_EQ(seat.snapshot()["bundle"], newVersion);
  EXPECT_TRUE(seat.shutDown());
}

TEST_P(LeftBehindTest, IsBackInItsPlaceWhenTheNextCopyFails) {
  Seat seat;
  std::string kept;
  prepare(seat, kept);
  seat.play(fail("ditto", 1) + checkAndInstall);
  EXPECT_EQ(seat.installedBundle(), kept);
  EXPECT_EQ(seat.snapshot()["bundle"], oldVersion);
  EXPECT_TRUE(seat.shutDown());
}

// Whatever fails in the next install, and then in the one after it. A copy that cannot be looked at may be whole.
TEST_P(LeftBehindTest, IsNeverLost) {
  for (const char* const call : {"rename", "remove_all", "CFURLCreateFromFileSystemRepresentation",
                                 "SecStaticCodeCreateWithPath", "SecStaticCodeCheckValidity"}) {
    for (int nth = 1; nth <= 6; ++nth) {
      Seat seat;
      std::string kept;
      prepare(seat, kept);
      for (const std::string& failing : {fail("ditto", 1) + fail(call, 13, nth), fail("ditto", 1, 1, 9)}) {
        seat.play(failing + checkAndInstall);
        EXPECT_TRUE(seat.digestOf(place) == kept || seat.digestOf(bak) == kept) << call << " " << nth;
      }
      EXPECT_TRUE(seat.shutDown());
    }
  }
}

// What is wrong with the installed copy lets the backup take its place again. What only tells that nobody could look
// at it ends the install before anything is changed.
TEST(Installer, ACopyThatCannotBeLookedAtStaysWhereItIs) {
  constexpr struct {
    int status;
    bool isVerdict;
  } cases[] = {{100000 + EACCES, false},
               {errSecIO, false},
               {errSecAllocate, false},
               {errSecInternalComponent, false},
               {errSecCSSignatureNotVerifiable, false},
               {errSecCSInternalError, false},
               {-1, true},
               {errSecCSBadResource, true}};
  for (const auto& [status, isVerdict] : cases) {
    Seat seat;
    seat.publishUpdate();
    seat.play(bundle({{"version", "1.3.9"}, {"backup", true}}) + launch + settle);
    seat.takeRecords();
    seat.play(fail("SecStaticCodeCheckValidity", status, 2) + checkAndInstall);
    const auto records = seat.takeRecords();
    auto changes = changesIn(records);
    ASSERT_GE(changes.size(), 2U);
    changes.erase(changes.begin());  // the download
    changes.pop_back();              // the working directory
    if (isVerdict) {
      EXPECT_EQ(changes,
                (std::vector<std::string>{"- " + place, bak + " -> " + place, place + " -> " + bak, "- " + bak}))
          << status;
      EXPECT_EQ(seat.snapshot()["bundle"], newVersion) << status;
    } else {
      EXPECT_TRUE(changes.empty()) << status;
      EXPECT_EQ(errorsIn(records),
                std::vector<std::string>{"Update install failed: Reading this app's signature failed (" +
                                         std::to_string(status) + ")"});
      EXPECT_EQ(seat.snapshot()["bundle"], json::parse(R"({"version":"1.3.9","backup":true})")) << status;
    }
    EXPECT_TRUE(seat.shutDown());
  }
}

TEST(Installer, ABackupMayBeALinkToNothing) {
  Seat seat;
  seat.publishUpdate();
  seat.play(launch + settle);
  fs::create_symlink("/nowhere", seat.machine().part<simulator::SystemRoot>().below(bak));
  seat.play(checkAndInstall);
  EXPECT_EQ(seat.snapshot()["bundle"], newVersion);
  EXPECT_TRUE(seat.shutDown());
}

// Even a broken copy is better than none.
TEST(Installer, ABackupIsPutBackWhereNothingIsInstalledWhateverItIs) {
  Seat seat;
  seat.publishUpdate();
  seat.play(launch + settle);
  fs::rename(seat.machine().part<simulator::SystemRoot>().below(place),
             seat.machine().part<simulator::SystemRoot>().below(bak));
  fs::remove(seat.machine().part<simulator::SystemRoot>().below(bak) / "Contents/Resources/AppIcon.icns");
  const std::string kept = seat.digestOf(bak);
  seat.play(fail("ditto", 1) + checkAndInstall);
  EXPECT_EQ(seat.installedBundle(), kept);
  seat.play(checkAndInstall);
  EXPECT_EQ(seat.snapshot()["bundle"], newVersion);
  EXPECT_TRUE(seat.shutDown());
}

INSTANTIATE_TEST_SUITE_P(Each, LeftBehindTest, testing::ValuesIn(leftBehind),
                         [](const auto& left) { return std::string(left.param.name); });

namespace {

enum class Bundle { old, update, neither };

struct Failure {
  const char* name;
  json image;           // further members of the image line
  std::string before;   // lines before the user chooses to install
  std::string message;  // a pattern
  Bundle bundle = Bundle::old;
  bool backup = false;
  bool leftOver = false;  // whether an image stays attached and the working directory stays, because that failed
};

// What a test's parameter is called where it is listed.
void PrintTo(const Failure& failure, std::ostream* out) { *out << failure.name; }

class InstallerFailureTest : public testing::TestWithParam<Failure> {};

}  // namespace

TEST_P(InstallerFailureTest, LeavesEverythingInOrder) {
  const Failure& failure = GetParam();
  for (std::uint64_t seed = 1; seed <= 2; ++seed) {
    Seat seat(seed);
    seat.publishUpdate(failure.image);
    seat.launchAndCheck();
    seat.play(failure.before);
    const std::string old = seat.installedBundle();
    seat.takeRecords();
    seat.play(install);
    seat.play(advance(61));  // what a download waits at most
    const auto records = seat.takeRecords();

    const auto errors = errorsIn(records);
    ASSERT_EQ(errors.size(), 1U);
    EXPECT_TRUE(errors[0].starts_with("Update install failed: "));
    const std::string message = errors[0].substr(std::string("Update install failed: ").size());
    EXPECT_TRUE(std::regex_match(message, std::regex(failure.message))) << message;
    const auto alerts = alertsIn(records);
    ASSERT_EQ(alerts.size(), 2U);  // the question comes first
    EXPECT_EQ(alerts[1], "Could not install the update: " + message);
    EXPECT_EQ(seat.updateItem(), "Check for Updates…");

    const json state = seat.snapshot();
    EXPECT_EQ(state["running"], true);
    EXPECT_TRUE(recordsOf(records, "exit").empty());
    switch (failure.bundle) {
      case Bundle::old:
        EXPECT_EQ(seat.installedBundle(), old);
        break;
      case Bundle::update:
        EXPECT_EQ(state["bundle"]["version"], "1.4.0");
        break;
      case Bundle::neither:
        EXPECT_NE(seat.installedBundle(), old);
        break;
    }
    EXPECT_EQ(state["bundle"]["backup"], failure.backup);
    EXPECT_EQ(state["volumes"].size(), failure.leftOver ? 1U : 0U);
    EXPECT_EQ(state["temporary"].size(), failure.leftOver ? 1U : 0U);

    // An image that was attached is detached, and only then.
    const auto programs = programsIn(records);
    const bool attached = !callsOf(records, "posix_spawn").empty() &&
                          callsOf(records, "posix_spawn")[0]["status"] == 0 &&
                          callsOf(records, "posix_spawn")[0]["args"]["exit"] == 0;
    EXPECT_EQ(std::ranges::count(programs, "hdiutil detach"), attached ? 1 : 0);
    // What is wrong with the image is found before anything else is changed.
    if (!failure.image.empty()) {
      EXPECT_EQ(std::ranges::count(programs, "ditto"), 0);
      for (const std::string& change : changesIn(records)) {
        EXPECT_EQ(change.find("/Applications"), std::string::npos) << change;
      }
    }
    // What was not started has no exit status.
    for (const json& spawn : callsOf(records, "posix_spawn")) {
      ASSERT_TRUE(spawn["args"].contains("exit"));
      EXPECT_EQ(spawn["args"]["exit"].is_null(), spawn["status"] != 0);
    }

    // Nothing of it stands in the way of the next attempt.
    if (failure.bundle != Bundle::neither && !failure.leftOver && failure.image.empty()) {
      const std::string running = seat.snapshot()["bundle"]["version"];
      if (running == "1.3.9" && failure.before.find("\"bundle\"") == std::string::npos) {
        seat.play(checkAndInstall);
        EXPECT_EQ(seat.snapshot()["bundle"], newVersion);
      }
    }
    EXPECT_TRUE(seat.shutDown());
  }
}

namespace {

const json nothing = json::object();
json with(const char* member, const json& value) { return {{member, value}}; }
json apps(std::initializer_list<const char*> names) { return with("apps", json(names)); }

const std::string dittoFails = fail("ditto", 1);
const std::string notSigned = "The downloaded update is not signed by Tessbrook ";
const std::string notAFolder = "The app in the update image is not a folder of its own";
const std::string notHTTPS =
    "The resource could not be loaded because the App Transport Security policy requires the use of a "
    "secure connection\\.";

const Failure failures[] = {
    {"WorkingDirectory", nothing, fail("create_directories", 13),
     "filesystem error: cannot create directories: Permission denied \\[.*/mnt\\]"},
    {"MountPoint", nothing, fail("create_directories", 28, 2),
     "filesystem error: cannot create directories: No space left on device \\[.*/mnt\\]"},
    {"Download", with("error", "The network connection was lost."), "", "The network connection was lost\\."},
    {"DownloadBreaksHalfWay", with("break-after", 1000), "", "The network connection was lost\\."},
    {"DownloadTimesOut", with("delay", 60), "", "The request timed out\\."},
    {"DownloadIsRedirectedToPlainHTTP", with("redirect", "http://elsewhere.example/x.dmg"), "", notHTTPS},
    {"DownloadIsRedirectedToPlainHTTPNearby", with("redirect", "http://nearby/x.dmg"),
     lines::image("http://nearby/x.dmg", {{"version", "1.4.0"}}), "The update is not offered over HTTPS"},
    {"DownloadIsRedirectedToAFile", with("redirect", "file:///Applications/x.dmg"), "", "unsupported URL"},
    {"DownloadFromAnImpostor", with("certificate", "unknown-authority"), "",
     "The certificate for this server is invalid.*"},
    {"MovingTheDownload", nothing, fail("rename", 28), "filesystem error: cannot rename: No space left on device .*"},
    {"NotFound", {{"status", 404}, {"body", "<html>Not found</html>"}}, "", "hdiutil attach exited with status 1"},
    {"NotAnImage", with("body", "nonsense"), "", "hdiutil attach exited with status 1"},
    {"LaunchingHdiutil", nothing, fail("posix_spawn", 2), "/usr/bin/hdiutil: No such file or directory"},
    {"SpawnFlags", nothing, fail("posix_spawnattr_setflags", 22), "posix_spawnattr_setflags: Invalid argument"},
    {"SpawnMask", nothing, fail("posix_spawnattr_setsigmask", 22), "posix_spawnattr_setsigmask: Invalid argument"},
    {"SpawnDefaults", nothing, fail("posix_spawnattr_setsigdefault", 22),
     "posix_spawnattr_setsigdefault: Invalid argument"},
    {"SpawnFiles", nothing, fail("posix_spawn_file_actions_addinherit_np", 12),
     "posix_spawn_file_actions_addinherit_np: Cannot allocate memory"},
    {"WaitingFails", nothing, fail("waitpid", 10), "waitpid: No child processes"},
    {"NoTemporaryDirectory", nothing, fail("confstr", 5), "There is no temporary directory"},
    {"TemporaryDirectoryTooLong", nothing, fail("confstr", 34), "There is no temporary directory"},
    {"NoOwnPlace", nothing, fail("CFBundleCopyBundleURL", 1), "The system does not say where Dalvane is"},
    {"NoOwnPlaceAfterTheDownload", nothing, fail("CFBundleCopyBundleURL", 1, 2),
     "The system does not say where Dalvane is"},
    {"AttachingIsKilled", nothing, fail("hdiutil attach", -9), "hdiutil attach exited with status 9"},
    {"Attaching", nothing, fail("hdiutil attach", 5), "hdiutil attach exited with status 5"},
    {"Listing", nothing, fail("directory_iterator", 5),
     "filesystem error: directory iterator cannot open directory: Input/output error \\[.*/mnt\\]"},
    {"NoApplication", apps({}), "", "The update image should hold one app, it holds 0"},
    {"TwoApplications", apps({"Dalvane.app", "Other.app"}), "", "The update image should hold one app, it holds 2"},
    {"ApplicationInAFolder", apps({"Folder/Dalvane.app"}), "", "The update image should hold one app, it holds 0"},
    {"OtherExtension", apps({"Dalvane.APP"}), "", "The update image should hold one app, it holds 0"},
    {"HiddenApplicationBesideIt", apps({"Dalvane.app", ".Other.app"}), "",
     "The update image should hold one app, it holds 2"},
    {"LinkBesideIt", with("links", {{"Other.app", "/Applications/Dalvane.app"}}), "",
     "The update image should hold one app, it holds 2"},
    {"FileBesideIt", with("files", json::array({"Other.app"})), "", "The update image should hold one app, it holds 2"},
    {"OnlyALink", {{"apps", json::array()}, {"links", {{"Dalvane.app", "/Applications/Dalvane.app"}}}}, "", notAFolder},
    {"OnlyALinkToNothing", {{"apps", json::array()}, {"links", {{"Dalvane.app", "/nowhere"}}}}, "", notAFolder},
    {"OnlyAFile", {{"apps", json::array()}, {"files", json::array({"Dalvane.app"})}}, "", notAFolder},
    {"OwnCode", nothing, fail("SecCodeCopySelf", -67063), "Reading this app's signature failed \\(-67063\\)"},
    {"OwnStaticCode", nothing, fail("SecCodeCopyStaticCode", -67068),
     "Reading this app's signature failed \\(-67068\\)"},
    {"OwnRequirement", nothing, fail("SecCodeCopyDesignatedRequirement", -67052),
     "Reading this app's signing requirement failed \\(-67052\\)"},
    {"NoOwnCode", nothing, fail("SecCodeCopySelf", 0), "Reading this app's signature failed \\(0\\)"},
    {"NoOwnStaticCode", nothing, fail("SecCodeCopyStaticCode", 0), "Reading this app's signature failed \\(0\\)"},
    {"NoOwnRequirement", nothing, fail("SecCodeCopyDesignatedRequirement", 0),
     "Reading this app's signing requirement failed \\(0\\)"},
    {"OwnRequirementAndUnsignedUpdate", with("signer", nullptr), fail("SecCodeCopyDesignatedRequirement", -67052),
     "Reading this app's signing requirement failed \\(-67052\\)"},
    {"NotSignedItself", nothing, bundle({{"version", "1.3.9"}, {"signer", nullptr}}),
     "Reading this app's signing requirement failed \\(-67062\\)"},
    {"UpdatesLocation", nothing, fail("CFURLCreateFromFileSystemRepresentation", 1),
     "Reading the update's signature failed"},
    {"UpdatesStaticCode", nothing, fail("SecStaticCodeCreateWithPath", -67028),
     "Reading the update's signature failed \\(-67028\\)"},
    {"NoUpdatesStaticCode", nothing, fail("SecStaticCodeCreateWithPath", 0),
     "Reading the update's signature failed \\(0\\)"},
    {"Validity", nothing, fail("SecStaticCodeCheckValidity", -67061), notSigned + "\\(-67061\\)"},
    {"AnotherSigner", with("signer", "Mallory"), "", notSigned + "\\(-67050\\)"},
    {"AForgedCertificate", with("forged", true), "", notSigned + "\\(-67050\\)"},
    {"AnotherBundleIdentifier", with("identifier", "example.dalvane.Other"), "", notSigned + "\\(-67050\\)"},
    {"Unsigned", with("signer", nullptr), "", notSigned + "\\(-67062\\)"},
    {"Tampered", with("tampered", true), "", notSigned + "\\(-67061\\)"},
    {"OtherArchitecture", with("tampered", "architecture"), "", notSigned + "\\(-67061\\)"},
    {"ChangedResource", with("tampered", "resource"), "", notSigned + "\\(-67054\\)"},
    {"AddedFile", with("tampered", "added"), "", notSigned + "\\(-67054\\)"},
    {"MissingFile", with("tampered", "missing"), "", notSigned + "\\(-67054\\)"},
    {"ChangedInfo", with("tampered", "info"), "", notSigned + "\\(-67030\\)"},
    {"FileBesideTheContents", with("tampered", "root"), "", notSigned + "\\(-67014\\)"},
    {"LinkOutOfTheBundle", with("tampered", "link"), "", notSigned + "\\(-67003\\)"},
    {"ChangedSignature", with("tampered", "signature"), "", notSigned + "\\(-67061\\)"},
    {"RemovingALeftOver", nothing, bundle({{"version", "1.3.9"}, {"backup", true}}) + fail("remove_all", 1),
     "filesystem error: cannot remove all: Operation not permitted \\[.*\\.bak\\]", Bundle::old, true},
    {"MovingTheOldAway", nothing, fail("rename", 13, 2), "filesystem error: cannot rename: Permission denied .*"},
    {"Copying", nothing, dittoFails, "ditto .*/mnt/Dalvane.app exited with status 1"},
    {"CopyingIsKilled", nothing, fail("ditto", -15), "ditto .*/mnt/Dalvane.app exited with status 15"},
    {"WaitingForTheCopyFails", nothing, fail("waitpid", 10, 2), "waitpid: No child processes"},
    {"CopyIsNotWhatWasChecked", nothing, fail("ditto", 0), notSigned + "\\(-67062\\)"},
    {"CopyHasNoLocation", nothing, fail("CFURLCreateFromFileSystemRepresentation", 1, 2),
     "Reading the update's signature failed"},
    {"CopyCannotBeChecked", nothing, fail("SecStaticCodeCreateWithPath", -67028, 2),
     "Reading the update's signature failed \\(-67028\\)"},
    {"LaunchingDitto", nothing, fail("posix_spawn", 8, 2), "/usr/bin/ditto: Exec format error"},
    {"CopyingAndRemovingTheRest", nothing, dittoFails + fail("remove_all", 13),
     "filesystem error: cannot remove all: Permission denied \\[/Applications/Dalvane.app\\]", Bundle::neither, true},
    {"CopyingAndMovingBack", nothing, dittoFails + fail("rename", 13, 3),
     "filesystem error: cannot rename: Permission denied .*", Bundle::neither, true},
    {"RemovingTheBackup", nothing, fail("remove_all", 13),
     "filesystem error: cannot remove all: Permission denied \\[.*\\.bak\\]", Bundle::update, true},
    {"Relaunching", nothing, fail("posix_spawn", 11, 4), "/bin/sh: Resource temporarily unavailable", Bundle::update},
    {"PreparingToLaunch", nothing, fail("posix_spawnattr_init", 12), "posix_spawnattr_init: Cannot allocate memory"},
    {"AttachedTwoAndDetachingFails", apps({"Dalvane.app", "Other.app"}), fail("hdiutil detach", 1),
     "The update image should hold one app, it holds 2", Bundle::old, false, true},
};

}  // namespace

INSTANTIATE_TEST_SUITE_P(Each, InstallerFailureTest, testing::ValuesIn(failures),
                         [](const auto& failure) { return std::string(failure.param.name); });
