// NSUUID. Usable from any thread.
#pragma once

#include <string>

#include "platform/Object.h"

namespace NS {

class UUID : public Object {
 public:
  // A freshly generated one.
  static UUID make();

  // The standard text form: 36 characters, upper-case.
  [[nodiscard]] std::string UUIDString() const;

  explicit UUID(CF::Ref<CFTypeRef> uuid) noexcept : Object(std::move(uuid)) {}
};

}  // namespace NS
