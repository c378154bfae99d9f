// The session's event stream: keys and other events on their way to the applications, and the taps that see them first.
#pragma once

#include <CoreGraphics/CoreGraphics.h>

#include <cstdint>
#include <list>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "simulator/kernel/Object.h"
#include "simulator/kernel/Part.h"
#include "simulator/kernel/Scheduler.h"

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

class Accessibility;
class Arguments;
class Machine;
class RunLoop;

class EventStream : public Part {
 public:
  EventStream(Machine& machine, RunLoop& runLoop, Accessibility& accessibility);

  void send(const InputEvent& event);
  // The system switches the taps off and tells them.
  void disableTaps(std::uint32_t notice);

  CFMachPortRef createTap(CGEventTapPlacement place, CGEventMask mask, CGEventTapCallBack callback, void* userInfo);
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
  // The program's, or another process's.
  struct Tap {
    std::string process;               // empty: the program's
    std::set<std::int64_t> swallowed;  // by another process: key types
    __CFMachPort* port = nullptr;      // not retained: releasing the port releases the tap
    CGEventMask mask = 0;
    CGEventTapCallBack callback = nullptr;
    void* userInfo = nullptr;
    bool enabled = true;
    bool permitted = true;  // never again once the permission was taken away
    bool inCallback = false;
  };
  using Taps = std::list<std::shared_ptr<Tap>>;

  void insert(CGEventTapPlacement place, std::shared_ptr<Tap> tap);
  [[nodiscard]] Tap* tapOf(CFMachPortRef port) const;
  void pass(const InputEvent& event, Taps::const_iterator tap);
  void offer(const InputEvent& event, const std::shared_ptr<Tap>& tap);
  void disable(const std::shared_ptr<Tap>& tap, std::uint32_t notice);
  void addOther(const std::string& process, CGEventTapPlacement place, std::set<std::int64_t> swallowed);
  void removeOther(const std::string& process);
  static std::int64_t keyTypeOf(Arguments& line, const std::string& key);
  void holdKey(std::int64_t keyType, Time until);
  void repeatKey(std::int64_t keyType, Duration delay, Time until);

  Machine& machine_;
  RunLoop& runLoop_;
  Accessibility& accessibility_;
  Taps taps_;  // in the order in which events come by
};

}  // namespace simulator
