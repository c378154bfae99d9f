// Brightness keys and monitors, as a person and the wire see them.
#include <gtest/gtest.h>

#include "tests/support/Play.h"

using Lights = std::vector<int>;
using Swallowed = std::vector<bool>;
using Logs = std::vector<std::string>;
using testing::Test;

namespace {

const std::string press = R"({"do":"key","key":"brightnessUp"})"
                          "\n";
const std::string settle = R"({"do":"settle"})"
                           "\n";

std::string monitorAt(int current, int maximum) {
  return R"({"do":"display","id":2,"name":"Left","frame":[0,0,2560,1440],"vendor":1,"product":2,"serial":3,)"
         R"("monitor":{"current":)" +
         std::to_string(current) + R"(,"maximum":)" + std::to_string(maximum) + "}}\n" +
         R"({"do":"pointer","at":[100,100]})"
         "\n"
         R"({"do":"launch"})"
         "\n"
         R"({"do":"settle"})"
         "\n";
}

bool logged(const Played& played, const std::string& line) {
  const auto logs = played.logs("VolumeController");
  return std::ranges::find(logs, line) != logs.end();
}

// The pop-ups, as image, display, filled and total.
std::vector<std::array<int, 4>> popUps(const Played& played) {
  std::vector<std::array<int, 4>> shown;
  for (const auto& call : played.calls("OSDManager.showImage")) {
    const auto& args = call["args"];
    EXPECT_EQ(args["priority"], 500);
    EXPECT_EQ(args["fade"], 1000);
    EXPECT_EQ(args["locked"], false);
    shown.push_back({args["image"], args["display"], args["filled"], args["total"]});
  }
  return shown;
}

using PopUps = std::vector<std::array<int, 4>>;

}  // namespace

TEST(Brightness, KeyRaisesTheMonitorUnderThePointer) {
  WITH_SEEDS(seed, 20) {
    const Played played = playScenario(launched + press + settle, seed);
    EXPECT_EQ(played.status, 0);
    EXPECT_EQ(played.logs("VolumeController"), (Logs{"info AppDelegate: Media key tap installed",
                                                     "info BrightnessController: Display 2 brightness 50/100"}));
    EXPECT_EQ(played.writes(2),
              (Logs{"0.01 82 01 10 fd", "0.02 82 01 10 fd", "0.08 84 03 10 00 38 90", "0.09 84 03 10 00 38 90"}));
    EXPECT_EQ(played.calls("IOAVServiceReadI2C").size(), 1U);
    EXPECT_EQ(played.swallowed(), (Swallowed{true, true}));
    EXPECT_EQ(played.lights(2), (Lights{56}));
    EXPECT_EQ(popUps(played), (PopUps{{1, 2, 9, 16}}));
    EXPECT_EQ(played.of("exit").size(), 1U);
    EXPECT_EQ(played.of("leak").size(), 0U);
  }
}

TEST(Brightness, SameSeedGivesTheSameBytes) {
  const std::string scenario = launched + press + press + R"({"do":"wake"})" + "\n" + press + settle;
  WITH_SEEDS(seed, 5) { EXPECT_EQ(playScenario(scenario, seed).bytes, playScenario(scenario, seed).bytes); }
}

TEST(Brightness, KeyOnTheBuiltInPanelOrOffEveryScreenGoesOn) {
  for (const char* const at : {"[100,100]", "[-50,20]", "[2000,1441]"}) {
    const Played played = playScenario(launched + R"({"do":"pointer","at":)" + at + "}\n" + press + settle);
    EXPECT_EQ(played.swallowed(), (Swallowed{false, false})) << at;
    EXPECT_TRUE(popUps(played).empty());
    EXPECT_TRUE(played.lights(2).empty());
  }
}

TEST(Brightness, PointerOnASharedEdgeBelongsToOneScreen) {
  // The screens meet at x = 1512. Left edges belong to a screen, right ones do not; of the others the top one does.
  const auto swallowedAt = [](const char* at) -> bool {
    return playScenario(launched + R"({"do":"pointer","at":)" + at + "}\n" + press + settle).swallowed()[0];
  };
  EXPECT_FALSE(swallowedAt("[1511.5,500]"));
  EXPECT_TRUE(swallowedAt("[1512,500]"));
  EXPECT_TRUE(swallowedAt("[2000,1440]"));
  EXPECT_FALSE(swallowedAt("[2000,0]"));
  EXPECT_TRUE(swallowedAt("[2000,0.5]"));
  EXPECT_FALSE(swallowedAt("[4072,500]"));
}

TEST(Brightness, AtFullScaleIsWrittenAgain) {
  const Played played = playScenario(monitorAt(100, 100) + press + settle);
  EXPECT_EQ(played.writes(2).back(), "0.09 84 03 10 00 64 cc");
  EXPECT_EQ(popUps(played), (PopUps{{1, 2, 16, 16}}));
  EXPECT_EQ(played.swallowed(), (Swallowed{true, true}));
}

TEST(Brightness, DownRoundsToTheNearestRawValue) {
  const Played played = playScenario(monitorAt(50, 100) + R"({"do":"key","key":"brightnessDown"})" + "\n" + settle);
  EXPECT_EQ(played.lights(2), (Lights{44}));
  EXPECT_EQ(popUps(played), (PopUps{{1, 2, 7, 16}}));
}

TEST(Brightness, OfAMonitorAboveItsMaximumComesBackIntoTheScale) {
  const Played played = playScenario(monitorAt(120, 100) + R"({"do":"key","key":"brightnessDown"})" + "\n" + settle);
  EXPECT_TRUE(logged(played, "info BrightnessController: Display 2 brightness 120/100"));
  EXPECT_EQ(played.lights(2), (Lights{100}));
  EXPECT_EQ(popUps(played), (PopUps{{1, 2, 16, 16}}));
}

TEST(Brightness, OfAMonitorWithoutMaximumCannotBeSet) {
  const Played played = playScenario(monitorAt(0, 0) + press + settle);
  EXPECT_TRUE(logged(played, "error BrightnessController: Display 2 reported a maximum brightness of 0"));
  EXPECT_EQ(played.swallowed(), (Swallowed{false, false}));
}

TEST(Brightness, ReleaseIsSwallowedAndSendsNothing) {
  const Played played =
      playScenario(launched + R"({"do":"key","key":"brightnessUp","action":"release"})" + "\n" + settle);
  EXPECT_EQ(played.swallowed(), (Swallowed{true}));
  EXPECT_EQ(played.writes(2).size(), 2U);  // the read's requests
  EXPECT_TRUE(popUps(played).empty());
}

TEST(Brightness, TwinsAreRefused) {
  const std::string twins = R"(
{"do":"display","id":2,"name":"Left","frame":[0,0,100,100],"vendor":1,"product":2,"serial":0,"monitor":{"current":50,"maximum":100}}
{"do":"display","id":3,"name":"Right","frame":[100,0,100,100],"vendor":1,"product":2,"serial":0,"monitor":{"current":50,"maximum":100}}
{"do":"pointer","at":[50,50]}
{"do":"launch"}
{"do":"settle"}
)";
  const Played played = playScenario(twins + press + settle);
  EXPECT_TRUE(logged(played, "error BrightnessController: Display 2 has 2 matching DDC services, skipping it"));
  EXPECT_TRUE(logged(played, "error BrightnessController: Display 3 has 2 matching DDC services, skipping it"));
  EXPECT_EQ(played.swallowed(), (Swallowed{false, false}));
  EXPECT_EQ(played.status, 0);

  // Once one of them goes, the other is no longer ambiguous.
  const Played one = playScenario(twins + R"({"do":"display","id":3,"gone":true})" + "\n" + settle + press + settle);
  EXPECT_EQ(one.lights(2), (Lights{56}));
  EXPECT_EQ(one.status, 0);
}

TEST(Brightness, OfADisplayWithoutServiceIsLoggedOnce) {
  const Played played = playScenario(R"(
{"do":"display","id":5,"name":"Old","frame":[0,0,100,100],"vendor":1,"product":2,"serial":3}
{"do":"launch"}
{"do":"settle"}
)");
  EXPECT_EQ(played.logs("VolumeController"),
            (Logs{"info AppDelegate: Media key tap installed",
                  "error BrightnessController: Display 5 has 0 matching DDC services, skipping it"}));
}

TEST(Brightness, OfAServiceThatIsNotExternalIsNotControlled) {
  const Played played = playScenario(R"(
{"do":"display","id":5,"name":"Panel","frame":[0,0,100,100],"vendor":1,"product":2,"serial":3,"monitor":{"current":1,"maximum":2},"location":"Embedded"}
{"do":"launch"}
{"do":"settle"}
)");
  EXPECT_TRUE(logged(played, "error BrightnessController: Display 5 has 0 matching DDC services, skipping it"));
  EXPECT_TRUE(played.calls("IOAVServiceCreateWithService").empty());
}

TEST(Brightness, ReadIsTriedFiveTimes) {
  const Played played = playScenario(twoDisplays + R"(
{"do":"monitor","display":2,"fault":"no-answer"}
{"do":"launch"}
{"do":"settle"}
)" + press + settle);
  EXPECT_TRUE(logged(played,
                     "error BrightnessController: Reading brightness of display 2 failed: Reading VCP 0x10 "
                     "failed after 5 attempts"));
  EXPECT_EQ(played.writes(2).size(), 10U);
  const auto reads = played.calls("IOAVServiceReadI2C");
  ASSERT_EQ(reads.size(), 5U);
  EXPECT_EQ(reads[0]["t"], 0.07);
  EXPECT_EQ(reads[4]["t"], 0.43);
  EXPECT_EQ(played.of("log").back()["t"], 0.45);
  EXPECT_EQ(played.swallowed(), (Swallowed{false, false}));
  EXPECT_EQ(played.status, 0);
}

TEST(Brightness, ReadSucceedsAtTheFifthAttempt) {
  for (const char* const fault : {"no-answer", "bad-checksum"}) {
    const Played played = playScenario(twoDisplays + R"({"do":"monitor","display":2,"attempts":4,"fault":")" + fault +
                                       R"("}
{"do":"launch"}
{"do":"settle"}
)");
    EXPECT_TRUE(logged(played, "info BrightnessController: Display 2 brightness 50/100")) << fault;
    EXPECT_EQ(played.calls("IOAVServiceReadI2C").size(), 5U);
  }
}

TEST(Brightness, WriteIsTriedFiveTimesAndDropped) {
  for (const char* const fault : {"write-fails", "second-write-fails"}) {
    const Played played = playScenario(launched + R"({"do":"monitor","display":2,"fault":")" + fault + "\"}\n" + press +
                                       settle + R"({"do":"monitor","display":2,"fault":"none"})" + "\n" + settle);
    EXPECT_EQ(played.writes(2).size(), 2U + 10U) << fault;
    EXPECT_EQ(played.logs("VolumeController").back(), "error DDC: Writing VCP 0x10 = 56 failed after 5 attempts");
    EXPECT_EQ(played.logs("VolumeController").size(), 3U);
    EXPECT_EQ(played.of("log").back()["t"], 0.07 + 5 * 0.04);
    EXPECT_EQ(played.status, 0);
  }
}

TEST(Brightness, WriteGoesOnToTheNextValueAfterAFailure) {
  const Played played = playScenario(launched + R"({"do":"monitor","display":2,"fault":"write-fails","attempts":10})" +
                                     "\n" + press + R"({"do":"advance","seconds":0.1})" + "\n" + press + settle);
  EXPECT_TRUE(logged(played, "error DDC: Writing VCP 0x10 = 56 failed after 5 attempts"));
  EXPECT_EQ(played.lights(2), (Lights{63}));
}

TEST(Brightness, RetriedWriteArrives) {
  const Played played = playScenario(
      launched + R"({"do":"monitor","display":2,"fault":"second-write-fails","attempts":2})" + "\n" + press + settle);
  EXPECT_EQ(played.writes(2).size(), 2U + 6U);
  EXPECT_EQ(played.logs("VolumeController").size(), 2U);
  EXPECT_EQ(played.lights(2), (Lights{56}));
}

TEST(Brightness, HeldKeySendsAtMostOneStaleValueAfterTheLastPress) {
  // 30 presses a second for 10 s, up and down so that every press changes the level.
  std::string held = R"({"do":"key","key":"brightnessUp","action":"press"})"
                     "\n";
  for (int i = 1; i < 300; ++i) {
    held += R"({"do":"advance","seconds":0.033333333})"
            "\n";
    held += (i / 7) % 2 ? R"({"do":"key","key":"brightnessDown","action":"press","repeat":true})"
                        : R"({"do":"key","key":"brightnessUp","action":"press","repeat":true})";
    held += "\n";
  }
  WITH_SEEDS(seed, 5) {
    const Played played = playScenario(launched + held + settle, seed);
    double last = 0;
    for (const auto& input : played.of("input")) last = input["t"];
    std::vector<std::string> after;
    for (const auto& call : played.calls("IOAVServiceWriteI2C")) {
      if (call["t"] > last) after.push_back(call["args"]["bytes"]);
    }
    // Each value goes out twice.
    EXPECT_LE(after.size(), 4U);
    const int filled = popUps(played).back()[2];
    EXPECT_EQ(played.lights(2).back(), static_cast<int>(std::lround(filled * 6.25)));
    EXPECT_EQ(played.swallowed(), Swallowed(300, true));
    EXPECT_EQ(played.status, 0);
  }
}

TEST(Brightness, NewerValueIsSentAfterTheOneUnderWay) {
  const Played played =
      playScenario(launched + press + R"({"do":"advance","seconds":0.015})" + "\n" + press + press + settle);
  EXPECT_EQ(played.writes(2), (Logs{"0.01 82 01 10 fd", "0.02 82 01 10 fd", "0.08 84 03 10 00 38 90",
                                    "0.09 84 03 10 00 38 90", "0.1 84 03 10 00 45 ed", "0.11 84 03 10 00 45 ed"}));
}

TEST(Brightness, ValueEqualToTheOneUnderWayIsNotSentAgain) {
  const Played played =
      playScenario(monitorAt(100, 100) + press + R"({"do":"advance","seconds":0.015})" + "\n" + press + settle);
  EXPECT_EQ(played.writes(2).size(), 4U);
}

TEST(Brightness, EachMonitorHasAQueueOfItsOwn) {
  const Played played = playScenario(launched + R"(
{"do":"display","id":3,"name":"Right","frame":[4072,0,1920,1080],"vendor":4268,"product":41200,"serial":7002,"monitor":{"current":10,"maximum":80}}
{"do":"settle"}
{"do":"key","key":"brightnessUp"}
{"do":"pointer","at":[5000,500]}
{"do":"key","key":"brightnessDown"}
{"do":"settle"}
)");
  EXPECT_EQ(played.lights(2), (Lights{56}));
  EXPECT_EQ(played.lights(3), (Lights{5}));
  // Both drains run in the same 20 ms.
  EXPECT_EQ(played.writes(2).back().substr(0, 4), played.writes(3).back().substr(0, 4));
  EXPECT_EQ(popUps(played), (PopUps{{1, 2, 9, 16}, {1, 3, 1, 16}}));
}

TEST(Brightness, DisplayThatGoesWhileItIsReadLeavesNothing) {
  for (const char* const at : {"0", "0.005", "0.01", "0.015", "0.03", "0.07", "0.1"}) {
    WITH_SEEDS(seed, 10) {
      const Played played =
          playScenario(twoDisplays + R"({"do":"launch"})" + "\n" + R"({"do":"advance","seconds":)" + at + "}\n" +
                           R"({"do":"display","id":2,"gone":true})" + "\n" + settle + press + settle,
                       seed);
      EXPECT_EQ(played.status, 0) << at;
      EXPECT_EQ(played.swallowed(), (Swallowed{false, false})) << at;
    }
  }
}

TEST(Brightness, DisplayConnectedAgainIsReadAfresh) {
  const Played played = playScenario(launched + R"(
{"do":"display","id":2,"gone":true}
{"do":"advance","seconds":0.02}
{"do":"display","id":2,"name":"Left","frame":[1512,0,2560,1440],"vendor":4268,"product":41200,"serial":7001,"monitor":{"current":25,"maximum":100}}
{"do":"settle"}
)" + press + settle);
  EXPECT_TRUE(logged(played, "info BrightnessController: Display 2 brightness 25/100"));
  EXPECT_EQ(played.lights(2), (Lights{31}));
  EXPECT_EQ(played.status, 0);
}

TEST(Brightness, KeyBeforeTheFirstReadGoesOn) {
  const Played played = playScenario(twoDisplays + R"({"do":"launch"})" + "\n" + press + settle);
  EXPECT_EQ(played.swallowed(), (Swallowed{false, false}));
}

TEST(Brightness, WakeReadsAgainAndTheStepsAreUnknownMeanwhile) {
  const Played played = playScenario(launched + R"(
{"do":"monitor","display":2,"current":80}
{"do":"wake"}
{"do":"key","key":"brightnessUp"}
{"do":"settle"}
{"do":"key","key":"brightnessUp"}
{"do":"settle"}
)");
  EXPECT_EQ(played.swallowed(), (Swallowed{false, false, true, true}));
  EXPECT_EQ(played.lights(2), (Lights{81}));  // 80 of 100 is step 12
}

TEST(Brightness, WakesWhileAMonitorIsReadLeaveItControllable) {
  // Each wake begins a read on a channel of its own while those before are still on the wire.
  for (const int wakes : {1, 3}) {
    for (int milliseconds = 0; milliseconds <= 120; milliseconds += 5) {
      std::string scenario = twoDisplays + R"({"do":"launch"})" + "\n";
      for (int i = 0; i < wakes; ++i) {
        scenario +=
            R"({"do":"advance","seconds":)" + std::to_string(milliseconds * 0.001) + "}\n" + R"({"do":"wake"})" + "\n";
      }
      WITH_SEEDS(seed, 3) {
        const Played played = playScenario(scenario + settle + press + settle, seed);
        EXPECT_EQ(played.lights(2), (Lights{56})) << wakes << " wakes every " << milliseconds << " ms";
        EXPECT_EQ(played.status, 0);
      }
    }
  }
}

TEST(Brightness, MonitorsThatFailAtTheSameMomentAreAllLogged) {
  std::string scenario;
  std::string keys;
  for (int id = 2; id <= 5; ++id) {
    const std::string number = std::to_string(id);
    const std::string x = std::to_string(id * 100);
    scenario += R"({"do":"display","id":)" + number + R"(,"name":"D","frame":[)" + x +
                R"(,0,100,100],"vendor":1,"product":2,"serial":)" + number +
                R"(,"monitor":{"current":50,"maximum":100}})" + "\n";
    keys += R"({"do":"monitor","display":)" + number + R"(,"fault":"write-fails"})" + "\n" +
            R"({"do":"pointer","at":[)" + x + ",50]}\n" + press;
  }
  WITH_SEEDS(seed, 5) {
    const Played played = playScenario(scenario + R"({"do":"launch"})" + "\n" + settle + keys + settle, seed);
    const auto logs = played.logs();
    EXPECT_EQ(std::ranges::count(logs, "error DDC: Writing VCP 0x10 = 56 failed after 5 attempts"), 4);
    EXPECT_EQ(played.status, 0);
  }
}

TEST(Brightness, WakeInTheMiddleOfADrainLetsTheValueThrough) {
  for (const char* const at : {"0", "0.005", "0.01", "0.015", "0.02"}) {
    WITH_SEEDS(seed, 10) {
      const Played played = playScenario(launched + press + R"({"do":"advance","seconds":)" + at + "}\n" +
                                             R"({"do":"wake"})" + "\n" + settle + press + settle,
                                         seed);
      // The drain and the new channel's read share the wire; whichever value the read sees, the last press wins.
      EXPECT_EQ(played.status, 0);
      const int last = played.lights(2).back();
      EXPECT_EQ(last, static_cast<int>(std::lround(popUps(played).back()[2] * 6.25))) << at;
    }
  }
}

TEST(Brightness, WithoutAFunctionOfIOKitIsUnavailable) {
  for (const char* const symbol : {"IOAVServiceCreateWithService", "IOAVServiceWriteI2C", "IOAVServiceReadI2C"}) {
    const Played played =
        playScenario(std::string(R"({"do":"missing","symbol":")") + symbol + "\"}\n" + launched + press + settle);
    EXPECT_TRUE(logged(played, std::string("error BrightnessController: Brightness control unavailable: ") + symbol +
                                   " not found in IOKit"))
        << symbol;
    EXPECT_EQ(played.swallowed(), (Swallowed{false, false}));
    EXPECT_EQ(played.status, 0);
  }
}

TEST(Brightness, WithoutIOKitIsUnavailable) {
  const Played played = playScenario(R"({"do":"missing","library":"IOKit"})"
                                     "\n" +
                                     launched + press + R"({"do":"wake"})" + "\n" + settle);
  const auto logs = played.logs("VolumeController");
  EXPECT_EQ(logs.back().find("error BrightnessController: Brightness control unavailable: Loading IOKit: "
                             "/System/Library/Frameworks/IOKit.framework/IOKit: "),
            0U)
      << logs.back();
  EXPECT_EQ(played.status, 0);
}

TEST(Brightness, WithoutThePopUpLibraryWorksSilently) {
  for (const auto& [missing, message] : std::vector<std::pair<std::string, std::string>>{
           {R"({"do":"missing","library":"/System/Library/PrivateFrameworks/OSD.framework/OSD"})",
            "Loading OSD.framework: "},
           {R"({"do":"missing","symbol":"OSDManager"})", "OSDManager class not found"},
           {R"({"do":"fail","call":"OSDManager.sharedManager","status":1})",
            "OSDManager.sharedManager returned nil"}}) {
    const Played played = playScenario(missing + "\n" + launched + press + settle);
    EXPECT_EQ(played.logs("VolumeController")[0].find("error AppDelegate: Native pop-up unavailable: " + message), 0U)
        << played.logs("VolumeController")[0];
    EXPECT_TRUE(popUps(played).empty());
    EXPECT_EQ(played.lights(2), (Lights{56}));
    EXPECT_EQ(played.status, 0);
  }
}

TEST(Brightness, KeepsTheDisplaysWhenTheRegistryCannotBeWalked) {
  const Played played = playScenario(launched + R"(
{"do":"fail","call":"IORegistryEntryCreateIterator","status":-536870212}
{"do":"wake"}
{"do":"settle"}
)" + press + settle);
  EXPECT_EQ(played.logs("VolumeController").back(),
            "error BrightnessController: Iterating the I/O Registry failed (-536870212)");
  EXPECT_EQ(played.lights(2), (Lights{56}));
  EXPECT_EQ(played.status, 0);
}

TEST(Brightness, SkipsAServiceThatCannotBeMade) {
  const Played played = playScenario(R"({"do":"fail","call":"IOAVServiceCreateWithService","status":1})"
                                     "\n" +
                                     launched);
  EXPECT_EQ(played.logs("VolumeController"),
            (Logs{"info AppDelegate: Media key tap installed", "error DDC: IOAVServiceCreateWithService returned nil",
                  "error BrightnessController: Display 2 has 0 matching DDC services, skipping it"}));
}

TEST(Brightness, SurvivesEveryFailureOfDiscovery) {
  for (const char* const call : {"IORegistryGetRootEntry", "IORegistryEntryCreateIterator", "IOIteratorNext",
                                 "IORegistryEntryGetName", "IORegistryEntryCreateCFProperty", "CGGetOnlineDisplayList",
                                 "IOAVServiceCreateWithService", "dlopen", "dlsym", "objc_lookUpClass"}) {
    for (int nth = 1; nth <= 6; ++nth) {
      const Played played = playScenario(std::string(R"({"do":"fail","status":-1,"call":")") + call + R"(","nth":)" +
                                         std::to_string(nth) + "}\n" + launched + press + settle);
      EXPECT_EQ(played.status, 0) << call << " " << nth;
    }
  }
}

TEST(Brightness, UsesWhateverTheRegistryHolds) {
  const Played played = playScenario(twoDisplays + R"(
{"do":"registry","entries":[{"name":"AppleCLCD2","properties":{"DisplayAttributes":{"ProductAttributes":{"LegacyManufacturerID":4268,"ProductID":41200,"SerialNumber":7001}}}},{"name":"IODPDevice"},{"name":"DCPAVServiceProxy","properties":{"Location":"External"},"display":2}]}
{"do":"launch"}
{"do":"settle"}
)" + press + settle);
  EXPECT_EQ(played.lights(2), (Lights{56}));

  const Played two = playScenario(twoDisplays + R"(
{"do":"registry","entries":[{"name":"AppleCLCD2","properties":{"DisplayAttributes":{"ProductAttributes":{"LegacyManufacturerID":4268,"ProductID":41200,"SerialNumber":7001}}}},{"name":"DCPAVServiceProxy","properties":{"Location":"External"}},{"name":"DCPAVServiceProxy","properties":{"Location":"External"}}]}
{"do":"launch"}
{"do":"settle"}
)");
  EXPECT_TRUE(logged(two, "error BrightnessController: Display 2 has 2 matching DDC services, skipping it"));
}

TEST(Brightness, WithTheProgramsThreadsRunningFreely) {
  const Played played = playScenario(launched + press + press + R"({"do":"wake"})" + "\n" + press + settle + press +
                                         R"({"do":"display","id":2,"gone":true})" + "\n" + settle,
                                     1, simulator::Clock::live);
  EXPECT_EQ(played.status, 0);
}

TEST(Brightness, ServiceReachesTheMonitorOfItsDisplayAsItIsNow) {
  const std::string entries =
      R"({"do":"registry","entries":[{"name":"AppleCLCD2","properties":{"DisplayAttributes":{"ProductAttributes":{"LegacyManufacturerID":4268,"ProductID":41200,"SerialNumber":7001}}}},{"name":"DCPAVServiceProxy","properties":{"Location":"External"},"display":2}]}
)";
  // The registry may name a display that is not there, or not yet.
  const Played before = playScenario(entries + launched + press + settle);
  EXPECT_EQ(before.lights(2), (Lights{56}));
  const Played again =
      playScenario(launched + entries + R"({"do":"display","id":2,"gone":true})" + "\n" + settle +
                   twoDisplays.substr(twoDisplays.find(R"({"do":"display","id":2)")) + settle + press + settle);
  EXPECT_EQ(again.lights(2), (Lights{56}));
  EXPECT_EQ(again.status, 0);
}

TEST(Brightness, NothingIsLeftWhenAReleaseFails) {
  const Played played = playScenario(R"({"do":"fail","call":"IOObjectRelease","status":-1,"times":100})"
                                     "\n" +
                                     launched + press + settle);
  EXPECT_EQ(played.status, 0);
  EXPECT_EQ(played.lights(2), (Lights{56}));
}

TEST(Brightness, OnlyTheProgramsOwnLookUpsCountAsFailed) {
  // Three look-ups: the functions of IOKit. The class of the pop-up service is found by the runtime.
  const Played played = playScenario(R"({"do":"fail","call":"dlsym","status":1,"nth":3})"
                                     "\n" +
                                     launched);
  EXPECT_EQ(played.logs().back(),
            "error BrightnessController: Brightness control unavailable: IOAVServiceReadI2C not found in IOKit");
  const Played symbol = playScenario(R"({"do":"missing","symbol":"OBJC_CLASS_$_OSDManager"})"
                                     "\n" +
                                     launched);
  EXPECT_EQ(symbol.logs()[0], "error AppDelegate: Native pop-up unavailable: OSDManager class not found");
}

TEST(Brightness, OfOverlappingScreensTheOneWithTheMenuBarIsTheFirst) {
  const Played played = playScenario(R"(
{"do":"display","id":4294967295,"name":"Under","frame":[-100,-100,300,300],"vendor":1,"product":2,"serial":3,"monitor":{"current":10,"maximum":100}}
{"do":"display","id":2,"name":"Main","frame":[0,0,100,100],"vendor":1,"product":2,"serial":4,"monitor":{"current":50,"maximum":65535}}
{"do":"launch"}
{"do":"settle"}
{"do":"pointer","at":[50,50]}
{"do":"key","key":"brightnessUp"}
{"do":"pointer","at":[-50,50]}
{"do":"key","key":"brightnessUp"}
{"do":"settle"}
)");
  EXPECT_EQ(played.lights(2), (Lights{4096}));
  const auto popUp = played.calls("OSDManager.showImage").back();
  EXPECT_EQ(popUp["args"]["display"], 4294967295U);
  EXPECT_EQ(popUp["args"]["filled"], 2);
}
