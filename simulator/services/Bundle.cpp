// The main bundle, as Core Foundation shows it to the program.
#include <CoreFoundation/CoreFoundation.h>

#include "simulator/machine/Machine.h"
#include "simulator/machine/Object.h"
#include "simulator/services/CoreFoundation.h"

struct __CFBundle : simulator::Object {
  std::string_view kind() const override { return "CFBundle"; }
};

extern "C" {

CFBundleRef CFBundleGetMainBundle(void) {
  static __CFBundle* const bundle = [] {
    auto* const made = new __CFBundle;
    made->makeImmortal();
    return made;
  }();
  return bundle;
}

CFStringRef CFBundleGetIdentifier(CFBundleRef bundle) {
  const simulator::Call call("CFBundleGetIdentifier");
  simulator::live<__CFBundle>(bundle, "CFBundleGetIdentifier");
  const std::string& identifier = call.machine.process.program().identifier;
  return identifier.empty() ? nullptr : simulator::constantString(identifier);
}

CFTypeRef CFBundleGetValueForInfoDictionaryKey(CFBundleRef bundle, CFStringRef key) {
  const simulator::Call call("CFBundleGetValueForInfoDictionaryKey");
  simulator::live<__CFBundle>(bundle, "CFBundleGetValueForInfoDictionaryKey");
  const std::string& name = simulator::textOf(key, "CFBundleGetValueForInfoDictionaryKey");
  const auto& program = call.machine.process.program();
  const auto known = [](const std::string& text) { return text.empty() ? nullptr : simulator::constantString(text); };
  if (name == "CFBundleShortVersionString") return known(program.version);
  if (name == "CFBundleIdentifier") return known(program.identifier);
  return nullptr;
}

}  // extern "C"
