#include "platform/NotificationCenter.h"

#import <AppKit/AppKit.h>

namespace NS {

static NSNotificationCenter* object(const NotificationCenter& center) {
  return (__bridge NSNotificationCenter*)center.get();
}

NotificationCenter NotificationCenter::defaultCenter() {
  @autoreleasepool {
    return NotificationCenter(CF::retain((__bridge CFTypeRef)NSNotificationCenter.defaultCenter));
  }
}

Object NotificationCenter::addObserverForName(CFStringRef name, void (^block)()) const {
  @autoreleasepool {
    return Object::retain((__bridge CFTypeRef)[object(*this) addObserverForName:(__bridge NSString*)name
                                                                         object:nil
                                                                          queue:NSOperationQueue.mainQueue
                                                                     usingBlock:^(NSNotification*) {
                                                                       block();
                                                                     }]);
  }
}

void NotificationCenter::removeObserver(const Object& token) const {
  @autoreleasepool {
    [object(*this) removeObserver:(__bridge id)token.get()];
  }
}

Workspace Workspace::sharedWorkspace() {
  @autoreleasepool {
    return Workspace(CF::retain((__bridge CFTypeRef)NSWorkspace.sharedWorkspace));
  }
}

NotificationCenter Workspace::notificationCenter() const {
  @autoreleasepool {
    return NotificationCenter(CF::retain((__bridge CFTypeRef)((__bridge NSWorkspace*)get()).notificationCenter));
  }
}

CFStringRef ApplicationDidChangeScreenParametersNotification() {
  return (__bridge CFStringRef)NSApplicationDidChangeScreenParametersNotification;
}

CFStringRef WorkspaceDidWakeNotification() { return (__bridge CFStringRef)NSWorkspaceDidWakeNotification; }

}  // namespace NS
