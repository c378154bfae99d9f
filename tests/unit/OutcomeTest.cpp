// How errors of asynchronous work are kept.
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

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

TEST(OutcomeTest, AResultIsHandedOn) {
  EXPECT_EQ(value(attempt([] { return 7; })), 7);
  EXPECT_THROW(static_cast<void>(value(attempt([]() -> int { throw AppError("no"); }))), AppError);
}

}  // namespace
