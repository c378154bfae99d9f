#include "simulator/privacy/Accessibility.h"

#include <ApplicationServices/ApplicationServices.h>

#include "simulator/foundation/CoreFoundation.h"
#include "simulator/kernel/Call.h"
#include "simulator/kernel/Commands.h"

namespace simulator {

Accessibility::Accessibility(Machine& machine) {
  machine.faults.declare({"AXIsProcessTrustedWithOptions", "AXIsProcessTrusted"});
}

void Accessibility::addCommands(Commands& commands) {
  commands.add("accessibility", [this](Arguments& line) -> Action {
    const bool granted = line.flag("granted");
    return [this, granted] {
      granted_ = granted;
      if (!granted && onLost_) onLost_();
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
  const bool trusted = call.part<simulator::Accessibility>().granted() && !call.fault();
  call.machine.trace.call("AXIsProcessTrustedWithOptions").flag("prompt", prompts).flag("trusted", trusted);
  if (prompts && !trusted) call.machine.trace.record("prompt").text("for", "accessibility");
  return trusted;
}

Boolean AXIsProcessTrusted(void) {
  const Call call("AXIsProcessTrusted");
  return call.part<simulator::Accessibility>().granted() && !call.fault();
}

}  // extern "C"
