// The desk page: a web server for this computer alone, with the simulated Mac behind it.
#pragma once

#include <functional>
#include <ostream>
#include <string>
#include <string_view>

struct ServeOptions {
  int port = 4417;                         // 0: any that is free
  std::string program = "/proc/self/exe";  // this executable
};

// Whether the text is a seed, as `dalvane-desk play` takes it.
using IsSeed = std::function<bool(std::string_view)>;

// Serves until the process is interrupted. The address goes to `out`. The exit status of `dalvane-desk serve`: 0; 1
// when the port is taken or nothing can be started, with the reason on `errors`.
int serve(const ServeOptions& options, const IsSeed& isSeed, std::ostream& out, std::ostream& errors);
