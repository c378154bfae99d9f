// The unified log on the simulated Mac.
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct os_log_s* os_log_t;
typedef uint8_t os_log_type_t;
enum {
  OS_LOG_TYPE_DEFAULT = 0x00,
  OS_LOG_TYPE_INFO = 0x01,
  OS_LOG_TYPE_DEBUG = 0x02,
  OS_LOG_TYPE_ERROR = 0x10,
  OS_LOG_TYPE_FAULT = 0x11,
};

extern struct os_log_s _os_log_default;
#define OS_LOG_DEFAULT (&_os_log_default)

os_log_t os_log_create(const char* subsystem, const char* category);

// What Apple's macros expand to is the compiler's own; here they call this.
void _os_log_simulated(os_log_t log, os_log_type_t type, const char* format, ...) __attribute__((format(os_log, 3, 4)));

#define os_log_with_type(log, type, ...) _os_log_simulated((log), (type), __VA_ARGS__)
#define os_log_info(log, ...) os_log_with_type(log, OS_LOG_TYPE_INFO, __VA_ARGS__)
#define os_log_error(log, ...) os_log_with_type(log, OS_LOG_TYPE_ERROR, __VA_ARGS__)
#define os_log_fault(log, ...) os_log_with_type(log, OS_LOG_TYPE_FAULT, __VA_ARGS__)

#ifdef __cplusplus
}
#endif
