#include "desk/Requests.h"

#include <algorithm>
#include <nlohmann/json.hpp>

using nlohmann::json;

bool isForThisDesk(const std::vector<std::string>& hosts, const std::vector<std::string>& origins, int port) {
  const std::string end = ":" + std::to_string(port);
  if (hosts.size() != 1 || (hosts[0] != "127.0.0.1" + end && hosts[0] != "localhost" + end)) return false;
  return origins.empty() || (origins.size() == 1 && origins[0] == "http://" + hosts[0]);
}

std::string lineOf(std::string_view body) {
  std::string line(body);
  const auto breaks = [](char c) { return c == '\n' || c == '\r'; };
  std::ranges::replace_if(line, breaks, ' ');
  return line;
}

std::optional<Beginning> beginningOf(std::string_view body) {
  const json wanted = json::parse(body, nullptr, false);
  if (!wanted.is_object() || wanted.size() != 2) return std::nullopt;
  const auto furnished = wanted.find("furnished");
  const auto seed = wanted.find("seed");
  if (furnished == wanted.end() || !furnished->is_boolean() || seed == wanted.end() || !seed->is_string()) {
    return std::nullopt;
  }
  return Beginning{furnished->get<bool>(), seed->get<std::string>()};
}
