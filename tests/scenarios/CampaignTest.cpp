// Lives of a desk: short ones of the program, and what is said of one that breaks.
#include <CoreGraphics/CoreGraphics.h>
#include <IOKit/IOKitLib.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>

#include "desk/Desk.h"
#include "desk/campaign/Calls.h"
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

Said failuresOf(const simulator::Program& program, const std::string& folder, bool isShort = true) {
  std::ostringstream out;
  std::ostringstream errors;
  const int status = campaign::failures(program, {.isShort = isShort, .jobs = 2, .folder = folder},
                                        {.out = out, .errors = errors, .progress = nullptr});
  return {.status = status, .out = out.str(), .errors = errors.str()};
}

// A folder, gone with the test.
struct Scratch {
  Scratch() { std::filesystem::create_directories(folder); }
  ~Scratch() { std::filesystem::remove_all(folder); }
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;

  const std::filesystem::path folder =
      std::filesystem::temp_directory_path() / ("campaign-" + std::to_string(getpid()));
};

// Does that in a process whose temporary files lie in `folder`; when there is one, stops it with `stop`, if that is a
// signal. How the process ended, and the folder's content then.
struct Left {
  int status = 0;
  std::string files;
};
Left inFolder(const std::filesystem::path& folder, const std::function<void()>& work, int stop = 0) {
  const pid_t process = fork();
  if (process == 0) {
    // Whoever runs the tests in the background has INT ignored.
    signal(SIGINT, SIG_DFL);
    setenv("TMPDIR", folder.c_str(), 1);
    work();
    std::_Exit(0);
  }
  if (stop != 0) {
    while (std::filesystem::is_empty(folder)) poll(nullptr, 0, 10);
    kill(process, stop);
  }
  Left left;
  waitpid(process, &left.status, 0);
  for (const auto& entry : std::filesystem::directory_iterator(folder)) left.files += entry.path().string() + "\n";
  return left;
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
  const Scratch scratch;
  simulator::Program program = dalvaneProgram();
  program.main = []() -> int { std::abort(); };
  const Said said =
      campaignOf(program, {.firstSeed = 3, .lastSeed = 3, .days = 2, .jobs = 1, .folder = scratch.folder});
  EXPECT_EQ(said.status, 1);
  EXPECT_NE(said.out.find("BROKEN: keeps-going"), said.out.npos) << said.out;
  EXPECT_NE(said.out.find("seed 3"), said.out.npos) << said.out;
  const std::filesystem::path file = scratch.folder / "campaign-3-keeps-going.scenario";
  EXPECT_TRUE(said.out.ends_with("The scenario, in " + file.string() + ":\n" + launch)) << said.out;
  // The same file shows it again, and a program that works passes.
  std::ostringstream out;
  const campaign::Streams streams = {.out = out, .errors = out, .progress = nullptr};
  EXPECT_EQ(campaign::replay(program, file, 3, streams), 1);
  EXPECT_EQ(campaign::replay(dalvaneProgram(), file, 3, streams), 0) << out.str();
}

TEST(Campaign, AScenarioThatCannotBeWrittenIsSaid) {
  simulator::Program program = dalvaneProgram();
  program.main = []() -> int { std::abort(); };
  const Said said =
      campaignOf(program, {.firstSeed = 3, .lastSeed = 3, .days = 1, .jobs = 1, .folder = "/nowhere/at/all"});
  EXPECT_EQ(said.status, 1);
  EXPECT_EQ(said.errors, "/nowhere/at/all/campaign-3-keeps-going.scenario: the file cannot be written\n");
  EXPECT_EQ(said.out.find("/nowhere"), said.out.npos) << said.out;
  EXPECT_TRUE(said.out.ends_with("The scenario:\n" + launch)) << said.out;
}

TEST(Campaign, WhatDoesNotShowAgainIsKept) {
  const Scratch scratch;
  static std::string hasFailed;
  hasFailed = scratch.folder / "has-failed";
  simulator::Program program = dalvaneProgram();
  program.main = []() -> int {
    if (!std::filesystem::exists(hasFailed)) {
      std::ofstream{hasFailed};
      std::abort();
    }
    return dalvaneProgram().main();
  };
  const Said said =
      campaignOf(program, {.firstSeed = 3, .lastSeed = 3, .days = 1, .jobs = 1, .folder = scratch.folder});
  EXPECT_EQ(said.status, 1);
  const std::filesystem::path file = scratch.folder / "campaign-3-keeps-going.scenario";
  EXPECT_TRUE(said.out.ends_with("It does not show when its lines are played again.\nThe scenario, in " +
                                 file.string() + ":\n…\n"))
      << said.out;
  EXPECT_GT(std::filesystem::file_size(file), 5000U);
}

TEST(Campaign, AProgramThatIsKilledLeavesNoFolder) {
  const Scratch scratch;
  simulator::Program program = dalvaneProgram();
  program.main = []() -> int { return raise(SIGKILL); };
  const auto [status, left] = inFolder(scratch.folder, [&program] {
    campaignOf(program, {.firstSeed = 3, .lastSeed = 3, .days = 1, .jobs = 1, .folder = "/nowhere/at/all"});
  });
  EXPECT_EQ(status, 0);
  EXPECT_EQ(left, "");
}

TEST(Campaign, LeavesNoFolderWhenItIsInterrupted) {
  for (const int stop : {SIGINT, SIGTERM}) {
    const Scratch scratch;
    const auto [status, left] = inFolder(
        scratch.folder,
        [] { campaignOf(dalvaneProgram(), {.firstSeed = 1, .lastSeed = 2, .days = 100000, .jobs = 2, .folder = "."}); },
        stop);
    EXPECT_TRUE(WIFSIGNALED(status)) << status;
    EXPECT_EQ(WTERMSIG(status), stop);
    EXPECT_EQ(left, "");
  }
}

TEST(Campaign, EachFunctionMayFailOnce) {
  const Said said = failuresOf(dalvaneProgram(), ".");
  EXPECT_EQ(said.status, 0) << said.out << said.errors;
  // The list of what cannot fail names nothing that the day does not call.
  const std::string listed = std::to_string(campaign::cannotFail().size());
  EXPECT_NE(said.out.find(" functions, " + listed + " of which cannot fail.\n"), said.out.npos) << said.out;
  // What is first read of the bundle is its identifier.
  EXPECT_NE(said.out.find(" functions, 0 pairs, 1 that stop the program on purpose, 0 with a broken invariant"),
            said.out.npos)
      << said.out;
}

TEST(Campaign, AFunctionThatIsNotKnownToFailOrNotIsAMistake) {
  simulator::Program program = dalvaneProgram();
  program.main = []() -> int {
    const io_registry_entry_t root = IORegistryGetRootEntry(kIOMainPortDefault);
    io_iterator_t iterator = IO_OBJECT_NULL;
    if (IORegistryEntryCreateIterator(root, kIOServicePlane, kIORegistryIterateRecursively, &iterator) ==
        kIOReturnSuccess)
      IOIteratorReset(iterator);
    IOObjectRelease(iterator);
    return IOObjectRelease(root);
  };
  const Said said = failuresOf(program, ".");
  EXPECT_EQ(said.status, 2) << said.out;
  EXPECT_EQ(said.errors,
            "the day calls IOIteratorReset, which cannot be made to fail and is not listed as one that cannot\n");
}

TEST(Campaign, AProgramThatIsBrokenByItselfIsNotMadeToFail) {
  simulator::Program program = dalvaneProgram();
  program.main = []() -> int { std::abort(); };
  const Said said = failuresOf(program, ".");
  EXPECT_EQ(said.status, 2) << said.out;
  EXPECT_EQ(said.errors, "without a failure too this is broken: keeps-going\n");
}

namespace {

// A program that calls one function of the platform that often, and ends. When a call fails, it is broken.
simulator::Program programThatStandsNoFailure(int calls) {
  simulator::Program program = dalvaneProgram();
  program.main = [calls] {
    std::uint32_t count = 0;
    for (int i = 0; i < calls; ++i) {
      if (CGGetOnlineDisplayList(0, nullptr, &count) != kCGErrorSuccess) std::abort();
    }
    return 0;
  };
  return program;
}

}  // namespace

TEST(Campaign, AFailureThatBreaksSomethingIsReportedAsALifeIs) {
  const Scratch scratch;
  const simulator::Program program = programThatStandsNoFailure(1);
  const Said said = failuresOf(program, scratch.folder);
  EXPECT_EQ(said.status, 1) << said.errors;
  const auto has = [&](const std::string& text) { return said.out.find(text) != said.out.npos; };
  EXPECT_TRUE(has(" 1 with a broken invariant")) << said.out;
  EXPECT_TRUE(has("When these fail: CGGetOnlineDisplayList (1) with -1\nBROKEN: keeps-going\n")) << said.out;
  EXPECT_TRUE(has("The trace around it:\n{\"t\":")) << said.out;
  const std::filesystem::path file = scratch.folder / "failures-CGGetOnlineDisplayList-1-keeps-going.scenario";
  EXPECT_TRUE(said.out.ends_with("The scenario, in " + file.string() + ":\n" +
                                 line("fail", {{"call", "CGGetOnlineDisplayList"}, {"status", -1}, {"nth", 1}}) +
                                 launch))
      << said.out;
  std::ostringstream out;
  const campaign::Streams streams = {.out = out, .errors = out, .progress = nullptr};
  EXPECT_EQ(campaign::replay(program, file, 1, streams), 1);
  EXPECT_EQ(campaign::replay(dalvaneProgram(), file, 1, streams), 0) << out.str();
}

TEST(Campaign, TheSameFailureIsReportedInFullOnce) {
  const Scratch scratch;
  const simulator::Program program = programThatStandsNoFailure(2);
  const Said said = failuresOf(program, scratch.folder, false);
  EXPECT_EQ(said.status, 1) << said.errors;
  const auto first = said.out.find("When these fail: CGGetOnlineDisplayList (1) with -1\nBROKEN: keeps-going\n");
  const auto second =
      said.out.find("When these fail: CGGetOnlineDisplayList (2) with -1\nBROKEN: keeps-going, as before\n");
  EXPECT_LT(first, second) << said.out;
  EXPECT_NE(second, said.out.npos) << said.out;
}
