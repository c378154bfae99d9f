// kill(1), as far as it asks whether a process is there: kill -0 <pid>.
#include <signal.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string_view>

#include "simulator/tools/Tool.h"

int main(int count, char** words) {
  if (count != 3 || std::string_view(words[1]) != "-0") {
    std::fputs("usage: kill -0 pid\n", stderr);
    return 64;
  }
  // The machine keeps a file for each process. When the machine itself is gone, so are they.
  const char* const machine = std::getenv("SIMULATED_HOST");
  if (!machine || ::kill(static_cast<pid_t>(std::atoi(machine)), 0) != 0) return 1;
  if (std::filesystem::exists(tool::root() / "var/run/processes" / words[2])) return 0;
  std::fprintf(stderr, "kill: %s: No such process\n", words[2]);
  return 1;
}
