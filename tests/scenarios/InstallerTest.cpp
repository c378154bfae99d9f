// Installing an update: that it ends in the new version, or, whatever goes wrong, in the old one.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <regex>
#include <string>
#include <vector>

#include "desk/Desk.h"
#include "tests/support/Seat.h"

namespace {

using nlohmann::json;

constexpr const char* install = R"(
{"do":"answer","button":"Install and Relaunch"}
{"do":"click","item":"Update to 1.4.0…"}
{"do":"settle"}
)";

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
    EXPECT_EQ(alerts[0]["buttons"], json::parse(R"(["Install and Relaunch","Later"])"));

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
    EXPECT_EQ(state["bundle"], json::parse(R"({"version":"1.4.0","backup":false})"));
    EXPECT_EQ(state["volumes"], json::array());
    EXPECT_EQ(state["temporary"], json::array());
    EXPECT_TRUE(errorsIn(records).empty());

    // What runs now knows itself as 1.4.0, and finds nothing newer.
    seat.play(R"({"do":"advance","seconds":10}
{"do":"settle"}
{"do":"click","item":"Check for Updates…"}
{"do":"settle"})");
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
  seat.play(R"({"do":"launch"}
{"do":"settle"}
{"do":"click","item":"Check for Updates…"}
{"do":"settle"})");
  EXPECT_EQ(seat.snapshot()["bundle"], json::parse(R"({"version":"1.4.0","backup":false})"));
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
  EXPECT_EQ(seat.snapshot()["bundle"], json::parse(R"({"version":"1.4.0","backup":false})"));
  EXPECT_EQ(seat.snapshot()["running"], true);
  const auto opened = recordsOf(seat.takeRecords(), "open");
  ASSERT_EQ(opened.size(), 1U);
  EXPECT_EQ(opened[0]["path"], "/Applications/" + program.name + ".app");
  EXPECT_FALSE(std::filesystem::exists("pwned"));
  EXPECT_TRUE(seat.shutDown());
}

TEST(Installer, TheHostsTemporaryDirectoryMayHaveAnyName) {
  namespace fs = std::filesystem;
  const fs::path folder = fs::path(testing::TempDir()) / R"(a b'c"$d)";
  fs::create_directories(folder / "inner");
  const char* const before = std::getenv("TMPDIR");
  const std::string restored = before ? before : "";
  for (const fs::path& name : {folder, folder / "", folder / "inner/../inner", fs::relative(folder)}) {
    setenv("TMPDIR", name.c_str(), 1);
    Seat seat;
    seat.publishUpdate();
    seat.launchAndCheck();
    seat.play(install);
    EXPECT_EQ(seat.snapshot()["bundle"], json::parse(R"({"version":"1.4.0","backup":false})")) << name;
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
    seat.publishUpdate(same ? R"(,"signer":"Contributor")" : "");
    seat.play(R"({"do":"bundle","version":"1.3.9","signer":"Contributor"})");
    seat.launchAndCheck();
    seat.play(install);
    EXPECT_EQ(seat.snapshot()["bundle"]["version"], same ? "1.4.0" : "1.3.9");
    EXPECT_EQ(errorsIn(seat.takeRecords()).size(), same ? 0U : 1U);
  }
}

namespace {

enum class Bundle { old, update, neither };

struct Failure {
  const char* name;
  std::string image;    // further members of the image line
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
    seat.play(R"({"do":"advance","seconds":61})");  // what a download waits at most
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
    const bool attached =
        !callsOf(records, "posix_spawn").empty() && callsOf(records, "posix_spawn")[0]["status"] == 0 &&
        callsOf(records, "posix_spawn")[0]["args"]["exit"] == 0 && failure.name != std::string("WaitingFails");
    EXPECT_EQ(std::ranges::count(programs, "hdiutil detach"), attached ? 1 : 0);
    // What was not started has no exit status.
    for (const json& spawn : callsOf(records, "posix_spawn")) {
      ASSERT_TRUE(spawn["args"].contains("exit"));
      EXPECT_EQ(spawn["args"]["exit"].is_null(), spawn["status"] != 0);
    }

    // Nothing of it stands in the way of the next attempt.
    if (failure.bundle != Bundle::neither && !failure.leftOver && failure.image.empty()) {
      const std::string running = seat.snapshot()["bundle"]["version"];
      if (running == "1.3.9" && failure.before.find("\"bundle\"") == std::string::npos) {
        seat.play(R"({"do":"answer","button":"Install and Relaunch"}
{"do":"click","item":"Check for Updates…"}
{"do":"settle"})");
        EXPECT_EQ(seat.snapshot()["bundle"], json::parse(R"({"version":"1.4.0","backup":false})"));
      }
    }
    EXPECT_TRUE(seat.shutDown());
  }
}

namespace {

std::string fail(const std::string& call, int status, int nth = 1) {
  return R"({"do":"fail","call":")" + call + R"(","status":)" + std::to_string(status) + R"(,"nth":)" +
         std::to_string(nth) + "}\n";
}

const std::string dittoFails = fail("ditto", 1);
const std::string unsignedItself = R"({"do":"bundle","version":"1.3.9","signer":null})";
const std::string withLeftOver = R"({"do":"bundle","version":"1.3.9","backup":true})";
const std::string notSigned = "The downloaded update is not signed by Tessbrook ";

const Failure failures[] = {
    {"WorkingDirectory", "", fail("create_directories", 13),
     "filesystem error: cannot create directories: Permission denied \\[.*/mnt\\]"},
    {"Download", R"(,"error":"The network connection was lost.")", "", "The network connection was lost\\."},
    {"DownloadBreaksHalfWay", R"(,"break-after":1000)", "", "The network connection was lost\\."},
    {"DownloadTimesOut", R"(,"delay":60)", "", "The request timed out\\."},
    {"DownloadIsRedirectedToPlainHTTP", R"(,"redirect":"http://elsewhere.example/x.dmg")", "",
     "The resource could not be loaded because the App Transport Security policy requires the use of a secure "
     "connection\\."},
    {"DownloadFromAnImpostor", R"(,"certificate":"unknown-authority")", "",
     "The certificate for this server is invalid.*"},
    {"MovingTheDownload", "", fail("rename", 28), "filesystem error: cannot rename: No space left on device .*"},
    {"NotFound", R"(,"status":404,"body":"<html>Not found</html>")", "", "hdiutil attach exited with status 1"},
    {"NotAnImage", R"(,"body":"nonsense")", "", "hdiutil attach exited with status 1"},
    {"LaunchingHdiutil", "", fail("posix_spawn", 2), "/usr/bin/hdiutil: No such file or directory"},
    {"WaitingFails", "", fail("waitpid", 10), "waitpid: No child processes", Bundle::old, false, true},
    {"Attaching", "", fail("hdiutil attach", 5), "hdiutil attach exited with status 5"},
    {"Listing", "", fail("directory_iterator", 5),
     "filesystem error: directory iterator cannot open directory: Input/output error \\[.*/mnt\\]"},
    {"NoApplication", R"(,"apps":[])", "", "The update image should hold one app, it holds 0"},
    {"TwoApplications", R"(,"apps":["Dalvane.app","Other.app"])", "",
     "The update image should hold one app, it holds 2"},
    {"ApplicationInAFolder", R"(,"apps":["Folder/Dalvane.app"])", "",
     "The update image should hold one app, it holds 0"},
    {"OtherExtension", R"(,"apps":["Dalvane.APP"])", "", "The update image should hold one app, it holds 0"},
    {"OwnCode", "", fail("SecCodeCopySelf", -67063), "Reading this app's signature failed \\(-67063\\)"},
    {"OwnStaticCode", "", fail("SecCodeCopyStaticCode", -67068), "Reading this app's signature failed \\(-67068\\)"},
    {"OwnRequirement", "", fail("SecCodeCopyDesignatedRequirement", -67052),
     "Reading this app's signing requirement failed \\(-67052\\)"},
    {"NotSignedItself", "", unsignedItself, "Reading this app's signing requirement failed \\(-67062\\)"},
    {"UpdatesStaticCode", "", fail("SecStaticCodeCreateWithPath", -67028),
     "Reading the update's signature failed \\(-67028\\)"},
    {"Validity", "", fail("SecStaticCodeCheckValidity", -67061), notSigned + "\\(-67061\\)"},
    {"AnotherSigner", R"(,"signer":"Mallory")", "", notSigned + "\\(-67050\\)"},
    {"AForgedCertificate", R"(,"forged":true)", "", notSigned + "\\(-67050\\)"},
    {"AnotherBundleIdentifier", R"(,"identifier":"example.dalvane.Other")", "", notSigned + "\\(-67050\\)"},
    {"Unsigned", R"(,"signer":null)", "", notSigned + "\\(-67062\\)"},
    {"Tampered", R"(,"tampered":true)", "", notSigned + "\\(-67061\\)"},
    {"ChangedResource", R"(,"tampered":"resource")", "", notSigned + "\\(-67054\\)"},
    {"AddedFile", R"(,"tampered":"added")", "", notSigned + "\\(-67054\\)"},
    {"MissingFile", R"(,"tampered":"missing")", "", notSigned + "\\(-67054\\)"},
    {"ChangedInfo", R"(,"tampered":"info")", "", notSigned + "\\(-67030\\)"},
    {"FileBesideTheContents", R"(,"tampered":"root")", "", notSigned + "\\(-67014\\)"},
    {"LinkOutOfTheBundle", R"(,"tampered":"link")", "", notSigned + "\\(-67003\\)"},
    {"ChangedSignature", R"(,"tampered":"signature")", "", notSigned + "\\(-67061\\)"},
    {"RemovingALeftOver", "", withLeftOver + "\n" + fail("remove_all", 1),
     "filesystem error: cannot remove all: Operation not permitted \\[.*\\.bak\\]", Bundle::old, true},
    {"MovingTheOldAway", "", fail("rename", 13, 2), "filesystem error: cannot rename: Permission denied .*"},
    {"Copying", "", dittoFails, "ditto .*/mnt/Dalvane.app exited with status 1"},
    {"LaunchingDitto", "", fail("posix_spawn", 8, 2), "/usr/bin/ditto: Exec format error"},
    {"CopyingAndRemovingTheRest", "", dittoFails + fail("remove_all", 13),
     "filesystem error: cannot remove all: Permission denied \\[/Applications/Dalvane.app\\]", Bundle::neither, true},
    {"CopyingAndMovingBack", "", dittoFails + fail("rename", 13, 3),
     "filesystem error: cannot rename: Permission denied .*", Bundle::neither, true},
    {"RemovingTheBackup", "", fail("remove_all", 13),
     "filesystem error: cannot remove all: Permission denied \\[.*\\.bak\\]", Bundle::update, true},
    {"Relaunching", "", fail("posix_spawn", 11, 4), "/bin/sh: Resource temporarily unavailable", Bundle::update},
    {"AttachedTwoAndDetachingFails", R"(,"apps":["Dalvane.app","Other.app"])", fail("hdiutil detach", 1),
     "The update image should hold one app, it holds 2", Bundle::old, false, true},
};

}  // namespace

INSTANTIATE_TEST_SUITE_P(Each, InstallerFailureTest, testing::ValuesIn(failures),
                         [](const auto& failure) { return std::string(failure.param.name); });
