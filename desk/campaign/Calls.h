// The platform's functions that the program calls: what each is made to fail with, and which cannot fail.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace campaign {

// What calls of a function are made to fail with, each on its own: an errno, a tool's exit status, or any number.
std::vector<int> statusesOf(const std::string& call);

// The functions that have no way to fail, and why.
const std::map<std::string_view, std::string_view>& cannotFail();

// What the program says when it stops on purpose, for a failure of `call`; null: it must go on.
const char* stopFor(const std::string& call, const std::string& trace);

}  // namespace campaign
