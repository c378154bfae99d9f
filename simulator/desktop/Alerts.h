// Alerts, and the user who answers them.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "simulator/kernel/Part.h"

namespace simulator {

class Machine;
class RunLoop;

class Alerts : public Part {
 public:
  Alerts(Machine& machine, RunLoop& runLoop) : machine_(machine), runLoop_(runLoop) {}

  // Shows an alert on the main thread until the user has pressed a button; its index.
  std::size_t show(std::string message, std::string informative, std::vector<std::string> buttons);
  [[nodiscard]] bool isOpen() const { return !open_.empty(); }
  // The user presses the last button of the alert that is open: the one that asks for least.
  void dismiss();

  void addCommands(Commands& commands) override;
  void snapshot(nlohmann::ordered_json& state) override;

 private:
  // An alert that the program waits for.
  struct Open {
    std::string message;
    std::string informative;
    std::vector<std::string> buttons;
    bool leftOpen = false;  // until the user is told what to press
    std::optional<std::size_t> pressed;
  };
  // What the user will do with the next alert; the first button is pressed when nothing is said.
  struct Answer {
    bool leavesOpen = false;
    std::optional<std::string> button;
  };

  [[nodiscard]] static std::optional<std::size_t> buttonNamed(const Open& alert, const Answer& answer);
  void answer(const Answer& answer);
  void press(Open& alert, std::size_t button);

  Machine& machine_;
  RunLoop& runLoop_;
  Answer answer_;
  std::vector<Open*> open_;  // the last one is in front
};

}  // namespace simulator
