#include "platform/Screen.h"

#import <AppKit/AppKit.h>

#include "platform/macos/Conversions.h"
#include "platform/macos/Text.h"

namespace NS {

static NSScreen* object(const Screen& screen) { return (__bridge NSScreen*)screen.get(); }

std::vector<Screen> Screen::screens() {
  @autoreleasepool {
    return handles<Screen>(NSScreen.screens);
  }
}

CGRect Screen::frame() const {
  @autoreleasepool {
    return object(*this).frame;
  }
}

std::string Screen::localizedName() const {
  @autoreleasepool {
    return text(object(*this).localizedName);
  }
}

CF::Ref<CFDictionaryRef> Screen::deviceDescription() const {
  @autoreleasepool {
    return CF::retain((__bridge CFDictionaryRef)object(*this).deviceDescription);
  }
}

bool MouseInRect(CGPoint point, CGRect rect, bool flipped) { return NSMouseInRect(point, rect, flipped); }

}  // namespace NS
