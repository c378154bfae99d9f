// Foundation's value types that the services hand over.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "simulator/kernel/Object.h"

// CFURL and NSURL are one type.
struct __CFURL : simulator::Object {
  explicit __CFURL(std::string absolute) : text(std::move(absolute)) {}
  std::string_view kind() const override { return "CFURL"; }
  const std::string text;
};

namespace simulator {

struct ErrorObject : Object {
  explicit ErrorObject(std::string description) : text(std::move(description)) {}
  std::string_view kind() const override { return "NSError"; }
  const std::string text;
};

struct DataObject : Object {
  explicit DataObject(std::string content) : bytes(std::move(content)) {}
  std::string_view kind() const override { return "NSData"; }
  const std::string bytes;
};

// Whether the text is a URL or a relative reference as RFC 3986 has them. The empty text is none, as for NSURL.
bool isURL(std::string_view text);
// The same with what is not allowed in encoded form, as NSURL does it on macOS 14 and later: host names as IDNA has
// them, everything else by percent signs. None when it is no URL then either.
std::optional<std::string> encodedURL(std::string_view text);
// As it is written; empty when there is none.
std::string schemeOf(std::string_view url);
// The URL of a file, and the other way round: none for a URL of another kind.
std::string fileURL(std::string_view path);
std::optional<std::string> filePath(std::string_view url);

}  // namespace simulator
