#include "platform/Alert.h"

#import <AppKit/AppKit.h>

#include "platform/macos/Text.h"

namespace NS {

static_assert(AlertFirstButtonReturn == NSAlertFirstButtonReturn);

static NSAlert* object(const Alert& alert) { return (__bridge NSAlert*)alert.get(); }

Alert Alert::make() {
  @autoreleasepool {
    return Alert(CF::adopt((__bridge_retained CFTypeRef)[[NSAlert alloc] init]));
  }
}

Alert Alert::alertWithError(const Error& error) {
  @autoreleasepool {
    return Alert(CF::adopt((__bridge_retained CFTypeRef)[NSAlert alertWithError:(__bridge NSError*)error.get()]));
  }
}

void Alert::setMessageText(const std::string& text) const {
  @autoreleasepool {
    object(*this).messageText = string(text);
  }
}

void Alert::setInformativeText(const std::string& text) const {
  @autoreleasepool {
    object(*this).informativeText = string(text);
  }
}

void Alert::addButtonWithTitle(const std::string& title) const {
  @autoreleasepool {
    [object(*this) addButtonWithTitle:string(title)];
  }
}

long Alert::runModal() const {
  @autoreleasepool {
    return [object(*this) runModal];
  }
}

}  // namespace NS
