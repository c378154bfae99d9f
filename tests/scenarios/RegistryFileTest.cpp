// The I/O Registry of a real Mac: what a user's ioreg wrote is walked as that Mac walks it.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/mac/Mac.h"
#include "simulator/mac/Scenario.h"
#include "tests/support/Lines.h"
#include "tests/support/Play.h"

namespace {

using namespace lines;
namespace fs = std::filesystem;
using Lights = std::vector<int>;
using Logs = std::vector<std::string>;

class RegistryFileTest : public testing::Test {
 protected:
  RegistryFileTest() {
    std::string pattern = (fs::temp_directory_path() / "registry-XXXXXX").string();
    folder_ = mkdtemp(pattern.data());
    std::ifstream file(REGISTRIES "/two-monitors.txt");
    std::ostringstream content;
    content << file.rdbuf();
    text_ = content.str();
  }
  ~RegistryFileTest() override { fs::remove_all(folder_); }

  // Changes what the Mac wrote, in its first place; it must be there.
  void replace(std::string_view what, std::string_view by) {
    const std::size_t at = text_.find(what);
    ASSERT_NE(at, std::string::npos) << what;
    text_.replace(at, what.size(), by);
  }

  std::string write(const std::string& name, const std::string& content) {
    std::ofstream(folder_ / name) << content;
    return (folder_ / name).string();
  }
  // The line for the text as it is now.
  std::string registryFile() { return line("registry", {{"file", write("ioreg.txt", text_)}}); }

  // The displays of that Mac (3 is the one that its text has last), its registry, and Dalvane.
  std::string desk(const nlohmann::json& right = {{"vendor", 7789}, {"product", 23305}, {"serial", 151061}}) {
    return display(1, {{"name", "Color LCD"},
                       {"builtin", true},
                       {"frame", {0, 0, 100, 100}},
                       {"vendor", 1552},
                       {"product", 41040},
                       {"serial", 4251086178}}) +
           displayAt(3, right) + displayAt(2, {{"vendor", 4268}, {"product", 41200}, {"serial", 7001}}) +
           registryFile() + launch + settle;
  }
  static std::string brighter(int display) { return pointAt(display) + key("brightnessUp") + settle; }

  // The reason why a scenario of that one line cannot be played.
  static std::string problem(const std::string& line) { return playScenario(line).error; }

  fs::path folder_;
  std::string text_;
};

TEST_F(RegistryFileTest, TheMonitorsAreFoundThroughIt) {
  WITH_SEEDS(seed, 4) {
    const Played played = playScenario(desk() + brighter(2) + brighter(2) + brighter(3), seed);
    EXPECT_EQ(played.status, 0);
    // Each has a queue of its own: whose answer comes first nobody knows.
    Logs logs = played.logs("VolumeController");
    std::ranges::sort(logs);
    EXPECT_EQ(logs, (Logs{"info AppDelegate: Media key tap installed",
                          "info BrightnessController: Display 2 brightness 50/100",
                          "info BrightnessController: Display 3 brightness 50/100"}));
    EXPECT_EQ(played.lights(2), (Lights{56, 63}));
    EXPECT_EQ(played.lights(3), (Lights{56}));
  }
}

TEST_F(RegistryFileTest, DisplaysMayComeAfterIt) {
  const Played played =
      playScenario(registryFile() + displayAt(2, {{"vendor", 4268}, {"product", 41200}, {"serial", 7001}}) + launch +
                   settle + brighter(2));
  EXPECT_EQ(played.lights(2), (Lights{56}));
}

TEST_F(RegistryFileTest, ThatItHasAMonitorDoesNotConnectIt) {
  const Played played = playScenario(desk() + displayGone(3) + settle + brighter(2) + brighter(3));
  EXPECT_EQ(played.lights(2), (Lights{56}));
  EXPECT_EQ(played.lights(3), Lights());
  EXPECT_EQ(played.status, 0);
}

TEST_F(RegistryFileTest, TwinsAreReachedInTheirOrderAndNotControlled) {
  replace("\"SerialNumber\"=151061", "\"SerialNumber\"=7001");
  replace("\"LegacyManufacturerID\"=7789,\"ProductID\"=23305", "\"LegacyManufacturerID\"=4268,\"ProductID\"=41200");
  const Played played = playScenario(desk({{"vendor", 4268}, {"product", 41200}, {"serial", 7001}}) + brighter(2));
  const auto services = played.calls("IOAVServiceCreateWithService");
  ASSERT_EQ(services.size(), 2U);
  EXPECT_EQ(services[0]["args"]["display"], 3);
  EXPECT_EQ(services[1]["args"]["display"], 2);
  const auto logs = played.logs("AppDelegate");
  for (const char* display : {"2", "3"}) {
    const std::string text =
        std::string("error BrightnessController: Display ") + display + " has 2 matching DDC services, skipping it";
    EXPECT_EQ(std::ranges::count(logs, text), 1) << text;
  }
  EXPECT_EQ(played.lights(2), Lights());
}

TEST_F(RegistryFileTest, AServiceAtTheWrongPlaceIsNoMonitors) {
  replace("\"Location\" = \"External\"", "\"Location\" = \"Embedded\"");
  const Played played = playScenario(desk() + brighter(2) + brighter(3));
  EXPECT_EQ(played.lights(2), Lights());
  EXPECT_EQ(played.lights(3), (Lights{56}));
}

TEST_F(RegistryFileTest, OfAPropertyThatIsNoneOrDataNothingIsMade) {
  replace("\"Location\" = \"External\"", "\"Location\" = <\"External\">");
  replace("\"LegacyManufacturerID\"=7789", "\"LegacyManufacturerID\"=");
  const Played played = playScenario(desk() + brighter(2) + brighter(3));
  EXPECT_EQ(played.lights(2), Lights());
  EXPECT_EQ(played.lights(3), Lights());
  EXPECT_EQ(played.status, 0);
}

// A text that ends too early holds the monitors that it reaches to.
TEST_F(RegistryFileTest, WhatIsCutOffIsWalkedAsFarAsItGoes) {
  const std::string whole = text_;
  const std::size_t firstService = whole.find("\"External\"");
  const std::size_t secondService = whole.find("\"External\"", firstService + 1);
  for (std::size_t length = 1000; length < whole.size(); length += 2001) {
    text_ = whole.substr(0, length);
    const Played played = playScenario(desk() + brighter(2) + brighter(3));
    EXPECT_EQ(played.status, 0) << length;
    EXPECT_EQ(played.lights(2).empty(), length < firstService + 10) << length;
    EXPECT_EQ(played.lights(3).empty(), length < secondService + 10) << length;
  }
}

TEST_F(RegistryFileTest, WhatIsNoRegistryIsAMistakeOfTheLine) {
  EXPECT_EQ(problem(line("registry", {{"file", (folder_ / "absent.txt").string()}})),
            "test:1: \"" + (folder_ / "absent.txt").string() + "\" cannot be read");
  EXPECT_EQ(problem(line("registry", {{"file", folder_.string()}})),
            "test:1: \"" + folder_.string() + "\" cannot be read");
  EXPECT_EQ(problem(line("registry", {{"file", "/dev/zero"}})), "test:1: \"/dev/zero\" cannot be read");
  for (const char* content : {"", "nonsense\n", "ioreg: error: can't obtain root\n"}) {
    const std::string path = write("nonsense.txt", content);
    EXPECT_EQ(problem(line("registry", {{"file", path}})),
              "test:1: \"" + path + "\" is not what \"ioreg -l -w0\" writes");
  }
  EXPECT_EQ(problem(line("registry", {{"file", 7}})), "test:1: member \"file\" must be a text");
  EXPECT_EQ(problem(line("registry", {{"file", write("ioreg.txt", text_)}, {"entries", nlohmann::json::array()}})),
            "test:1: unknown member \"entries\"");
  EXPECT_EQ(problem(line("registry")), "test:1: missing member \"entries\"");
}

TEST_F(RegistryFileTest, AlsoInTheMiddleOfAWalk) {
  const Played played =
      playScenario(desk() + during("IOIteratorNext", registryFile(), 3) + wake + settle + brighter(2));
  EXPECT_EQ(played.lights(2), (Lights{56}));
}

// The file lies beside the scenario, wherever that is played from.
TEST_F(RegistryFileTest, ItsPathBeginsWhereTheScenarioIs) {
  fs::create_directories(folder_ / "report");
  write("report/ioreg.txt", text_);
  const std::string named = line("registry", {{"file", "ioreg.txt"}});
  const std::string scenario = write("report/scenario", named + during("IOIteratorNext", named));
  simulator::Mac mac(
      {.main = [] { return 0; }, .name = "None", .identifier = "none", .version = "1", .publisher = "", .feedURL = ""},
      {});
  simulator::Scenario played(mac);
  EXPECT_NO_THROW(played.addFile(scenario));
  const std::string other = write("other", named);
  try {
    played.addFile(other);
    ADD_FAILURE() << "a file was found";
  } catch (const simulator::ScenarioError& error) {
    EXPECT_EQ(error.what(), other + ":1: \"" + (folder_ / "ioreg.txt").string() + "\" cannot be read");
  }
  EXPECT_THROW(played.addFile(folder_), simulator::ScenarioError);
  // A line that is in no file begins in the working directory.
  EXPECT_THROW(played.perform(named), simulator::ScenarioError);
  const fs::path before = fs::current_path();
  fs::current_path(folder_ / "report");
  EXPECT_NO_THROW(played.perform(named));
  fs::current_path(before);
}

}  // namespace
