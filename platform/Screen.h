// NSScreen, and the geometry function that goes with it. Main thread only.
#pragma once

#include <CoreGraphics/CoreGraphics.h>

#include <string>
#include <vector>

#include "platform/Object.h"

namespace NS {

class Screen : public Object {
 public:
  static std::vector<Screen> screens();

  // In AppKit's screen coordinates: points, origin bottom-left.
  [[nodiscard]] CGRect frame() const;
  [[nodiscard]] std::string localizedName() const;
  // The device description, whose "NSScreenNumber" is the display ID.
  [[nodiscard]] CF::Ref<CFDictionaryRef> deviceDescription() const;

  explicit Screen(CF::Ref<CFTypeRef> screen) noexcept : Object(std::move(screen)) {}
};

// NSMouseInRect: whether the point belongs to the rectangle, so that of two rectangles sharing an edge exactly one
// claims a point on it.
bool MouseInRect(CGPoint point, CGRect rect, bool flipped);

}  // namespace NS
