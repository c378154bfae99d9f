#include "simulator/system/Volumes.h"

#include <system_error>

#include "simulator/system/DiskImage.h"
#include "simulator/system/FileContent.h"

namespace simulator {
namespace fs = std::filesystem;

void Volumes::attach(const fs::path& image, const fs::path& mountPoint) const {
  const std::string content = readFile(image);
  fs::create_directories(table_);
  fs::path entry;
  for (int number = 1;; ++number) {
    entry = table_ / std::to_string(number);
    if (fs::create_directory(entry)) break;
  }
  try {
    fs::rename(mountPoint, entry / "covered");
    fs::create_directory(mountPoint);
    extractDiskImage(content, mountPoint);
    writeFile(entry / "point", mountPoint.string());
  } catch (...) {
    std::error_code ignored;
    if (fs::exists(entry / "covered")) {
      fs::remove_all(mountPoint, ignored);
      fs::rename(entry / "covered", mountPoint, ignored);
    }
    fs::remove_all(entry, ignored);
    throw;
  }
}

bool Volumes::detach(const fs::path& mountPoint) const {
  std::error_code ignored;
  for (const fs::directory_entry& entry : fs::directory_iterator(table_, ignored)) {
    if (!fs::exists(entry.path() / "point") || readFile(entry.path() / "point") != mountPoint) continue;
    fs::remove_all(mountPoint);
    fs::rename(entry.path() / "covered", mountPoint);
    fs::remove_all(entry.path());
    return true;
  }
  return false;
}

std::vector<fs::path> Volumes::mountPoints() const {
  std::vector<fs::path> result;
  std::error_code ignored;
  for (const fs::directory_entry& entry : fs::directory_iterator(table_, ignored)) {
    if (fs::exists(entry.path() / "point")) result.emplace_back(readFile(entry.path() / "point"));
  }
  return result;
}

}  // namespace simulator
