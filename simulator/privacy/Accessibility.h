// The user's consent to control the computer.
#pragma once

#include <functional>
#include <utility>

#include "simulator/kernel/Part.h"

namespace simulator {

class Machine;

class Accessibility : public Part {
 public:
  explicit Accessibility(Machine& machine);

  [[nodiscard]] bool granted() const { return granted_; }

  // Who is told when the permission is taken away.
  void onLost(std::function<void()> told) { onLost_ = std::move(told); }

  void addCommands(Commands& commands) override;

 private:
  bool granted_ = true;
  std::function<void()> onLost_;
};

}  // namespace simulator
