// Dispatch queues on the simulated Mac.
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define NSEC_PER_SEC 1000000000ull
#define NSEC_PER_MSEC 1000000ull

typedef struct dispatch_queue_s* dispatch_queue_t;
typedef struct dispatch_queue_attr_s* dispatch_queue_attr_t;
typedef dispatch_queue_t dispatch_queue_global_t;
typedef dispatch_queue_t dispatch_queue_main_t;
typedef void (^dispatch_block_t)(void);
typedef uint64_t dispatch_time_t;

#define DISPATCH_QUEUE_SERIAL ((dispatch_queue_attr_t)0)
#define DISPATCH_TIME_NOW (0ull)
#define DISPATCH_TIME_FOREVER (~0ull)

#define QOS_CLASS_USER_INITIATED 0x19
#define QOS_CLASS_DEFAULT 0x15
#define QOS_CLASS_UTILITY 0x11

dispatch_queue_main_t dispatch_get_main_queue(void);
dispatch_queue_global_t dispatch_get_global_queue(intptr_t identifier, uintptr_t flags);
dispatch_queue_t dispatch_queue_create(const char* label, dispatch_queue_attr_t attr);
void dispatch_async(dispatch_queue_t queue, dispatch_block_t block);
void dispatch_after(dispatch_time_t when, dispatch_queue_t queue, dispatch_block_t block);
struct timespec;
dispatch_time_t dispatch_walltime(const struct timespec* when, int64_t delta);
dispatch_time_t dispatch_time(dispatch_time_t when, int64_t delta);
void dispatch_assert_queue(dispatch_queue_t queue);

// Apple's take any dispatch object.
void dispatch_retain(dispatch_queue_t object);
void dispatch_release(dispatch_queue_t object);

#ifdef __cplusplus
}
#endif
