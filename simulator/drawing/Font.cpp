#include "simulator/drawing/Font.h"

#include <hb-ot.h>
#include <hb.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <span>
#include <vector>

namespace drawing {
namespace {

constexpr const char* ellipsis = "…";

template <typename T, void (*destroy)(T*)>
struct Destroy {
  void operator()(T* object) const { destroy(object); }
};
template <typename T, void (*destroy)(T*)>
using Owned = std::unique_ptr<T, Destroy<T, destroy>>;

// Letters in the order in which they stand, in the font's units.
struct Glyph {
  hb_codepoint_t id;
  std::size_t textPosition;  // where the characters begin that it stands for
  double x;                  // from the text's beginning
  double y;                  // upwards
};
struct Shaped {
  std::vector<Glyph> glyphs;
  double width;
};

Shaped shape(hb_font_t* font, std::string_view text) {
  const Owned<hb_buffer_t, hb_buffer_destroy> buffer(hb_buffer_create());
  hb_buffer_add_utf8(buffer.get(), text.data(), static_cast<int>(text.size()), 0, static_cast<int>(text.size()));
  hb_buffer_guess_segment_properties(buffer.get());
  hb_buffer_set_language(buffer.get(), hb_language_from_string("en", -1));  // not the user's, wherever this runs
  hb_shape(font, buffer.get(), nullptr, 0);
  unsigned count = 0;
  const std::span infos(hb_buffer_get_glyph_infos(buffer.get(), &count), count);
  const std::span positions(hb_buffer_get_glyph_positions(buffer.get(), &count), count);
  Shaped shaped{{}, 0};
  for (std::size_t i = 0; i < infos.size(); ++i) {
    shaped.glyphs.push_back({infos[i].codepoint, infos[i].cluster, shaped.width + positions[i].x_offset,
                             static_cast<double>(positions[i].y_offset)});
    shaped.width += positions[i].x_advance;
  }
  return shaped;
}

// Where a glyph's outline goes while HarfBuzz tells it.
struct Pen {
  Path& path;
  CGPoint origin;
  double scale;
  [[nodiscard]] CGPoint at(float x, float y) const { return {origin.x + scale * x, origin.y - scale * y}; }
};

Pen& penOf(void* data) { return *static_cast<Pen*>(data); }

hb_draw_funcs_t* makePenFunctions() {
  hb_draw_funcs_t* const functions = hb_draw_funcs_create();
  hb_draw_funcs_set_move_to_func(
      functions,
      [](hb_draw_funcs_t*, void* data, hb_draw_state_t*, float x, float y, void*) {
        penOf(data).path.move(penOf(data).at(x, y));
      },
      nullptr, nullptr);
  hb_draw_funcs_set_line_to_func(
      functions,
      [](hb_draw_funcs_t*, void* data, hb_draw_state_t*, float x, float y, void*) {
        penOf(data).path.line(penOf(data).at(x, y));
      },
      nullptr, nullptr);
  hb_draw_funcs_set_cubic_to_func(
      functions,
      [](hb_draw_funcs_t*, void* data, hb_draw_state_t*, float x1, float y1, float x2, float y2, float x, float y,
         void*) { penOf(data).path.curve(penOf(data).at(x1, y1), penOf(data).at(x2, y2), penOf(data).at(x, y)); },
      nullptr, nullptr);
  hb_draw_funcs_set_close_path_func(
      functions, [](hb_draw_funcs_t*, void* data, hb_draw_state_t*, void*) { penOf(data).path.close(); }, nullptr,
      nullptr);
  return functions;
}

void drawGlyph(hb_font_t* font, hb_codepoint_t glyph, Pen& pen) {
  static hb_draw_funcs_t* const functions = makePenFunctions();
#if HB_VERSION_ATLEAST(7, 0, 0)
  hb_font_draw_glyph(font, glyph, functions, &pen);
#else
  hb_font_get_glyph_shape(font, glyph, functions, &pen);
#endif
}

}  // namespace

struct Font::Face {
  Owned<hb_font_t, hb_font_destroy> font;
  double unitsPerEm;
  hb_font_extents_t extents;
};

Font::Font(const char* file) {
  const Owned<hb_blob_t, hb_blob_destroy> blob(hb_blob_create_from_file_or_fail(file));
  if (!blob) {
    std::fprintf(stderr, "The font %s cannot be read.\n", file);
    std::abort();
  }
  const Owned<hb_face_t, hb_face_destroy> face(hb_face_create(blob.get(), 0));
  auto made = std::make_shared<Face>();
  made->font.reset(hb_font_create(face.get()));
  made->unitsPerEm = hb_face_get_upem(face.get());
  hb_font_get_h_extents(made->font.get(), &made->extents);
  face_ = std::move(made);
}

const Font& Font::system(Weight weight) {
  static const Font regular(FONT_FOLDER "/Inter-Regular.otf");
  static const Font semibold(FONT_FOLDER "/Inter-SemiBold.otf");
  return weight == Weight::regular ? regular : semibold;
}

double Font::width(std::string_view text, double size) const {
  return shape(face_->font.get(), text).width * size / face_->unitsPerEm;
}

double Font::ascent(double size) const { return face_->extents.ascender * size / face_->unitsPerEm; }
double Font::descent(double size) const { return -face_->extents.descender * size / face_->unitsPerEm; }
double Font::lineHeight(double size) const { return std::ceil(ascent(size) + descent(size)); }

Path Font::outline(std::string_view text, double size, CGPoint origin) const {
  const double scale = size / face_->unitsPerEm;
  Path path;
  for (const Glyph& glyph : shape(face_->font.get(), text).glyphs) {
    Pen pen{path, {origin.x + scale * glyph.x, origin.y - scale * glyph.y}, scale};
    drawGlyph(face_->font.get(), glyph.id, pen);
  }
  return path;
}

std::string Font::truncated(const std::string& text, double size, double width) const {
  if (this->width(text, size) <= width) return text;
  // A glyph begins where no character is torn from its marks.
  std::vector<std::size_t> ends;
  for (const Glyph& glyph : shape(face_->font.get(), text).glyphs) ends.push_back(glyph.textPosition);
  std::ranges::sort(ends, std::greater());
  for (const std::size_t end : ends) {
    std::string shorter = text.substr(0, end);
    while (shorter.ends_with(' ')) shorter.pop_back();
    shorter += ellipsis;
    if (this->width(shorter, size) <= width) return shorter;
  }
  return ellipsis;
}

}  // namespace drawing
