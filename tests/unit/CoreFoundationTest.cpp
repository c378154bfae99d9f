// Core Foundation and Foundation, where they are easily simulated too kindly.
#include <CoreFoundation/CoreFoundation.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>
#include <utility>

#include "platform/CF.h"
#include "platform/UserDefaults.h"
#include "simulator/foundation/CoreFoundation.h"
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

TEST(CoreFoundation, ARealIsExactWhereItHasTheIntegersValue) {
  const auto isExact = [](std::int64_t integer) {
    const auto number = CF::adopt(CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt64Type, &integer));
    double real = 0;
    const bool exact = CFNumberGetValue(number.get(), kCFNumberFloat64Type, &real) != 0;
    EXPECT_EQ(real, static_cast<double>(integer));
    return exact;
  };
  for (const std::int64_t integer : {std::int64_t{0}, std::int64_t{-1}, std::int64_t{1} << 53, least}) {
    EXPECT_TRUE(isExact(integer)) << integer;
  }
  for (const std::int64_t integer : {(std::int64_t{1} << 53) + 1, least + 1, most}) {
    EXPECT_FALSE(isExact(integer)) << integer;
  }
}

// As CFNumber.h has it: by human expectation and not by C's promotion, with NaN equal to everything.
TEST(CoreFoundation, ValuesAreEqualByTheirKind) {
  using nlohmann::json;
  constexpr double nan = std::numeric_limits<double>::quiet_NaN();
  constexpr double infinity = std::numeric_limits<double>::infinity();
  const auto areEqual = [](const json& one, const json& other) {
    const auto first = CF::adopt(simulator::createPropertyList(one));
    const auto second = CF::adopt(simulator::createPropertyList(other));
    const bool result = CFEqual(first.get(), second.get()) != 0;
    EXPECT_EQ(CFEqual(second.get(), first.get()) != 0, result) << one << other;
    return result;
  };
  const std::pair<json, json> equal[] = {{1, 1},
                                         {1, 1.0},
                                         {0, 0.0},
                                         {1 << 30, 0x1p30},
                                         {least, -0x1p63},
                                         {most, most},
                                         {0.5, 0.5},
                                         {infinity, infinity},
                                         {nan, nan},
                                         {nan, 5},
                                         {nan, infinity},
                                         {"a", "a"},
                                         {true, true},
                                         {{1, "a", {2}}, {1.0, "a", {2}}},
                                         {{{"a", 1}, {"b", true}}, {{"b", true}, {"a", 1.0}}}};
  for (const auto& [one, other] : equal) EXPECT_TRUE(areEqual(one, other)) << one << other;
  const std::pair<json, json> different[] = {{1, 2},
                                             {1, 1.5},
                                             {(std::int64_t{1} << 53) + 1, 0x1p53},
                                             {most, 0x1p63},
                                             {0.0, -0.0},
                                             {0, -0.0},
                                             {infinity, -infinity},
                                             {most, infinity},
                                             {"a", "b"},
                                             {"1", 1},
                                             {true, false},
                                             {true, 1},
                                             {json::array(), json::object()},
                                             {{1, 2}, {1}},
                                             {{1, 2}, {1, 3}},
                                             {{{"a", 1}}, {{"a", 2}}},
                                             {{{"a", 1}}, {{"b", 1}}},
                                             {{{"a", 1}}, {{"a", 1}, {"b", 1}}}};
  for (const auto& [one, other] : different) EXPECT_FALSE(areEqual(one, other)) << one << other;
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
