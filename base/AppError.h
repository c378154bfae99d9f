// The program's one error type.
#pragma once

#include <cstdint>
#include <exception>
#include <string>
#include <string_view>
#include <utility>

// A value holding one text, its description, which is what is logged or shown.
class AppError : public std::exception {
 public:
  explicit AppError(std::string message) : message_(std::move(message)) {}
  // "<operation> failed (OSStatus <status>)", for a platform call that answered a status other than 0.
  AppError(std::string_view operation, std::int32_t status);

  [[nodiscard]] const char* what() const noexcept override { return message_.c_str(); }

 private:
  std::string message_;
};
