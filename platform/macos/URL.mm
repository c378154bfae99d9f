#include "platform/URL.h"

#include "platform/macos/Text.h"

namespace NS {

URL URL::URLWithString(const std::string& text, bool encodingInvalidCharacters) {
  @autoreleasepool {
    return URL(CF::adopt((__bridge_retained CFTypeRef)[NSURL URLWithString:string(text)
                                                 encodingInvalidCharacters:encodingInvalidCharacters]));
  }
}

std::string URL::absoluteString() const {
  @autoreleasepool {
    return text(((__bridge NSURL*)get()).absoluteString);
  }
}

}  // namespace NS
