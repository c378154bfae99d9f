// Processes of the host, started as the host starts them: with its own <spawn.h>, not with the Mac's.
#pragma once

#include <signal.h>
#include <sys/types.h>

#include <string>
#include <vector>

namespace simulator {

struct HostProcess {
  std::string path;
  std::vector<std::string> words;        // argv
  std::vector<std::string> environment;  // as "NAME=value"
  bool ownGroup = false;                 // leads a process group of its own
  sigset_t blocked{};                    // its signal mask
  sigset_t reset{};                      // signals that have their default disposition, whatever that is here
  bool closeOthers = false;              // whether it gets only those of this process's files that are `passed`
  std::vector<int> passed;
};

// Starts it; answers 0 and the identifier, or the errno. Standard input is the null device and standard output is
// standard error: the host's standard output is the trace's.
int startOnHost(const HostProcess& process, pid_t& identifier);

}  // namespace simulator
