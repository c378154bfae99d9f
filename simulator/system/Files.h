// The line between the program's use of files and the machine's own.
#pragma once

namespace simulator {

class Faults;

// While one lives, what its thread does with files is the machine's doing, also on a thread of the program. No other
// thread may be chosen meanwhile.
class MachineAtWork {
 public:
  MachineAtWork() { ++depth_; }
  MachineAtWork(const MachineAtWork&) = delete;
  MachineAtWork& operator=(const MachineAtWork&) = delete;
  ~MachineAtWork() { --depth_; }

  [[nodiscard]] static bool here() { return depth_ > 0; }

 private:
  static thread_local int depth_;
};

// The file operations that can be made to fail; the status is the errno.
void declareFileFaults(Faults& faults);

}  // namespace simulator
