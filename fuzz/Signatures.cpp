// Code signatures and requirements. Beyond not crashing: a requirement that is understood, written down, is understood
// as the same; and of a signed bundle no file can be replaced by another content, none be added and none taken away
// without the check saying so.
#include <openssl/cms.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "fuzz/Target.h"
#include "simulator/foundation/PropertyList.h"
#include "simulator/software/CodeSignature.h"
#include "simulator/system/Certificates.h"
#include "simulator/system/FileContent.h"

namespace {

namespace fs = std::filesystem;
using simulator::CodeRequirement;

// A signed bundle in a folder of this process, gone with it.
class Bundle {
 public:
  Bundle() {
    std::string pattern = (fs::temp_directory_path() / "fuzz-XXXXXX").string();
    fuzz::require(mkdtemp(pattern.data()) != nullptr, "there is room for a folder");
    scratch_ = pattern;
    fs::create_directories(contents() / "MacOS");
    fs::create_directories(contents() / "Resources");
    simulator::writeFile(
        contents() / "Info.plist",
        simulator::writePropertyList({{"CFBundleExecutable", "Fuzz"}, {"CFBundleIdentifier", "example.fuzz"}}));
    simulator::writeFile(contents() / "MacOS/Fuzz", "the program");
    simulator::writeFile(contents() / "Resources/text", "a text");
    signers_.sign(bundle(), "Tessbrook");
    folders.push_back(bundle());
    for (const auto& entry : fs::recursive_directory_iterator(bundle())) {
      (entry.is_directory() ? folders : files).push_back(entry.path());
    }
    std::ranges::sort(files);
    std::ranges::sort(folders);
    fuzz::require(isValid(), "the bundle is whole");
  }
  Bundle(const Bundle&) = delete;
  Bundle& operator=(const Bundle&) = delete;
  ~Bundle() {
    std::error_code ignored;
    fs::remove_all(scratch_, ignored);
  }

  [[nodiscard]] bool isValid() const { return signers_.check(bundle(), {}, requirement_) == 0; }
  [[nodiscard]] fs::path contents() const { return bundle() / "Contents"; }
  // What the signature says of itself, whether it is valid or not.
  void designate() const {
    CodeRequirement found;
    if (signers_.designatedRequirement(bundle(), found) == 0) {
      fuzz::require(CodeRequirement::parse(found.text()) == found, "a stated requirement is one");
    }
  }

  std::vector<fs::path> files, folders;

 private:
  [[nodiscard]] fs::path bundle() const { return scratch_ / "Fuzz.app"; }

  fs::path scratch_;
  simulator::CodeSigners signers_;
  CodeRequirement requirement_{"example.fuzz", simulator::teamIdentifier("Tessbrook")};
};

// The content with some bytes of it replaced, or another one.
std::string changed(const std::string& content, fuzz::Input& input) {
  if (input.truth()) return std::string(input.rest());
  const auto place = input.number<std::uint16_t>();
  const std::size_t at = place == UINT16_MAX ? content.size() : place % (content.size() + 1);
  const std::size_t length = input.number<std::uint8_t>();
  return content.substr(0, at) + std::string(input.rest()) + content.substr(std::min(at + length, content.size()));
}

// Whose signature a message of a valid one holds, and the signature itself. The rest can differ: how it is encoded,
// what is said beside it unsigned, and what comes after it.
std::string meaning(const std::string& message) {
  const std::unique_ptr<BIO, simulator::Freed<BIO_free_all>> memory(
      BIO_new_mem_buf(message.data(), static_cast<int>(message.size())));
  const std::unique_ptr<CMS_ContentInfo, simulator::Freed<CMS_ContentInfo_free>> parsed(
      d2i_CMS_bio(memory.get(), nullptr));
  fuzz::require(parsed && CMS_set1_signers_certs(parsed.get(), nullptr, 0) == 1, "a valid signature has its signer");
  STACK_OF(CMS_SignerInfo)* const signers = CMS_get0_SignerInfos(parsed.get());
  fuzz::require(sk_CMS_SignerInfo_num(signers) == 1, "a valid signature has one signer");
  CMS_SignerInfo* const signer = sk_CMS_SignerInfo_value(signers, 0);
  X509* certificate = nullptr;
  CMS_SignerInfo_get0_algs(signer, nullptr, &certificate, nullptr, nullptr);
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int size = 0;
  fuzz::require(X509_digest(certificate, EVP_sha256(), digest, &size) == 1, "a signer has a certificate");
  const ASN1_OCTET_STRING* const signature = CMS_SignerInfo_get0_signature(signer);
  return std::string(reinterpret_cast<const char*>(digest), size) +
         std::string(reinterpret_cast<const char*>(ASN1_STRING_get0_data(signature)),
                     static_cast<std::size_t>(ASN1_STRING_length(signature)));
}

const Bundle& theBundle() {
  static const Bundle bundle;
  return bundle;
}

void changeFile(fuzz::Input& input) {
  const Bundle& bundle = theBundle();
  const fs::path& file = bundle.files[input.number<std::uint8_t>() % bundle.files.size()];
  const std::string content = simulator::readFile(file);
  const std::string other = changed(content, input);
  simulator::writeFile(file, other);
  const bool isValid = bundle.isValid();
  bundle.designate();
  simulator::writeFile(file, content);
  const bool isSame =
      other == content || (isValid && file.filename() == "CodeSignature" && meaning(other) == meaning(content));
  fuzz::require(isValid == isSame, "a file that was changed is noticed");
}

void addFile(fuzz::Input& input) {
  const Bundle& bundle = theBundle();
  const fs::path& folder = bundle.folders[input.number<std::uint8_t>() % bundle.folders.size()];
  const fs::path name(input.text().substr(0, 64));
  // A name, and a new one.
  if (name.empty() || name != name.filename() || fs::exists(fs::symlink_status(folder / name))) return;
  simulator::writeFile(folder / name, input.rest());
  const bool isValid = bundle.isValid();
  bundle.designate();
  fs::remove(folder / name);
  fuzz::require(!isValid, "a file that was added is noticed");
}

void removeFile(fuzz::Input& input) {
  const Bundle& bundle = theBundle();
  const fs::path& file = bundle.files[input.number<std::uint8_t>() % bundle.files.size()];
  const std::string content = simulator::readFile(file);
  fs::remove(file);
  const bool isValid = bundle.isValid();
  bundle.designate();
  simulator::writeFile(file, content);
  fuzz::require(!isValid, "a file that was taken away is noticed");
}

const fuzz::Target target("Signatures", [](std::string_view bytes) {
  fuzz::Input input(bytes);
  switch (input.number<char>()) {
    case 'b':
      return changeFile(input);
    case '+':
      return addFile(input);
    case '-':
      return removeFile(input);
    default:
      break;
  }
  const auto requirement = CodeRequirement::parse(input.rest());
  if (requirement)
    fuzz::require(CodeRequirement::parse(requirement->text()) == requirement, "a requirement comes back");
});

}  // namespace
