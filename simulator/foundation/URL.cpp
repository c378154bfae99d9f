// URLs: CFURL's calls for files, and NSURL.
#include "platform/URL.h"

#include <unicode/uidna.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstring>
#include <optional>

#include "simulator/foundation/CoreFoundation.h"
#include "simulator/foundation/Foundation.h"
#include "simulator/kernel/Call.h"

namespace simulator {
namespace {

bool isLetter(char c) { return std::isalpha(static_cast<unsigned char>(c)) != 0; }
bool isDigit(char c) { return std::isdigit(static_cast<unsigned char>(c)) != 0; }
bool isHex(char c) { return std::isxdigit(static_cast<unsigned char>(c)) != 0; }

bool contains(std::string_view set, char c) { return c != '\0' && set.find(c) != std::string_view::npos; }

// What may stand in a part of a URL as it is, beside letters, digits and "-._~!$&'()*+,;=".
constexpr std::string_view inUser = "";
constexpr std::string_view inPassword = ":";
constexpr std::string_view inHost = "";
constexpr std::string_view inPath = ":@/";
constexpr std::string_view inQuery = ":@/?";  // and in the fragment

bool isAllowed(char c, std::string_view more) {
  return isLetter(c) || isDigit(c) || contains("-._~!$&'()*+,;=", c) || contains(more, c);
}

// Whether every character is allowed or percent-encoded.
bool consistsOf(std::string_view text, std::string_view more) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%') {
      if (i + 2 >= text.size() || !isHex(text[i + 1]) || !isHex(text[i + 2])) return false;
      i += 2;
    } else if (!isAllowed(text[i], more)) {
      return false;
    }
  }
  return true;
}

// The text with every byte that is not allowed in percent-encoded form.
std::string percentEncoded(std::string_view text, std::string_view more) {
  constexpr std::string_view digits = "0123456789ABCDEF";
  std::string result;
  for (const char c : text) {
    if (isAllowed(c, more)) {
      result += c;
    } else {
      const auto byte = static_cast<unsigned char>(c);
      result += {'%', digits[byte >> 4], digits[byte & 0xf]};
    }
  }
  return result;
}

// A host's name in the form in which it is looked up, by ICU as on the Mac; none when it cannot have one.
std::optional<std::string> internationalName(std::string_view host) {
  constexpr std::uint32_t options =
      UIDNA_CHECK_BIDI | UIDNA_CHECK_CONTEXTJ | UIDNA_NONTRANSITIONAL_TO_UNICODE | UIDNA_NONTRANSITIONAL_TO_ASCII;
  constexpr std::size_t longest = 2048;
  UErrorCode error = U_ZERO_ERROR;
  static const UIDNA* const names = uidna_openUTS46(options, &error);
  if (!names || host.size() > longest) return std::nullopt;
  char name[longest];
  UIDNAInfo problems = UIDNA_INFO_INITIALIZER;
  const int size = uidna_nameToASCII_UTF8(names, host.data(), static_cast<std::int32_t>(host.size()), name,
                                          static_cast<std::int32_t>(longest), &problems, &error);
  if (U_FAILURE(error) || problems.errors != 0 || size == 0) return std::nullopt;
  return std::string(name, static_cast<std::size_t>(size));
}

// A URL taken apart at its delimiters. What stands between them may hold anything.
struct Parts {
  std::optional<std::string_view> scheme, user, password, host, port;
  std::string_view path;
  std::optional<std::string_view> query, fragment;
};

bool isScheme(std::string_view text) {
  const auto belongs = [](char c) { return isLetter(c) || isDigit(c) || contains("+-.", c); };
  return !text.empty() && isLetter(text.front()) && std::ranges::all_of(text, belongs);
}

bool isLiteral(std::string_view host) { return host.starts_with('['); }

// [user[:password]@]host[:port]; false when it cannot be taken apart.
bool takeAuthorityApart(std::string_view text, Parts& parts) {
  if (const std::size_t at = text.rfind('@'); at != std::string_view::npos) {
    const std::size_t colon = text.substr(0, at).find(':');
    parts.user = text.substr(0, std::min(colon, at));
    if (colon != std::string_view::npos) parts.password = text.substr(colon + 1, at - colon - 1);
    text.remove_prefix(at + 1);
  }
  std::size_t end = text.find(':');
  if (isLiteral(text)) {
    const auto belongs = [](char c) { return isHex(c) || c == ':' || c == '.'; };
    end = text.find(']');
    if (end == std::string_view::npos || end < 2 || !std::ranges::all_of(text.substr(1, end - 1), belongs))
      return false;
    if (++end < text.size() && text[end] != ':') return false;
  }
  parts.host = text.substr(0, end);
  if (end < text.size()) parts.port = text.substr(end + 1);
  return std::ranges::all_of(parts.port.value_or(""), isDigit);
}

std::optional<Parts> takeApart(std::string_view text) {
  Parts parts;
  if (const std::size_t hash = text.find('#'); hash != std::string_view::npos) {
    parts.fragment = text.substr(hash + 1);
    text = text.substr(0, hash);
  }
  if (const std::size_t mark = text.find('?'); mark != std::string_view::npos) {
    parts.query = text.substr(mark + 1);
    text = text.substr(0, mark);
  }
  // What comes before a colon in the first segment is the scheme, unless it looks like an authority.
  if (const std::size_t end = text.find_first_of("/:[]@"); end != std::string_view::npos && text[end] == ':') {
    parts.scheme = text.substr(0, end);
    if (!isScheme(*parts.scheme)) return std::nullopt;
    text.remove_prefix(end + 1);
  }
  if (text.starts_with("//")) {
    text.remove_prefix(2);
    const std::size_t slash = std::min(text.find('/'), text.size());
    if (!takeAuthorityApart(text.substr(0, slash), parts)) return std::nullopt;
    text.remove_prefix(slash);
  }
  parts.path = text;
  return parts;
}

bool isValid(const Parts& parts) {
  const auto valid = [](const std::optional<std::string_view>& part, std::string_view more) {
    return !part || consistsOf(*part, more);
  };
  return valid(parts.user, inUser) && valid(parts.password, inPassword) &&
         (!parts.host || isLiteral(*parts.host) || consistsOf(*parts.host, inHost)) && consistsOf(parts.path, inPath) &&
         valid(parts.query, inQuery) && valid(parts.fragment, inQuery);
}

}  // namespace

bool isURL(std::string_view text) {
  const auto parts = text.empty() ? std::nullopt : takeApart(text);
  return parts && isValid(*parts);
}

// A part that is valid stays as it is; in any other every character that is not allowed is encoded, percent signs too.
std::optional<std::string> encodedURL(std::string_view text) {
  const auto parts = text.empty() ? std::nullopt : takeApart(text);
  if (!parts || isValid(*parts)) return parts ? std::optional<std::string>(text) : std::nullopt;
  const auto encoded = [](std::string_view part, std::string_view more) {
    return consistsOf(part, more) ? std::string(part) : percentEncoded(part, more);
  };
  std::string url;
  if (parts->scheme) url += std::string(*parts->scheme) + ":";
  if (parts->host) {
    url += "//";
    if (parts->user) url += encoded(*parts->user, inUser);
    if (parts->password) url += ":" + encoded(*parts->password, inPassword);
    if (parts->user) url += "@";
    std::optional<std::string> host(*parts->host);
    if (!isLiteral(*host) && !consistsOf(*host, inHost)) host = internationalName(*host);
    if (!host || (!isLiteral(*host) && !consistsOf(*host, inHost))) return std::nullopt;
    url += *host;
    if (parts->port && !parts->port->empty()) url += ":" + std::string(*parts->port);
  }
  url += encoded(parts->path, inPath);
  if (parts->query) url += "?" + encoded(*parts->query, inQuery);
  if (parts->fragment) url += "#" + encoded(*parts->fragment, inQuery);
  // A bracket that was encoded can leave a colon behind that now ends a scheme.
  return isURL(url) ? std::optional(url) : std::nullopt;
}

std::string schemeOf(std::string_view url) {
  const auto parts = takeApart(url);
  return std::string(parts ? parts->scheme.value_or("") : "");
}

// NSURL.h recommends that ";" is encoded, though it is legal in a path, and says that its own set of characters does
// so.
std::string fileURL(std::string_view path) {
  std::string url = "file://";
  for (std::size_t at = 0; at <= path.size();) {
    const std::size_t end = std::min(path.find(';', at), path.size());
    url += percentEncoded(path.substr(at, end - at), inPath);
    if (end < path.size()) url += "%3B";
    at = end + 1;
  }
  return url;
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
  using simulator::Call;
  if (Call::isPossible() && Call("CFURLCreateFromFileSystemRepresentation").fault()) return nullptr;
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
  // By RFC 3986 nothing at all is a reference, to the document that it stands in.
  const std::optional<std::string> url = text.empty()                ? std::optional(text)
                                         : encodingInvalidCharacters ? simulator::encodedURL(text)
                                         : simulator::isURL(text)    ? std::optional(text)
                                                                     : std::nullopt;
  return URL(CF::adopt(static_cast<CFTypeRef>(url ? new __CFURL(*url) : nullptr)));
}

std::string URL::absoluteString() const { return live<__CFURL>(get(), "NSURL.absoluteString").text; }

std::string URL::scheme() const { return simulator::schemeOf(live<__CFURL>(get(), "NSURL.scheme").text); }

}  // namespace NS
