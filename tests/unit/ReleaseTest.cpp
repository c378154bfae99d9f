// The decoding of feed documents.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

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
  for (const char* value :
       {"\"\"", "\"not a url\"", "\"https://host name/\"", "\"https://[::1/\"", "\"https://h:port/\"", "\"%zz\"",
        "\"://nothing\"", "\"https://h/\\u0000\"", "\"https://hö/\""}) {
    EXPECT_THROW(decodeNewestRelease(feedWith("dmg_url", value)), json::exception) << value;
  }
  EXPECT_TRUE(decodeNewestRelease(feedWith("dmg_url", "\"https://h:8443/a%20b?c=d#e\"")));
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

TEST(ReleaseTest, OfDuplicateKeysTheLastCounts) {
  const std::string text = feedWith("notes", "\"first\",\"notes\":\"last\"");
  EXPECT_EQ(decodeNewestRelease(text)->notes, "last");
  EXPECT_THROW(decodeNewestRelease(feedWith("notes", "\"first\",\"notes\":7")), json::exception);
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

}  // namespace
