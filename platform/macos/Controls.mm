#include "platform/Controls.h"

#import <AppKit/AppKit.h>

#include "platform/macos/Target.h"
#include "platform/macos/Text.h"

namespace NS {

static_assert(static_cast<NSLineBreakMode>(LineBreakMode::ByClipping) == NSLineBreakByClipping);
static_assert(static_cast<NSLineBreakMode>(LineBreakMode::ByTruncatingTail) == NSLineBreakByTruncatingTail);

static NSSlider* object(const Slider& slider) { return (__bridge NSSlider*)slider.get(); }
static NSTextField* object(const TextField& field) { return (__bridge NSTextField*)field.get(); }
static NSImageView* object(const ImageView& view) { return (__bridge NSImageView*)view.get(); }
static NSFont* object(const Font& font) { return (__bridge NSFont*)font.get(); }
static NSColor* object(const Color& color) { return (__bridge NSColor*)color.get(); }

// ---- Sliders ----

Slider Slider::sliderWithValue(double value, double minimum, double maximum) {
  @autoreleasepool {
    return Slider(CF::retain((__bridge CFTypeRef)[NSSlider sliderWithValue:value
                                                                  minValue:minimum
                                                                  maxValue:maximum
                                                                    target:nil
                                                                    action:nil]));
  }
}

double Slider::doubleValue() const {
  @autoreleasepool {
    return object(*this).doubleValue;
  }
}

void Slider::setDoubleValue(double value) const {
  @autoreleasepool {
    object(*this).doubleValue = value;
  }
}

void Slider::setNumberOfTickMarks(long number) const {
  @autoreleasepool {
    object(*this).numberOfTickMarks = number;
  }
}

void Slider::setAllowsTickMarkValuesOnly(bool ticksOnly) const {
  @autoreleasepool {
    object(*this).allowsTickMarkValuesOnly = ticksOnly;
  }
}

void Slider::setContinuous(bool isContinuous) const {
  @autoreleasepool {
    object(*this).continuous = isContinuous;
  }
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): it is moved, through a property
void Slider::setTargetAction(std::function<void()> action) const {
  @autoreleasepool {
    DalvaneTarget* const target = [[DalvaneTarget alloc] init];
    target.action = std::move(action);
    object(*this).target = target;
    object(*this).action = @selector(perform:);
    keep(object(*this), target);
  }
}

// ---- Labels ----

double Font::smallSystemFontSize() {
  @autoreleasepool {
    return NSFont.smallSystemFontSize;
  }
}

Font Font::systemFontOfSize(double size) {
  @autoreleasepool {
    return Font(CF::retain((__bridge CFTypeRef)[NSFont systemFontOfSize:size]));
  }
}

TextField TextField::labelWithString(const std::string& text) {
  @autoreleasepool {
    return TextField(CF::retain((__bridge CFTypeRef)[NSTextField labelWithString:string(text)]));
  }
}

void TextField::setFont(const Font& font) const {
  @autoreleasepool {
    object(*this).font = object(font);
  }
}

void TextField::setTextColor(const Color& color) const {
  @autoreleasepool {
    object(*this).textColor = object(color);
  }
}

void TextField::setLineBreakMode(LineBreakMode mode) const {
  @autoreleasepool {
    object(*this).lineBreakMode = static_cast<NSLineBreakMode>(mode);
  }
}

// ---- Image views ----

ImageView ImageView::initWithFrame(CGRect frame) {
  @autoreleasepool {
    return ImageView(CF::adopt((__bridge_retained CFTypeRef)[[NSImageView alloc] initWithFrame:frame]));
  }
}

void ImageView::setImage(const Image& image) const {
  @autoreleasepool {
    object(*this).image = (__bridge NSImage*)image.get();
  }
}

void ImageView::setContentTintColor(const Color& color) const {
  @autoreleasepool {
    object(*this).contentTintColor = object(color);
  }
}

}  // namespace NS
