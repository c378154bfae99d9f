#include "app/MediaKeyTap.h"

#include <IOKit/hidsystem/IOLLEvent.h>
#include <IOKit/hidsystem/ev_keymap.h>

#include <utility>

#include "base/Assertions.h"
#include "platform/Event.h"

namespace {

constexpr CGEventMask eventsOfInterest = CGEventMaskBit(kCGEventKeyDown) | CGEventMaskBit(NX_SYSDEFINED);

// The state byte of a media key that went down.
constexpr std::int64_t keyDownState = 0x0A;

// Virtual key codes of plain brightness keys.
constexpr std::int64_t brightnessUpKeycode = 144;
constexpr std::int64_t brightnessDownKeycode = 145;

std::optional<MediaKey> mediaKeyOfType(std::int64_t keyType) {
  switch (keyType) {
    case NX_KEYTYPE_SOUND_UP:
      return MediaKey::volumeUp;
    case NX_KEYTYPE_SOUND_DOWN:
      return MediaKey::volumeDown;
    case NX_KEYTYPE_BRIGHTNESS_UP:
      return MediaKey::brightnessUp;
    case NX_KEYTYPE_BRIGHTNESS_DOWN:
      return MediaKey::brightnessDown;
    case NX_KEYTYPE_MUTE:
      return MediaKey::mute;
    default:
      return std::nullopt;
  }
}

}  // namespace

std::optional<MediaKeyEvent> mediaKeyFromData1(std::int64_t data1) {
  const auto key = mediaKeyOfType((data1 >> 16) & 0xFFFF);
  if (!key) return std::nullopt;
  return MediaKeyEvent{*key, ((data1 >> 8) & 0xFF) == keyDownState, (data1 & 1) != 0};
}

std::optional<MediaKeyEvent> mediaKeyFromKeyDown(std::int64_t keycode, bool isRepeat) {
  switch (keycode) {
    case brightnessUpKeycode:
      return MediaKeyEvent{MediaKey::brightnessUp, true, isRepeat};
    case brightnessDownKeycode:
      return MediaKeyEvent{MediaKey::brightnessDown, true, isRepeat};
    default:
      return std::nullopt;
  }
}

bool MediaKeyTap::start() {
  if (port_) return true;
  auto port = CF::adopt(CGEventTapCreate(kCGSessionEventTap, kCGHeadInsertEventTap, kCGEventTapOptionDefault,
                                         eventsOfInterest, mediaKeyTapCallback, this));
  if (!port) return false;
  auto source = CF::adopt(CFMachPortCreateRunLoopSource(kCFAllocatorDefault, port.get(), 0));
  if (!source) return false;  // releasing the port removes the tap
  // The common modes include event tracking: the keys work while a menu is open.
  CFRunLoopAddSource(CFRunLoopGetMain(), source.get(), kCFRunLoopCommonModes);
  port_ = std::move(port);
  source_ = std::move(source);
  return true;
}

void MediaKeyTap::stop() {
  if (source_) CFRunLoopRemoveSource(CFRunLoopGetMain(), source_.get(), kCFRunLoopCommonModes);
  if (port_) CFMachPortInvalidate(port_.get());
  source_ = {};
  port_ = {};
}

bool MediaKeyTap::isDead() const { return port_ && !CGEventTapIsEnabled(port_.get()); }

CGEventRef MediaKeyTap::mediaKeyTapCallback(CGEventTapProxy, CGEventType type, CGEventRef event, void* userInfo) {
  if (!userInfo) return event;
  const auto& tap = *static_cast<const MediaKeyTap*>(userInfo);
  if (type == kCGEventTapDisabledByTimeout || type == kCGEventTapDisabledByUserInput) {
    if (tap.port_) {
      CGEventTapEnable(tap.port_.get(), true);
      tap.switchedOff_();
    }
    return event;
  }
  return tap.takes(type, event) ? nullptr : event;
}

bool MediaKeyTap::takes(CGEventType type, CGEventRef event) const {
  std::optional<MediaKeyEvent> decoded;
  if (type == NX_SYSDEFINED) {
    const auto converted = NS::Event::eventWithCGEvent(event);
    if (!converted || converted.subtype() != NX_SUBTYPE_AUX_CONTROL_BUTTONS) return false;
    decoded = mediaKeyFromData1(converted.data1());
  } else if (type == kCGEventKeyDown) {
    // Key-ups are not asked for: those of plain keys always reach the system.
    decoded = mediaKeyFromKeyDown(CGEventGetIntegerValueField(event, kCGKeyboardEventKeycode),
                                  CGEventGetIntegerValueField(event, kCGKeyboardEventAutorepeat) != 0);
  }
  return decoded && dispatch(*decoded);
}

bool MediaKeyTap::dispatch(const MediaKeyEvent& event) const {
  assertMainThread();
  return handler_(event.key, event.isPressed, event.isRepeat);
}
