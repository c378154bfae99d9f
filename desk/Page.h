// The files of the desk page, which are part of this executable (cmake/EmbedPage.cmake).
#pragma once

#include <span>
#include <string_view>

struct PageFile {
  std::string_view name;
  std::string_view content;
};

std::span<const PageFile> pageFiles();
