// Disk images: their data as it is, with a trailer that fits, or whole files. Beyond not crashing: nothing is ever laid
// out, or changed, beside the folder that it is to go to; what can be laid out can be packed again, and that image lays
// out the same.
#include <unistd.h>
#include <zlib.h>

#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <string>

#include "fuzz/Target.h"
#include "simulator/system/DiskImage.h"
#include "simulator/system/FileContent.h"

namespace {

namespace fs = std::filesystem;

// A folder of this process, gone with it.
struct Scratch {
  Scratch() {
    std::string pattern = (fs::temp_directory_path() / "fuzz-XXXXXX").string();
    fuzz::require(mkdtemp(pattern.data()) != nullptr, "there is room for a folder");
    path = pattern;
  }
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;
  ~Scratch() {
    std::error_code ignored;
    fs::remove_all(path, ignored);
  }
  fs::path path;
};

std::string imageOf(std::string_view data) {
  std::string image(data);
  const auto append = [&image](std::uint64_t number) {
    for (int shift = 56; shift >= 0; shift -= 8) image += static_cast<char>(number >> shift & 0xff);
  };
  image += "koly";
  append(data.size());
  append(crc32_z(0, reinterpret_cast<const Bytef*>(data.data()), data.size()));
  image.resize(data.size() + 512, '\0');
  return image;
}

// Everything may be looked at and removed again, whatever the image said.
void openUp(const fs::path& folder) {
  for (auto each = fs::recursive_directory_iterator(folder); each != fs::recursive_directory_iterator(); ++each) {
    if (!each->is_symlink()) fs::permissions(each->path(), fs::perms::owner_all, fs::perm_options::add);
  }
}

bool laidOut(const std::string& image, const fs::path& folder) {
  fs::remove_all(folder);
  fs::create_directory(folder);
  bool isWhole = false;
  try {
    simulator::extractDiskImage(image, folder);
    isWhole = true;
  } catch (const simulator::BadImage&) {
  } catch (const std::system_error&) {
  }
  openUp(folder);
  return isWhole;
}

const fuzz::Target target("DiskImages", [](std::string_view bytes) {
  static const Scratch scratch;
  static const fs::path outside = scratch.path / "outside";
  if (fs::create_directory(outside)) simulator::writeFile(outside / "file", "untouched");
  fuzz::Input input(bytes);
  const bool isWholeFile = input.number<unsigned char>() == 'w';
  const std::string image = isWholeFile ? std::string(input.rest()) : imageOf(input.rest());
  const fs::path folder = scratch.path / "volume";
  const bool isWhole = laidOut(image, folder);
  const auto count = [](const fs::path& where) {
    return std::distance(fs::directory_iterator(where), fs::directory_iterator());
  };
  fuzz::require(count(scratch.path) == 2 && count(outside) == 1 && simulator::readFile(outside / "file") == "untouched",
                "nothing is laid out beside the folder");
  if (!isWhole) return;
  const std::string packed = simulator::makeDiskImage(folder);
  fuzz::require(laidOut(packed, folder), "what was laid out and packed again can be laid out");
  fuzz::require(simulator::makeDiskImage(folder) == packed, "an image lays out what was packed");
});

}  // namespace
