// NSUUID: random ones, from the run's seed.
#include "platform/UUID.h"

#include <array>
#include <cstdint>

#include "simulator/foundation/UUID.h"
#include "simulator/kernel/Call.h"

namespace simulator {

std::string newUUID() {
  constexpr std::string_view digits = "0123456789ABCDEF";
  std::string text = "xxxxxxxx-xxxx-4xxx-yxxx-xxxxxxxxxxxx";  // RFC 4122, version 4
  for (char& c : text) {
    if (c != 'x' && c != 'y') continue;
    const std::uint64_t random = Call::unguarded().scheduler.random(16);
    c = digits[c == 'x' ? random : 8 + random % 4];
  }
  return text;
}

}  // namespace simulator

namespace NS {

UUID UUID::make() { return UUID(CF::adopt(static_cast<CFTypeRef>(new simulator::UUIDObject(simulator::newUUID())))); }

std::string UUID::UUIDString() const { return simulator::live<simulator::UUIDObject>(get(), "NSUUID.UUIDString").text; }

}  // namespace NS
