// AppKit's geometry: points in rectangles, layout, sliders, and what is drawn.
#include <CoreGraphics/CoreGraphics.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "platform/BezierPath.h"
#include "platform/Color.h"
#include "platform/Controls.h"
#include "platform/Menu.h"
#include "platform/Screen.h"
#include "platform/View.h"
#include "tests/conformance/Machine.h"

namespace {

NS::View emptyView() { return NS::View::initWithFrame({}); }

// How opaque the pixels of a square image are that the handler draws, in rows from the top.
class Drawn {
 public:
  Drawn(int size, bool flipped, bool (^handler)(CGRect))
      : size_(size),
        opacities_(
            claims::opacities(NS::Image::imageWithSize({double(size), double(size)}, flipped, handler), size, size)) {}

  [[nodiscard]] double at(int x, int y) const { return opacities_.at(static_cast<std::size_t>(y * size_ + x)); }
  // The sum: how many pixels are covered.
  [[nodiscard]] double area() const {
    double sum = 0;
    for (const double each : opacities_) sum += each;
    return sum;
  }

 private:
  int size_;
  std::vector<double> opacities_;
};

}  // namespace

// ---- Points in rectangles ----

CLAIM(Geometry, AnEdgeBelongsToOneRectangle,
      "A point on the edge between two screens, one right of the other, belongs to the right one.",
      "NSGraphics.h / NSGeometry.h, NSMouseInRect") {
  const CGRect left = CGRectMake(0, 0, 100, 100);
  const CGRect right = CGRectMake(100, 0, 100, 100);
  EXPECT_FALSE(NS::MouseInRect(CGPointMake(100, 50), left, false));
  EXPECT_TRUE(NS::MouseInRect(CGPointMake(100, 50), right, false));
  EXPECT_TRUE(NS::MouseInRect(CGPointMake(0, 50), left, false));
}

CLAIM(Geometry, UnflippedRectanglesHaveTheirUpperEdge,
      "In unflipped coordinates a rectangle has the points of its upper edge, and not those of its lower one.",
      "NSGeometry.h, NSMouseInRect") {
  const CGRect rectangle = CGRectMake(0, 0, 100, 100);
  EXPECT_TRUE(NS::MouseInRect(CGPointMake(50, 100), rectangle, false));
  EXPECT_FALSE(NS::MouseInRect(CGPointMake(50, 0), rectangle, false));
}

CLAIM(Geometry, FlippedRectanglesHaveTheirLesserEdge,
      "In flipped coordinates a rectangle has the points whose y is its origin's, and not those at its height.",
      "NSGeometry.h, NSMouseInRect") {
  const CGRect rectangle = CGRectMake(0, 0, 100, 100);
  EXPECT_FALSE(NS::MouseInRect(CGPointMake(50, 100), rectangle, true));
  EXPECT_TRUE(NS::MouseInRect(CGPointMake(50, 0), rectangle, true));
}

// ---- Layout ----

CLAIM(Layout, AStackHasEightPointsBetweenItsViews,
      "A stack that nobody has said anything to has 8 points between its views, in a row.", "NSStackView.h, spacing") {
  const auto one = NS::TextField::labelWithString("One");
  const auto other = NS::TextField::labelWithString("Other");
  const auto stack = NS::StackView::stackViewWithViews({one, other});
  EXPECT_NEAR(stack.fittingSize().width, one.fittingSize().width + 8 + other.fittingSize().width, 0.01);
  EXPECT_NEAR(stack.fittingSize().height, one.fittingSize().height, 0.01);
}

CLAIM(Layout, AColumnIsAsHighAsItsViews, "A vertical stack is as high as its views and the spaces between them.",
      "NSStackView.h, orientation, spacing, alignment") {
  const auto one = NS::TextField::labelWithString("One");
  const auto other = NS::TextField::labelWithString("Much longer");
  const auto stack = NS::StackView::stackViewWithViews({one, other});
  stack.setOrientation(NS::LayoutOrientation::Vertical);
  stack.setAlignment(NS::LayoutAttribute::Leading);
  stack.setSpacing(3);
  EXPECT_NEAR(stack.fittingSize().height, one.fittingSize().height + 3 + other.fittingSize().height, 0.01);
  EXPECT_NEAR(stack.fittingSize().width, other.fittingSize().width, 0.01);
}

CLAIM(Layout, ARowOfAMenuIsAsLargeAsItsParts,
      "A caption above a row of symbol and slider is as high as the caption, the space, and the higher of the two.",
      "NSStackView.h, orientation, spacing, alignment; that a stack's views keep their heights is assumed") {
  const auto caption = NS::TextField::labelWithString("Some display");
  const auto symbol = NS::ImageView::initWithFrame({});
  symbol.setImage(NS::Image::imageWithSystemSymbolName("sun.max.fill"));
  const auto slider = NS::Slider::sliderWithValue(4, 0, 16);
  slider.setNumberOfTickMarks(17);
  const auto row = NS::StackView::stackViewWithViews({symbol, slider});
  row.setSpacing(6);
  const auto column = NS::StackView::stackViewWithViews({caption, row});
  column.setOrientation(NS::LayoutOrientation::Vertical);
  column.setAlignment(NS::LayoutAttribute::Leading);
  column.setSpacing(2);
  const double higher = std::max(symbol.fittingSize().height, slider.fittingSize().height);
  EXPECT_NEAR(row.fittingSize().height, higher, 0.01);
  EXPECT_NEAR(column.fittingSize().height, caption.fittingSize().height + 2 + higher, 0.01);
}

STOPS(Layout, ViewsOfTwoTreesAreNotTied,
      "A constraint between views that have no view in common above them cannot be activated: AppKit raises an "
      "exception.",
      "observed; NSLayoutConstraint.h, active") {
  const auto one = emptyView();
  const auto other = emptyView();
  NS::LayoutConstraint::activateConstraints({one.widthAnchor().constraintEqualToAnchor(other.widthAnchor())});
}

CLAIM(Layout, HiddenViewsTakeNoRoom, "A stack leaves out views that are hidden, and the space before them.",
      "NSStackView.h, detachesHiddenViews") {
  const auto one = NS::TextField::labelWithString("One");
  const auto other = NS::TextField::labelWithString("Other");
  const auto stack = NS::StackView::stackViewWithViews({one, other});
  other.setHidden(true);
  EXPECT_NEAR(stack.fittingSize().width, one.fittingSize().width, 0.01);
  other.setHidden(false);
  EXPECT_GT(stack.fittingSize().width, one.fittingSize().width + 8);
}

CLAIM(Layout, AViewIsAsWideAsItsConstraintsSay, "The fitting size of a view is the least that its constraints allow.",
      "NSView.h, fittingSize; NSLayoutAnchor.h, constraintEqualToAnchor:constant:") {
  const auto root = emptyView();
  const auto child = NS::TextField::labelWithString("Left");
  child.setTranslatesAutoresizingMaskIntoConstraints(false);
  root.addSubview(child);
  NS::LayoutConstraint::activateConstraints({child.leadingAnchor().constraintEqualToAnchor(root.leadingAnchor(), 14),
                                             child.trailingAnchor().constraintEqualToAnchor(root.trailingAnchor(), -1),
                                             child.topAnchor().constraintEqualToAnchor(root.topAnchor(), 5)});
  EXPECT_NEAR(root.fittingSize().width, child.fittingSize().width + 15, 0.01);
}

CLAIM(Layout, TwoViewsCanBeOfOneWidth,
      "A constraint between two width anchors makes the narrower view as wide as the other.",
      "NSLayoutAnchor.h, NSLayoutDimension") {
  const auto narrow = NS::TextField::labelWithString("One");
  const auto broad = NS::TextField::labelWithString("Much longer than that");
  const auto stack = NS::StackView::stackViewWithViews({narrow, broad});
  NS::LayoutConstraint::activateConstraints({narrow.widthAnchor().constraintEqualToAnchor(broad.widthAnchor())});
  EXPECT_NEAR(stack.fittingSize().width, 2 * broad.fittingSize().width + 8, 0.01);
}

CLAIM(
    Layout, AnAutoresizedViewHasItsFrame,
    "A view that translates its autoresizing mask keeps the width of its frame, and others can be laid out beside it.",
    "NSView.h, translatesAutoresizingMaskIntoConstraints") {
  const auto root = emptyView();
  const auto fixed = emptyView();
  fixed.setFrame(CGRectMake(0, 0, 120, 30));
  fixed.setAutoresizingMask(0);
  fixed.setAccessibilityLabel("of a fixed size");
  const auto label = NS::TextField::labelWithString("Left");
  label.setTranslatesAutoresizingMaskIntoConstraints(false);
  root.addSubview(fixed);
  root.addSubview(label);
  NS::LayoutConstraint::activateConstraints({label.leadingAnchor().constraintEqualToAnchor(fixed.trailingAnchor(), 4),
                                             label.trailingAnchor().constraintEqualToAnchor(root.trailingAnchor())});
  EXPECT_NEAR(root.fittingSize().width, 124 + label.fittingSize().width, 0.01);
}

CLAIM(Layout, LabelsAreAsHighAsTheirFont,
      "A label in the system font of 13 points is 16 points high, and one in the small system font 14.",
      "observed; Apple publishes no metrics") {
  const auto label = NS::TextField::labelWithString("Left");
  EXPECT_NEAR(label.fittingSize().height, 16, 0.5);
  label.setFont(NS::Font::systemFontOfSize(NS::Font::smallSystemFontSize()));
  EXPECT_NEAR(label.fittingSize().height, 14, 0.5);
}

CLAIM(Layout, TheSmallFontHasElevenPoints, "The small system font has 11 points.",
      "NSFont.h, smallSystemFontSize; observed") {
  EXPECT_EQ(NS::Font::smallSystemFontSize(), 11);
}

CLAIM(Layout, ColoursAndCutsTakeNoRoom, "A label's colour and the way its line is cut do not change its size.",
      "NSTextField.h, textColor; NSCell.h, lineBreakMode") {
  const auto label = NS::TextField::labelWithString("Some text");
  const CGSize before = label.fittingSize();
  label.setTextColor(NS::Color::secondaryLabelColor());
  label.setLineBreakMode(NS::LineBreakMode::ByTruncatingTail);
  label.setContentHuggingPriority(NS::LayoutPriorityRequired, NS::LayoutOrientation::Horizontal);
  EXPECT_NEAR(label.fittingSize().width, before.width, 0.01);
  EXPECT_NEAR(label.fittingSize().height, before.height, 0.01);
}

// ---- Sliders ----

CLAIM(Sliders, KeepTheirValueInTheirRange, "A slider's value is never outside of its range, whatever it is set to.",
      "NSSlider.h, minValue, maxValue") {
  const auto slider = NS::Slider::sliderWithValue(9, 0, 4);
  EXPECT_EQ(slider.doubleValue(), 4);
  slider.setDoubleValue(-1);
  EXPECT_EQ(slider.doubleValue(), 0);
  slider.setDoubleValue(2.5);
  EXPECT_EQ(slider.doubleValue(), 2.5);
}

CLAIM(Sliders, SendNothingWhenTheyAreSet, "A slider that is set by the program does not send its action.",
      "NSControl.h, doubleValue") {
  const auto slider = NS::Slider::sliderWithValue(0, 0, 4);
  int sent = 0;
  slider.setTargetAction([&sent] { ++sent; });
  slider.setContinuous(true);
  slider.setDoubleValue(3);
  claims::letRun(0.02);
  EXPECT_EQ(sent, 0);
}

CLAIM(Sliders, TickMarksTakeRoom, "A slider with tick marks is higher than one without.",
      "observed; NSSliderCell.h, numberOfTickMarks") {
  const auto slider = NS::Slider::sliderWithValue(0, 0, 16);
  const double before = slider.fittingSize().height;
  slider.setNumberOfTickMarks(17);
  slider.setAllowsTickMarkValuesOnly(true);
  EXPECT_GT(slider.fittingSize().height, before);
}

CLAIM(Sliders, TakeAnyWidth, "A slider has no width of its own worth speaking of: it can be as narrow as 20 points.",
      "observed: NSSlider's intrinsic width") {
  EXPECT_LT(NS::Slider::sliderWithValue(0, 0, 1).fittingSize().width, 20);
}

// ---- Menus ----

CLAIM(Menus, AnItemCanGoFromOneMenuToAnother, "An item that has been removed from a menu can be added to another.",
      "NSMenu.h, removeItem:, addItem:, insertItem:atIndex:") {
  const auto menu = NS::Menu::make();
  menu.setAutoenablesItems(false);
  const NS::MenuItem item("Item", nullptr, "");
  menu.addItem(item);
  menu.insertItem(NS::MenuItem::separatorItem(), 0);
  menu.insertItem(NS::MenuItem::sectionHeaderWithTitle("Heading"), 0);
  menu.removeItem(item);
  const auto other = NS::Menu::make();
  other.addItem(item);
  item.setTitle("Another title");
  item.setEnabled(false);
  item.setState(NS::ControlStateValue::On);
  item.setTargetAction([] {});
  item.setView(NS::View::initWithFrame(CGRectMake(0, 0, 100, 20)));
}

STOPS(Menus, AnItemIsInOneMenu, "An item that is in a menu cannot be added to another: AppKit raises an exception.",
      "NSMenu.h, addItem:; observed") {
  const NS::MenuItem item("Item", nullptr, "");
  NS::Menu::make().addItem(item);
  const auto menu = NS::Menu::make();
  menu.addItem(item);
  NS::Menu::make().addItem(item);
}

STOPS(Menus, HaveNoItemsBeyondTheirEnd,
      "An item cannot be inserted behind the end of a menu: AppKit raises an exception.",
      "NSMenu.h, insertItem:atIndex:") {
  NS::Menu::make().insertItem(NS::MenuItem("Item", nullptr, ""), 1);
}

STOPS(Menus, AnItemIsRemovedFromItsOwnMenu,
      "An item cannot be removed from a menu that it is not in: AppKit raises an exception.", "NSMenu.h, removeItem:") {
  NS::Menu::make().removeItem(NS::MenuItem("Item", nullptr, ""));
}

// ---- Drawing ----

CLAIM(Drawing, AFilledSquareIsOpaque, "A closed path that is filled covers what is inside of it, and nothing else.",
      "NSBezierPath.h, fill, closePath") {
  const Drawn drawn(8, false, ^(CGRect) {
    const auto path = NS::BezierPath::bezierPath();
    path.moveToPoint({2, 2});
    path.lineToPoint({6, 2});
    path.lineToPoint({6, 6});
    path.lineToPoint({2, 6});
    path.closePath();
    NS::Color::blackColor().set();
    path.fill();
    return true;
  });
  EXPECT_NEAR(drawn.at(3, 3), 1, 0.01);
  EXPECT_NEAR(drawn.at(0, 0), 0, 0.01);
  EXPECT_NEAR(drawn.area(), 16, 0.1);
}

CLAIM(Drawing, TheOriginIsBelowUnlessItIsFlipped, "The y axis of an image points up, and down when it is flipped.",
      "NSImage.h, imageWithSize:flipped:drawingHandler:") {
  for (const bool flipped : {false, true}) {
    const Drawn drawn(8, flipped, ^(CGRect rect) {
      const auto path = NS::BezierPath::bezierPath();
      path.moveToPoint({0, 1});
      path.lineToPoint({rect.size.width, 1});
      path.setLineWidth(2);
      NS::Color::blackColor().set();
      path.stroke();
      return true;
    });
    EXPECT_NEAR(drawn.at(4, flipped ? 0 : 7), 1, 0.01);
    EXPECT_NEAR(drawn.at(4, flipped ? 7 : 0), 0, 0.01);
  }
}

CLAIM(Drawing, AnArcGoesCounterclockwise,
      "An arc that is not clockwise goes from the smaller angle to the larger, from the x axis towards the y axis.",
      "NSBezierPath.h, appendBezierPathWithArcWithCenter:radius:startAngle:endAngle:clockwise:") {
  const Drawn drawn(20, false, ^(CGRect) {
    const auto path = NS::BezierPath::bezierPath();
    path.appendArc({10, 10}, 8, -90, 90, false);  // the right half
    path.setLineWidth(2);
    NS::Color::blackColor().set();
    path.stroke();
    return true;
  });
  EXPECT_NEAR(drawn.at(17, 10), 1, 0.1);
  EXPECT_NEAR(drawn.at(2, 10), 0, 0.1);
}

CLAIM(Drawing, AClockwiseArcGoesTheOtherWay, "An arc that is clockwise goes from the larger angle to the smaller.",
      "NSBezierPath.h, appendBezierPathWithArcWithCenter:radius:startAngle:endAngle:clockwise:") {
  const Drawn drawn(20, false, ^(CGRect) {
    const auto path = NS::BezierPath::bezierPath();
    path.appendArc({10, 10}, 8, -90, 90, true);  // the left half
    path.setLineWidth(2);
    NS::Color::blackColor().set();
    path.stroke();
    return true;
  });
  EXPECT_NEAR(drawn.at(17, 10), 0, 0.1);
  EXPECT_NEAR(drawn.at(2, 10), 1, 0.1);
}

CLAIM(Drawing, AWholeCircleIsOne, "An arc from 0 to 360 degrees is a whole circle.",
      "NSBezierPath.h, appendBezierPathWithArcWithCenter:radius:startAngle:endAngle:clockwise:; observed") {
  const Drawn drawn(20, false, ^(CGRect) {
    const auto path = NS::BezierPath::bezierPath();
    path.appendArc({10, 10}, 8, 0, 360, false);
    NS::Color::blackColor().set();
    path.fill();
    return true;
  });
  EXPECT_NEAR(drawn.area(), 3.14159265 * 64, 1.5);
}

CLAIM(Drawing, AnArcIsJoinedToThePathBeforeIt, "A line leads from a path's current point to the beginning of an arc.",
      "NSBezierPath.h, appendBezierPathWithArcWithCenter:radius:startAngle:endAngle:clockwise:") {
  const Drawn drawn(20, false, ^(CGRect) {
    const auto path = NS::BezierPath::bezierPath();
    path.moveToPoint({2, 10});
    path.appendArc({14, 10}, 4, 180, 170, true);
    path.setLineWidth(2);
    NS::Color::blackColor().set();
    path.stroke();
    return true;
  });
  EXPECT_NEAR(drawn.at(5, 9), 1, 0.1);
}

CLAIM(Drawing, SquareCapsReachOut,
      "A line with square caps reaches half its width beyond its ends; with butt caps it does not.",
      "NSBezierPath.h, lineCapStyle") {
  for (const auto cap : {NS::LineCapStyle::Butt, NS::LineCapStyle::Square}) {
    const Drawn drawn(12, false, ^(CGRect) {
      const auto path = NS::BezierPath::bezierPath();
      path.moveToPoint({4, 6});
      path.lineToPoint({8, 6});
      path.setLineWidth(4);
      path.setLineCapStyle(cap);
      NS::Color::blackColor().set();
      path.stroke();
      return true;
    });
    EXPECT_NEAR(drawn.area(), cap == NS::LineCapStyle::Butt ? 16 : 32, 0.2);
  }
}

STOPS(Drawing, ALineNeedsABeginning, "A path without a current point takes no line: AppKit raises an exception.",
      "NSBezierPath.h, lineToPoint:; observed") {
  NS::BezierPath::bezierPath().lineToPoint({1, 1});
}

CLAIM(Images, SymbolsHaveTheirNames,
      "The system has the symbols of a sun and of loudspeakers, and none of an unknown name.",
      "NSImage.h, imageWithSystemSymbolName:accessibilityDescription:; Apple's SF Symbols") {
  for (const char* const name : {"sun.max.fill", "speaker.wave.2.fill"}) {
    EXPECT_TRUE(NS::Image::imageWithSystemSymbolName(name)) << name;
  }
  EXPECT_FALSE(NS::Image::imageWithSystemSymbolName("no.such.symbol"));
}

CLAIM(Images, AnEmptyImageViewTakesNoRoom, "An image view is as large as its image, and without one it has no size.",
      "NSImageView.h, image; observed") {
  const auto view = NS::ImageView::initWithFrame({});
  EXPECT_EQ(view.fittingSize().width, 0);
  view.setImage(NS::Image::imageWithSystemSymbolName("sun.max.fill"));
  view.setContentTintColor(NS::Color::secondaryLabelColor());
  EXPECT_GT(view.fittingSize().width, 0);
  view.setImage({});
  EXPECT_EQ(view.fittingSize().width, 0);
}

CLAIM(Images, MayBeTemplates, "An image that is a template with a description is drawn as it was before.",
      "NSImage.h, template, accessibilityDescription") {
  const auto image = NS::Image::imageWithSize({4, 4}, false, ^(CGRect rect) {
    const auto path = NS::BezierPath::bezierPath();
    path.moveToPoint({0, 2});
    path.lineToPoint({rect.size.width, 2});
    path.setLineWidth(4);
    NS::Color::blackColor().set();
    path.stroke();
    return true;
  });
  image.setTemplate(true);
  image.setAccessibilityDescription("a square");
  for (const double each : claims::opacities(image, 4, 4)) EXPECT_NEAR(each, 1, 0.01);
}
