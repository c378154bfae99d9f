// The image in the menu bar, compared pixel by pixel with the geometry that it is to have.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <optional>

#include "app/StatusIcon.h"
#include "platform/Menu.h"
#include "simulator/desktop/MenuBar.h"
#include "simulator/drawing/Picture.h"
#include "simulator/mac/Mac.h"
#include "tests/support/Seat.h"

namespace {

constexpr double halfLine = 0.7;

double distance(CGPoint a, CGPoint b) { return std::hypot(a.x - b.x, a.y - b.y); }

double distanceToSegment(CGPoint p, CGPoint a, CGPoint b) {
  const double length = distance(a, b);
  const double along =
      std::clamp(((p.x - a.x) * (b.x - a.x) + (p.y - a.y) * (b.y - a.y)) / (length * length), 0.0, 1.0);
  return distance(p, {a.x + along * (b.x - a.x), a.y + along * (b.y - a.y)});
}

// To an arc of 40° on each side of the x axis.
double distanceToWave(CGPoint p, double radius) {
  constexpr CGPoint center = {7.65, 9};
  constexpr double limit = 40 * std::numbers::pi / 180;
  const double angle = std::clamp(std::atan2(p.y - center.y, p.x - center.x), -limit, limit);
  return distance(p, {center.x + radius * std::cos(angle), center.y + radius * std::sin(angle)});
}

// Whether a point, from the top left corner, is in the figure.
bool isDrawn(CGPoint p) {
  if (p.x <= 8 && distance(p, {8, 9}) <= 3.1) return true;
  constexpr std::array<std::array<CGPoint, 2>, 5> rays = {{{{{3.6, 9}, {2.2, 9}}},
                                                           {{{4.9, 5.9}, {3.9, 4.9}}},
                                                           {{{4.9, 12.1}, {3.9, 13.1}}},
                                                           {{{8, 4.4}, {8, 3}}},
                                                           {{{8, 13.6}, {8, 15}}}}};
  const auto inRay = [p](const auto& ray) { return distanceToSegment(p, ray[0], ray[1]) <= halfLine; };
  return std::ranges::any_of(rays, inRay) || distanceToWave(p, 4.2) <= halfLine || distanceToWave(p, 7) <= halfLine;
}

// How much of a pixel the figure covers; `mirrored`: upside down.
double coverage(int x, int y, double scale, bool mirrored) {
  const int samples = scale > 4 ? 4 : 16;  // in each direction
  int inside = 0;
  for (int i = 0; i < samples; ++i) {
    for (int j = 0; j < samples; ++j) {
      const CGPoint point = {(x + (i + 0.5) / samples) / scale, (y + (j + 0.5) / samples) / scale};
      inside += isDrawn(mirrored ? CGPoint{point.x, 18 - point.y} : point);
    }
  }
  return static_cast<double>(inside) / (samples * samples);
}

// The icon as the machine has it after a launch.
std::optional<drawing::Picture> icon() {
  Seat seat;
  seat.launchAndCheck();
  auto picture = seat.machine().part<simulator::MenuBar>().iconPicture();
  EXPECT_TRUE(seat.shutDown());
  return picture;
}

}  // namespace

TEST(StatusIcon, HasItsGeometryAtEveryScale) {
  const auto picture = icon();
  ASSERT_TRUE(picture);
  EXPECT_TRUE(picture->flipped);
  for (const double scale : {1.0, 2.0, 16.0}) {
    const drawing::Pixels pixels = drawing::render(*picture, scale);
    ASSERT_EQ(pixels.width, 18 * scale);
    ASSERT_EQ(pixels.height, 18 * scale);
    double worst = 0;
    for (int y = 0; y < pixels.height; ++y) {
      for (int x = 0; x < pixels.width; ++x) {
        worst = std::max(worst, std::abs(pixels.at(x, y).opacity - coverage(x, y, scale, false)));
      }
    }
    EXPECT_LT(worst, scale > 4 ? 0.2 : 0.08) << "at " << scale;
  }
}

TEST(StatusIcon, IsUpsideDownWhereTheYAxisPointsUp) {
  // So the arcs run as they are meant to: the sun is on the left and the waves on the right either way.
  auto picture = icon();
  ASSERT_TRUE(picture);
  picture->flipped = false;
  const drawing::Pixels pixels = drawing::render(*picture, 2);
  for (int y = 0; y < pixels.height; ++y) {
    for (int x = 0; x < pixels.width; ++x) {
      ASSERT_NEAR(pixels.at(x, y).opacity, coverage(x, y, 2, true), 0.08) << x << " " << y;
    }
  }
  EXPECT_EQ(pixels.at(12, 18).opacity, 1);  // in the half sun
  EXPECT_EQ(pixels.at(19, 18).opacity, 0);  // in its missing half
}

TEST(StatusIcon, IsDrawnAgainWheneverItIsNeeded) {
  Seat seat;
  seat.launchAndCheck();
  const auto first = drawing::svg(*seat.machine().part<simulator::MenuBar>().iconPicture());
  seat.play(R"({"do":"menu","open":true})"
            "\n");
  EXPECT_EQ(drawing::svg(*seat.machine().part<simulator::MenuBar>().iconPicture()), first);
  EXPECT_TRUE(seat.shutDown());
}

// So close do the pixels not tell: the arcs begin where their figures do, and the half sun is closed.
TEST(StatusIcon, ItsArcsJoinTheirFirstPoints) {
  using Kind = drawing::Path::Element::Kind;
  const auto picture = icon();
  ASSERT_TRUE(picture);
  ASSERT_EQ(picture->operations.size(), 3U);
  const auto& sun = picture->operations[0].path.elements();
  ASSERT_EQ(sun.size(), 5U);
  EXPECT_LT(distance(sun[0].points[0], {8, 5.9}), 1e-9);
  EXPECT_LT(distance(sun[1].points[0], {8, 5.9}), 1e-9);  // the line from there to the arc
  EXPECT_LT(distance(sun[3].points[2], {8, 12.1}), 1e-9);
  EXPECT_EQ(sun[4].kind, Kind::close);
  const auto& waves = picture->operations[2].path.elements();
  ASSERT_EQ(waves.size(), 6U);
  for (const std::size_t wave : {0U, 3U}) {
    const CGPoint begin = waves[wave].points[0];
    EXPECT_EQ(waves[wave].kind, Kind::move);
    EXPECT_LT(distance(waves[wave + 1].points[0], begin), 1e-9);
    EXPECT_LT(distance(waves[wave + 2].points[2], {begin.x, 18 - begin.y}), 1e-9);
  }
}
