// Paths, and what is rendered of them.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <numbers>
#include <sstream>
#include <stdexcept>

#include "simulator/drawing/Picture.h"

using drawing::Path;
using drawing::Picture;

namespace {

// How opaque the picture is at that point, given in points from the top left corner.
double opacityAt(const Picture& picture, double scale, CGPoint point) {
  return drawing::render(picture, scale)
      .at(static_cast<int>(std::floor(point.x * scale)), static_cast<int>(std::floor(point.y * scale)))
      .opacity;
}

Picture quarter(bool flipped, bool clockwise) {
  // A piece of cake from 0° to 90°, or the rest of it.
  Path path;
  path.move({10, 10});
  path.arc({10, 10}, 8, 0, 90, clockwise);
  path.close();
  Picture picture{.size = {20, 20}, .flipped = flipped, .operations = {}};
  picture.fill(path, {});
  return picture;
}

}  // namespace

TEST(Picture, ArcsGoTowardsTheYAxisWhereverThatPoints) {
  constexpr CGPoint below = {13, 13};
  constexpr CGPoint above = {13, 7};
  for (const double scale : {1.0, 2.0, 16.0}) {
    // The y axis points down in a flipped picture, and up in one that is not.
    EXPECT_EQ(opacityAt(quarter(true, false), scale, below), 1);
    EXPECT_EQ(opacityAt(quarter(true, false), scale, above), 0);
    EXPECT_EQ(opacityAt(quarter(false, false), scale, below), 0);
    EXPECT_EQ(opacityAt(quarter(false, false), scale, above), 1);
    // Clockwise it is the long way round.
    EXPECT_EQ(opacityAt(quarter(true, true), scale, below), 0);
    EXPECT_EQ(opacityAt(quarter(true, true), scale, above), 1);
    EXPECT_EQ(opacityAt(quarter(false, true), scale, below), 1);
  }
}

TEST(Picture, ArcsAreRound) {
  Path path;
  path.arc({0, 0}, 100, -170, 185, false);
  std::size_t curves = 0;
  CGPoint from = path.elements().front().points[0];
  EXPECT_EQ(path.elements().front().kind, Path::Element::Kind::move);
  for (const auto& [kind, points] : path.elements()) {
    if (kind != Path::Element::Kind::curve) continue;
    ++curves;
    for (const double t : {0.1, 0.3, 0.5, 0.8}) {
      const auto bezier = [&](double a, double b, double c, double d) {
        const double s = 1 - t;
        return s * s * s * a + 3 * s * s * t * b + 3 * s * t * t * c + t * t * t * d;
      };
      const double x = bezier(from.x, points[0].x, points[1].x, points[2].x);
      const double y = bezier(from.y, points[0].y, points[1].y, points[2].y);
      EXPECT_NEAR(std::hypot(x, y), 100, 0.03);
    }
    from = points[2];
  }
  EXPECT_EQ(curves, 4U);
  EXPECT_NEAR(from.y, 100 * std::sin(185 * std::numbers::pi / 180), 1e-9);
}

TEST(Picture, ArcIsJoinedToWhatThePathHas) {
  Path path;
  path.move({0, 0});
  path.arc({10, 0}, 2, 180, 90, true);
  EXPECT_EQ(path.svg().substr(0, 13), "M 0 0 L 8 0 C");
  ASSERT_TRUE(path.currentPoint());
  EXPECT_EQ(path.currentPoint()->y, 2);
  path.close();
  EXPECT_EQ(path.currentPoint()->x, 0);
}

TEST(Picture, StrokesHaveTheirWidthAndTheirEnds) {
  Path path;
  path.move({5, 10});
  path.line({15, 10});
  for (const auto& [cap, endIsDrawn, cornerIsDrawn] :
       {std::tuple(drawing::LineCap::butt, 0, 0), {drawing::LineCap::round, 1, 0}, {drawing::LineCap::square, 1, 1}}) {
    Picture picture{.size = {20, 20}, .flipped = true, .operations = {}};
    picture.stroke(path, {1, 0, 0, 1}, 4, cap);
    const auto pixels = drawing::render(picture, 16);
    EXPECT_EQ(pixels.at(160, 160).red, 1);
    EXPECT_EQ(pixels.at(160, 129).opacity, 1);
    EXPECT_EQ(pixels.at(160, 126).opacity, 0);
    EXPECT_EQ(pixels.at(268, 160).opacity, endIsDrawn);  // 1.75 points beyond the end
    EXPECT_EQ(pixels.at(268, 132).opacity, cornerIsDrawn);
  }
}

TEST(Picture, IsWrittenAsWhatTheFilesNameSays) {
  Picture picture{.size = {20, 10}, .flipped = false, .operations = {}};
  picture.fill(Path::rectangle({{1, 2}, {3, 4}}), {1, 0.5, 0, 0.25});
  const std::string folder = ::testing::TempDir();
  drawing::write(picture, folder + "picture.svg", 1);
  std::stringstream text;
  text << std::ifstream(folder + "picture.svg").rdbuf();
  EXPECT_EQ(text.str(),
            "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"20\" height=\"10\" viewBox=\"0 0 20 10\">\n"
            "<g transform=\"translate(0 10) scale(1 -1)\">\n"
            "<path fill=\"#ff8000\" fill-opacity=\"0.25\" d=\"M 1 2 L 4 2 L 4 6 L 1 6 Z\"/>\n"
            "</g>\n</svg>\n");
  drawing::write(picture, folder + "picture.png", 3);
  std::ifstream png(folder + "picture.png", std::ios::binary);
  std::string header(24, '\0');
  png.read(header.data(), 24);
  EXPECT_EQ(header.substr(1, 3), "PNG");
  EXPECT_EQ(header[19], 60);
  EXPECT_EQ(header[23], 30);
  EXPECT_THROW(drawing::write(picture, folder + "picture.gif", 1), std::runtime_error);
  EXPECT_THROW(drawing::write(picture, "/nowhere/at/all.svg", 1), std::runtime_error);
  EXPECT_THROW(drawing::write(picture, "/nowhere/at/all.png", 1), std::runtime_error);
}
