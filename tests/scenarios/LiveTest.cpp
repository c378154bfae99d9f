// The program with its threads running freely, in real time: what the thread sanitizer watches.
#include <gtest/gtest.h>

#include "tests/support/Play.h"

namespace {

std::string displayAt(int id) {
  const std::string number = std::to_string(id);
  return R"({"do":"display","id":)" + number + R"(,"name":"D","frame":[)" + std::to_string(id * 100) +
         R"(,0,100,100],"vendor":1,"product":2,"serial":)" + number + R"(,"monitor":{"current":50,"maximum":100}})" +
         "\n";
}

// Presses on each of the displays 2 to 4, several times, while the drains before are under way.
std::string keys(int rounds) {
  std::string lines;
  for (int i = 0; i < rounds; ++i) {
    for (int id = 2; id <= 4; ++id) {
      lines += R"({"do":"pointer","at":[)" + std::to_string(id * 100 + 50) + ",50]}\n" +
               R"({"do":"key","key":"brightnessUp"})" + "\n";
    }
    lines += R"({"do":"advance","seconds":0.007})"
             "\n";
  }
  return lines;
}

const std::string settle = R"({"do":"settle"})"
                           "\n";
const std::string start = displayAt(2) + displayAt(3) + displayAt(4) + R"({"do":"launch"})" + "\n" + settle;

}  // namespace

TEST(Live, KeysOnSeveralMonitorsArriveTogether) {
  const Played played = playScenario(start + keys(6) + settle, 1, simulator::Clock::live);
  EXPECT_EQ(played.status, 0);
  for (int id = 2; id <= 4; ++id) EXPECT_EQ(played.lights(id).back(), 88) << id;  // 8 steps and 6
}

TEST(Live, DisplaysComeAndGoUnderTheKeys) {
  const std::string wake = R"({"do":"wake"})"
                           "\n";
  const std::string snapshot = R"({"do":"snapshot","name":"s"})"
                               "\n";
  const Played played =
      playScenario(start + keys(2) + wake + keys(2) + R"({"do":"display","id":3,"gone":true})" + "\n" + snapshot +
                       keys(1) + displayAt(3) + wake + wake + R"({"do":"menu","open":true})" + "\n" + snapshot +
                       keys(2) + R"({"do":"disable-tap","by":"timeout"})" + "\n" + keys(1) + settle + keys(1) +
                       R"({"do":"quit"})" + "\n" + R"({"do":"launch"})" + "\n" + settle,
                   1, simulator::Clock::live);
  EXPECT_EQ(played.status, 0);
  EXPECT_EQ(played.of("exit").size(), 2U);
}

TEST(Live, MonitorsThatFailTogetherAreLogged) {
  std::string faults;
  for (int id = 2; id <= 4; ++id) {
    faults += R"({"do":"monitor","display":)" + std::to_string(id) + R"(,"fault":"write-fails"})" + "\n";
  }
  const Played played = playScenario(start + faults + keys(1) + settle, 1, simulator::Clock::live);
  EXPECT_EQ(played.status, 0);
  const auto logs = played.logs();
  EXPECT_EQ(std::ranges::count(logs, "error DDC: Writing VCP 0x10 = 56 failed after 5 attempts"), 3);
}
