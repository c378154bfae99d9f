#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "brightness/DDCChannel.h"
#include "simulator/foundation/CoreFoundation.h"

using nlohmann::json;

namespace {

struct Entry {
  std::string name;
  json properties;
};

json attributes(const json& vendor, const json& product, const json& serial) {
  return {
      {"DisplayAttributes",
       {{"ProductAttributes", {{"LegacyManufacturerID", vendor}, {"ProductID", product}, {"SerialNumber", serial}}}}}};
}

Entry framebuffer(std::uint32_t serial) { return {"AppleCLCD2", attributes(1, 2, serial)}; }
Entry proxy(const json& location = "External") { return {"DCPAVServiceProxy", {{"Location", location}}}; }

// The serial numbers of the identities found, in order.
std::vector<std::uint32_t> found(const std::vector<Entry>& entries) {
  DDCChannel::IdentityFinder finder;
  std::vector<std::uint32_t> serials;
  for (const Entry& entry : entries) {
    const auto identity = finder.visit(entry.name, [&entry](CFStringRef name) {
      const auto property = entry.properties.find(CF::text(name));
      return CF::adopt(property == entry.properties.end() ? CFTypeRef{} : simulator::createPropertyList(*property));
    });
    if (identity) serials.push_back(identity->serial);
  }
  return serials;
}

using Serials = std::vector<std::uint32_t>;

}  // namespace

TEST(IdentityFinder, PairsAProxyWithTheFramebufferBeforeIt) {
  EXPECT_EQ(found({framebuffer(7), proxy(), framebuffer(8), proxy()}), (Serials{7, 8}));
}

TEST(IdentityFinder, KnowsBothFramebufferNames) {
  EXPECT_EQ(found({{"IOMobileFramebufferShim", attributes(1, 2, 9)}, proxy()}), (Serials{9}));
  EXPECT_EQ(found({{"IOMobileFramebuffer", attributes(1, 2, 9)}, proxy()}), (Serials{}));
}

TEST(IdentityFinder, GivesTwoProxiesTheSameIdentity) {
  EXPECT_EQ(found({framebuffer(7), proxy(), proxy()}), (Serials{7, 7}));
}

TEST(IdentityFinder, ForgetsTheIdentityAtABrokenFramebuffer) {
  const std::vector<json> broken = {
      json::object(),
      {{"DisplayAttributes", "text"}},
      {{"DisplayAttributes", json::object()}},
      {{"DisplayAttributes", {{"ProductAttributes", 5}}}},
  };
  for (const json& properties : broken) {
    EXPECT_EQ(found({framebuffer(7), {"AppleCLCD2", properties}, proxy()}), (Serials{})) << properties;
  }
}

TEST(IdentityFinder, KeepsTheIdentityAcrossOtherEntries) {
  EXPECT_EQ(found({framebuffer(7), {"AppleARMIODevice", json::object()}, {"", json::object()}, proxy()}), (Serials{7}));
}

TEST(IdentityFinder, SkipsProxiesThatAreNotExternal) {
  EXPECT_EQ(found({framebuffer(7), proxy("Embedded")}), (Serials{}));
  EXPECT_EQ(found({framebuffer(7), proxy(1)}), (Serials{}));
  EXPECT_EQ(found({framebuffer(7), proxy("external")}), (Serials{}));
  EXPECT_EQ(found({framebuffer(7), {"DCPAVServiceProxy", json::object()}}), (Serials{}));
  EXPECT_EQ(found({framebuffer(7), proxy("Embedded"), proxy()}), (Serials{7}));
}

TEST(IdentityFinder, SkipsAProxyBeforeAnyFramebuffer) { EXPECT_EQ(found({proxy(), framebuffer(7)}), (Serials{})); }

TEST(DisplayIdentity, NeedsAllThreeNumbersIn32Bits) {
  const auto identity = [](const json& product) {
    const auto list = CF::adopt(simulator::createPropertyList(product));
    return DisplayIdentity::fromProductAttributes(static_cast<CFDictionaryRef>(list.get()));
  };
  const json whole = {{"LegacyManufacturerID", 4268}, {"ProductID", 41200}, {"SerialNumber", 4294967295}};
  EXPECT_EQ(identity(whole), (DisplayIdentity{4268, 41200, 4294967295}));
  for (const char* const key : {"LegacyManufacturerID", "ProductID", "SerialNumber"}) {
    for (const json& wrong : {json(-1), json(4294967296), json("7"), json(true), json(1e30)}) {
      json changed = whole;
      changed[key] = wrong;
      EXPECT_FALSE(identity(changed)) << changed;
    }
    json lacking = whole;
    lacking.erase(key);
    EXPECT_FALSE(identity(lacking)) << lacking;
  }
}

TEST(DisplayIdentity, EqualsByAllThreeNumbers) {
  const DisplayIdentity identity{1, 2, 3};
  EXPECT_EQ(identity, (DisplayIdentity{1, 2, 3}));
  EXPECT_NE(identity, (DisplayIdentity{9, 2, 3}));
  EXPECT_NE(identity, (DisplayIdentity{1, 9, 3}));
  EXPECT_NE(identity, (DisplayIdentity{1, 2, 9}));
}
