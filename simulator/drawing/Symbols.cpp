#include "simulator/drawing/Symbols.h"

#include <map>
#include <string>

namespace drawing {
namespace {

constexpr Color ink = {};

// A filled disc with eight rays.
Picture sunMaxFill() {
  Picture picture{.size = {17, 17}, .flipped = true, .operations = {}};
  constexpr CGPoint center = {8.5, 8.5};
  picture.fill(Path::circle(center, 3.4), ink);
  Path rays;
  for (int i = 0; i < 8; ++i) {
    // An arc without a sweep is its one point.
    for (const double radius : {5.6, 7.3}) {
      Path end;
      end.arc(center, radius, i * 45, i * 45, false);
      radius < 6 ? rays.move(*end.currentPoint()) : rays.line(*end.currentPoint());
    }
  }
  picture.stroke(rays, ink, 1.5, LineCap::round);
  return picture;
}

// A filled loudspeaker and two waves.
Picture speakerWave2Fill() {
  Picture picture{.size = {20, 15}, .flipped = true, .operations = {}};
  Path speaker;
  speaker.move({0.6, 5.2});
  for (const CGPoint corner : {CGPoint{3.5, 5.2}, {8.6, 1.2}, {8.6, 13.8}, {3.5, 9.8}, {0.6, 9.8}})
    speaker.line(corner);
  speaker.close();
  picture.fill(speaker, ink);
  constexpr CGPoint center = {7.4, 7.5};
  for (const double radius : {4.4, 7.6}) {
    Path wave;
    wave.arc(center, radius, -36, 36, false);
    picture.stroke(wave, ink, 1.4, LineCap::round);
  }
  return picture;
}

}  // namespace

const Picture* symbolNamed(std::string_view name) {
  static const std::map<std::string, Picture, std::less<>> symbols = {{"sun.max.fill", sunMaxFill()},
                                                                      {"speaker.wave.2.fill", speakerWave2Fill()}};
  const auto found = symbols.find(name);
  return found == symbols.end() ? nullptr : &found->second;
}

}  // namespace drawing
