// The font that stands in for the system's: Inter, which was drawn for the same purpose and has nearly the same widths
// and heights. Shaped, measured and outlined by HarfBuzz in the font's own units, without hinting, so that the numbers
// are the same everywhere. Letters that Inter does not have (it has Latin, Greek and Cyrillic) are empty boxes. Usable
// from any thread, one at a time.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "simulator/drawing/Path.h"

namespace drawing {

class Font {
 public:
  enum class Weight { regular, semibold };

  // The font in that weight. Stops the run when its file, of Debian's package fonts-inter, is not there.
  static const Font& system(Weight weight = Weight::regular);

  // In points, for letters of that size: a text's width, and the height above and below its baseline.
  [[nodiscard]] double width(std::string_view text, double size) const;
  [[nodiscard]] double ascent(double size) const;
  [[nodiscard]] double descent(double size) const;
  // The height of a line, in whole points.
  [[nodiscard]] double lineHeight(double size) const;
  // The letters, to be filled, with their baseline beginning at `origin` and the y axis pointing down.
  [[nodiscard]] Path outline(std::string_view text, double size, CGPoint origin) const;
  // The text if it is no wider than that, else as much of its beginning as has room with an ellipsis behind it.
  [[nodiscard]] std::string truncated(const std::string& text, double size, double width) const;

 private:
  explicit Font(const char* file);
  struct Face;
  std::shared_ptr<const Face> face_;
};

}  // namespace drawing
