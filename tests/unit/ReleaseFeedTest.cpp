// The order of versions.
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <vector>

#include "updater/ReleaseFeed.h"

namespace {

constexpr std::int64_t final = std::numeric_limits<std::int64_t>::max();
using Numbers = std::vector<std::int64_t>;

TEST(ReleaseFeedTest, TellsWhichVersionIsNewer) {
  struct {
    const char* candidate;
    const char* current;
    bool newer;
  } const rows[] = {
      {"1.4.0", "1.3.9", true},
      {"1.10", "1.9.5", true},
      {"2", "1.99.99", true},
      {"1.2", "1.2.0", false},
      {"1.3.0", "1.3.0-beta.4", true},
      {"1.3.0-beta.4", "1.3.0", false},
      {"1.3.0-beta.5", "1.3.0-beta.4", true},
      {"1.3.0-beta.x", "1.3.0-beta.0", false},
      {"1.3.0-beta", "1.3.0", false},
      {"1.3.0-beta.", "1.3.0-beta.1", false},
      {"v1.5", "1.4.0", false},
      {"1.2.3.4", "1.2.3", false},
      {"1.2.3.4", "1.2.3.3", true},
      {"1.2.3", "1.2.3", false},
      {"1.2.3.4.5", "1.2.3.4.4", true},
      {"1.2.3.4.4", "1.2.3.4.5", false},
      {"1.2.3.4.5.6.7.9", "1.2.3.4.5.6.7.8", true},
      {"1.2.3.4.5.6.7.8", "1.2.3.4.5.6.7.9", false},
      {"1.2.3.4.5.1", "1.2.3.4.5", false},
      {"1.2.3.1", "1.2.3", false},
      {"1.2.3", "1.2.3.1", false},
      {"", "0.0.0", false},
      {"0.0.0", "", false},
      {"1.-1.0", "1.0.0", false},
      {"1.0.0", "1.-1.0", true},
      {"1.3.9", "1.4.0", false},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(ReleaseFeed::isNewer(row.candidate, row.current), row.newer) << row.candidate << " " << row.current;
  }
}

TEST(ReleaseFeedTest, TakesVersionsApart) {
  struct {
    const char* version;
    Numbers numbers;
    std::int64_t beta;
  } const rows[] = {
      {"1.2.3", {1, 2, 3}, final},
      {"", {0, 0, 0}, final},
      {"2", {2, 0, 0}, final},
      {"1.2.3.4.5", {1, 2, 3, 4, 5}, final},
      {"..1..2.", {1, 2, 0}, final},
      {"1.2a.3", {1, 0, 3}, final},
      {"1. 3.0", {1, 0, 0}, final},
      {"+1.-2.+-3", {1, -2, 0}, final},
      {"1.--2.++3", {1, 0, 0}, final},
      {"-.+.1", {0, 0, 1}, final},
      {"12345678901234567890.1", {0, 1, 0}, final},
      {"9223372036854775807.-9223372036854775808", {final, std::numeric_limits<std::int64_t>::min(), 0}, final},
      {"9223372036854775808", {0, 0, 0}, final},
      {"0x10.1e3.٣", {0, 0, 0}, final},
      {"1.3.0-beta.4", {1, 3, 0}, 4},
      {"1.3.0-beta.", {1, 3, 0}, 0},
      {"1.3.0-beta.x", {1, 3, 0}, 0},
      {"1.3.0-beta.-2", {1, 3, 0}, -2},
      {"1.3.0-beta.4.1", {1, 3, 0}, 0},
      {"1.3.0-beta.4-beta.9", {1, 3, 0}, 4},
      {"1.3.0-beta.-beta.9", {1, 3, 0}, 0},
      {"-beta.7", {0, 0, 0}, 7},
      {"1.3.0-beta", {1, 3, 0}, final},
      {"1.3.0-BETA.4", {1, 3, 0, 4}, final},
      {"1.3.0b1", {1, 3, 0}, final},
      {"1.3.0-rc.1", {1, 3, 0, 1}, final},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(ReleaseFeed::parts(row.version), (ReleaseFeed::Parts{row.numbers, row.beta})) << row.version;
  }
}

}  // namespace
