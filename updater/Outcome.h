// What asynchronous work ended with.
#pragma once

#include <exception>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

#include "base/AppError.h"

// The work's result, or the error that ended it.
template <typename T>
using Outcome = std::variant<T, AppError>;

// The text with a replacement character for what is not UTF-8. Usable from any thread.
[[nodiscard]] std::string validText(std::string_view text);

// Does `work` and keeps what it returns or throws. An error's text is kept as far as it can be shown to a user: the
// JSON decoder quotes what it read last, which may end in the middle of a character.
template <typename Work>
[[nodiscard]] auto attempt(Work&& work) -> Outcome<decltype(work())> {
  try {
    return std::forward<Work>(work)();
  } catch (const AppError& error) {
    return error;
  } catch (const std::exception& error) {
    return AppError(validText(error.what()));
  }
}

// The result; throws the error when there is none.
template <typename T>
[[nodiscard]] const T& value(const Outcome<T>& outcome) {
  if (const auto* error = std::get_if<AppError>(&outcome)) throw *error;
  return std::get<T>(outcome);
}
