// The dynamic loader of the simulated Mac. The functions carry names of their own for the linker, so that code of the
// host keeps the host's.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

#define RTLD_LAZY 1
#define RTLD_NOW 2

void* dlopen(const char* path, int mode) __asm__("simulated_dlopen");
void* dlsym(void* handle, const char* symbol) __asm__("simulated_dlsym");
char* dlerror(void) __asm__("simulated_dlerror");

#ifdef __cplusplus
}
#endif
