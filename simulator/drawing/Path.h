// A path of straight lines and Bézier curves. Knows nothing of the machine.
#pragma once

#include <CoreGraphics/CoreGraphics.h>

#include <array>
#include <optional>
#include <string>
#include <vector>

namespace drawing {

class Path {
 public:
  struct Element {
    enum class Kind { move, line, curve, close };
    Kind kind;
    std::array<CGPoint, 3> points = {};  // a curve: two control points and its end; a move or a line: its end
  };

  // All but `move` need a current point, which `currentPoint` tells.
  void move(CGPoint to);
  void line(CGPoint to);
  void curve(CGPoint control1, CGPoint control2, CGPoint to);
  void close();
  // NSBezierPath's arc: angles in degrees from the x axis towards the y axis; a line leads to its first point, if the
  // path has a current point. Clockwise: from larger to smaller angles. Within 0.03 % of the radius of a true arc.
  void arc(CGPoint center, double radius, double startAngle, double endAngle, bool clockwise);
  // Closed figures, in the coordinates of a picture whose y axis points down.
  static Path rectangle(const CGRect& rect, double cornerRadius = 0);
  static Path circle(CGPoint center, double radius);

  // The path scaled, then moved.
  [[nodiscard]] Path placed(CGPoint origin, double scale = 1) const;
  [[nodiscard]] const std::vector<Element>& elements() const { return elements_; }
  [[nodiscard]] std::optional<CGPoint> currentPoint() const { return current_; }
  // As the `d` of an SVG path. Every number reads back as it is.
  [[nodiscard]] std::string svg() const;

 private:
  std::vector<Element> elements_;
  std::optional<CGPoint> current_;
  CGPoint start_ = {};  // of the figure that is being drawn
};

}  // namespace drawing
