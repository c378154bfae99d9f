// Texts that are to become URLs. Beyond not crashing: a text that is a URL stays as it is, with encoding as without;
// what encoding makes of a text is a URL, of ASCII alone, that encoding leaves alone, of the same scheme; a file's path
// comes back from its URL.
#include <CoreFoundation/CoreFoundation.h>

#include <algorithm>
#include <string>

#include "fuzz/Target.h"
#include "platform/Text.h"
#include "platform/URL.h"

namespace {

void pathComesBack(std::string path) {
  std::erase(path, '\0');
  while (path.starts_with('/')) path.erase(0, 1);
  while (path.ends_with('/')) path.pop_back();
  path.insert(0, "/");
  const auto url = CF::adopt(CFURLCreateFromFileSystemRepresentation(
      kCFAllocatorDefault, reinterpret_cast<const UInt8*>(path.data()), static_cast<CFIndex>(path.size()), false));
  std::string found(path.size() + 1, '\0');
  const auto size = static_cast<CFIndex>(found.size());
  auto* const buffer = reinterpret_cast<UInt8*>(found.data());
  fuzz::require(CFURLGetFileSystemRepresentation(url.get(), true, buffer, size), "a path fits into its own length");
  fuzz::require(found.c_str() == path, "a path comes back from its URL");
  fuzz::require(!CFURLGetFileSystemRepresentation(url.get(), true, buffer, size - 1), "no path fits into less");
}

const fuzz::Target target("URLs", [](std::string_view bytes) {
  const std::string text = validText(bytes);
  const NS::URL strict = NS::URL::URLWithString(text, false);
  const NS::URL encoded = NS::URL::URLWithString(text, true);
  if (strict) {
    fuzz::require(strict.absoluteString() == text, "a URL stays as it is");
    fuzz::require(encoded && encoded.absoluteString() == text, "nothing is to be encoded in a URL");
  }
  pathComesBack(std::string(bytes.substr(0, 1000)));
  if (!encoded) return;
  const std::string result = encoded.absoluteString();
  const auto isASCII = [](char c) { return c > 0x20 && c < 0x7f; };
  fuzz::require(std::ranges::all_of(result, isASCII), "a URL is printable ASCII");
  const NS::URL again = NS::URL::URLWithString(result, false);
  fuzz::require(static_cast<bool>(again), "what was encoded is a URL");
  fuzz::require(again.scheme() == encoded.scheme(), "a URL keeps its scheme");
  const std::string scheme = encoded.scheme();
  fuzz::require(scheme.empty() || text.starts_with(scheme + ":"), "the scheme is what the text begins with");
});

}  // namespace
