// The decoding of feed documents.
#include <gtest/gtest.h>

#include <algorithm>
#include <ctime>
#include <iterator>
#include <nlohmann/json.hpp>
#include <random>
#include <regex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tests/support/FeedText.h"
#include "updater/Release.h"

namespace {

using nlohmann::json;

json release() {
  return {{"version", "1.4.0"},
          {"date", "2025-03-02"},
          {"dmg_url", "https://releases.dalvane.example/Dalvane-1.4.0.dmg"},
          {"size_bytes", 4812345},
          {"notes", "Fixes volume keys after sleep."}};
}

std::optional<Release> decode(const json& document) { return decodeNewestRelease(document.dump()); }

// A feed of one release in which `key` has the given JSON text as its value.
std::string feedWith(const std::string& key, const std::string& value) {
  json changed = release();
  changed[key] = "@";
  std::string text = json::array({changed}).dump();
  return text.replace(text.find("\"@\""), 3, value);
}

// What is said of a document that is refused.
std::string errorOf(std::string_view document) {
  try {
    static_cast<void>(decodeNewestRelease(document));
  } catch (const json::exception& error) {
    return error.what();
  }
  return "none";
}

TEST(ReleaseTest, TheFirstReleaseIsTaken) {
  json second = release();
  second["version"] = "1.3.2";
  const auto newest = decode(json::array({release(), second}));
  ASSERT_TRUE(newest);
  EXPECT_EQ(newest->version, "1.4.0");
  EXPECT_EQ(newest->date, "2025-03-02");
  EXPECT_EQ(newest->dmgURL.absoluteString(), "https://releases.dalvane.example/Dalvane-1.4.0.dmg");
  EXPECT_EQ(newest->sizeBytes, 4812345);
  EXPECT_EQ(newest->notes, "Fixes volume keys after sleep.");
}

TEST(ReleaseTest, AnEmptyFeedHasNone) { EXPECT_FALSE(decodeNewestRelease(" [ ] ")); }

TEST(ReleaseTest, EveryKeyIsRequiredInEveryRelease) {
  for (const char* key : {"version", "date", "dmg_url", "size_bytes", "notes"}) {
    json lacking = release();
    lacking.erase(key);
    EXPECT_THROW(decode(json::array({lacking})), json::exception) << key;
    EXPECT_THROW(decode(json::array({release(), lacking})), json::exception) << key;
    EXPECT_THROW(decodeNewestRelease(feedWith(key, "null")), json::exception) << key;
    EXPECT_THROW(decodeNewestRelease(feedWith(key, "[]")), json::exception) << key;
    EXPECT_THROW(decodeNewestRelease(feedWith(key, "{\"a\":1}")), json::exception) << key;
    EXPECT_THROW(decodeNewestRelease(feedWith(key, "true")), json::exception) << key;
  }
  for (const char* key : {"version", "date", "dmg_url", "notes"}) {
    EXPECT_THROW(decodeNewestRelease(feedWith(key, "1")), json::exception) << key;
  }
}

TEST(ReleaseTest, KeysAreMatchedExactly) {
  json other = release();
  other.erase("dmg_url");
  other["dmgURL"] = "https://releases.dalvane.example/";
  EXPECT_THROW(decode(json::array({other})), json::exception);
  other = release();
  other.erase("version");
  other["Version"] = "1.4.0";
  EXPECT_THROW(decode(json::array({other})), json::exception);
}

TEST(ReleaseTest, FurtherKeysAreIgnored) {
  json more = release();
  more["mandatory"] = true;
  more["channels"] = {{"beta", {1, 2, {{"deep", "er"}}}}};
  more["nothing"] = nullptr;
  EXPECT_EQ(decode(json::array({more}))->version, "1.4.0");
}

TEST(ReleaseTest, WhatIsDeeperHasKeysOfItsOwn) {
  EXPECT_EQ(decodeNewestRelease(feedWith("notes", R"("n","extra":{"version":"x","size_bytes":7},"a":8)"))->version,
            "1.4.0");
  EXPECT_EQ(decodeNewestRelease(feedWith("date", R"("d","extra":{"notes":"x","size_bytes":[7]})"))->notes,
            "Fixes volume keys after sleep.");
  EXPECT_EQ(
      decodeNewestRelease(feedWith("size_bytes", R"(1,"extra":2,"a":-2,"more":[3,-3,{"size_bytes":4}])"))->sizeBytes,
      1);
  json lacking = release();
  lacking.erase("notes");
  lacking["extra"] = {{"notes", "n"}};
  EXPECT_THROW(decode(json::array({lacking})), json::exception);
}

TEST(ReleaseTest, SizesAreWholeNumbersOf64Bits) {
  EXPECT_EQ(decodeNewestRelease(feedWith("size_bytes", "-1"))->sizeBytes, -1);
  EXPECT_EQ(decodeNewestRelease(feedWith("size_bytes", "0"))->sizeBytes, 0);
  EXPECT_EQ(decodeNewestRelease(feedWith("size_bytes", "9223372036854775807"))->sizeBytes, INT64_MAX);
  EXPECT_EQ(decodeNewestRelease(feedWith("size_bytes", "-9223372036854775808"))->sizeBytes, INT64_MIN);
  for (const char* value : {"4812345.0", "\"4812345\"", "4.8e6", "9223372036854775808", "-9223372036854775809",
                            "18446744073709551616", "1e400", "0x10", "+1", "01", "NaN"}) {
    EXPECT_THROW(decodeNewestRelease(feedWith("size_bytes", value)), json::exception) << value;
  }
}

TEST(ReleaseTest, AnAddressMustBeAURL) {
  for (const char* value : {"\"\"", "\"https://host name/\"", "\"https://[::1/\"", "\"https://h:port/\"",
                            "\"://nothing\"", "\"https://ö..example/\"", "\"1https://h/\""}) {
    EXPECT_THROW(decodeNewestRelease(feedWith("dmg_url", value)), json::exception) << value;
  }
  EXPECT_TRUE(decodeNewestRelease(feedWith("dmg_url", "\"https://h:8443/a%20b?c=d#e\"")));
}

TEST(ReleaseTest, WhatAnAddressMayNotHoldIsEncoded) {
  const std::pair<const char*, const char*> cases[] = {{"https://h/a%20b?c=d#e", "https://h/a%20b?c=d#e"},
                                                       {"https://h/Dalvane 1.4.dmg", "https://h/Dalvane%201.4.dmg"},
                                                       {"https://h/für/alle.dmg", "https://h/f%C3%BCr/alle.dmg"},
                                                       {"https://h/50% off", "https://h/50%25%20off"},
                                                       {"https://h/a\\u0000b", "https://h/a%00b"},
                                                       {"not a url", "not%20a%20url"},
                                                       {"%zz", "%25zz"}};
  for (const auto& [text, url] : cases) {
    const auto decoded = decodeNewestRelease(feedWith("dmg_url", "\"" + std::string(text) + "\""));
    EXPECT_EQ(decoded->dmgURL.absoluteString(), url);
  }
}

TEST(ReleaseTest, AHostsNameIsWrittenAsItIsLookedUp) {
  const auto decoded = decodeNewestRelease(feedWith("dmg_url", "\"https://Bücher.example/x.dmg\""));
  EXPECT_EQ(decoded->dmgURL.absoluteString(), "https://xn--bcher-kva.example/x.dmg");
}

TEST(ReleaseTest, AnythingElseThanAnArrayOfReleasesIsRefused) {
  const std::string good = json::array({release()}).dump();
  for (const std::string& document :
       {std::string(), std::string("null"), std::string("1"), std::string("\"text\""), std::string("{}"),
        "{\"releases\":" + good + "}", std::string("[null]"), std::string("[[]]"), std::string("[1]"),
        std::string("[\"1.4.0\"]"), good + "]", good + "x", good.substr(1), good.substr(0, good.size() - 1),
        good.substr(0, good.size() / 2), "[" + good + "]", std::string("<html></html>"),
        std::string(good.size(), '\0')}) {
    EXPECT_THROW(decodeNewestRelease(document), json::exception) << document;
  }
}

TEST(ReleaseTest, TextMustBeUTF8) {
  EXPECT_THROW(decodeNewestRelease(feedWith("notes", "\"\xff\"")), json::exception);
  EXPECT_THROW(decodeNewestRelease(feedWith("notes", "\"\xc3\"")), json::exception);
  EXPECT_THROW(decodeNewestRelease(feedWith("notes", "\"\xed\xa0\x80\"")), json::exception);
  EXPECT_THROW(decodeNewestRelease(feedWith("notes", "\"\\ud800\"")), json::exception);
  EXPECT_EQ(decodeNewestRelease(feedWith("notes", "\"\\u00e4\\ud83d\\ude00\""))->notes, "ä😀");
}

// As the Mac's own decoder has it.
TEST(ReleaseTest, OfDuplicateKeysTheFirstCounts) {
  const std::string text = feedWith("notes", "\"first\",\"notes\":\"last\"");
  EXPECT_EQ(decodeNewestRelease(text)->notes, "first");
  EXPECT_EQ(decodeNewestRelease(feedWith("notes", "\"first\",\"notes\":7"))->notes, "first");
  EXPECT_EQ(decodeNewestRelease(feedWith("size_bytes", "1,\"size_bytes\":2"))->sizeBytes, 1);
  EXPECT_EQ(decodeNewestRelease(feedWith("size_bytes", "1,\"size_bytes\":9223372036854775808"))->sizeBytes, 1);
  EXPECT_THROW(decodeNewestRelease(feedWith("notes", "7,\"notes\":\"last\"")), json::exception);
  // It does so in each release for itself.
  json lacking = release();
  lacking.erase("notes");
  EXPECT_THROW(decode(json::array({release(), lacking})), json::exception);
  EXPECT_THROW(decodeNewestRelease("[" + release().dump() + "," + feedWith("notes", "7").substr(1)), json::exception);
}

TEST(ReleaseTest, NumbersThatAreIgnoredMayBeOfAnySize) {
  const std::string digits(1000, '9');
  for (const std::string& value :
       {std::string("1e400"), std::string("-1e400"), std::string("1E+400"), std::string("1e-400"), digits, "-" + digits,
        digits + "." + digits, std::string("18446744073709551616")}) {
    EXPECT_EQ(decodeNewestRelease(feedWith("notes", "\"n\",\"extra\":" + value))->notes, "n") << value;
    EXPECT_EQ(decodeNewestRelease(feedWith("notes", "\"n\",\"extra\":[{\"a\":" + value + "}]"))->notes, "n") << value;
    EXPECT_THROW(decodeNewestRelease(feedWith("size_bytes", value)), json::type_error) << value;
    EXPECT_THROW(decodeNewestRelease(feedWith("notes", value)), json::type_error) << value;
  }
}

TEST(ReleaseTest, WhatStandsBesideSuchNumbersIsReadAsItIs) {
  const std::string digits(400, '9');
  const auto notesBeside = [](const std::string& notes, const std::string& extra) {
    return decodeNewestRelease(feedWith("notes", notes + ",\"extra\":" + extra))->notes;
  };
  // Texts are left alone, wherever they end.
  for (const std::string& text : {"1e5 " + digits + ".5", std::string(R"(\"1e5\")"), std::string(R"(\\)"),
                                  R"(\\\"1e5 )" + digits, std::string("true 1e5")}) {
    const std::string decoded = json::parse("\"" + text + "\"");
    EXPECT_EQ(notesBeside("\"" + text + "\"", "1e999"), decoded);
    EXPECT_EQ(notesBeside("\"" + text + "\"", digits), decoded);
  }
  // Each number is one of its own.
  for (const std::string& before :
       {std::string("0.5"), std::string("1e5"), std::string("-1.5E-7"), digits, digits + ".5", digits + "e5",
        std::string("true"), std::string("\"\\\\\""), std::string("[]")}) {
    for (const std::string& number : {digits, digits + ".5", std::string("1e999")}) {
      EXPECT_EQ(notesBeside("\"n\"", "[" + before + "," + number + "]"), "n") << before;
    }
  }
  // From the size of an integer to that of more than any.
  for (std::size_t count = 1; count <= 50; ++count) {
    EXPECT_EQ(notesBeside("\"n\"", std::string(count, '9')), "n") << count;
    EXPECT_EQ(notesBeside("\"n\"", std::string(count, '9') + ".9"), "n") << count;
  }
}

TEST(ReleaseTest, ADocumentMayEndAnywhere) {
  // Nothing behind its end is looked at, however the number there could go on.
  for (std::size_t count = 1; count <= 50; ++count) {
    const std::string digits = "[{\"a\":" + std::string(count, '9');
    const std::string whole = digits + ".59";
    for (const auto& [cut, wrong] : {std::pair(whole.substr(0, digits.size()), "unexpected end of input"),
                                     std::pair(whole.substr(0, digits.size() + 1), "invalid ")}) {
      const std::string error = errorOf(std::string_view(whole).substr(0, cut.size()));
      EXPECT_NE(error.find(wrong), std::string::npos) << error;
      EXPECT_EQ(errorOf({std::vector(cut.begin(), cut.end()).data(), cut.size()}), error);
    }
    EXPECT_EQ(errorOf(std::string_view(digits + "9").substr(0, digits.size())), errorOf(digits));
  }
}

// Other numbers than those change nothing about what is a document and what is none. By a seed: where throwing takes
// long, one will do.
class ReleaseNumbersTest : public testing::TestWithParam<unsigned> {};

TEST_P(ReleaseNumbersTest, AreHeldAgainstTheGrammarWhateverTheirSize) {
  const std::string many(25, '7');
  const std::string tooMany(400, '7');
  const std::pair<std::string, std::string> words[] = {
      {"1", "1"},   {"0", "0"},   {many, tooMany},  {many, many}, {"e99", "e999"}, {"E-9", "E-99999"},
      {"e+", "e+"}, {"e", "e"},   {".", "."},       {".", "."},   {"-", "-"},      {"+", "+"},
      {",", ","},   {" ", " "},   {"[", "["},       {"]", "]"},   {"]", "]"},      {"\"", "\""},
      {"\"", "\""}, {"\\", "\\"}, {"true", "true"}, {"x", "x"},   {"[1", "[1"},    {"\"e\"", "\"e\""},
  };
  std::mt19937 generator(GetParam());
  int accepted = 0;
  for (int i = 0; i < 10'000; ++i) {
    std::string moderate;
    std::string extreme;
    for (std::size_t count = 1 + generator() % 6; count > 0; --count) {
      const auto& [one, other] = words[generator() % std::size(words)];
      moderate += one;
      extreme += other;
    }
    bool isDocument = true;
    try {
      static_cast<void>(json::parse("[{\"a\":" + moderate + "}]"));
    } catch (const json::parse_error&) {
      isDocument = false;
    } catch (const json::out_of_range&) {
      continue;  // not that moderate
    }
    bool isTaken = true;
    try {
      static_cast<void>(decodeNewestRelease(feedWith("notes", "\"n\",\"extra\":" + extreme)));
    } catch (const json::exception&) {
      isTaken = false;
    }
    accepted += isDocument ? 1 : 0;
    ASSERT_EQ(isTaken, isDocument) << extreme;
  }
  EXPECT_GT(accepted, 300);
  for (const char* const after :
       {".", "..7", ".e7", "e", "e.7", "e-.7", "e-", "-", "+7", ".7.7", "e7.7", "e7e7", "-7", " 7"}) {
    for (const std::string& number : {tooMany, std::string(20, '7'), std::string(21, '7')}) {
      EXPECT_THROW(decodeNewestRelease(feedWith("notes", "\"n\",\"extra\":" + number + after)), json::parse_error)
          << number << after;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Seed, ReleaseNumbersTest, testing::Values(1U, 2U, 3U), testing::PrintToStringParamName());

TEST(ReleaseTest, WhatFollowsTheArrayIsRefused) {
  using namespace std::string_literals;
  const std::string good = json::array({release()}).dump();
  EXPECT_TRUE(decodeNewestRelease(good + " \r\n\t"));
  EXPECT_TRUE(decodeNewestRelease("\xef\xbb\xbf" + good));  // a byte order mark
  for (const std::string& after : {"x"s, "[]"s, ","s, "\0"s, "\0x"s, "\0\0"s, " \0[]"s}) {
    EXPECT_THROW(decodeNewestRelease(good + after), json::parse_error) << after;
  }
  EXPECT_THROW(decodeNewestRelease("\0"s + good), json::parse_error);
  EXPECT_THROW(decodeNewestRelease("["s + release().dump() + "\0]"s), json::parse_error);
  EXPECT_THROW(decodeNewestRelease(feedWith("notes", "\"a\0b\""s)), json::parse_error);
  EXPECT_EQ(decodeNewestRelease(feedWith("notes", "\"a\\u0000b\""))->notes, "a\0b"s);
}

// The texts are what the user is shown.
TEST(ReleaseTest, ErrorsSayWhatIsWrong) {
  json lacking = release();
  lacking.erase("size_bytes");
  const std::pair<std::string, std::string> cases[] = {
      {"{}", "[json.exception.type_error.302] type must be array, but is object"},
      {"7", "[json.exception.type_error.302] type must be array, but is number"},
      {"[[]]", "[json.exception.type_error.302] type must be object, but is array"},
      {"[null]", "[json.exception.type_error.302] type must be object, but is null"},
      {json::array({lacking}).dump(), "[json.exception.out_of_range.403] key 'size_bytes' not found"},
      {feedWith("notes", "7"), "[json.exception.type_error.302] type must be string, but is number"},
      {feedWith("notes", "7.0"), "[json.exception.type_error.302] type must be string, but is number"},
      {feedWith("date", "true"), "[json.exception.type_error.302] type must be string, but is boolean"},
      {feedWith("version", "{}"), "[json.exception.type_error.302] type must be string, but is object"},
      {feedWith("size_bytes", "\"7\""), "[json.exception.type_error.302] type must be integer, but is string"},
      {feedWith("size_bytes", "7.0"), "[json.exception.type_error.302] type must be integer, but is number"},
      {feedWith("size_bytes", "9223372036854775808"),
       "[json.exception.out_of_range.406] number does not fit 64 signed bits"},
      {feedWith("size_bytes", "18446744073709551615"),
       "[json.exception.out_of_range.406] number does not fit 64 signed bits"},
      {feedWith("size_bytes", "184467440737095516150"),
       "[json.exception.type_error.302] type must be integer, but is number"},
      {feedWith("dmg_url", "\"https://h:x/\""), "[json.exception.other_error.501] invalid URL string"},
      {std::string("[]\0", 3),
       "[json.exception.parse_error.101] parse error at byte 3: syntax error - there is a null "
       "character"},
      {"[x]",
       "[json.exception.parse_error.101] parse error at line 1, column 2: syntax error while parsing value - "
       "invalid literal; last read: '[x'"}};
  for (const auto& [document, text] : cases) {
    try {
      static_cast<void>(decodeNewestRelease(document));
      ADD_FAILURE() << document;
    } catch (const json::exception& error) {
      EXPECT_EQ(error.what(), text);
    }
  }
}

TEST(ReleaseTest, AnErrorQuotesLittleOfWhatWasRead) {
  const std::string long_text(1'000'000, 'n');
  for (const std::string& document : {"[\"" + long_text, "[{\"" + long_text + "\":nul}]", "[{\"a\":1" + long_text,
                                      feedWith("notes", "\"" + long_text + "\x01\"")}) {
    try {
      static_cast<void>(decodeNewestRelease(document));
      ADD_FAILURE();
    } catch (const json::exception& error) {
      const std::string text = error.what();
      EXPECT_LT(text.size(), 500U);
      const std::regex beginning(
          R"(\[json\.exception\.parse_error\.101\] parse error at (byte \d+|line \d+, column \d+): syntax error while .*)");
      EXPECT_TRUE(std::regex_match(text.substr(0, 150), beginning)) << text;
    }
  }
}

TEST(ReleaseTest, AnErrorQuotesUpTo200BytesWhole) {
  std::size_t longest = 0;
  for (std::size_t length = 150; length < 250; ++length) {
    const std::string text = errorOf("[\"" + std::string(length, 'n'));
    const std::string before = "last read: '";
    if (text.ends_with("'")) longest = std::max(longest, text.size() - 1 - text.find(before) - before.size());
  }
  EXPECT_EQ(longest, 200U);
}

TEST(ReleaseTest, ANumberMayEndTheDocument) {
  for (const std::size_t count : {1U, 19U, 20U, 21U, 22U, 23U, 30U, 400U}) {
    for (const std::string& end : {std::string(), std::string(".5")}) {
      const std::string document = std::string(count, '9') + end;
      // Nothing behind it is looked at.
      const std::vector<char> cut(document.begin(), document.end());
      EXPECT_EQ(errorOf({cut.data(), cut.size()}), "[json.exception.type_error.302] type must be array, but is number")
          << document;
      EXPECT_NE(errorOf("[{\"a\":" + document).find("unexpected end of input"), std::string::npos) << document;
    }
  }
}

TEST(ReleaseTest, DeepNestingDoesNoHarm) {
  constexpr std::size_t depth = 1'000'000;
  const std::string nested = std::string(depth, '[') + std::string(depth, ']');
  EXPECT_THROW(decodeNewestRelease(nested), json::exception);
  EXPECT_THROW(decodeNewestRelease(std::string(depth, '[')), json::exception);
  std::string objects;
  for (std::size_t i = 0; i < depth; ++i) objects += "{\"a\":";
  EXPECT_THROW(decodeNewestRelease(objects), json::exception);
  EXPECT_EQ(decodeNewestRelease(feedWith("notes", "\"n\",\"extra\":" + nested))->notes, "n");
}

// A release with a megabyte of nonsense takes milliseconds; with time that grows with the square of it, a minute.
TEST(ReleaseTest, NonsenseTakesNoLongerThanSense) {
  for (const Nonsense& kind : nonsense) {
    const std::string document = feedWithNonsense(kind, 1'000'000);
    const std::clock_t before = std::clock();
    try {
      static_cast<void>(decodeNewestRelease(document));
    } catch (const json::exception&) {
      EXPECT_TRUE(kind.refused) << kind.name;
    }
    EXPECT_LT(static_cast<double>(std::clock() - before) / CLOCKS_PER_SEC, 3) << kind.name;
  }
}

}  // namespace
