// The session's event stream: keys and other events on their way to the applications, and the taps that see them first.
#pragma once

#include <CoreGraphics/CoreGraphics.h>

#include <cstdint>
#include <memory>
#include <optional>

#include "simulator/kernel/Object.h"
#include "simulator/kernel/Part.h"

namespace simulator {

struct InputEvent {
  std::uint32_t type = 0;
  // Of a system-defined event.
  std::optional<std::int16_t> subtype = std::nullopt;
  std::optional<std::int64_t> data1 = std::nullopt;
  // Of a keyboard event.
  std::optional<std::int64_t> keycode = std::nullopt;
  bool autorepeat = false;
};

}  // namespace simulator

struct __CGEvent : simulator::Object {
  explicit __CGEvent(const simulator::InputEvent& sent) : input(sent) {}
  std::string_view kind() const override { return "CGEvent"; }
  const simulator::InputEvent input;
};

namespace simulator {

class Machine;
class Accessibility;
class RunLoop;

class EventStream : public Part {
 public:
  EventStream(Machine& machine, RunLoop& runLoop, Accessibility& accessibility);

  void send(const InputEvent& event);
  // The system switches the taps off and tells them.
  void disableTaps(std::uint32_t notice);

  CFMachPortRef createTap(CGEventMask mask, CGEventTapCallBack callback, void* userInfo);
  // Without effect on a tap that lost its permission.
  void enableTap(CFMachPortRef port, bool enable);
  [[nodiscard]] bool isTapEnabled(CFMachPortRef port) const;
  // The permission was taken away: taps that see keys see nothing any more, and stay so when it is given back. They are
  // not told.
  void permissionLost();

  void addCommands(Commands& commands) override;
  void processWillEnd(Leaks& leaks) override;
  void processEnded(Leaks& leaks) override;

 private:
  struct Tap {
    __CFMachPort* port;  // not retained: releasing the port releases the tap
    CGEventMask mask;
    CGEventTapCallBack callback;
    void* userInfo;
    bool enabled = true;
    bool permitted = true;  // never again once the permission was taken away
  };

  void offer(const InputEvent& event);

  Machine& machine_;
  RunLoop& runLoop_;
  Accessibility& accessibility_;
  std::unique_ptr<Tap> tap_;  // the program installs one
  bool inCallback_ = false;   // of that tap
};

}  // namespace simulator
