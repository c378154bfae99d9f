// Texts on their way to the platform.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "base/Alerts.h"
#include "platform/CF.h"
#include "platform/Text.h"
#include "tests/support/Program.h"

using namespace std::string_literals;

namespace {

std::string repeated(const std::string& text, int times) {
  std::string result;
  for (int i = 0; i < times; ++i) result += text;
  return result;
}

// The lengths of the characters of a text, in UTF-16.
std::vector<CFIndex> charactersOf(const std::string& text) {
  const auto string = CF::string(text);
  std::vector<CFIndex> lengths;
  for (CFIndex at = 0; at < CFStringGetLength(string.get());) {
    const CFRange range = CFStringGetRangeOfComposedCharactersAtIndex(string.get(), at);
    EXPECT_EQ(range.location, at);
    for (CFIndex inside = at; inside < at + range.length; ++inside) {
      EXPECT_EQ(CFStringGetRangeOfComposedCharactersAtIndex(string.get(), inside).location, at);
    }
    lengths.push_back(range.length);
    at += range.length;
  }
  return lengths;
}

using Lengths = std::vector<CFIndex>;

}  // namespace

TEST(ValidText, KeepsWhatIsUTF8) {
  for (const std::string& text : {""s, "plain"s, "“quoted” \"\\\n\t"s, "ä😀"s, "\x7f\x01"s, "a\0b"s,
                                  "\u07FF\u0800\uFFFF"s, "\xED\x9F\xBF\xEE\x80\x80"s, "\U00010000\U0010FFFF"s}) {
    EXPECT_EQ(validText(text), text);
  }
}

TEST(ValidText, ReplacesWhatIsNot) {
  const std::string r = "\uFFFD";
  const std::pair<std::string, std::string> cases[] = {
      {"\x80", r},                          // nothing has begun
      {"a\xC3", "a" + r},                   // the end is missing
      {"\xC3("s, r + "("},                  // … in the middle
      {"\xE2\x82z", r + "z"},               // one for as much as could have become a character
      {"\xF0\x9F\x98", r},                  //
      {"\xF0\x9F\xC3\xA4", r + "ä"},        //
      {"\xC0\xAF", r + r},                  // longer than it needs to be
      {"\xE0\x9F\xBF", r + r + r},          //
      {"\xF0\x8F\xBF\xBF", r + r + r + r},  //
      {"\xED\xA0\x80", r + r + r},          // a surrogate
      {"\xF4\x90\x80\x80", r + r + r + r},  // beyond the last character
      {"\xF5\x80", r + r},                  //
      {"\xFF\xFE", r + r},                  //
      {"\x80\0\x80"s, r + "\0"s + r},       //
      {"ä\xE4ö\xF6ü\xFC", "ä" + r + "ö" + r + "ü" + r},
  };
  for (const auto& [text, valid] : cases) EXPECT_EQ(validText(text), valid);
}

TEST(StringObjects, AreMadeOfAnyText) {
  runAsProgram("", [] {
    EXPECT_EQ(CF::text(CF::string("half a character: \xC3").get()), "half a character: \uFFFD");
    EXPECT_EQ(CF::text(CF::string("a\0b"s).get()), "a\0b"s);
    EXPECT_EQ(CF::text(CF::string("").get()), "");
    EXPECT_EQ(CF::text(nullptr), "");
    EXPECT_EQ(CF::text(CF::string("ä😀b").get(), 3), "ä😀");
  });
}

TEST(StringObjects, KnowTheirCharacters) {
  runAsProgram("", [] {
    EXPECT_EQ(charactersOf(""), Lengths{});
    EXPECT_EQ(charactersOf("aä€😀"), (Lengths{1, 1, 1, 2}));
    EXPECT_EQ(charactersOf("e\u0301x\u0323\u0302"), (Lengths{2, 3}));
    EXPECT_EQ(charactersOf("👍🏽👍"), (Lengths{4, 2}));
    EXPECT_EQ(charactersOf("👨‍👩‍👧‍👦a"), (Lengths{11, 1}));
    EXPECT_EQ(charactersOf("🇩🇪🇩🇪🇩"), (Lengths{4, 4, 2}));
    EXPECT_EQ(charactersOf("❤️"), (Lengths{2}));
  });
}

TEST(TextForAlert, IsWholeUpTo4000Characters) {
  runAsProgram("", [] {
    for (const std::string& character : {"a"s, "ä"s, "\0"s, "😀"s, "e\u0301"s, "👨‍👩‍👧‍👦"s, "🇩🇪"s}) {
      EXPECT_EQ(textForAlert(repeated(character, 4000)), repeated(character, 4000));
      EXPECT_EQ(textForAlert(repeated(character, 4001)), repeated(character, 4000) + "…");
      EXPECT_EQ(textForAlert(repeated(character, 5000)), repeated(character, 4000) + "…");
    }
    EXPECT_EQ(textForAlert(""), "");
    EXPECT_EQ(textForAlert("half a character: \xC3"), "half a character: \uFFFD");
  });
}

TEST(TextForAlert, HasAnEndAlsoWhereACharacterHasNone) {
  runAsProgram("", [] {
    const std::string mark = "\u0301";
    EXPECT_EQ(textForAlert("abc" + repeated(mark, 1000)), "abc" + repeated(mark, 1000));
    EXPECT_EQ(textForAlert("abc" + repeated(mark, 63'997)), "abc" + repeated(mark, 63'997));
    EXPECT_EQ(textForAlert("abc" + repeated(mark, 63'998)), "ab…");
    EXPECT_EQ(textForAlert("abc" + repeated(mark, 1'000'000) + "d"), "ab…");
  });
}
