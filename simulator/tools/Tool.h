// What the simulated system's command-line tools share: the environment that the machine starts them in.
#pragma once

#include <signal.h>

#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>

namespace tool {

// The simulated system's root folder.
inline std::filesystem::path root() {
  const char* const value = std::getenv("SIMULATED_ROOT");
  if (!value) std::exit(70);
  return value;
}

// The status that this run has been told to end with, if it is: a negative one is a signal's number.
inline std::optional<int> fault() {
  const char* const value = std::getenv("SIMULATED_FAULT");
  if (!value) return std::nullopt;
  return std::atoi(value);
}

// Ends with such a status.
[[noreturn]] inline void end(int status) {
  if (status < 0) raise(-status);
  std::_Exit(status);
}

}  // namespace tool
