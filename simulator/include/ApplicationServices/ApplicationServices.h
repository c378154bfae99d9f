// Accessibility on the simulated Mac.
#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <CoreGraphics/CoreGraphics.h>

#ifdef __cplusplus
extern "C" {
#endif

extern CFStringRef kAXTrustedCheckOptionPrompt;
Boolean AXIsProcessTrustedWithOptions(CFDictionaryRef options);
Boolean AXIsProcessTrusted(void);

#ifdef __cplusplus
}
#endif
