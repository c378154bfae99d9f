#include "simulator/drawing/Constraints.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <set>

namespace drawing {
namespace {

constexpr double tolerance = 1e-9;

// The simplex method on a dense table, for a few dozen constraints. Every column is a number that is not negative: a
// variable is the difference of two, a constraint misses its constant by one or two errors, and a relation other than
// equality leaves a slack.
class Table {
 public:
  explicit Table(std::size_t variables) : costs_(2 * variables, 0) {}

  std::size_t addColumn(double priority) {
    costs_.push_back(priority);
    return costs_.size() - 1;
  }

  // A row: the sum of `terms` equals `constant`. `ifPositive` or `ifNegative` makes up for the constant at first.
  void addRow(const Constraints::Terms& terms, double constant, std::size_t ifPositive, std::size_t ifNegative) {
    const double sign = constant < 0 ? -1 : 1;
    rows_.push_back({terms, sign, constant * sign});
    basis_.push_back(constant < 0 ? ifNegative : ifPositive);
  }

  void begin() {
    cells_.assign(rows_.size(), std::vector<double>(costs_.size(), 0));
    for (std::size_t row = 0; row < rows_.size(); ++row) {
      for (const auto& [column, factor] : rows_[row].terms) cells_[row][column] += factor * rows_[row].sign;
    }
    barred_.assign(costs_.size(), false);
  }

  // Makes the errors of that priority as small as they can be, and keeps them so. Their sum.
  double minimize(double priority) {
    std::vector<double> reduced = reducedCosts(priority);
    // The first column that helps, so that the search cannot go in a circle (Bland's rule).
    const auto helps = [&](std::size_t column) { return !barred_[column] && reduced[column] < -tolerance; };
    for (;;) {
      std::size_t entering = 0;
      while (entering < costs_.size() && !helps(entering)) ++entering;
      if (entering == costs_.size()) break;
      pivot(leaving(entering), entering);
      reduced = reducedCosts(priority);
    }
    for (std::size_t column = 0; column < costs_.size(); ++column) {
      if (reduced[column] > tolerance) barred_[column] = true;
    }
    double sum = 0;
    for (std::size_t row = 0; row < rows_.size(); ++row) sum += costs_[basis_[row]] == priority ? rows_[row].value : 0;
    return sum;
  }

  [[nodiscard]] std::vector<double> values() const {
    std::vector<double> values(costs_.size(), 0);
    for (std::size_t row = 0; row < rows_.size(); ++row) values[basis_[row]] = rows_[row].value;
    return values;
  }

 private:
  struct Row {
    Constraints::Terms terms;
    double sign;
    double value;
  };

  // By how much the sum of the errors grows with each column.
  [[nodiscard]] std::vector<double> reducedCosts(double priority) const {
    std::vector<double> reduced(costs_.size());
    for (std::size_t column = 0; column < costs_.size(); ++column) reduced[column] = costs_[column] == priority ? 1 : 0;
    for (std::size_t row = 0; row < rows_.size(); ++row) {
      if (costs_[basis_[row]] != priority) continue;
      for (std::size_t column = 0; column < costs_.size(); ++column) reduced[column] -= cells_[row][column];
    }
    return reduced;
  }

  // The row that first stands in the way of the column's growth. There is one: an error cannot fall below nothing.
  [[nodiscard]] std::size_t leaving(std::size_t column) const {
    std::size_t chosen = rows_.size();
    double least = std::numeric_limits<double>::infinity();
    for (std::size_t row = 0; row < rows_.size(); ++row) {
      if (cells_[row][column] <= tolerance) continue;
      const double ratio = rows_[row].value / cells_[row][column];
      if (ratio < least - tolerance || (ratio < least + tolerance && basis_[row] < basis_[chosen])) {
        least = ratio;
        chosen = row;
      }
    }
    return chosen;
  }

  void pivot(std::size_t row, std::size_t column) {
    const double factor = cells_[row][column];
    for (double& cell : cells_[row]) cell /= factor;
    rows_[row].value /= factor;
    for (std::size_t other = 0; other < rows_.size(); ++other) {
      const double times = cells_[other][column];
      if (other == row || times == 0) continue;
      for (std::size_t each = 0; each < costs_.size(); ++each) cells_[other][each] -= times * cells_[row][each];
      rows_[other].value -= times * rows_[row].value;
    }
    basis_[row] = column;
  }

  std::vector<double> costs_;  // of each column: the priority of an error, 0 for what costs nothing
  std::vector<Row> rows_;
  std::vector<std::size_t> basis_;  // of each row: the column that it gives the value of
  std::vector<std::vector<double>> cells_;
  std::vector<bool> barred_;  // columns that would undo what a higher priority has reached
};

}  // namespace

void Constraints::add(Terms terms, Relation relation, double constant, double priority) {
  constraints_.push_back({std::move(terms), relation, constant, priority});
}

std::optional<std::vector<double>> Constraints::solve() const {
  Table table(variables_);
  std::set<double, std::greater<>> priorities;
  for (const auto& [terms, relation, constant, priority] : constraints_) {
    Terms row;
    for (const auto& [variable, factor] : terms) {
      row.emplace_back(2 * variable, factor);
      row.emplace_back(2 * variable + 1, -factor);
    }
    // What is missing for the constant, and what is too much.
    const std::size_t missing = table.addColumn(relation == Relation::atMost ? 0 : priority);
    const std::size_t excess = table.addColumn(relation == Relation::atLeast ? 0 : priority);
    row.emplace_back(missing, 1);
    row.emplace_back(excess, -1);
    table.addRow(row, constant, missing, excess);
    priorities.insert(priority);
  }
  table.begin();
  for (const double priority : priorities) {
    if (table.minimize(priority) > tolerance && priority == required) return std::nullopt;
  }
  const std::vector<double> columns = table.values();
  std::vector<double> values(variables_);
  for (std::size_t i = 0; i < variables_; ++i) values[i] = columns[2 * i] - columns[2 * i + 1];
  return values;
}

}  // namespace drawing
