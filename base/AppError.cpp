#include "base/AppError.h"

AppError::AppError(std::string_view operation, std::int32_t status)
    : message_(std::string(operation) + " failed (OSStatus " + std::to_string(status) + ")") {}
