// What a simulated monitor says of itself, against what another program reads there.
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <string>
#include <vector>

#include "simulator/displays/EDID.h"
#include "tests/support/Command.h"
#include "tests/support/Lines.h"
#include "tests/support/Play.h"

using simulator::EDID;

namespace {

// What edid-decode says of these bytes, and whether they conform to the standard.
std::string decoded(const EDID::Block& block) {
  Command command({"edid-decode", "--check"}, {block.begin(), block.end()});
  EXPECT_EQ(command.status(), 0) << command.output();
  return command.output();
}

std::string hexadecimal(const EDID::Block& block) {
  std::string text;
  for (const std::uint8_t byte : block) {
    std::array<char, 3> digits{};
    std::snprintf(digits.data(), digits.size(), "%02x", byte);
    text += digits.data();
  }
  return text;
}

void expectSame(const EDID& one, const EDID& other) {
  EXPECT_EQ(one.vendor, other.vendor);
  EXPECT_EQ(one.product, other.product);
  EXPECT_EQ(one.serial, other.serial);
  EXPECT_EQ(one.name, other.name);
}

}  // namespace

TEST(EDID, SaysToOthersWhatItIsMadeOf) {
  const struct {
    EDID edid;
    std::vector<const char*> said;
  } rows[] = {
      {{0x10AC, 41200, 7001, "Left"},
       {"Manufacturer: DEL", "Model: 41200", "Serial Number: 7001", "Display Product Name: 'Left'"}},
      {{0x4C2D, 0x00FF, 0x01020304, "Thirteen char"},
       {"Manufacturer: SAM", "Model: 255", "Serial Number: 16909060", "Display Product Name: 'Thirteen char'"}},
      {{0x0421, 0xFFFF, 0xFFFFFFFF, "A B"},
       {"Manufacturer: AAA", "Model: 65535", "Serial Number: 4294967295", "Display Product Name: 'A B'"}},
  };
  for (const auto& row : rows) {
    const std::string text = decoded(row.edid.block());
    for (const char* const line : row.said) EXPECT_NE(text.find(line), std::string::npos) << line << "\n" << text;
    EXPECT_NE(text.find("EDID conformity: PASS"), std::string::npos) << text;
    const auto read = EDID::parse(row.edid.block());
    ASSERT_TRUE(read);
    expectSame(*read, row.edid);
  }
}

TEST(EDID, OneThatIsDamagedIsNone) {
  const EDID::Block whole = EDID{1, 2, 3, "M"}.block();
  EXPECT_FALSE(EDID::parse(std::span(whole).first(127)));
  EXPECT_FALSE(EDID::parse({}));
  for (std::size_t at = 0; at < whole.size(); ++at) {
    EDID::Block damaged = whole;
    damaged[at] ^= 0x10;
    EXPECT_FALSE(EDID::parse(damaged)) << at;
  }
  // Extensions may follow.
  std::vector<std::uint8_t> extended(whole.begin(), whole.end());
  extended.resize(256);
  EXPECT_TRUE(EDID::parse(extended));
}

TEST(EDID, IsWhereADisplaysAttributesComeFrom) {
  using namespace lines;
  const std::string edid = hexadecimal(EDID{0x10AC, 41200, 7001, "Left"}.block());
  // Two displays that only their EDIDs tell apart.
  const std::string twin = hexadecimal(EDID{0x10AC, 41200, 7002, "Left"}.block());
  const auto monitorOf = [](int id, const std::string& digits) {
    return display(id, {{"name", "Left"},
                        {"frame", {id * 100, 0, 100, 100}},
                        {"edid", digits},
                        {"monitor", {{"current", 50}, {"maximum", 100}}}});
  };
  const Played played = playScenario(monitorOf(1, edid) + monitorOf(2, twin) + pointer(250, 50) + launch + settle +
                                     key("brightnessUp") + settle);
  EXPECT_EQ(played.lights(1), std::vector<int>{});
  EXPECT_EQ(played.lights(2), std::vector<int>{56});
  for (const std::string& wrong : {std::string("00"), edid + "0", "zz" + edid.substr(2), "01" + edid.substr(2)}) {
    EXPECT_EQ(playScenario(monitorOf(1, wrong)).error,
              R"(test:1: member "edid" must be an EDID in hexadecimal digits)");
  }
}
