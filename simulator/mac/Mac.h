// The simulated Mac, put together.
#pragma once

#include "simulator/kernel/Machine.h"

namespace simulator {

class Mac : public Machine {
 public:
  Mac(Program program, Options options);

  // Quits the program if it runs, and writes the leak records. True when nothing was left alive.
  bool shutDown();
};

}  // namespace simulator
