// hdiutil(1): attaches and detaches disk images.
#include <algorithm>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "simulator/system/Volumes.h"
#include "simulator/tools/Tool.h"

namespace {

// Whether -quiet was given: then the exit status says it all.
bool quiet = false;

int fail(const char* verb, const char* reason) {
  if (!quiet) std::fprintf(stderr, "hdiutil: %s failed - %s\n", verb, reason);
  return 1;
}

int usage() {
  std::fputs(
      "Usage: hdiutil attach <image> -mountpoint <path> -nobrowse -readonly [-quiet]\n"
      "       hdiutil detach <mountpoint> [-force] [-quiet]\n",
      stderr);
  return 1;
}

int attach(const std::vector<std::string>& arguments) {
  std::optional<std::string> image;
  std::optional<std::string> mountPoint;
  bool readOnly = false;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string& argument = arguments[i];
    if (argument == "-mountpoint" && i + 1 < arguments.size())
      mountPoint = arguments[++i];
    else if (argument == "-readonly")
      readOnly = true;
    else if (argument == "-nobrowse" || argument == "-quiet")
      continue;
    else if (argument.starts_with('-') || image)
      return usage();
    else
      image = argument;
  }
  // Other ways to attach an image are not simulated.
  if (!image || !mountPoint || !readOnly) return usage();
  if (!std::filesystem::is_directory(*mountPoint)) return fail("attach", "No such file or directory");
  try {
    simulator::Volumes(tool::root()).attach(*image, *mountPoint);
  } catch (const std::exception& error) {
    return fail("attach", error.what());
  }
  return 0;
}

int detach(const std::vector<std::string>& arguments) {
  std::optional<std::string> mountPoint;
  for (const std::string& argument : arguments) {
    if (argument == "-force" || argument == "-quiet") continue;
    if (argument.starts_with('-') || mountPoint) return usage();
    mountPoint = argument;
  }
  if (!mountPoint) return usage();
  return simulator::Volumes(tool::root()).detach(*mountPoint) ? 0 : fail("detach", "No such file or directory");
}

}  // namespace

int main(int count, char** words) {
  if (const auto status = tool::fault()) tool::end(*status);
  std::vector<std::string> arguments(words + 1, words + count);
  if (arguments.empty()) return usage();
  quiet = std::ranges::find(arguments, "-quiet") != arguments.end();
  const std::string verb = arguments.front();
  arguments.erase(arguments.begin());
  if (verb == "attach") return attach(arguments);
  if (verb == "detach") return detach(arguments);
  return usage();
}
