// NSBezierPath. Usable from any thread, by one at a time; `fill` and `stroke` only where something is being drawn, as
// in an image's drawing handler.
#pragma once

#include <CoreGraphics/CoreGraphics.h>

#include "platform/Object.h"

namespace NS {

// NSLineCapStyle.
enum class LineCapStyle : unsigned long { Butt = 0, Round = 1, Square = 2 };

class BezierPath : public Object {
 public:
  static BezierPath bezierPath();

  void moveToPoint(CGPoint point) const;
  void lineToPoint(CGPoint point) const;
  // Angles in degrees, from the x axis towards the y axis; clockwise: from the larger to the smaller one. A line joins
  // what the path has so far to the arc's first point.
  void appendArc(CGPoint center, double radius, double startAngle, double endAngle, bool clockwise) const;
  void closePath() const;
  // In points.
  void setLineWidth(double width) const;
  void setLineCapStyle(LineCapStyle style) const;
  void fill() const;
  void stroke() const;

 private:
  using Object::Object;
};

}  // namespace NS
