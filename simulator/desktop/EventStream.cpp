#include "simulator/desktop/EventStream.h"

#include <IOKit/hidsystem/IOLLEvent.h>
#include <IOKit/hidsystem/ev_keymap.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <utility>

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

void EventStream::insert(CGEventTapPlacement place, std::shared_ptr<Tap> tap) {
  taps_.insert(place == kCGHeadInsertEventTap ? taps_.begin() : taps_.end(), std::move(tap));
}

EventStream::Tap* EventStream::tapOf(CFMachPortRef port) const {
  const auto found = std::ranges::find_if(taps_, [port](const auto& tap) { return tap->port == port; });
  return found == taps_.end() ? nullptr : found->get();
}

CFMachPortRef EventStream::createTap(CGEventTapPlacement place, CGEventMask mask, CGEventTapCallBack callback,
                                     void* userInfo) {
  // Bits that the program may not see are cleared, and a tap that would see nothing is refused.
  if (!accessibility_.granted()) {
    mask &= ~(CGEventMaskBit(kCGEventKeyDown) | CGEventMaskBit(kCGEventKeyUp) | CGEventMaskBit(NX_SYSDEFINED));
  }
  if (mask == 0) return nullptr;
  auto* const port = new __CFMachPort;
  port->onInvalid = [this, port] {
    // What holds the tap together is in use until its callback has returned. A process that ends takes it apart all
    // the same.
    const Tap* const removed = tapOf(port);
    if (removed && removed->inCallback && !machine_.scheduler.ending()) {
      fatal("The event tap was removed inside its own callback");
    }
    runLoop_.remove(port);
    std::erase_if(taps_, [port](const auto& tap) { return tap->port == port; });
  };
  auto tap = std::make_shared<Tap>();
  tap->port = port;
  tap->mask = mask;
  tap->callback = callback;
  tap->userInfo = userInfo;
  insert(place, std::move(tap));
  return port;
}

void EventStream::enableTap(CFMachPortRef port, bool enable) {
  live<__CFMachPort>(port, "CGEventTapEnable");
  machine_.trace.call("CGEventTapEnable").flag("enable", enable);
  if (Tap* const tap = tapOf(port)) tap->enabled = enable && tap->permitted;
}

bool EventStream::isTapEnabled(CFMachPortRef port) const {
  live<__CFMachPort>(port, "CGEventTapIsEnabled");
  const Tap* const tap = tapOf(port);
  return tap && tap->enabled;
}

void EventStream::permissionLost() {
  for (const auto& tap : taps_) {
    if (tap->port) tap->enabled = tap->permitted = false;
  }
}

void EventStream::addOther(const std::string& process, CGEventTapPlacement place, std::set<std::int64_t> swallowed) {
  removeOther(process);
  auto tap = std::make_shared<Tap>();
  tap->process = process;
  tap->swallowed = std::move(swallowed);
  insert(place, std::move(tap));
}

void EventStream::removeOther(const std::string& process) {
  std::erase_if(taps_, [&process](const auto& tap) { return tap->process == process; });
}

void EventStream::send(const InputEvent& event) {
  const Scheduler::Lock lock(machine_.scheduler);
  pass(event, taps_.begin());
}

// Hands the event on, from that tap to the last, until one of the program's gets it.
void EventStream::pass(const InputEvent& event, Taps::const_iterator tap) {
  for (; tap != taps_.end(); ++tap) {
    const Tap& next = **tap;
    if (!next.port) {
      const bool swallows = event.data1 && next.swallowed.contains(*event.data1 >> 16);
      auto record = machine_.trace.record("seen");
      record.text("process", next.process).number("type", event.type);
      if (event.data1) record.number("data1", *event.data1);
      if (event.keycode) record.number("keycode", *event.keycode);
      record.flag("swallowed", swallows);
      if (swallows) return;
      continue;
    }
    if (!next.enabled || !next.port->scheduled) continue;
    // Notices to the tap pass its mask by.
    if (!isNotice(event) && (event.type >= 64 || !(next.mask & CGEventMaskBit(event.type)))) continue;
    return runLoop_.post(next.port, next.port->modes, [this, event, offered = *tap] { offer(event, offered); });
  }
}

void EventStream::disableTaps(std::uint32_t notice) {
  const Scheduler::Lock lock(machine_.scheduler);
  for (const auto& tap : taps_) {
    if (tap->port) disable(tap, notice);
  }
}

void EventStream::disable(const std::shared_ptr<Tap>& tap, std::uint32_t notice) {
  tap->enabled = false;
  if (!tap->port->scheduled) return;
  runLoop_.post(tap->port, tap->port->modes, [this, notice, tap] { offer({.type = notice}, tap); });
}

// On the main thread: hands the event to the tap, which returns it or not.
void EventStream::offer(const InputEvent& input, const std::shared_ptr<Tap>& tap) {
  if (!(tap->enabled || isNotice(input))) return;
  const auto event = CF::adopt(static_cast<CGEventRef>(new __CGEvent(input)));
  const Time before = machine_.scheduler.now();
  tap->inCallback = true;
  CGEventRef const passed = tap->callback(nullptr, input.type, event.get(), tap->userInfo);
  tap->inCallback = false;
  const bool swallowed = passed == nullptr;
  {
    auto record = machine_.trace.record("input");
    record.number("type", input.type);
    if (input.data1) record.number("subtype", input.subtype.value_or(0)).number("data1", *input.data1);
    if (input.keycode) record.number("keycode", *input.keycode).flag("autorepeat", input.autorepeat);
    record.flag("swallowed", swallowed);
  }
  // A tap that hands out another event than the one it was given passes the new one's ownership on.
  if (passed && passed != event.get()) CFRelease(passed);
  if (isNotice(input)) return;
  if (!swallowed) pass(input, std::next(std::ranges::find(taps_, tap)));
  if (machine_.scheduler.now() - before > tapTimeout) disable(tap, kCGEventTapDisabledByTimeout);
}

std::int64_t EventStream::keyTypeOf(Arguments& line, const std::string& key) {
  const auto type = keyTypes().find(key);
  if (type == keyTypes().end()) line.fail("unknown key \"" + key + "\"");
  return type->second;
}

// Repeats as the keyboard's driver does where the user has set nothing else (IOHIDFamily: first after half a second,
// then twelve times a second).
void EventStream::holdKey(std::int64_t keyType, Time until) {
  send(mediaKeyEvent(keyType, keyDown, false));
  repeatKey(keyType, std::chrono::milliseconds(500), until);
}

void EventStream::repeatKey(std::int64_t keyType, Duration delay, Time until) {
  constexpr Duration interval = std::chrono::nanoseconds(83'333'333);
  const Duration left = until - machine_.scheduler.now();
  machine_.scheduler.after(std::min(delay, left), Waiting::work, [=, this] {
    const bool released = delay >= left;
    send(mediaKeyEvent(keyType, released ? keyUp : keyDown, !released));
    if (!released) repeatKey(keyType, interval, until);
  });
}

void EventStream::addCommands(Commands& commands) {
  commands.add("key", [this](Arguments& line) -> Action {
    const std::int64_t keyType = keyTypeOf(line, line.text("key"));
    const std::string action = line.text("action", "tap");
    if (action != "tap" && action != "press" && action != "release") line.fail("unknown action \"" + action + "\"");
    const bool repeat = line.flag("repeat", false);
    if (line.has("hold")) {
      if (line.has("action") || line.has("repeat")) line.fail("member \"hold\" says it all");
      const Duration hold = line.duration("hold");
      return [this, keyType, hold] { holdKey(keyType, machine_.scheduler.now() + hold); };
    }
    return [this, keyType, action, repeat] {
      if (action != "release") send(mediaKeyEvent(keyType, keyDown, repeat));
      if (action != "press") send(mediaKeyEvent(keyType, keyUp, action == "release" && repeat));
    };
  });

  commands.add("tap", [this](Arguments& line) -> Action {
    const std::string process = line.text("process");
    if (process.empty()) line.fail("member \"process\" must not be empty");
    if (line.flag("gone", false)) return [this, process] { removeOther(process); };
    const std::string place = line.text("place", "head");
    if (place != "head" && place != "tail") line.fail("unknown place \"" + place + "\"");
    std::set<std::int64_t> swallowed;
    for (const std::string& key : line.texts("swallows")) swallowed.insert(keyTypeOf(line, key));
    return [=, this] { addOther(process, place == "head" ? kCGHeadInsertEventTap : kCGTailAppendEventTap, swallowed); };
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
  for (const auto& tap : taps_) {
    if (tap->port) ++leaks["event tap"];
  }
}

void EventStream::processEnded(Leaks&) {
  std::erase_if(taps_, [](const auto& tap) { return tap->port != nullptr; });
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
      status ? nullptr : call.part<simulator::EventStream>().createTap(place, eventsOfInterest, callback, userInfo);
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
