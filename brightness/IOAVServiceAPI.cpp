#include "brightness/IOAVServiceAPI.h"

#include <dlfcn.h>

#include <string>

#include "base/AppError.h"

namespace {

constexpr const char* libraryPath = "/System/Library/Frameworks/IOKit.framework/IOKit";

// Never closed: the functions are used until the process ends.
void* openLibrary() {
  void* const library = dlopen(libraryPath, RTLD_NOW);
  if (!library) throw AppError(std::string("Loading IOKit: ") + dlerror());
  return library;
}

template <typename Function>
Function resolve(void* library, const char* name) {
  void* const symbol = dlsym(library, name);
  if (!symbol) throw AppError(std::string(name) + " not found in IOKit");
  return reinterpret_cast<Function>(symbol);
}

}  // namespace

IOAVServiceAPI::IOAVServiceAPI() {
  void* const library = openLibrary();
  createWithService = resolve<CreateWithService>(library, "IOAVServiceCreateWithService");
  writeI2C = resolve<WriteI2C>(library, "IOAVServiceWriteI2C");
  readI2C = resolve<ReadI2C>(library, "IOAVServiceReadI2C");
}
