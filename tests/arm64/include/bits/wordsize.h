// The C library's own for another processor would take this one for a 32-bit one.
#define __WORDSIZE 64
#define __WORDSIZE_TIME64_COMPAT32 0
