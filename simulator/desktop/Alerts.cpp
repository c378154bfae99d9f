#include "simulator/desktop/Alerts.h"

#include <algorithm>
#include <utility>

#include "platform/Alert.h"
#include "simulator/machine/Machine.h"
#include "simulator/machine/Object.h"
#include "simulator/scenarios/Commands.h"
#include "simulator/services/CoreFoundation.h"
#include "simulator/services/Foundation.h"
#include "simulator/time/RunLoop.h"

namespace simulator {

std::size_t Alerts::show(const std::string& message, const std::string& informative, std::vector<std::string> buttons) {
  if (buttons.empty()) buttons.emplace_back("OK");
  std::size_t pressed = 0;
  bool answered = false;
  {
    const Scheduler::Lock lock(machine_.scheduler);
    if (const auto answer = std::exchange(answer_, std::nullopt)) {
      const auto button = std::ranges::find(buttons, *answer);
      if (button == buttons.end()) fatal("The alert \"" + message + "\" has no button \"" + *answer + "\"");
      pressed = static_cast<std::size_t>(button - buttons.begin());
    }
    std::string list = "[";
    for (const std::string& button : buttons) list += (list.size() > 1 ? "," : "") + machine_.trace.quote(button);
    machine_.trace.record("alert")
        .text("message", message)
        .text("informative", informative)
        .json("buttons", list + "]")
        .text("answer", buttons[pressed]);
    // The press comes through the event queue, behind or before whatever else the main thread has to do just now.
    machine_.runLoop->post(this, modalPanelMode, [&answered] { answered = true; });
  }
  while (!answered) machine_.runLoop->runOnce(modalPanelMode);
  return pressed;
}

void Alerts::addCommands(Commands& commands) {
  commands.add("answer", [](Arguments& line) -> Action {
    return [button = line.text("button")](Machine& machine) { machine.alerts->answer_ = button; };
  });
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

// A text that the program hands to `call`: no NSString can be made of what is not UTF-8, and AppKit takes no nil.
const std::string& checked(const std::string& text, const char* call) {
  if (!simulator::isUTF8(text)) simulator::fatal(std::string(call) + ": the text is not UTF-8");
  return text;
}

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
  simulator::live<AlertObject>(get(), "NSAlert.setMessageText").message = checked(text, "NSAlert.setMessageText");
}

void Alert::setInformativeText(const std::string& text) const {
  const Call call("NSAlert.setInformativeText", Call::On::mainThread);
  simulator::live<AlertObject>(get(), "NSAlert.setInformativeText").informative =
      checked(text, "NSAlert.setInformativeText");
}

void Alert::addButtonWithTitle(const std::string& title) const {
  const Call call("NSAlert.addButtonWithTitle", Call::On::mainThread);
  simulator::live<AlertObject>(get(), "NSAlert.addButtonWithTitle")
      .buttons.push_back(checked(title, "NSAlert.addButtonWithTitle"));
}

long Alert::runModal() const {
  simulator::Machine& machine = Call("NSAlert.runModal", Call::On::mainThread).machine;
  const auto& alert = simulator::live<AlertObject>(get(), "NSAlert.runModal");
  const std::size_t button = machine.alerts->show(alert.message, alert.informative, alert.buttons);
  return AlertFirstButtonReturn + static_cast<long>(button);
}

}  // namespace NS
