#include <dispatch/dispatch.h>

#include "tests/headers/Agreement.h"

VALUE(NSEC_PER_SEC, 1000000000);
VALUE(NSEC_PER_MSEC, 1000000);
TYPE(dispatch_queue_t, struct dispatch_queue_s*);
TYPE(dispatch_queue_attr_t, struct dispatch_queue_attr_s*);
// Apple's has types of their own for these, which are queues too.
static_assert(std::is_convertible_v<dispatch_queue_global_t, dispatch_queue_t>);
static_assert(std::is_convertible_v<dispatch_queue_main_t, dispatch_queue_t>);
TYPE(dispatch_block_t, void (^)());
TYPE(dispatch_time_t, std::uint64_t);
static_assert(static_cast<dispatch_queue_attr_t>(DISPATCH_QUEUE_SERIAL) == nullptr);
VALUE(DISPATCH_TIME_NOW, 0);
VALUE(DISPATCH_TIME_FOREVER, -1);
VALUE(QOS_CLASS_USER_INITIATED, 0x19);
VALUE(QOS_CLASS_DEFAULT, 0x15);
VALUE(QOS_CLASS_UTILITY, 0x11);
FUNCTION(dispatch_get_main_queue, dispatch_queue_main_t());
FUNCTION(dispatch_get_global_queue, dispatch_queue_global_t(std::intptr_t, std::uintptr_t));
FUNCTION(dispatch_queue_create, dispatch_queue_t(const char*, dispatch_queue_attr_t));
FUNCTION(dispatch_async, void(dispatch_queue_t, dispatch_block_t));
FUNCTION(dispatch_after, void(dispatch_time_t, dispatch_queue_t, dispatch_block_t));
FUNCTION(dispatch_walltime, dispatch_time_t(const struct timespec*, std::int64_t));
FUNCTION(dispatch_time, dispatch_time_t(dispatch_time_t, std::int64_t));
FUNCTION(dispatch_assert_queue, void(dispatch_queue_t));
// Apple's take any dispatch object.
static_assert(std::is_invocable_r_v<void, decltype(dispatch_retain), dispatch_queue_t>);
static_assert(std::is_invocable_r_v<void, decltype(dispatch_release), dispatch_queue_t>);
