// The program's one error type, and the way it stops on a broken assumption.
#pragma once

#include <cstdint>
#include <exception>
#include <string>
#include <string_view>

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

// Stops the process on a programming or packaging error, with `message` in the unified log.
[[noreturn]] void fatalError(std::string_view message);

// Stops the process unless it is called on the main thread.
void assertMainThread();
