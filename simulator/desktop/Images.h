// Images, and what is drawn into them by the program's own code.
#pragma once

#include <CoreGraphics/CoreGraphics.h>

#include <optional>
#include <string>

#include "platform/Block.h"
#include "platform/CF.h"
#include "simulator/drawing/Picture.h"
#include "simulator/kernel/Object.h"

namespace simulator {

class Machine;

struct ImageObject : Object {
  std::string_view kind() const override { return "NSImage"; }

  std::string symbol;  // a symbol's name; empty for an image with a drawing handler
  Block<bool (^)(CGRect)> handler;
  drawing::Picture picture;  // as it was drawn last
  bool isDrawn = false;
  bool isTemplate = false;
  std::optional<std::string> accessibilityDescription;
};

// Has an image drawn (again) by its handler, on a thread of the program that is not the main one, as the window server
// may ask for it at any time. Without effect on an image that has no handler.
void drawInBackground(Machine& machine, ImageObject& image);

}  // namespace simulator
