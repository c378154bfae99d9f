// The choices of a run: who of the threads that are ready runs next, and which of the things that may happen in any
// order happens first.
#pragma once

#include <cstdint>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace simulator {

// Where a schedule departs from the plain one, in which a thread runs until it blocks and the others follow in the
// order in which they became ready: at that choice of the run, counted from 0, it takes that possibility (0 is the
// plain one).
struct Departure {
  std::uint32_t choice;
  std::uint32_t possibility;
  friend bool operator==(const Departure&, const Departure&) = default;
};

// What makes a run repeatable: a number, from which every choice is drawn, or the choices themselves.
struct Seed {
  Seed(std::uint64_t drawn = 1) : number(drawn) {}  // NOLINT(google-explicit-constructor)

  std::uint64_t number;
  std::optional<std::vector<Departure>> departures;  // in the order of their choices

  // "7", or "@" and the departures: "@", "@12:1", "@12:1,57:2". None when the text is neither.
  static std::optional<Seed> parse(std::string_view text);
  [[nodiscard]] std::string text() const;
};

class Schedule {
 public:
  explicit Schedule(Seed seed);

  // A number from 0 to n - 1 (n >= 1), for whatever is not a choice of order.
  std::uint64_t random(std::uint64_t n) { return generator_() % n; }

  // A choice among n things (n >= 1) that may happen in any order; 0 is the plain one.
  std::size_t choose(std::size_t n);

  // A thread's place among the others, for a burst: drawn when there first is a choice with it.
  struct Rank {
    std::uint64_t burst = 0;
    std::uint64_t priority = 0;
  };
  // Nothing was ready, and now something is: from here on the threads may have other places.
  void beginBurst();
  // Whether ranks matter; where they do not, `choose` says which thread runs next.
  [[nodiscard]] bool ranks() const { return policy_ == Policy::priorities; }
  // Which of the threads runs next. `continues`: the first of them runs now and could go on.
  std::size_t pick(const std::vector<Rank*>& ready, bool continues);
  // The thread waits for another without being blocked: all others come first.
  void yield(Rank& rank);

  // How many possibilities each choice of the run had, where departures are given.
  [[nodiscard]] const std::vector<std::uint32_t>& choices() const { return choices_; }

 private:
  // Even numbers play by priorities (PCT: Burckhardt et al., "A Randomized Scheduler with Probabilistic Guarantees of
  // Finding Bugs", ASPLOS 2010), which keep a thread waiting for long; odd ones pick uniformly.
  enum class Policy { uniform, priorities, given };
  std::size_t take(std::size_t possibilities);

  const Seed seed_;
  const Policy policy_;
  std::mt19937_64 generator_;

  // By priorities: in a burst of choices the running thread falls behind all others at a few of them.
  static constexpr std::uint64_t lowRange = std::uint64_t{1} << 32;
  std::uint64_t burst_ = 1;
  bool hasChanges_ = false;
  std::uint64_t lowest_ = lowRange;
  std::uint64_t step_ = 0;
  std::uint64_t longestBurst_ = 16;
  std::vector<std::uint64_t> changes_;

  // Given: the next departure, and what could be chosen.
  std::size_t departure_ = 0;
  std::vector<std::uint32_t> choices_;
};

}  // namespace simulator
