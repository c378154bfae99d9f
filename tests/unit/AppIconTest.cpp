// The application's icon, as it is read back from its file.
#include <cairo.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <string>

#include "packaging/icon/AppIcon.h"

namespace {

using Entries = std::map<std::string, std::string>;

std::size_t numberAt(const std::string& bytes, std::size_t position) {
  std::size_t value = 0;
  for (std::size_t i = 0; i < 4; ++i) value = value << 8 | static_cast<unsigned char>(bytes.at(position + i));
  return value;
}

// The entries of the file. A file that is not exactly filled by them has none.
Entries read(const std::string& file) {
  if (file.substr(0, 4) != "icns" || numberAt(file, 4) != file.size()) return {};
  Entries entries;
  std::size_t position = 8;
  while (position < file.size()) {
    const std::size_t length = numberAt(file, position + 4);
    if (length < 8 || length > file.size() - position) return {};
    if (!entries.emplace(file.substr(position, 4), file.substr(position + 8, length - 8)).second) return {};
    position += length;
  }
  return entries;
}

// Opacity, red, green and blue of each pixel, not multiplied, in rows from the top; `side` 0 for what cannot be read.
struct Bitmap {
  int side = 0;
  std::vector<std::uint32_t> pixels;
  [[nodiscard]] std::uint32_t at(double x, double y) const {
    const auto index = [this](double share) { return static_cast<std::size_t>(share * side); };
    return pixels.at(index(y) * static_cast<std::size_t>(side) + index(x));
  }
};

Bitmap fromPNG(const std::string& data) {
  std::pair<const std::string*, std::size_t> reading = {&data, 0};
  const auto next = [](void* closure, unsigned char* bytes, unsigned count) {
    auto& [text, position] = *static_cast<std::pair<const std::string*, std::size_t>*>(closure);
    if (text->size() - position < count) return CAIRO_STATUS_READ_ERROR;
    std::memcpy(bytes, text->data() + position, count);
    position += count;
    return CAIRO_STATUS_SUCCESS;
  };
  const std::unique_ptr<cairo_surface_t, decltype(&cairo_surface_destroy)> surface(
      cairo_image_surface_create_from_png_stream(next, &reading), cairo_surface_destroy);
  if (cairo_surface_status(surface.get()) != CAIRO_STATUS_SUCCESS || reading.second != data.size()) return {};
  Bitmap bitmap{.side = cairo_image_surface_get_width(surface.get()), .pixels = {}};
  if (cairo_image_surface_get_height(surface.get()) != bitmap.side) return {};
  const unsigned char* const bytes = cairo_image_surface_get_data(surface.get());
  for (int i = 0; i < bitmap.side * bitmap.side; ++i) {
    std::uint32_t pixel = 0;
    std::memcpy(&pixel, bytes + static_cast<std::ptrdiff_t>(i) * 4, 4);
    bitmap.pixels.push_back(pixel);
  }
  return bitmap;
}

// Reads packed planes as the format has them: also runs, which begin with a byte from 128 on.
Bitmap fromPlanes(const std::string& data, int side) {
  if (data.substr(0, 4) != "ARGB") return {};
  const std::size_t size = static_cast<std::size_t>(side) * static_cast<std::size_t>(side);
  std::string bytes;
  for (std::size_t i = 4; i < data.size();) {
    const auto control = static_cast<unsigned char>(data[i]);
    if (control < 128) {
      bytes += data.substr(i + 1, control + 1U);
      i += control + 2U;
    } else {
      bytes += std::string(control - 125U, data.at(i + 1));
      i += 2;
    }
  }
  if (bytes.size() != size * 4) return {};
  Bitmap bitmap{.side = side, .pixels = {}};
  for (std::size_t i = 0; i < size; ++i) {
    std::uint32_t pixel = 0;
    for (std::size_t plane = 0; plane < 4; ++plane) {
      pixel = pixel << 8 | static_cast<unsigned char>(bytes[plane * size + i]);
    }
    bitmap.pixels.push_back(pixel);
  }
  return bitmap;
}

Bitmap bitmapOf(const Entries& entries, const std::string& type, int side) {
  const auto found = entries.find(type);
  if (found == entries.end()) return {};
  return side <= 32 && type != "ic11" ? fromPlanes(found->second, side) : fromPNG(found->second);
}

const std::map<std::string, int> sizes = {{"ic04", 16},   {"ic05", 32}, {"ic07", 128}, {"ic08", 256}, {"ic09", 512},
                                          {"ic10", 1024}, {"ic11", 32}, {"ic12", 64},  {"ic13", 256}, {"ic14", 512}};

std::string shippedFile() {
  std::ifstream in(ICON_FILE, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

}  // namespace

TEST(AppIcon, HasEverySizeAndNothingElse) {
  const Entries entries = read(shippedFile());
  ASSERT_EQ(entries.size(), sizes.size());
  for (const auto& [type, side] : sizes) EXPECT_EQ(bitmapOf(entries, type, side).side, side) << type;
}

TEST(AppIcon, ShowsTheDrawingOnItsPlateInEverySize) {
  const Entries entries = read(shippedFile());
  for (const auto& [type, side] : sizes) {
    const Bitmap bitmap = bitmapOf(entries, type, side);
    ASSERT_EQ(bitmap.side, side) << type;
    for (const double x : {0.01, 0.99}) {
      for (const double y : {0.01, 0.99}) EXPECT_EQ(bitmap.at(x, y) >> 24, 0U) << type;  // around the plate
    }
    EXPECT_EQ(bitmap.at(0.5, 0.15), 0xff1a2440U) << type;  // the plate
    // White: the half sun's disc, left of the middle. At 16 pixels it has hardly a pixel of its own.
    const std::uint32_t sun = bitmap.at(0.42, 0.5);
    EXPECT_GE(sun & 0xff, side < 32 ? 0xc0U : 0xf8U) << type;
    EXPECT_EQ(sun >> 24, 0xffU) << type;
    // Light lies as far from the left edge as from the right one: within half a point of the drawing.
    int least = side;
    int greatest = 0;
    for (int x = 0; x < side; ++x) {
      for (int y = 0; y < side; ++y) {
        const std::uint32_t pixel = bitmap.pixels[static_cast<std::size_t>(y * side + x)];
        if ((pixel & 0xff) < 0xa0 || pixel >> 24 != 0xff) continue;
        least = std::min(least, x);
        greatest = std::max(greatest, x);
      }
    }
    EXPECT_NEAR(least, side - 1 - greatest, std::max(1, side / 50)) << type;
    EXPECT_GT(greatest - least, side / 3) << type;
  }
}

// Who changes the drawing has to write the file anew: build/simulated/dalvane-icon packaging/Dalvane.icns
TEST(AppIcon, IsTheProgramsOwnDrawingOfToday) {
  const Entries shipped = read(shippedFile());
  const Entries today = read(makeIconFile(makeAppIcon(drawnByTheProgram())));
  for (const auto& [type, side] : sizes) {
    const Bitmap one = bitmapOf(shipped, type, side);
    const Bitmap other = bitmapOf(today, type, side);
    ASSERT_EQ(one.side, side) << type;
    ASSERT_EQ(other.side, side) << type;
    // Another version of the library that draws may see an edge a little differently.
    long different = 0;
    for (std::size_t i = 0; i < one.pixels.size(); ++i) {
      const auto blue = [i](const Bitmap& bitmap) { return static_cast<int>(bitmap.pixels[i] & 0xff); };
      if (std::abs(blue(one) - blue(other)) > 24) ++different;
    }
    EXPECT_LE(different, side / 16) << type;
  }
}
