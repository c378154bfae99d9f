#include "base/Log.h"

#include "base/Assertions.h"
#include "platform/CF.h"

os_log_t makeLogger(const char* category) {
  const CFStringRef identifier = CFBundleGetIdentifier(CFBundleGetMainBundle());
  if (!identifier) fatalError("The main bundle has no identifier");
  return os_log_create(CF::text(identifier).c_str(), category);
}
