// Core Foundation's value types.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <cstdint>
#include <mutex>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "simulator/kernel/Object.h"

struct __CFString : simulator::Object {
  explicit __CFString(std::string utf8) : text(std::move(utf8)) {}
  std::string_view kind() const override { return "CFString"; }
  // Where each of its composed characters begins, and its end, in units of UTF-16.
  const std::vector<CFIndex>& boundaries() const;
  const std::string text;

 private:
  mutable std::once_flag found_;
  mutable std::vector<CFIndex> boundaries_;
};

struct __CFNumber : simulator::Object {
  explicit __CFNumber(std::variant<std::int64_t, double> number) : value(number) {}
  std::string_view kind() const override { return "CFNumber"; }
  const std::variant<std::int64_t, double> value;
};

struct __CFBoolean : simulator::Object {
  explicit __CFBoolean(bool truth) : value(truth) { makeImmortal(); }
  std::string_view kind() const override { return "CFBoolean"; }
  const bool value;
};

struct __CFArray : simulator::Object {
  ~__CFArray() override;
  std::string_view kind() const override { return "CFArray"; }
  std::vector<CFTypeRef> values;  // retained
};

struct __CFDictionary : simulator::Object {
  ~__CFDictionary() override;
  std::string_view kind() const override { return "CFDictionary"; }
  std::vector<std::pair<CFTypeRef, CFTypeRef>> values;  // retained
};

namespace simulator {

// The JSON value as a property-list object, owned by the caller; null has no such form and gives none.
CFTypeRef createPropertyList(const nlohmann::json& value);
// The reverse; an object of another type gives null.
nlohmann::json jsonOf(CFTypeRef object);
// The text of a string object that the program handed to `call`.
const std::string& textOf(CFTypeRef string, const char* call);
// Whether the text is well-formed; string objects of the platform can be made of nothing else.
bool isUTF8(std::string_view text);
// The text, which the program hands to `call`: no NSString can be made of what is not UTF-8, and most of Apple's
// methods raise an exception when they are given nil.
const std::string& requireUTF8(const std::string& text, const char* call);
// A string object that lives for ever.
CFStringRef constantString(std::string_view text);

}  // namespace simulator
