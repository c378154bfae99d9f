// What is installed: each machine has a bundle of its own, however it was come by.
#include <Security/Security.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <set>
#include <string>

#include "simulator/software/Applications.h"
#include "simulator/system/FileContent.h"
#include "tests/support/Lines.h"
#include "tests/support/Seat.h"

namespace {

namespace fs = std::filesystem;
using lines::bundle;
using simulator::Applications;
using simulator::CodeStatus;

CodeStatus statusOf(const fs::path& application) {
  return Applications::signers().check(application, {}, std::nullopt);
}

fs::path installedOn(Seat& seat) { return seat.machine().part<Applications>().bundle(); }

}  // namespace

TEST(Applications, WhatIsDoneToABundleIsNotDoneToTheNextMachines) {
  std::string signature;
  for (int machine = 0; machine < 3; ++machine) {
    Seat seat;
    const fs::path installed = installedOn(seat);
    EXPECT_EQ(statusOf(installed), errSecSuccess);
    // It was made and signed once.
    const std::string own = simulator::readFile(installed / "Contents/_CodeSignature/CodeSignature");
    EXPECT_EQ(own, signature.empty() ? own : signature);
    signature = own;
    simulator::writeFile(installed / "Contents/PkgInfo", "changed");
    fs::remove(installed / "Contents/Resources/AppIcon.icns");
    EXPECT_NE(statusOf(installed), errSecSuccess);
    EXPECT_TRUE(seat.shutDown());
  }
}

TEST(Applications, BundlesThatDifferInOneThingAreNotMistakenForEachOther) {
  const nlohmann::json different[] = {{{"version", "2"}},      {{"version", 2}},       {{"version", nullptr}},
                                      {{"signer", "Mallory"}}, {{"signer", ""}},       {{"signer", nullptr}},
                                      {{"identifier", "a.b"}}, {{"forged", true}},     {{"tampered", "info"}},
                                      {{"tampered", "added"}}, {{"tampered", "link"}}, nlohmann::json::object()};
  std::set<std::string> kinds;
  for (const auto& each : different) {
    // The second one is laid out from the first one's image.
    std::string first;
    for (int machine = 0; machine < 2; ++machine) {
      Seat seat;
      seat.play(bundle(each));
      std::string content;
      std::set<fs::path> files;
      for (const auto& entry : fs::recursive_directory_iterator(installedOn(seat))) files.insert(entry.path());
      for (const fs::path& file : files) {
        content += file.lexically_relative(installedOn(seat)).string() + '\n';
        content += std::to_string(static_cast<int>(fs::symlink_status(file).permissions())) + '\n';
        content += fs::is_symlink(file)        ? fs::read_symlink(file).string()
                   : fs::is_regular_file(file) ? simulator::readFile(file)
                                               : "";
      }
      EXPECT_EQ(content, machine == 0 ? content : first);
      first = content;
    }
    EXPECT_TRUE(kinds.insert(first).second) << each;
  }
}

// The signature of a bundle covers another that was in it before.
TEST(Applications, ABundleInABundleIsSealed) {
  const std::string outer = "Dalvane.app";
  const std::string inner = "Dalvane.app/Contents/Inner.app";
  const auto installs = [&](const nlohmann::json& apps) {
    Seat seat;
    seat.publishUpdate({{"apps", apps}});
    seat.launchAndCheck();
    seat.play(lines::answer("Install and Relaunch") + lines::click("Update to 1.4.0…") + lines::settle);
    const auto version = seat.snapshot()["bundle"]["version"];
    EXPECT_TRUE(seat.shutDown());
    return version == "1.4.0";
  };
  EXPECT_TRUE(installs({outer}));
  EXPECT_TRUE(installs({inner, outer}));
  EXPECT_FALSE(installs({outer, inner}));  // added after signing
}
