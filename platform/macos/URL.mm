#include "platform/URL.h"

#import <Foundation/Foundation.h>

namespace NS {

// The text may hold any character, the null character too.
static NSString* string(const std::string& text) {
  return [[NSString alloc] initWithBytes:text.data() length:text.size() encoding:NSUTF8StringEncoding];
}

URL URL::URLWithString(const std::string& text, bool encodingInvalidCharacters) {
  return URL(CF::adopt((__bridge_retained CFTypeRef)[[NSURL alloc] initWithString:string(text)
                                                        encodingInvalidCharacters:encodingInvalidCharacters]));
}

std::string URL::absoluteString() const { return ((__bridge NSURL*)get()).absoluteString.UTF8String; }

std::string URL::scheme() const {
  NSString* const scheme = ((__bridge NSURL*)get()).scheme;
  return scheme ? scheme.UTF8String : "";
}

}  // namespace NS
