#include "simulator/system/FileContent.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace simulator {
namespace {

// An open file of the host: streams take several times as long to open as a small file takes to read.
class File {
 public:
  File(const std::filesystem::path& path, int flags) : path_(path), file_(open(path.c_str(), flags | O_CLOEXEC, 0666)) {
    static_cast<void>(check(file_));
  }
  File(const File&) = delete;
  File& operator=(const File&) = delete;
  ~File() { close(file_); }
  [[nodiscard]] int get() const { return file_; }
  // The result of a call, unless it says that it failed.
  [[nodiscard]] std::size_t check(ssize_t result) const {
    if (result < 0) throw std::system_error(errno, std::generic_category(), path_.string());
    return static_cast<std::size_t>(result);
  }

 private:
  const std::filesystem::path& path_;
  int file_;
};

}  // namespace

std::string readFile(const std::filesystem::path& path) {
  const File file(path, O_RDONLY);
  struct stat status{};
  static_cast<void>(file.check(fstat(file.get(), &status)));
  std::string content;
  for (std::size_t size = 0;;) {
    content.resize(size + static_cast<std::size_t>(status.st_size) + 1);
    const std::size_t got = file.check(read(file.get(), content.data() + size, content.size() - size));
    size += got;
    if (got > 0) continue;
    content.resize(size);
    return content;
  }
}

void writeFile(const std::filesystem::path& path, std::string_view content) {
  const File file(path, O_WRONLY | O_CREAT | O_TRUNC);
  while (!content.empty()) content.remove_prefix(file.check(write(file.get(), content.data(), content.size())));
}

}  // namespace simulator
