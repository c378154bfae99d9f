#include "platform/Screen.h"

#import <AppKit/AppKit.h>

namespace NS {

static NSScreen* object(const Screen& screen) { return (__bridge NSScreen*)screen.get(); }

std::vector<Screen> Screen::screens() {
  std::vector<Screen> screens;
  for (NSScreen* screen in NSScreen.screens) screens.emplace_back(CF::retain((__bridge CFTypeRef)screen));
  return screens;
}

CGRect Screen::frame() const { return object(*this).frame; }

std::string Screen::localizedName() const { return CF::text((__bridge CFStringRef)object(*this).localizedName); }

CF::Ref<CFDictionaryRef> Screen::deviceDescription() const {
  return CF::retain((__bridge CFDictionaryRef)object(*this).deviceDescription);
}

bool MouseInRect(CGPoint point, CGRect rect, bool flipped) { return NSMouseInRect(point, rect, flipped); }

}  // namespace NS
