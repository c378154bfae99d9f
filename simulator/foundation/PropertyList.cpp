#include "simulator/foundation/PropertyList.h"

#include <plist/plist.h>

#include <cstdint>
#include <cstdlib>
#include <limits>
#include <memory>
#include <stdexcept>

namespace simulator {
namespace {

using nlohmann::json;

struct Freed {
  void operator()(plist_t node) const { plist_free(node); }
  void operator()(char* text) const { std::free(text); }  // as libplist's documentation has it
};
using Node = std::unique_ptr<void, Freed>;
using Text = std::unique_ptr<char, Freed>;

std::string xml(plist_t node) {
  char* text = nullptr;
  std::uint32_t size = 0;
  plist_to_xml(node, &text, &size);
  const Text owned(text);
  return {text, size};
}

// Whether lists and dictionaries lie in each other deeper than any that somebody means; libplist takes them apart depth
// by depth, on the stack.
bool isTooDeep(std::string_view text) {
  constexpr int deepest = 512;
  int depth = 0;
  for (std::size_t at = 0; (at = text.find('<', at)) != std::string_view::npos; ++at) {
    const std::string_view tag = text.substr(at + 1, text.find('>', at) - at - 1);
    if (tag.ends_with('/')) continue;
    if (tag.starts_with("array") || tag.starts_with("dict")) ++depth;
    if (tag.starts_with("/array") || tag.starts_with("/dict")) --depth;
    if (depth > deepest) return true;
  }
  return false;
}

Node parse(std::string_view text) {
  plist_t node = nullptr;
  // XML has no null character, and libplist none in its texts.
  const bool isText = text.find('\0') == std::string_view::npos;
  if (isText && text.size() <= std::numeric_limits<std::uint32_t>::max() && !isTooDeep(text)) {
    plist_from_xml(text.data(), static_cast<std::uint32_t>(text.size()), &node);
  }
  if (!node) throw std::runtime_error("property list: the text is none");
  return Node(node);
}

// Integers reach from the least signed one to the greatest unsigned one. libplist keeps their 64 bits and tells the two
// kinds apart in text alone.
Node integerNode(const std::string& digits) { return parse("<plist><integer>" + digits + "</integer></plist>"); }

json integer(plist_t node) {
  const std::string text = xml(node);
  constexpr std::string_view tag = "<integer>";
  std::uint64_t bits = 0;
  plist_get_uint_val(node, &bits);
  const bool isNegative = text.at(text.find(tag) + tag.size()) == '-';
  if (isNegative) return static_cast<std::int64_t>(bits);
  return bits;
}

std::string string(plist_t node) {
  char* text = nullptr;
  plist_get_string_val(node, &text);
  const Text owned(text);
  return text;
}

json value(plist_t node);

json dictionary(plist_t node) {
  json result = json::object();
  plist_dict_iter iterator = nullptr;
  plist_dict_new_iter(node, &iterator);
  const std::unique_ptr<void, decltype(&std::free)> owned(iterator, &std::free);
  for (;;) {
    char* key = nullptr;
    plist_t member = nullptr;
    plist_dict_next_item(node, iterator, &key, &member);
    const Text ownedKey(key);
    if (!member) return result;
    result[key] = value(member);
  }
}

json value(plist_t node) {
  switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN: {
      std::uint8_t truth = 0;
      plist_get_bool_val(node, &truth);
      return truth != 0;
    }
    case PLIST_UINT:
      return integer(node);
    case PLIST_REAL: {
      double real = 0;
      plist_get_real_val(node, &real);
      return real + 0.0;  // libplist reads a negative zero and writes none
    }
    case PLIST_STRING:
      return string(node);
    case PLIST_ARRAY: {
      json list = json::array();
      for (std::uint32_t i = 0; i < plist_array_get_size(node); ++i)
        list.push_back(value(plist_array_get_item(node, i)));
      return list;
    }
    case PLIST_DICT:
      return dictionary(node);
    default:
      throw std::runtime_error("property list: a value of a type that JSON lacks");
  }
}

Node nodeOf(const json& value) {
  switch (value.type()) {
    case json::value_t::string:
      return Node(plist_new_string(value.get_ref<const std::string&>().c_str()));
    case json::value_t::boolean:
      return Node(plist_new_bool(value.get<bool>() ? 1 : 0));
    case json::value_t::number_integer:
    case json::value_t::number_unsigned:
      return integerNode(value.dump());
    case json::value_t::number_float:
      return Node(plist_new_real(value.get<double>()));
    case json::value_t::array: {
      Node list(plist_new_array());
      for (const json& each : value) {
        if (!each.is_null()) plist_array_append_item(list.get(), nodeOf(each).release());
      }
      return list;
    }
    default: {
      Node members(plist_new_dict());
      for (const auto& [key, each] : value.items()) {
        if (!each.is_null()) plist_dict_set_item(members.get(), key.c_str(), nodeOf(each).release());
      }
      return members;
    }
  }
}

}  // namespace

std::string writePropertyList(const json& value) { return xml(nodeOf(value).get()); }

json readPropertyList(std::string_view text) { return value(parse(text).get()); }

}  // namespace simulator
