// Core Foundation and Foundation, where they are easily simulated too kindly.
#include <CoreFoundation/CoreFoundation.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>
#include <utility>

#include "platform/CF.h"
#include "platform/UserDefaults.h"
#include "tests/support/Lines.h"
#include "tests/support/Program.h"

namespace {

// What a number gives as a 64-bit integer, and whether that is exact.
std::pair<std::int64_t, bool> integerOf(double real) {
  const CF::Ref<CFNumberRef> number =
      CF::adopt(CFNumberCreate(kCFAllocatorDefault, kCFNumberFloat64Type, static_cast<const void*>(&real)));
  std::int64_t integer = 0;
  const bool exact = CFNumberGetValue(number.get(), kCFNumberSInt64Type, &integer) != 0;
  return {integer, exact};
}

using Integer = std::pair<std::int64_t, bool>;
constexpr std::int64_t most = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t least = std::numeric_limits<std::int64_t>::min();

}  // namespace

TEST(CoreFoundation, AnIntegerIsExactAsFarAsItReaches) {
  EXPECT_EQ(integerOf(5e18), Integer(5'000'000'000'000'000'000, true));
  EXPECT_EQ(integerOf(0x1.fffffffffffffp62), Integer(9'223'372'036'854'774'784, true));
  EXPECT_EQ(integerOf(-0x1p63), Integer(least, true));
  EXPECT_EQ(integerOf(2.5), Integer(2, false));
  EXPECT_FALSE(integerOf(0x1p63).second);
  EXPECT_FALSE(integerOf(-1e19).second);
  EXPECT_FALSE(integerOf(std::numeric_limits<double>::infinity()).second);
  EXPECT_FALSE(integerOf(std::numeric_limits<double>::quiet_NaN()).second);
  EXPECT_GT(integerOf(1e300).first, most / 2);
}

TEST(CoreFoundationDeathTest, NothingIsEqualToNull) {
  const CF::Ref<CFStringRef> string = CF::string("a");
  EXPECT_DEATH(CFEqual(nullptr, nullptr), "CFEqual: one of the objects is null");
  EXPECT_DEATH(CFEqual(string.get(), nullptr), "CFEqual: one of the objects is null");
  EXPECT_DEATH(CFEqual(nullptr, string.get()), "CFEqual: one of the objects is null");
  EXPECT_TRUE(CFEqual(string.get(), string.get()));
}

TEST(UserDefaults, ATextIsTrueWhenItSaysYesOrOne) {
  using nlohmann::json;
  const std::pair<json, bool> cases[] = {{"YES", true}, {"1", true},   {"true", false}, {"yes", false},
                                         {"Y", false},  {"NO", false}, {"0", false},    {"2", false},
                                         {"", false},   {true, true},  {false, false},  {1, true},
                                         {0, false},    {-0.5, true},  {0.0, false},    {json::array({1}), false}};
  for (const auto& [value, expected] : cases) {
    runAsProgram(lines::preference("key", value), [&] {
      EXPECT_EQ(NS::UserDefaults::standardUserDefaults().boolForKey("key"), expected) << value;
      EXPECT_FALSE(NS::UserDefaults::standardUserDefaults().boolForKey("another"));
    });
  }
}
