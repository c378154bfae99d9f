#include "simulator/desktop/Accessibility.h"

#include <ApplicationServices/ApplicationServices.h>

#include "simulator/desktop/EventStream.h"
#include "simulator/machine/Machine.h"
#include "simulator/scenarios/Commands.h"
#include "simulator/services/CoreFoundation.h"

namespace simulator {

Accessibility::Accessibility(Machine& machine) {
  machine.faults.declare({"AXIsProcessTrustedWithOptions", "AXIsProcessTrusted"});
}

void Accessibility::addCommands(Commands& commands) {
  commands.add("accessibility", [](Arguments& line) -> Action {
    const bool granted = line.flag("granted");
    return [granted](Machine& machine) {
      machine.accessibility->granted_ = granted;
      if (!granted) machine.events->permissionLost();
    };
  });
}

}  // namespace simulator

using simulator::Call;

extern "C" {

CFStringRef kAXTrustedCheckOptionPrompt = simulator::constantString("AXTrustedCheckOptionPrompt");

Boolean AXIsProcessTrustedWithOptions(CFDictionaryRef options) {
  const Call call("AXIsProcessTrustedWithOptions");
  const CFTypeRef prompt = options ? CFDictionaryGetValue(options, kAXTrustedCheckOptionPrompt) : nullptr;
  const bool prompts = prompt && CFBooleanGetValue(static_cast<CFBooleanRef>(prompt));
  const bool trusted = call.machine.accessibility->granted() && !call.fault();
  call.machine.trace.call("AXIsProcessTrustedWithOptions").flag("prompt", prompts).flag("trusted", trusted);
  if (prompts && !trusted) call.machine.trace.record("prompt").text("for", "accessibility");
  return trusted;
}

Boolean AXIsProcessTrusted(void) {
  const Call call("AXIsProcessTrusted");
  return call.machine.accessibility->granted() && !call.fault();
}

}  // extern "C"
