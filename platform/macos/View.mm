#include "platform/View.h"

#import <AppKit/AppKit.h>

#include "platform/macos/Conversions.h"
#include "platform/macos/Text.h"

namespace NS {

static_assert(static_cast<long>(LayoutOrientation::Horizontal) == NSLayoutConstraintOrientationHorizontal);
static_assert(static_cast<long>(LayoutOrientation::Vertical) == NSLayoutConstraintOrientationVertical);
static_assert(static_cast<long>(LayoutOrientation::Horizontal) == NSUserInterfaceLayoutOrientationHorizontal);
static_assert(static_cast<long>(LayoutOrientation::Vertical) == NSUserInterfaceLayoutOrientationVertical);
static_assert(static_cast<long>(LayoutAttribute::Leading) == NSLayoutAttributeLeading);
static_assert(static_cast<long>(LayoutAttribute::CenterY) == NSLayoutAttributeCenterY);
static_assert(ViewWidthSizable == NSViewWidthSizable);

static NSView* object(const View& view) { return (__bridge NSView*)view.get(); }
static NSStackView* object(const StackView& view) { return (__bridge NSStackView*)view.get(); }
static NSLayoutAnchor* object(const LayoutAnchor& anchor) { return (__bridge NSLayoutAnchor*)anchor.get(); }

// ---- Constraints ----

LayoutConstraint LayoutAnchor::constraintEqualToAnchor(const LayoutAnchor& other, double constant) const {
  @autoreleasepool {
    return LayoutConstraint(
        CF::retain((__bridge CFTypeRef)[object(*this) constraintEqualToAnchor:object(other) constant:constant]));
  }
}

void LayoutConstraint::activateConstraints(const std::vector<LayoutConstraint>& constraints) {
  @autoreleasepool {
    [NSLayoutConstraint activateConstraints:array(constraints)];
  }
}

// ---- Views ----

View View::initWithFrame(CGRect frame) {
  @autoreleasepool {
    return View(CF::adopt((__bridge_retained CFTypeRef)[[NSView alloc] initWithFrame:frame]));
  }
}

void View::addSubview(const View& view) const {
  @autoreleasepool {
    [object(*this) addSubview:object(view)];
  }
}

void View::setFrame(CGRect frame) const {
  @autoreleasepool {
    object(*this).frame = frame;
  }
}

void View::setAutoresizingMask(unsigned long mask) const {
  @autoreleasepool {
    object(*this).autoresizingMask = static_cast<NSAutoresizingMaskOptions>(mask);
  }
}

void View::setTranslatesAutoresizingMaskIntoConstraints(bool translates) const {
  @autoreleasepool {
    object(*this).translatesAutoresizingMaskIntoConstraints = translates;
  }
}

void View::setHidden(bool isHidden) const {
  @autoreleasepool {
    object(*this).hidden = isHidden;
  }
}

void View::setContentHuggingPriority(float priority, LayoutOrientation orientation) const {
  @autoreleasepool {
    [object(*this) setContentHuggingPriority:priority
                              forOrientation:static_cast<NSLayoutConstraintOrientation>(orientation)];
  }
}

CGSize View::fittingSize() const {
  @autoreleasepool {
    return object(*this).fittingSize;
  }
}

LayoutAnchor View::leadingAnchor() const {
  @autoreleasepool {
    return LayoutAnchor(CF::retain((__bridge CFTypeRef)object(*this).leadingAnchor));
  }
}

LayoutAnchor View::trailingAnchor() const {
  @autoreleasepool {
    return LayoutAnchor(CF::retain((__bridge CFTypeRef)object(*this).trailingAnchor));
  }
}

LayoutAnchor View::topAnchor() const {
  @autoreleasepool {
    return LayoutAnchor(CF::retain((__bridge CFTypeRef)object(*this).topAnchor));
  }
}

LayoutAnchor View::widthAnchor() const {
  @autoreleasepool {
    return LayoutAnchor(CF::retain((__bridge CFTypeRef)object(*this).widthAnchor));
  }
}

void View::setAccessibilityLabel(const std::string& label) const {
  @autoreleasepool {
    object(*this).accessibilityLabel = string(label);
  }
}

// ---- Stacks ----

StackView StackView::stackViewWithViews(const std::vector<View>& views) {
  @autoreleasepool {
    return StackView(CF::retain((__bridge CFTypeRef)[NSStackView stackViewWithViews:array(views)]));
  }
}

void StackView::setOrientation(LayoutOrientation orientation) const {
  @autoreleasepool {
    object(*this).orientation = static_cast<NSUserInterfaceLayoutOrientation>(orientation);
  }
}

void StackView::setAlignment(LayoutAttribute alignment) const {
  @autoreleasepool {
    object(*this).alignment = static_cast<NSLayoutAttribute>(alignment);
  }
}

void StackView::setSpacing(double spacing) const {
  @autoreleasepool {
    object(*this).spacing = spacing;
  }
}

}  // namespace NS
