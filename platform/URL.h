// NSURL. Usable from any thread.
#pragma once

#include <string>

#include "platform/Object.h"

namespace NS {

class URL : public Object {
 public:
  URL() noexcept = default;
  // The URL with this text; null when the text is no URL as RFC 3986 has it. Invalid characters are taken over in
  // percent-encoded form when `encodingInvalidCharacters` is set, and refused otherwise.
  static URL URLWithString(const std::string& text, bool encodingInvalidCharacters);

  [[nodiscard]] std::string absoluteString() const;
  // As it is written; empty when there is none.
  [[nodiscard]] std::string scheme() const;

  explicit URL(CF::Ref<CFTypeRef> url) noexcept : Object(std::move(url)) {}
};

}  // namespace NS
