// Core Foundation's values: numbers, strings, collections, equality and ownership.
#include <CoreFoundation/CoreFoundation.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <string>

#include "platform/CF.h"
#include "platform/CFCollections.h"
#include "tests/conformance/Machine.h"

namespace {

CF::Ref<CFNumberRef> real(double value) {
  return CF::adopt(CFNumberCreate(kCFAllocatorDefault, kCFNumberFloat64Type, &value));
}
CF::Ref<CFNumberRef> small(std::int32_t value) {
  return CF::adopt(CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt32Type, &value));
}

}  // namespace

// ---- Numbers ----

CLAIM(CoreFoundation, NumbersAreEqualByValue,
      "Two numbers are equal when their values are, whatever type they were made with.",
      "CFBase.h, CFEqual; observed") {
  EXPECT_TRUE(CFEqual(CF::number(5).get(), small(5).get()));
  EXPECT_TRUE(CFEqual(CF::number(5).get(), real(5).get()));
  EXPECT_FALSE(CFEqual(CF::number(5).get(), real(5.5).get()));
  EXPECT_FALSE(CFEqual(CF::number(5).get(), CF::number(6).get()));
}
