// Core Foundation collections, made from what C++ has. Usable from any thread.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "platform/CF.h"

namespace CF {

// What a collection holds, of any type.
[[nodiscard]] inline Ref<CFTypeRef> value(const std::string& text) { return retain<CFTypeRef>(string(text).get()); }
[[nodiscard]] inline Ref<CFTypeRef> value(bool flag) {
  return retain<CFTypeRef>(flag ? kCFBooleanTrue : kCFBooleanFalse);
}

using Entry = std::pair<CFStringRef, Ref<CFTypeRef>>;

// A dictionary that owns its keys and values; the keys need not live longer than the call.
[[nodiscard]] inline Ref<CFDictionaryRef> dictionary(const std::vector<Entry>& entries) {
  std::vector<const void*> keys;
  std::vector<const void*> values;
  for (const auto& [key, entry] : entries) {
    keys.push_back(key);
    values.push_back(entry.get());
  }
  return adopt(CFDictionaryCreate(kCFAllocatorDefault, keys.data(), values.data(), static_cast<CFIndex>(keys.size()),
                                  &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
}

// A list of one element.
[[nodiscard]] inline Ref<CFTypeRef> listOf(CFTypeRef element) {
  return adopt<CFTypeRef>(CFArrayCreate(kCFAllocatorDefault, &element, 1, &kCFTypeArrayCallBacks));
}

}  // namespace CF
