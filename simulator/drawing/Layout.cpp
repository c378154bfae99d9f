#include "simulator/drawing/Layout.h"

#include <unordered_map>
#include <utility>

#include "simulator/drawing/Constraints.h"

namespace drawing {
namespace {

// The tree as constraints between four variables for each box: its left and top edges, its width and its height.
class Layout {
 public:
  explicit Layout(Box& root) : root_(root) {
    addVariables(root);
    for (const Axis axis : {horizontal, vertical}) add(low(root, axis), equal, 0);
    addConstraints(root);
  }

  void require(CGSize size) {
    add(extent(root_, horizontal), equal, size.width);
    add(extent(root_, vertical), equal, size.height);
  }

  void preferTheSmallest() {
    for (const Axis axis : {horizontal, vertical}) add(extent(root_, axis), equal, 0, fittingSizeCompression);
  }

  [[nodiscard]] bool solve() const {
    const auto values = constraints_.solve();
    if (!values) return false;
    for (const auto& [box, first] : variables_) {
      box->found = {{values->at(first), values->at(first + 1)}, {values->at(first + 2), values->at(first + 3)}};
    }
    return true;
  }

 private:
  using Terms = Constraints::Terms;
  static constexpr auto equal = Constraints::Relation::equal;
  static constexpr auto atLeast = Constraints::Relation::atLeast;
  static constexpr auto atMost = Constraints::Relation::atMost;

  void addVariables(Box& box) {
    variables_[&box] = constraints_.variable();
    for (int others = 0; others < 3; ++others) constraints_.variable();
    for (Box* const child : box.children) addVariables(*child);
  }

  // The edge where an axis begins, the extent along it, and the edge where it ends.
  [[nodiscard]] Terms low(Box& box, Axis axis) const { return {{variables_.at(&box) + axis, 1}}; }
  [[nodiscard]] Terms extent(Box& box, Axis axis) const { return {{variables_.at(&box) + 2 + axis, 1}}; }
  [[nodiscard]] Terms high(Box& box, Axis axis) const { return sum(low(box, axis), extent(box, axis)); }

  static Terms sum(Terms a, const Terms& b, double factor = 1) {
    for (const auto& [variable, times] : b) a.emplace_back(variable, times * factor);
    return a;
  }
  static Terms difference(Terms a, const Terms& b) { return sum(std::move(a), b, -1); }

  void add(Terms terms, Constraints::Relation relation, double constant, double priority = Constraints::required) {
    constraints_.add(std::move(terms), relation, constant, priority);
  }

  void addConstraints(Box& box) {
    for (const Axis axis : {horizontal, vertical}) {
      add(extent(box, axis), atLeast, 0);
      if (const auto& size = box.intrinsic[axis]) {
        add(extent(box, axis), atMost, *size, box.hugging[axis]);
        add(extent(box, axis), atLeast, *size, box.resistance[axis]);
      }
    }
    for (const Relation& relation : box.relations) {
      add(difference(place(relation.first), place(relation.second)), equal, relation.constant);
    }
    if (box.stack) addStack(box, *box.stack);
    for (Box* const child : box.children) {
      if (child->fixed) addFixed(box, *child, *child->fixed);
      addConstraints(*child);
    }
  }

  [[nodiscard]] Terms place(const Anchor& anchor) const {
    switch (anchor.kind) {
      case Anchor::Kind::leading:
        return low(*anchor.box, horizontal);
      case Anchor::Kind::trailing:
        return high(*anchor.box, horizontal);
      case Anchor::Kind::top:
        return low(*anchor.box, vertical);
      case Anchor::Kind::width:
        return extent(*anchor.box, horizontal);
    }
    return {};
  }

  void addFixed(Box& parent, Box& box, const CGRect& rect) {
    add(difference(low(box, horizontal), low(parent, horizontal)), equal, rect.origin.x);
    add(difference(low(box, vertical), low(parent, vertical)), equal, rect.origin.y);
    add(extent(box, horizontal), equal, rect.size.width);
    add(extent(box, vertical), equal, rect.size.height);
  }

  // The boxes follow each other from the stack's beginning. None may stick out; that the stack is no larger than they
  // need is a wish, as is their alignment.
  void addStack(Box& box, const Stack& stack) {
    Box* previous = nullptr;
    for (Box* const child : box.children) {
      if (child->hidden) continue;
      if (previous) {
        add(difference(low(*child, stack.axis), high(*previous, stack.axis)), equal, stack.spacing);
      } else {
        add(difference(low(*child, stack.axis), low(box, stack.axis)), equal, 0);
      }
      addAcross(box, *child, stack);
      previous = child;
    }
    if (!previous) return;
    const Terms rest = difference(high(box, stack.axis), high(*previous, stack.axis));
    add(rest, atLeast, 0);
    add(rest, atMost, 0, defaultLow);
  }

  void addAcross(Box& box, Box& child, const Stack& stack) {
    const Axis across = stack.axis == horizontal ? vertical : horizontal;
    add(difference(low(child, across), low(box, across)), atLeast, 0);
    add(difference(high(box, across), high(child, across)), atLeast, 0);
    add(difference(extent(box, across), extent(child, across)), atMost, 0, defaultLow);
    const Alignment fitting = across == vertical ? Alignment::centerY : Alignment::centerX;
    if (stack.alignment == fitting) {
      // Twice the distance of the middles.
      const Terms middle = sum(low(child, across), high(child, across));
      add(difference(middle, sum(low(box, across), high(box, across))), equal, 0, defaultLow);
    } else if (stack.alignment == Alignment::leading && across == horizontal) {
      add(difference(low(child, across), low(box, across)), equal, 0, defaultLow);
    }
  }

  Box& root_;
  Constraints constraints_;
  std::unordered_map<Box*, std::size_t> variables_;
};

}  // namespace

std::optional<CGSize> fittingSize(Box& root) {
  Layout layout(root);
  layout.preferTheSmallest();
  if (!layout.solve()) return std::nullopt;
  return root.found.size;
}

bool layOut(Box& root, CGSize size) {
  Layout layout(root);
  layout.require(size);
  return layout.solve();
}

}  // namespace drawing
