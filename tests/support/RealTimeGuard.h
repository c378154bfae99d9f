// Counts what a real-time thread must not do: allocations and locks of the calling thread while a guard lives, and
// while the machine runs an I/O callback on it.
#pragma once

#include <cstddef>

class RealTimeGuard {
 public:
  RealTimeGuard();
  ~RealTimeGuard();
  RealTimeGuard(const RealTimeGuard&) = delete;
  RealTimeGuard& operator=(const RealTimeGuard&) = delete;

  static void reset();
  [[nodiscard]] static std::size_t allocations();
  [[nodiscard]] static std::size_t locks();
};
