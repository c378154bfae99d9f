// What `ioreg -l -w0` writes, and what people send of it.
#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <functional>
#include <nlohmann/json.hpp>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "simulator/displays/RegistryText.h"

namespace {

using nlohmann::json;
using simulator::readRegistryText;
using simulator::RegistryEntry;

std::string sample() {
  std::ifstream file(REGISTRIES "/two-monitors.txt");
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

const std::string root = "+-o Root  <class IORegistryEntry, id 0x100000100, retain 12>\n";

// What is read of the value of a property; null when the property is left out.
json valueOf(const std::string& text) {
  const auto entries =
      readRegistryText(root + "  +-o A  <class B>\n      {\n        \"before\" = 1\n        \"key\" = " + text +
                       "\n        \"behind\" = 2\n      }\n");
  EXPECT_TRUE(entries) << text;
  const json& properties = entries->front()->properties;
  EXPECT_EQ(properties.value("before", 0), 1) << text;
  EXPECT_EQ(properties.value("behind", 0), 2) << text;
  return properties.value("key", json());
}

// The entry of that name whose way from the root is all first children, but for the numbers given.
const RegistryEntry& at(const std::vector<std::shared_ptr<const RegistryEntry>>& entries, std::size_t first,
                        const std::vector<std::size_t>& way) {
  const RegistryEntry* entry = entries.at(first).get();
  for (const std::size_t each : way) entry = entry->children.at(each).get();
  return *entry;
}

TEST(RegistryText, IsATreeOfNames) {
  const auto entries =
      readRegistryText(root +
                       "  +-o A@10  <class X, id 0x1, !registered, !matched, active, busy 0 (3 ms), retain 1>\n"
                       "  | +-o B  <class X, retain 1>\n"
                       "  | | +-o C@0,1  <class X>\n"
                       "  | +-o D E(F)  <class X>\r\n"
                       "  |   +-o A@b@10  <class X>\n"
                       "  +-o G  <class X>\n");
  ASSERT_TRUE(entries);
  ASSERT_EQ(entries->size(), 2U);
  EXPECT_EQ(at(*entries, 0, {}).name, "A");
  EXPECT_EQ(at(*entries, 0, {0}).name, "B");
  EXPECT_EQ(at(*entries, 0, {0, 0}).name, "C");
  EXPECT_EQ(at(*entries, 0, {1}).name, "D E(F)");
  EXPECT_EQ(at(*entries, 0, {1, 0}).name, "A@b");
  EXPECT_EQ(at(*entries, 1, {}).name, "G");
  EXPECT_TRUE(at(*entries, 1, {}).children.empty());
}

TEST(RegistryText, OfAPartOfTheTreeHasNoRoot) {
  const auto entries = readRegistryText("+-o A  <class X>\n  +-o B  <class X>\n+-o Root  <class X>\n");
  ASSERT_TRUE(entries);
  ASSERT_EQ(entries->size(), 2U);
  EXPECT_EQ(at(*entries, 0, {0}).name, "B");
  const auto two = readRegistryText(root + "  +-o A  <class X>\n" + root);
  ASSERT_TRUE(two);
  EXPECT_EQ(two->size(), 2U);
  // Cut off at its beginning: what is deeper than anything before it belongs to that.
  const auto cut = readRegistryText("  |   +-o A  <class X>\n  |   |   |   +-o B  <class X>\n  +-o C  <class X>\n");
  ASSERT_TRUE(cut);
  ASSERT_EQ(cut->size(), 1U);
  EXPECT_EQ(at(*cut, 0, {0}).name, "B");
  EXPECT_EQ(at(*cut, 0, {1}).name, "C");
}

TEST(RegistryText, HasPropertiesOfEveryKind) {
  EXPECT_EQ(valueOf("Yes"), true);
  EXPECT_EQ(valueOf("No"), false);
  EXPECT_EQ(valueOf("0"), 0);
  EXPECT_EQ(valueOf("18446744073709551615"), UINT64_MAX);
  EXPECT_EQ(valueOf("0x1f"), 31);
  EXPECT_EQ(valueOf("\"a text\""), "a text");
  EXPECT_EQ(valueOf("\"\""), "");
  EXPECT_EQ(valueOf("<00ff1A>"), json::binary({0x00, 0xFF, 0x1A}));
  EXPECT_EQ(valueOf("<>"), json::binary({}));
  EXPECT_EQ(valueOf("<\"a\",\"b c\">"), json::binary({'a', 0, 'b', ' ', 'c', 0}));
  EXPECT_EQ(valueOf("()"), json::array());
  EXPECT_EQ(valueOf("(1,\"two\",(3),{},Yes,<04>)"),
            json::array({1, "two", json::array({3}), json::object(), true, json::binary({4})}));
  EXPECT_EQ(valueOf("[1,\"two\"]"), json::array({1, "two"}));
  EXPECT_EQ(valueOf("{}"), json::object());
  EXPECT_EQ(valueOf(R"({"a"=1,"b c"={"d"="e","f"=()},"g"=No})"),
            json({{"a", 1}, {"b c", {{"d", "e"}, {"f", json::array()}}}, {"g", false}}));
}

TEST(RegistryText, MayHaveCarriageReturns) {
  const auto entries =
      readRegistryText("+-o A  <class X>\r\n    {\r\n      \"a\" = \"b\"\r\n      \"c\" = 1\r\n    }\r\n");
  ASSERT_TRUE(entries);
  EXPECT_EQ(entries->front()->properties, json({{"a", "b"}, {"c", 1}}));
}

TEST(RegistryText, DoesNotMarkQuotesInTexts) {
  EXPECT_EQ(valueOf(R"("a "b" = c")"), R"(a "b" = c)");
  EXPECT_EQ(valueOf(R"({"a"="27" wide","b"="x, "y"","c"=1})"),
            json({{"a", R"(27" wide)"}, {"b", R"(x, "y")"}, {"c", 1}}));
  EXPECT_EQ(valueOf(R"({"a"="27",34","b"=1})"), json({{"a", R"(27",34)"}, {"b", 1}}));
  EXPECT_EQ(valueOf(R"(("27" wide",""))"), json::array({R"(27" wide)", ""}));
  EXPECT_EQ(valueOf(R"(<"27" wide","b">)"), json::binary({'2', '7', '"', ' ', 'w', 'i', 'd', 'e', 0, 'b', 0}));
  EXPECT_EQ(valueOf(R"("| +-o B  <class X> {")"), "| +-o B  <class X> {");
}

TEST(RegistryText, LeavesOutWhatCannotBeRead) {
  for (const char* text : {"",
                           " ",
                           "\"",
                           "\"cut",
                           "Ye",
                           "Yes No",
                           "12a",
                           "-1",
                           "18446744073709551616",
                           "0x",
                           "<",
                           "<0",
                           "<0g>",
                           "<00",
                           "<00 00>",
                           "<\"a\"",
                           "<\"a\",b>",
                           "(",
                           "(1",
                           "(1,",
                           "(1,)",
                           "(1}",
                           "[1)",
                           "{",
                           "{\"a",
                           "{\"a\"",
                           "{\"a\"=",
                           "{\"a\"=1",
                           "{\"a\"=1,",
                           "{\"a\"=\"b",
                           "{\"a\"=\"b\"",
                           "{a=1}",
                           "{\"a\"=1,}",
                           "{\"a\"=1)",
                           "\"\xff\"",
                           "{\"\xff\"=1}",
                           "(\"\xff\")",
                           "<unknown>"}) {
    EXPECT_EQ(valueOf(text), json()) << text;
  }
  const auto nested = [](std::size_t depth) { return std::string(depth, '(') + std::string(depth, ')'); };
  EXPECT_NE(valueOf(nested(50)), json());
  EXPECT_EQ(valueOf(nested(100'000)), json());
}

TEST(RegistryText, IsToldFromOtherTexts) {
  for (const char* text : {"", "\n", "nonsense\n", "{\"do\":\"launch\"}\n", "+-o\n", "+-o A\n", "  <class X>\n",
                           "| {\n|   \"a\" = 1\n| }\n"}) {
    EXPECT_FALSE(readRegistryText(text)) << text;
  }
  std::string deep;
  for (std::size_t i = 0; i < 300; ++i) deep += std::string(2 * i, ' ') + "+-o A  <class X>\n";
  EXPECT_FALSE(readRegistryText(deep));
}

// ---- Which display an AV service reaches ----

std::string framebuffer(const std::string& attributes, const char* name = "IOMobileFramebufferShim") {
  return std::string("  +-o ") + name + "  <class X>\n    {\n      \"DisplayAttributes\" = {\"ProductAttributes\"={" +
         attributes + "}}\n    }\n";
}
const std::string identity = R"("LegacyManufacturerID"=1,"ProductID"=2,"SerialNumber"=4294967295)";
std::string service(const char* location = "External") {
  return std::string("  +-o DCPAVServiceProxy  <class X>\n    {\n      \"Location\" = \"") + location + "\"\n    }\n";
}

// For each AV service the identity of the display that it reaches and its place among its equals, or null.
json reaches(const std::string& text) {
  json result = json::array();
  const auto entries = readRegistryText(root + text);
  for (const auto& entry : *entries) {
    if (entry->name != "DCPAVServiceProxy") continue;
    if (!entry->reaches) {
      result.push_back(nullptr);
      continue;
    }
    const auto& [display, nth] = *entry->reaches;
    result.push_back({display.vendor, display.product, display.serial, nth});
  }
  return result;
}

TEST(RegistryText, AServiceReachesTheDisplayOfTheFramebufferBeforeIt) {
  const std::string other = R"("ProductID"=7,"Name"="x","LegacyManufacturerID"=6,"SerialNumber"=0)";
  EXPECT_EQ(reaches(framebuffer(identity) + service() + framebuffer(other, "AppleCLCD2") + service()),
            (json{{1, 2, UINT32_MAX, 0}, {6, 7, 0, 0}}));
  // Twins, and two services of one framebuffer.
  EXPECT_EQ(reaches(framebuffer(identity) + service() + framebuffer(identity) + service() + service()),
            (json{{1, 2, UINT32_MAX, 0}, {1, 2, UINT32_MAX, 1}, {1, 2, UINT32_MAX, 2}}));
}

TEST(RegistryText, AServiceWithoutSuchADisplayReachesNone) {
  EXPECT_EQ(reaches(service() + framebuffer(identity) + service("Embedded")), (json{nullptr, nullptr}));
  EXPECT_EQ(reaches(framebuffer(identity, "AppleCLCD3") + service()), json{nullptr});
  for (const char* attributes :
       {"", R"("LegacyManufacturerID"=1,"ProductID"=2)", R"("LegacyManufacturerID"=1,"SerialNumber"=3)",
        R"("ProductID"=2,"SerialNumber"=3)", R"("LegacyManufacturerID"=4294967296,"ProductID"=2,"SerialNumber"=3)",
        R"("LegacyManufacturerID"=1,"ProductID"="2","SerialNumber"=3)"}) {
    EXPECT_EQ(reaches(framebuffer(identity) + framebuffer(attributes) + service()), json{nullptr}) << attributes;
  }
}

TEST(RegistryText, OfARealMacIsReadWhole) {
  const auto entries = readRegistryText(sample());
  ASSERT_TRUE(entries);
  std::size_t count = 0;
  std::size_t external = 0;
  const std::function<void(const RegistryEntry&)> visit = [&](const RegistryEntry& entry) {
    ++count;
    external += entry.reaches ? 1 : 0;
    for (const auto& child : entry.children) visit(*child);
  };
  for (const auto& entry : *entries) visit(*entry);
  EXPECT_EQ(count, 49U);
  EXPECT_EQ(external, 2U);
  // Every property but the one that is cut.
  EXPECT_EQ(at(*entries, 0, {1}).properties, json({{"IOMatchCategory", "IODefaultMatchCategory"},
                                                   {"empty", json::object()},
                                                   {"none", json::array()},
                                                   {"nothing", json::array()}}));
  const RegistryEntry& platform = at(*entries, 0, {});
  EXPECT_EQ(platform.name, "J416cAP");
  EXPECT_EQ(platform.properties.size(), 6U);
}

TEST(RegistryText, WhateverIsDoneToItDoesNoHarm) {
  const std::string whole = sample();
  for (std::size_t length = 0; length < whole.size(); length += 37) (void)readRegistryText(whole.substr(0, length));
  std::mt19937 generator(1);
  constexpr std::string_view characters = "\"\"={}()[]<>,|+-o \n0aYN\xff";
  for (int round = 0; round < 200; ++round) {
    std::string changed = whole;
    for (int i = 0; i < 300; ++i) changed[generator() % changed.size()] = characters[generator() % characters.size()];
    EXPECT_TRUE(readRegistryText(changed));
  }
}

}  // namespace
