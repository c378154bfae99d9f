// Child processes.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

// Starts the program at the path `executable` with `arguments` (without the program's own name), and returns the child's
// identifier. The child has this process's environment and its standard input, output and error, and nothing else of it:
// no other file, no signal that is blocked or ignored; and it leads a process group of its own. Throws std::system_error
// when it cannot be started. Usable from any thread.
pid_t launch(const std::string& executable, const std::vector<std::string>& arguments);

// Waits until the child has ended and returns its exit status, or the number of the signal that ended it. Throws
// std::system_error when there is no such child.
int waitForExit(pid_t child);
