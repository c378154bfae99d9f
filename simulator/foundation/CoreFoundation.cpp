#include "simulator/foundation/CoreFoundation.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <map>
#include <mutex>
#include <nlohmann/json.hpp>

#include "simulator/foundation/Foundation.h"
#include "simulator/kernel/Call.h"

using simulator::live;

__CFArray::~__CFArray() {
  for (const CFTypeRef value : values) simulator::release(value, "CFRelease");
}

__CFDictionary::~__CFDictionary() {
  for (const auto& [key, value] : values) {
    simulator::release(key, "CFRelease");
    simulator::release(value, "CFRelease");
  }
}

namespace simulator {
namespace {

enum TypeID : CFTypeID {
  unknownType = 1,
  stringType = 7,
  booleanType = 21,
  numberType = 22,
  arrayType = 19,
  dictionaryType = 18
};

CFTypeID typeOf(const Object& object) {
  if (dynamic_cast<const __CFString*>(&object)) return stringType;
  if (dynamic_cast<const __CFNumber*>(&object)) return numberType;
  if (dynamic_cast<const __CFBoolean*>(&object)) return booleanType;
  if (dynamic_cast<const __CFDictionary*>(&object)) return dictionaryType;
  if (dynamic_cast<const __CFArray*>(&object)) return arrayType;
  return unknownType;
}

// Whether both are the same number, which is another question than whether C promotes them to the same one.
bool isSameNumber(double real, std::int64_t integer) {
  return real >= -0x1p63 && real < 0x1p63 && real == std::trunc(real) && static_cast<std::int64_t>(real) == integer;
}

// Numbers are compared as CFNumber.h has it: negative zero is less than zero, and for CFEqual NaN is equal to any
// number.
struct EqualNumbers {
  bool operator()(std::int64_t one, std::int64_t other) const { return one == other; }
  bool operator()(double one, double other) const {
    if (std::isnan(one) || std::isnan(other)) return true;
    return one == other && std::signbit(one) == std::signbit(other);
  }
  bool operator()(double real, std::int64_t integer) const {
    return std::isnan(real) || (isSameNumber(real, integer) && (real != 0 || !std::signbit(real)));
  }
  bool operator()(std::int64_t integer, double real) const { return (*this)(real, integer); }
};

// Of two objects of one type.
bool areEqual(const Object& one, const Object& other) {
  if (const auto* string = dynamic_cast<const __CFString*>(&one)) {
    return string->text == dynamic_cast<const __CFString&>(other).text;
  }
  if (const auto* number = dynamic_cast<const __CFNumber*>(&one)) {
    return std::visit(EqualNumbers(), number->value, dynamic_cast<const __CFNumber&>(other).value);
  }
  if (const auto* array = dynamic_cast<const __CFArray*>(&one)) {
    return std::ranges::equal(array->values, dynamic_cast<const __CFArray&>(other).values,
                              [](CFTypeRef left, CFTypeRef right) { return CFEqual(left, right) != 0; });
  }
  if (const auto* dictionary = dynamic_cast<const __CFDictionary*>(&one)) {
    const auto& others = dynamic_cast<const __CFDictionary&>(other);
    const auto isThere = [&others](const auto& member) {
      const CFTypeRef value = CFDictionaryGetValue(&others, member.first);
      return value && CFEqual(value, member.second);
    };
    return dictionary->values.size() == others.values.size() && std::ranges::all_of(dictionary->values, isThere);
  }
  return false;  // true and false are two objects, and what has no type here is equal to itself alone
}

// The UTF-16 length of UTF-8 text: Core Foundation counts its strings so.
CFIndex length16(std::string_view utf8) {
  CFIndex length = 0;
  for (const char c : utf8) {
    const auto byte = static_cast<unsigned char>(c);
    if ((byte & 0xC0) != 0x80) length += byte >= 0xF0 ? 2 : 1;
  }
  return length;
}

// The code point at a position in well-formed UTF-8, which is moved behind it, and its length in UTF-16.
struct CodePoint {
  char32_t code;
  CFIndex units;
};

CodePoint codePointAt(std::string_view utf8, std::size_t& at) {
  const auto lead = static_cast<unsigned char>(utf8[at++]);
  if (lead < 0x80) return {lead, 1};
  char32_t code = lead & (lead < 0xE0 ? 0x1FU : lead < 0xF0 ? 0x0FU : 0x07U);
  for (; at < utf8.size() && (utf8[at] & 0xC0) == 0x80; ++at) {
    code = code << 6 | (static_cast<unsigned char>(utf8[at]) & 0x3FU);
  }
  return {code, code > 0xFFFF ? 2 : 1};
}

// Whether the code point belongs to the character that has begun: marks, variants, skin tones, what a joiner joins,
// and the second half of a flag. A short list of what Unicode's rules for clusters (UAX 29) have.
bool continues(std::u32string_view character, char32_t code) {
  if (character.empty()) return false;
  constexpr std::pair<char32_t, char32_t> extending[] = {{0x0300, 0x036F},   {0x1AB0, 0x1AFF},  {0x200C, 0x200D},
                                                         {0x20D0, 0x20FF},   {0xFE00, 0xFE0F},  {0xFE20, 0xFE2F},
                                                         {0x1F3FB, 0x1F3FF}, {0xE0020, 0xE007F}};
  const auto contains = [code](const auto& range) { return range.first <= code && code <= range.second; };
  if (std::ranges::any_of(extending, contains)) return true;
  constexpr char32_t joiner = 0x200D;
  if (character.back() == joiner) return true;
  const auto isFlagHalf = [](char32_t each) { return each >= 0x1F1E6 && each <= 0x1F1FF; };
  return character.size() == 1 && isFlagHalf(character.back()) && isFlagHalf(code);
}

}  // namespace

bool isUTF8(std::string_view text) {
  for (std::size_t i = 0; i < text.size();) {
    const auto lead = static_cast<unsigned char>(text[i]);
    const std::size_t more = lead < 0x80             ? 0
                             : (lead & 0xE0) == 0xC0 ? 1
                             : (lead & 0xF0) == 0xE0 ? 2
                             : (lead & 0xF8) == 0xF0 ? 3
                                                     : 4;
    if (more == 4 || i + more >= text.size() + (more == 0 ? 1 : 0)) return false;
    std::uint32_t code = more == 0 ? lead : lead & (0x3FU >> more);
    for (std::size_t k = 1; k <= more; ++k) {
      const auto byte = static_cast<unsigned char>(text[i + k]);
      if ((byte & 0xC0) != 0x80) return false;
      code = (code << 6) | (byte & 0x3FU);
    }
    constexpr std::uint32_t smallest[] = {0, 0x80, 0x800, 0x10000};
    if (code < smallest[more] || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) return false;
    i += more + 1;
  }
  return true;
}

const std::string& requireUTF8(const std::string& text, const char* call) {
  if (!isUTF8(text)) fatal(std::string(call) + ": the text is not UTF-8");
  return text;
}

CFStringRef constantString(std::string_view text) {
  static std::mutex mutex;
  static auto* const strings = new std::map<std::string, CFStringRef, std::less<>>;
  const std::lock_guard lock(mutex);
  if (const auto known = strings->find(text); known != strings->end()) return known->second;
  auto* const made = new __CFString(std::string(text));
  made->makeImmortal();
  return strings->emplace(std::string(text), made).first->second;
}

const std::string& textOf(CFTypeRef string, const char* call) { return live<__CFString>(string, call).text; }

CFTypeRef createPropertyList(const nlohmann::json& value) {
  switch (value.type()) {
    case nlohmann::json::value_t::string:
      return new __CFString(value.get<std::string>());
    case nlohmann::json::value_t::boolean:
      return value.get<bool>() ? kCFBooleanTrue : kCFBooleanFalse;
    case nlohmann::json::value_t::number_integer:
    case nlohmann::json::value_t::number_unsigned:
      return new __CFNumber(value.get<std::int64_t>());
    case nlohmann::json::value_t::number_float:
      return new __CFNumber(value.get<double>());
    case nlohmann::json::value_t::array: {
      auto* const array = new __CFArray;
      for (const auto& each : value) {
        if (const CFTypeRef element = createPropertyList(each)) array->values.push_back(element);
      }
      return array;
    }
    case nlohmann::json::value_t::object: {
      auto* const dictionary = new __CFDictionary;
      for (const auto& [key, each] : value.items()) {
        if (const CFTypeRef element = createPropertyList(each)) {
          dictionary->values.emplace_back(new __CFString(key), element);
        }
      }
      return dictionary;
    }
    case nlohmann::json::value_t::binary:
      return new DataObject(std::string(value.get_binary().begin(), value.get_binary().end()));
    default:
      return nullptr;
  }
}

nlohmann::json jsonOf(CFTypeRef object) {
  Object& value = live(object, "a property list");
  if (const auto* string = dynamic_cast<__CFString*>(&value)) return string->text;
  if (const auto* boolean = dynamic_cast<__CFBoolean*>(&value)) return boolean->value;
  if (const auto* number = dynamic_cast<__CFNumber*>(&value)) {
    return std::visit([](auto each) { return nlohmann::json(each); }, number->value);
  }
  if (const auto* array = dynamic_cast<__CFArray*>(&value)) {
    auto result = nlohmann::json::array();
    for (const CFTypeRef each : array->values) result.push_back(jsonOf(each));
    return result;
  }
  if (const auto* dictionary = dynamic_cast<__CFDictionary*>(&value)) {
    auto result = nlohmann::json::object();
    for (const auto& [key, each] : dictionary->values) result[textOf(key, "a property list")] = jsonOf(each);
    return result;
  }
  return nullptr;
}

}  // namespace simulator

const std::vector<CFIndex>& __CFString::boundaries() const {
  std::call_once(found_, [this] {
    std::u32string character;
    CFIndex units = 0;
    for (std::size_t at = 0; at < text.size();) {
      const auto [code, more] = simulator::codePointAt(text, at);
      if (!simulator::continues(character, code)) {
        boundaries_.push_back(units);
        character.clear();
      }
      character += code;
      units += more;
    }
    boundaries_.push_back(units);
  });
  return boundaries_;
}

// ---- The calls ----

struct __CFArrayCallBacks {};
struct __CFDictionaryKeyCallBacks {};
struct __CFDictionaryValueCallBacks {};

extern "C" {

extern const CFAllocatorRef kCFAllocatorDefault = nullptr;
extern const CFArrayCallBacks kCFTypeArrayCallBacks{};
extern const CFDictionaryKeyCallBacks kCFTypeDictionaryKeyCallBacks{};
extern const CFDictionaryValueCallBacks kCFTypeDictionaryValueCallBacks{};
extern const CFBooleanRef kCFBooleanTrue = new __CFBoolean(true);
extern const CFBooleanRef kCFBooleanFalse = new __CFBoolean(false);
extern const CFRunLoopMode kCFRunLoopDefaultMode = simulator::constantString("kCFRunLoopDefaultMode");
extern const CFRunLoopMode kCFRunLoopCommonModes = simulator::constantString("kCFRunLoopCommonModes");

CFTypeRef CFRetain(CFTypeRef cf) {
  simulator::retain(cf, "CFRetain");
  return cf;
}

void CFRelease(CFTypeRef cf) { simulator::release(cf, "CFRelease"); }

CFTypeID CFGetTypeID(CFTypeRef cf) { return simulator::typeOf(live(cf, "CFGetTypeID")); }

Boolean CFEqual(CFTypeRef cf1, CFTypeRef cf2) {
  if (!cf1 || !cf2) simulator::fatal("CFEqual: one of the objects is null");
  if (cf1 == cf2) return true;
  return CFGetTypeID(cf1) == CFGetTypeID(cf2) && simulator::areEqual(live(cf1, "CFEqual"), live(cf2, "CFEqual"));
}

// ---- Strings ----

CFTypeID CFStringGetTypeID(void) { return simulator::stringType; }

CFStringRef __CFStringMakeConstantString(const char* cStr) { return simulator::constantString(cStr); }

CFStringRef CFStringCreateWithBytes(CFAllocatorRef, const UInt8* bytes, CFIndex numBytes, CFStringEncoding encoding,
                                    Boolean) {
  if (encoding != kCFStringEncodingUTF8) simulator::fatal("CFStringCreateWithBytes: this encoding is not simulated");
  std::string text(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(numBytes));
  if (!simulator::isUTF8(text)) return nullptr;
  return new __CFString(std::move(text));
}

CFIndex CFStringGetLength(CFStringRef theString) {
  return simulator::length16(simulator::textOf(theString, "CFStringGetLength"));
}

CFIndex CFStringGetBytes(CFStringRef theString, CFRange range, CFStringEncoding encoding, UInt8 lossByte, Boolean,
                         UInt8* buffer, CFIndex maxBufLen, CFIndex* usedBufLen) {
  const std::string& text = simulator::textOf(theString, "CFStringGetBytes");
  if (encoding != kCFStringEncodingUTF8 || range.location != 0) {
    simulator::fatal("CFStringGetBytes: only beginnings of strings in UTF-8 are simulated");
  }
  std::size_t end = 0;
  CFIndex units = 0;
  std::string half;  // stands for the first unit of a character whose second is out of the range
  while (end < text.size() && units < range.length) {
    std::size_t next = end;
    const CFIndex more = simulator::codePointAt(text, next).units;
    if (units + more > range.length) {
      if (lossByte == 0) break;
      half = static_cast<char>(lossByte);
      units = range.length;
    } else {
      units += more;
      end = next;
    }
  }
  if (units < range.length && end == text.size()) {
    simulator::fatal("CFStringGetBytes: the range is not within the string's characters");
  }
  const std::string bytes = text.substr(0, end) + half;
  const auto size = static_cast<CFIndex>(bytes.size());
  if (buffer && maxBufLen < size) simulator::fatal("CFStringGetBytes: only whole ranges are simulated");
  if (buffer) std::memcpy(buffer, bytes.data(), bytes.size());
  if (usedBufLen) *usedBufLen = size;
  return units;
}

CFRange CFStringGetRangeOfComposedCharactersAtIndex(CFStringRef theString, CFIndex theIndex) {
  constexpr const char* call = "CFStringGetRangeOfComposedCharactersAtIndex";
  const std::vector<CFIndex>& boundaries = simulator::live<__CFString>(theString, call).boundaries();
  const auto end = std::ranges::upper_bound(boundaries, theIndex);
  if (theIndex < 0 || end == boundaries.end()) {
    simulator::fatal(std::string(call) + ": the index is out of bounds");
  }
  return CFRangeMake(end[-1], *end - end[-1]);
}

// ---- Numbers ----

CFTypeID CFBooleanGetTypeID(void) { return simulator::booleanType; }
Boolean CFBooleanGetValue(CFBooleanRef boolean) { return live<__CFBoolean>(boolean, "CFBooleanGetValue").value; }
CFTypeID CFNumberGetTypeID(void) { return simulator::numberType; }

CFNumberRef CFNumberCreate(CFAllocatorRef, CFNumberType theType, const void* valuePtr) {
  switch (theType) {
    case kCFNumberSInt32Type:
      return new __CFNumber(std::int64_t{*static_cast<const std::int32_t*>(valuePtr)});
    case kCFNumberSInt64Type:
      return new __CFNumber(*static_cast<const std::int64_t*>(valuePtr));
    case kCFNumberFloat64Type:
      return new __CFNumber(*static_cast<const double*>(valuePtr));
    default:
      simulator::fatal("CFNumberCreate: this type is not simulated");
  }
}

Boolean CFNumberIsFloatType(CFNumberRef number) {
  return std::holds_alternative<double>(live<__CFNumber>(number, "CFNumberIsFloatType").value);
}

// False when the value is changed by the conversion; Apple's header only says that what is stored then is an attempt.
Boolean CFNumberGetValue(CFNumberRef number, CFNumberType theType, void* valuePtr) {
  const auto& value = live<__CFNumber>(number, "CFNumberGetValue").value;
  if (theType == kCFNumberFloat64Type) {
    const double real = std::visit([](auto each) { return static_cast<double>(each); }, value);
    *static_cast<double*>(valuePtr) = real;
    const auto* const integer = std::get_if<std::int64_t>(&value);
    return !integer || simulator::isSameNumber(real, *integer);
  }
  std::int64_t integer = 0;
  bool exact = true;
  if (const double* const real = std::get_if<double>(&value)) {
    constexpr double greatest = 0x1.fffffffffffffp62;  // below 2^63
    integer = static_cast<std::int64_t>(std::isnan(*real) ? 0 : std::clamp(*real, -0x1p63, greatest));
    exact = static_cast<double>(integer) == *real;
  } else {
    integer = std::get<std::int64_t>(value);
  }
  if (theType == kCFNumberSInt64Type) {
    *static_cast<std::int64_t*>(valuePtr) = integer;
  } else if (theType == kCFNumberSInt32Type) {
    *static_cast<std::int32_t*>(valuePtr) = static_cast<std::int32_t>(integer);
    exact = exact && integer == static_cast<std::int32_t>(integer);
  } else {
    simulator::fatal("CFNumberGetValue: this type is not simulated");
  }
  return exact;
}

// ---- Collections ----

CFTypeID CFArrayGetTypeID(void) { return simulator::arrayType; }

CFArrayRef CFArrayCreate(CFAllocatorRef, const void** values, CFIndex numValues, const CFArrayCallBacks* callBacks) {
  if (callBacks != &kCFTypeArrayCallBacks) simulator::fatal("CFArrayCreate: only arrays of objects are simulated");
  auto* const array = new __CFArray;
  for (CFIndex i = 0; i < numValues; ++i) array->values.push_back(CFRetain(values[i]));
  return array;
}

CFIndex CFArrayGetCount(CFArrayRef theArray) {
  return static_cast<CFIndex>(live<__CFArray>(theArray, "CFArrayGetCount").values.size());
}

const void* CFArrayGetValueAtIndex(CFArrayRef theArray, CFIndex idx) {
  const auto& values = live<__CFArray>(theArray, "CFArrayGetValueAtIndex").values;
  if (idx < 0 || static_cast<std::size_t>(idx) >= values.size()) {
    simulator::fatal("CFArrayGetValueAtIndex: the index is out of bounds");
  }
  return values[static_cast<std::size_t>(idx)];
}

CFTypeID CFDictionaryGetTypeID(void) { return simulator::dictionaryType; }

CFDictionaryRef CFDictionaryCreate(CFAllocatorRef, const void** keys, const void** values, CFIndex numValues,
                                   const CFDictionaryKeyCallBacks* keyCallBacks,
                                   const CFDictionaryValueCallBacks* valueCallBacks) {
  if (keyCallBacks != &kCFTypeDictionaryKeyCallBacks || valueCallBacks != &kCFTypeDictionaryValueCallBacks) {
    simulator::fatal("CFDictionaryCreate: only dictionaries of objects are simulated");
  }
  auto* const dictionary = new __CFDictionary;
  for (CFIndex i = 0; i < numValues; ++i) {
    // Of equal keys the first stays, as in Core Foundation's public sources.
    const auto isKey = [key = keys[i]](const auto& each) { return CFEqual(each.first, key); };
    if (std::ranges::any_of(dictionary->values, isKey)) continue;
    dictionary->values.emplace_back(CFRetain(keys[i]), CFRetain(values[i]));
  }
  return dictionary;
}

CFIndex CFDictionaryGetCount(CFDictionaryRef theDict) {
  return static_cast<CFIndex>(live<__CFDictionary>(theDict, "CFDictionaryGetCount").values.size());
}

const void* CFDictionaryGetValue(CFDictionaryRef theDict, const void* key) {
  for (const auto& [each, value] : live<__CFDictionary>(theDict, "CFDictionaryGetValue").values) {
    if (CFEqual(each, key)) return value;
  }
  return nullptr;
}

}  // extern "C"
