#include "platform/Menu.h"

#import <AppKit/AppKit.h>
#import <objc/runtime.h>

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

MenuItem::MenuItem(const std::string& title, SEL action, const std::string& keyEquivalent)
    : Object(CF::adopt((__bridge_retained CFTypeRef)
                           [[NSMenuItem alloc] initWithTitle:(__bridge NSString*)CF::string(title).get()
                                                      action:action
                                               keyEquivalent:(__bridge NSString*)CF::string(keyEquivalent).get()])) {}

MenuItem MenuItem::separatorItem() { return MenuItem(CF::retain((__bridge CFTypeRef)[NSMenuItem separatorItem])); }

void MenuItem::setTitle(const std::string& title) const {
  object(*this).title = (__bridge NSString*)CF::string(title).get();
}

void MenuItem::setEnabled(bool enabled) const { object(*this).enabled = enabled; }

void MenuItem::setState(ControlStateValue state) const {
  object(*this).state = static_cast<NSControlStateValue>(state);
}

void MenuItem::setTargetAction(std::function<void()> action) const {
  DalvaneMenuItemTarget* const target = [[DalvaneMenuItemTarget alloc] initWithAction:std::move(action)];
  object(*this).target = target;
  object(*this).action = @selector(perform:);
  keep(object(*this), target);
}

// ---- The menu ----

Menu Menu::make() { return Menu(CF::adopt((__bridge_retained CFTypeRef)[[NSMenu alloc] init])); }

void Menu::setDelegate(MenuDelegate* delegate) const {
  DalvaneMenuDelegate* const forwarder = delegate ? [[DalvaneMenuDelegate alloc] initWithDelegate:delegate] : nil;
  object(*this).delegate = forwarder;
  keep(object(*this), forwarder);
}

void Menu::setAutoenablesItems(bool autoenables) const { object(*this).autoenablesItems = autoenables; }

void Menu::addItem(const MenuItem& item) const { [object(*this) addItem:object(item)]; }

// ---- The status bar ----

void StatusBarButton::setImage(const Image& image) const {
  ((__bridge NSStatusBarButton*)get()).image = (__bridge NSImage*)image.get();
}

StatusBarButton StatusItem::button() const {
  return StatusBarButton(CF::retain((__bridge CFTypeRef)object(*this).button));
}

void StatusItem::setMenu(const Menu& menu) const { object(*this).menu = object(menu); }

StatusBar StatusBar::systemStatusBar() {
  return StatusBar(CF::retain((__bridge CFTypeRef)NSStatusBar.systemStatusBar));
}

StatusItem StatusBar::statusItemWithLength(double length) const {
  return StatusItem(CF::retain((__bridge CFTypeRef)[(__bridge NSStatusBar*)get() statusItemWithLength:length]));
}

}  // namespace NS
