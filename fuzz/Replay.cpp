// Runs a target over the inputs of a folder, once each:
//
//   dalvane-fuzz-replay TARGET FOLDER|FILE...
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <vector>

#include "fuzz/Target.h"
#include "simulator/system/FileContent.h"

int main(int count, char** words) {
  namespace fs = std::filesystem;
  const fuzz::Target* const target = count > 2 ? fuzz::Target::find(words[1]) : nullptr;
  if (!target) {
    std::fputs("Usage: dalvane-fuzz-replay TARGET FOLDER|FILE...\n", stderr);
    return 2;
  }
  std::vector<fs::path> files;
  for (int i = 2; i < count; ++i) {
    if (fs::is_directory(words[i])) {
      for (const auto& entry : fs::directory_iterator(words[i])) files.push_back(entry.path());
    } else {
      files.emplace_back(words[i]);
    }
  }
  std::ranges::sort(files);
  target->run("");
  for (const fs::path& file : files) {
    const std::string input = simulator::readFile(file);
    std::fprintf(stderr, "%s\n", file.c_str());
    target->run(input);
  }
  std::printf("%zu inputs\n", files.size());
  return files.empty() ? 1 : 0;
}
