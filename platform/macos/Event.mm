#include "platform/Event.h"

#import <AppKit/AppKit.h>

namespace NS {

static NSEvent* object(const Event& event) { return (__bridge NSEvent*)event.get(); }

Event Event::eventWithCGEvent(CGEventRef event) {
  @autoreleasepool {
    return Event(CF::retain((__bridge CFTypeRef)[NSEvent eventWithCGEvent:event]));
  }
}

CGPoint Event::mouseLocation() {
  @autoreleasepool {
    return NSEvent.mouseLocation;
  }
}

short Event::subtype() const {
  @autoreleasepool {
    return object(*this).subtype;
  }
}

long Event::data1() const {
  @autoreleasepool {
    return object(*this).data1;
  }
}

}  // namespace NS
