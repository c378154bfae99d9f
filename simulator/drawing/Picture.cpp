#include "simulator/drawing/Picture.h"

#include <cairo.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <utility>

namespace drawing {
namespace {

using Surface = std::unique_ptr<cairo_surface_t, decltype(&cairo_surface_destroy)>;

void trace(cairo_t& context, const Path& path) {
  cairo_new_path(&context);
  for (const auto& [kind, points] : path.elements()) {
    switch (kind) {
      case Path::Element::Kind::move:
        cairo_move_to(&context, points[0].x, points[0].y);
        break;
      case Path::Element::Kind::line:
        cairo_line_to(&context, points[0].x, points[0].y);
        break;
      case Path::Element::Kind::curve:
        cairo_curve_to(&context, points[0].x, points[0].y, points[1].x, points[1].y, points[2].x, points[2].y);
        break;
      case Path::Element::Kind::close:
        cairo_close_path(&context);
        break;
    }
  }
}

cairo_line_cap_t cairoCap(LineCap cap) {
  return cap == LineCap::round    ? CAIRO_LINE_CAP_ROUND
         : cap == LineCap::square ? CAIRO_LINE_CAP_SQUARE
                                  : CAIRO_LINE_CAP_BUTT;
}

void perform(cairo_t& context, const Operation& operation) {
  const Color& color = operation.color;
  trace(context, operation.path);
  cairo_set_source_rgba(&context, color.red, color.green, color.blue, color.opacity);
  if (operation.kind == Operation::Kind::fill) return cairo_fill(&context);
  cairo_set_line_width(&context, operation.lineWidth);
  cairo_set_line_cap(&context, cairoCap(operation.cap));
  cairo_stroke(&context);
}

Surface draw(const Picture& picture, double scale) {
  const auto pixels = [scale](double points) { return static_cast<int>(std::ceil(points * scale)); };
  Surface surface(
      cairo_image_surface_create(CAIRO_FORMAT_ARGB32, pixels(picture.size.width), pixels(picture.size.height)),
      cairo_surface_destroy);
  if (cairo_surface_status(surface.get()) != CAIRO_STATUS_SUCCESS) throw std::runtime_error("the picture is too large");
  const std::unique_ptr<cairo_t, decltype(&cairo_destroy)> context(cairo_create(surface.get()), cairo_destroy);
  cairo_set_antialias(context.get(), CAIRO_ANTIALIAS_BEST);
  cairo_set_tolerance(context.get(), 0.01);
  cairo_scale(context.get(), scale, scale);
  if (!picture.flipped) {
    cairo_translate(context.get(), 0, picture.size.height);
    cairo_scale(context.get(), 1, -1);
  }
  for (const Operation& operation : picture.operations) perform(*context, operation);
  cairo_surface_flush(surface.get());
  return surface;
}

std::string text(double number) {
  char digits[32];
  return {digits, std::to_chars(digits, digits + sizeof digits, number).ptr};
}

// A colour as two attributes: fill="#000000" fill-opacity="0.5".
std::string paint(const std::string& attribute, const Color& color) {
  const auto byte = [](double part) { return static_cast<unsigned>(std::lround(part * 255)); };
  char hex[8];
  std::snprintf(hex, sizeof hex, "#%02x%02x%02x", byte(color.red), byte(color.green), byte(color.blue));
  const std::string opaque = " " + attribute + "=\"" + hex + "\"";
  return color.opacity == 1 ? opaque : opaque + " " + attribute + "-opacity=\"" + text(color.opacity) + "\"";
}

std::string element(const Operation& operation) {
  std::string line = "<path";
  if (operation.kind == Operation::Kind::fill) {
    line += paint("fill", operation.color);
  } else {
    constexpr const char* caps[] = {"butt", "round", "square"};
    line += " fill=\"none\"" + paint("stroke", operation.color) + " stroke-width=\"" + text(operation.lineWidth) +
            "\" stroke-linecap=\"" + caps[static_cast<int>(operation.cap)] + "\"";
  }
  return line + " d=\"" + operation.path.svg() + "\"/>\n";
}

}  // namespace

void Picture::fill(Path path, const Color& color) {
  operations.push_back({.kind = Operation::Kind::fill, .path = std::move(path), .color = color});
}

void Picture::stroke(Path path, const Color& color, double lineWidth, LineCap cap) {
  operations.push_back(
      {.kind = Operation::Kind::stroke, .path = std::move(path), .color = color, .lineWidth = lineWidth, .cap = cap});
}

void Picture::add(const Picture& other, CGPoint origin, const Color& color) {
  for (Operation operation : other.operations) {
    operation.path = operation.path.placed(origin);
    operation.color = color;
    operations.push_back(std::move(operation));
  }
}

Color Pixels::at(int x, int y) const {
  const std::size_t first =
      (static_cast<std::size_t>(y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(x)) * 4;
  const auto part = [&](std::size_t i) { return bytes.at(first + i) / 255.0; };
  return {part(0), part(1), part(2), part(3)};
}

Pixels render(const Picture& picture, double scale) {
  const Surface surface = draw(picture, scale);
  Pixels pixels{cairo_image_surface_get_width(surface.get()), cairo_image_surface_get_height(surface.get()), {}};
  const unsigned char* const rows = cairo_image_surface_get_data(surface.get());
  const auto stride = static_cast<std::size_t>(cairo_image_surface_get_stride(surface.get()));
  for (std::size_t y = 0; y < static_cast<std::size_t>(pixels.height); ++y) {
    for (std::size_t x = 0; x < static_cast<std::size_t>(pixels.width); ++x) {
      std::uint32_t pixel = 0;
      std::copy_n(rows + y * stride + x * 4, 4, reinterpret_cast<unsigned char*>(&pixel));
      const std::uint32_t opacity = pixel >> 24;
      for (const int shift : {16, 8, 0}) {
        const std::uint32_t part = pixel >> shift & 0xff;
        pixels.bytes.push_back(
            static_cast<std::uint8_t>(opacity ? std::min(255U, (part * 255 + opacity / 2) / opacity) : 0));
      }
      pixels.bytes.push_back(static_cast<std::uint8_t>(opacity));
    }
  }
  return pixels;
}

std::string svg(const Picture& picture) {
  const std::string width = text(picture.size.width);
  const std::string height = text(picture.size.height);
  std::string file = "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" + width + "\" height=\"" + height +
                     "\" viewBox=\"0 0 " + width + " " + height + "\">\n";
  if (!picture.flipped) file += "<g transform=\"translate(0 " + height + ") scale(1 -1)\">\n";
  for (const Operation& operation : picture.operations) file += element(operation);
  return file + (picture.flipped ? "</svg>\n" : "</g>\n</svg>\n");
}

void write(const Picture& picture, const std::string& file, double scale) {
  bool written = false;
  if (file.ends_with(".svg")) {
    std::ofstream out(file);
    out << svg(picture);
    out.close();
    written = !out.fail();
  } else if (file.ends_with(".png")) {
    written = cairo_surface_write_to_png(draw(picture, scale).get(), file.c_str()) == CAIRO_STATUS_SUCCESS;
  } else {
    throw std::runtime_error("the name of the picture must end in .svg or .png: " + file);
  }
  if (!written) throw std::runtime_error("the picture cannot be written: " + file);
}

}  // namespace drawing
