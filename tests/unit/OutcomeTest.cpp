// How errors of asynchronous work are kept.
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <variant>

#include "updater/Outcome.h"

namespace {

std::string errorOf(const std::string& what) {
  const Outcome<int> outcome = attempt([&]() -> int { throw std::runtime_error(what); });
  return std::get<AppError>(outcome).what();
}

TEST(OutcomeTest, ErrorsKeepTheirTexts) {
  for (const std::string text : {"", "plain", "“quoted” \"\\\n\t", "ä😀", "\x7f\x01"}) EXPECT_EQ(errorOf(text), text);
}

TEST(OutcomeTest, WhatIsNotUTF8IsReplaced) {
  EXPECT_EQ(errorOf("last read: '\xc3'"), "last read: '\uFFFD'");
  EXPECT_EQ(errorOf("\xff\xfe"), "\uFFFD\uFFFD");
}

TEST(OutcomeTest, WorkWithoutAResultCanFailToo) {
  int done = 0;
  EXPECT_TRUE(std::holds_alternative<std::monostate>(attempt([&] { ++done; })));
  EXPECT_EQ(done, 1);
  const Outcome<std::monostate> outcome = attempt([]() -> void { throw std::runtime_error("no"); });
  EXPECT_STREQ(std::get<AppError>(outcome).what(), "no");
  EXPECT_THROW(static_cast<void>(value(outcome)), AppError);
}

TEST(OutcomeTest, AResultIsHandedOn) {
  EXPECT_EQ(value(attempt([] { return 7; })), 7);
  EXPECT_THROW(static_cast<void>(value(attempt([]() -> int { throw AppError("no"); }))), AppError);
}

}  // namespace
