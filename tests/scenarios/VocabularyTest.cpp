// Scenario lines that cannot be understood.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "tests/support/Lines.h"
#include "tests/support/Play.h"
#include "tests/support/Seat.h"

namespace fs = std::filesystem;
using namespace lines;
using nlohmann::json;

namespace {

// Why a line, the third of its file, is refused.
std::string errorOf(const std::string& refused) {
  const Played played = playScenario("// a comment\n\n" + refused + "\n");
  EXPECT_EQ(played.status, 2) << refused;
  EXPECT_EQ(played.error.find("test:3: "), 0U) << played.error;
  return played.error.substr(std::string("test:3: ").size());
}

// An image with members that are not as they should be.
std::string imageWith(const json& members) { return image("https://a.example/", members); }

// A display as it should be, with members that are not.
std::string displayWith(const json& members = json::object()) {
  json all = {{"id", 1}, {"name", "A"}, {"frame", {0, 0, 1, 1}}};
  all.update(members);
  return line("display", all);
}

}  // namespace

TEST(Vocabulary, RefusesWhatIsNotAnObject) {
  EXPECT_EQ(errorOf("launch").find("not JSON: "), 0U);
  EXPECT_EQ(errorOf(R"({"do":"launch")").find("not JSON: "), 0U);
  EXPECT_EQ(errorOf(R"(["launch"])"), "not a JSON object");
}

TEST(Vocabulary, RefusesWhatIsNestedWithoutEnd) {
  const auto nested = [](std::size_t depth) {
    return R"({"do":"preference","key":"a","value":)" + std::string(depth, '[') + std::string(depth, ']') + "}";
  };
  EXPECT_EQ(errorOf(nested(200000)), "nested too deeply");
  EXPECT_EQ(errorOf(nested(33)), "nested too deeply");
  EXPECT_EQ(playScenario(nested(32)).status, 0);
}

TEST(Vocabulary, RefusesAnUnknownDo) {
  EXPECT_EQ(errorOf(line("lanch")), R"(unknown "do": "lanch")");
  EXPECT_EQ(errorOf(R"({"key":"mute"})"), R"(missing member "do")");
  EXPECT_EQ(errorOf(R"({"do":7})"), R"(member "do" must be a text)");
}

TEST(Vocabulary, NamesTheMissingMember) {
  EXPECT_EQ(errorOf(line("key")), R"(missing member "key")");
  EXPECT_EQ(errorOf(line("display", {{"id", 1}})), R"(missing member "name")");
  EXPECT_EQ(errorOf(line("display", {{"id", 1}, {"name", "A"}})), R"(missing member "frame")");
  EXPECT_EQ(errorOf(displayWith({{"monitor", {{"current", 1}}}})), R"(missing member "monitor.maximum")");
  EXPECT_EQ(errorOf(line("pointer")), R"(missing member "at")");
  EXPECT_EQ(errorOf(line("accessibility")), R"(missing member "granted")");
  EXPECT_EQ(errorOf(line("advance")), R"(missing member "seconds")");
  EXPECT_EQ(errorOf(line("sleep")), R"(missing member "seconds")");
  EXPECT_EQ(errorOf(line("clock")), R"(missing member "by")");
  EXPECT_EQ(errorOf(line("event", {{"type", 14}})), R"(missing member "subtype")");
  EXPECT_EQ(errorOf(registry(json::array({{{"properties", json::object()}}}))), R"(missing member "entries[0].name")");
}

TEST(Vocabulary, NamesTheWrongType) {
  EXPECT_EQ(errorOf(displayWith({{"id", "1"}})), R"(member "id" must be an integer)");
  EXPECT_EQ(errorOf(displayWith({{"id", 1.5}})), R"(member "id" must be an integer)");
  EXPECT_EQ(errorOf(displayWith({{"id", -1}})), R"(member "id" must be in the range of its type)");
  EXPECT_EQ(errorOf(displayWith({{"frame", {0, 0, 1}}})), R"(member "frame" must be a list of four numbers)");
  EXPECT_EQ(errorOf(displayWith({{"monitor", 5}})), R"(member "monitor" must be an object)");
  EXPECT_EQ(errorOf(registry(json::array({{{"name", "A"}, {"properties", json::array({1})}}}))),
            R"(member "entries[0].properties" must be an object)");
  EXPECT_EQ(errorOf(line("pointer", {{"at", json::array({1, "2"})}})), R"(member "at" must be a list of two numbers)");
  EXPECT_EQ(errorOf(line("accessibility", {{"granted", 1}})), R"(member "granted" must be true or false)");
  EXPECT_EQ(errorOf(line("advance", {{"seconds", "1"}})), R"(member "seconds" must be a number)");
  EXPECT_EQ(errorOf(answer(1)), R"(member "button" must be a text)");
  EXPECT_EQ(errorOf(fail("dlopen", 1, 0)), R"(member "nth" must be 1 or more)");
}

TEST(Vocabulary, OnARoughMachineThreadsAreHeldBack) {
  const auto readAt = [](const std::string& temper, std::uint64_t seed) {
    return playScenario(twoDisplays + temper + lines::launch + lines::settle, seed).calls("IOAVServiceReadI2C")[0]["t"];
  };
  int late = 0;
  for (std::uint64_t seed = 1; seed <= 50; ++seed) {
    EXPECT_EQ(readAt(lines::line("temper", {{"threads", "smooth"}}), seed), 0.07);
    const double read = readAt(lines::line("temper", {{"threads", "rough"}}), seed);
    EXPECT_GE(read, 0.07);
    if (read > 0.07) ++late;
  }
  EXPECT_GT(late, 2);
}

TEST(Vocabulary, RefusesValuesThatDoNotExist) {
  EXPECT_EQ(errorOf(key("play")), R"(unknown key "play")");
  EXPECT_EQ(errorOf(key("mute", {{"action", "hold"}})), R"(unknown action "hold")");
  EXPECT_EQ(errorOf(monitor(2, {{"fault", "asleep"}})), R"(unknown fault "asleep")");
  EXPECT_EQ(errorOf(disableTap("me")), R"(unknown reason "me")");
  EXPECT_EQ(errorOf(fail("printf", 1)), R"(there is no call "printf" that can be made to fail)");
  // A sample is a 32-bit float, and a sum of many must be one.
  EXPECT_EQ(errorOf(play("a", 1, {{"level", -1e300}})), R"(member "level" must be within a million)");
  EXPECT_EQ(errorOf(advance(-1)), R"(member "seconds" must be from 0 to a billion)");
  EXPECT_EQ(errorOf(macSleeps(-1)), R"(member "seconds" must be from 0 to a billion)");
  EXPECT_EQ(errorOf(setClockForward(-2e9)), R"(member "by" must be within a billion seconds)");
}

TEST(Vocabulary, RefusesApplicationsThatNoImageCanHold) {
  const std::string tooLong(300, 'a');
  for (const std::string& name : {std::string(), std::string("/Dalvane.app"), std::string("../Dalvane.app"),
                                  std::string("."), std::string("Dalvane.app/"), std::string("Applications"),
                                  std::string("Applications/Dalvane.app"), std::string("a\0.app", 6), tooLong}) {
    EXPECT_EQ(errorOf(imageWith({{"apps", json::array({name})}})), R"(member "apps" must be a list of names)") << name;
  }
  const Played played = playScenario(imageWith({{"apps", {"A.app", "A.app/Contents/Info.plist"}}}));
  EXPECT_EQ(played.status, 2);
  EXPECT_EQ(played.error, "test:1: the applications of the image stand in each other's way");
}

TEST(Vocabulary, RefusesWhatCannotLieBesideTheApplications) {
  const std::string links = R"(member "links" must be an object of names and absolute paths)";
  EXPECT_EQ(errorOf(imageWith({{"links", json::array({"A.app"})}})), links);
  EXPECT_EQ(errorOf(imageWith({{"links", {{"A.app", 7}}}})), links);
  EXPECT_EQ(errorOf(imageWith({{"links", {{"A.app", "B.app"}}}})), links);
  EXPECT_EQ(errorOf(imageWith({{"links", {{"A/B.app", "/B.app"}}}})), links);
  EXPECT_EQ(errorOf(imageWith({{"links", {{"..", "/B.app"}}}})), links);
  const std::string files = R"(member "files" must be a list of names)";
  EXPECT_EQ(errorOf(imageWith({{"files", "A.app"}})), files);
  EXPECT_EQ(errorOf(imageWith({{"files", json::array({7})}})), files);
  EXPECT_EQ(errorOf(imageWith({{"files", json::array({"Applications"})}})), files);
  EXPECT_EQ(errorOf(imageWith({{"files", json::array({"A/B"})}})), files);
  const Played played = playScenario(imageWith({{"links", {{"Dalvane.app", "/B.app"}}}}));
  EXPECT_EQ(played.error, "test:1: the applications of the image stand in each other's way");
}

TEST(Vocabulary, RefusesBundlesThatCannotBeMade) {
  EXPECT_EQ(errorOf(bundle({{"tampered", "icon"}})), R"(member "tampered" must be true, false or what is changed)");
  EXPECT_EQ(errorOf(bundle({{"backup", "icon"}})), R"(member "backup" must be true, false or what is changed)");
  EXPECT_EQ(errorOf(bundle({{"place", "desk"}})),
            R"(member "place" must be "applications", "image" or "translocated")");
  EXPECT_EQ(errorOf(bundle({{"place", "image"}, {"backup", true}})),
            "a backup lies only where an installation was possible");
  EXPECT_EQ(errorOf(bundle({{"backup", 1}})), R"(member "backup" must be true or false)");
  const std::string noSignature = "what is not signed has no signature to be changed";
  EXPECT_EQ(errorOf(bundle({{"signer", nullptr}, {"tampered", "signature"}})), noSignature);
  EXPECT_EQ(errorOf(bundle({{"signer", nullptr}, {"backup", "signature"}})), noSignature);
  EXPECT_EQ(playScenario(bundle({{"signer", nullptr}, {"tampered", true}, {"backup", "info"}})).status, 0);
}

TEST(Vocabulary, RefusesRedirectsToWhatIsNoAddress) {
  EXPECT_EQ(errorOf(feed({{"redirect", "no address"}})), R"(member "redirect" must be a URL)");
  EXPECT_EQ(errorOf(feed({{"redirect", "a\r\nb"}})), R"(member "redirect" must be a URL)");
}

TEST(Vocabulary, RefusesATemperThatIsNone) {
  EXPECT_EQ(errorOf(temper(json::object())), R"(needs "threads" or "audio")");
  EXPECT_EQ(errorOf(temper({{"audio", "wild"}})), R"(member "audio" must be "smooth" or "rough")");
}

TEST(Vocabulary, RefusesPreferencesThatNoPropertyListHolds) {
  EXPECT_EQ(errorOf(preference("a", json::array({1, nullptr}))), R"(member "value" must not hold null)");
  EXPECT_EQ(errorOf(preference("a", {{"b", json::array({nullptr})}})), R"(member "value" must not hold null)");
  EXPECT_EQ(playScenario(preference("a", nullptr)).status, 0);  // removes it
}

TEST(Vocabulary, RefusesMembersItDoesNotKnow) {
  EXPECT_EQ(errorOf(line("launch", {{"seed", 1}})), R"(unknown member "seed")");
  EXPECT_EQ(errorOf(displayWith({{"monitor", {{"current", 1}, {"maximum", 2}, {"x", 3}}}})),
            R"(unknown member "monitor.x")");
}

TEST(Vocabulary, RefusesWhatMakesNoSenseWhereItStands) {
  const Played twice = playScenario(displayWith() + displayWith({{"serial", 2}}));
  EXPECT_EQ(twice.status, 2);
  EXPECT_EQ(twice.error, "test:2: display 1 is connected already");
  EXPECT_EQ(errorOf(displayGone(1)), "there is no display 1");
  EXPECT_EQ(errorOf(monitor(1, {{"current", 5}})), "display 1 has no monitor that can be reached");
  EXPECT_EQ(errorOf(missingLibrary("Nothing")), R"(there is no library "Nothing")");
}

TEST(Vocabulary, ADisplayThatIsThereCanBeDescribedAnew) {
  const json members = {{"vendor", 3}, {"monitor", {{"current", 50}, {"maximum", 100}}}};
  const auto with = [&](json more) {
    json all = members;
    all.update(more);
    return displayWith(all);
  };
  const Played moved = playScenario(displayWith({{"id", 7}, {"frame", {-9, 0, 9, 9}}}) + with(json::object()) +
                                    pointer(0.5, 0.5) + launch + settle + key("brightnessUp") + settle +
                                    with({{"frame", {20, 0, 9, 9}}, {"monitor", {{"current", 10}, {"maximum", 20}}}}) +
                                    settle + key("brightnessUp") + pointer(21, 1) + key("brightnessUp") + settle);
  EXPECT_EQ(moved.status, 0) << moved.error;
  // Where it was nobody is any more.
  EXPECT_EQ(moved.swallowed(), (std::vector<bool>{true, true, false, false, true, true}));
  EXPECT_EQ(moved.lights(1).back(), 11);
  const std::string there = "test:2: display 1 is connected already";
  for (const json& other :
       {json{{"name", "B"}}, json{{"vendor", 4}}, json{{"builtin", true}}, json{{"monitor", nullptr}},
        json{{"location", "Embedded"}}, json{{"product", 1}}, json{{"serial", 1}}}) {
    EXPECT_EQ(playScenario(with(json::object()) + with(other)).error, there) << other;
  }
  EXPECT_EQ(playScenario(displayWith() + displayWith({{"mirrors", 1}})).status, 0);
}

// Every library of the system has its names, and no text reaches anything else.
TEST(Vocabulary, RemovesLibrariesAlone) {
  const std::string place = "/System/Library/PrivateFrameworks/TCC.framework";
  for (const std::string& name :
       {std::string("TCC"), std::string("TCC.framework"), place, place + "/TCC", place + "/Versions/A/TCC"}) {
    const Played played = playScenario(missingLibrary(name) +
                                       output(10, {{"uid", "A"}, {"name", "A"}, {"default", true}}) + launch + settle);
    EXPECT_EQ(played.status, 0) << name << ": " << played.error;
    EXPECT_TRUE(played.calls("TCCAccessPreflight").empty()) << name;
  }
  const fs::path bystander = fs::path(testing::TempDir()) / ("dalvane-bystander-" + std::to_string(getpid()));
  std::ofstream(bystander) << "not the system's";
  std::string up = "/System";
  for (int i = 0; i < 20; ++i) up += "/..";
  for (const std::string& name :
       {up + bystander.string(), bystander.string(), std::string(), std::string("/"), std::string("/System/"),
        std::string("/System/Library"), place + "/Versions", place + "/TCC/", place + "2/TCC", std::string("TCC\0", 4),
        "/System/" + std::string(300, 'a')}) {
    EXPECT_EQ(playScenario(missingLibrary(name)).status, 2) << name;
  }
  EXPECT_TRUE(fs::remove(bystander));
}

TEST(Vocabulary, TakesAStatusAsItsHeaderWritesIt) {
  for (const std::int64_t status : {0xE00002C2LL, -536870206LL}) {
    const Played played = playScenario(twoDisplays + fail("IOAVServiceReadI2C", status) + lines::launch + settle);
    EXPECT_EQ(played.calls("IOAVServiceReadI2C")[0]["status"], -536870206) << status;
  }
  EXPECT_EQ(errorOf(fail("dlopen", 0x100000000)), R"(member "status" must be a number of 32 bits)");
  EXPECT_EQ(errorOf(fail("dlopen", -0x80000001LL)), R"(member "status" must be a number of 32 bits)");
}

// ---- Files ----

TEST(Vocabulary, EveryRecordIsAnObject) {
  const std::string mark = "\xEF\xBB\xBF";
  const Played marked = playScenario(mark + launch + mark + settle);  // two files in one
  EXPECT_EQ(marked.status, 0) << marked.error;
  EXPECT_EQ(marked.of("do")[1]["line"], json::parse(settle));
  EXPECT_EQ(errorOf(R"({"do":"launch"})" + std::string("\0", 1)), "not JSON: it holds a NUL");
  // What is quoted of the line can be written on any terminal.
  EXPECT_NE(errorOf("{\"do\":\"click\",\"item\":\"\xFF\"}").find("\uFFFD"), std::string::npos);
  const Played empty = playScenario("");
  EXPECT_EQ(empty.records[0]["what"], "machine");
}

TEST(Vocabulary, RefusesToSleepThroughRealTime) {
  const Played played = playScenario(macSleeps(1), 1, simulator::Clock::live);
  EXPECT_EQ(played.status, 2);
  EXPECT_EQ(played.error, "test:1: real time cannot be slept through");
}

TEST(Vocabulary, RefusesWhatCannotHappenInTheMiddleOfACall) {
  EXPECT_EQ(errorOf(during("IOIteratorNexd", wake)), R"(there is no call "IOIteratorNexd" that can be interrupted)");
  EXPECT_EQ(errorOf(line("during", {{"call", "IOIteratorNext"}})), R"(missing member "line")");
  EXPECT_EQ(errorOf(during("IOIteratorNext", line("nonsense"))), R"(unknown "do": "nonsense")");
  EXPECT_EQ(errorOf(during("IOIteratorNext", wake, 0)), R"(member "nth" must be 1 or more)");
  for (const std::string& waiting : {settle, advance(1), launch}) {
    EXPECT_EQ(errorOf(during("IOIteratorNext", waiting)), R"(member "line" must not let anything run)");
  }
}

// Nor does the program end of it: the trace goes on until everything ready has run.
TEST(Vocabulary, AMistakeInTheMiddleOfItIsNotTheProgramsOwn) {
  const Played played = playScenario(lines::launch + during("IOIteratorNext", displayGone(9)) + wake + settle + wake);
  EXPECT_EQ(played.status, 2);
  EXPECT_EQ(played.error, "test:3: during IOIteratorNext: there is no display 9");
  EXPECT_TRUE(played.of("fatal").empty());

  const std::string denied = output(10, {{"uid", "A"}, {"name", "A"}, {"default", true}}) +
                             capture({{"permission", "denied"}}) + answer("Later") + lines::launch;
  const Played alerted = playScenario(denied + settle);
  EXPECT_EQ(alerted.status, 2);
  EXPECT_EQ(alerted.error, R"(test:4: the alert "Dalvane needs System Audio Recording" has no button "Later")");
  EXPECT_EQ(alerted.of("alert").at(0)["answer"], "OK");
  EXPECT_TRUE(alerted.of("fatal").empty());
}

TEST(Vocabulary, ReadsEveryLineBeforeItBegins) {
  const Played played = playScenario(launched + line("nonsense"));
  EXPECT_EQ(played.status, 2);
  EXPECT_TRUE(played.records.empty());
}

TEST(Vocabulary, AFailureCanBeTakenBack) {
  const std::string failing = fail("IOAVServiceReadI2C", -1, 2, 99);
  const std::string takenBack = line("fail", {{"call", "IOAVServiceReadI2C"}, {"status", nullptr}});
  const auto errorsOf = [](const std::string& scenario) {
    std::size_t errors = 0;
    for (const json& record : playScenario(scenario).of("log")) errors += record["level"] == "error" ? 1 : 0;
    return errors;
  };
  const std::size_t usual = errorsOf(launched + wake + settle);
  EXPECT_EQ(errorsOf(failing + launched + wake + settle), usual + 1);
  EXPECT_EQ(errorsOf(failing + launched + takenBack + wake + settle), usual);
  EXPECT_EQ(playScenario(line("fail", {{"call", "nothing"}, {"status", nullptr}})).error,
            "test:1: there is no call \"nothing\" that can be made to fail");
}

TEST(Vocabulary, AnOpenAlertCanBeDismissed) {
  const std::string dismiss = line("answer", {{"dismiss", true}});
  const std::string check = click("Check for Updates…") + settle;
  const json newer = {
      {"version", "9.0"}, {"date", ""}, {"dmg_url", "https://a.example/x"}, {"size_bytes", 1}, {"notes", ""}};
  const std::string offered = feed({{"releases", json::array({newer})}}) + launch + settle;
  const Played played = playScenario(offered + leaveNextAlertOpen + check + dismiss + settle);
  ASSERT_EQ(played.of("answer").size(), 1U);
  EXPECT_EQ(played.of("answer")[0]["button"], "Later");
  // Without an alert it does nothing, now or later.
  const Played without = playScenario(launch + settle + dismiss + check);
  ASSERT_EQ(without.of("alert").size(), 1U);
  EXPECT_EQ(without.of("alert")[0]["answer"], "OK");
}
