// XML property lists, the form in which the system keeps preferences: libplist's.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

namespace simulator {

// A value without the types that JSON lacks (dates and data); null has no form and is left out.
std::string writePropertyList(const nlohmann::json& value);
// The reverse; throws std::runtime_error when the text is no property list of those types.
nlohmann::json readPropertyList(std::string_view text);

}  // namespace simulator
