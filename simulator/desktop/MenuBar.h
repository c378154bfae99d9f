// The menu bar's status items with their menus, and the user who opens them.
#pragma once

#include <objc/objc.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/Menu.h"
#include "simulator/desktop/SliderMouse.h"
#include "simulator/drawing/Metrics.h"
#include "simulator/drawing/Picture.h"
#include "simulator/kernel/Object.h"
#include "simulator/kernel/Part.h"

namespace simulator {

class Machine;
class RunLoop;
struct MenuObject;
struct ViewObject;

struct MenuItemObject : Object {
  std::string_view kind() const override { return "NSMenuItem"; }
  [[nodiscard]] ViewObject* viewObject() const;  // null: it has none

  std::string title;
  SEL action = nullptr;
  std::function<void()> targetAction;
  std::string keyEquivalent;
  bool enabled = true;
  bool ticked = false;
  bool separator = false;
  bool header = false;
  CF::Ref<CFTypeRef> view;
  double viewHeight = 0;       // of the view's frame when the item got it
  MenuObject* menu = nullptr;  // that it is in; not retained
};

struct MenuObject : Object {
  ~MenuObject() override;
  std::string_view kind() const override { return "NSMenu"; }

  NS::MenuDelegate* delegate = nullptr;
  bool autoenablesItems = true;
  std::vector<MenuItemObject*> items;  // retained
  bool isFixed = false;  // while the delegate is told of the opening or the closing, in which nothing may be changed
};

// Whether the user can choose the item.
bool isEnabled(const MenuObject& menu, const MenuItemObject& item);

struct StatusItemObject : Object {
  ~StatusItemObject() override;
  std::string_view kind() const override { return "NSStatusItem"; }

  double length = 0;
  class MenuBar* bar = nullptr;  // in which it is; null when that is gone
  CFTypeRef image = nullptr;     // of its button; retained
  MenuObject* menu = nullptr;    // retained
};

// A drag of the open menu's slider with that caption, from where it stands.
struct Slide {
  std::string row;
  std::vector<double> stops;
  bool release;  // the mouse button, at the end
};

class MenuBar : public Part {
 public:
  MenuBar(Machine& machine, RunLoop& runLoop);

  ~MenuBar() override { leaveItems(); }

  void add(StatusItemObject* item) {
    item->bar = this;
    items_.push_back(item);
  }
  void remove(StatusItemObject* item) { std::erase(items_, item); }

  // The user opens the program's menu, closes it, chooses an item by its title, or drags a slider. A mouse button that
  // is still held on a slider is released first, except for more of the same drag. Opening the menu that is open has
  // its delegate asked again, as AppKit does to look for key equivalents.
  void open();
  void close();
  [[nodiscard]] bool isOpen() const { return isOpen_; }
  void click(const std::string& title);
  void slide(const Slide& slide);

  // The open menu, and the image of the program's status item, as they are shown; none when there is none. The image is
  // black, as a template is drawn.
  std::optional<drawing::Picture> menuPicture(const drawing::metrics::Appearance& appearance);
  std::optional<drawing::Picture> iconPicture();

  void addCommands(Commands& commands) override;
  void snapshot(nlohmann::ordered_json& state) override;
  void processEnded(Leaks& leaks) override;

 private:
  void leaveItems();
  // The program's menu, brought up to date; null when it has none.
  MenuObject* update();
  // The same, and about to be shown; and its end.
  MenuObject* begin();
  static void end(MenuObject& menu);
  ViewObject* rowNamed(const std::string& caption) const;
  [[nodiscard]] MenuObject* menu() const;
  static MenuItemObject* chosen(const MenuObject& menu, const std::string& title);
  static void perform(MenuItemObject& item);

  Machine& machine_;
  RunLoop& runLoop_;
  std::vector<StatusItemObject*> items_;  // not retained: the bar's items live as long as the program holds them
  bool isOpen_ = false;
  SliderMouse mouse_;
  CF::Ref<CFTypeRef> chosen_;  // in the open menu, which is about to close
};

}  // namespace simulator
