// Code of the program that a real-time thread runs: it must not call the machine, and so cannot wait, log or count
// references either.
#pragma once

namespace simulator {

// Marks the calling thread for as long as it lives.
class RealTime {
 public:
  RealTime() { active_ = true; }
  ~RealTime() { active_ = false; }
  RealTime(const RealTime&) = delete;
  RealTime& operator=(const RealTime&) = delete;

  [[nodiscard]] static bool active() { return active_; }

 private:
  static inline thread_local bool active_ = false;
};

}  // namespace simulator
