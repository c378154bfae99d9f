#include "simulator/displays/RegistryText.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <string>
#include <system_error>
#include <utility>

#include "simulator/foundation/CoreFoundation.h"

namespace simulator {
namespace {

using nlohmann::json;
using Entries = std::vector<std::shared_ptr<const RegistryEntry>>;

constexpr std::size_t deepestEntry = 200;  // a Mac has some thirty levels
constexpr int deepestValue = 60;

// A property's value:
//
//   18446744073709551615  "text"  Yes  No  <00ff1a>  <"data","of texts">  (1,2)  {"key"=1,"other"="text"}  [1,2]
//
// Quotes inside texts are not marked, so a text ends at the first quote behind which something comes that may follow
// it.
class Value {
 public:
  explicit Value(std::string_view text) : rest_(text) {}

  // None when the text is no value from beginning to end.
  std::optional<json> read() {
    if (rest_.size() > 1 && rest_.starts_with('"') && rest_.ends_with('"')) {
      return string(rest_.substr(1, rest_.size() - 2));
    }
    auto value = any(0, "");
    return rest_.empty() ? value : std::nullopt;
  }

 private:
  bool skip(std::string_view what) {
    if (!rest_.starts_with(what)) return false;
    rest_.remove_prefix(what.size());
    return true;
  }

  static std::optional<json> string(std::string_view text) {
    return isUTF8(text) ? std::optional<json>(text) : std::nullopt;
  }

  // What stands before the first of the two ends; the end itself but for its quote stays.
  std::optional<std::string_view> until(std::string_view end, std::string_view other) {
    const std::size_t at = std::min(rest_.find(end), rest_.find(other));
    if (at == std::string_view::npos) return std::nullopt;
    const std::string_view before = rest_.substr(0, at);
    rest_.remove_prefix(at + 1);
    return before;
  }

  // `ends` are the two ways in which a text ends where the value stands.
  using Ends = std::pair<std::string_view, std::string_view>;

  std::optional<json> any(int depth, std::string_view closing) {
    if (depth > deepestValue) return std::nullopt;
    if (skip("Yes")) return true;
    if (skip("No")) return false;
    if (skip("\"")) {
      // In a dictionary a key follows a comma.
      const auto text = closing == "}" ? until("\"}", "\",\"") : until("\"" + std::string(closing), "\",");
      return text ? string(*text) : std::nullopt;
    }
    if (skip("<")) return data();
    if (skip("(")) return list(depth, ")");
    if (skip("[")) return list(depth, "]");  // a set
    if (skip("{")) return dictionary(depth);
    return number();
  }

  std::optional<json> number() {
    const int base = skip("0x") ? 16 : 10;
    std::uint64_t bits = 0;
    const auto [end, error] = std::from_chars(rest_.data(), rest_.data() + rest_.size(), bits, base);
    if (error != std::errc()) return std::nullopt;
    rest_.remove_prefix(static_cast<std::size_t>(end - rest_.data()));
    return bits;
  }

  std::optional<json> data() {
    std::vector<std::uint8_t> bytes;
    if (rest_.starts_with('"')) {
      do {
        if (!skip("\"")) return std::nullopt;
        const auto text = until("\">", "\",\"");
        if (!text) return std::nullopt;
        bytes.insert(bytes.end(), text->begin(), text->end());
        bytes.push_back(0);
      } while (skip(","));
      return skip(">") ? std::optional(json::binary(std::move(bytes))) : std::nullopt;
    }
    while (!skip(">")) {
      std::uint8_t byte = 0;
      if (rest_.size() < 2 || std::from_chars(rest_.data(), rest_.data() + 2, byte, 16).ptr != rest_.data() + 2) {
        return std::nullopt;
      }
      bytes.push_back(byte);
      rest_.remove_prefix(2);
    }
    return json::binary(std::move(bytes));
  }

  std::optional<json> list(int depth, std::string_view closing) {
    json values = json::array();
    if (skip(closing)) return values;
    do {
      auto value = any(depth + 1, closing);
      if (!value) return std::nullopt;
      values.push_back(*std::move(value));
    } while (skip(","));
    return skip(closing) ? std::optional(std::move(values)) : std::nullopt;
  }

  std::optional<json> dictionary(int depth) {
    json members = json::object();
    if (skip("}")) return members;
    do {
      if (!skip("\"")) return std::nullopt;
      const auto key = until("\"=", "\"=");
      if (!key || !skip("=") || !isUTF8(*key)) return std::nullopt;
      auto value = any(depth + 1, "}");
      if (!value) return std::nullopt;
      members[std::string(*key)] = *std::move(value);
    } while (skip(","));
    return skip("}") ? std::optional(std::move(members)) : std::nullopt;
  }

  std::string_view rest_;
};

// A line without the lines of the tree in front of it.
std::string_view content(std::string_view line) {
  return line.substr(std::min(line.find_first_not_of("| "), line.size()));
}

// "+-o name@location  <class …>": the name alone.
std::optional<std::string> entryName(std::string_view text) {
  constexpr std::string_view mark = "+-o ";
  if (!text.starts_with(mark)) return std::nullopt;
  const std::size_t end = text.find("  <class ");
  if (end == std::string_view::npos) return std::nullopt;
  const std::string_view name = text.substr(mark.size(), end - mark.size());
  return std::string(name.substr(0, name.rfind('@')));
}

// "key" = value
void addProperty(std::string_view text, RegistryEntry& entry) {
  constexpr std::string_view separator = "\" = ";
  const std::size_t end = text.find(separator);
  if (!text.starts_with('"') || end == std::string_view::npos) return;
  const std::string_view key = text.substr(1, end - 1);
  const auto value = Value(text.substr(end + separator.size())).read();
  if (value && isUTF8(key)) entry.properties[std::string(key)] = *value;
}

// What a framebuffer says of the display that it drives.
std::optional<DisplayIdentity> identityOf(const RegistryEntry& framebuffer) {
  const json::json_pointer where("/DisplayAttributes/ProductAttributes");
  if (!framebuffer.properties.contains(where)) return std::nullopt;
  const json& attributes = framebuffer.properties.at(where);
  const auto number = [&attributes](const char* key) -> std::optional<std::uint32_t> {
    const auto found = attributes.find(key);
    if (found == attributes.end() || !found->is_number_unsigned()) return std::nullopt;
    const auto wide = found->get<std::uint64_t>();
    return wide <= UINT32_MAX ? std::optional(static_cast<std::uint32_t>(wide)) : std::nullopt;
  };
  const auto vendor = number("LegacyManufacturerID");
  const auto product = number("ProductID");
  const auto serial = number("SerialNumber");
  if (!vendor || !product || !serial) return std::nullopt;
  return DisplayIdentity{*vendor, *product, *serial};
}

// Leads external AV services to displays.
class Services {
 public:
  void lead(RegistryEntry& entry) {
    if (entry.name == "AppleCLCD2" || entry.name == "IOMobileFramebufferShim") {
      framebuffer_ = identityOf(entry);
    } else if (entry.name == "DCPAVServiceProxy" && framebuffer_ &&
               entry.properties.value("Location", json()) == "External") {
      const auto before = std::ranges::count(led_, *framebuffer_);
      entry.reaches = {*framebuffer_, static_cast<std::size_t>(before)};
      led_.push_back(*framebuffer_);
    }
  }

 private:
  std::optional<DisplayIdentity> framebuffer_;  // of the last one
  std::vector<DisplayIdentity> led_;
};

}  // namespace

std::optional<Entries> readRegistryText(std::string_view text) {
  RegistryEntry top;
  std::vector<RegistryEntry*> path = {&top};  // to the entry whose lines are being read
  std::vector<RegistryEntry*> walk;
  while (!text.empty()) {
    std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    if (line.ends_with('\r')) line.remove_suffix(1);
    const std::string_view written = content(line);
    if (auto name = entryName(written)) {
      const std::size_t depth = static_cast<std::size_t>(written.data() - line.data()) / 2;
      if (depth > deepestEntry) return std::nullopt;
      path.resize(std::min(depth + 1, path.size()));
      auto entry = std::make_shared<RegistryEntry>();
      entry->name = *std::move(name);
      path.back()->children.push_back(entry);
      path.push_back(entry.get());
      walk.push_back(entry.get());
    } else {
      addProperty(written, *path.back());
    }
  }
  if (walk.empty()) return std::nullopt;
  Services services;
  for (RegistryEntry* const entry : walk) services.lead(*entry);
  // The root is the machine's own.
  const auto& first = *top.children.front();
  return first.name == "Root" && top.children.size() == 1 ? first.children : top.children;
}

}  // namespace simulator
