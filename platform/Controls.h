// NSSlider, NSTextField (as a label) with NSFont, and NSImageView. Main thread only.
#pragma once

#include <functional>
#include <string>

#include "platform/Color.h"
#include "platform/Image.h"
#include "platform/Object.h"
#include "platform/View.h"

namespace NS {

class Slider : public View {
 public:
  Slider() noexcept = default;
  // Without a target or an action.
  static Slider sliderWithValue(double value, double minimum, double maximum);

  [[nodiscard]] double doubleValue() const;
  // Kept within the slider's range. The action is not sent.
  void setDoubleValue(double value) const;
  void setNumberOfTickMarks(long number) const;
  void setAllowsTickMarkValuesOnly(bool ticksOnly) const;
  // Whether the action is sent throughout a drag, and not at its end alone.
  void setContinuous(bool isContinuous) const;
  // Calls `action`, which the slider keeps, when the user moves the knob.
  void setTargetAction(std::function<void()> action) const;

 private:
  using View::View;
};

class Font : public Object {
 public:
  // In points.
  static double smallSystemFontSize();
  static Font systemFontOfSize(double size);

 private:
  using Object::Object;
};

// NSLineBreakMode, as far as it is used: what becomes of a line that is too long.
enum class LineBreakMode : unsigned long { ByClipping = 2, ByTruncatingTail = 4 };

class TextField : public View {
 public:
  // A text of one line that can be neither edited nor selected; what does not fit is cut off.
  static TextField labelWithString(const std::string& text);

  void setFont(const Font& font) const;
  void setTextColor(const Color& color) const;
  void setLineBreakMode(LineBreakMode mode) const;

 private:
  using View::View;
};

class ImageView : public View {
 public:
  // An empty one.
  static ImageView initWithFrame(CGRect frame);

  // Null: it is empty.
  void setImage(const Image& image) const;
  // The colour of template images and symbols.
  void setContentTintColor(const Color& color) const;

 private:
  using View::View;
};

}  // namespace NS
