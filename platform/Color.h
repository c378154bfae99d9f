// NSColor. Usable from any thread.
#pragma once

#include "platform/Object.h"

namespace NS {

class Color : public Object {
 public:
  static Color blackColor();
  // Of texts that matter less than others; follows the appearance.
  static Color secondaryLabelColor();

  // Makes it the colour in which the current graphics context fills and strokes.
  void set() const;

 private:
  using Object::Object;
};

}  // namespace NS
