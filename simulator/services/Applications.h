// What is installed: the program's bundle as a folder, its signature, and the images that newer versions come in.
#pragma once

#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "simulator/machine/Part.h"
#include "simulator/services/CodeSignature.h"

namespace simulator {

class Arguments;
class Machine;

// One application bundle to be made.
struct BundleContent {
  nlohmann::json version;             // CFBundleShortVersionString; null: left out
  std::string identifier;             // empty: the program's own
  std::optional<std::string> signer;  // none: not signed
  bool forged = false;                // the signer's certificate is a forger's
  std::string tampering;              // what is changed after signing; empty: nothing
};

// A disk image to be made.
struct ImageContent {
  std::vector<std::string> applications;  // paths in the image; empty: the program's own bundle name
  BundleContent each;
  bool applicationsGiven = false;
  std::map<std::string, std::string> links;  // names at the top level, with what they lead to
  std::vector<std::string> files;            // and plain files

  // `ownVersion` is what a line means that gives no version.
  static ImageContent parse(Arguments& line, const std::string& ownVersion);
};

class Applications : public Part {
 public:
  explicit Applications(Machine& machine);
  ~Applications() override;

  // The installed bundle, and the user's temporary directory.
  [[nodiscard]] const std::filesystem::path& bundle() const { return bundle_; }
  [[nodiscard]] const std::filesystem::path& temporaryDirectory() const { return temporaryDirectory_; }
  // Where the bundle that the running program was launched from is by now: it may have been moved.
  [[nodiscard]] std::filesystem::path runningBundle() const;
  // The running program's Info.plist, as it was when it was first asked for.
  const nlohmann::json& runningInfo();
  static CodeSigners& signers();

  // The file of such an image.
  std::string makeImage(const ImageContent& content);

  void addCommands(Commands& commands) override;
  void processWillStart() override;
  void processEnded(Leaks& leaks) override;
  void snapshot(nlohmann::ordered_json& state) override;

 private:
  void install(const std::filesystem::path& bundle, const BundleContent& content);
  void makeBundle(const std::filesystem::path& folder, const BundleContent& content);

  Machine& machine_;
  std::filesystem::path bundle_;
  std::filesystem::path temporaryDirectory_;
  std::optional<std::string> temporaryDirectoryBefore_;  // the host's own TMPDIR
  std::optional<nlohmann::json> runningInfo_;
  int running_ = -1;  // the running program's bundle, by a file descriptor that follows it
};

}  // namespace simulator
