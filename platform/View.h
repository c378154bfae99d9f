// NSView with its layout anchors, NSLayoutConstraint and NSStackView. Main thread only.
#pragma once

#include <CoreGraphics/CoreGraphics.h>

#include <string>
#include <vector>

#include "platform/Object.h"

namespace NS {

class View;

// NSLayoutConstraintOrientation, which is also NSUserInterfaceLayoutOrientation.
enum class LayoutOrientation : long { Horizontal = 0, Vertical = 1 };

// NSLayoutPriorityRequired.
inline constexpr float LayoutPriorityRequired = 1000;

// NSViewWidthSizable: the width follows the superview's.
inline constexpr unsigned long ViewWidthSizable = 2;

class LayoutConstraint : public Object {
 public:
  // Activates all of them together. Both ends of each must lie in one tree of views by then.
  static void activateConstraints(const std::vector<LayoutConstraint>& constraints);

 private:
  friend class LayoutAnchor;
  using Object::Object;
};

// NSLayoutAnchor, for every axis: AppKit raises an exception for ends that do not go together.
class LayoutAnchor : public Object {
 public:
  // This anchor lies `constant` points behind the other, in reading direction or downwards.
  [[nodiscard]] LayoutConstraint constraintEqualToAnchor(const LayoutAnchor& other, double constant = 0) const;

 private:
  friend class View;
  using Object::Object;
};

class View : public Object {
 public:
  View() noexcept = default;
  static View initWithFrame(CGRect frame);

  void addSubview(const View& view) const;
  // In the superview's coordinates: points, origin bottom-left.
  void setFrame(CGRect frame) const;
  // How the frame follows the superview's: an NSAutoresizingMaskOptions value.
  void setAutoresizingMask(unsigned long mask) const;
  // Whether the frame and that mask stand for constraints, as they do by default.
  void setTranslatesAutoresizingMaskIntoConstraints(bool translates) const;
  // A stack leaves hidden views out.
  void setHidden(bool isHidden) const;
  // How strongly the view resists being wider, or taller, than its content: up to LayoutPriorityRequired.
  void setContentHuggingPriority(float priority, LayoutOrientation orientation) const;
  // The smallest size that satisfies the constraints in the view.
  [[nodiscard]] CGSize fittingSize() const;
  [[nodiscard]] LayoutAnchor leadingAnchor() const;
  [[nodiscard]] LayoutAnchor trailingAnchor() const;
  [[nodiscard]] LayoutAnchor topAnchor() const;
  [[nodiscard]] LayoutAnchor widthAnchor() const;
  // What assistive technology calls the view.
  void setAccessibilityLabel(const std::string& label) const;

 protected:
  using Object::Object;
};

// NSLayoutAttributeLeading and NSLayoutAttributeCenterY: how a stack's views are aligned across it.
enum class LayoutAttribute : long { Leading = 5, CenterY = 10 };

class StackView : public View {
 public:
  // Lays the views out from the leading edge, or from the top. They no longer translate their autoresizing masks.
  static StackView stackViewWithViews(const std::vector<View>& views);

  void setOrientation(LayoutOrientation orientation) const;
  void setAlignment(LayoutAttribute alignment) const;
  // Points between two views.
  void setSpacing(double spacing) const;

 private:
  using View::View;
};

}  // namespace NS
