// Universally unique identifiers.
#pragma once

#include <string>
#include <utility>

#include "simulator/kernel/Object.h"

namespace simulator {

struct UUIDObject : Object {
  explicit UUIDObject(std::string standardForm) : text(std::move(standardForm)) {}
  std::string_view kind() const override { return "NSUUID"; }
  const std::string text;
};

// A fresh one, in the standard upper-case text form.
std::string newUUID();

}  // namespace simulator
