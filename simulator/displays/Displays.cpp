#include "simulator/displays/Displays.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <system_error>
#include <tuple>

#include "platform/NotificationCenter.h"
#include "platform/Screen.h"
#include "simulator/displays/EDID.h"
#include "simulator/displays/Registry.h"
#include "simulator/displays/RegistryText.h"
#include "simulator/foundation/CoreFoundation.h"
#include "simulator/foundation/NotificationCenters.h"
#include "simulator/kernel/Call.h"
#include "simulator/kernel/Commands.h"

namespace simulator {
namespace {

struct ScreenObject : Object {
  explicit ScreenObject(Display shown) : display(std::move(shown)) {}
  std::string_view kind() const override { return "NSScreen"; }
  const Display display;
};

// What the I/O Registry shows of a display: a framebuffer with its attributes, then its AV service.
std::shared_ptr<const RegistryEntry> registryEntries(const Display& display) {
  auto framebuffer = std::make_shared<RegistryEntry>();
  framebuffer->name = display.builtin ? "AppleCLCD2" : "IOMobileFramebufferShim";
  framebuffer->properties = {{"DisplayAttributes",
                              {{"ProductAttributes",
                                {{"LegacyManufacturerID", display.vendor},
                                 {"ProductID", display.product},
                                 {"SerialNumber", display.serial},
                                 {"ProductName", display.productName}}}}}};
  auto root = std::make_shared<RegistryEntry>();
  root->name = display.builtin ? "disp0" : "dispext" + std::to_string(display.id);
  root->children.push_back(std::move(framebuffer));
  if (display.monitor) {
    auto proxy = std::make_shared<RegistryEntry>();
    proxy->name = "DCPAVServiceProxy";
    proxy->properties = {{"Location", display.location}};
    proxy->display = display.id;
    root->children.push_back(std::move(proxy));
  }
  return root;
}

// What the monitor says of itself, where the line has its EDID in hex.
EDID identityOf(Arguments& line) {
  if (!line.has("edid")) return {};
  const std::string text = line.text("edid");
  std::vector<std::uint8_t> bytes;
  for (std::size_t at = 0; at + 1 < text.size(); at += 2) {
    std::uint8_t byte = 0;
    if (std::from_chars(&text[at], &text[at] + 2, byte, 16).ptr != &text[at] + 2) break;
    bytes.push_back(byte);
  }
  const auto edid = 2 * bytes.size() == text.size() ? EDID::parse(bytes) : std::nullopt;
  if (!edid) line.fail("member \"edid\" must be an EDID in hexadecimal digits");
  return *edid;
}

// What the file holds that a user's `ioreg` wrote.
std::vector<std::shared_ptr<const RegistryEntry>> readRegistry(Arguments& line) {
  const std::filesystem::path path = line.path("file");
  std::error_code ignored;
  std::ifstream file(path);
  std::ostringstream text;
  // Anything else than a plain file might never end.
  if (!file || !std::filesystem::is_regular_file(path, ignored)) {
    line.fail("\"" + path.string() + "\" cannot be read");
  }
  text << file.rdbuf();
  auto entries = readRegistryText(text.view());
  if (!entries) line.fail("\"" + path.string() + "\" is not what \"ioreg -l -w0\" writes");
  return *std::move(entries);
}

// How fast the monitor is.
std::function<void(Monitor&)> adjustment(Arguments& line) {
  std::optional<Duration> replyDelay;
  if (line.has("reply-delay")) replyDelay = line.duration("reply-delay");
  std::optional<Duration> wakesAfter;
  if (line.has("wakes-after")) wakesAfter = line.duration("wakes-after");
  return [=](Monitor& monitor) {
    if (replyDelay) monitor.setReplyDelay(*replyDelay);
    if (wakesAfter) monitor.setWakesAfter(*wakesAfter);
  };
}

Monitor::Fault faultNamed(const std::string& name, Arguments& line) {
  if (name == "none") return Monitor::Fault::none;
  if (name == "no-answer") return Monitor::Fault::noAnswer;
  if (name == "bad-checksum") return Monitor::Fault::badChecksum;
  if (name == "write-fails") return Monitor::Fault::writeFails;
  if (name == "second-write-fails") return Monitor::Fault::secondWriteFails;
  if (name == "slow") return Monitor::Fault::slow;
  if (name == "null-message") return Monitor::Fault::nullMessage;
  line.fail("unknown fault \"" + name + "\"");
}

// Whether they can only differ in where they stand.
bool isSame(const Display& a, const Display& b) {
  const auto marks = [](const Display& each) {
    return std::tie(each.name, each.productName, each.builtin, each.vendor, each.product, each.serial, each.location);
  };
  return marks(a) == marks(b);
}

}  // namespace

Displays::Displays(Machine& machine, Registry& registry, NotificationCenters& notifications)
    : machine_(machine), registry_(registry), notifications_(notifications) {
  machine.faults.declare({"CGGetOnlineDisplayList", "NSScreen.deviceDescription"});
}

const Display* Displays::find(std::uint32_t id) const {
  const auto found = std::ranges::find(displays_, id, &Display::id);
  return found == displays_.end() ? nullptr : &*found;
}

const Display* Displays::reached(const RegistryEntry& entry) const {
  if (entry.display) return find(*entry.display);
  if (!entry.reaches) return nullptr;
  auto [identity, nth] = *entry.reaches;
  for (const Display& each : displays_) {
    if (identity == DisplayIdentity{each.vendor, each.product, each.serial} && nth-- == 0) return &each;
  }
  return nullptr;
}

const Display* Displays::main() const {
  const auto atOrigin = std::ranges::find_if(displays_, [](const Display& each) {
    return each.frame.origin.x == 0 && each.frame.origin.y == 0 && !each.mirrors;
  });
  if (atOrigin != displays_.end()) return &*atOrigin;
  return displays_.empty() ? nullptr : &displays_.front();
}

void Displays::connect(Display display) {
  registry_.setDisplay(display.id, registryEntries(display));
  displays_.push_back(std::move(display));
}

void Displays::disconnect(std::uint32_t id) {
  registry_.removeDisplay(id);
  const auto gone = std::ranges::find(displays_, id, &Display::id);
  if (gone->monitor) gone->monitor->unplug();
  displays_.erase(gone);
}

void Displays::setMonitorsWakeAfter(Duration time) {
  for (const Display& display : displays_) {
    if (display.monitor) display.monitor->setWakesAfter(time);
  }
}

void Displays::didWake() {
  for (const Display& display : displays_) {
    if (display.monitor) display.monitor->wakeUp();
  }
  notifications_.postBurst(NotificationCenters::defaultCenter, NS::ApplicationDidChangeScreenParametersNotification());
}

void Displays::screensChanged() {
  notifications_.post(NotificationCenters::defaultCenter, NS::ApplicationDidChangeScreenParametersNotification());
}

Display& Displays::connected(std::uint32_t id) {
  const auto found = std::ranges::find(displays_, id, &Display::id);
  if (found == displays_.end()) throw ScenarioError("there is no display " + std::to_string(id));
  return *found;
}

// What one line, or one entry of a list of changes, does to a display; the screens' change is told afterwards.
Action Displays::change(Arguments& line) {
  const auto id = line.unsigned32("id");
  if (line.flag("gone", false)) {
    return [this, id] {
      (void)connected(id);
      disconnect(id);
    };
  }
  const bool mirrors = line.has("mirrors");
  const auto mirrored = mirrors && !line.json("mirrors").is_null() ? line.optionalUnsigned32("mirrors") : std::nullopt;
  if (!line.has("name") && (line.has("frame") || mirrors)) {
    const auto frame = line.has("frame") ? std::optional(line.rectangle("frame")) : std::nullopt;
    return [=, this] {
      Display& display = connected(id);
      if (frame) display.frame = *frame;
      if (mirrors) display.mirrors = mirrored;
    };
  }
  const EDID edid = identityOf(line);
  const Display display{.id = id,
                        .name = line.text("name"),
                        .productName = line.has("edid") ? edid.name : line.text("name"),
                        .builtin = line.flag("builtin", false),
                        .frame = line.rectangle("frame"),
                        .vendor = line.has("edid") ? edid.vendor : line.unsigned32("vendor", 0),
                        .product = line.has("edid") ? edid.product : line.unsigned32("product", 0),
                        .serial = line.has("edid") ? edid.serial : line.unsigned32("serial", 0),
                        .location = line.text("location", "External"),
                        .mirrors = mirrored,
                        .monitor = nullptr};
  std::function<void(Monitor&)> setMonitor;  // empty: it has none
  if (auto monitor = line.object("monitor")) {
    const std::uint16_t current = monitor->unsigned16("current");
    const std::uint16_t maximum = monitor->unsigned16("maximum");
    setMonitor = [current, maximum, adjust = adjustment(*monitor)](Monitor& it) {
      it.setCurrent(current);
      it.setMaximum(maximum);
      adjust(it);
    };
    monitor->finish();
  }
  return [this, display, setMonitor] {
    const auto there = std::ranges::find(displays_, display.id, &Display::id);
    if (there == displays_.end()) {
      Display added = display;
      if (setMonitor) added.monitor = std::make_shared<Monitor>(machine_.scheduler);
      connect(std::move(added));
    } else if (isSame(*there, display) && (there->monitor != nullptr) == static_cast<bool>(setMonitor)) {
      there->frame = display.frame;
      there->mirrors = display.mirrors;
    } else {
      throw ScenarioError("display " + std::to_string(display.id) + " is connected already");
    }
    if (setMonitor) setMonitor(*connected(display.id).monitor);
  };
}

void Displays::addCommands(Commands& commands) {
  commands.add("display", [this](Arguments& line) -> Action {
    std::vector<Action> changes;
    if (line.has("changes")) {
      for (Arguments& each : line.objects("changes")) {
        changes.push_back(change(each));
        each.finish();
      }
    } else {
      changes.push_back(change(line));
    }
    return [this, changes] {
      for (const Action& each : changes) each();
      screensChanged();
    };
  });

  commands.add("monitor", [this](Arguments& line) -> Action {
    const auto id = line.unsigned32("display");
    const auto current = line.optionalUnsigned16("current");
    const auto maximum = line.optionalUnsigned16("maximum");
    std::optional<Monitor::Fault> fault;
    if (line.has("fault")) fault = faultNamed(line.text("fault"), line);
    const std::uint64_t attempts = line.has("attempts") ? line.count("attempts", 0) : Monitor::forever;
    const auto adjust = adjustment(line);
    return [=, this] {
      const Display* const display = find(id);
      if (!display || !display->monitor) {
        throw ScenarioError("display " + std::to_string(id) + " has no monitor that can be reached");
      }
      if (current) display->monitor->setCurrent(*current);
      if (maximum) display->monitor->setMaximum(*maximum);
      if (fault) display->monitor->setFault(*fault, attempts);
      adjust(*display->monitor);
    };
  });

  commands.add("pointer", [this](Arguments& line) -> Action {
    const CGPoint at = line.point("at");
    return [this, at] { pointer_ = at; };
  });

  commands.add("registry", [this](Arguments& line) -> Action {
    if (line.has("file")) return [this, entries = readRegistry(line)] { registry_.replaceAll(entries); };
    std::vector<std::shared_ptr<const RegistryEntry>> entries;
    for (Arguments& each : line.objects("entries")) {
      auto entry = std::make_shared<RegistryEntry>();
      entry->name = each.text("name");
      if (each.has("properties")) entry->properties = each.jsonObject("properties");
      if (!each.json("display", nullptr).is_null()) entry->display = each.unsigned32("display");
      each.finish();
      entries.push_back(std::move(entry));
    }
    return [this, entries] { registry_.replaceAll(entries); };
  });
}

void Displays::snapshot(nlohmann::ordered_json& state) {
  state["displays"] = nlohmann::ordered_json::array();
  for (const Display& display : displays_) {
    nlohmann::ordered_json shown = {{"id", display.id}, {"brightness", nullptr}};
    if (display.monitor) shown["brightness"] = display.monitor->current();
    state["displays"].push_back(shown);
  }
}

}  // namespace simulator

// ---- The calls ----

using simulator::Call;
using simulator::Display;

extern "C" {

CGDirectDisplayID CGMainDisplayID(void) {
  const Call call("CGMainDisplayID");
  const Display* const main = call.part<simulator::Displays>().main();
  return main ? main->id : kCGNullDirectDisplay;
}

CGError CGGetOnlineDisplayList(uint32_t maxDisplays, CGDirectDisplayID* onlineDisplays, uint32_t* displayCount) {
  const Call call("CGGetOnlineDisplayList");
  // A call that fails may have done its work: nothing says that it leaves its results alone.
  const CGError status = call.fault().value_or(kCGErrorSuccess);
  const auto& displays = call.part<simulator::Displays>().all();
  const auto online = static_cast<std::uint32_t>(displays.size());
  // Without a buffer the count is that of the displays; with one, of those that were stored.
  if (!onlineDisplays) {
    *displayCount = online;
    return status;
  }
  *displayCount = std::min(online, maxDisplays);
  for (std::uint32_t i = 0; i < *displayCount; ++i) onlineDisplays[i] = displays[i].id;
  return status;
}

boolean_t CGDisplayIsBuiltin(CGDirectDisplayID id) {
  const Call call("CGDisplayIsBuiltin");
  const Display* const display = call.part<simulator::Displays>().find(id);
  return display && display->builtin;
}

// The unknown display's numbers are all ones.
uint32_t CGDisplayVendorNumber(CGDirectDisplayID id) {
  const Call call("CGDisplayVendorNumber");
  const Display* const display = call.part<simulator::Displays>().find(id);
  return display ? display->vendor : 0xFFFFFFFF;
}

uint32_t CGDisplayModelNumber(CGDirectDisplayID id) {
  const Call call("CGDisplayModelNumber");
  const Display* const display = call.part<simulator::Displays>().find(id);
  return display ? display->product : 0xFFFFFFFF;
}

uint32_t CGDisplaySerialNumber(CGDirectDisplayID id) {
  const Call call("CGDisplaySerialNumber");
  const Display* const display = call.part<simulator::Displays>().find(id);
  return display ? display->serial : 0xFFFFFFFF;
}

}  // extern "C"

// ---- NSScreen ----

namespace NS {
namespace {

const Display& displayOf(const Screen& screen, const char* call) {
  return simulator::live<simulator::ScreenObject>(screen.get(), call).display;
}

}  // namespace

std::vector<Screen> Screen::screens() {
  const Call call("NSScreen.screens", Call::On::mainThread);
  std::vector<Screen> screens;
  const Display* const main = call.part<simulator::Displays>().main();
  const auto add = [&screens](const Display& display) {
    screens.emplace_back(CF::adopt(static_cast<CFTypeRef>(new simulator::ScreenObject(display))));
  };
  // The screen with the menu bar comes first.
  if (main) add(*main);
  for (const Display& display : call.part<simulator::Displays>().all()) {
    if (&display != main && !display.mirrors) add(display);
  }
  return screens;
}

CGRect Screen::frame() const {
  const Call call("NSScreen.frame", Call::On::mainThread);
  return displayOf(*this, "NSScreen.frame").frame;
}

std::string Screen::localizedName() const {
  const Call call("NSScreen.localizedName", Call::On::mainThread);
  return displayOf(*this, "NSScreen.localizedName").name;
}

CF::Ref<CFDictionaryRef> Screen::deviceDescription() const {
  const Call call("NSScreen.deviceDescription", Call::On::mainThread);
  const Display& display = displayOf(*this, "NSScreen.deviceDescription");
  const auto told = call.fault();
  if (told && *told != 0) return {};
  nlohmann::json description = {{"NSDeviceIsScreen", "YES"}};
  if (!told) description["NSScreenNumber"] = display.id;
  return CF::adopt(static_cast<CFDictionaryRef>(simulator::createPropertyList(description)));
}

// As Foundation has it for coordinates that are not flipped: the top and left edges belong to the rectangle, the
// bottom and right ones do not.
bool MouseInRect(CGPoint point, CGRect rect, bool flipped) {
  const bool inX = point.x >= rect.origin.x && point.x < rect.origin.x + rect.size.width;
  const double bottom = rect.origin.y;
  const double top = rect.origin.y + rect.size.height;
  return inX && (flipped ? point.y >= bottom && point.y < top : point.y > bottom && point.y <= top);
}

}  // namespace NS
