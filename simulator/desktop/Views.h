// Views and controls, as much of them as a menu item shows.
#pragma once

#include <CoreGraphics/CoreGraphics.h>

#include <functional>
#include <string>
#include <vector>

#include "platform/CF.h"
#include "platform/Controls.h"
#include "simulator/desktop/Colors.h"
#include "simulator/desktop/Images.h"
#include "simulator/drawing/Layout.h"
#include "simulator/kernel/Object.h"

namespace simulator {

struct ViewObject : Object {
  ~ViewObject() override;
  std::string_view kind() const override { return "NSView"; }
  // Brings the box up to date with what the view shows.
  virtual void measure() {}

  CGRect frame = {};  // in the superview, from its bottom left corner
  unsigned long autoresizingMask = 0;
  bool translatesAutoresizingMask = true;
  std::string accessibilityLabel;
  ViewObject* superview = nullptr;    // not retained
  std::vector<ViewObject*> subviews;  // retained
  drawing::Box box;
};

struct StackViewObject : ViewObject {
  std::string_view kind() const override { return "NSStackView"; }
};

struct SliderObject : ViewObject {
  std::string_view kind() const override { return "NSSlider"; }
  void measure() override;

  void setValue(double wanted);  // kept within the range
  // The user moves the knob to that value, or to the tick mark next to it.
  void dragTo(double wanted);

  double value = 0;
  double minimum = 0;
  double maximum = 1;
  long tickMarks = 0;
  bool ticksOnly = false;
  bool isContinuous = false;  // until the program says so
  std::function<void()> action;
};

struct TextFieldObject : ViewObject {
  std::string_view kind() const override { return "NSTextField"; }
  void measure() override;
  // The text as it is shown when it has that much room.
  [[nodiscard]] std::string textWithin(double width) const;

  std::string text;
  double fontSize;
  const ColorObject* color = nullptr;  // null: the label colour
  NS::LineBreakMode lineBreakMode = NS::LineBreakMode::ByClipping;
};

struct ImageViewObject : ViewObject {
  std::string_view kind() const override { return "NSImageView"; }
  void measure() override;
  [[nodiscard]] const ImageObject* shown() const;

  CF::Ref<CFTypeRef> image;
  const ColorObject* tint = nullptr;  // null: the label colour
};

// Lays out what is in the view, for the size of its frame.
void layOut(ViewObject& view);
// The smallest size of what is in the view.
CGSize fittingSize(ViewObject& view);
// The view and all that it contains, in the order in which they are drawn.
void forEachView(ViewObject& view, const std::function<void(ViewObject&)>& visit);
// The first view of a type in the view; null when there is none.
template <typename T>
T* firstViewOf(ViewObject& view) {
  T* first = nullptr;
  forEachView(view, [&first](ViewObject& each) {
    if (!first) first = dynamic_cast<T*>(&each);
  });
  return first;
}

}  // namespace simulator
