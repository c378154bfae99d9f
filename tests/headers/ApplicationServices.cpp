#include <ApplicationServices/ApplicationServices.h>

#include "tests/headers/Agreement.h"

VARIABLE(kAXTrustedCheckOptionPrompt, CFStringRef);
FUNCTION(AXIsProcessTrustedWithOptions, Boolean(CFDictionaryRef));
FUNCTION(AXIsProcessTrusted, Boolean());
