// Kernel queues on the simulated Mac, as far as they are clocks.
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define EVFILT_TIMER (-7)

#define EV_ADD 0x0001
#define EV_ONESHOT 0x0010

#define NOTE_SECONDS 0x00000001
#define NOTE_MACH_CONTINUOUS_TIME 0x00000080

struct kevent {
  uintptr_t ident;
  int16_t filter;
  uint16_t flags;
  uint32_t fflags;
  intptr_t data;
  void* udata;
};

struct timespec;
int kqueue(void);
int kevent(int kq, const struct kevent* changelist, int nchanges, struct kevent* eventlist, int nevents,
           const struct timespec* timeout);

#ifdef __cplusplus
}
#endif
