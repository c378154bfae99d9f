// The private consent library.
#include "simulator/privacy/AudioCapture.h"

extern "C" {

long TCCAccessPreflight(CFStringRef service, CFDictionaryRef options);
void TCCAccessRequest(CFStringRef service, CFDictionaryRef options, void (^completion)(bool granted));

long TCCAccessPreflight(CFStringRef service, CFDictionaryRef options) {
  return simulator::tccAccessPreflight(service, options);
}

void TCCAccessRequest(CFStringRef service, CFDictionaryRef options, void (^completion)(bool granted)) {
  simulator::tccAccessRequest(service, options, completion);
}

}  // extern "C"
