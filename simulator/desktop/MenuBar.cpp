#include "simulator/desktop/MenuBar.h"

#include <nlohmann/json.hpp>
#include <utility>

#include "platform/Application.h"
#include "simulator/foundation/CoreFoundation.h"
#include "simulator/foundation/RunLoop.h"
#include "simulator/kernel/Call.h"
#include "simulator/kernel/Commands.h"

namespace simulator {
namespace {

bool isEnabled(const MenuObject& menu, const MenuItemObject& item) {
  if (item.separator) return false;
  // With automatic enabling an item is enabled when somebody answers its action.
  return menu.autoenablesItems ? item.action || item.targetAction : item.enabled;
}

}  // namespace

MenuObject::~MenuObject() {
  for (MenuItemObject* const item : items) release(item, "NSMenu");
}

StatusItemObject::~StatusItemObject() {
  if (bar) bar->remove(this);
  if (image) release(image, "NSStatusItem");
  if (menu) release(menu, "NSStatusItem");
}

MenuBar::MenuBar(Machine& machine, RunLoop& runLoop) : machine_(machine), runLoop_(runLoop) {}

MenuObject* MenuBar::menu() const { return items_.empty() ? nullptr : items_.front()->menu; }

MenuObject* MenuBar::update() {
  MenuObject* const updated = menu();
  if (updated && updated->delegate) {
    updated->delegate->menuNeedsUpdate(NS::Menu(CF::retain(static_cast<CFTypeRef>(updated))));
  }
  return updated;
}

void MenuBar::open() {
  if (!machine_.process.running()) return;
  // Also done, as nothing, while the menu is open: it must not open again when it has been closed.
  runLoop_.post(this, commonModes, [this] {
    if (isOpen_) return;
    const auto opened = CF::retain(static_cast<CFTypeRef>(update()));
    if (!opened) return;
    isOpen_ = true;
    while (isOpen_) runLoop_.runOnce(eventTrackingMode);
    // The action is sent when the menu is gone.
    const auto item = std::exchange(chosen_, {});
    if (item) perform(live<MenuItemObject>(item.get(), "NSMenu"));
  });
}

void MenuBar::close() {
  if (!machine_.process.running()) return;
  runLoop_.post(this, commonModes, [this] { isOpen_ = false; });
}

void MenuBar::click(const std::string& title) {
  if (!machine_.process.running()) return;
  runLoop_.post(this, commonModes, [this, title] {
    if (isOpen_) {
      MenuItemObject* const item = chosen(*menu(), title);
      if (!item) return;  // the user finds nothing to click; the menu stays
      chosen_ = CF::retain(static_cast<CFTypeRef>(item));
      isOpen_ = false;
      return;
    }
    const MenuObject* const opened = update();
    const auto item = CF::retain(static_cast<CFTypeRef>(opened ? chosen(*opened, title) : nullptr));
    if (item) perform(live<MenuItemObject>(item.get(), "NSMenu"));
  });
}

MenuItemObject* MenuBar::chosen(const MenuObject& menu, const std::string& title) {
  for (MenuItemObject* const item : menu.items) {
    if (item->title == title && isEnabled(menu, *item)) return item;
  }
  return nullptr;
}

void MenuBar::perform(MenuItemObject& item) {
  if (item.targetAction) {
    const auto action = item.targetAction;
    action();
  } else if (item.action == sel_registerName("terminate:")) {
    NS::Application::sharedApplication().terminate();
  }
}

void MenuBar::addCommands(Commands& commands) {
  commands.add("menu", [this](Arguments& line) -> Action {
    if (line.flag("open")) return [this] { open(); };
    return [this] { close(); };
  });
  commands.add("click",
               [this](Arguments& line) -> Action { return [this, item = line.text("item")] { click(item); }; });
}

void MenuBar::snapshot(nlohmann::ordered_json& state) {
  state["menu"] = nullptr;
  state["icon"] = nullptr;
  state["status_item"] = nullptr;
  if (items_.empty()) return;
  state["status_item"] = {{"length", items_.front()->length}};
  if (!isOpen_) return;
  auto shown = nlohmann::ordered_json::array();
  for (const MenuItemObject* const item : menu()->items) {
    shown.push_back({{"title", item->title},
                     {"key", item->keyEquivalent},
                     {"enabled", isEnabled(*menu(), *item)},
                     {"ticked", item->ticked},
                     {"separator", item->separator},
                     {"header", item->header},
                     {"slider", nullptr}});
  }
  state["menu"] = shown;
}

void MenuBar::processEnded(Leaks&) {
  isOpen_ = false;
  chosen_ = {};
  leaveItems();
}

void MenuBar::leaveItems() {
  for (StatusItemObject* const item : std::exchange(items_, {})) item->bar = nullptr;
}

}  // namespace simulator

// ---- The calls ----

namespace NS {
namespace {

using simulator::Call;
using simulator::live;
using simulator::MenuItemObject;
using simulator::MenuObject;
using simulator::StatusItemObject;

struct StatusBarObject : simulator::Object {
  StatusBarObject() { makeImmortal(); }
  std::string_view kind() const override { return "NSStatusBar"; }
};

}  // namespace

MenuItem::MenuItem(const std::string& title, SEL action, const std::string& keyEquivalent) {
  const Call call("NSMenuItem.init", Call::On::mainThread);
  auto* const item = new MenuItemObject;
  item->title = simulator::requireUTF8(title, "NSMenuItem.init");
  item->action = action;
  item->keyEquivalent = simulator::requireUTF8(keyEquivalent, "NSMenuItem.init");
  *this = MenuItem(CF::adopt(static_cast<CFTypeRef>(item)));
}

MenuItem MenuItem::separatorItem() {
  const Call call("NSMenuItem.separatorItem", Call::On::mainThread);
  auto* const item = new MenuItemObject;
  item->separator = true;
  return MenuItem(CF::adopt(static_cast<CFTypeRef>(item)));
}

void MenuItem::setTitle(const std::string& title) const {
  const Call call("NSMenuItem.setTitle", Call::On::mainThread);
  live<MenuItemObject>(get(), "NSMenuItem.setTitle").title = simulator::requireUTF8(title, "NSMenuItem.setTitle");
}

void MenuItem::setEnabled(bool enabled) const {
  const Call call("NSMenuItem.setEnabled", Call::On::mainThread);
  live<MenuItemObject>(get(), "NSMenuItem.setEnabled").enabled = enabled;
}

void MenuItem::setState(ControlStateValue state) const {
  const Call call("NSMenuItem.setState", Call::On::mainThread);
  live<MenuItemObject>(get(), "NSMenuItem.setState").ticked = state == ControlStateValue::On;
}

void MenuItem::setTargetAction(std::function<void()> action) const {
  const Call call("NSMenuItem.setAction", Call::On::mainThread);
  live<MenuItemObject>(get(), "NSMenuItem.setAction").targetAction = std::move(action);
}

Menu Menu::make() {
  const Call call("NSMenu.init", Call::On::mainThread);
  return Menu(CF::adopt(static_cast<CFTypeRef>(new MenuObject)));
}

void Menu::setDelegate(MenuDelegate* delegate) const {
  const Call call("NSMenu.setDelegate", Call::On::mainThread);
  live<MenuObject>(get(), "NSMenu.setDelegate").delegate = delegate;
}

void Menu::setAutoenablesItems(bool autoenables) const {
  const Call call("NSMenu.setAutoenablesItems", Call::On::mainThread);
  live<MenuObject>(get(), "NSMenu.setAutoenablesItems").autoenablesItems = autoenables;
}

void Menu::addItem(const MenuItem& item) const {
  const Call call("NSMenu.addItem", Call::On::mainThread);
  auto& added = live<MenuItemObject>(item.get(), "NSMenu.addItem");
  auto& menu = live<MenuObject>(get(), "NSMenu.addItem");
  simulator::retain(&added, "NSMenu.addItem");
  menu.items.push_back(&added);
}

void StatusBarButton::setImage(const Image& image) const {
  const Call call("NSStatusBarButton.setImage", Call::On::mainThread);
  auto& item = live<StatusItemObject>(get(), "NSStatusBarButton.setImage");
  if (image) CFRetain(image.get());
  if (const CFTypeRef old = std::exchange(item.image, image.get())) CFRelease(old);
}

// The button is as long-lived as its item; here it is the item itself.
StatusBarButton StatusItem::button() const {
  const Call call("NSStatusItem.button", Call::On::mainThread);
  return StatusBarButton(CF::retain(static_cast<CFTypeRef>(&live<StatusItemObject>(get(), "NSStatusItem.button"))));
}

void StatusItem::setMenu(const Menu& menu) const {
  const Call call("NSStatusItem.setMenu", Call::On::mainThread);
  auto& item = live<StatusItemObject>(get(), "NSStatusItem.setMenu");
  auto& attached = live<MenuObject>(menu.get(), "NSStatusItem.setMenu");
  simulator::retain(&attached, "NSStatusItem.setMenu");
  if (MenuObject* const old = std::exchange(item.menu, &attached)) simulator::release(old, "NSStatusItem.setMenu");
}

StatusBar StatusBar::systemStatusBar() {
  static auto* const bar = new StatusBarObject;
  return StatusBar(CF::retain(static_cast<CFTypeRef>(bar)));
}

StatusItem StatusBar::statusItemWithLength(double length) const {
  const Call call("NSStatusBar.statusItemWithLength", Call::On::mainThread);
  auto* const item = new StatusItemObject;
  item->length = length;
  call.part<simulator::MenuBar>().add(item);
  return StatusItem(CF::adopt(static_cast<CFTypeRef>(item)));
}

}  // namespace NS
