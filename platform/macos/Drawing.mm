#import <AppKit/AppKit.h>

#include "platform/BezierPath.h"
#include "platform/Color.h"
#include "platform/Image.h"
#include "platform/macos/Text.h"

namespace NS {

static_assert(static_cast<NSLineCapStyle>(LineCapStyle::Butt) == NSLineCapStyleButt);
static_assert(static_cast<NSLineCapStyle>(LineCapStyle::Round) == NSLineCapStyleRound);
static_assert(static_cast<NSLineCapStyle>(LineCapStyle::Square) == NSLineCapStyleSquare);

static NSImage* object(const Image& image) { return (__bridge NSImage*)image.get(); }
static NSColor* object(const Color& color) { return (__bridge NSColor*)color.get(); }
static NSBezierPath* object(const BezierPath& path) { return (__bridge NSBezierPath*)path.get(); }

// ---- Images ----

Image Image::imageWithSize(CGSize size, bool flipped, bool (^handler)(CGRect)) {
  @autoreleasepool {
    NSImage* const image = [NSImage imageWithSize:size flipped:flipped drawingHandler:handler];
    return Image(CF::retain((__bridge CFTypeRef)image));
  }
}

Image Image::imageWithSystemSymbolName(const std::string& name) {
  @autoreleasepool {
    NSImage* const image = [NSImage imageWithSystemSymbolName:string(name) accessibilityDescription:nil];
    return Image(CF::retain((__bridge CFTypeRef)image));
  }
}

void Image::setTemplate(bool isTemplate) const {
  @autoreleasepool {
    [object(*this) setTemplate:isTemplate];
  }
}

void Image::setAccessibilityDescription(const std::string& description) const {
  @autoreleasepool {
    object(*this).accessibilityDescription = string(description);
  }
}

// ---- Colours ----

Color Color::blackColor() {
  @autoreleasepool {
    return Color(CF::retain((__bridge CFTypeRef)NSColor.blackColor));
  }
}

Color Color::secondaryLabelColor() {
  @autoreleasepool {
    return Color(CF::retain((__bridge CFTypeRef)NSColor.secondaryLabelColor));
  }
}

void Color::set() const {
  @autoreleasepool {
    [object(*this) set];
  }
}

// ---- Paths ----

BezierPath BezierPath::bezierPath() {
  @autoreleasepool {
    return BezierPath(CF::retain((__bridge CFTypeRef)[NSBezierPath bezierPath]));
  }
}

void BezierPath::moveToPoint(CGPoint point) const {
  @autoreleasepool {
    [object(*this) moveToPoint:point];
  }
}

void BezierPath::lineToPoint(CGPoint point) const {
  @autoreleasepool {
    [object(*this) lineToPoint:point];
  }
}

void BezierPath::appendArc(CGPoint center, double radius, double startAngle, double endAngle, bool clockwise) const {
  @autoreleasepool {
    [object(*this) appendBezierPathWithArcWithCenter:center
                                              radius:radius
                                          startAngle:startAngle
                                            endAngle:endAngle
                                           clockwise:clockwise];
  }
}

void BezierPath::closePath() const {
  @autoreleasepool {
    [object(*this) closePath];
  }
}

void BezierPath::setLineWidth(double width) const {
  @autoreleasepool {
    object(*this).lineWidth = width;
  }
}

void BezierPath::setLineCapStyle(LineCapStyle style) const {
  @autoreleasepool {
    object(*this).lineCapStyle = static_cast<NSLineCapStyle>(style);
  }
}

void BezierPath::fill() const {
  @autoreleasepool {
    [object(*this) fill];
  }
}

void BezierPath::stroke() const {
  @autoreleasepool {
    [object(*this) stroke];
  }
}

}  // namespace NS
