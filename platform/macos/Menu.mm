#include "platform/Menu.h"

#import <AppKit/AppKit.h>
#import <objc/runtime.h>

#include "platform/macos/Text.h"

// The target of a menu item whose action is a closure.
@interface DalvaneMenuItemTarget : NSObject
@end

@implementation DalvaneMenuItemTarget {
  std::function<void()> _action;
}

- (instancetype)initWithAction:(std::function<void()>)action {
  if ((self = [super init])) _action = std::move(action);
  return self;
}

- (void)perform:(id)sender {
  // A copy, since the action may give its item another one.
  const auto action = _action;
  action();
}

@end

// Hands what AppKit tells on to the program's delegate.
@interface DalvaneMenuDelegate : NSObject <NSMenuDelegate>
@end

@implementation DalvaneMenuDelegate {
  NS::MenuDelegate* _delegate;
}

- (instancetype)initWithDelegate:(NS::MenuDelegate*)delegate {
  if ((self = [super init])) _delegate = delegate;
  return self;
}

- (void)menuNeedsUpdate:(NSMenu*)menu {
  _delegate->menuNeedsUpdate(NS::Menu(CF::retain((__bridge CFTypeRef)menu)));
}

@end

namespace NS {

static_assert(static_cast<long>(ControlStateValue::Off) == NSControlStateValueOff);
static_assert(static_cast<long>(ControlStateValue::On) == NSControlStateValueOn);

static NSMenuItem* object(const MenuItem& item) { return (__bridge NSMenuItem*)item.get(); }
static NSMenu* object(const Menu& menu) { return (__bridge NSMenu*)menu.get(); }
static NSStatusItem* object(const StatusItem& item) { return (__bridge NSStatusItem*)item.get(); }

// AppKit refers to targets and delegates weakly, so the object that has one is made to keep it.
static void keep(id owner, id kept) {
  static const char key = 0;
  objc_setAssociatedObject(owner, &key, kept, OBJC_ASSOCIATION_RETAIN_NONATOMIC);
}

// ---- Items ----

static CF::Ref<CFTypeRef> makeItem(const std::string& title, SEL action, const std::string& keyEquivalent) {
  @autoreleasepool {
    return CF::adopt((__bridge_retained CFTypeRef)[[NSMenuItem alloc] initWithTitle:string(title)
                                                                             action:action
                                                                      keyEquivalent:string(keyEquivalent)]);
  }
}

MenuItem::MenuItem(const std::string& title, SEL action, const std::string& keyEquivalent)
    : Object(makeItem(title, action, keyEquivalent)) {}

MenuItem MenuItem::separatorItem() {
  @autoreleasepool {
    return MenuItem(CF::retain((__bridge CFTypeRef)[NSMenuItem separatorItem]));
  }
}

void MenuItem::setTitle(const std::string& title) const {
  @autoreleasepool {
    object(*this).title = string(title);
  }
}

void MenuItem::setEnabled(bool enabled) const {
  @autoreleasepool {
    object(*this).enabled = enabled;
  }
}

void MenuItem::setState(ControlStateValue state) const {
  @autoreleasepool {
    object(*this).state = static_cast<NSControlStateValue>(state);
  }
}

void MenuItem::setTargetAction(std::function<void()> action) const {
  @autoreleasepool {
    DalvaneMenuItemTarget* const target = [[DalvaneMenuItemTarget alloc] initWithAction:std::move(action)];
    object(*this).target = target;
    object(*this).action = @selector(perform:);
    keep(object(*this), target);
  }
}

// ---- The menu ----

Menu Menu::make() {
  @autoreleasepool {
    return Menu(CF::adopt((__bridge_retained CFTypeRef)[[NSMenu alloc] init]));
  }
}

void Menu::setDelegate(MenuDelegate* delegate) const {
  @autoreleasepool {
    DalvaneMenuDelegate* const forwarder = delegate ? [[DalvaneMenuDelegate alloc] initWithDelegate:delegate] : nil;
    object(*this).delegate = forwarder;
    keep(object(*this), forwarder);
  }
}

void Menu::setAutoenablesItems(bool autoenables) const {
  @autoreleasepool {
    object(*this).autoenablesItems = autoenables;
  }
}

void Menu::addItem(const MenuItem& item) const {
  @autoreleasepool {
    [object(*this) addItem:object(item)];
  }
}

// ---- The status bar ----

void StatusBarButton::setImage(const Image& image) const {
  @autoreleasepool {
    ((__bridge NSStatusBarButton*)get()).image = (__bridge NSImage*)image.get();
  }
}

StatusBarButton StatusItem::button() const {
  @autoreleasepool {
    return StatusBarButton(CF::retain((__bridge CFTypeRef)object(*this).button));
  }
}

void StatusItem::setMenu(const Menu& menu) const {
  @autoreleasepool {
    object(*this).menu = object(menu);
  }
}

StatusBar StatusBar::systemStatusBar() {
  @autoreleasepool {
    return StatusBar(CF::retain((__bridge CFTypeRef)NSStatusBar.systemStatusBar));
  }
}

StatusItem StatusBar::statusItemWithLength(double length) const {
  @autoreleasepool {
    return StatusItem(CF::retain((__bridge CFTypeRef)[(__bridge NSStatusBar*)get() statusItemWithLength:length]));
  }
}

}  // namespace NS
