#include "updater/ChildProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

extern char** environ;

namespace {

void check(int error, const std::string& what) {
  if (error != 0) throw std::system_error(error, std::generic_category(), what);
}

struct Attributes {
  Attributes() { check(posix_spawnattr_init(&value), "posix_spawnattr_init"); }
  Attributes(const Attributes&) = delete;
  Attributes& operator=(const Attributes&) = delete;
  ~Attributes() { posix_spawnattr_destroy(&value); }
  posix_spawnattr_t value{};
};

struct FileActions {
  FileActions() { check(posix_spawn_file_actions_init(&value), "posix_spawn_file_actions_init"); }
  FileActions(const FileActions&) = delete;
  FileActions& operator=(const FileActions&) = delete;
  ~FileActions() { posix_spawn_file_actions_destroy(&value); }
  posix_spawn_file_actions_t value{};
};

}  // namespace

pid_t launch(const std::string& executable, const std::vector<std::string>& arguments) {
  // posix_spawn takes the strings as changeable but does not change them.
  std::vector<char*> argv{const_cast<char*>(executable.c_str())};
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);

  // A worker thread has most signals blocked, a signal that is ignored stays so across an exec, and every file that
  // this process has open would be open in the child. A group of its own keeps signals for our group away from it.
  Attributes attributes;
  sigset_t none;
  sigset_t all;
  sigemptyset(&none);
  sigfillset(&all);
  check(posix_spawnattr_setflags(&attributes.value, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK |
                                                        POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_CLOEXEC_DEFAULT),
        "posix_spawnattr_setflags");
  check(posix_spawnattr_setsigmask(&attributes.value, &none), "posix_spawnattr_setsigmask");
  check(posix_spawnattr_setsigdefault(&attributes.value, &all), "posix_spawnattr_setsigdefault");

  FileActions actions;
  for (const int file : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    // A file that is not open cannot be passed on.
    if (fcntl(file, F_GETFD) == -1) continue;
    check(posix_spawn_file_actions_addinherit_np(&actions.value, file), "posix_spawn_file_actions_addinherit_np");
  }

  pid_t child = 0;
  check(posix_spawn(&child, executable.c_str(), &actions.value, &attributes.value, argv.data(), environ), executable);
  return child;
}

int waitForExit(pid_t child) {
  int status = 0;
  while (waitpid(child, &status, 0) == -1) {
    if (errno != EINTR) throw std::system_error(errno, std::generic_category(), "waitpid");
  }
  return WIFSIGNALED(status) ? WTERMSIG(status) : WEXITSTATUS(status);
}
