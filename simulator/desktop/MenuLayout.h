// Where everything in an open menu lies, and what it looks like.
#pragma once

#include <CoreGraphics/CoreGraphics.h>

#include <vector>

#include "simulator/drawing/Metrics.h"
#include "simulator/drawing/Picture.h"

namespace simulator {

struct MenuObject;

// From the menu's top left corner, downwards.
struct MenuLayout {
  CGSize size;
  std::vector<CGRect> items;  // in the order of the menu's
};

// Lays the menu out, as wide as its widest item; views of items whose width follows the menu's are given it, and laid
// out too.
MenuLayout layOut(const MenuObject& menu);

// The menu as it is shown, with its items laid out.
drawing::Picture pictureOf(const MenuObject& menu, const drawing::metrics::Appearance& appearance);

}  // namespace simulator
