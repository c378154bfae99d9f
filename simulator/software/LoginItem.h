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

  [[nodiscard]] bool registered() const { return registered_; }
  void setRegistered(bool registered) { registered_ = registered; }
  // Whether the user lets it open; switched in the System Settings.
  [[nodiscard]] bool approved() const { return approved_; }
  // What the next change fails with, once.
  std::optional<std::string> takeError();

  void addCommands(Commands& commands) override;
  void snapshot(nlohmann::ordered_json& state) override;

 private:
  bool registered_ = false;
  bool approved_ = true;
  std::optional<std::string> error_;
};

}  // namespace simulator
