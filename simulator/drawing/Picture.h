// What has been drawn, as the fills and strokes that it consists of; written as SVG, or rendered by cairo. Knows
// nothing of the machine.
#pragma once

#include <CoreGraphics/CoreGraphics.h>

#include <cstdint>
#include <string>
#include <vector>

#include "simulator/drawing/Path.h"

namespace drawing {

// 0 to 1 each.
struct Color {
  double red = 0;
  double green = 0;
  double blue = 0;
  double opacity = 1;
};

enum class LineCap { butt, round, square };

struct Operation {
  enum class Kind { fill, stroke };
  Kind kind;
  Path path;
  Color color;
  double lineWidth = 1;  // of a stroke
  LineCap cap = LineCap::butt;
};

struct Picture {
  CGSize size;          // in points
  bool flipped = true;  // the y axis points down, from the top edge; otherwise up, from the bottom edge
  std::vector<Operation> operations;

  void fill(Path path, const Color& color);
  void stroke(Path path, const Color& color, double lineWidth, LineCap cap = LineCap::butt);
  // The other picture's operations, moved to `origin`, in one colour. Both have the same flippedness.
  void add(const Picture& other, CGPoint origin, const Color& color);
};

// Red, green, blue and opacity of pixels in rows from the top.
struct Pixels {
  int width;
  int height;
  std::vector<std::uint8_t> bytes;  // four for each pixel, not premultiplied

  // Of the pixel in that column and row.
  [[nodiscard]] Color at(int x, int y) const;
};

// `scale` pixels for each point.
Pixels render(const Picture& picture, double scale);

[[nodiscard]] std::string svg(const Picture& picture);
// In a file, as the end of its name says: ".svg" or ".png". Throws std::runtime_error, which says what went wrong.
void write(const Picture& picture, const std::string& file, double scale);

}  // namespace drawing
