#include "simulator/kernel/Schedule.h"

#include <algorithm>
#include <charconv>
#include <utility>

namespace simulator {

// ---- Seeds ----

std::optional<Seed> Seed::parse(std::string_view text) {
  const auto number = [&text](auto& value) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc{}) return false;
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    return true;
  };
  Seed seed;
  if (!text.starts_with('@')) return number(seed.number) && text.empty() ? std::optional(seed) : std::nullopt;
  auto& departures = seed.departures.emplace();
  for (text.remove_prefix(1); !text.empty(); text.remove_prefix(text.starts_with(',') ? 1 : 0)) {
    Departure departure{};
    if (!number(departure.choice) || !text.starts_with(':')) return std::nullopt;
    text.remove_prefix(1);
    if (!number(departure.possibility) || (!text.empty() && !text.starts_with(','))) return std::nullopt;
    if (!departures.empty() && departures.back().choice >= departure.choice) return std::nullopt;
    if (text == ",") return std::nullopt;
    departures.push_back(departure);
  }
  return seed;
}

std::string Seed::text() const {
  if (!departures) return std::to_string(number);
  std::string result = "@";
  for (const Departure& each : *departures) {
    if (result.size() > 1) result += ',';
    result += std::to_string(each.choice) + ':' + std::to_string(each.possibility);
  }
  return result;
}

// ---- Choices ----

Schedule::Schedule(Seed seed)
    : seed_(std::move(seed)),
      policy_(seed_.departures        ? Policy::given
              : seed_.number % 2 == 0 ? Policy::priorities
                                      : Policy::uniform),
      generator_(seed_.number) {}

std::size_t Schedule::choose(std::size_t n) {
  if (n == 1) return 0;
  return policy_ == Policy::given ? take(n) : random(n);
}

// The choice at hand, as it was given.
std::size_t Schedule::take(std::size_t possibilities) {
  const std::size_t choice = choices_.size();
  choices_.push_back(static_cast<std::uint32_t>(possibilities));
  if (departure_ == seed_.departures->size() || (*seed_.departures)[departure_].choice != choice) return 0;
  // A schedule that was written for another run may ask for what this one does not have.
  return std::min<std::size_t>((*seed_.departures)[departure_++].possibility, possibilities - 1);
}

void Schedule::beginBurst() {
  ++burst_;
  longestBurst_ = std::max(longestBurst_, step_);
  step_ = 0;
  lowest_ = lowRange;
  hasChanges_ = false;
}

std::size_t Schedule::pick(const std::vector<Rank*>& ready, bool continues) {
  // Nothing is drawn in bursts without a choice: a device's I/O thread has one a cycle, for hours.
  if (ready.size() == 1) return 0;
  if (!std::exchange(hasChanges_, true)) {
    changes_.resize(random(4));
    for (std::uint64_t& change : changes_) change = random(longestBurst_);
  }
  for (Rank* const rank : ready) {
    if (std::exchange(rank->burst, burst_) != burst_) rank->priority = lowRange + random(lowRange);
  }
  const auto highest = [&ready] {
    const auto byPriority = [](const Rank* rank) { return rank->priority; };
    return static_cast<std::size_t>(std::ranges::max_element(ready, {}, byPriority) - ready.begin());
  };
  std::size_t chosen = highest();
  if (continues && std::ranges::find(changes_, step_++) != changes_.end()) {
    ready[chosen]->priority = --lowest_;
    chosen = highest();
  }
  return chosen;
}

void Schedule::yield(Rank& rank) {
  if (ranks()) rank = {.burst = burst_, .priority = --lowest_};
}

}  // namespace simulator
