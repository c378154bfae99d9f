#include "simulator/desktop/MenuBar.h"

#include <nlohmann/json.hpp>
#include <utility>

#include "platform/Application.h"
#include "simulator/desktop/Images.h"
#include "simulator/desktop/MenuLayout.h"
#include "simulator/desktop/Views.h"
#include "simulator/foundation/CoreFoundation.h"
#include "simulator/foundation/RunLoop.h"
#include "simulator/kernel/Call.h"
#include "simulator/kernel/Commands.h"

namespace simulator {
namespace {

// Whole numbers as such.
nlohmann::ordered_json number(double value) {
  const auto whole = static_cast<std::int64_t>(value);
  return static_cast<double>(whole) == value ? nlohmann::ordered_json(whole) : nlohmann::ordered_json(value);
}

nlohmann::ordered_json frameOf(const CGRect& rect) {
  return {number(rect.origin.x), number(rect.origin.y), number(rect.size.width), number(rect.size.height)};
}

nlohmann::ordered_json textOrNull(const std::optional<std::string>& text) {
  return text ? nlohmann::ordered_json(*text) : nlohmann::ordered_json();
}

// The slider of a row, with what is shown beside it; null for a view without one.
nlohmann::ordered_json sliderOf(ViewObject& row) {
  const auto* const slider = firstViewOf<SliderObject>(row);
  if (!slider) return nullptr;
  const auto* const caption = firstViewOf<TextFieldObject>(row);
  const auto* const symbol = firstViewOf<ImageViewObject>(row);
  const bool hasSymbol = symbol && symbol->shown();
  return {{"caption", caption ? caption->text : ""},
          {"shown_caption", caption ? caption->textWithin(caption->box.found.size.width) : ""},
          {"symbol", hasSymbol ? nlohmann::ordered_json(symbol->shown()->symbol) : nlohmann::ordered_json()},
          {"value", number(slider->value)},
          {"minimum", number(slider->minimum)},
          {"maximum", number(slider->maximum)},
          {"ticks", slider->tickMarks},
          {"frame", frameOf(row.frame)},
          {"slider_frame", frameOf(slider->box.found)},
          {"label", slider->accessibilityLabel}};
}

nlohmann::ordered_json iconOf(const ImageObject& image) {
  auto paths = nlohmann::ordered_json::array();
  for (const drawing::Operation& operation : image.picture.operations) {
    constexpr const char* caps[] = {"butt", "round", "square"};
    const bool isFill = operation.kind == drawing::Operation::Kind::fill;
    paths.push_back({{"op", isFill ? "fill" : "stroke"},
                     {"line_width", number(operation.lineWidth)},
                     {"cap", caps[static_cast<int>(operation.cap)]},
                     {"d", operation.path.svg()}});
  }
  return {{"width", number(image.picture.size.width)},
          {"height", number(image.picture.size.height)},
          {"template", image.isTemplate},
          {"description", textOrNull(image.accessibilityDescription)},
          {"flipped", image.picture.flipped},
          {"paths", paths}};
}

// The values on the way of a slide.
std::vector<double> stopsOf(Arguments& line) {
  std::vector<double> stops;
  const auto through = line.json("through", nlohmann::json::array());
  for (const auto& stop : through) {
    if (stop.is_number()) stops.push_back(stop.get<double>());
  }
  if (!through.is_array() || stops.size() != through.size()) line.fail("member \"through\" must be a list of numbers");
  return stops;
}

// Tells the delegate of something during which it must not change the menu (NSMenu.h).
void tell(MenuObject& menu, void (NS::MenuDelegate::*what)(const NS::Menu&)) {
  if (!menu.delegate) return;
  menu.isFixed = true;
  (menu.delegate->*what)(NS::Menu(CF::retain(static_cast<CFTypeRef>(&menu))));
  menu.isFixed = false;
}

}  // namespace

bool isEnabled(const MenuObject& menu, const MenuItemObject& item) {
  if (item.separator || item.header) return false;
  // With automatic enabling an item is enabled when somebody answers its action.
  return menu.autoenablesItems ? item.action || item.targetAction : item.enabled;
}

ViewObject* MenuItemObject::viewObject() const { return view ? &live<ViewObject>(view.get(), "NSMenuItem") : nullptr; }

MenuObject::~MenuObject() {
  for (MenuItemObject* const item : items) {
    item->menu = nullptr;
    release(item, "NSMenu");
  }
}

StatusItemObject::~StatusItemObject() {
  if (bar) bar->remove(this);
  if (image) release(image, "NSStatusItem");
  if (menu) release(menu, "NSStatusItem");
}

MenuBar::MenuBar(Machine& machine, RunLoop& runLoop) : machine_(machine), runLoop_(runLoop), mouse_(machine) {
  machine.faults.declare({"NSStatusItem.button"});
}

MenuObject* MenuBar::menu() const { return items_.empty() ? nullptr : items_.front()->menu; }

MenuObject* MenuBar::update() {
  MenuObject* const updated = menu();
  if (updated && updated->delegate) {
    updated->delegate->menuNeedsUpdate(NS::Menu(CF::retain(static_cast<CFTypeRef>(updated))));
  }
  return updated;
}

MenuObject* MenuBar::begin() {
  MenuObject* const opened = update();
  if (!opened) return nullptr;
  tell(*opened, &NS::MenuDelegate::menuWillOpen);
  {
    const Scheduler::Lock lock(machine_.scheduler);
    layOut(*opened);
  }
  // The button is drawn anew, as one whose menu is open.
  if (const void* const image = items_.front()->image)
    drawInBackground(machine_, live<ImageObject>(image, "NSStatusItem"));
  return opened;
}

void MenuBar::end(MenuObject& menu) { tell(menu, &NS::MenuDelegate::menuDidClose); }

void MenuBar::open() {
  if (!machine_.process.running()) return;
  // Also done while the menu is open: it must not open again when it has been closed.
  runLoop_.post(this, commonModes, [this] {
    if (isOpen_) {
      update();
      return;
    }
    MenuObject* const menu = begin();
    const auto opened = CF::retain(static_cast<CFTypeRef>(menu));
    if (!opened) return;
    isOpen_ = true;
    while (isOpen_) runLoop_.runOnce(eventTrackingMode);
    end(*menu);
    // The action is sent when the menu is gone.
    const auto item = std::exchange(chosen_, {});
    if (item) perform(live<MenuItemObject>(item.get(), "NSMenu"));
  });
}

void MenuBar::close() {
  if (!machine_.process.running()) return;
  runLoop_.post(this, commonModes, [this] {
    mouse_.release();
    isOpen_ = false;
  });
}

void MenuBar::click(const std::string& title) {
  if (!machine_.process.running()) return;
  runLoop_.post(this, commonModes, [this, title] {
    if (isOpen_) {
      mouse_.release();
      MenuItemObject* const item = chosen(*menu(), title);
      if (!item) return;  // the user finds nothing to click; the menu stays
      chosen_ = CF::retain(static_cast<CFTypeRef>(item));
      isOpen_ = false;
      return;
    }
    MenuObject* const opened = begin();
    if (!opened) return;
    const auto item = CF::retain(static_cast<CFTypeRef>(chosen(*opened, title)));
    end(*opened);
    if (item) perform(live<MenuItemObject>(item.get(), "NSMenu"));
  });
}

ViewObject* MenuBar::rowNamed(const std::string& caption) const {
  for (const MenuItemObject* const item : menu()->items) {
    ViewObject* const view = item->viewObject();
    const auto* const text = view ? firstViewOf<TextFieldObject>(*view) : nullptr;
    if (text && text->text == caption) return view;
  }
  return nullptr;
}

void MenuBar::slide(const Slide& slide) {
  if (!machine_.process.running()) return;
  runLoop_.post(this, commonModes, [this, row = slide.row] {
    // The user finds no such slider when there is none, and drags nothing.
    ViewObject* const view = isOpen_ ? rowNamed(row) : nullptr;
    auto* const slider = view ? firstViewOf<SliderObject>(*view) : nullptr;
    slider ? mouse_.press(*slider) : mouse_.release();
  });
  for (const double stop : slide.stops) {
    runLoop_.post(this, commonModes, [this, stop] { mouse_.moveTo(stop); });
  }
  if (slide.release) runLoop_.post(this, commonModes, [this] { mouse_.release(); });
}

std::optional<drawing::Picture> MenuBar::menuPicture(const drawing::metrics::Appearance& appearance) {
  const Scheduler::Lock lock(machine_.scheduler);
  if (!isOpen_ || !menu()) return std::nullopt;
  return pictureOf(*menu(), appearance);
}

std::optional<drawing::Picture> MenuBar::iconPicture() {
  const Scheduler::Lock lock(machine_.scheduler);
  if (items_.empty() || !items_.front()->image) return std::nullopt;
  const auto& image = live<ImageObject>(items_.front()->image, "NSStatusItem");
  return image.isDrawn ? std::optional(image.picture) : std::nullopt;
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
  commands.add("slide", [this](Arguments& line) -> Action {
    Slide slide{.row = line.text("row"), .stops = stopsOf(line), .release = line.flag("release", true)};
    slide.stops.push_back(line.number("to"));
    return [this, slide] { this->slide(slide); };
  });
}

void MenuBar::snapshot(nlohmann::ordered_json& state) {
  state["menu"] = nullptr;
  state["icon"] = nullptr;
  state["status_item"] = nullptr;
  if (items_.empty()) return;
  state["status_item"] = {{"length", items_.front()->length}};
  if (const void* const button = items_.front()->image) {
    const auto& image = live<ImageObject>(button, "NSStatusItem");
    if (image.isDrawn) state["icon"] = iconOf(image);
  }
  if (!isOpen_) return;
  const MenuLayout layout = layOut(*menu());
  auto shown = nlohmann::ordered_json::array();
  for (std::size_t i = 0; i < layout.items.size(); ++i) {
    const MenuItemObject* const item = menu()->items[i];
    ViewObject* const view = item->viewObject();
    shown.push_back({{"title", item->title},
                     {"key", item->keyEquivalent},
                     {"enabled", isEnabled(*menu(), *item)},
                     {"ticked", item->ticked},
                     {"separator", item->separator},
                     {"header", item->header},
                     {"frame", frameOf(layout.items[i])},
                     {"slider", view ? sliderOf(*view) : nlohmann::ordered_json()}});
  }
  state["menu"] = shown;
}

void MenuBar::processEnded(Leaks&) {
  isOpen_ = false;
  mouse_.letGo();
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

// The menu, for a call that changes it.
MenuObject& changeable(const Menu& object, const char* call) {
  auto& menu = live<MenuObject>(object.get(), call);
  if (menu.isFixed) simulator::fatal(std::string(call) + " was called while the menu opened or closed");
  return menu;
}

void insert(const Menu& object, const MenuItem& item, long index, const char* call) {
  auto& added = live<MenuItemObject>(item.get(), call);
  auto& menu = changeable(object, call);
  if (added.menu) simulator::fatal(std::string(call) + ": the item is in a menu already");
  if (index < 0 || index > static_cast<long>(menu.items.size()))
    simulator::fatal(std::string(call) + ": no such index");
  simulator::retain(&added, call);
  added.menu = &menu;
  menu.items.insert(menu.items.begin() + index, &added);
}

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

MenuItem MenuItem::sectionHeaderWithTitle(const std::string& title) {
  constexpr const char* name = "NSMenuItem.sectionHeaderWithTitle";
  const Call call(name, Call::On::mainThread);
  auto* const item = new MenuItemObject;
  MenuItem made(CF::adopt(static_cast<CFTypeRef>(item)));
  item->title = simulator::requireUTF8(title, name);
  item->header = true;
  return made;
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

void MenuItem::setView(const View& view) const {
  const Call call("NSMenuItem.setView", Call::On::mainThread);
  auto& item = live<MenuItemObject>(get(), "NSMenuItem.setView");
  const auto& shown = live<simulator::ViewObject>(view.get(), "NSMenuItem.setView");
  item.view = CF::retain(view.get());
  item.viewHeight = shown.frame.size.height;
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
  insert(*this, item, static_cast<long>(live<MenuObject>(get(), "NSMenu.addItem").items.size()), "NSMenu.addItem");
}

void Menu::insertItem(const MenuItem& item, long index) const {
  const Call call("NSMenu.insertItem", Call::On::mainThread);
  insert(*this, item, index, "NSMenu.insertItem");
}

void Menu::removeItem(const MenuItem& item) const {
  const Call call("NSMenu.removeItem", Call::On::mainThread);
  auto& removed = live<MenuItemObject>(item.get(), "NSMenu.removeItem");
  auto& menu = changeable(*this, "NSMenu.removeItem");
  if (removed.menu != &menu) simulator::fatal("NSMenu.removeItem: the item is not in this menu");
  std::erase(menu.items, &removed);
  removed.menu = nullptr;
  simulator::release(&removed, "NSMenu.removeItem");
}

void StatusBarButton::setImage(const Image& image) const {
  const Call call("NSStatusBarButton.setImage", Call::On::mainThread);
  auto& item = live<StatusItemObject>(get(), "NSStatusBarButton.setImage");
  if (image) CFRetain(image.get());
  if (const CFTypeRef old = std::exchange(item.image, image.get())) CFRelease(old);
  if (image)
    simulator::drawInBackground(call.machine, live<simulator::ImageObject>(image.get(), "NSStatusBarButton.setImage"));
}

// The button is as long-lived as its item; here it is the item itself.
StatusBarButton StatusItem::button() const {
  const Call call("NSStatusItem.button", Call::On::mainThread);
  if (call.fault()) return StatusBarButton({});
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
