// Constraints with priorities, and the layout that is made of them.
#include <gtest/gtest.h>

#include "simulator/drawing/Constraints.h"
#include "simulator/drawing/Font.h"
#include "simulator/drawing/Layout.h"

using drawing::Alignment;
using drawing::Anchor;
using drawing::Box;
using drawing::Constraints;
using drawing::Font;
using enum drawing::Constraints::Relation;

namespace {

Box sized(double width, double height) {
  Box box;
  box.intrinsic = {width, height};
  return box;
}

std::vector<double> numbers(const CGRect& rect) {
  return {rect.origin.x, rect.origin.y, rect.size.width, rect.size.height};
}

}  // namespace

TEST(Constraints, HigherPriorityWins) {
  Constraints constraints;
  const auto x = constraints.variable();
  constraints.add({{x, 1}}, equal, 10, 250);
  constraints.add({{x, 1}}, equal, 20, 750);
  constraints.add({{x, 1}}, atMost, 15, 500);
  EXPECT_EQ(constraints.solve(), (std::vector<double>{20}));
  constraints.add({{x, 1}}, atMost, 12);
  EXPECT_EQ(constraints.solve(), (std::vector<double>{12}));
}

TEST(Constraints, LowerPriorityDecidesWhatIsLeftOpen) {
  Constraints constraints;
  const auto x = constraints.variable();
  const auto y = constraints.variable();
  constraints.add({{x, 1}, {y, 1}}, equal, 100);
  constraints.add({{x, 1}}, atLeast, 30, 750);
  constraints.add({{y, 1}}, equal, 90, 250);
  EXPECT_EQ(constraints.solve(), (std::vector<double>{30, 70}));
  constraints.add({{x, 1}}, equal, -5, 900);
  EXPECT_EQ(constraints.solve(), (std::vector<double>{-5, 105}));
}

TEST(Constraints, ContradictionHasNoSolution) {
  Constraints constraints;
  const auto x = constraints.variable();
  constraints.add({{x, 1}}, atLeast, 10);
  constraints.add({{x, 1}}, atMost, 5);
  EXPECT_EQ(constraints.solve(), std::nullopt);
  EXPECT_EQ(Constraints().solve(), std::vector<double>{});
}

TEST(Layout, StackLiesBehindEachOtherWithItsSpacing) {
  Box first = sized(17, 17);
  Box second = sized(40, 24);
  Box third = sized(5, 10);
  Box stack;
  stack.stack = {.axis = drawing::horizontal, .alignment = Alignment::centerY, .spacing = 6};
  stack.children = {&first, &second, &third};
  const auto size = drawing::fittingSize(stack);
  ASSERT_TRUE(size);
  EXPECT_EQ(size->width, 17 + 6 + 40 + 6 + 5);
  EXPECT_EQ(size->height, 24);
  EXPECT_EQ(numbers(first.found), (std::vector<double>{0, 3.5, 17, 17}));
  EXPECT_EQ(numbers(second.found), (std::vector<double>{23, 0, 40, 24}));
  EXPECT_EQ(numbers(third.found), (std::vector<double>{69, 7, 5, 10}));
}

TEST(Layout, StackLeavesHiddenBoxesOut) {
  Box hidden;
  Box shown = sized(40, 24);
  Box stack;
  stack.stack.emplace();
  stack.children = {&hidden, &shown};
  hidden.hidden = true;
  EXPECT_EQ(drawing::fittingSize(stack)->width, 40);
  ASSERT_TRUE(drawing::layOut(stack, {40, 24}));
  EXPECT_EQ(numbers(shown.found), (std::vector<double>{0, 0, 40, 24}));
}

TEST(Layout, ColumnIsAlignedAsItSays) {
  Box wide = sized(50, 10);
  Box narrow = sized(20, 10);
  Box stack;
  stack.children = {&wide, &narrow};
  for (const auto& [alignment, left] : {std::pair(Alignment::leading, 0.0), {Alignment::centerX, 15.0}}) {
    stack.stack = {.axis = drawing::vertical, .alignment = alignment, .spacing = 2};
    ASSERT_TRUE(drawing::layOut(stack, {50, 22}));
    EXPECT_EQ(numbers(narrow.found), (std::vector<double>{left, 12, 20, 10}));
  }
}

TEST(Layout, WhatHugsLessTakesTheRoom) {
  Box symbol = sized(20, 10);
  Box slider;  // without a width of its own
  slider.intrinsic[drawing::vertical] = 24;
  Box row;
  row.stack = {.axis = drawing::horizontal, .alignment = Alignment::centerY, .spacing = 8};
  row.children = {&symbol, &slider};
  ASSERT_TRUE(drawing::layOut(row, {232, 24}));
  EXPECT_EQ(symbol.found.size.width, 20);
  EXPECT_EQ(numbers(slider.found), (std::vector<double>{28, 0, 204, 24}));
  // With a width of its own it has to hug that less than the stack hugs its content.
  slider.intrinsic[drawing::horizontal] = 50;
  slider.hugging[drawing::horizontal] = 200;
  symbol.hugging[drawing::horizontal] = 1000;
  ASSERT_TRUE(drawing::layOut(row, {232, 24}));
  EXPECT_EQ(symbol.found.size.width, 20);
  EXPECT_EQ(slider.found.size.width, 204);
  slider.hugging[drawing::horizontal] = 1000;
  EXPECT_TRUE(drawing::layOut(row, {78, 24}));
}

TEST(Layout, RelationsPlaceEdgesAndExtents) {
  Box child = sized(10, 30);
  Box root;
  root.children = {&child};
  root.relations = {{{&child, Anchor::Kind::leading}, {&root, Anchor::Kind::leading}, 14},
                    {{&child, Anchor::Kind::trailing}, {&root, Anchor::Kind::trailing}, -14},
                    {{&child, Anchor::Kind::top}, {&root, Anchor::Kind::top}, 4}};
  ASSERT_TRUE(drawing::layOut(root, {260, 50}));
  EXPECT_EQ(numbers(child.found), (std::vector<double>{14, 4, 232, 30}));
  EXPECT_EQ(drawing::fittingSize(root)->width, 38);
  Box other = sized(1, 1);
  root.children.push_back(&other);
  root.relations.push_back({{&other, Anchor::Kind::width}, {&child, Anchor::Kind::width}, 0});
  ASSERT_TRUE(drawing::layOut(root, {260, 50}));
  EXPECT_EQ(other.found.size.width, 232);
}

TEST(Layout, FixedBoxThatContradictsARelationCannotBeLaidOut) {
  Box child;
  child.fixed = CGRect{{0, 0}, {0, 0}};
  Box root;
  root.children = {&child};
  EXPECT_TRUE(drawing::layOut(root, {260, 50}));
  root.relations = {{{&child, Anchor::Kind::leading}, {&root, Anchor::Kind::leading}, 14}};
  EXPECT_FALSE(drawing::layOut(root, {260, 50}));
  EXPECT_EQ(drawing::fittingSize(root), std::nullopt);
}

TEST(Font, MeasuresWhatItDraws) {
  const Font& font = Font::system();
  EXPECT_EQ(font.width("", 13), 0);
  EXPECT_LT(font.width("ill", 13), font.width("www", 13));
  EXPECT_DOUBLE_EQ(font.width("Brightness", 26), 2 * font.width("Brightness", 13));
  EXPECT_GT(Font::system(Font::Weight::semibold).width("Brightness", 13), font.width("Brightness", 13));
  // Letters that stand well together are set closer: it is shaped, and not added up.
  EXPECT_LT(font.width("AV", 100), font.width("A", 100) + font.width("V", 100));
  EXPECT_EQ(font.lineHeight(11), 14);
  EXPECT_EQ(font.lineHeight(13), 16);
  // The outline lies above its baseline, within its width.
  double right = 0;
  const drawing::Path outline = font.outline("H", 100, {0, 0});
  for (const auto& element : outline.elements()) {
    for (const CGPoint point : element.points) {
      EXPECT_LE(point.y, 0);
      EXPECT_GE(point.y, -100);
      right = std::max(right, point.x);
    }
  }
  EXPECT_GT(right, 40);
  EXPECT_LT(right, font.width("H", 100));
}

TEST(Font, CutsATextAfterAWholeLetter) {
  const Font& font = Font::system();
  EXPECT_EQ(font.truncated("Left", 11, 1000), "Left");
  EXPECT_EQ(font.truncated("Left", 11, font.width("Left", 11)), "Left");
  EXPECT_EQ(font.truncated("Leftmost", 11, font.width("Le…", 11) + 0.01), "Le…");
  EXPECT_EQ(font.truncated("Left", 11, 0), "…");
  // A letter keeps its accent, and no blank is left before the ellipsis.
  const std::string accents = "e\u0301e\u0301e\u0301e\u0301e\u0301";
  EXPECT_EQ(font.truncated(accents, 11, font.width("éé…", 11) + 0.01), "e\u0301e\u0301…");
  EXPECT_EQ(font.truncated("Le ftmost", 11, font.width("Le …", 11) + 0.01), "Le…");
}
