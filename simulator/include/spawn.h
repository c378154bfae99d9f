// Child processes on the simulated Mac. The functions carry names of their own for the linker, so that code of the host
// keeps the host's.
#pragma once

#include <signal.h>
#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif

#define POSIX_SPAWN_SETPGROUP 0x0002
#define POSIX_SPAWN_SETSIGDEF 0x0004
#define POSIX_SPAWN_SETSIGMASK 0x0008
#define POSIX_SPAWN_CLOEXEC_DEFAULT 0x4000

typedef void* posix_spawnattr_t;
typedef void* posix_spawn_file_actions_t;

int posix_spawn(pid_t* child, const char* path, const posix_spawn_file_actions_t* actions,
                const posix_spawnattr_t* attributes, char* const arguments[],
                char* const environment[]) __asm__("simulated_posix_spawn");

int posix_spawnattr_init(posix_spawnattr_t* attributes) __asm__("simulated_posix_spawnattr_init");
int posix_spawnattr_destroy(posix_spawnattr_t* attributes) __asm__("simulated_posix_spawnattr_destroy");
int posix_spawnattr_setflags(posix_spawnattr_t* attributes, short flags) __asm__("simulated_posix_spawnattr_setflags");
int posix_spawnattr_setsigdefault(posix_spawnattr_t* attributes,
                                  const sigset_t* signals) __asm__("simulated_posix_spawnattr_setsigdefault");
int posix_spawnattr_setsigmask(posix_spawnattr_t* attributes,
                               const sigset_t* signals) __asm__("simulated_posix_spawnattr_setsigmask");

int posix_spawn_file_actions_init(posix_spawn_file_actions_t* actions) __asm__(
    "simulated_posix_spawn_file_actions_init");
int posix_spawn_file_actions_destroy(posix_spawn_file_actions_t* actions) __asm__(
    "simulated_posix_spawn_file_actions_destroy");
int posix_spawn_file_actions_addinherit_np(posix_spawn_file_actions_t* actions,
                                           int file) __asm__("simulated_posix_spawn_file_actions_addinherit_np");

#ifdef __cplusplus
}
#endif
