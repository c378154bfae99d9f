#include "simulator/system/HostProcesses.h"

#include <fcntl.h>
#include <spawn.h>
#include <unistd.h>

#include <algorithm>

namespace simulator {
namespace {

class FileActions {
 public:
  explicit FileActions(const HostProcess& process) {
    posix_spawn_file_actions_init(&actions_);
    if (gets(process, STDIN_FILENO)) {
      posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    }
    if (gets(process, STDOUT_FILENO)) posix_spawn_file_actions_adddup2(&actions_, STDERR_FILENO, STDOUT_FILENO);
    if (!process.closeOthers) return;
    int next = 0;
    std::vector<int> passed = process.passed;
    std::ranges::sort(passed);
    for (const int file : passed) {
      while (next < file) posix_spawn_file_actions_addclose(&actions_, next++);
      next = file + 1;
    }
    posix_spawn_file_actions_addclosefrom_np(&actions_, next);
  }
  FileActions(const FileActions&) = delete;
  FileActions& operator=(const FileActions&) = delete;
  ~FileActions() { posix_spawn_file_actions_destroy(&actions_); }
  [[nodiscard]] const posix_spawn_file_actions_t* get() const { return &actions_; }

 private:
  static bool gets(const HostProcess& process, int file) {
    return !process.closeOthers || std::ranges::find(process.passed, file) != process.passed.end();
  }

  posix_spawn_file_actions_t actions_;
};

class Attributes {
 public:
  explicit Attributes(const HostProcess& process) {
    posix_spawnattr_init(&attributes_);
    posix_spawnattr_setflags(&attributes_, static_cast<short>(POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF |
                                                              (process.ownGroup ? POSIX_SPAWN_SETPGROUP : 0)));
    posix_spawnattr_setsigmask(&attributes_, &process.blocked);
    posix_spawnattr_setsigdefault(&attributes_, &process.reset);
  }
  Attributes(const Attributes&) = delete;
  Attributes& operator=(const Attributes&) = delete;
  ~Attributes() { posix_spawnattr_destroy(&attributes_); }
  [[nodiscard]] const posix_spawnattr_t* get() const { return &attributes_; }

 private:
  posix_spawnattr_t attributes_;
};

// posix_spawn takes the texts as changeable but does not change them.
std::vector<char*> pointers(const std::vector<std::string>& texts) {
  std::vector<char*> result;
  for (const std::string& text : texts) result.push_back(const_cast<char*>(text.c_str()));
  result.push_back(nullptr);
  return result;
}

}  // namespace

int startOnHost(const HostProcess& process, pid_t& identifier) {
  return posix_spawn(&identifier, process.path.c_str(), FileActions(process).get(), Attributes(process).get(),
                     pointers(process.words).data(), pointers(process.environment).data());
}

}  // namespace simulator
