// NSError. Usable from any thread.
#pragma once

#include <string>

#include "platform/Object.h"

namespace NS {

class Error : public Object {
 public:
  Error() noexcept = default;

  // The error's text in the user's language.
  [[nodiscard]] std::string localizedDescription() const;

  explicit Error(CF::Ref<CFTypeRef> error) noexcept : Object(std::move(error)) {}
};

}  // namespace NS
