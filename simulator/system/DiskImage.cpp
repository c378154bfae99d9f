#include "simulator/system/DiskImage.h"

#include <zlib.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "simulator/system/FileContent.h"

namespace simulator {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t trailerSize = 512;
constexpr std::string_view signature = "koly";

std::uint32_t checksum(std::string_view data) {
  return static_cast<std::uint32_t>(crc32_z(0, reinterpret_cast<const Bytef*>(data.data()), data.size()));
}

// Numbers are 64 bits, most significant byte first.
void appendNumber(std::string& out, std::uint64_t value) {
  for (int shift = 56; shift >= 0; shift -= 8) out += static_cast<char>((value >> shift) & 0xff);
}

void appendText(std::string& out, std::string_view text) {
  appendNumber(out, text.size());
  out += text;
}

class Reader {
 public:
  explicit Reader(std::string_view data) : rest_(data) {}

  [[nodiscard]] bool atEnd() const { return rest_.empty(); }
  std::string_view take(std::uint64_t size) {
    if (size > rest_.size()) throw BadImage("image data corrupted");
    const std::string_view result = rest_.substr(0, size);
    rest_.remove_prefix(size);
    return result;
  }
  std::uint64_t number() {
    std::uint64_t value = 0;
    for (const char c : take(8)) value = value << 8 | static_cast<unsigned char>(c);
    return value;
  }
  std::string_view text() { return take(number()); }

 private:
  std::string_view rest_;
};

// Where a record's file goes; a name that leads out of the folder, or through or to a link, is refused.
fs::path placeBelow(const fs::path& folder, std::string_view name, bool hasLinks) {
  const fs::path relative(name);
  if (relative.is_absolute()) throw BadImage("image data corrupted");
  fs::path path = folder;
  for (const fs::path& part : relative) {
    path /= part;
    if (part == ".." || (hasLinks && fs::is_symlink(path))) throw BadImage("image data corrupted");
  }
  return path;
}

enum class Kind : char { folder = 'd', file = 'f', link = 'l' };

}  // namespace

std::string makeDiskImage(const fs::path& folder) {
  std::vector<fs::path> paths;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder)) paths.push_back(entry.path());
  std::ranges::sort(paths);  // parents before children, the same on every host

  std::string data;
  for (const fs::path& path : paths) {
    const fs::file_status status = fs::symlink_status(path);
    const Kind kind = fs::is_symlink(status) ? Kind::link : fs::is_directory(status) ? Kind::folder : Kind::file;
    data += static_cast<char>(kind);
    appendNumber(data, static_cast<std::uint64_t>(status.permissions()));
    appendText(data, path.lexically_relative(folder).string());
    if (kind == Kind::link) appendText(data, fs::read_symlink(path).string());
    if (kind == Kind::file) appendText(data, readFile(path));
  }

  std::string trailer(signature);
  appendNumber(trailer, data.size());
  appendNumber(trailer, checksum(data));
  trailer.resize(trailerSize, '\0');
  return data + trailer;
}

void extractDiskImage(std::string_view image, const fs::path& folder) {
  if (image.size() < trailerSize) throw BadImage("image not recognized");
  std::string_view data = image.substr(0, image.size() - trailerSize);
  Reader trailer(image.substr(data.size()));
  if (trailer.take(signature.size()) != signature || trailer.number() != data.size()) {
    throw BadImage("image not recognized");
  }
  if (trailer.number() != checksum(data)) throw BadImage("image data corrupted");

  Reader reader(data);
  bool hasLinks = false;
  while (!reader.atEnd()) {
    const Kind kind{reader.take(1).front()};
    const auto permissions = static_cast<fs::perms>(reader.number());
    const fs::path path = placeBelow(folder, reader.text(), hasLinks);
    switch (kind) {
      case Kind::folder:
        fs::create_directory(path);
        break;
      case Kind::link:
        fs::create_symlink(fs::path(reader.text()), path);
        hasLinks = true;
        break;
      case Kind::file:
        writeFile(path, reader.text());
        if (permissions != fs::perms(0644)) fs::permissions(path, permissions);
        break;
      default:
        throw BadImage("image data corrupted");
    }
  }
}

}  // namespace simulator
