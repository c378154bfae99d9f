// URLs: CFURL's calls for files, and NSURL.
#include "platform/URL.h"

#include <algorithm>
#include <cctype>
#include <cstring>

#include "simulator/machine/Machine.h"
#include "simulator/services/CoreFoundation.h"
#include "simulator/services/Foundation.h"

namespace simulator {
namespace {

bool isLetter(char c) { return std::isalpha(static_cast<unsigned char>(c)) != 0; }
bool isDigit(char c) { return std::isdigit(static_cast<unsigned char>(c)) != 0; }
bool isHex(char c) { return std::isxdigit(static_cast<unsigned char>(c)) != 0; }

bool contains(std::string_view set, char c) { return c != '\0' && set.find(c) != std::string_view::npos; }

// Whether every character is unreserved, a sub-delimiter, percent-encoded or one of `more`.
bool consistsOf(std::string_view text, std::string_view more) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (c == '%') {
      if (i + 2 >= text.size() || !isHex(text[i + 1]) || !isHex(text[i + 2])) return false;
      i += 2;
    } else if (!isLetter(c) && !isDigit(c) && !contains("-._~!$&'()*+,;=", c) && !contains(more, c)) {
      return false;
    }
  }
  return true;
}

// [user@]host[:port]
bool isAuthority(std::string_view text) {
  if (const std::size_t at = text.find('@'); at != std::string_view::npos) {
    if (!consistsOf(text.substr(0, at), ":")) return false;
    text.remove_prefix(at + 1);
  }
  if (text.starts_with('[')) {
    const std::size_t end = text.find(']');
    if (end == std::string_view::npos || end < 2) return false;
    const auto isLiteral = [](char c) { return isHex(c) || c == ':' || c == '.'; };
    if (!std::ranges::all_of(text.substr(1, end - 1), isLiteral)) return false;
    text.remove_prefix(end + 1);
    if (!text.empty() && !text.starts_with(':')) return false;
  }
  const std::size_t colon = text.find(':');
  if (!consistsOf(text.substr(0, colon), "")) return false;
  return colon == std::string_view::npos || std::ranges::all_of(text.substr(colon + 1), isDigit);
}

}  // namespace

bool isURL(std::string_view text) {
  if (text.empty()) return false;
  if (const std::size_t hash = text.find('#'); hash != std::string_view::npos) {
    if (!consistsOf(text.substr(hash + 1), ":@/?")) return false;
    text = text.substr(0, hash);
  }
  if (const std::size_t mark = text.find('?'); mark != std::string_view::npos) {
    if (!consistsOf(text.substr(mark + 1), ":@/?")) return false;
    text = text.substr(0, mark);
  }
  // What comes before a colon in the first segment is the scheme.
  const std::size_t colon = text.substr(0, text.find('/')).find(':');
  if (colon != std::string_view::npos) {
    const std::string_view scheme = text.substr(0, colon);
    const auto belongs = [](char c) { return isLetter(c) || isDigit(c) || contains("+-.", c); };
    if (scheme.empty() || !isLetter(scheme.front()) || !std::ranges::all_of(scheme, belongs)) return false;
    text.remove_prefix(colon + 1);
  }
  if (text.starts_with("//")) {
    text.remove_prefix(2);
    const std::size_t slash = std::min(text.find('/'), text.size());
    if (!isAuthority(text.substr(0, slash))) return false;
    text.remove_prefix(slash);
  }
  return consistsOf(text, ":@/");
}

std::string fileURL(std::string_view path) {
  constexpr std::string_view digits = "0123456789ABCDEF";
  std::string result = "file://";
  for (const char c : path) {
    if (consistsOf(std::string_view(&c, 1), ":@/")) {
      result += c;
    } else {
      const auto byte = static_cast<unsigned char>(c);
      result += {'%', digits[byte >> 4], digits[byte & 0xf]};
    }
  }
  return result;
}

std::optional<std::string> filePath(std::string_view url) {
  constexpr std::string_view scheme = "file://";
  if (!url.starts_with(scheme)) return std::nullopt;
  url.remove_prefix(scheme.size());
  url.remove_prefix(std::min(url.find('/'), url.size()));
  std::string path;
  for (std::size_t i = 0; i < url.size(); ++i) {
    if (url[i] == '%') {
      path += static_cast<char>(std::stoi(std::string(url.substr(i + 1, 2)), nullptr, 16));
      i += 2;
    } else {
      path += url[i];
    }
  }
  while (path.size() > 1 && path.ends_with('/')) path.pop_back();
  return path;
}

}  // namespace simulator

// ---- The calls ----

using simulator::live;

extern "C" {

CFURLRef CFURLCreateFromFileSystemRepresentation(CFAllocatorRef, const UInt8* buffer, CFIndex bufLen,
                                                 Boolean isDirectory) {
  std::string path(reinterpret_cast<const char*>(buffer), static_cast<std::size_t>(bufLen));
  if (!path.starts_with('/'))
    simulator::fatal("CFURLCreateFromFileSystemRepresentation: only whole paths are simulated");
  if (isDirectory && !path.ends_with('/')) path += '/';
  return new __CFURL(simulator::fileURL(path));
}

Boolean CFURLGetFileSystemRepresentation(CFURLRef url, Boolean, UInt8* buffer, CFIndex maxBufLen) {
  const auto path = simulator::filePath(live<__CFURL>(url, "CFURLGetFileSystemRepresentation").text);
  if (!path || static_cast<CFIndex>(path->size()) >= maxBufLen) return false;
  std::memcpy(buffer, path->c_str(), path->size() + 1);
  return true;
}

}  // extern "C"

namespace NS {

URL URL::URLWithString(const std::string& text, bool encodingInvalidCharacters) {
  static_cast<void>(simulator::requireUTF8(text, "NSURL.URLWithString"));
  if (encodingInvalidCharacters) simulator::fatal("NSURL.URLWithString: the encoding of characters is not simulated");
  return URL(CF::adopt(static_cast<CFTypeRef>(simulator::isURL(text) ? new __CFURL(text) : nullptr)));
}

std::string URL::absoluteString() const { return live<__CFURL>(get(), "NSURL.absoluteString").text; }

}  // namespace NS
