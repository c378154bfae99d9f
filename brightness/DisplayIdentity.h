// Who a display is, by the numbers of its EDID: what matches an I/O Registry entry to a Core Graphics display.
#pragma once

#include <CoreGraphics/CoreGraphics.h>

#include <compare>
#include <cstdint>
#include <optional>

struct DisplayIdentity {
  std::uint32_t vendor = 0;
  std::uint32_t product = 0;
  std::uint32_t serial = 0;

  // Of an online display.
  static DisplayIdentity ofDisplay(CGDirectDisplayID displayID);
  // Of a framebuffer's "ProductAttributes"; none unless all three numbers are there and fit 32 unsigned bits.
  static std::optional<DisplayIdentity> fromProductAttributes(CFDictionaryRef attributes);

  friend auto operator<=>(const DisplayIdentity&, const DisplayIdentity&) = default;
};
