#include "app/StatusIcon.h"

#include <array>
#include <utility>

#include "platform/BezierPath.h"
#include "platform/Color.h"

// Points, from the top left corner; the y axis points down.
namespace {

constexpr CGSize size = {18, 18};
constexpr double lineWidth = 1.4;

void stroke(const NS::BezierPath& path) {
  path.setLineWidth(lineWidth);
  path.setLineCapStyle(NS::LineCapStyle::Round);
  path.stroke();
}

void drawSun() {
  const auto path = NS::BezierPath::bezierPath();
  path.moveToPoint({8.0, 5.9});
  path.appendArc({8.0, 9.0}, 3.1, 270, 90, true);
  path.closePath();
  path.fill();
}

void drawRays() {
  constexpr std::array<std::pair<CGPoint, CGPoint>, 5> rays = {{
      {{3.6, 9.0}, {2.2, 9.0}},
      {{4.9, 5.9}, {3.9, 4.9}},
      {{4.9, 12.1}, {3.9, 13.1}},
      {{8.0, 4.4}, {8.0, 3.0}},
      {{8.0, 13.6}, {8.0, 15.0}},
  }};
  const auto path = NS::BezierPath::bezierPath();
  for (const auto& [from, to] : rays) {
    path.moveToPoint(from);
    path.lineToPoint(to);
  }
  stroke(path);
}

// Each arc begins with a move to its own first point: otherwise a line would join the two.
void drawWaves() {
  constexpr CGPoint center = {7.65, 9.0};
  const auto path = NS::BezierPath::bezierPath();
  path.moveToPoint({10.867386661099708, 6.300292039316535});
  path.appendArc(center, 4.2, -40, 40, false);
  path.moveToPoint({13.012311101832847, 4.500486732194226});
  path.appendArc(center, 7.0, -40, 40, false);
  stroke(path);
}

}  // namespace

NS::Image StatusIcon::make() {
  // The handler is called on any thread, and as often as the image is needed: it refers to nothing outside itself.
  const auto image = NS::Image::imageWithSize(size, true, ^(CGRect) {
    NS::Color::blackColor().set();
    drawSun();
    drawRays();
    drawWaves();
    return true;
  });
  image.setTemplate(true);
  image.setAccessibilityDescription("Dalvane");
  return image;
}
