// The program's changes to files, through the C++ library, whatever functions of the C library that calls.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>
#include <vector>

#include "simulator/kernel/Call.h"
#include "simulator/system/SystemRoot.h"
#include "tests/support/Lines.h"
#include "tests/support/Program.h"

namespace {

namespace fs = std::filesystem;
using Texts = std::vector<std::string>;

fs::path below(const char* path) { return simulator::Call::unguarded().part<simulator::SystemRoot>().below(path); }

void write(const fs::path& file) { std::ofstream(file) << "content"; }

// The file calls of a trace: "rename /from 0".
Texts changes(const Played& played) {
  Texts texts;
  for (const auto& call : played.of("call")) {
    const auto& args = call["args"];
    if (!args.contains("path") && !args.contains("from")) continue;
    const std::string path = args.contains("path") ? args["path"] : args["from"];
    texts.push_back(call["api"].get<std::string>() + " " + path + " " + call["status"].dump());
  }
  return texts;
}

}  // namespace

TEST(Files, ARemovalIsOneRecordWhateverIsRemoved) {
  const Played played = runAsProgram("", [] {
    fs::create_directories(below("/Applications/folder/inner/most"));
    write(below("/Applications/folder/inner/file"));
    write(below("/Applications/file"));
    fs::create_symlink(below("/Applications/file"), below("/Applications/link"));
    EXPECT_EQ(fs::remove_all(below("/Applications/link")), 1U);
    EXPECT_TRUE(fs::exists(below("/Applications/file")));
    EXPECT_EQ(fs::remove_all(below("/Applications/folder")), 4U);
    EXPECT_EQ(fs::remove_all(below("/Applications/folder")), 0U);
    EXPECT_TRUE(fs::remove(below("/Applications/file")));
    EXPECT_FALSE(fs::remove(below("/Applications/file")));
  });
  EXPECT_EQ(changes(played), (Texts{"remove_all /Applications/link 0", "remove_all /Applications/folder 0",
                                    "remove /Applications/file 0", "remove /Applications/file 2"}));
}

TEST(Files, EachOfThemCanBeToldToFail) {
  using lines::fail;
  const std::string told = fail("rename", 28) + fail("remove", 13) + fail("remove_all", 1) +
                           fail("directory_iterator", 5) + fail("create_directories", 30, 2);
  const Played played = runAsProgram(told, [] {
    const fs::path applications = below("/Applications");
    std::error_code error;
    fs::rename(applications / "a", applications / "b", error);
    EXPECT_EQ(error.value(), 28);
    fs::remove(applications / "a", error);
    EXPECT_EQ(error.value(), 13);
    fs::remove_all(applications / "absent", error);  // changes nothing, and so cannot fail
    EXPECT_EQ(error.value(), 0);
    fs::remove_all(applications, error);
    EXPECT_EQ(error.value(), 1);
    EXPECT_TRUE(fs::exists(applications));
    static_cast<void>(fs::directory_iterator(applications, error));
    EXPECT_EQ(error.value(), 5);
    fs::create_directories(applications / "x/y/z", error);
    EXPECT_EQ(error.value(), 30);
    EXPECT_TRUE(fs::exists(applications / "x"));  // it got half-way
    EXPECT_FALSE(fs::exists(applications / "x/y"));
  });
  EXPECT_EQ(changes(played),
            (Texts{"rename /Applications/a 28", "remove /Applications/a 13", "remove_all /Applications 1"}));
}

TEST(Files, TheSystemsOwnCannotBeChanged) {
  const Played played = runAsProgram("", [] {
    std::error_code error;
    fs::remove(below("/usr/bin/ditto"), error);
    EXPECT_EQ(error.value(), EPERM);
    fs::rename(below("/System/Library"), below("/Applications/Library"), error);
    EXPECT_EQ(error.value(), EPERM);
    fs::create_directory(below("/usr/bin/mine"), error);
    EXPECT_EQ(error.value(), EPERM);
    fs::remove_all(below("/System"), error);
    EXPECT_EQ(error.value(), EPERM);
  });
  EXPECT_EQ(changes(played).size(), 3U);
}

// What cannot be removed in the middle of a folder stops the removal there, with its errno.
TEST(Files, ARemovalThatFailsHalfWaySaysSo) {
  const Played played = runAsProgram("", [] {
    const fs::path folder = below("/Applications/folder");
    fs::create_directories(folder / "inner");
    write(folder / "inner/file");
    fs::permissions(folder / "inner", fs::perms::none);
    std::error_code error;
    fs::remove_all(folder, error);
    EXPECT_EQ(static_cast<bool>(error), geteuid() != 0) << "for the superuser nothing is forbidden";
    if (error) fs::permissions(folder / "inner", fs::perms::owner_all);
  });
  EXPECT_EQ(changes(played).size(), 1U);
}
