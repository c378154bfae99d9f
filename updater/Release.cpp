#include "updater/Release.h"

#include <array>
#include <bitset>
#include <cstddef>
#include <iterator>
#include <limits>
#include <nlohmann/json.hpp>
#include <utility>

using nlohmann::json;

namespace {

// The members of a release that count.
enum Member : std::size_t { version, date, dmgURL, sizeBytes, notes, ignored };
constexpr std::array<std::string_view, ignored> keys{"version", "date", "dmg_url", "size_bytes", "notes"};

[[noreturn]] void failType(std::string_view expected, std::string_view found) {
  if (found == "integer") found = "number";  // to JSON they are one
  throw json::type_error::create(302, "type must be " + std::string(expected) + ", but is " + std::string(found),
                                 nullptr);
}

bool isDigit(char c) { return c >= '0' && c <= '9'; }

// Hands a document to the reader, which refuses numbers that no `double` can hold, with every number in its range:
// exponents are 0, and after its twentieth digit a number has a fraction. Neither can be an integer of 64 bits, with or
// without that, and of other numbers nothing is wanted but that they are some.
class ReaderInput {
 public:
  using iterator_category = std::input_iterator_tag;
  using value_type = char;
  using difference_type = std::ptrdiff_t;
  using pointer = const char*;
  using reference = char;

  ReaderInput(std::string_view document, std::size_t position) : document_(document), position_(position) {}

  char operator*() const {
    const char c = document_[position_];
    if (isDigit(c) && inExponent_) return '0';
    if (isDigit(c) && beginsFraction()) return '.';
    if (c == '.' && hasOwnPoint_ && !hasPoint_ && !inExponent_ && isDigitNext()) return '0';
    return c;
  }

  ReaderInput& operator++() {
    const char c = document_[position_];
    if (inText_) {
      inText_ = c != '"' || isEscaped_;
      isEscaped_ = c == '\\' && !isEscaped_;
    } else if (isDigit(c)) {
      if (beginsFraction()) hasOwnPoint_ = true;
      ++digits_;
    } else if (c == '.') {
      hasPoint_ = true;
    } else if (c == 'e' || c == 'E') {
      inExponent_ = true;
    } else if (c != '+' && c != '-') {
      inText_ = c == '"';
      digits_ = 0;
      hasPoint_ = hasOwnPoint_ = inExponent_ = false;
    }
    ++position_;
    return *this;
  }

  bool operator==(const ReaderInput& other) const { return position_ == other.position_; }

 private:
  [[nodiscard]] bool isDigitNext() const {
    return position_ + 1 < document_.size() && isDigit(document_[position_ + 1]);
  }
  // Whether the digit here is given up for a decimal point.
  [[nodiscard]] bool beginsFraction() const {
    constexpr std::size_t most = 20;
    return digits_ >= most && !hasPoint_ && !hasOwnPoint_ && isDigitNext();
  }

  std::string_view document_;
  std::size_t position_;
  bool inText_ = false;
  bool isEscaped_ = false;
  std::size_t digits_ = 0;  // of the number that is being read
  bool hasPoint_ = false;
  bool hasOwnPoint_ = false;  // one that is not in the document
  bool inExponent_ = false;
};

// Receives a feed document from the reader, value by value, and keeps of it the first release alone.
class FeedHandler {
 public:
  std::optional<Release> takeNewest() { return std::move(newest_); }

  // ---- What the reader calls; it goes on after `true` ----

  bool null() { return refuseUnlessIgnored("null"); }
  bool boolean(bool) { return refuseUnlessIgnored("boolean"); }
  // A number with a fraction or an exponent is no integer, whatever its value.
  bool number_float(double, const std::string&) { return refuseUnlessIgnored("number"); }

  bool number_integer(std::int64_t value) {
    if (memberFor("integer") != ignored) release_.sizeBytes = value;
    return true;
  }

  bool number_unsigned(std::uint64_t value) {
    if (memberFor("integer") == ignored) return true;
    if (value > std::uint64_t{std::numeric_limits<std::int64_t>::max()}) {
      throw json::out_of_range::create(406, "number does not fit 64 signed bits", nullptr);
    }
    release_.sizeBytes = static_cast<std::int64_t>(value);
    return true;
  }

  bool string(std::string& text) {
    switch (memberFor("string")) {
      case version:
        release_.version = std::move(text);
        break;
      case date:
        release_.date = std::move(text);
        break;
      case dmgURL:
        release_.dmgURL = NS::URL::URLWithString(text, true);
        // An empty text is an address relative to another one.
        if (text.empty() || !release_.dmgURL) throw json::other_error::create(501, "invalid URL string", nullptr);
        break;
      case notes:
        release_.notes = std::move(text);
        break;
      default:  // ignored
        break;
    }
    return true;
  }

  bool binary(json::binary_t&) { return true; }  // JSON texts have none

  bool start_array(std::size_t) {
    if (depth_ > 0) static_cast<void>(memberFor("array"));
    ++depth_;
    return true;
  }

  bool end_array() {
    --depth_;
    return true;
  }

  bool start_object(std::size_t) {
    if (depth_ == 1) {
      given_.reset();
    } else {
      static_cast<void>(memberFor("object"));
    }
    ++depth_;
    return true;
  }

  bool key(std::string& name) {
    if (depth_ != 2) return true;
    std::size_t member = 0;
    while (member < keys.size() && keys.at(member) != name) ++member;
    // Of several members with one key the first counts.
    member_ = member < keys.size() && !given_.test(member) ? static_cast<Member>(member) : ignored;
    if (member_ != ignored) given_.set(member);
    return true;
  }

  bool end_object() {
    if (--depth_ != 1) return true;
    for (std::size_t member = 0; member < keys.size(); ++member) {
      if (!given_.test(member)) {
        throw json::out_of_range::create(403, "key '" + std::string(keys.at(member)) + "' not found", nullptr);
      }
    }
    if (!newest_) newest_ = std::move(release_);
    return true;
  }

  template <typename Error>
  [[noreturn]] bool parse_error(std::size_t position, const std::string& lastRead, const Error& error) {
    // The text of the error quotes what was read last, which may be megabytes.
    constexpr std::size_t longest = 200;
    if (lastRead.size() <= longest) throw error;
    const std::string_view text = error.what();
    const std::string beginning(text.substr(text.find(": ") + 2, longest));
    throw json::parse_error::create(101, position, beginning + "…", nullptr);
  }

 private:
  // The member that the value which begins here is for; fails when a value of that type cannot be there.
  [[nodiscard]] Member memberFor(std::string_view type) const {
    if (depth_ < 2) failType(depth_ == 0 ? "array" : "object", type);
    if (member_ == ignored) return ignored;
    const std::string_view expected = member_ == sizeBytes ? "integer" : "string";
    if (type != expected) failType(expected, type);
    return member_;
  }

  // For values of types that no member has.
  [[nodiscard]] bool refuseUnlessIgnored(std::string_view type) const { return memberFor(type) == ignored; }

  std::size_t depth_ = 0;           // 1 in the document's array, 2 in a release, more in what is ignored
  Member member_ = ignored;         // what the value of the release's last key is for
  std::bitset<keys.size()> given_;  // the members that the release has had so far
  Release release_;                 // every member of it is given anew
  std::optional<Release> newest_;
};

}  // namespace

std::optional<Release> decodeNewestRelease(std::string_view document) {
  // To the reader it would be the end of the document.
  if (const std::size_t null = document.find('\0'); null != std::string_view::npos) {
    throw json::parse_error::create(101, null + 1, "syntax error - there is a null character", nullptr);
  }
  FeedHandler handler;
  json::sax_parse(ReaderInput(document, 0), ReaderInput(document, document.size()), &handler);
  return handler.takeNewest();
}
