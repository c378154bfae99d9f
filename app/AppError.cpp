#include "app/AppError.h"

#include <dispatch/dispatch.h>
#include <os/log.h>

#include <cstdlib>

AppError::AppError(std::string_view operation, std::int32_t status)
    : message_(std::string(operation) + " failed (OSStatus " + std::to_string(status) + ")") {}

void fatalError(std::string_view message) {
  os_log_fault(OS_LOG_DEFAULT, "%{public}s", std::string(message).c_str());
  std::abort();
}

void assertMainThread() { dispatch_assert_queue(dispatch_get_main_queue()); }
