#include <gtest/gtest.h>

#include "base/AppError.h"

TEST(AppError, KeepsItsMessage) { EXPECT_STREQ(AppError("Something is missing").what(), "Something is missing"); }

TEST(AppError, NamesTheOperationAndItsStatus) {
  EXPECT_STREQ(AppError("Creating the process tap", -50).what(), "Creating the process tap failed (OSStatus -50)");
  EXPECT_STREQ(AppError("Counting streams", 560947818).what(), "Counting streams failed (OSStatus 560947818)");
}
