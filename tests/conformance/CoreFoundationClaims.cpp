// Core Foundation's values: numbers, strings, collections, equality and ownership.
#include <CoreFoundation/CoreFoundation.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <string>
#include <utility>

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

// A number read as a type of the system's, and whether it came over whole.
template <typename T>
std::pair<T, bool> read(const CF::Ref<CFNumberRef>& number, CFNumberType type) {
  T value = 0;
  const bool isExact = CFNumberGetValue(number.get(), type, &value) != 0;
  return {value, isExact};
}
std::pair<std::int64_t, bool> integerOf(double value) { return read<std::int64_t>(real(value), kCFNumberSInt64Type); }

using Integer = std::pair<std::int64_t, bool>;

CFRange characterAt(const char* text, CFIndex index) {
  return CFStringGetRangeOfComposedCharactersAtIndex(CF::string(text).get(), index);
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

CLAIM(CoreFoundation, NumbersAreComparedWithoutRounding,
      "A whole number and a real one are equal only when they are the same, also where C would round one to the other.",
      "CFNumber.h, CFNumberCompare; that CFEqual goes by it is observed (Core Foundation's public sources)") {
  constexpr std::int64_t large = std::int64_t{1} << 53;
  EXPECT_TRUE(CFEqual(CF::number(large).get(), real(0x1p53).get()));
  EXPECT_FALSE(CFEqual(CF::number(large + 1).get(), real(0x1p53).get()));
  EXPECT_FALSE(CFEqual(CF::number(std::numeric_limits<std::int64_t>::max()).get(), real(0x1p63).get()));
  EXPECT_TRUE(CFEqual(CF::number(std::numeric_limits<std::int64_t>::min()).get(), real(-0x1p63).get()));
}

CLAIM(CoreFoundation, ZeroHasASign, "Negative zero is another number than zero.",
      "CFNumber.h, CFNumberCompare; that CFEqual goes by it is observed (Core Foundation's public sources)") {
  EXPECT_FALSE(CFEqual(real(0).get(), real(-0.0).get()));
  EXPECT_FALSE(CFEqual(CF::number(0).get(), real(-0.0).get()));
  EXPECT_TRUE(CFEqual(CF::number(0).get(), real(0).get()));
}

CLAIM(CoreFoundation, WhatIsNoNumberIsEqualToAll, "NaN is equal to every number, and to another NaN.",
      "CFNumber.h, CFNumberCompare, of CFEqual") {
  const double none = std::numeric_limits<double>::quiet_NaN();
  EXPECT_TRUE(CFEqual(real(none).get(), real(none).get()));
  EXPECT_TRUE(CFEqual(real(none).get(), real(1.5).get()));
  EXPECT_TRUE(CFEqual(CF::number(7).get(), real(none).get()));
}

CLAIM(CoreFoundation, TruthIsNoNumber, "A boolean object is of another type than a number, and equal to none.",
      "CFNumber.h, CFBooleanGetTypeID; the equality is assumed") {
  EXPECT_NE(CFBooleanGetTypeID(), CFNumberGetTypeID());
  EXPECT_EQ(CFGetTypeID(kCFBooleanTrue), CFBooleanGetTypeID());
  EXPECT_EQ(CFGetTypeID(CF::number(1).get()), CFNumberGetTypeID());
  EXPECT_FALSE(CFEqual(kCFBooleanTrue, CF::number(1).get()));
}

CLAIM(CoreFoundation, TruthHasTwoObjects, "kCFBooleanTrue and kCFBooleanFalse have the values true and false.",
      "CFNumber.h, CFBooleanGetValue") {
  EXPECT_TRUE(CFBooleanGetValue(kCFBooleanTrue));
  EXPECT_FALSE(CFBooleanGetValue(kCFBooleanFalse));
}

CLAIM(CoreFoundation, WholeNumbersComeOverExactly,
      "A real number without a fraction is read as an integer without loss, as far as 64 bits reach.",
      "CFNumber.h, CFNumberGetValue") {
  EXPECT_EQ(integerOf(5e18), Integer(5'000'000'000'000'000'000, true));
  EXPECT_EQ(integerOf(0x1.fffffffffffffp62), Integer(9'223'372'036'854'774'784, true));
  EXPECT_EQ(integerOf(-0x1p63), Integer(std::numeric_limits<std::int64_t>::min(), true));
}

CLAIM(CoreFoundation, FractionsAreCutOffAndTold,
      "A real number with a fraction is read as an integer with the fraction cut off, and the answer is false.",
      "CFNumber.h, CFNumberGetValue") {
  EXPECT_EQ(integerOf(2.5), Integer(2, false));
  EXPECT_EQ(integerOf(-2.5), Integer(-2, false));
}

CLAIM(CoreFoundation, NumbersOutOfRangeAreTold,
      "A real number that 64 bits cannot hold, an infinite one, and one that is none are not read as integers without "
      "the answer false.",
      "CFNumber.h, CFNumberGetValue") {
  for (const double value :
       {0x1p63, -1e19, 1e300, std::numeric_limits<double>::infinity(), std::numeric_limits<double>::quiet_NaN()}) {
    EXPECT_FALSE(integerOf(value).second) << value;
  }
}

CLAIM(CoreFoundation, SmallIntegersAreToldWhenTheyAreTooLarge,
      "An integer that 32 bits cannot hold is read as one of 32 bits with the answer false.",
      "CFNumber.h, CFNumberGetValue") {
  EXPECT_EQ(read<std::int32_t>(CF::number(-7), kCFNumberSInt32Type), std::pair(std::int32_t{-7}, true));
  EXPECT_FALSE(read<std::int32_t>(CF::number(std::int64_t{1} << 31), kCFNumberSInt32Type).second);
  EXPECT_FALSE(read<std::int32_t>(real(3e9), kCFNumberSInt32Type).second);
}

CLAIM(CoreFoundation, LargeIntegersLoseAsReals,
      "An integer with more than 53 significant bits is read as a real number with the answer false.",
      "CFNumber.h, CFNumberGetValue") {
  EXPECT_EQ(read<double>(CF::number(std::int64_t{1} << 53), kCFNumberFloat64Type), std::pair(0x1p53, true));
  EXPECT_FALSE(read<double>(CF::number((std::int64_t{1} << 53) + 1), kCFNumberFloat64Type).second);
}

CLAIM(CoreFoundation, NumbersKnowWhetherTheyAreReal,
      "A number that was made from a double is of a floating-point type, also when its value is whole.",
      "CFNumber.h, CFNumberIsFloatType") {
  EXPECT_TRUE(CFNumberIsFloatType(real(2).get()));
  EXPECT_FALSE(CFNumberIsFloatType(CF::number(2).get()));
  EXPECT_FALSE(CFNumberIsFloatType(small(2).get()));
}

// ---- Strings ----

CLAIM(CoreFoundation, StringsAreMadeOfValidTextOnly, "No string object is made of bytes that are not UTF-8.",
      "CFString.h, CFStringCreateWithBytes") {
  for (const std::string& bytes : {"half a character: \xC3", "\xFF", "\xC0\x80", "\xED\xA0\x80", "\xF5\x80\x80\x80"}) {
    const auto text =
        CF::adopt(CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(bytes.data()),
                                          static_cast<CFIndex>(bytes.size()), kCFStringEncodingUTF8, false));
    EXPECT_FALSE(text) << bytes;
  }
}

CLAIM(CoreFoundation, LengthsCountUnitsOfSixteenBits, "A string's length is the number of its UTF-16 units.",
      "CFString.h, CFStringGetLength") {
  EXPECT_EQ(CFStringGetLength(CF::string("").get()), 0);
  EXPECT_EQ(CFStringGetLength(CF::string("ä€").get()), 2);
  EXPECT_EQ(CFStringGetLength(CF::string("😀").get()), 2);
}

CLAIM(CoreFoundation, BytesAreCountedBeforeTheyAreRead,
      "Without a buffer CFStringGetBytes tells how many bytes it would write, and answers how many units it took.",
      "CFString.h, CFStringGetBytes") {
  const auto text = CF::string("aä😀");
  CFIndex size = 0;
  EXPECT_EQ(CFStringGetBytes(text.get(), CFRangeMake(0, 4), kCFStringEncodingUTF8, 0, false, nullptr, 0, &size), 4);
  EXPECT_EQ(size, 7);
}

CLAIM(CoreFoundation, TextsComeBackAsTheyWere,
      "A string gives back the UTF-8 bytes that it was made of, zeros included.", "CFString.h, CFStringGetBytes") {
  for (const std::string& text :
       {std::string(), std::string("Bildschirm Ü"), std::string("a\0b", 3), std::string("😀")}) {
    EXPECT_EQ(CF::text(CF::string(text).get()), text);
  }
}

CLAIM(CoreFoundation, TextsAreCutBetweenUnits,
      "The beginning of a string is read up to any unit between two characters.", "CFString.h, CFStringGetBytes") {
  EXPECT_EQ(CF::text(CF::string("aä😀b").get(), 2), "aä");
  EXPECT_EQ(CF::text(CF::string("aä😀b").get(), 4), "aä😀");
}

CLAIM(CoreFoundation, HalfACharacterIsReplaced,
      "Where the range ends in the middle of a character, CFStringGetBytes writes the loss byte for the half.",
      "CFString.h, CFStringGetBytes (lossByte); that it applies to halves is assumed") {
  EXPECT_EQ(CF::text(CF::string("a😀").get(), 2), "a?");
}

CLAIM(CoreFoundation, StringsAreEqualUnitByUnit,
      "Two strings are equal when their units are: a letter with its mark is not equal to the one character that "
      "looks the same.",
      "CFBase.h, CFEqual; observed") {
  EXPECT_TRUE(CFEqual(CF::string("ä").get(), CF::string("ä").get()));
  EXPECT_FALSE(CFEqual(CF::string("\u00E4").get(), CF::string("a\u0308").get()));
  EXPECT_FALSE(CFEqual(CF::string("a").get(), CF::string("A").get()));
}

CLAIM(CoreFoundation, ConstantStringsAreStrings, "A constant string is equal to one that is made of the same text.",
      "CFString.h, CFSTR") {
  EXPECT_TRUE(CFEqual(CFSTR("constant"), CF::string("constant").get()));
  EXPECT_EQ(CFGetTypeID(CFSTR("constant")), CFStringGetTypeID());
}

CLAIM(CoreFoundation, ALetterIsOneWithItsMarks, "A letter and the marks that follow it are one composed character.",
      "CFString.h, CFStringGetRangeOfComposedCharactersAtIndex") {
  const CFRange range = characterAt("xa\u0308\u0323y", 2);
  EXPECT_EQ(range.location, 1);
  EXPECT_EQ(range.length, 3);
}

CLAIM(CoreFoundation, APictureIsOneWithItsParts,
      "A picture of several code points, joined, coloured or a flag, is one composed character.",
      "CFString.h, CFStringGetRangeOfComposedCharactersAtIndex; Unicode, UAX 29") {
  for (const char* const text : {"👩‍👩‍👧", "👍🏽", "🇩🇪", "❤️"}) {
    const CFIndex length = CFStringGetLength(CF::string(text).get());
    for (CFIndex i = 0; i < length; ++i) {
      const CFRange range = characterAt(text, i);
      EXPECT_EQ(range.location, 0) << text;
      EXPECT_EQ(range.length, length) << text;
    }
  }
  EXPECT_EQ(characterAt("🇩🇪🇫🇷", 4).location, 4);
}

// ---- Collections ----

CLAIM(CoreFoundation, ArraysKeepTheirOrder, "An array has its elements in the order in which they were given.",
      "CFArray.h, CFArrayCreate") {
  const auto one = CF::string("one");
  const auto two = CF::string("two");
  const void* values[] = {one.get(), two.get()};
  const auto array = CF::adopt(CFArrayCreate(kCFAllocatorDefault, values, 2, &kCFTypeArrayCallBacks));
  EXPECT_EQ(CFGetTypeID(array.get()), CFArrayGetTypeID());
  ASSERT_EQ(CFArrayGetCount(array.get()), 2);
  EXPECT_EQ(CFArrayGetValueAtIndex(array.get(), 0), one.get());
  EXPECT_EQ(CFArrayGetValueAtIndex(array.get(), 1), two.get());
}

CLAIM(CoreFoundation, CollectionsKeepWhatTheyHold, "What is in a collection lives at least as long as the collection.",
      "CFArray.h, kCFTypeArrayCallBacks; CFDictionary.h, kCFTypeDictionaryValueCallBacks") {
  CF::Ref<CFTypeRef> list;
  CF::Ref<CFDictionaryRef> dictionary;
  {
    const auto text = CF::string("kept by its collections");
    list = CF::listOf(text.get());
    dictionary = CF::dictionary({{CF::string("key").get(), CF::retain<CFTypeRef>(text.get())}});
  }
  const auto* const first = CFArrayGetValueAtIndex(static_cast<CFArrayRef>(list.get()), 0);
  EXPECT_EQ(CF::text(static_cast<CFStringRef>(first)), "kept by its collections");
  const auto* const value = CFDictionaryGetValue(dictionary.get(), CF::string("key").get());
  EXPECT_EQ(CF::text(static_cast<CFStringRef>(value)), "kept by its collections");
}

CLAIM(CoreFoundation, KeysAreFoundByValue, "A dictionary finds a value by any key that is equal to its own.",
      "CFDictionary.h, kCFTypeDictionaryKeyCallBacks") {
  const auto dictionary = CF::dictionary(
      {{CF::string("a").get(), CF::value(std::string("1"))}, {CF::string("b").get(), CF::value(std::string("2"))}});
  EXPECT_EQ(CFGetTypeID(dictionary.get()), CFDictionaryGetTypeID());
  EXPECT_EQ(CFDictionaryGetCount(dictionary.get()), 2);
  EXPECT_EQ(CF::text(static_cast<CFStringRef>(CFDictionaryGetValue(dictionary.get(), CF::string("b").get()))), "2");
  EXPECT_EQ(CFDictionaryGetValue(dictionary.get(), CF::string("c").get()), nullptr);
}

CLAIM(CoreFoundation, OfEqualKeysTheFirstCounts,
      "A dictionary that is made of two equal keys has one of them, with the first value.",
      "observed (Core Foundation's public sources)") {
  const auto dictionary = CF::dictionary(
      {{CF::string("a").get(), CF::value(std::string("1"))}, {CF::string("a").get(), CF::value(std::string("2"))}});
  EXPECT_EQ(CFDictionaryGetCount(dictionary.get()), 1);
  EXPECT_EQ(CF::text(static_cast<CFStringRef>(CFDictionaryGetValue(dictionary.get(), CF::string("a").get()))), "1");
}

CLAIM(CoreFoundation, CollectionsAreEqualByWhatTheyHold, "Two collections are equal when what they hold is.",
      "CFBase.h, CFEqual") {
  EXPECT_TRUE(CFEqual(CF::listOf(CF::number(1).get()).get(), CF::listOf(CF::number(1).get()).get()));
  EXPECT_FALSE(CFEqual(CF::listOf(CF::number(1).get()).get(), CF::listOf(CF::number(2).get()).get()));
  const auto one = [](const char* key) { return CF::dictionary({{CF::string(key).get(), CF::value(true)}}); };
  EXPECT_TRUE(CFEqual(one("a").get(), one("a").get()));
  EXPECT_FALSE(CFEqual(one("a").get(), one("b").get()));
}

// ---- Ownership ----

CLAIM(CoreFoundation, AnObjectLivesAsLongAsItIsRetained, "An object that is retained once more outlives one release.",
      "CFBase.h, CFRetain, CFRelease") {
  const CFStringRef text = CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<const UInt8*>("text"), 4,
                                                   kCFStringEncodingUTF8, false);
  EXPECT_EQ(CFRetain(text), text);
  CFRelease(text);
  EXPECT_EQ(CFStringGetLength(text), 4);
  CFRelease(text);
}

STOPS(CoreFoundation, NothingIsReleasedThatIsNone, "To release a null reference stops the process.",
      "CFBase.h, CFRelease") {
  CFRelease(nullptr);
}

STOPS(CoreFoundation, NothingIsEqualToNull, "To compare with a null reference stops the process.",
      "observed; CFBase.h does not allow it") {
  CFEqual(nullptr, CF::string("a").get());
}

STOPS(CoreFoundation, ArraysHaveTheElementsThatTheyHave, "To ask for an element behind the last one stops the process.",
      "assumed; CFArray.h calls it undefined") {
  CFArrayGetValueAtIndex(static_cast<CFArrayRef>(CF::listOf(CF::number(1).get()).get()), 1);
}

// ---- The bundle, URLs of files, and the clock ----

CLAIM(CoreFoundation, TheMainBundleIsTheApplication,
      "The main bundle is the application's folder, and has the identifier of its Info.plist.",
      "CFBundle.h, CFBundleGetMainBundle, CFBundleGetIdentifier") {
  const CFBundleRef bundle = CFBundleGetMainBundle();
  ASSERT_NE(bundle, nullptr);
  EXPECT_EQ(CF::text(CFBundleGetIdentifier(bundle)), "example.dalvane.Conformance");
  const auto url = CF::adopt(CFBundleCopyBundleURL(bundle));
  UInt8 path[1024] = {};
  ASSERT_TRUE(CFURLGetFileSystemRepresentation(url.get(), true, path, sizeof path));
  EXPECT_TRUE(std::string(reinterpret_cast<char*>(path)).ends_with(".app"));
}

CLAIM(CoreFoundation, TheInfoDictionaryHasItsValues,
      "The main bundle's information dictionary has the values of the Info.plist, and none for another key.",
      "CFBundle.h, CFBundleGetValueForInfoDictionaryKey") {
  const CFBundleRef bundle = CFBundleGetMainBundle();
  const auto* const version = CFBundleGetValueForInfoDictionaryKey(bundle, CFSTR("CFBundleShortVersionString"));
  EXPECT_EQ(CF::text(CF::cast<CFStringRef>(version, CFStringGetTypeID()).get()), "1.0");
  EXPECT_EQ(CFBundleGetValueForInfoDictionaryKey(bundle, CFSTR("NoSuchKey")), nullptr);
}

CLAIM(CoreFoundation, PathsComeBackFromTheirURLs, "The URL of a file gives back the file's path, whatever is in it.",
      "CFURL.h, CFURLCreateFromFileSystemRepresentation, CFURLGetFileSystemRepresentation") {
  for (const std::string& path : {"/a b/c%20d", "/Bücher/☃", "/q?r#s;t", "/"}) {
    const auto url = CF::adopt(CFURLCreateFromFileSystemRepresentation(
        kCFAllocatorDefault, reinterpret_cast<const UInt8*>(path.data()), static_cast<CFIndex>(path.size()), false));
    UInt8 back[64] = {};
    EXPECT_TRUE(CFURLGetFileSystemRepresentation(url.get(), true, back, sizeof back)) << path;
    EXPECT_EQ(reinterpret_cast<char*>(back), path);
  }
}

CLAIM(CoreFoundation, PathsAreNotCutToFit, "A buffer that is too small for a path is refused.",
      "CFURL.h, CFURLGetFileSystemRepresentation") {
  const auto url = CF::adopt(CFURLCreateFromFileSystemRepresentation(
      kCFAllocatorDefault, reinterpret_cast<const UInt8*>("/tmp/file"), 9, false));
  UInt8 path[10] = {};
  EXPECT_TRUE(CFURLGetFileSystemRepresentation(url.get(), true, path, 10));
  EXPECT_FALSE(CFURLGetFileSystemRepresentation(url.get(), true, path, 9));
}

CLAIM(CoreFoundation, FoldersLoseTheirLastSlash, "The path of a folder's URL has no slash at its end.",
      "CFURL.h, CFURLGetFileSystemRepresentation; observed") {
  const auto url = CF::adopt(CFURLCreateFromFileSystemRepresentation(
      kCFAllocatorDefault, reinterpret_cast<const UInt8*>("/tmp/folder"), 11, true));
  UInt8 path[64] = {};
  EXPECT_TRUE(CFURLGetFileSystemRepresentation(url.get(), true, path, sizeof path));
  EXPECT_STREQ(reinterpret_cast<char*>(path), "/tmp/folder");
}

CLAIM(CoreFoundation, TheClockCountsSeconds, "The absolute time goes on by a second a second.",
      "CFDate.h, CFAbsoluteTimeGetCurrent") {
  const CFAbsoluteTime before = CFAbsoluteTimeGetCurrent();
  claims::letRun(0.2);
  const double passed = CFAbsoluteTimeGetCurrent() - before;
  EXPECT_GE(passed, 0.19);
  EXPECT_LT(passed, 2);
}
