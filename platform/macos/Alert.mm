#include "platform/Alert.h"

#import <AppKit/AppKit.h>

namespace NS {

static_assert(AlertFirstButtonReturn == NSAlertFirstButtonReturn);

static NSAlert* object(const Alert& alert) { return (__bridge NSAlert*)alert.get(); }

Alert Alert::make() { return Alert(CF::adopt((__bridge_retained CFTypeRef)[[NSAlert alloc] init])); }

Alert Alert::alertWithError(const Error& error) {
  return Alert(CF::adopt((__bridge_retained CFTypeRef)[NSAlert alertWithError:(__bridge NSError*)error.get()]));
}

void Alert::setMessageText(const std::string& text) const { object(*this).messageText = @(text.c_str()); }

void Alert::setInformativeText(const std::string& text) const { object(*this).informativeText = @(text.c_str()); }

void Alert::addButtonWithTitle(const std::string& title) const { [object(*this) addButtonWithTitle:@(title.c_str())]; }

long Alert::runModal() const { return [object(*this) runModal]; }

}  // namespace NS
