#include "simulator/desktop/MenuLayout.h"

#include <algorithm>
#include <cmath>

#include "simulator/desktop/MenuBar.h"
#include "simulator/desktop/Views.h"
#include "simulator/drawing/Font.h"

namespace simulator {
namespace {

namespace metrics = drawing::metrics;
using drawing::Font;
using drawing::Path;
using drawing::Picture;
using metrics::Appearance;

std::string shortcutOf(const MenuItemObject& item) {
  if (item.keyEquivalent.empty()) return {};
  std::string shortcut = "⌘";
  for (const char letter : item.keyEquivalent)
    shortcut += letter >= 'a' && letter <= 'z' ? static_cast<char>(letter - 32) : letter;
  return shortcut;
}

// How far titles are moved to the right to leave room for ticks.
double tickWidth(const MenuObject& menu) {
  const bool anyTicked = std::ranges::any_of(menu.items, &MenuItemObject::ticked);
  return anyTicked ? metrics::menuTickWidth : 0;
}

// What the item needs, before the menu's own width is known.
CGSize naturalSize(const MenuObject& menu, const MenuItemObject& item) {
  if (ViewObject* const view = item.viewObject()) {
    return view->translatesAutoresizingMask ? CGSize{view->frame.size.width, item.viewHeight} : fittingSize(*view);
  }
  if (item.separator) return {0, metrics::menuSeparatorHeight};
  const double margins = 2 * metrics::menuTextMargin;
  if (item.header) {
    const double text = Font::system(Font::Weight::semibold).width(item.title, metrics::sectionHeaderFontSize);
    return {std::ceil(margins + text), metrics::menuSectionHeight};
  }
  double width = margins + tickWidth(menu) + Font::system().width(item.title, metrics::systemFontSize);
  if (const std::string shortcut = shortcutOf(item); !shortcut.empty()) {
    width += metrics::menuKeyEquivalentGap + Font::system().width(shortcut, metrics::systemFontSize);
  }
  return {std::ceil(width), metrics::menuItemHeight};
}

void giveWidth(ViewObject& view, CGSize natural, double menuWidth) {
  view.frame.size = natural;
  if (view.translatesAutoresizingMask && (view.autoresizingMask & NS::ViewWidthSizable))
    view.frame.size.width = menuWidth;
  layOut(view);
}

// The baseline of a text in the middle of a line.
double baseline(const CGRect& line, double fontSize) {
  const Font& font = Font::system();
  return line.origin.y + (line.size.height + font.ascent(fontSize) - font.descent(fontSize)) / 2;
}

void addText(Picture& picture, const std::string& text, double fontSize, CGPoint origin, const drawing::Color& color,
             Font::Weight weight = Font::Weight::regular) {
  picture.fill(Font::system(weight).outline(text, fontSize, origin), color);
}

// ---- Controls ----

void addSlider(Picture& picture, const SliderObject& slider, const CGRect& place, const Appearance& appearance) {
  const double left = place.origin.x + metrics::sliderKnobWidth / 2;
  const double length = place.size.width - metrics::sliderKnobWidth;
  const double middle = place.origin.y + metrics::sliderHeight / 2;
  const double range = slider.maximum - slider.minimum;
  const double knob = left + length * (range > 0 ? (slider.value - slider.minimum) / range : 0);
  const auto track = [&](double to) {
    return Path::rectangle({{left - metrics::sliderTrackHeight / 2, middle - metrics::sliderTrackHeight / 2},
                            {to - left + metrics::sliderTrackHeight, metrics::sliderTrackHeight}},
                           metrics::sliderTrackHeight / 2);
  };
  picture.fill(track(left + length), appearance.sliderTrack);
  picture.fill(track(knob), appearance.accent);
  for (long i = 0; i < slider.tickMarks; ++i) {
    const double x = left + length * static_cast<double>(i) / static_cast<double>(std::max(slider.tickMarks - 1, 1L));
    const double bottom = place.origin.y + metrics::sliderHeightWithTickMarks;
    picture.fill(Path::rectangle({{x - metrics::sliderTickMarkWidth / 2, bottom - metrics::sliderTickMarkHeight},
                                  {metrics::sliderTickMarkWidth, metrics::sliderTickMarkHeight}}),
                 appearance.disabledLabel);
  }
  const Path outline = Path::rectangle({{knob - metrics::sliderKnobWidth / 2, middle - metrics::sliderKnobHeight / 2},
                                        {metrics::sliderKnobWidth, metrics::sliderKnobHeight}},
                                       metrics::sliderKnobWidth / 2);
  picture.fill(outline, appearance.sliderKnob);
  picture.stroke(outline, appearance.sliderKnobBorder, 0.5);
}

void addView(Picture& picture, ViewObject& view, CGPoint origin, const Appearance& appearance) {
  const CGRect& found = view.box.found;
  const CGRect place = {{origin.x + found.origin.x, origin.y + found.origin.y}, found.size};
  const auto colorOf = [&](const ColorObject* color) { return color ? color->in(appearance) : appearance.label; };
  if (const auto* const slider = dynamic_cast<SliderObject*>(&view)) {
    addSlider(picture, *slider, place, appearance);
  } else if (const auto* const field = dynamic_cast<TextFieldObject*>(&view)) {
    const CGPoint start = {place.origin.x, baseline(place, field->fontSize)};
    addText(picture, field->textWithin(place.size.width), field->fontSize, start, colorOf(field->color));
  } else if (const auto* const imageView = dynamic_cast<ImageViewObject*>(&view); imageView && imageView->shown()) {
    // In the middle of its view, as NSImageView has it.
    const Picture& image = imageView->shown()->picture;
    const CGPoint corner = {place.origin.x + (place.size.width - image.size.width) / 2,
                            place.origin.y + (place.size.height - image.size.height) / 2};
    picture.add(image, corner, colorOf(imageView->tint));
  }
}

// ---- Items ----

void addTick(Picture& picture, const CGRect& place, const drawing::Color& color) {
  const double x = place.origin.x + metrics::menuTextMargin - 3;
  const double middle = place.origin.y + place.size.height / 2;
  Path tick;
  tick.move({x, middle + 0.5});
  tick.line({x + 3, middle + 4});
  tick.line({x + 8, middle - 4});
  picture.stroke(tick, color, 1.6, drawing::LineCap::round);
}

void addItem(Picture& picture, const MenuObject& menu, const MenuItemObject& item, const CGRect& place,
             const Appearance& appearance) {
  const double left = place.origin.x + metrics::menuTextMargin;
  const double right = place.origin.x + place.size.width - metrics::menuTextMargin;
  if (item.separator) {
    picture.fill(Path::rectangle({{left, place.origin.y + place.size.height / 2 - 0.5}, {right - left, 1}}),
                 appearance.separator);
    return;
  }
  if (item.header) {
    addText(picture, item.title, metrics::sectionHeaderFontSize,
            {left, baseline(place, metrics::sectionHeaderFontSize)}, appearance.secondaryLabel, Font::Weight::semibold);
    return;
  }
  const drawing::Color& color = isEnabled(menu, item) ? appearance.label : appearance.disabledLabel;
  const double line = baseline(place, metrics::systemFontSize);
  addText(picture, item.title, metrics::systemFontSize, {left + tickWidth(menu), line}, color);
  if (item.ticked) addTick(picture, place, color);
  if (const std::string shortcut = shortcutOf(item); !shortcut.empty()) {
    const double width = Font::system().width(shortcut, metrics::systemFontSize);
    addText(picture, shortcut, metrics::systemFontSize, {right - width, line}, appearance.disabledLabel);
  }
}

}  // namespace

MenuLayout layOut(const MenuObject& menu) {
  MenuLayout layout{{0, metrics::menuPadding}, {}};
  std::vector<CGSize> sizes;
  for (const MenuItemObject* const item : menu.items) {
    sizes.push_back(naturalSize(menu, *item));
    layout.size.width = std::max(layout.size.width, sizes.back().width);
  }
  for (std::size_t i = 0; i < sizes.size(); ++i) {
    if (ViewObject* const view = menu.items[i]->viewObject()) giveWidth(*view, sizes[i], layout.size.width);
    layout.items.push_back({{0, layout.size.height}, {layout.size.width, sizes[i].height}});
    layout.size.height += sizes[i].height;
  }
  layout.size.height += metrics::menuPadding;
  return layout;
}

Picture pictureOf(const MenuObject& menu, const Appearance& appearance) {
  const MenuLayout layout = layOut(menu);
  Picture picture{.size = layout.size, .flipped = true, .operations = {}};
  const auto edge = [&](double inset) {
    return Path::rectangle({{inset, inset}, {layout.size.width - 2 * inset, layout.size.height - 2 * inset}},
                           metrics::menuCornerRadius - inset);
  };
  picture.fill(edge(0), appearance.menuBackground);
  picture.stroke(edge(0.25), appearance.menuBorder, 0.5);
  for (std::size_t i = 0; i < layout.items.size(); ++i) {
    const MenuItemObject& item = *menu.items[i];
    if (ViewObject* const view = item.viewObject()) {
      forEachView(*view, [&](ViewObject& each) { addView(picture, each, layout.items[i].origin, appearance); });
    } else {
      addItem(picture, menu, item, layout.items[i], appearance);
    }
  }
  return picture;
}

}  // namespace simulator
