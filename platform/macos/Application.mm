#include "platform/Application.h"

#import <AppKit/AppKit.h>

#include "platform/macos/Conversions.h"
#include "platform/macos/Target.h"

// Hands what AppKit tells on to the program's delegate.
@interface DalvaneApplicationDelegate : NSObject <NSApplicationDelegate>
@property(nonatomic) NS::ApplicationDelegate* receiver;
@end

@implementation DalvaneApplicationDelegate

- (void)applicationDidFinishLaunching:(NSNotification*)notification {
  self.receiver->applicationDidFinishLaunching();
}

- (void)applicationWillTerminate:(NSNotification*)notification {
  self.receiver->applicationWillTerminate();
}

@end

namespace NS {

static NSApplication* object(const Application& application) { return (__bridge NSApplication*)application.get(); }

Application Application::sharedApplication() {
  @autoreleasepool {
    return Application(CF::retain((__bridge CFTypeRef)NSApplication.sharedApplication));
  }
}

void Application::setDelegate(ApplicationDelegate* delegate) const {
  @autoreleasepool {
    DalvaneApplicationDelegate* const receiver = forwarder<DalvaneApplicationDelegate>(delegate);
    object(*this).delegate = receiver;
    keep(object(*this), receiver);
  }
}

// AppKit's event loop has its own pools.
void Application::run() const { [object(*this) run]; }

void Application::terminate() const {
  @autoreleasepool {
    [object(*this) terminate:nil];
  }
}

void Application::activate() const {
  @autoreleasepool {
    [object(*this) activate];
  }
}

}  // namespace NS
