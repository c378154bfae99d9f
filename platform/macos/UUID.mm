#include "platform/UUID.h"

#import <Foundation/Foundation.h>

namespace NS {

UUID UUID::make() { return UUID(CF::adopt((__bridge_retained CFTypeRef)[NSUUID UUID])); }

std::string UUID::UUIDString() const { return ((__bridge NSUUID*)get()).UUIDString.UTF8String; }

}  // namespace NS
