// The release feed: the newest published release, and the order of versions.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "updater/Outcome.h"
#include "updater/Release.h"

// A namespace without instances. It keeps nothing between calls.
class ReleaseFeed {
 public:
  ReleaseFeed() = delete;

  // Fetches the feed afresh and hands its first release, or the error, to `completion`, once, on a background queue.
  // Usable from any thread.
  static void latest(std::function<void(Outcome<Release>)> completion);

  // Whether `candidate` is strictly newer than `current`. Numbers are compared from the left, only as many as both
  // have after padding to three; a final version is newer than every beta of the same numbers. Malformed numbers count
  // as 0. Usable from any thread.
  [[nodiscard]] static bool isNewer(std::string_view candidate, std::string_view current);

  // A version in the form in which it is compared.
  struct Parts {
    std::vector<std::int64_t> numbers;  // at least three
    std::int64_t beta = 0;              // the largest value for a final version
    friend bool operator==(const Parts&, const Parts&) = default;
  };
  [[nodiscard]] static Parts parts(std::string_view version);
};
