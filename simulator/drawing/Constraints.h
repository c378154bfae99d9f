// A system of linear constraints with priorities, solved as AppKit's layout engine solves one: each priority is
// satisfied as well as it can be before the next lower one counts (Badros, Borning, Stuckey: "The Cassowary Linear
// Arithmetic Constraint Solving Algorithm", 2001). Knows nothing of views.
#pragma once

#include <cstddef>
#include <limits>
#include <optional>
#include <utility>
#include <vector>

namespace drawing {

class Constraints {
 public:
  enum class Relation { equal, atLeast, atMost };
  // Variables with their factors.
  using Terms = std::vector<std::pair<std::size_t, double>>;

  static constexpr double required = 1000;

  // A new variable, of any sign.
  std::size_t variable() { return variables_++; }
  // The sum of `terms` is in that relation to `constant`, with a priority above 0 and up to `required`.
  void add(Terms terms, Relation relation, double constant, double priority = required);

  // A value for each variable; none when the required constraints contradict each other. Where the constraints leave
  // several solutions, one of them, always the same.
  [[nodiscard]] std::optional<std::vector<double>> solve() const;

 private:
  struct Constraint {
    Terms terms;
    Relation relation;
    double constant;
    double priority;
  };

  std::size_t variables_ = 0;
  std::vector<Constraint> constraints_;
};

}  // namespace drawing
