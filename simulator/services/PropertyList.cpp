#include "simulator/services/PropertyList.h"

#include <charconv>
#include <limits>
#include <optional>
#include <stdexcept>

namespace simulator {
namespace {

constexpr std::string_view header =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" \"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
    "<plist version=\"1.0\">\n";
constexpr std::string_view footer = "</plist>\n";

std::string escape(std::string_view text) {
  std::string result;
  for (const char c : text) {
    switch (c) {
      case '&':
        result += "&amp;";
        break;
      case '<':
        result += "&lt;";
        break;
      case '>':
        result += "&gt;";
        break;
      default:
        result += c;
    }
  }
  return result;
}

std::string unescape(std::string_view text) {
  std::string result;
  for (std::size_t i = 0; i < text.size();) {
    const std::string_view rest = text.substr(i);
    if (rest.starts_with("&amp;")) {
      result += '&';
      i += 5;
    } else if (rest.starts_with("&lt;")) {
      result += '<';
      i += 4;
    } else if (rest.starts_with("&gt;")) {
      result += '>';
      i += 4;
    } else {
      result += text[i++];
    }
  }
  return result;
}

void write(std::string& out, const nlohmann::json& value, const std::string& indent) {
  const auto element = [&](std::string_view tag, const std::string& content) {
    out += indent + "<" + std::string(tag) + ">" + content + "</" + std::string(tag) + ">\n";
  };
  switch (value.type()) {
    case nlohmann::json::value_t::string:
      return element("string", escape(value.get<std::string>()));
    case nlohmann::json::value_t::boolean:
      out += indent + (value.get<bool>() ? "<true/>\n" : "<false/>\n");
      return;
    case nlohmann::json::value_t::number_integer:
    case nlohmann::json::value_t::number_unsigned:
      return element("integer", value.dump());
    case nlohmann::json::value_t::number_float:
      return element("real", value.dump());
    case nlohmann::json::value_t::array:
      out += indent + "<array>\n";
      for (const auto& each : value) write(out, each, indent + "\t");
      out += indent + "</array>\n";
      return;
    case nlohmann::json::value_t::object:
      out += indent + "<dict>\n";
      for (const auto& [key, each] : value.items()) {
        if (each.is_null()) continue;
        out += indent + "\t<key>" + escape(key) + "</key>\n";
        write(out, each, indent + "\t");
      }
      out += indent + "</dict>\n";
      return;
    default:
      return;
  }
}

class Reader {
 public:
  explicit Reader(std::string_view text) : text_(text) {}

  nlohmann::json value() {
    const std::string tag = open();
    if (tag == "true/") return true;
    if (tag == "false/") return false;
    if (tag == "string") return unescape(content(tag));
    if (tag == "integer") return integer(content(tag));
    if (tag == "real") return number<double>(content(tag));
    if (tag == "array") {
      auto list = nlohmann::json::array();
      while (!close(tag)) list.push_back(value());
      return list;
    }
    if (tag == "dict") {
      auto dictionary = nlohmann::json::object();
      while (!close(tag)) {
        if (open() != "key") fail("a key is missing");
        const std::string key = unescape(content("key"));
        dictionary[key] = value();
      }
      return dictionary;
    }
    fail("unknown element " + tag);
  }

 private:
  [[noreturn]] static void fail(const std::string& reason) { throw std::runtime_error("property list: " + reason); }

  void skipSpace() { at_ = std::min(text_.find_first_not_of(" \t\r\n", at_), text_.size()); }

  std::string open() {
    skipSpace();
    const auto end = text_.find('>', at_);
    if (at_ == text_.size() || text_[at_] != '<' || end == std::string_view::npos) fail("an element is missing");
    const std::string tag(text_.substr(at_ + 1, end - at_ - 1));
    at_ = end + 1;
    return tag;
  }

  bool close(const std::string& tag) {
    skipSpace();
    const std::string end = "</" + tag + ">";
    if (!text_.substr(at_).starts_with(end)) return false;
    at_ += end.size();
    return true;
  }

  std::string_view content(const std::string& tag) {
    const auto end = text_.find("</" + tag + ">", at_);
    if (end == std::string_view::npos) fail("the end of " + tag + " is missing");
    const std::string_view inner = text_.substr(at_, end - at_);
    at_ = end + tag.size() + 3;
    return inner;
  }

  template <typename T>
  static std::optional<T> parsed(std::string_view digits) {
    T result{};
    const auto end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, result);
    return error == std::errc() && stop == end ? std::optional(result) : std::nullopt;
  }

  template <typename T>
  static T number(std::string_view digits) {
    if (const auto result = parsed<T>(digits)) return *result;
    fail("\"" + std::string(digits) + "\" is no number");
  }

  // Integers reach from the least signed one to the greatest unsigned one.
  static nlohmann::json integer(std::string_view digits) {
    if (const auto result = parsed<std::int64_t>(digits)) return *result;
    return number<std::uint64_t>(digits);
  }

  std::string_view text_;
  std::size_t at_ = 0;
};

}  // namespace

std::string writePropertyList(const nlohmann::json& value) {
  std::string out(header);
  write(out, value, "");
  out += footer;
  return out;
}

nlohmann::json readPropertyList(std::string_view text) {
  const auto start = text.find("<plist");
  const auto root = start == std::string_view::npos ? start : text.find('>', start);
  if (root == std::string_view::npos) throw std::runtime_error("property list: no plist element");
  return Reader(text.substr(root + 1)).value();
}

}  // namespace simulator
