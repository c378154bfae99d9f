#include "platform/URL.h"

#include "platform/macos/Text.h"

namespace NS {

URL URL::URLWithString(const std::string& text, bool encodingInvalidCharacters) {
  @autoreleasepool {
    return URL(CF::adopt((__bridge_retained CFTypeRef)[[NSURL alloc] initWithString:string(text)
                                                          encodingInvalidCharacters:encodingInvalidCharacters]));
  }
}

std::string URL::absoluteString() const {
  @autoreleasepool {
    return text(((__bridge NSURL*)get()).absoluteString);
  }
}

std::string URL::scheme() const {
  @autoreleasepool {
    return text(((__bridge NSURL*)get()).scheme);
  }
}

}  // namespace NS
