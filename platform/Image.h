// NSImage. Main thread only; a drawing handler may be called on any thread.
#pragma once

#include <CoreGraphics/CoreGraphics.h>

#include <string>

#include "platform/Object.h"

namespace NS {

class Image : public Object {
 public:
  Image() noexcept = default;

  // An image that `handler` draws whenever it is to be shown: again and again, on any thread, in the rectangle that it
  // is given, whose y axis points down when `flipped`. It answers whether it has drawn.
  static Image imageWithSize(CGSize size, bool flipped, bool (^handler)(CGRect));
  // The system's symbol of that name, without an accessibility description; null for a name that it does not know.
  static Image imageWithSystemSymbolName(const std::string& name);

  // A template: only its opacity counts, and it is shown in the colour that suits its surroundings.
  void setTemplate(bool isTemplate) const;
  void setAccessibilityDescription(const std::string& description) const;

 private:
  using Object::Object;
};

}  // namespace NS
