// Code signatures before the openssl command: what the simulated Mac calls valid must be a CMS message that openssl
// verifies over the code directory, with digests that openssl finds of every file; and what it refuses, openssl
// refuses.
#include <Security/Security.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "simulator/foundation/PropertyList.h"
#include "simulator/software/CodeSignature.h"
#include "simulator/system/FileContent.h"
#include "tests/support/Command.h"

namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using simulator::CodeRequirement;
using simulator::readFile;
using simulator::writeFile;

class SignatureJudge;

struct Tampering {
  const char* name;
  std::function<void(SignatureJudge&)> apply;
  bool isValid;       // whether what comes of it is a valid signature
  bool isTessbrooks;  // and one of the developer whom the requirement names
};

// What a test's parameter is called where it is listed.
void PrintTo(const Tampering& tampering, std::ostream* out) { *out << tampering.name; }

class SignatureJudge : public testing::TestWithParam<Tampering> {
 public:
  SignatureJudge() {
    std::string pattern = (fs::temp_directory_path() / "judge-XXXXXX").string();
    folder_ = mkdtemp(pattern.data());
    bundle_ = folder_ / "Dalvane.app";
    writeFile(folder_ / "authority.pem", signers_.authority().pem());
    makeBundle(bundle_);
    signers_.sign(bundle_, "Tessbrook");
  }
  ~SignatureJudge() override { fs::remove_all(folder_); }

  static void makeBundle(const fs::path& bundle) {
    fs::create_directories(bundle / "Contents/MacOS");
    fs::create_directories(bundle / "Contents/Resources");
    writeFile(bundle / "Contents/Info.plist",
              simulator::writePropertyList(
                  {{"CFBundleExecutable", "Dalvane"}, {"CFBundleIdentifier", "example.dalvane.Dalvane"}}));
    writeFile(bundle / "Contents/MacOS/Dalvane", "the program");
    writeFile(bundle / "Contents/Resources/icon", "a picture");
  }

  [[nodiscard]] fs::path contents() const { return bundle_ / "Contents"; }
  [[nodiscard]] fs::path seal(const char* name) const { return contents() / "_CodeSignature" / name; }

  // ---- What the simulated Mac says ----

  [[nodiscard]] bool isValid() const { return signers_.check(bundle_, {}, std::nullopt) == errSecSuccess; }
  [[nodiscard]] bool isTessbrooks() const {
    const CodeRequirement requirement{"example.dalvane.Dalvane", simulator::teamIdentifier("Tessbrook")};
    return signers_.check(bundle_, {}, requirement) == errSecSuccess;
  }

  // ---- What openssl says ----

  static Command openssl(std::vector<std::string> words) {
    words.insert(words.begin(), "openssl");
    return Command(words);
  }
  [[nodiscard]] bool verifies(const std::vector<std::string>& options) const {
    std::vector<std::string> words = {"cms",
                                      "-verify",
                                      "-inform",
                                      "DER",
                                      "-binary",
                                      "-purpose",
                                      "any",
                                      "-out",
                                      "/dev/null",
                                      "-in",
                                      seal("CodeSignature").string(),
                                      "-content",
                                      seal("CodeDirectory").string(),
                                      "-signer",
                                      (folder_ / "signer.pem").string()};
    words.insert(words.end(), options.begin(), options.end());
    return openssl(words).status() == 0;
  }
  static std::string digest(const fs::path& file) {
    return openssl({"dgst", "-sha256", "-r", file.string()}).output().substr(0, 64);
  }
  // Whether the code directory and what it seals are digests of the files that are there.
  [[nodiscard]] bool digestsHold() const {
    const json slots = json::parse(readFile(seal("CodeDirectory")), nullptr, false);
    const std::pair<const char*, fs::path> files[] = {{"info", contents() / "Info.plist"},
                                                      {"executable", contents() / "MacOS/Dalvane"},
                                                      {"requirements", seal("CodeRequirements")},
                                                      {"resources", seal("CodeResources")}};
    for (const auto& [slot, file] : files) {
      if (!slots.is_object() || slots.value(slot, "") != digest(file)) return false;
    }
    json found = json::object();
    for (const auto& entry : fs::recursive_directory_iterator(contents())) {
      const fs::path name = entry.path().lexically_relative(contents());
      if (!entry.is_regular_file() || name == "Info.plist" || name == "MacOS/Dalvane" ||
          name.parent_path() == "_CodeSignature") {
        continue;
      }
      found[name.string()] = {{"hash2", digest(entry.path())}};
    }
    return simulator::readPropertyList(readFile(seal("CodeResources")))["files2"] == found;
  }
  [[nodiscard]] bool opensslSaysValid() const { return verifies({"-noverify"}) && digestsHold(); }
  [[nodiscard]] bool opensslSaysTessbrooks() const {
    if (!verifies({"-CAfile", (folder_ / "authority.pem").string()}) || !digestsHold()) return false;
    const std::string subject =
        openssl({"x509", "-in", (folder_ / "signer.pem").string(), "-noout", "-subject", "-nameopt", "multiline"})
            .output();
    return subject.find("organizationalUnitName    = " + simulator::teamIdentifier("Tessbrook")) != std::string::npos;
  }

  // A signature by somebody whom no authority knows, made by openssl alone.
  void signByOpenSSL(const std::vector<std::string>& options) {
    const std::string key = (folder_ / "key.pem").string();
    const std::string certificate = (folder_ / "certificate.pem").string();
    ASSERT_EQ(
        openssl({"req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-subj",
                 "/OU=" + simulator::teamIdentifier("Tessbrook") + "/CN=Mallory", "-keyout", key, "-out", certificate})
            .status(),
        0);
    std::vector<std::string> words = {"cms",      "-sign",     "-binary",
                                      "-outform", "DER",       "-md",
                                      "sha256",   "-in",       seal("CodeDirectory").string(),
                                      "-signer",  certificate, "-inkey",
                                      key,        "-out",      seal("CodeSignature").string()};
    words.insert(words.end(), options.begin(), options.end());
    ASSERT_EQ(openssl(words).status(), 0);
  }

  simulator::CodeSigners signers_;
  fs::path folder_;
  fs::path bundle_;
};

// ---- The table ----

void append(const fs::path& file, const char* what = " ") { writeFile(file, readFile(file) + what); }

const Tampering table[] = {
    {"nothing", [](SignatureJudge&) {}, true, true},
    {"anotherDeveloper", [](SignatureJudge& j) { j.signers_.sign(j.bundle_, "Mallory"); }, true, false},
    {"forgedCertificate", [](SignatureJudge& j) { j.signers_.sign(j.bundle_, "Tessbrook", true); }, true, false},
    {"signedByNobodyKnown", [](SignatureJudge& j) { j.signByOpenSSL({}); }, true, false},
    {"signedWithTheContentInIt", [](SignatureJudge& j) { j.signByOpenSSL({"-nodetach"}); }, true, false},
    {"signedWithoutCertificate", [](SignatureJudge& j) { j.signByOpenSSL({"-nocerts"}); }, false, false},
    {"signedAsText", [](SignatureJudge& j) { j.signByOpenSSL({"-outform", "PEM"}); }, false, false},
    {"directory", [](SignatureJudge& j) { append(j.seal("CodeDirectory")); }, false, false},
    {"directoryAndItsDigests",
     [](SignatureJudge& j) {
       // Everything is set right but what takes the key.
       append(j.contents() / "MacOS/Dalvane");
       json slots = json::parse(readFile(j.seal("CodeDirectory")));
       slots["executable"] = SignatureJudge::digest(j.contents() / "MacOS/Dalvane");
       writeFile(j.seal("CodeDirectory"), slots.dump(1));
     },
     false, false},
    {"directoryAndItsSignature",
     [](SignatureJudge& j) {
       append(j.contents() / "MacOS/Dalvane");
       json slots = json::parse(readFile(j.seal("CodeDirectory")));
       slots["executable"] = SignatureJudge::digest(j.contents() / "MacOS/Dalvane");
       writeFile(j.seal("CodeDirectory"), slots.dump(1));
       j.signByOpenSSL({});
     },
     true, false},
    {"anothersSignature",
     [](SignatureJudge& j) {
       const fs::path other = j.folder_ / "Other.app";
       SignatureJudge::makeBundle(other);
       append(other / "Contents/MacOS/Dalvane");
       j.signers_.sign(other, "Tessbrook");
       fs::copy_file(other / "Contents/_CodeSignature/CodeSignature", j.seal("CodeSignature"),
                     fs::copy_options::overwrite_existing);
     },
     false, false},
    {"emptySignature", [](SignatureJudge& j) { writeFile(j.seal("CodeSignature"), ""); }, false, false},
    {"nonsenseSignature", [](SignatureJudge& j) { writeFile(j.seal("CodeSignature"), "nonsense"); }, false, false},
    {"cutSignature",
     [](SignatureJudge& j) {
       const std::string whole = readFile(j.seal("CodeSignature"));
       writeFile(j.seal("CodeSignature"), whole.substr(0, whole.size() - 1));
     },
     false, false},
    {"longerSignature", [](SignatureJudge& j) { append(j.seal("CodeSignature")); }, true, true},
    {"lastBitOfTheSignature",
     [](SignatureJudge& j) {
       std::string changed = readFile(j.seal("CodeSignature"));
       changed.back() = static_cast<char>(changed.back() ^ 1);
       writeFile(j.seal("CodeSignature"), changed);
     },
     false, false},
    {"executable", [](SignatureJudge& j) { append(j.contents() / "MacOS/Dalvane"); }, false, false},
    {"info", [](SignatureJudge& j) { append(j.contents() / "Info.plist"); }, false, false},
    {"resource", [](SignatureJudge& j) { append(j.contents() / "Resources/icon"); }, false, false},
    {"missingResource", [](SignatureJudge& j) { fs::remove(j.contents() / "Resources/icon"); }, false, false},
    {"addedResource", [](SignatureJudge& j) { writeFile(j.contents() / "Resources/more", ""); }, false, false},
    {"seals", [](SignatureJudge& j) { append(j.seal("CodeResources")); }, false, false},
    {"requirements", [](SignatureJudge& j) { append(j.seal("CodeRequirements")); }, false, false},
};

TEST_P(SignatureJudge, SaysTheSame) {
  GetParam().apply(*this);
  EXPECT_EQ(opensslSaysValid(), GetParam().isValid);
  EXPECT_EQ(isValid(), GetParam().isValid);
  EXPECT_EQ(opensslSaysTessbrooks(), GetParam().isTessbrooks);
  EXPECT_EQ(isTessbrooks(), GetParam().isTessbrooks);
}

INSTANTIATE_TEST_SUITE_P(Of, SignatureJudge, testing::ValuesIn(table),
                         [](const auto& tampering) { return std::string(tampering.param.name); });

// Every byte of the message, here and there: what is no part of what is signed may be changed without harm, to both.
TEST_F(SignatureJudge, SaysTheSameOfEverySingleChange) {
  const std::string whole = readFile(seal("CodeSignature"));
  int refused = 0;
  for (std::size_t at = 0; at < whole.size(); at += 23) {
    std::string changed = whole;
    changed[at] = static_cast<char>(changed[at] ^ 1);
    writeFile(seal("CodeSignature"), changed);
    const bool isGood = opensslSaysTessbrooks();
    EXPECT_EQ(isTessbrooks(), isGood) << at;
    refused += isGood ? 0 : 1;
  }
  EXPECT_GT(refused, 20);
}

}  // namespace
