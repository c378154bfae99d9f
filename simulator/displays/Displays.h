// The displays that are connected, the pointer, and the screens that AppKit makes of them.
#pragma once

#include <CoreGraphics/CoreGraphics.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "simulator/displays/Monitor.h"
#include "simulator/kernel/Object.h"
#include "simulator/kernel/Part.h"

namespace simulator {

class Arguments;
class Machine;
class NotificationCenters;
class Registry;
struct RegistryEntry;

struct Display {
  std::uint32_t id;
  std::string name;
  std::string productName;  // as its EDID has it
  bool builtin;
  CGRect frame;  // in AppKit's coordinates
  std::uint32_t vendor;
  std::uint32_t product;
  std::uint32_t serial;
  std::string location;                  // what its AV service says: "External" or "Embedded"
  std::optional<std::uint32_t> mirrors;  // the display whose screen it shows: it has none of its own
  std::shared_ptr<Monitor> monitor;      // null: no DDC service
};

class Displays : public Part {
 public:
  Displays(Machine& machine, Registry& registry, NotificationCenters& notifications);

  // In the order in which they were connected.
  [[nodiscard]] const std::vector<Display>& all() const { return displays_; }
  [[nodiscard]] const Display* find(std::uint32_t id) const;
  // The one whose monitor the entry's AV service reaches now. Null when there is none.
  [[nodiscard]] const Display* reached(const RegistryEntry& entry) const;
  // The display with the menu bar: the one whose screen has the coordinates' origin. Null when there is no display.
  [[nodiscard]] const Display* main() const;
  [[nodiscard]] CGPoint pointer() const { return pointer_; }

  // The id must be free. Who connects and disconnects says `screensChanged` afterwards, once for all that changed.
  void connect(Display display);
  // The id must be taken.
  void disconnect(std::uint32_t id);
  void screensChanged();
  // For each monitor that is there.
  void setMonitorsWakeAfter(Duration time);

  void addCommands(Commands& commands) override;
  void didWake() override;
  void snapshot(nlohmann::ordered_json& state) override;

 private:
  Display& connected(std::uint32_t id);
  std::function<void()> change(Arguments& line);

  Machine& machine_;
  Registry& registry_;
  NotificationCenters& notifications_;
  std::vector<Display> displays_;
  CGPoint pointer_{0, 0};
};

}  // namespace simulator
