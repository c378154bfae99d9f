// What libFuzzer calls: the target that the program is called after, which is "fuzz-" and its name.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "fuzz/Target.h"

namespace {
const fuzz::Target* target = nullptr;
}

extern "C" int LLVMFuzzerInitialize(int*, char*** words) {
  std::string_view name = **words;
  name.remove_prefix(name.find_last_of('/') + 1);
  if (name.starts_with("fuzz-")) target = fuzz::Target::find(name.substr(5));
  fuzz::require(target != nullptr, "the program is called after a target");
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  target->run({reinterpret_cast<const char*>(data), size});
  return 0;
}
