// dlopen, dlsym and dlerror of the program: paths of the system lie below its root folder, and symbols may be taken
// away. The linker hands the program's calls to us; the libraries are real ones.
#include <dlfcn.h>

#include <string>

#include "simulator/machine/Machine.h"

namespace {

// The text of the loading thread's last error that dlerror has not told yet.
thread_local std::string pendingError;
thread_local std::string toldError;

}  // namespace

extern "C" {

void* __real_dlopen(const char* path, int mode);
void* __real_dlsym(void* handle, const char* symbol);
char* __real_dlerror(void);
void* __wrap_dlopen(const char* path, int mode);
void* __wrap_dlsym(void* handle, const char* symbol);
char* __wrap_dlerror(void);

void* __wrap_dlopen(const char* path, int mode) {
  if (!simulator::Scheduler::current() || !path) return __real_dlopen(path, mode);
  const simulator::Call call("dlopen");
  const std::string real = call.machine.root.below(path).string();
  if (call.fault()) {
    pendingError = std::string(path) + ": the library could not be loaded";
    return nullptr;
  }
  void* const handle = __real_dlopen(real.c_str(), mode);
  if (!handle) {
    pendingError = __real_dlerror();
  } else {
    call.machine.root.didLoad(handle);
  }
  return handle;
}

void* __wrap_dlsym(void* handle, const char* symbol) {
  if (!simulator::Scheduler::current()) return __real_dlsym(handle, symbol);
  const simulator::Call call("dlsym");
  if (!call.machine.root.isMissing(symbol) && !call.fault()) {
    if (void* const address = __real_dlsym(handle, symbol)) return address;
  }
  pendingError = std::string("dlsym: symbol not found: ") + symbol;
  return nullptr;
}

char* __wrap_dlerror(void) {
  if (!simulator::Scheduler::current()) return __real_dlerror();
  if (pendingError.empty()) return nullptr;
  toldError.swap(pendingError);
  pendingError.clear();
  return toldError.data();
}

}  // extern "C"
