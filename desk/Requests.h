// What comes to the desk page's server from outside, taken for what it is. Any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

// Whether a request with these headers is for the server at that port of this computer, and from its own page or none:
// a page of somebody else, also one whose name has been made to point here, is not to reach the machine.
bool isForThisDesk(const std::vector<std::string>& hosts, const std::vector<std::string>& origins, int port);

// The body of POST /do as one line.
std::string lineOf(std::string_view body);

// The body of POST /begin.
struct Beginning {
  bool isFurnished;
  std::string seed;  // not yet known to be one
};
std::optional<Beginning> beginningOf(std::string_view body);
