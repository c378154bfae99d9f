// What a program that has been led off to a simulated bus (WireDevice.cpp) and the bus itself (MonitorJudge.cpp) say to
// each other over a socket.
#pragma once

#include <cstdint>

namespace wire {

// The environment variable that has the number of the program's end of the socket.
inline constexpr const char* socketVariable = "SIMULATED_WIRE";

enum class What : std::uint32_t { write, read, sleep };

// `count` bytes follow what is written. Of the others, it says how many bytes are wanted, or how many microseconds the
// program sleeps.
struct Request {
  What what;
  std::uint32_t chip;
  std::uint32_t count;
};

// The bytes that were wanted follow, if there is no error.
struct Answer {
  std::int32_t error;  // an errno, or 0
};

}  // namespace wire
