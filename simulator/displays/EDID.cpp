#include "simulator/displays/EDID.h"

#include <algorithm>
#include <numeric>

namespace simulator {
namespace {

constexpr std::array<std::uint8_t, 8> header = {0x00, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x00};
constexpr std::size_t vendorAt = 8;
constexpr std::size_t productAt = 10;
constexpr std::size_t serialAt = 12;
constexpr std::array<std::size_t, 4> descriptorsAt = {54, 72, 90, 108};
constexpr std::size_t descriptorSize = 18;
constexpr std::uint8_t nameTag = 0xFC;
constexpr std::uint8_t rangeLimitsTag = 0xFD;
constexpr std::uint8_t dummyTag = 0x10;
constexpr std::size_t longestText = 13;

// From the manufacturer on: version 1.4, digital, 8 bits a color, DisplayPort, 60 x 34 cm, gamma 2.2, sRGB.
constexpr std::array<std::uint8_t, 38> basics = {
    1, 35, 1, 4, 0xA5, 60, 34, 120, 0x06, 0xEE, 0x91, 0xA3, 0x54, 0x4C, 0x99, 0x26, 0x0F, 0x50, 0x54,
    0, 0,  0, 1, 1,    1,  1,  1,   1,    1,    1,    1,    1,    1,    1,    1,    1,    1,    1};
// 2560 x 1440 at 60 Hz with reduced blanking (VESA CVT 1.2).
constexpr std::array<std::uint8_t, descriptorSize> timing = {0x56, 0x5E, 0x00, 0xA0, 0xA0, 0xA0, 0x29, 0x50, 0x30,
                                                             0x20, 0x35, 0x00, 0x58, 0x54, 0x21, 0x00, 0x00, 0x1A};
// 48 to 75 Hz, 30 to 90 kHz, up to 250 MHz; bare limits.
constexpr std::array<std::uint8_t, descriptorSize> limits = {0,  0, 0,    rangeLimitsTag, 0,    48,   75,   30,   90,
                                                             25, 1, 0x0A, 0x20,           0x20, 0x20, 0x20, 0x20, 0x20};

std::uint8_t sumOf(std::span<const std::uint8_t> bytes) {
  return static_cast<std::uint8_t>(std::accumulate(bytes.begin(), bytes.end(), 0U));
}

}  // namespace

EDID::Block EDID::block() const {
  Block bytes{};
  std::ranges::copy(header, bytes.begin());
  bytes[vendorAt] = static_cast<std::uint8_t>(vendor >> 8);  // this one alone has its high byte first
  bytes[vendorAt + 1] = static_cast<std::uint8_t>(vendor & 0xFF);
  bytes[productAt] = static_cast<std::uint8_t>(product & 0xFF);
  bytes[productAt + 1] = static_cast<std::uint8_t>(product >> 8);
  for (std::size_t i = 0; i < 4; ++i) bytes[serialAt + i] = static_cast<std::uint8_t>(serial >> (8 * i) & 0xFF);
  std::ranges::copy(basics, bytes.begin() + serialAt + 4);
  std::ranges::copy(timing, bytes.begin() + descriptorsAt[0]);
  std::ranges::copy(limits, bytes.begin() + descriptorsAt[1]);
  auto* const text = bytes.data() + descriptorsAt[2];
  text[3] = nameTag;
  // Shorter texts end with a line feed and are filled up with blanks.
  const std::size_t length = std::min(name.size(), longestText);
  std::fill_n(text + 5, longestText, std::uint8_t{' '});
  std::copy_n(name.begin(), length, text + 5);
  if (length < longestText) text[5 + length] = '\n';
  bytes[descriptorsAt[3] + 3] = dummyTag;
  bytes.back() = static_cast<std::uint8_t>(-sumOf(std::span(bytes).first(bytes.size() - 1)));
  return bytes;
}

std::optional<EDID> EDID::parse(std::span<const std::uint8_t> bytes) {
  if (bytes.size() < std::tuple_size_v<Block>) return std::nullopt;
  const auto base = bytes.first(std::tuple_size_v<Block>);
  if (!std::ranges::equal(base.first(header.size()), header) || sumOf(base) != 0) return std::nullopt;
  EDID edid;
  edid.vendor = static_cast<std::uint16_t>(base[vendorAt] << 8 | base[vendorAt + 1]);
  edid.product = static_cast<std::uint16_t>(base[productAt + 1] << 8 | base[productAt]);
  for (std::size_t i = 0; i < 4; ++i) edid.serial |= static_cast<std::uint32_t>(base[serialAt + i]) << (8 * i);
  for (const std::size_t at : descriptorsAt) {
    const auto descriptor = base.subspan(at, descriptorSize);
    if (descriptor[0] != 0 || descriptor[1] != 0 || descriptor[3] != nameTag) continue;
    const auto text = descriptor.subspan(5);
    edid.name.assign(text.begin(), std::ranges::find(text, std::uint8_t{'\n'}));
    edid.name.erase(edid.name.find_last_not_of(' ') + 1);
  }
  return edid;
}

}  // namespace simulator
