#include "simulator/system/FileContent.h"

#include <cerrno>
#include <fstream>
#include <iterator>
#include <system_error>

namespace simulator {

std::string readFile(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::system_error(errno, std::generic_category(), path.string());
  return {std::istreambuf_iterator<char>(file), {}};
}

void writeFile(const std::filesystem::path& path, std::string_view content) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file.write(content.data(), static_cast<std::streamsize>(content.size()));
  file.close();
  if (!file) throw std::system_error(errno, std::generic_category(), path.string());
}

}  // namespace simulator
