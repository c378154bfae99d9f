// NSEvent. Main thread only.
#pragma once

#include <CoreGraphics/CoreGraphics.h>

#include "platform/Object.h"

namespace NS {

class Event : public Object {
 public:
  // The event as AppKit's type; null when the event has no such form.
  static Event eventWithCGEvent(CGEventRef event);
  // The pointer's position in AppKit's screen coordinates (points, origin bottom-left).
  static CGPoint mouseLocation();

  // Both for system-defined events and their like alone: AppKit raises an exception for a key's or the pointer's.
  [[nodiscard]] short subtype() const;
  [[nodiscard]] long data1() const;

 private:
  using Object::Object;
};

}  // namespace NS
