// What asynchronous work ended with.
#pragma once

#include <exception>
#include <utility>
#include <variant>

#include "app/AppError.h"

// The work's result, or the error that ended it.
template <typename T>
using Outcome = std::variant<T, AppError>;

// Does `work` and keeps what it returns or throws. An error's text is kept unchanged.
template <typename Work>
[[nodiscard]] auto attempt(Work&& work) -> Outcome<decltype(work())> {
  try {
    return std::forward<Work>(work)();
  } catch (const AppError& error) {
    return error;
  } catch (const std::exception& error) {
    return AppError(error.what());
  }
}

// The result; throws the error when there is none.
template <typename T>
[[nodiscard]] const T& value(const Outcome<T>& outcome) {
  if (const auto* error = std::get_if<AppError>(&outcome)) throw *error;
  return std::get<T>(outcome);
}
