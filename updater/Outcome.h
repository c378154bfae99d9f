// What asynchronous work ended with.
#pragma once

#include <exception>
#include <type_traits>
#include <utility>
#include <variant>

#include "base/AppError.h"
#include "platform/Text.h"

// The work's result, or the error that ended it.
template <typename T>
using Outcome = std::variant<T, AppError>;

// What `Work` results in; nothing becomes std::monostate.
template <typename Work>
using ResultOf =
    std::conditional_t<std::is_void_v<std::invoke_result_t<Work>>, std::monostate, std::invoke_result_t<Work>>;

// Does `work` and keeps what it returns or throws. An error's text is kept as far as it can be shown to a user: the
// JSON decoder quotes what it read last, which may end in the middle of a character.
template <typename Work>
[[nodiscard]] auto attempt(Work&& work) -> Outcome<ResultOf<Work>> {
  try {
    if constexpr (std::is_void_v<std::invoke_result_t<Work>>) {
      std::forward<Work>(work)();
      return std::monostate();
    } else {
      return std::forward<Work>(work)();
    }
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
