// dlopen, dlsym and dlerror of the program: paths of the system lie below its root folder, and symbols may be taken
// away. The libraries are real ones.
#include <dlfcn.h>

#include <string>

#include "simulator/kernel/Call.h"
#include "simulator/system/SystemRoot.h"

extern "C" {

void* hostOpen(const char* path, int mode) __asm__("dlopen");
void* hostSymbol(void* handle, const char* symbol) __asm__("dlsym");
char* hostError(void) __asm__("dlerror");

}  // extern "C"

namespace {

// The text of the loading thread's last error that dlerror has not told yet.
thread_local std::string pendingError;
thread_local std::string toldError;

}  // namespace

extern "C" {

void* dlopen(const char* path, int mode) {
  const simulator::Call call("dlopen");
  if (call.fault()) {
    pendingError = std::string(path) + ": the library could not be loaded";
    return nullptr;
  }
  // The host's loader remembers every name that it has loaded a library by.
  void* const handle = hostOpen(call.part<simulator::SystemRoot>().onHost(path).c_str(), mode);
  if (handle) {
    call.part<simulator::SystemRoot>().didLoad(handle);
  } else {
    pendingError = hostError();
  }
  return handle;
}

void* dlsym(void* handle, const char* symbol) {
  const simulator::Call call("dlsym");
  if (!call.part<simulator::SystemRoot>().isMissing(symbol) && !call.fault()) {
    if (void* const address = hostSymbol(handle, symbol)) return address;
  }
  pendingError = std::string("dlsym: symbol not found: ") + symbol;
  return nullptr;
}

char* dlerror(void) {
  if (pendingError.empty()) return nullptr;
  toldError.swap(pendingError);
  pendingError.clear();
  return toldError.data();
}

}  // extern "C"
