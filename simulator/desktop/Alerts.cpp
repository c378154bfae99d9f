#include "simulator/desktop/Alerts.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>

#include "platform/Alert.h"
#include "simulator/foundation/CoreFoundation.h"
#include "simulator/foundation/Foundation.h"
#include "simulator/foundation/RunLoop.h"
#include "simulator/kernel/Call.h"
#include "simulator/kernel/Commands.h"
#include "simulator/kernel/Object.h"

namespace simulator {
namespace {

std::string listOf(const Trace& trace, const std::vector<std::string>& texts) {
  std::string list = "[";
  for (const std::string& text : texts) list += (list.size() > 1 ? "," : "") + trace.quote(text);
  return list + "]";
}

}  // namespace

std::size_t Alerts::show(std::string message, std::string informative, std::vector<std::string> buttons) {
  if (buttons.empty()) buttons.emplace_back("OK");
  Open alert{.message = std::move(message),
             .informative = std::move(informative),
             .buttons = std::move(buttons),
             .leftOpen = false,
             .pressed = std::nullopt};
  // In front of the others for as long as it is open, and gone also when the process ends meanwhile.
  struct InFront {
    InFront(Machine& on, std::vector<Open*>& alerts, Open& alert) : machine(on), open(alerts) {
      const Scheduler::Lock lock(machine.scheduler);
      open.push_back(&alert);
    }
    ~InFront() {
      const Scheduler::Lock lock(machine.scheduler);
      open.pop_back();
    }
    InFront(const InFront&) = delete;
    InFront& operator=(const InFront&) = delete;
    Machine& machine;
    std::vector<Open*>& open;
  };
  const InFront inFront(machine_, open_, alert);
  {
    const Scheduler::Lock lock(machine_.scheduler);
    const Answer answer = std::exchange(answer_, {});
    auto button = buttonNamed(alert, answer);
    if (!button) {
      machine_.noteMistake("the alert \"" + alert.message + "\" has no button \"" + *answer.button + "\"");
      button = 0;
    }
    alert.leftOpen = answer.leavesOpen;
    auto record = machine_.trace.record("alert");
    record.text("message", alert.message)
        .text("informative", alert.informative)
        .json("buttons", listOf(machine_.trace, alert.buttons));
    if (alert.leftOpen) {
      record.json("answer", "null");
    } else {
      record.text("answer", alert.buttons[*button]);
      press(alert, *button);
    }
  }
  while (!alert.pressed) runLoop_.runOnce(modalPanelMode);
  return *alert.pressed;
}

// The index of the button that the answer means; none when the alert does not have it.
std::optional<std::size_t> Alerts::buttonNamed(const Open& alert, const Answer& answer) {
  if (!answer.button) return 0;
  const auto found = std::ranges::find(alert.buttons, *answer.button);
  if (found == alert.buttons.end()) return std::nullopt;
  return static_cast<std::size_t>(found - alert.buttons.begin());
}

// The press comes through the event queue, behind or before whatever else the main thread has to do just now.
void Alerts::press(Open& alert, std::size_t button) {
  runLoop_.post(this, modalPanelMode, [this, &alert, button] {
    const Scheduler::Lock lock(machine_.scheduler);
    if (std::ranges::find(open_, &alert) == open_.end() || alert.pressed) return;  // it has been answered meanwhile
    alert.pressed = button;
    if (alert.leftOpen) {
      machine_.trace.record("answer").text("message", alert.message).text("button", alert.buttons[button]);
    }
  });
}

void Alerts::answer(const Answer& answer) {
  const Scheduler::Lock lock(machine_.scheduler);
  if (open_.empty() || answer.leavesOpen) {
    answer_ = answer;
    return;
  }
  Open& alert = *open_.back();
  const auto button = buttonNamed(alert, answer);
  if (!button) throw ScenarioError("the open alert has no button \"" + *answer.button + "\"");
  press(alert, *button);
}

void Alerts::dismiss() {
  const Scheduler::Lock lock(machine_.scheduler);
  if (!open_.empty()) press(*open_.back(), open_.back()->buttons.size() - 1);
}

void Alerts::addCommands(Commands& commands) {
  commands.add("answer", [this](Arguments& line) -> Action {
    if (line.flag("dismiss", false)) return [this] { dismiss(); };
    Answer answer;
    if (line.has("button")) {
      answer.leavesOpen = line.json("button").is_null();
      if (!answer.leavesOpen) answer.button = line.text("button");
    }
    return [this, answer] { this->answer(answer); };
  });
}

void Alerts::snapshot(nlohmann::ordered_json& state) {
  state["alert"] = nullptr;
  if (open_.empty()) return;
  const Open& alert = *open_.back();
  state["alert"] = {{"message", alert.message}, {"informative", alert.informative}, {"buttons", alert.buttons}};
}

}  // namespace simulator

// ---- NSAlert ----

namespace NS {
namespace {

using simulator::Call;

struct AlertObject : simulator::Object {
  std::string_view kind() const override { return "NSAlert"; }

  std::string message;
  std::string informative;
  std::vector<std::string> buttons;
};

}  // namespace

Alert Alert::make() {
  const Call call("NSAlert.init", Call::On::mainThread);
  return Alert(CF::adopt(static_cast<CFTypeRef>(new AlertObject)));
}

Alert Alert::alertWithError(const Error& error) {
  const Call call("NSAlert.alertWithError", Call::On::mainThread);
  auto* const alert = new AlertObject;
  alert->message = simulator::live<simulator::ErrorObject>(error.get(), "NSAlert.alertWithError").text;
  return Alert(CF::adopt(static_cast<CFTypeRef>(alert)));
}

void Alert::setMessageText(const std::string& text) const {
  const Call call("NSAlert.setMessageText", Call::On::mainThread);
  simulator::live<AlertObject>(get(), "NSAlert.setMessageText").message =
      simulator::requireUTF8(text, "NSAlert.setMessageText");
}

void Alert::setInformativeText(const std::string& text) const {
  const Call call("NSAlert.setInformativeText", Call::On::mainThread);
  simulator::live<AlertObject>(get(), "NSAlert.setInformativeText").informative =
      simulator::requireUTF8(text, "NSAlert.setInformativeText");
}

void Alert::addButtonWithTitle(const std::string& title) const {
  const Call call("NSAlert.addButtonWithTitle", Call::On::mainThread);
  simulator::live<AlertObject>(get(), "NSAlert.addButtonWithTitle")
      .buttons.push_back(simulator::requireUTF8(title, "NSAlert.addButtonWithTitle"));
}

long Alert::runModal() const {
  simulator::Machine& machine = Call("NSAlert.runModal", Call::On::mainThread).machine;
  const auto& alert = simulator::live<AlertObject>(get(), "NSAlert.runModal");
  const std::size_t button = machine.part<simulator::Alerts>().show(alert.message, alert.informative, alert.buttons);
  return AlertFirstButtonReturn + static_cast<long>(button);
}

}  // namespace NS
