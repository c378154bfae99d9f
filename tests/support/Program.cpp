#include "tests/support/Program.h"

#include <gtest/gtest.h>

Played runAsProgram(const std::string& scenario, const std::function<void()>& body, std::uint64_t seed) {
  const Preparation preparation = {.setUp = {}, .program = [&body] {
                                     body();
                                     return 0;
                                   }};
  Played played = playScenario(scenario + R"({"do":"launch"})"
                                          "\n"
                                          R"({"do":"settle"})"
                                          "\n",
                               seed, simulator::Clock::deterministic, preparation);
  EXPECT_EQ(played.of("exit").size(), 1U) << "the program did not come to its end";
  return played;
}
