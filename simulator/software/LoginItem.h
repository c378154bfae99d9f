// The program as a login item.
#pragma once

#include <optional>
#include <string>

#include "simulator/kernel/Part.h"

namespace simulator {

class Machine;

class LoginItem : public Part {
 public:
  explicit LoginItem(Machine& machine);

  [[nodiscard]] bool enabled() const { return enabled_; }
  // What the next change fails with, once.
  std::optional<std::string> takeError();
  void setEnabled(bool enabled) { enabled_ = enabled; }

  void addCommands(Commands& commands) override;
  void snapshot(nlohmann::ordered_json& state) override;

 private:
  bool enabled_ = false;
  std::optional<std::string> error_;
};

}  // namespace simulator
