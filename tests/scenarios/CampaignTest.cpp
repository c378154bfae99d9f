// Lives of a desk: short ones of the program, and what is said of one that breaks.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <sstream>

#include "desk/Desk.h"
#include "desk/campaign/Campaign.h"
#include "desk/campaign/Failures.h"
#include "desk/campaign/Life.h"
#include "tests/support/Lines.h"

using namespace lines;

namespace {

struct Said {
  int status = 0;
  std::string out;
  std::string errors;
};

Said campaignOf(const simulator::Program& program, const campaign::Options& options) {
  std::ostringstream out;
  std::ostringstream errors;
  const int status = campaign::run(program, options, {.out = out, .errors = errors, .progress = nullptr});
  return {.status = status, .out = out.str(), .errors = errors.str()};
}

}  // namespace

TEST(Campaign, ALifeIsTheSameWithTheSameSeed) {
  campaign::Life one(5);
  campaign::Life same(5);
  campaign::Life other(6);
  for (int i = 0; i < 3; ++i) {
    const auto day = one.day();
    EXPECT_EQ(day, same.day());
    EXPECT_NE(day, other.day());
  }
}

TEST(Campaign, EverythingHoldsForSomeDays) {
  const Said said = campaignOf(dalvaneProgram(), {.firstSeed = 1, .lastSeed = 12, .days = 6, .jobs = 2, .folder = "."});
  EXPECT_EQ(said.status, 0) << said.out << said.errors;
  EXPECT_TRUE(said.out.starts_with("72 days, ")) << said.out;
}

TEST(Campaign, ABrokenProgramIsFoundWithTheShortestScenario) {
  const std::filesystem::path folder =
      std::filesystem::temp_directory_path() / ("campaign-" + std::to_string(getpid()));
  std::filesystem::create_directories(folder);
  simulator::Program program = dalvaneProgram();
  program.main = []() -> int { std::abort(); };
  const Said said = campaignOf(program, {.firstSeed = 3, .lastSeed = 3, .days = 2, .jobs = 1, .folder = folder});
  EXPECT_EQ(said.status, 1);
  EXPECT_NE(said.out.find("BROKEN: keeps-going"), said.out.npos) << said.out;
  EXPECT_NE(said.out.find("seed 3"), said.out.npos) << said.out;
  const std::filesystem::path file = folder / "campaign-3-keeps-going.scenario";
  EXPECT_TRUE(said.out.ends_with("The scenario, in " + file.string() + ":\n" + launch)) << said.out;
  // The same file shows it again, and a program that works passes.
  std::ostringstream out;
  const campaign::Streams streams = {.out = out, .errors = out, .progress = nullptr};
  EXPECT_EQ(campaign::replay(program, file, 3, streams), 1);
  EXPECT_EQ(campaign::replay(dalvaneProgram(), file, 3, streams), 0) << out.str();
  std::filesystem::remove_all(folder);
}

TEST(Campaign, EachFunctionMayFailOnce) {
  std::ostringstream out;
  EXPECT_EQ(campaign::failures(dalvaneProgram(), true, 2, {.out = out, .errors = out, .progress = nullptr}), 0)
      << out.str();
  EXPECT_NE(out.str().find("single failures of"), std::string::npos) << out.str();
}
