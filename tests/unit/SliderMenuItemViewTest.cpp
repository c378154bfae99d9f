// A slider row without the rest of the menu.
#include <gtest/gtest.h>

#include <limits>
#include <vector>

#include "app/SliderMenuItemView.h"
#include "simulator/desktop/SliderMouse.h"
#include "simulator/desktop/Views.h"
#include "simulator/kernel/Call.h"
#include "simulator/mac/Mac.h"
#include "tests/support/Program.h"

using simulator::firstViewOf;
using simulator::SliderObject;
using simulator::ViewObject;

namespace {

using Reported = std::vector<int>;

ViewObject& viewOf(const SliderMenuItemView& row) { return simulator::live<ViewObject>(row.get(), "the test"); }
SliderObject& sliderOf(const SliderMenuItemView& row) { return *firstViewOf<SliderObject>(viewOf(row)); }

// A row whose reports go to `reported`.
std::shared_ptr<SliderMenuItemView> makeRow(int steps, Reported& reported, const std::string& title = "Left",
                                            const std::string& symbol = "sun.max.fill") {
  return SliderMenuItemView::make({title, steps, 16}, symbol, [&reported](int each) { reported.push_back(each); });
}

}  // namespace

TEST(SliderMenuItemView, HasATickMarkForEachStep) {
  runProgram([] {
    Reported reported;
    const auto row = makeRow(5, reported);
    const SliderObject& slider = sliderOf(*row);
    EXPECT_EQ(slider.value, 5);
    EXPECT_EQ(slider.minimum, 0);
    EXPECT_EQ(slider.maximum, 16);
    EXPECT_EQ(slider.tickMarks, 17);
    EXPECT_TRUE(slider.ticksOnly);
    EXPECT_TRUE(slider.isContinuous);
    EXPECT_EQ(slider.accessibilityLabel, "Left");
  });
}

TEST(SliderMenuItemView, IsEightPointsHigherThanItsContent) {
  runProgram([] {
    Reported reported;
    const auto row = makeRow(5, reported);
    ViewObject& view = viewOf(*row);
    EXPECT_EQ(view.frame.size.width, 260);
    ASSERT_EQ(view.subviews.size(), 1U);
    EXPECT_EQ(view.frame.size.height, simulator::fittingSize(*view.subviews[0]).height + 8);
    EXPECT_EQ(view.autoresizingMask, NS::ViewWidthSizable);
    EXPECT_TRUE(view.translatesAutoresizingMask);
  });
}

TEST(SliderMenuItemView, LaysOutItsContent) {
  runProgram([] {
    Reported reported;
    const auto row = makeRow(5, reported);
    ViewObject& view = viewOf(*row);
    simulator::layOut(view);
    const CGRect column = view.subviews[0]->box.found;
    EXPECT_EQ(column.origin.x, 14);
    EXPECT_EQ(column.origin.y, 4);
    EXPECT_EQ(column.size.width, 232);
    const auto* const caption = firstViewOf<simulator::TextFieldObject>(view);
    const auto* const symbol = firstViewOf<simulator::ImageViewObject>(view);
    const SliderObject& slider = sliderOf(*row);
    EXPECT_EQ(caption->box.found.origin.x, 14);
    EXPECT_EQ(caption->box.found.origin.y, 4);
    EXPECT_EQ(symbol->box.found.origin.x, 14);
    EXPECT_EQ(symbol->box.hugging[drawing::horizontal], NS::LayoutPriorityRequired);
    EXPECT_EQ(symbol->box.found.size.width, symbol->shown()->picture.size.width);
    EXPECT_EQ(slider.box.found.origin.x, 14 + symbol->box.found.size.width + 8);
    EXPECT_EQ(slider.box.found.origin.x + slider.box.found.size.width, 246);
    EXPECT_EQ(slider.box.found.origin.y, caption->box.found.origin.y + caption->box.found.size.height + 2);
    EXPECT_EQ(symbol->box.found.origin.y + symbol->box.found.size.height / 2,
              slider.box.found.origin.y + slider.box.found.size.height / 2);
    EXPECT_EQ(symbol->tint, caption->color);
    EXPECT_EQ(caption->fontSize, 11);
    ASSERT_TRUE(caption->color);
    EXPECT_EQ(caption->color->name, simulator::ColorObject::Name::secondaryLabel);
  });
}

TEST(SliderMenuItemView, UnknownSymbolLeavesItsPlaceEmpty) {
  runProgram([] {
    Reported reported;
    const auto row = makeRow(5, reported, "Left", "no.such.symbol");
    simulator::layOut(viewOf(*row));
    EXPECT_EQ(firstViewOf<simulator::ImageViewObject>(viewOf(*row))->shown(), nullptr);
    EXPECT_EQ(viewOf(*row).frame.size.width, 260);
    // The slider has the whole row.
    EXPECT_EQ(sliderOf(*row).box.found.origin.x, 14);
    EXPECT_EQ(sliderOf(*row).box.found.size.width, 232);
  });
}

TEST(SliderMenuItemView, ReportsEachStepOnce) {
  runProgram([] {
    Reported reported;
    const auto row = makeRow(8, reported);
    simulator::SliderMouse mouse(simulator::Call::unguarded());
    mouse.press(sliderOf(*row));
    for (const double stop : {5.4, 5.6, 6.2, 6.3, 5.1}) mouse.moveTo(stop);
    mouse.release();
    EXPECT_EQ(reported, (Reported{5, 6, 5}));
  });
}

TEST(SliderMenuItemView, RoundsValuesBetweenTheTickMarks) {
  runProgram([] {
    Reported reported;
    const auto row = makeRow(8, reported);
    SliderObject& slider = sliderOf(*row);
    slider.ticksOnly = false;
    simulator::SliderMouse mouse(simulator::Call::unguarded());
    mouse.press(slider);
    for (const double stop : {5.4, 5.6, 6.2, 6.5, 6.49}) mouse.moveTo(stop);
    EXPECT_EQ(reported, (Reported{5, 6, 7, 6}));
  });
}

TEST(SliderMenuItemView, SetStepsMovesTheSliderWithoutAReport) {
  runProgram([] {
    Reported reported;
    const auto row = makeRow(8, reported);
    SliderObject& slider = sliderOf(*row);
    row->setSteps(9);
    EXPECT_EQ(slider.value, 9);
    // What is shown already changes nothing: the slider stays where the user has it.
    slider.setValue(3);
    row->setSteps(9);
    EXPECT_EQ(slider.value, 3);
    simulator::SliderMouse mouse(simulator::Call::unguarded());
    mouse.press(slider);
    EXPECT_EQ(reported, (Reported{3}));  // it is noticed where the knob really is
    reported.clear();
    row->setSteps(12);
    mouse.moveTo(12);
    EXPECT_EQ(reported, Reported{});
    mouse.moveTo(11);
    EXPECT_EQ(reported, Reported{11});
  });
}

TEST(SliderMenuItemView, DoesNothingOnceItsOwnerHasLetItGo) {
  runProgram([] {
    Reported reported;
    auto row = makeRow(8, reported);
    const NS::View view = *row;  // the menu may still hold the view
    simulator::SliderMouse mouse(simulator::Call::unguarded());
    mouse.press(sliderOf(*row));
    row.reset();
    mouse.moveTo(3);
    mouse.release();
    EXPECT_EQ(reported, Reported{});
  });
}

TEST(SliderMenuItemView, TakesEveryNumberThatIsOne) {
  runProgram([] {
    Reported reported;
    const auto row = makeRow(8, reported);
    using Limits = std::numeric_limits<int>;
    for (const int value : {Limits::min(), Limits::max()}) {
      sliderOf(*row).value = value;
      sliderOf(*row).action();
    }
    EXPECT_EQ(reported, (Reported{Limits::min(), Limits::max()}));
  });
}

TEST(SliderMenuItemViewDeathTest, StopsAtNumbersBeyondAllSteps) {
  EXPECT_EXIT(
      runStrictly([] { SliderMenuItemView::make({"Left", 0, std::numeric_limits<int>::max()}, "sun.max.fill", {}); }),
      testing::ExitedWithCode(1), "The slider has too many steps");
  for (const double value : {1e10, -1e10, std::numeric_limits<double>::quiet_NaN()}) {
    EXPECT_EXIT(runStrictly([value] {
                  Reported reported;
                  const auto row = makeRow(8, reported);
                  sliderOf(*row).value = value;
                  sliderOf(*row).action();
                }),
                testing::ExitedWithCode(1), "The slider's value is not a number of steps");
  }
}
