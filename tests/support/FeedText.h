// Feed documents of any length.
#pragma once

#include <cstddef>
#include <string>

// A feed of that many releases, newest first, each with two hundred characters of notes.
inline std::string feedText(std::size_t releases) {
  std::string text = "[";
  for (std::size_t i = 0; i < releases; ++i) {
    if (i > 0) text += ',';
    const std::string number = std::to_string(releases - i);
    text += R"({"version":"1.)" + number +
            R"(.0","date":"2025-03-02","dmg_url":"https://releases.dalvane.example/Dalvane-1.)" + number +
            R"(.0.dmg","size_bytes":4812345,"notes":")" + std::string(200, 'n') + "\"}";
  }
  return text + "]";
}
