#include "desk/campaign/Shrink.h"

#include <algorithm>
#include <cstddef>

namespace campaign {

namespace {

Lines without(const Lines& lines, std::size_t from, std::size_t to) {
  Lines rest(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(from));
  rest.insert(rest.end(), lines.begin() + static_cast<std::ptrdiff_t>(to), lines.end());
  return rest;
}

// The lines that set the desk up, and the shortest end of the others that is enough, of lengths that double.
Lines endOf(const Lines& lines, std::size_t first, const Shows& shows) {
  for (std::size_t length = 8; first + length < lines.size(); length *= 2) {
    Lines shorter = without(lines, first, lines.size() - length);
    if (shows(shorter)) return shorter;
  }
  return lines;
}

}  // namespace

Lines shrink(Lines lines, std::size_t first, const Shows& shows) {
  lines = endOf(lines, std::min(first, lines.size()), shows);
  for (std::size_t size = std::max<std::size_t>(lines.size() / 2, 1);;) {
    bool isShorter = false;
    // From the end, because lines depend on those before them.
    for (std::size_t end = lines.size(); end > 0;) {
      const std::size_t begin = end > size ? end - size : 0;
      Lines shorter = without(lines, begin, end);
      if (shows(shorter)) {
        lines = std::move(shorter);
        isShorter = true;
      }
      end = begin;
    }
    // Without any of the rest it does not show; a line that could be left out may have made another one needless.
    if (size == 1 && !isShorter) return lines;
    size = std::max<std::size_t>(size / 2, 1);
  }
}

}  // namespace campaign
