#include "platform/Menu.h"

#import <AppKit/AppKit.h>

#include "platform/macos/Conversions.h"
#include "platform/macos/Target.h"
#include "platform/macos/Text.h"

// Hands what AppKit tells on to the program's delegate.
@interface DalvaneMenuDelegate : NSObject <NSMenuDelegate>
@property(nonatomic) NS::MenuDelegate* receiver;
@end

@implementation DalvaneMenuDelegate

- (void)menuNeedsUpdate:(NSMenu*)menu {
  self.receiver->menuNeedsUpdate(NS::Menu(CF::retain((__bridge CFTypeRef)menu)));
}

- (void)menuWillOpen:(NSMenu*)menu {
  self.receiver->menuWillOpen(NS::Menu(CF::retain((__bridge CFTypeRef)menu)));
}

- (void)menuDidClose:(NSMenu*)menu {
  self.receiver->menuDidClose(NS::Menu(CF::retain((__bridge CFTypeRef)menu)));
}

@end

namespace NS {

static_assert(static_cast<long>(ControlStateValue::Off) == NSControlStateValueOff);
static_assert(static_cast<long>(ControlStateValue::On) == NSControlStateValueOn);

static NSMenuItem* object(const MenuItem& item) { return (__bridge NSMenuItem*)item.get(); }
static NSMenu* object(const Menu& menu) { return (__bridge NSMenu*)menu.get(); }
static NSStatusItem* object(const StatusItem& item) { return (__bridge NSStatusItem*)item.get(); }

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

MenuItem MenuItem::sectionHeaderWithTitle(const std::string& title) {
  @autoreleasepool {
    return MenuItem(CF::retain((__bridge CFTypeRef)[NSMenuItem sectionHeaderWithTitle:string(title)]));
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

// NOLINTNEXTLINE(performance-unnecessary-value-param): it is moved, through a property
void MenuItem::setTargetAction(std::function<void()> action) const {
  @autoreleasepool {
    DalvaneTarget* const target = [[DalvaneTarget alloc] init];
    target.action = std::move(action);
    object(*this).target = target;
    object(*this).action = @selector(perform:);
    keep(object(*this), target);
  }
}

void MenuItem::setView(const View& view) const {
  @autoreleasepool {
    object(*this).view = (__bridge NSView*)view.get();
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
    DalvaneMenuDelegate* const receiver = forwarder<DalvaneMenuDelegate>(delegate);
    object(*this).delegate = receiver;
    keep(object(*this), receiver);
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

void Menu::insertItem(const MenuItem& item, long index) const {
  @autoreleasepool {
    [object(*this) insertItem:object(item) atIndex:index];
  }
}

void Menu::removeItem(const MenuItem& item) const {
  @autoreleasepool {
    [object(*this) removeItem:object(item)];
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
