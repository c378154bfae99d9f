// Code signatures and requirements. Beyond not crashing: a requirement that is understood, written down, is understood
// as the same; and of a signed bundle no file can be replaced by another content, none be added and none taken away
// without the check saying so.
#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "fuzz/Target.h"
#include "simulator/foundation/PropertyList.h"
#include "simulator/software/CodeSignature.h"
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
    for (const auto& entry : fs::recursive_directory_iterator(contents())) {
      if (entry.is_regular_file()) files.push_back(entry.path());
    }
    std::ranges::sort(files);
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

  std::vector<fs::path> files;

 private:
  [[nodiscard]] fs::path bundle() const { return scratch_ / "Fuzz.app"; }

  fs::path scratch_;
  simulator::CodeSigners signers_;
  CodeRequirement requirement_{"example.fuzz", simulator::teamIdentifier("Tessbrook")};
};

// The content with some bytes of it replaced, or another one.
std::string changed(const std::string& content, fuzz::Input& input) {
  if (input.truth()) return std::string(input.rest());
  const std::size_t at = input.number<std::uint16_t>() % (content.size() + 1);
  const std::size_t length = input.number<std::uint8_t>();
  return content.substr(0, at) + std::string(input.rest()) + content.substr(std::min(at + length, content.size()));
}

void checkBundle(fuzz::Input& input) {
  static const Bundle bundle;
  const fs::path& file = bundle.files[input.number<std::uint8_t>() % bundle.files.size()];
  const std::string content = simulator::readFile(file);
  const std::string other = changed(content, input);
  simulator::writeFile(file, other);
  const bool isValid = bundle.isValid();
  bundle.designate();
  simulator::writeFile(file, content);
  // Other bytes can be the same signature: of its encoding not all is signed. They must then be of the same length of
  // meaning, so nothing else of the bundle can differ.
  const bool isEncoding = file.filename() == "CodeSignature";
  fuzz::require(isValid == (other == content) || (isValid && isEncoding), "a file that was changed is noticed");
}

const fuzz::Target target("Signatures", [](std::string_view bytes) {
  fuzz::Input input(bytes);
  if (input.number<std::uint8_t>() == 'b') return checkBundle(input);
  const auto requirement = CodeRequirement::parse(input.rest());
  if (requirement)
    fuzz::require(CodeRequirement::parse(requirement->text()) == requirement, "a requirement comes back");
});

}  // namespace
