#include "volume/SystemAudioPermission.h"

#include <CoreFoundation/CoreFoundation.h>
#include <dlfcn.h>

#include <string>

#include "base/AppError.h"
#include "platform/CF.h"

namespace SystemAudioPermission {

namespace {

// The private functions, as they are called here; the options are always null.
using Preflight = long (*)(CFStringRef service, CFDictionaryRef options);
using Request = void (*)(CFStringRef service, CFDictionaryRef options, void (^completion)(bool granted));

CF::Ref<CFStringRef> audioCapture() { return CF::string("kTCCServiceAudioCapture"); }

// The library is never closed: its code may still be needed to answer a request.
void* symbol(const char* name) {
  void* const library = dlopen("/System/Library/PrivateFrameworks/TCC.framework/Versions/A/TCC", RTLD_NOW);
  if (!library) throw AppError(std::string("Loading TCC.framework: ") + dlerror());
  void* const address = dlsym(library, name);
  if (!address) throw AppError(std::string(name) + " not found in TCC.framework");
  return address;
}

}  // namespace

Status status() {
  const auto preflight = reinterpret_cast<Preflight>(symbol("TCCAccessPreflight"));
  switch (preflight(audioCapture().get(), nullptr)) {
    case 0:
      return Status::authorized;
    case 1:
      return Status::denied;
    default:
      return Status::notDetermined;
  }
}

void request(void (^completion)(bool granted)) {
  const auto request = reinterpret_cast<Request>(symbol("TCCAccessRequest"));
  request(audioCapture().get(), nullptr, completion);
}

}  // namespace SystemAudioPermission
