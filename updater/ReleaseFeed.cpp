#include "updater/ReleaseFeed.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <limits>
#include <optional>
#include <utility>

#include "platform/URLSession.h"

#ifndef DALVANE_FEED_HOST
#define DALVANE_FEED_HOST "releases.dalvane.example"
#endif

namespace {

constexpr const char* feedURL = "https://" DALVANE_FEED_HOST "/dalvane-releases/releases/releases.json";
constexpr double timeoutSeconds = 15;

Release newestRelease(const NS::Data& body, const NS::URLResponse& answer) {
  const NS::HTTPURLResponse response = NS::HTTPURLResponse::cast(answer);
  if (!response) throw AppError("The release feed gave no HTTP response");
  if (const long status = response.statusCode(); status != 200) {
    throw AppError("The release feed answered HTTP " + std::to_string(status));
  }
  std::optional<Release> newest = decodeNewestRelease({body.bytes(), body.length()});
  if (!newest) throw AppError("No releases are published yet");
  return *std::move(newest);
}

// The whole text as a decimal integer with an optional sign; 0 when it is none or does not fit.
std::int64_t integer(std::string_view text) {
  if (text.starts_with('+')) {
    text.remove_prefix(1);
    if (text.starts_with('-')) return 0;
  }
  // What is no number, or does not fit, leaves the value as it is.
  std::int64_t value = 0;
  const char* const begin = text.data();
  const char* const end = begin + text.size();
  return std::from_chars(begin, end, value).ptr == end ? value : 0;
}

}  // namespace

void ReleaseFeed::latest(std::function<void(Outcome<Release>)> completion) {
  const NS::URLRequest request = NS::URLRequest::requestWithURL(
      NS::URL::URLWithString(feedURL, false), NS::URLRequestCachePolicy::ReloadIgnoringLocalCacheData, timeoutSeconds);
  const auto handler = [completion = std::move(completion)](const NS::Data& body, const NS::URLResponse& response,
                                                            const NS::Error& error) {
    completion(attempt([&] {
      if (error) throw AppError(error.localizedDescription());
      return newestRelease(body, response);
    }));
  };
  NS::URLSession::sharedSession().dataTaskWithRequest(request, handler).resume();
}

ReleaseFeed::Parts ReleaseFeed::parts(std::string_view version) {
  constexpr std::string_view separator = "-beta.";
  Parts parts{{}, std::numeric_limits<std::int64_t>::max()};

  const std::size_t split = version.find(separator);
  if (split != std::string_view::npos) {
    const std::string_view rest = version.substr(split + separator.size());
    parts.beta = integer(rest.substr(0, rest.find(separator)));
  }

  std::string_view numbers = version.substr(0, split);
  while (!numbers.empty()) {
    const std::size_t dot = std::min(numbers.find('.'), numbers.size());
    if (dot > 0) parts.numbers.push_back(integer(numbers.substr(0, dot)));
    numbers.remove_prefix(std::min(dot + 1, numbers.size()));
  }
  while (parts.numbers.size() < 3) parts.numbers.push_back(0);
  return parts;
}

bool ReleaseFeed::isNewer(std::string_view candidate, std::string_view current) {
  const Parts theirs = parts(candidate);
  const Parts ours = parts(current);
  const std::size_t shared = std::min(theirs.numbers.size(), ours.numbers.size());
  for (std::size_t i = 0; i < shared; ++i) {
    if (theirs.numbers[i] != ours.numbers[i]) return theirs.numbers[i] > ours.numbers[i];
  }
  return theirs.beta > ours.beta;
}
