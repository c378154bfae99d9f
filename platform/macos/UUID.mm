#include "platform/UUID.h"

#include "platform/macos/Text.h"

namespace NS {

UUID UUID::make() {
  @autoreleasepool {
    return UUID(CF::adopt((__bridge_retained CFTypeRef)[NSUUID UUID]));
  }
}

std::string UUID::UUIDString() const {
  @autoreleasepool {
    return text(((__bridge NSUUID*)get()).UUIDString);
  }
}

}  // namespace NS
