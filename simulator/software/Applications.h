// What is installed: the program's bundle as a folder, its signature, and the images that newer versions come in.
#pragma once

#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "simulator/kernel/Part.h"
#include "simulator/software/CodeSignature.h"

namespace simulator {

class Arguments;
class Machine;
class SystemRoot;
struct Program;

// One application bundle to be made.
struct BundleContent {
  nlohmann::json version;                      // CFBundleShortVersionString; null: left out
  std::optional<std::string> identifier = "";  // CFBundleIdentifier; empty: the program's own, none: left out
  std::optional<std::string> signer;           // none: not signed
  bool forged = false;                         // the signer's certificate is a forger's
  std::string tampering;                       // what is changed after signing; empty: nothing
};

// A disk image to be made.
struct ImageContent {
  std::vector<std::string> applications;  // paths in the image; empty: the program's own bundle name
  BundleContent each;
  bool applicationsGiven = false;
  std::map<std::string, std::string> links;  // names at the top level, with what they lead to
  std::vector<std::string> files;            // and plain files

  // What a line leaves out is as the program has it.
  static ImageContent parse(Arguments& line, const Program& program);
};

class Applications : public Part {
 public:
  Applications(Machine& machine, SystemRoot& root);
  ~Applications() override;

  // The installed bundle.
  [[nodiscard]] const std::filesystem::path& bundle() const { return bundle_; }
  // Where it lay when the running program was launched, which is where that takes itself to be for good.
  [[nodiscard]] const std::filesystem::path& launchedBundle() const { return launched_; }
  [[nodiscard]] bool isInstalled(const std::filesystem::path& application) const;
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
  // Moves the installed bundle there: one of the places that a `bundle` line knows.
  void place(const std::string& place, const BundleContent& content);
  void makeBundle(const std::filesystem::path& folder, const BundleContent& content);
  static void makeBundle(const std::filesystem::path& folder, const BundleContent& content, const Program& program);

  Machine& machine_;
  SystemRoot& root_;
  std::filesystem::path bundle_;
  std::filesystem::path launched_;
  std::optional<nlohmann::json> runningInfo_;
  int running_ = -1;  // the running program's bundle, by a file descriptor that follows it
};

}  // namespace simulator
