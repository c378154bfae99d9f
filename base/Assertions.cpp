#include "base/Assertions.h"

#include <dispatch/dispatch.h>
#include <os/log.h>

#include <cstdlib>
#include <string>

void fatalError(std::string_view message) {
  os_log_fault(OS_LOG_DEFAULT, "%{public}s", std::string(message).c_str());
  std::abort();
}

void assertMainThread() { dispatch_assert_queue(dispatch_get_main_queue()); }
