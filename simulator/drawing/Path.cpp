#include "simulator/drawing/Path.h"

#include <charconv>
#include <cmath>
#include <numbers>

namespace drawing {
namespace {

// Exact at the quarters, where the library's functions are not.
CGPoint onUnitCircle(double degrees) {
  const double turn = std::fmod(std::fmod(degrees, 360) + 360, 360);
  if (turn == 0) return {1, 0};
  if (turn == 90) return {0, 1};
  if (turn == 180) return {-1, 0};
  if (turn == 270) return {0, -1};
  const double radians = turn * std::numbers::pi / 180;
  return {std::cos(radians), std::sin(radians)};
}

// Without the last bits, in which processors and mathematical libraries differ.
double settled(double coordinate) { return std::round(coordinate * 1e12) / 1e12; }

void append(std::string& text, double number) {
  std::array<char, 32> digits{};
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
  text.append(digits.data(), end);
}

}  // namespace

void Path::move(CGPoint to) {
  elements_.push_back({Element::Kind::move, {to}});
  current_ = start_ = to;
}

void Path::line(CGPoint to) {
  elements_.push_back({Element::Kind::line, {to}});
  current_ = to;
}

void Path::curve(CGPoint control1, CGPoint control2, CGPoint to) {
  elements_.push_back({Element::Kind::curve, {control1, control2, to}});
  current_ = to;
}

void Path::close() {
  elements_.push_back({Element::Kind::close});
  current_ = start_;
}

void Path::arc(CGPoint center, double radius, double startAngle, double endAngle, bool clockwise) {
  double sweep = endAngle - startAngle;
  while (clockwise && sweep > 0) sweep -= 360;
  while (!clockwise && sweep < 0) sweep += 360;
  const auto place = [&](CGPoint direction) {
    return CGPoint{settled(center.x + radius * direction.x), settled(center.y + radius * direction.y)};
  };
  const CGPoint first = place(onUnitCircle(startAngle));
  current_ ? line(first) : move(first);
  const int curves = static_cast<int>(std::ceil(std::abs(sweep) / 90));
  // The length of a curve's handles, for a radius of 1.
  const double handle = curves ? 4.0 / 3 * std::tan(sweep / curves * std::numbers::pi / 720) : 0;
  for (int i = 0; i < curves; ++i) {
    const CGPoint from = onUnitCircle(startAngle + sweep * i / curves);
    const CGPoint to = onUnitCircle(startAngle + sweep * (i + 1) / curves);
    curve(place({from.x - handle * from.y, from.y + handle * from.x}),
          place({to.x + handle * to.y, to.y - handle * to.x}), place(to));
  }
}

Path Path::rectangle(const CGRect& rect, double cornerRadius) {
  const double left = rect.origin.x;
  const double top = rect.origin.y;
  const double right = left + rect.size.width;
  const double bottom = top + rect.size.height;
  Path path;
  if (cornerRadius <= 0) {
    path.move({left, top});
    for (const CGPoint corner : {CGPoint{right, top}, {right, bottom}, {left, bottom}}) path.line(corner);
  } else {
    const double r = cornerRadius;
    path.arc({left + r, top + r}, r, 180, 270, false);
    path.arc({right - r, top + r}, r, 270, 360, false);
    path.arc({right - r, bottom - r}, r, 0, 90, false);
    path.arc({left + r, bottom - r}, r, 90, 180, false);
  }
  path.close();
  return path;
}

Path Path::circle(CGPoint center, double radius) {
  Path path;
  path.arc(center, radius, 0, 360, false);
  path.close();
  return path;
}

Path Path::placed(CGPoint origin, double scale) const {
  Path path = *this;
  for (Element& element : path.elements_) {
    for (CGPoint& point : element.points) point = {origin.x + scale * point.x, origin.y + scale * point.y};
  }
  return path;
}

std::string Path::svg() const {
  std::string data;
  const auto add = [&data](char command, const Element& element, std::size_t points) {
    data += (data.empty() ? "" : " ") + std::string(1, command);
    for (std::size_t i = 0; i < points; ++i) {
      for (const double coordinate : {element.points[i].x, element.points[i].y}) {
        data += ' ';
        append(data, coordinate);
      }
    }
  };
  for (const Element& element : elements_) {
    switch (element.kind) {
      case Element::Kind::move:
        add('M', element, 1);
        break;
      case Element::Kind::line:
        add('L', element, 1);
        break;
      case Element::Kind::curve:
        add('C', element, 3);
        break;
      case Element::Kind::close:
        add('Z', element, 0);
        break;
    }
  }
  return data;
}

}  // namespace drawing
