// What AppKit asks of those who use its views, menus and images, and what stops the program.
#include <gtest/gtest.h>

#include <functional>
#include <map>

#include "platform/BezierPath.h"
#include "platform/Color.h"
#include "platform/Controls.h"
#include "platform/Menu.h"
#include "platform/View.h"
#include "simulator/desktop/MenuBar.h"
#include "simulator/desktop/SliderMouse.h"
#include "simulator/desktop/Views.h"
#include "simulator/kernel/Call.h"
#include "simulator/mac/Mac.h"
#include "tests/support/Lines.h"
#include "tests/support/Program.h"
#include "tests/support/Seat.h"

using namespace lines;

namespace {

void expectFatal(const std::function<void()>& body, const std::string& text) {
  EXPECT_EXIT(runStrictly(body), testing::ExitedWithCode(1), "\"text\":\"" + text);
}

NS::View emptyView() { return NS::View::initWithFrame({}); }

}  // namespace

TEST(Views, StopAtConstraintsThatCannotBe) {
  expectFatal(
      [] {
        const auto a = emptyView();
        const auto b = emptyView();
        NS::LayoutConstraint::activateConstraints({a.topAnchor().constraintEqualToAnchor(b.topAnchor())});
      },
      "NSLayoutConstraint.activateConstraints: the two views have no common ancestor");
  expectFatal(
      [] {
        const auto a = emptyView();
        static_cast<void>(a.topAnchor().constraintEqualToAnchor(a.leadingAnchor()));
      },
      "NSLayoutAnchor.constraintEqualToAnchor: the two anchors do not go together");
  // A view that goes on translating its mask has its frame, and cannot have another place.
  expectFatal(
      [] {
        const auto root = emptyView();
        const auto child = emptyView();
        root.addSubview(child);
        NS::LayoutConstraint::activateConstraints(
            {child.leadingAnchor().constraintEqualToAnchor(root.leadingAnchor(), 14)});
        static_cast<void>(root.fittingSize());
      },
      "Unable to simultaneously satisfy constraints");
  runProgram([] {
    const auto root = emptyView();
    const auto child = NS::TextField::labelWithString("Left");
    child.setTranslatesAutoresizingMaskIntoConstraints(false);
    root.addSubview(child);
    NS::LayoutConstraint::activateConstraints(
        {child.leadingAnchor().constraintEqualToAnchor(root.leadingAnchor(), 14),
         child.trailingAnchor().constraintEqualToAnchor(root.trailingAnchor(), -1)});
    EXPECT_EQ(root.fittingSize().width, 15 + child.fittingSize().width);
  });
}

TEST(Views, OfAStackAreLaidOutByIt) {
  runProgram([] {
    const auto caption = NS::TextField::labelWithString("Left");
    const auto slider = NS::Slider::sliderWithValue(0, 0, 1);
    const auto stack = NS::StackView::stackViewWithViews({caption, slider});
    EXPECT_EQ(stack.fittingSize().width, caption.fittingSize().width + 8);
    EXPECT_EQ(stack.fittingSize().height, slider.fittingSize().height);
    stack.setOrientation(NS::LayoutOrientation::Vertical);
    stack.setAlignment(NS::LayoutAttribute::Leading);
    stack.setSpacing(3);
    EXPECT_EQ(stack.fittingSize().height, caption.fittingSize().height + 3 + slider.fittingSize().height);
    // Tick marks take room of their own, and a smaller font less.
    const double before = stack.fittingSize().height;
    slider.setNumberOfTickMarks(17);
    EXPECT_GT(stack.fittingSize().height, before);
    caption.setFont(NS::Font::systemFontOfSize(NS::Font::smallSystemFontSize()));
    EXPECT_EQ(caption.fittingSize().height, 14);
  });
}

TEST(Views, SliderWithoutTickMarksTakesAnyValue) {
  runProgram([] {
    const auto slider = NS::Slider::sliderWithValue(9, 0, 4);
    EXPECT_EQ(slider.doubleValue(), 4);
    slider.setDoubleValue(-1);
    EXPECT_EQ(slider.doubleValue(), 0);
    auto& object = simulator::live<simulator::SliderObject>(slider.get(), "the test");
    object.dragTo(2.3);
    EXPECT_EQ(slider.doubleValue(), 2.3);
    slider.setAllowsTickMarkValuesOnly(true);  // without effect as long as there are none
    object.dragTo(2.6);
    EXPECT_EQ(slider.doubleValue(), 2.6);
    slider.setNumberOfTickMarks(3);
    object.dragTo(2.6);
    EXPECT_EQ(slider.doubleValue(), 2);
    object.dragTo(3.1);
    EXPECT_EQ(slider.doubleValue(), 4);
  });
}

TEST(Views, SliderThatIsNotContinuousSendsItsActionAtTheEnd) {
  runProgram([] {
    const auto slider = NS::Slider::sliderWithValue(0, 0, 4);
    int sent = 0;
    slider.setTargetAction([&sent] { ++sent; });
    simulator::SliderMouse mouse(simulator::Call::unguarded());
    auto& object = simulator::live<simulator::SliderObject>(slider.get(), "the test");
    slider.setContinuous(false);
    mouse.press(object);
    mouse.moveTo(1);
    mouse.moveTo(2);
    EXPECT_EQ(sent, 0);
    mouse.release();
    EXPECT_EQ(sent, 1);
    slider.setContinuous(true);
    mouse.press(object);
    mouse.moveTo(3);
    mouse.release();
    EXPECT_EQ(sent, 4);
  });
}

TEST(Menus, HeldSliderIsReleasedByTheNextLineThatNeedsTheMouse) {
  // A slider that is not continuous tells of the release.
  std::map<std::string, int> released;
  NS::StatusItem item;
  const simulator::Program program = application(
      [&] {
        const auto menu = NS::Menu::make();
        for (const std::string name : {"One", "Two"}) {
          const auto slider = NS::Slider::sliderWithValue(0, 0, 1);
          slider.setTargetAction([&released, name] { ++released[name]; });
          const NS::MenuItem row("", nullptr, "");
          row.setView(NS::StackView::stackViewWithViews({NS::TextField::labelWithString(name), slider}));
          menu.addItem(row);
        }
        menu.addItem(NS::MenuItem("Item", sel_registerName("nothing:"), ""));
        item = NS::StatusBar::systemStatusBar().statusItemWithLength(-1);
        item.setMenu(menu);
      },
      [&] { item = {}; });
  Seat seat(program, 1);
  const nlohmann::json held = {{"release", false}};
  const auto after = [&](const std::string& lines) {
    seat.play(lines);
    return std::pair(released["One"], released["Two"]);
  };
  using Counts = std::pair<int, int>;
  EXPECT_EQ(after(launch + settle + menu(true) + slide("One", 0.5, held)), (Counts{0, 0}));
  EXPECT_EQ(after(slide("One", 0.7, held)), (Counts{0, 0}));
  EXPECT_EQ(after(slide("Two", 0.7, held)), (Counts{1, 0}));
  EXPECT_EQ(after(menu(false)), (Counts{1, 1}));
  EXPECT_EQ(after(menu(true) + slide("Two", 0.7)), (Counts{1, 2}));
  EXPECT_EQ(after(slide("One", 0.2, held) + click("Nowhere")), (Counts{2, 2}));
  EXPECT_EQ(after(slide("One", 0.2, held) + slide("Nowhere", 1)), (Counts{3, 2}));
  EXPECT_EQ(after(slide("One", 0.2, held) + click("Item")), (Counts{4, 2}));
  EXPECT_TRUE(seat.shutDown());
}

TEST(Menus, StopAtItemsThatAreNotWhereTheyShouldBe) {
  const auto item = [] { return NS::MenuItem("Item", nullptr, ""); };
  expectFatal(
      [&] {
        const auto menu = NS::Menu::make();
        const auto once = item();
        menu.addItem(once);
        NS::Menu::make().addItem(once);
      },
      "NSMenu.addItem: the item is in a menu already");
  expectFatal([&] { NS::Menu::make().removeItem(item()); }, "NSMenu.removeItem: the item is not in this menu");
  expectFatal([&] { NS::Menu::make().insertItem(item(), 1); }, "NSMenu.insertItem: no such index");
  expectFatal([&] { NS::Menu::make().insertItem(item(), -1); }, "NSMenu.insertItem: no such index");
  runProgram([&] {
    const auto menu = NS::Menu::make();
    const auto moved = item();
    menu.addItem(moved);
    menu.insertItem(item(), 1);
    menu.insertItem(item(), 0);
    menu.removeItem(moved);
    NS::Menu::make().addItem(moved);
  });
}

TEST(Menus, StopAtAChangeWhileTheyOpenOrClose) {
  struct Delegate : NS::MenuDelegate {
    void menuNeedsUpdate(const NS::Menu&) override {}
    void menuWillOpen(const NS::Menu& menu) override {
      if (changesAtOpening) menu.addItem(NS::MenuItem("Late", nullptr, ""));
    }
    void menuDidClose(const NS::Menu& menu) override { menu.addItem(NS::MenuItem("Late", nullptr, "")); }
    bool changesAtOpening = false;
  };
  for (const bool atOpening : {true, false}) {
    const auto body = [atOpening] {
      Delegate delegate;
      delegate.changesAtOpening = atOpening;
      NS::StatusItem item;
      const simulator::Program program = application([&] {
        const auto menu = NS::Menu::make();
        menu.setDelegate(&delegate);
        item = NS::StatusBar::systemStatusBar().statusItemWithLength(-1);
        item.setMenu(menu);
      });
      Seat(program, 1).play(launch + settle + menu(true) + menu(false));
    };
    EXPECT_EXIT(body(), testing::ExitedWithCode(1), "NSMenu.addItem was called while the menu opened or closed");
  }
}

TEST(Images, AreDrawnWhereSomethingIsBeingDrawn) {
  expectFatal([] { NS::Color::blackColor().set(); }, "NSColor.set was called where nothing is being drawn");
  expectFatal([] { NS::BezierPath::bezierPath().fill(); }, "NSBezierPath.fill was called where nothing is being drawn");
  expectFatal([] { NS::BezierPath::bezierPath().stroke(); },
              "NSBezierPath.stroke was called where nothing is being drawn");
  expectFatal([] { NS::BezierPath::bezierPath().lineToPoint({1, 1}); },
              "NSBezierPath.lineToPoint: the path has no current point");
  expectFatal([] { NS::BezierPath::bezierPath().closePath(); },
              "NSBezierPath.closePath: the path has no current point");
}

TEST(Images, AreDrawnOffTheMainThreadEachTimeTheyAreNeeded) {
  int drawn = 0;
  int onTheMainThread = 0;
  NS::StatusItem item;
  const simulator::Program program = application(
      [&] {
        item = NS::StatusBar::systemStatusBar().statusItemWithLength(-1);
        item.setMenu(NS::Menu::make());
        int* const times = &drawn;
        int* const there = &onTheMainThread;
        item.button().setImage(NS::Image::imageWithSize({4, 4}, false, ^(CGRect rect) {
          ++*times;
          if (simulator::Call::unguarded().process.onMainThread()) ++*there;
          const auto path = NS::BezierPath::bezierPath();
          path.moveToPoint({rect.size.width, 0});
          path.lineToPoint({0, 0});
          path.setLineWidth(2);
          path.setLineCapStyle(NS::LineCapStyle::Square);
          path.stroke();
          return *times > 1;
        }));
      },
      [&] { item = {}; });
  Seat seat(program, 1);
  seat.play(launch + settle);
  EXPECT_EQ(drawn, 1);
  EXPECT_EQ(seat.snapshot()["icon"], nullptr);  // it has said that it has not drawn
  seat.play(menu(true));
  EXPECT_EQ(drawn, 2);
  EXPECT_EQ(onTheMainThread, 0);
  const auto icon = seat.snapshot()["icon"];
  EXPECT_EQ(icon["flipped"], false);
  EXPECT_EQ(icon["template"], false);
  EXPECT_EQ(icon["description"], nullptr);
  EXPECT_EQ(icon["paths"].size(), 1U);
  EXPECT_EQ(icon["paths"][0]["d"], "M 4 0 L 0 0");
  EXPECT_EQ(icon["paths"][0]["cap"], "square");
  EXPECT_EQ(icon["paths"][0]["line_width"], 2);
  EXPECT_TRUE(seat.shutDown());
}

TEST(Images, OfUnknownSymbolsAreNone) {
  runProgram([] {
    EXPECT_FALSE(NS::Image::imageWithSystemSymbolName("no.such.symbol"));
    EXPECT_TRUE(NS::Image::imageWithSystemSymbolName("speaker.wave.2.fill"));
    const auto view = NS::ImageView::initWithFrame({});
    view.setImage(NS::Image::imageWithSystemSymbolName("sun.max.fill"));
    EXPECT_GT(view.fittingSize().width, 0);
    view.setImage({});
    EXPECT_EQ(view.fittingSize().width, 0);
  });
}
