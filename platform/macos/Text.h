// Texts between C++ and Objective-C.
#pragma once

#import <Foundation/Foundation.h>

#include <string>

#include "platform/CF.h"

namespace NS {

// The text as an object. Never nil: what is not UTF-8 is replaced. It may hold any character, the null character too.
inline NSString* string(const std::string& text) {
  const CF::Ref<CFStringRef> object = CF::string(text);
  return (__bridge NSString*)object.get();
}

// The object's text; empty for nil.
inline std::string text(NSString* string) { return CF::text((__bridge CFStringRef)string); }

}  // namespace NS
