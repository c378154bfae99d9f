#include "updater/Outcome.h"

#include <nlohmann/json.hpp>

std::string validText(std::string_view text) {
  // The JSON writer replaces what is not UTF-8, and the reader takes quotes and escapes away again.
  using nlohmann::json;
  return json::parse(json(text).dump(-1, ' ', false, json::error_handler_t::replace)).get<std::string>();
}
