#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "desk/campaign/Shrink.h"

using campaign::Lines;

namespace {

Lines numbered(int count) {
  Lines lines;
  for (int i = 0; i < count; ++i) lines.push_back(std::to_string(i));
  return lines;
}

bool has(const Lines& lines, const char* line) { return std::ranges::find(lines, line) != lines.end(); }

}  // namespace

TEST(Shrink, KeepsTheLinesThatItTakesInTheirOrder) {
  const auto shows = [](const Lines& lines) { return has(lines, "3") && has(lines, "57") && has(lines, "98"); };
  EXPECT_EQ(campaign::shrink(numbered(100), 5, shows), (Lines{"3", "57", "98"}));
}

TEST(Shrink, LeavesWhatLiesFarBackOutFirst) {
  std::size_t longest = 0;
  std::size_t attempts = 0;
  const auto shows = [&](const Lines& lines) {
    longest = std::max(longest, lines.size());
    ++attempts;
    return has(lines, "1") && has(lines, "9990");
  };
  EXPECT_EQ(campaign::shrink(numbered(10000), 5, shows), (Lines{"1", "9990"}));
  EXPECT_LE(longest, 32U);
  EXPECT_LE(attempts, 40U);
}

TEST(Shrink, LeavesNoLineThatAnotherMadeNeedful) {
  // "5" matters as long as "2" is there.
  const auto shows = [](const Lines& lines) { return has(lines, "7") && (!has(lines, "2") || has(lines, "5")); };
  EXPECT_EQ(campaign::shrink(numbered(8), 0, shows), Lines{"7"});
}

TEST(Shrink, KeepsWhatNothingCanBeTakenFrom) {
  const auto shows = [](const Lines& lines) { return lines.size() == 4; };
  EXPECT_EQ(campaign::shrink(numbered(4), 2, shows), numbered(4));
}
