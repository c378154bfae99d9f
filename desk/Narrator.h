// Tells what a trace's records mean, for people.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

// One line about the record, beginning with its time; empty for records that tell a newcomer nothing.
std::string narrate(const nlohmann::json& record);
