// NSMenu, NSMenuItem, NSStatusBar and NSStatusItem. Main thread only.
#pragma once

#include <objc/objc.h>

#include <functional>
#include <string>

#include "platform/Image.h"
#include "platform/Object.h"
#include "platform/View.h"

namespace NS {

class Menu;

// NSControlStateValue, as far as it is used: whether an item is ticked.
enum class ControlStateValue : long { Off = 0, On = 1 };

class MenuItem : public Object {
 public:
  MenuItem() noexcept = default;
  // An item whose action goes up the responder chain (NSApplication answers `terminate:`); null: no action.
  MenuItem(const std::string& title, SEL action, const std::string& keyEquivalent);
  static MenuItem separatorItem();
  // The heading of the items below it; it cannot be chosen.
  static MenuItem sectionHeaderWithTitle(const std::string& title);

  void setTitle(const std::string& title) const;
  void setEnabled(bool enabled) const;
  void setState(ControlStateValue state) const;
  // Makes the item its own target: choosing it calls `action`, which the item keeps.
  void setTargetAction(std::function<void()> action) const;
  // Shows `view` in the item's place. The menu has room for the size that its frame has now, and gives it the menu's
  // own width if its mask says so.
  void setView(const View& view) const;

 private:
  using Object::Object;
};

// The menu-delegate role of NSMenuDelegate.
class MenuDelegate {
 public:
  virtual ~MenuDelegate() = default;
  // Called each time the menu is about to open. AppKit may also ask while it is open.
  virtual void menuNeedsUpdate(const Menu& menu) = 0;
  virtual void menuWillOpen(const Menu& menu) = 0;
  virtual void menuDidClose(const Menu& menu) = 0;
};

class Menu : public Object {
 public:
  static Menu make();

  // The delegate is not retained: it must outlive the menu.
  void setDelegate(MenuDelegate* delegate) const;
  void setAutoenablesItems(bool autoenables) const;
  void addItem(const MenuItem& item) const;
  // At an index from 0 to the number of items. The item must be in no menu.
  void insertItem(const MenuItem& item, long index) const;
  // The item must be in this menu.
  void removeItem(const MenuItem& item) const;

  explicit Menu(CF::Ref<CFTypeRef> menu) noexcept : Object(std::move(menu)) {}
};

// NSSquareStatusItemLength: the item is as wide as the menu bar is thick.
inline constexpr double SquareStatusItemLength = -2;

class StatusBarButton : public Object {
 public:
  void setImage(const Image& image) const;

 private:
  friend class StatusItem;
  using Object::Object;
};

// The item leaves the bar with the last reference to it: the bar itself keeps none.
class StatusItem : public Object {
 public:
  StatusItem() noexcept = default;

  // Null when the item has none.
  [[nodiscard]] StatusBarButton button() const;
  void setMenu(const Menu& menu) const;

 private:
  friend class StatusBar;
  using Object::Object;
};

class StatusBar : public Object {
 public:
  static StatusBar systemStatusBar();

  [[nodiscard]] StatusItem statusItemWithLength(double length) const;

 private:
  using Object::Object;
};

}  // namespace NS
