// The user's consent to control the computer.
#pragma once

#include "simulator/machine/Part.h"

namespace simulator {

class Machine;

class Accessibility : public Part {
 public:
  explicit Accessibility(Machine& machine);

  [[nodiscard]] bool granted() const { return granted_; }

  void addCommands(Commands& commands) override;

 private:
  bool granted_ = true;
};

}  // namespace simulator
