// NSColor's named colours.
#pragma once

#include "simulator/drawing/Metrics.h"
#include "simulator/kernel/Object.h"

namespace simulator {

struct ColorObject : Object {
  enum class Name { black, secondaryLabel };

  explicit ColorObject(Name which) : name(which) { makeImmortal(); }
  std::string_view kind() const override { return "NSColor"; }

  [[nodiscard]] drawing::Color in(const drawing::metrics::Appearance& appearance) const {
    return name == Name::black ? drawing::Color{} : appearance.secondaryLabel;
  }

  const Name name;
};

}  // namespace simulator
