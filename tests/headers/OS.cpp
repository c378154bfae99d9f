#include <dlfcn.h>
#include <os/lock.h>
#include <os/log.h>

#include "tests/headers/Agreement.h"

// ---- The unfair lock ----

SIZE(os_unfair_lock, 4);
MEMBER(os_unfair_lock, _os_unfair_lock_opaque, 0, std::uint32_t);
TYPE(os_unfair_lock_t, os_unfair_lock*);
FUNCTION(os_unfair_lock_lock, void(os_unfair_lock_t));
FUNCTION(os_unfair_lock_unlock, void(os_unfair_lock_t));
[[maybe_unused]] static os_unfair_lock unlocked = OS_UNFAIR_LOCK_INIT;

// ---- The unified log ----

TYPE(os_log_t, struct os_log_s*);
TYPE(os_log_type_t, std::uint8_t);
VALUE(OS_LOG_TYPE_DEFAULT, 0x00);
VALUE(OS_LOG_TYPE_INFO, 0x01);
VALUE(OS_LOG_TYPE_DEBUG, 0x02);
VALUE(OS_LOG_TYPE_ERROR, 0x10);
VALUE(OS_LOG_TYPE_FAULT, 0x11);
FUNCTION(os_log_create, os_log_t(const char*, const char*));

// These are macros: what counts is that they take the log, a format with the privacy marks, and its values.
[[maybe_unused]] static void logEverything(os_log_t log) {
  os_log_info(log, "%{public}s %u", "text", 1U);
  os_log_error(log, "%{public}s %hu", "text", static_cast<unsigned short>(1));
  os_log_fault(OS_LOG_DEFAULT, "%ld %d", 1L, 1);
  os_log_with_type(log, OS_LOG_TYPE_INFO, "%{public}s", "text");
}

// ---- The dynamic loader ----

VALUE(RTLD_LAZY, 1);
VALUE(RTLD_NOW, 2);
FUNCTION(dlopen, void*(const char*, int));
FUNCTION(dlsym, void*(void*, const char*));
FUNCTION(dlerror, char*());
