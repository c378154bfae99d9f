#include "platform/Application.h"

#import <AppKit/AppKit.h>
#import <objc/runtime.h>

// Hands what AppKit tells on to the program's delegate.
@interface DalvaneApplicationDelegate : NSObject <NSApplicationDelegate>
@end

@implementation DalvaneApplicationDelegate {
  NS::ApplicationDelegate* _delegate;
}

- (instancetype)initWithDelegate:(NS::ApplicationDelegate*)delegate {
  if ((self = [super init])) _delegate = delegate;
  return self;
}

- (void)applicationDidFinishLaunching:(NSNotification*)notification {
  _delegate->applicationDidFinishLaunching();
}

- (void)applicationWillTerminate:(NSNotification*)notification {
  _delegate->applicationWillTerminate();
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
    static const char key = 0;
    // AppKit refers to its delegate weakly, so the application is made to keep the one that forwards.
    DalvaneApplicationDelegate* const forwarder =
        delegate ? [[DalvaneApplicationDelegate alloc] initWithDelegate:delegate] : nil;
    object(*this).delegate = forwarder;
    objc_setAssociatedObject(object(*this), &key, forwarder, OBJC_ASSOCIATION_RETAIN_NONATOMIC);
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
