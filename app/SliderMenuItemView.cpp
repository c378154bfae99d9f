#include "app/SliderMenuItemView.h"

#include <cmath>
#include <limits>
#include <utility>

#include "base/Assertions.h"

namespace {

// Points.
constexpr double rowWidth = 260;
constexpr double horizontalMargin = 14;
constexpr double verticalMargin = 4;
constexpr double symbolSpacing = 8;
constexpr double captionSpacing = 2;

NS::TextField makeCaption(const std::string& title) {
  auto caption = NS::TextField::labelWithString(title);
  caption.setFont(NS::Font::systemFontOfSize(NS::Font::smallSystemFontSize()));
  caption.setTextColor(NS::Color::secondaryLabelColor());
  // A long name must not be cut in the middle of a letter.
  caption.setLineBreakMode(NS::LineBreakMode::ByTruncatingTail);
  return caption;
}

NS::ImageView makeSymbol(const std::string& name) {
  auto symbol = NS::ImageView::initWithFrame({});
  const auto image = NS::Image::imageWithSystemSymbolName(name);
  symbol.setImage(image);
  // Without an image it has no width of its own, and could take the slider's.
  symbol.setHidden(!image);
  symbol.setContentTintColor(NS::Color::secondaryLabelColor());
  symbol.setContentHuggingPriority(NS::LayoutPriorityRequired, NS::LayoutOrientation::Horizontal);
  return symbol;
}

// Halves go away from zero.
int nearestStep(double value) {
  const double rounded = std::round(value);
  if (!(rounded >= std::numeric_limits<int>::min() && rounded <= std::numeric_limits<int>::max())) {
    fatalError("The slider's value is not a number of steps");
  }
  return static_cast<int>(rounded);
}

}  // namespace

std::shared_ptr<SliderMenuItemView> SliderMenuItemView::make(const SliderState& state, const std::string& symbolName,
                                                             OnChange onChange) {
  assertMainThread();
  std::shared_ptr<SliderMenuItemView> row(new SliderMenuItemView(state, symbolName, std::move(onChange)));
  row->slider_.setTargetAction([weak = std::weak_ptr(row)] {
    if (const auto self = weak.lock()) self->sliderChanged();
  });
  return row;
}

SliderMenuItemView::SliderMenuItemView(const SliderState& state, const std::string& symbolName, OnChange onChange)
    : NS::View(NS::View::initWithFrame({})),
      slider_(NS::Slider::sliderWithValue(state.steps, 0, state.totalSteps)),
      onChange_(std::move(onChange)),
      lastSteps_(state.steps) {
  prepareSlider(state);
  layOut(state, symbolName);
}

void SliderMenuItemView::prepareSlider(const SliderState& state) const {
  int tickMarks = 0;
  if (__builtin_add_overflow(state.totalSteps, 1, &tickMarks)) fatalError("The slider has too many steps");
  slider_.setNumberOfTickMarks(tickMarks);
  slider_.setAllowsTickMarkValuesOnly(true);
  slider_.setContinuous(true);
  slider_.setAccessibilityLabel(state.title);
}

void SliderMenuItemView::layOut(const SliderState& state, const std::string& symbolName) const {
  const auto row = NS::StackView::stackViewWithViews({makeSymbol(symbolName), slider_});
  row.setSpacing(symbolSpacing);
  const auto column = NS::StackView::stackViewWithViews({makeCaption(state.title), row});
  column.setOrientation(NS::LayoutOrientation::Vertical);
  column.setAlignment(NS::LayoutAttribute::Leading);
  column.setSpacing(captionSpacing);
  addSubview(column);
  NS::LayoutConstraint::activateConstraints({
      column.leadingAnchor().constraintEqualToAnchor(leadingAnchor(), horizontalMargin),
      column.trailingAnchor().constraintEqualToAnchor(trailingAnchor(), -horizontalMargin),
      column.topAnchor().constraintEqualToAnchor(topAnchor(), verticalMargin),
      row.widthAnchor().constraintEqualToAnchor(column.widthAnchor()),
  });
  // The menu lays the row out by its frame, so the row itself goes on translating it into constraints.
  setAutoresizingMask(NS::ViewWidthSizable);
  setFrame({{0, 0}, {rowWidth, column.fittingSize().height + 2 * verticalMargin}});
}

void SliderMenuItemView::sliderChanged() {
  const int steps = nearestStep(slider_.doubleValue());
  if (std::exchange(lastSteps_, steps) != steps) onChange_(steps);
}

void SliderMenuItemView::setSteps(int steps) {
  assertMainThread();
  if (std::exchange(lastSteps_, steps) != steps) slider_.setDoubleValue(steps);
}
