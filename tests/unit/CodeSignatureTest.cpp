// Signatures of bundles: what makes a valid one, and that every change breaks it.
#include <Security/Security.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>

#include "simulator/foundation/PropertyList.h"
#include "simulator/software/CodeSignature.h"
#include "simulator/system/FileContent.h"

namespace {

namespace fs = std::filesystem;
using simulator::CodeRequirement;
using simulator::CodeSigners;

class CodeSignatureTest : public testing::Test {
 protected:
  CodeSignatureTest() {
    std::string pattern = (fs::temp_directory_path() / "signature-XXXXXX").string();
    folder_ = mkdtemp(pattern.data());
    makeBundle();
  }
  ~CodeSignatureTest() override { fs::remove_all(folder_); }

  void makeBundle() {
    fs::remove_all(bundle());
    fs::create_directories(contents() / "MacOS");
    fs::create_directories(contents() / "Resources/en.lproj");
    simulator::writeFile(contents() / "Info.plist",
                         simulator::writePropertyList({{"CFBundleExecutable", "Dalvane"},
                                                       {"CFBundleIdentifier", "example.dalvane.Dalvane"},
                                                       {"CFBundleShortVersionString", "1.0"}}));
    simulator::writeFile(contents() / "MacOS/Dalvane", "the program");
    simulator::writeFile(contents() / "Resources/icon", "a picture");
    simulator::writeFile(contents() / "Resources/en.lproj/strings", "texts");
    fs::create_symlink("icon", contents() / "Resources/link");
  }

  [[nodiscard]] fs::path bundle() const { return folder_ / "Dalvane.app"; }
  [[nodiscard]] fs::path contents() const { return bundle() / "Contents"; }
  [[nodiscard]] simulator::CodeStatus check() const { return signers_.check(bundle(), {}, requirement_); }

  CodeSigners signers_;
  CodeRequirement requirement_{"example.dalvane.Dalvane", simulator::teamIdentifier("Tessbrook")};
  fs::path folder_;
};

TEST_F(CodeSignatureTest, AValidSignatureSatisfiesItsOwnDesignatedRequirement) {
  signers_.sign(bundle(), "Tessbrook");
  EXPECT_EQ(check(), errSecSuccess);
  CodeRequirement designated;
  EXPECT_EQ(signers_.designatedRequirement(bundle(), designated), errSecSuccess);
  EXPECT_EQ(designated, requirement_);
}

TEST_F(CodeSignatureTest, AnUnsignedBundleIsToldFromABrokenOne) {
  EXPECT_EQ(check(), errSecCSUnsigned);
  CodeRequirement designated;
  EXPECT_EQ(signers_.designatedRequirement(bundle(), designated), errSecCSUnsigned);
}

TEST_F(CodeSignatureTest, AnotherSignerAndAnotherBundleDoNotSatisfyTheRequirement) {
  signers_.sign(bundle(), "Mallory");
  EXPECT_EQ(signers_.check(bundle(), {}, std::nullopt), errSecSuccess);
  EXPECT_EQ(check(), errSecCSReqFailed);

  signers_.sign(bundle(), "Tessbrook", true);
  EXPECT_EQ(check(), errSecCSReqFailed);

  signers_.sign(bundle(), "Tessbrook");
  requirement_.identifier = "example.dalvane.Other";
  EXPECT_EQ(check(), errSecCSReqFailed);
}

TEST_F(CodeSignatureTest, HowMuchIsLookedAtIsUpToTheFlags) {
  signers_.sign(bundle(), "Tessbrook");
  simulator::writeFile(contents() / "MacOS/Dalvane",
                       "the program" + std::string(simulator::otherArchitectures) + "for another processor");
  EXPECT_EQ(check(), errSecCSSignatureFailed);
  EXPECT_EQ(signers_.check(bundle(), {.strict = true, .allArchitectures = false}, requirement_), errSecSuccess);
  // What was there when it was signed is as good as the rest.
  signers_.sign(bundle(), "Tessbrook");
  EXPECT_EQ(check(), errSecSuccess);
  simulator::writeFile(bundle() / "beside", "not sealed");
  EXPECT_EQ(check(), errSecCSUnsealedAppRoot);
  EXPECT_EQ(signers_.check(bundle(), {.strict = false, .allArchitectures = true}, requirement_), errSecSuccess);
}

TEST_F(CodeSignatureTest, WhereNoCodeIsItIsNotFound) {
  EXPECT_EQ(CodeSigners::find(folder_ / "nothing.app"), errSecCSStaticCodeNotFound);
  fs::create_directories(folder_ / "empty.app");
  EXPECT_EQ(CodeSigners::find(folder_ / "empty.app"), errSecCSBadBundleFormat);
}

struct Change {
  const char* name;
  std::function<void(const fs::path& contents)> apply;
  simulator::CodeStatus status;
};

// What a test's parameter is called where it is listed.
void PrintTo(const Change& change, std::ostream* out) { *out << change.name; }

class ChangedBundleTest : public CodeSignatureTest, public testing::WithParamInterface<Change> {};

TEST_P(ChangedBundleTest, IsFound) {
  signers_.sign(bundle(), "Tessbrook");
  ASSERT_EQ(check(), errSecSuccess);
  GetParam().apply(contents());
  EXPECT_EQ(check(), GetParam().status);
}

void append(const fs::path& file) { simulator::writeFile(file, simulator::readFile(file) + " "); }

const Change changes[] = {
    {"executable", [](const fs::path& c) { append(c / "MacOS/Dalvane"); }, errSecCSSignatureFailed},
    {"noExecutable", [](const fs::path& c) { fs::remove(c / "MacOS/Dalvane"); }, errSecCSNoMainExecutable},
    {"info", [](const fs::path& c) { append(c / "Info.plist"); }, errSecCSInfoPlistFailed},
    {"resource", [](const fs::path& c) { append(c / "Resources/en.lproj/strings"); }, errSecCSBadResource},
    {"missingResource", [](const fs::path& c) { fs::remove(c / "Resources/icon"); }, errSecCSBadResource},
    {"addedResource", [](const fs::path& c) { simulator::writeFile(c / "Resources/more", ""); }, errSecCSBadResource},
    {"addedSeal", [](const fs::path& c) { simulator::writeFile(c / "_CodeSignature/more", ""); },
     errSecCSUnsealedAppRoot},
    {"addedCode", [](const fs::path& c) { simulator::writeFile(c / "MacOS/helper", ""); }, errSecCSBadResource},
    {"seals", [](const fs::path& c) { append(c / "_CodeSignature/CodeResources"); }, errSecCSResourceDirectoryFailed},
    {"requirements", [](const fs::path& c) { append(c / "_CodeSignature/CodeRequirements"); }, errSecCSSignatureFailed},
    {"directory", [](const fs::path& c) { append(c / "_CodeSignature/CodeDirectory"); }, errSecCSSignatureFailed},
    {"noSignature", [](const fs::path& c) { fs::remove(c / "_CodeSignature/CodeSignature"); }, errSecCSUnsigned},
    {"nonsenseSignature",
     [](const fs::path& c) { simulator::writeFile(c / "_CodeSignature/CodeSignature", "nonsense"); },
     errSecCSSignatureInvalid},
    {"unknownDigest",
     [](const fs::path& c) {
       std::string signature = simulator::readFile(c / "_CodeSignature/CodeSignature");
       signature.at(signature.find("\x60\x86\x48\x01\x65\x03\x04\x02\x01") + 8) = '\x7f';  // SHA-256's identifier
       simulator::writeFile(c / "_CodeSignature/CodeSignature", signature);
     },
     errSecCSSignatureFailed},
    {"root", [](const fs::path& c) { simulator::writeFile(c.parent_path() / "beside", ""); }, errSecCSUnsealedAppRoot},
    {"linkedExecutable",
     [](const fs::path& c) {
       fs::rename(c / "MacOS/Dalvane", c.parent_path().parent_path() / "elsewhere");
       fs::create_symlink(c.parent_path().parent_path() / "elsewhere", c / "MacOS/Dalvane");
     },
     errSecCSRegularFile},
    {"linkOut", [](const fs::path& c) { fs::create_symlink("/etc/hosts", c / "Resources/out"); },
     errSecCSInvalidSymlink},
};

INSTANTIATE_TEST_SUITE_P(Every, ChangedBundleTest, testing::ValuesIn(changes),
                         [](const auto& change) { return std::string(change.param.name); });

TEST(CodeRequirementTest, TextAndParserAgree) {
  const CodeRequirement requirement{"a.b", "TEAM"};
  EXPECT_EQ(requirement.text(),
            "identifier \"a.b\" and anchor apple generic and certificate leaf[subject.OU] = \"TEAM\"");
  EXPECT_EQ(CodeRequirement::parse(requirement.text()), requirement);
  EXPECT_EQ(CodeRequirement::parse("identifier \"a.b\""), (CodeRequirement{"a.b", ""}));
  for (const char* text : {"", "identifier", "identifier \"a", "identifier \"a\" or anchor apple", "anchor apple"}) {
    EXPECT_FALSE(CodeRequirement::parse(text)) << text;
  }
}

}  // namespace
