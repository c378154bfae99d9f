// A display's EDID (VESA Enhanced EDID 1.4): what a monitor says of itself, and where the attributes come from that the
// system shows of it.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace simulator {

struct EDID {
  using Block = std::array<std::uint8_t, 128>;

  std::uint16_t vendor = 0;  // three letters of five bits each, as the system hands the number out
  std::uint16_t product = 0;
  std::uint32_t serial = 0;
  std::string name;  // of 13 characters at most

  // The base block of a monitor of 2560 x 1440 pixels.
  [[nodiscard]] Block block() const;
  // None when it is no EDID: by its header, its length or its checksum.
  [[nodiscard]] static std::optional<EDID> parse(std::span<const std::uint8_t> bytes);
};

}  // namespace simulator
