#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "simulator/foundation/PropertyList.h"

using nlohmann::json;
using simulator::readPropertyList;
using simulator::writePropertyList;

TEST(PropertyList, KeepsTypes) {
  const json value = {{"steps.A & <B>", 15},  {"big", INT64_MIN},
                      {"muted", true},        {"off", false},
                      {"text", " x\n\"ä\" "}, {"real", 0.1},
                      {"whole real", 8.0},    {"empty", ""},
                      {"list", {1, "a", {}}}, {"nothing", json::array()},
                      {"inner", {{"k", -1}}}, {"biggest", UINT64_MAX},
                      {"", "no name"}};
  const json read = readPropertyList(writePropertyList(value));
  EXPECT_EQ(read["steps.A & <B>"], 15);
  EXPECT_TRUE(read["steps.A & <B>"].is_number_integer());
  EXPECT_TRUE(read["whole real"].is_number_float());
  EXPECT_TRUE(read["muted"].is_boolean());
  EXPECT_EQ(read["text"], " x\n\"ä\" ");
  EXPECT_EQ(read["big"], INT64_MIN);
  EXPECT_EQ(read["biggest"], UINT64_MAX);
  EXPECT_EQ(read["real"], 0.1);
  EXPECT_EQ(read["inner"], value["inner"]);
  EXPECT_EQ(read["nothing"], json::array());
  EXPECT_EQ(read["empty"], "");
  EXPECT_EQ(read.value("", ""), "no name");
}

TEST(PropertyList, LooksAsTheSystemWritesIt) {
  const std::string text = writePropertyList({{"muted.HDMI", false}, {"steps.HDMI", 15}});
  EXPECT_NE(text.find("<plist version=\"1.0\">\n<dict>\n\t<key>muted.HDMI</key>\n\t<false/>\n\t<key>steps.HDMI</key>\n"
                      "\t<integer>15</integer>\n</dict>\n</plist>\n"),
            std::string::npos)
      << text;
}

TEST(PropertyList, ReadsWhatOthersWrite) {
  const json read = readPropertyList(
      "<?xml version=\"1.0\"?>\n<!-- by hand -->\n<plist version=\"1.0\"><dict><key>a&quot;b</key><dict/>"
      "<key>&#228;</key><array/><key>c</key><string><![CDATA[<&>]]></string><key>d</key><string/></dict></plist>");
  EXPECT_EQ(read, (json{{"a\"b", json::object()}, {"ä", json::array()}, {"c", "<&>"}, {"d", ""}}));
}

TEST(PropertyList, HasOneZero) {
  for (const char* const text : {"<real>-0ey</real>", "<real>-0.0</real>", "<real>-1e-400</real>"}) {
    const json read = readPropertyList(text);
    EXPECT_EQ(read.dump(), "0.0") << text;
    EXPECT_EQ(readPropertyList(writePropertyList(read)).dump(), "0.0") << text;
  }
}

TEST(PropertyList, RefusesWhatIsNone) {
  for (const char* const text :
       {"", "text", "<plist><string>open", "<plist><whatever/></plist>", "<plist><dict><true/></dict></plist>",
        "<plist><date>2020-01-01T00:00:00Z</date></plist>", "<plist><data>AAAA</data></plist>"}) {
    EXPECT_THROW((void)readPropertyList(text), std::runtime_error) << text;
  }
}

TEST(PropertyList, RefusesTheNullCharacter) {
  using namespace std::string_view_literals;
  EXPECT_THROW((void)readPropertyList("<plist><string>a\0b</string></plist>"sv), std::runtime_error);
  EXPECT_THROW((void)readPropertyList("<plist><string><![CDATA[a\0b]]></string></plist>"sv), std::runtime_error);
  EXPECT_THROW((void)readPropertyList("<plist><string>a&#0;b</string></plist>"sv), std::runtime_error);
}

TEST(PropertyList, RefusesWhatIsNestedWithoutEnd) {
  const auto nested = [](const std::string& open, const std::string& close, int depth) {
    std::string text;
    for (int i = 0; i < depth; ++i) text += open;
    for (int i = 0; i < depth; ++i) text += close;
    return "<plist>" + text + "</plist>";
  };
  EXPECT_THROW((void)readPropertyList(nested("<array>", "</array>", 100000)), std::runtime_error);
  EXPECT_THROW((void)readPropertyList(nested("<dict ><key>a</key>", "</dict>", 100000)), std::runtime_error);
  EXPECT_NO_THROW((void)readPropertyList(nested("<array>", "</array>", 100)));
  std::string flat;
  for (int i = 0; i < 1000; ++i) flat += "<array/><dict/>";
  EXPECT_NO_THROW((void)readPropertyList("<plist><array>" + flat + "</array></plist>"));
}
