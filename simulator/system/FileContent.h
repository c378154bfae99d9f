// Whole files, read and written at once.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace simulator {

// Both throw std::system_error when the file cannot be read or written.
std::string readFile(const std::filesystem::path& path);
void writeFile(const std::filesystem::path& path, std::string_view content);

}  // namespace simulator
