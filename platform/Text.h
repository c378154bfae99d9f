// Texts that come from anywhere, as the platform takes them. Usable from any thread.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

// The bytes at the beginning of a text that belong together: a UTF-8 sequence, or what is replaced by one character.
struct TextSequence {
  std::size_t length;
  bool isValid;
};

// Of a text that is not empty. A sequence that is not complete goes as far as it could have become one (Unicode,
// tables 3-7 and 3-8).
[[nodiscard]] inline TextSequence firstSequence(std::string_view text) {
  const auto byte = [text](std::size_t i) { return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U; };
  const unsigned lead = byte(0);
  if (lead < 0x80) return {1, true};
  if (lead < 0xC2 || lead > 0xF4) return {1, false};
  // The second byte keeps out overlong forms, surrogates and what is beyond the last character.
  const unsigned least = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
  const unsigned most = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
  if (byte(1) < least || byte(1) > most) return {1, false};
  const std::size_t whole = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
  for (std::size_t i = 2; i < whole; ++i) {
    if (byte(i) < 0x80 || byte(i) > 0xBF) return {i, false};
  }
  return {whole, true};
}

// The text with a replacement character (U+FFFD) for what is not UTF-8. No string object can be made of anything else,
// and AppKit takes no nil.
[[nodiscard]] inline std::string validText(std::string_view text) {
  std::string valid;
  valid.reserve(text.size());
  while (!text.empty()) {
    const TextSequence first = firstSequence(text);
    valid += first.isValid ? text.substr(0, first.length) : "\uFFFD";
    text.remove_prefix(first.length);
  }
  return valid;
}
