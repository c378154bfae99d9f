// What libFuzzer calls.
#include <cstddef>
#include <cstdint>

#include "fuzz/Target.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const fuzz::Target* const target = fuzz::Target::only();
  fuzz::require(target != nullptr, "there is one target");
  target->run({reinterpret_cast<const char*>(data), size});
  return 0;
}
