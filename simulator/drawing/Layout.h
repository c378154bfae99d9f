// The layout of a tree of boxes: sizes that the boxes have by themselves, stacks, and relations between edges, turned
// into linear constraints with AppKit's priorities (NSLayoutConstraint.h, NSStackView.h). Knows nothing of the machine.
#pragma once

#include <CoreGraphics/CoreGraphics.h>

#include <array>
#include <cstddef>
#include <optional>
#include <vector>

namespace drawing {

enum Axis : std::size_t { horizontal, vertical };

// NSLayoutConstraint.h: NSLayoutPriorityDefaultHigh, …DefaultLow, …FittingSizeCompression.
constexpr double defaultHigh = 750;
constexpr double defaultLow = 250;
constexpr double fittingSizeCompression = 50;

struct Box;

// One edge, or extent, of a box.
struct Anchor {
  enum class Kind { leading, trailing, top, width };
  Box* box;
  Kind kind;
};

// `first` is `constant` points more than `second`.
struct Relation {
  Anchor first;
  Anchor second;
  double constant;
};

// What lines up the boxes of a stack across it. A value that does not suit the stack's axis has no effect.
enum class Alignment { leading, centerX, centerY };

struct Stack {
  Axis axis = horizontal;
  Alignment alignment = Alignment::centerY;
  double spacing = 8;
};

// Lies in its parent; coordinates have their origin in the top left corner.
struct Box {
  // The extent that its content gives it along an axis, if it does.
  std::array<std::optional<double>, 2> intrinsic;
  std::array<double, 2> hugging = {defaultLow, defaultLow};
  std::array<double, 2> resistance = {defaultHigh, defaultHigh};
  std::optional<Stack> stack;
  bool hidden = false;  // a stack leaves it out
  // Where it lies, if that is given and not found.
  std::optional<CGRect> fixed;
  std::vector<Box*> children;
  std::vector<Relation> relations;  // between boxes of this tree
  // Where it was found to lie, in the coordinates of the tree's root.
  CGRect found = {};
};

// The smallest size of the tree; none when its required constraints contradict each other.
std::optional<CGSize> fittingSize(Box& root);
// Finds where every box of the tree lies when its root has that size. False when that contradicts a required
// constraint.
[[nodiscard]] bool layOut(Box& root, CGSize size);

}  // namespace drawing
