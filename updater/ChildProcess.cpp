#include "updater/ChildProcess.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

extern char** environ;

pid_t launch(const std::string& executable, const std::vector<std::string>& arguments) {
  // posix_spawn takes the strings as changeable but does not change them.
  std::vector<char*> argv{const_cast<char*>(executable.c_str())};
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);

  pid_t child = 0;
  const int error = posix_spawn(&child, executable.c_str(), nullptr, nullptr, argv.data(), environ);
  if (error != 0) throw std::system_error(error, std::generic_category(), executable);
  return child;
}

int waitForExit(pid_t child) {
  int status = 0;
  while (waitpid(child, &status, 0) == -1) {
    if (errno != EINTR) throw std::system_error(errno, std::generic_category(), "waitpid");
  }
  return WIFSIGNALED(status) ? WTERMSIG(status) : WEXITSTATUS(status);
}
