// ditto(1): copies a folder's content into another folder, or a file to another place.
#include <algorithm>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <string>
#include <vector>

#include "simulator/system/Volumes.h"
#include "simulator/tools/Tool.h"

namespace {

namespace fs = std::filesystem;

void copyOne(const fs::path& from, const fs::path& to) {
  if (fs::is_symlink(from)) {
    fs::remove(to);
    fs::copy_symlink(from, to);
  } else if (fs::is_directory(from)) {
    fs::create_directories(to);
    fs::permissions(to, fs::status(from).permissions());
  } else {
    fs::copy_file(from, to, fs::copy_options::overwrite_existing);
  }
}

bool onVolume(const fs::path& path) {
  return std::ranges::any_of(simulator::Volumes(tool::root()).mountPoints(), [&](const fs::path& point) {
    return std::mismatch(point.begin(), point.end(), path.begin(), path.end()).first == point.end();
  });
}

}  // namespace

int main(int count, char** words) {
  if (count != 3) {
    std::fputs("Usage: ditto <src> <dst>\n", stderr);
    return 64;
  }
  const fs::path source = words[1];
  const fs::path destination = words[2];
  try {
    if (!fs::exists(source)) {
      std::fprintf(stderr, "ditto: can't get real path for source '%s'\n", words[1]);
      return 1;
    }
    if (onVolume(destination)) {
      std::fprintf(stderr, "ditto: %s: Read-only file system\n", words[2]);
      return 1;
    }
    // A link given as the source stands for what it leads to.
    const fs::path from = fs::canonical(source);
    std::vector<fs::path> paths{from};
    if (fs::is_directory(from)) {
      for (const fs::directory_entry& entry : fs::recursive_directory_iterator(from)) paths.push_back(entry.path());
    }
    std::ranges::sort(paths);
    // A copy that is told how to end gets half-way.
    const auto fault = tool::fault();
    if (fault) paths.resize(paths.size() / 2);
    for (const fs::path& path : paths) {
      copyOne(path, path == from ? destination : destination / path.lexically_relative(from));
    }
    if (fault) tool::end(*fault);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "ditto: %s\n", error.what());
    return 1;
  }
  return 0;
}
