// Alerts, and the user who answers them.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "simulator/machine/Part.h"

namespace simulator {

class Machine;

class Alerts : public Part {
 public:
  explicit Alerts(Machine& machine) : machine_(machine) {}

  // Shows an alert on the main thread until the user has pressed a button; its index.
  std::size_t show(const std::string& message, const std::string& informative, std::vector<std::string> buttons);

  void addCommands(Commands& commands) override;

 private:
  Machine& machine_;
  std::optional<std::string> answer_;  // what the user will press next
};

}  // namespace simulator
