#include <spawn.h>
#include <unistd.h>

#include "tests/headers/Agreement.h"

// ---- Child processes ----

TYPE(posix_spawnattr_t, void*);
TYPE(posix_spawn_file_actions_t, void*);
VALUE(POSIX_SPAWN_SETPGROUP, 0x0002);
VALUE(POSIX_SPAWN_SETSIGDEF, 0x0004);
VALUE(POSIX_SPAWN_SETSIGMASK, 0x0008);
VALUE(POSIX_SPAWN_CLOEXEC_DEFAULT, 0x4000);
FUNCTION(posix_spawn, int(pid_t*, const char*, const posix_spawn_file_actions_t*, const posix_spawnattr_t*,
                          char* const*, char* const*));
FUNCTION(posix_spawnattr_init, int(posix_spawnattr_t*));
FUNCTION(posix_spawnattr_destroy, int(posix_spawnattr_t*));
FUNCTION(posix_spawnattr_setflags, int(posix_spawnattr_t*, short));
FUNCTION(posix_spawnattr_setsigdefault, int(posix_spawnattr_t*, const sigset_t*));
FUNCTION(posix_spawnattr_setsigmask, int(posix_spawnattr_t*, const sigset_t*));
FUNCTION(posix_spawn_file_actions_init, int(posix_spawn_file_actions_t*));
FUNCTION(posix_spawn_file_actions_destroy, int(posix_spawn_file_actions_t*));
FUNCTION(posix_spawn_file_actions_addinherit_np, int(posix_spawn_file_actions_t*, int));

// ---- Files ----

VALUE(W_OK, 2);
FUNCTION(access, int(const char*, int));

// ---- The user's own folders ----

VALUE(_CS_DARWIN_USER_TEMP_DIR, 65537);
FUNCTION(confstr, std::size_t(int, char*, std::size_t));
