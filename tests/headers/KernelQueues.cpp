#include <sys/event.h>

#include "tests/headers/Agreement.h"

VALUE(EVFILT_TIMER, -7);
VALUE(EV_ADD, 0x0001);
VALUE(EV_ONESHOT, 0x0010);
VALUE(NOTE_SECONDS, 0x00000001);
VALUE(NOTE_MACH_CONTINUOUS_TIME, 0x00000080);
using KernelEvent = struct kevent;  // beside a function of that name
MEMBER(KernelEvent, ident, 0, std::uintptr_t);
MEMBER(KernelEvent, filter, 8, std::int16_t);
MEMBER(KernelEvent, flags, 10, std::uint16_t);
MEMBER(KernelEvent, fflags, 12, std::uint32_t);
MEMBER(KernelEvent, data, 16, std::intptr_t);
MEMBER(KernelEvent, udata, 24, void*);
SIZE(KernelEvent, 32);
FUNCTION(kqueue, int());
FUNCTION(kevent, int(int, const struct kevent*, int, struct kevent*, int, const struct timespec*));
