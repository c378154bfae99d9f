// The program's only source of input from the keyboard: an event tap that decodes the media keys.
#pragma once

#include <CoreGraphics/CoreGraphics.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <utility>

#include "base/MediaKey.h"
#include "platform/CF.h"

// A media key as an event carries it.
struct MediaKeyEvent {
  MediaKey key;
  bool isPressed;
  bool isRepeat;
  friend bool operator==(const MediaKeyEvent&, const MediaKeyEvent&) = default;
};

// Decodes `data1` of a system-defined event of the auxiliary-control-buttons subtype: bits 16 to 31 are the key type
// (IOKit's NX_KEYTYPE_ constants), bits 8 to 15 its state, bit 0 the repeat flag. None for a key of no interest.
std::optional<MediaKeyEvent> mediaKeyFromData1(std::int64_t data1);
// Decodes a key-down event's virtual key code: some keyboards send plain keys for brightness. None for other keys.
std::optional<MediaKeyEvent> mediaKeyFromKeyDown(std::int64_t keycode, bool isRepeat);

// Main thread only. The owner keeps the object alive and calls `stop` before it lets go: the system holds a plain
// pointer to it.
class MediaKeyTap {
 public:
  // Answers whether it took the key; a taken key's event is removed from the event stream. Called on the main thread,
  // and quick: the system switches a slow tap off.
  using Handler = std::function<bool(MediaKey key, bool isPressed, bool isRepeat)>;

  // `switchedOff` is told when the system has switched the tap off, after the tap has been switched on again. Neither
  // closure may call `stop`: both are called in the middle of the tap's callback.
  MediaKeyTap(Handler handler, std::function<void()> switchedOff)
      : handler_(std::move(handler)), switchedOff_(std::move(switchedOff)) {}
  MediaKeyTap(const MediaKeyTap&) = delete;
  MediaKeyTap& operator=(const MediaKeyTap&) = delete;

  // Installs the tap, unless it is installed. False when the system refuses, as it does without Accessibility
  // permission.
  bool start();
  // Removes the tap, if it is installed.
  void stop();
  // Whether the tap is installed and receives nothing, as when the permission was taken away: it stays so when the
  // permission is given back.
  [[nodiscard]] bool isDead() const;

 private:
  static CGEventRef mediaKeyTapCallback(CGEventTapProxy proxy, CGEventType type, CGEventRef event, void* userInfo);
  bool takes(CGEventType type, CGEventRef event) const;
  bool dispatch(const MediaKeyEvent& event) const;

  const Handler handler_;
  const std::function<void()> switchedOff_;
  CF::Ref<CFMachPortRef> port_;         // while installed
  CF::Ref<CFRunLoopSourceRef> source_;  // while installed
};
