// Owning references to Core Foundation objects.
//
// A reference is owned from the line that gets it: `CF::adopt` takes over what a Create or Copy function
// returned, `CF::retain` shares what a Get function returned. Usable from any thread, as the objects are.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "platform/Text.h"

namespace CF {

template <typename T>
class Ref {
 public:
  Ref() noexcept = default;
  Ref(const Ref& other) noexcept : object_(other.object_) {
    if (object_) CFRetain(object_);
  }
  Ref(Ref&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
  Ref& operator=(Ref other) noexcept {
    std::swap(object_, other.object_);
    return *this;
  }
  ~Ref() {
    if (object_) CFRelease(object_);
  }

  [[nodiscard]] T get() const noexcept { return object_; }
  explicit operator bool() const noexcept { return object_ != nullptr; }

 private:
  template <typename U>
  friend Ref<U> adopt(U object) noexcept;

  T object_ = nullptr;
};

// Owns `object`, which a Create or Copy function returned (it may be null).
template <typename T>
[[nodiscard]] Ref<T> adopt(T object) noexcept {
  Ref<T> ref;
  ref.object_ = object;
  return ref;
}

// Shares `object`, which a Get function returned or a caller lent (it may be null).
template <typename T>
[[nodiscard]] Ref<T> retain(T object) noexcept {
  if (object) CFRetain(object);
  return adopt(object);
}

// The object as `T`, shared, when it is one (`typeID` is T's own); otherwise null.
template <typename T>
[[nodiscard]] Ref<T> cast(CFTypeRef object, CFTypeID typeID) noexcept {
  if (!object || CFGetTypeID(object) != typeID) return {};
  return retain(static_cast<T>(object));
}

// A string object with the given UTF-8 text; what is not UTF-8 is replaced.
[[nodiscard]] inline Ref<CFStringRef> string(std::string_view text) {
  const std::string valid = validText(text);
  return adopt(CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(valid.data()),
                                       static_cast<CFIndex>(valid.size()), kCFStringEncodingUTF8, false));
}

// The first `length` UTF-16 units of the string in UTF-8; half a character at their end becomes a question mark.
[[nodiscard]] inline std::string text(CFStringRef string, CFIndex length) {
  const CFRange range = CFRangeMake(0, length);
  CFIndex size = 0;
  CFStringGetBytes(string, range, kCFStringEncodingUTF8, '?', false, nullptr, 0, &size);
  std::string result(static_cast<std::size_t>(size), '\0');
  CFStringGetBytes(string, range, kCFStringEncodingUTF8, '?', false, reinterpret_cast<UInt8*>(result.data()), size,
                   nullptr);
  return result;
}

// The string's text in UTF-8; empty when there is no string.
[[nodiscard]] inline std::string text(CFStringRef string) {
  return string ? text(string, CFStringGetLength(string)) : std::string();
}

// A number object holding a signed 64-bit integer.
[[nodiscard]] inline Ref<CFNumberRef> number(std::int64_t value) {
  return adopt(CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt64Type, &value));
}

// The number as a signed 64-bit integer; none when `object` is not a number or the value does not fit without loss.
[[nodiscard]] inline std::optional<std::int64_t> integer(CFTypeRef object) {
  std::int64_t value = 0;
  if (!object || CFGetTypeID(object) != CFNumberGetTypeID() ||
      !CFNumberGetValue(static_cast<CFNumberRef>(object), kCFNumberSInt64Type, &value)) {
    return std::nullopt;
  }
  return value;
}

}  // namespace CF
