#include "packaging/icon/AppIcon.h"

#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string_view>

#include "desk/Desk.h"
#include "simulator/desktop/MenuBar.h"
#include "simulator/mac/Mac.h"
#include "simulator/mac/Scenario.h"

namespace {

namespace fs = std::filesystem;

// Of the grid that icons of macOS are drawn on: 1024 points a side, with a plate of 824 whose shadow may fall on the
// rest.
constexpr double side = 1024;
constexpr double plate = 824;
constexpr double cornerRadius = 185.4;

constexpr drawing::Color plateColor = {.red = 26 / 255.0, .green = 36 / 255.0, .blue = 64 / 255.0};
constexpr drawing::Color glyphColor = {.red = 1, .green = 1, .blue = 1};
// Of the plate's side, what the side of the drawing takes; the drawing leaves some of that free.
constexpr double glyphShare = 0.84;
// The drawing's lines lie that much to the left of its middle, in its own points.
constexpr double glyphOffset = 0.57;

// Four bytes, the most significant first.
std::string number(std::size_t value) {
  std::string bytes;
  for (const int shift : {24, 16, 8, 0}) bytes += static_cast<char>(value >> shift & 0xff);
  return bytes;
}

std::string entry(std::string_view type, const std::string& data) {
  return std::string(type) + number(data.size() + 8) + data;
}

std::string png(const drawing::Picture& icon, int pixels) {
  std::string name = (fs::temp_directory_path() / "icon-XXXXXX.png").string();
  const int file = mkstemps(name.data(), 4);
  if (file < 0) throw std::runtime_error("there is no place for a temporary file");
  close(file);
  drawing::write(icon, name, pixels / side);
  std::ifstream in(name, std::ios::binary);
  std::string content{std::istreambuf_iterator<char>(in), {}};
  fs::remove(name);
  return content;
}

// The two smallest sizes are read as PNG by few programs: they are four planes, opacity first, each packed. A byte
// below 128 announces one more than so many bytes as they are. (Runs could be packed shorter; there is no need to.)
std::string planes(const drawing::Picture& icon, int pixels) {
  constexpr std::size_t longest = 128;
  const drawing::Pixels rendered = drawing::render(icon, pixels / side);
  std::string packed = "ARGB";
  for (const std::size_t channel : {3U, 0U, 1U, 2U}) {
    std::string plane;
    for (std::size_t i = channel; i < rendered.bytes.size(); i += 4) plane += static_cast<char>(rendered.bytes[i]);
    for (std::size_t i = 0; i < plane.size(); i += longest) {
      const std::string piece = plane.substr(i, longest);
      packed += static_cast<char>(piece.size() - 1) + piece;
    }
  }
  return packed;
}

}  // namespace

drawing::Picture makeAppIcon(const drawing::Picture& glyph) {
  constexpr double margin = (side - plate) / 2;
  drawing::Picture icon{.size = {side, side}, .flipped = glyph.flipped, .operations = {}};
  icon.fill(drawing::Path::rectangle({{margin, margin}, {plate, plate}}, cornerRadius), plateColor);
  const double scale = plate * glyphShare / glyph.size.width;
  const CGPoint origin = {(side - glyph.size.width * scale) / 2 + glyphOffset * scale,
                          (side - glyph.size.height * scale) / 2};
  for (drawing::Operation operation : glyph.operations) {
    operation.path = operation.path.placed(origin, scale);
    operation.lineWidth *= scale;
    operation.color = glyphColor;
    icon.operations.push_back(operation);
  }
  return icon;
}

drawing::Picture drawnByTheProgram() {
  simulator::Mac machine(
      dalvaneProgram(),
      {.clock = simulator::Clock::deterministic, .seed = {}, .trace = [](auto) {}, .fatal = [] { std::_Exit(1); }});
  simulator::Scenario scenario(machine);
  scenario.perform(R"({"do":"launch"})");
  scenario.perform(R"({"do":"settle"})");
  const auto drawn = machine.part<simulator::MenuBar>().iconPicture();
  if (!drawn) throw std::runtime_error("the program shows nothing to draw");
  return *drawn;
}

std::string makeIconFile(const drawing::Picture& icon) {
  // What each type is for is fixed: ic11 is 16 points with two pixels each, ic12 is 32, ic13 is 128, ic14 256, ic10
  // 512.
  constexpr struct {
    const char* type;
    int pixels;
  } pictures[] = {{"ic12", 64},  {"ic07", 128}, {"ic13", 256},  {"ic08", 256},
                  {"ic14", 512}, {"ic09", 512}, {"ic10", 1024}, {"ic11", 32}};
  std::string entries = entry("ic04", planes(icon, 16)) + entry("ic05", planes(icon, 32));
  for (const auto& [type, pixels] : pictures) entries += entry(type, png(icon, pixels));
  return entry("icns", entries);
}
