#include "brightness/DisplayIdentity.h"

#include <limits>

#include "platform/CF.h"

namespace {

std::optional<std::uint32_t> unsigned32(CFDictionaryRef attributes, CFStringRef key) {
  const auto number = CF::cast<CFNumberRef>(CFDictionaryGetValue(attributes, key), CFNumberGetTypeID());
  if (!number) return std::nullopt;
  std::int64_t value = 0;
  CFNumberGetValue(number.get(), kCFNumberSInt64Type, &value);
  if (value < 0 || value > std::numeric_limits<std::uint32_t>::max()) return std::nullopt;
  return static_cast<std::uint32_t>(value);
}

}  // namespace

DisplayIdentity DisplayIdentity::ofDisplay(CGDirectDisplayID displayID) {
  return {CGDisplayVendorNumber(displayID), CGDisplayModelNumber(displayID), CGDisplaySerialNumber(displayID)};
}

std::optional<DisplayIdentity> DisplayIdentity::fromProductAttributes(CFDictionaryRef attributes) {
  const auto vendor = unsigned32(attributes, CFSTR("LegacyManufacturerID"));
  const auto product = unsigned32(attributes, CFSTR("ProductID"));
  const auto serial = unsigned32(attributes, CFSTR("SerialNumber"));
  if (!vendor || !product || !serial) return std::nullopt;
  return DisplayIdentity{*vendor, *product, *serial};
}
