// The menu bar's status items with their menus, and the user who opens them.
#pragma once

#include <objc/objc.h>

#include <functional>
#include <string>
#include <vector>

#include "platform/Menu.h"
#include "simulator/kernel/Object.h"
#include "simulator/kernel/Part.h"

namespace simulator {

class Machine;
class RunLoop;

struct MenuItemObject : Object {
  std::string_view kind() const override { return "NSMenuItem"; }

  std::string title;
  SEL action = nullptr;
  std::function<void()> targetAction;
  std::string keyEquivalent;
  bool enabled = true;
  bool ticked = false;
  bool separator = false;
  bool header = false;
};

struct MenuObject : Object {
  ~MenuObject() override;
  std::string_view kind() const override { return "NSMenu"; }

  NS::MenuDelegate* delegate = nullptr;
  bool autoenablesItems = true;
  std::vector<MenuItemObject*> items;  // retained
};

struct StatusItemObject : Object {
  ~StatusItemObject() override;
  std::string_view kind() const override { return "NSStatusItem"; }

  double length = 0;
  class MenuBar* bar = nullptr;  // in which it is; null when that is gone
  CFTypeRef image = nullptr;     // of its button; retained
  MenuObject* menu = nullptr;    // retained
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

  // The user opens the program's menu, closes it, or chooses an item by its title.
  void open();
  void close();
  void click(const std::string& title);

  void addCommands(Commands& commands) override;
  void snapshot(nlohmann::ordered_json& state) override;
  void processEnded(Leaks& leaks) override;

 private:
  void leaveItems();
  // The program's menu, brought up to date; null when it has none.
  MenuObject* update();
  [[nodiscard]] MenuObject* menu() const;
  static MenuItemObject* chosen(const MenuObject& menu, const std::string& title);
  static void perform(MenuItemObject& item);

  Machine& machine_;
  RunLoop& runLoop_;
  std::vector<StatusItemObject*> items_;  // not retained: the bar's items live as long as the program holds them
  bool isOpen_ = false;
  CF::Ref<CFTypeRef> chosen_;  // in the open menu, which is about to close
};

}  // namespace simulator
