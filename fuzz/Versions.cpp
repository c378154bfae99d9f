// Texts of versions, three of them. Beyond not crashing: no version is newer than itself, of two not each is newer than
// the other, and among versions of equally many numbers the order is one that can be sorted by: what is newer than a
// newer one is newer still, and what is as old as another stands to all others as that does. What a text was taken for,
// written down in plain, is taken for the same.
#include <limits>
#include <string>

#include "fuzz/Target.h"
#include "updater/ReleaseFeed.h"

namespace {

using Parts = ReleaseFeed::Parts;

std::string written(const Parts& parts) {
  std::string text;
  for (const std::int64_t number : parts.numbers) text += (text.empty() ? "" : ".") + std::to_string(number);
  if (parts.beta != std::numeric_limits<std::int64_t>::max()) text += "-beta." + std::to_string(parts.beta);
  return text;
}

bool areLevel(const std::string& a, const std::string& b) {
  return !ReleaseFeed::isNewer(a, b) && !ReleaseFeed::isNewer(b, a);
}

const fuzz::Target target("Versions", [](std::string_view bytes) {
  fuzz::Input input(bytes);
  const std::string a(input.text());
  const std::string b(input.text());
  const std::string c(input.rest());
  const Parts parts[] = {ReleaseFeed::parts(a), ReleaseFeed::parts(b), ReleaseFeed::parts(c)};
  for (const Parts& each : parts) {
    fuzz::require(each.numbers.size() >= 3, "a version has three numbers or more");
    fuzz::require(ReleaseFeed::parts(written(each)) == each, "a version in plain is the same version");
  }
  fuzz::require(!ReleaseFeed::isNewer(a, a), "no version is newer than itself");
  fuzz::require(!(ReleaseFeed::isNewer(a, b) && ReleaseFeed::isNewer(b, a)), "one of two is the newer one");
  fuzz::require(ReleaseFeed::isNewer(a, b) == ReleaseFeed::isNewer(written(parts[0]), written(parts[1])),
                "versions in plain compare as the texts do");

  const std::size_t count = parts[0].numbers.size();
  if (parts[1].numbers.size() != count || parts[2].numbers.size() != count) return;
  fuzz::require(areLevel(a, b) == (parts[0] == parts[1]), "versions are level when they are the same");
  if (ReleaseFeed::isNewer(a, b) && ReleaseFeed::isNewer(b, c)) {
    fuzz::require(ReleaseFeed::isNewer(a, c), "newer than a newer one is newer");
  }
  if (areLevel(a, b)) {
    fuzz::require(ReleaseFeed::isNewer(a, c) == ReleaseFeed::isNewer(b, c), "level versions compare alike");
  }
});

}  // namespace
