#include "simulator/desktop/EventStream.h"

#include <IOKit/hidsystem/IOLLEvent.h>
#include <IOKit/hidsystem/ev_keymap.h>

#include <map>

#include "platform/Event.h"
#include "simulator/displays/Displays.h"
#include "simulator/foundation/RunLoop.h"
#include "simulator/kernel/Call.h"
#include "simulator/kernel/Commands.h"
#include "simulator/privacy/Accessibility.h"

namespace simulator {
namespace {

// A tap whose callback takes longer than this is switched off.
constexpr Duration tapTimeout = std::chrono::seconds(1);

constexpr std::int64_t keyDown = 0x0A;
constexpr std::int64_t keyUp = 0x0B;

InputEvent mediaKeyEvent(std::int64_t keyType, std::int64_t state, bool repeat) {
  return {.type = NX_SYSDEFINED,
          .subtype = NX_SUBTYPE_AUX_CONTROL_BUTTONS,
          .data1 = keyType << 16 | state << 8 | (repeat ? 1 : 0),
          .keycode = std::nullopt};
}

const std::map<std::string, std::int64_t>& keyTypes() {
  static const std::map<std::string, std::int64_t> types = {{"volumeUp", NX_KEYTYPE_SOUND_UP},
                                                            {"volumeDown", NX_KEYTYPE_SOUND_DOWN},
                                                            {"mute", NX_KEYTYPE_MUTE},
                                                            {"brightnessUp", NX_KEYTYPE_BRIGHTNESS_UP},
                                                            {"brightnessDown", NX_KEYTYPE_BRIGHTNESS_DOWN}};
  return types;
}

// Whether this is no event but the system's word to a tap that it was switched off.
bool isNotice(const InputEvent& event) { return event.type >= kCGEventTapDisabledByTimeout; }

}  // namespace

EventStream::EventStream(Machine& machine, RunLoop& runLoop, Accessibility& accessibility)
    : machine_(machine), runLoop_(runLoop), accessibility_(accessibility) {
  machine.faults.declare({"NSEvent.eventWithCGEvent", "CGEventTapCreate"});
  accessibility.onLost([this] { permissionLost(); });
}

CFMachPortRef EventStream::createTap(CGEventMask mask, CGEventTapCallBack callback, void* userInfo) {
  if (tap_) fatal("CGEventTapCreate: a second event tap is not simulated");
  // Bits that the program may not see are cleared, and a tap that would see nothing is refused.
  if (!accessibility_.granted()) {
    mask &= ~(CGEventMaskBit(kCGEventKeyDown) | CGEventMaskBit(kCGEventKeyUp) | CGEventMaskBit(NX_SYSDEFINED));
  }
  if (mask == 0) return nullptr;
  auto* const port = new __CFMachPort;
  port->onInvalid = [this, port] {
    // What holds the tap together is in use until its callback has returned. A process that ends takes it apart all
    // the same.
    if (inCallback_ && !machine_.scheduler.ending()) fatal("The event tap was removed inside its own callback");
    runLoop_.remove(port);
    tap_.reset();
  };
  tap_ = std::make_unique<Tap>(Tap{port, mask, callback, userInfo});
  return port;
}

void EventStream::enableTap(CFMachPortRef port, bool enable) {
  live<__CFMachPort>(port, "CGEventTapEnable");
  machine_.trace.call("CGEventTapEnable").flag("enable", enable);
  if (tap_ && tap_->port == port) tap_->enabled = enable && tap_->permitted;
}

bool EventStream::isTapEnabled(CFMachPortRef port) const {
  live<__CFMachPort>(port, "CGEventTapIsEnabled");
  return tap_ && tap_->port == port && tap_->enabled;
}

void EventStream::permissionLost() {
  if (!tap_) return;
  tap_->enabled = false;
  tap_->permitted = false;
}

void EventStream::send(const InputEvent& event) {
  const Scheduler::Lock lock(machine_.scheduler);
  if (!tap_ || !tap_->enabled || !tap_->port->scheduled) return;
  // Notices to the tap pass its mask by.
  if (!isNotice(event) && (event.type >= 64 || !(tap_->mask & CGEventMaskBit(event.type)))) return;
  runLoop_.post(tap_->port, tap_->port->modes, [this, event] { offer(event); });
}

void EventStream::disableTaps(std::uint32_t notice) {
  const Scheduler::Lock lock(machine_.scheduler);
  if (!tap_) return;
  tap_->enabled = false;
  if (!tap_->port->scheduled) return;
  runLoop_.post(tap_->port, tap_->port->modes, [this, notice] { offer({.type = notice}); });
}

// On the main thread: hands the event to the tap, which returns it or not.
void EventStream::offer(const InputEvent& input) {
  if (!tap_ || !(tap_->enabled || isNotice(input))) return;
  const Tap tap = *tap_;
  const auto event = CF::adopt(static_cast<CGEventRef>(new __CGEvent(input)));
  const Time before = machine_.scheduler.now();
  inCallback_ = true;
  CGEventRef const passed = tap.callback(nullptr, input.type, event.get(), tap.userInfo);
  inCallback_ = false;
  const bool swallowed = passed == nullptr;
  {
    auto record = machine_.trace.record("input");
    record.number("type", input.type);
    if (input.data1) record.number("data1", *input.data1);
    if (input.keycode) record.number("keycode", *input.keycode);
    record.flag("swallowed", swallowed);
  }
  // A tap that hands out another event than the one it was given passes the new one's ownership on.
  if (passed && passed != event.get()) CFRelease(passed);
  if (!isNotice(input) && machine_.scheduler.now() - before > tapTimeout) disableTaps(kCGEventTapDisabledByTimeout);
}

void EventStream::addCommands(Commands& commands) {
  commands.add("key", [this](Arguments& line) -> Action {
    const std::string key = line.text("key");
    const auto type = keyTypes().find(key);
    if (type == keyTypes().end()) line.fail("unknown key \"" + key + "\"");
    const std::string action = line.text("action", "tap");
    if (action != "tap" && action != "press" && action != "release") line.fail("unknown action \"" + action + "\"");
    const bool repeat = line.flag("repeat", false);
    return [this, keyType = type->second, action, repeat] {
      if (action != "release") send(mediaKeyEvent(keyType, keyDown, repeat));
      if (action != "press") send(mediaKeyEvent(keyType, keyUp, action == "release" && repeat));
    };
  });

  commands.add("event", [this](Arguments& line) -> Action {
    InputEvent event{.type = line.unsigned32("type"), .subtype = {}, .data1 = {}, .keycode = {}};
    if (event.type == NX_SYSDEFINED) {
      event.subtype = line.integer<std::int16_t>("subtype");
      event.data1 = line.bits64("data1");
    } else if (event.type == kCGEventKeyDown) {
      event.keycode = line.integer<std::int64_t>("keycode");
      event.autorepeat = line.truth("autorepeat", false);
    } else {
      // Whatever else such an event carries is of no interest to a tap for keys.
      for (const char* const member : {"subtype", "data1", "keycode", "autorepeat"}) line.ignore(member);
    }
    return [this, event] { send(event); };
  });

  commands.add("disable-tap", [this](Arguments& line) -> Action {
    const std::string by = line.text("by");
    if (by != "timeout" && by != "user-input") line.fail("unknown reason \"" + by + "\"");
    const std::uint32_t notice = by == "timeout" ? kCGEventTapDisabledByTimeout : kCGEventTapDisabledByUserInput;
    return [this, notice] { disableTaps(notice); };
  });
}

void EventStream::processWillEnd(Leaks& leaks) {
  if (tap_) ++leaks["event tap"];
}

void EventStream::processEnded(Leaks&) {
  tap_.reset();
  inCallback_ = false;
}

}  // namespace simulator

// ---- The calls ----

using simulator::Call;

extern "C" {

CFMachPortRef CGEventTapCreate(CGEventTapLocation tap, CGEventTapPlacement place, CGEventTapOptions options,
                               CGEventMask eventsOfInterest, CGEventTapCallBack callback, void* userInfo) {
  const Call call("CGEventTapCreate");
  if (tap != kCGSessionEventTap || options != kCGEventTapOptionDefault) {
    simulator::fatal("CGEventTapCreate: only active taps of the session are simulated");
  }
  const auto status = call.fault();
  CFMachPortRef const port =
      status ? nullptr : call.part<simulator::EventStream>().createTap(eventsOfInterest, callback, userInfo);
  call.machine.trace.call("CGEventTapCreate", status ? *status
                                              : port ? 0
                                                     : kCGErrorFailure)
      .number("tap", tap)
      .number("place", place)
      .number("options", options)
      .number("mask", static_cast<std::int64_t>(eventsOfInterest));
  return port;
}

void CGEventTapEnable(CFMachPortRef tap, bool enable) {
  const Call call("CGEventTapEnable");
  call.part<simulator::EventStream>().enableTap(tap, enable);
}

bool CGEventTapIsEnabled(CFMachPortRef tap) {
  const Call call("CGEventTapIsEnabled");
  return call.part<simulator::EventStream>().isTapEnabled(tap);
}

int64_t CGEventGetIntegerValueField(CGEventRef event, CGEventField field) {
  const Call call("CGEventGetIntegerValueField");
  const auto& input = simulator::live<__CGEvent>(event, "CGEventGetIntegerValueField").input;
  if (field == kCGKeyboardEventKeycode) return input.keycode.value_or(0);
  if (field == kCGKeyboardEventAutorepeat) return input.autorepeat ? 1 : 0;
  simulator::fatal("CGEventGetIntegerValueField: this field is not simulated");
}

}  // extern "C"

// ---- NSEvent ----

namespace NS {
namespace {

struct EventObject : simulator::Object {
  explicit EventObject(const simulator::InputEvent& made) : input(made) {}
  std::string_view kind() const override { return "NSEvent"; }
  const simulator::InputEvent input;
};

}  // namespace

Event Event::eventWithCGEvent(CGEventRef event) {
  const Call call("NSEvent.eventWithCGEvent", Call::On::mainThread);
  const auto& input = simulator::live<__CGEvent>(event, "NSEvent.eventWithCGEvent").input;
  if (call.fault()) return Event({});
  return Event(CF::adopt(static_cast<CFTypeRef>(new EventObject(input))));
}

CGPoint Event::mouseLocation() {
  const Call call("NSEvent.mouseLocation");
  return call.part<simulator::Displays>().pointer();
}

short Event::subtype() const {
  const Call call("NSEvent.subtype");
  const auto& input = simulator::live<EventObject>(get(), "NSEvent.subtype").input;
  // AppKit raises an exception when a keyboard event is asked for its subtype.
  if (!input.subtype) simulator::fatal("NSEvent.subtype: this event has none");
  return *input.subtype;
}

long Event::data1() const {
  const Call call("NSEvent.data1");
  const auto& input = simulator::live<EventObject>(get(), "NSEvent.data1").input;
  if (!input.data1) simulator::fatal("NSEvent.data1: this event has none");
  return static_cast<long>(*input.data1);
}

}  // namespace NS
