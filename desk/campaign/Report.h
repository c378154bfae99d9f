// What is said of a campaign: how far it is, and what it found.
#pragma once

#include <chrono>
#include <cstdint>
#include <ostream>
#include <string>

#include "desk/campaign/Run.h"
#include "desk/campaign/Shrink.h"
#include "simulator/kernel/Process.h"

namespace campaign {

// Where what is said goes.
struct Streams {
  std::ostream& out;
  std::ostream& errors;
  std::ostream* progress;  // null: none is shown
};

// How far it is, in a line that is written over again and again, and how long it has taken.
class Progress {
 public:
  explicit Progress(const Streams& streams) : out_(streams.progress) {}

  // So much is done of all, in units of that name. Shown twice a second at most.
  void show(std::uint64_t done, std::uint64_t all, const char* unit);
  void clear() const;
  [[nodiscard]] double seconds() const;

 private:
  std::ostream* const out_;
  const std::chrono::steady_clock::time_point begun_ = std::chrono::steady_clock::now();
  double shownAt_ = 0;
};

// An invariant that did not hold, and the lines that show it.
struct Finding {
  std::string name;  // what the scenario's file is called, before the invariant
  std::uint64_t seed = 1;
  Lines lines;
  Breach breach;
};

// Says what is broken, with the trace around it.
void describe(const Breach& breach, std::uint64_t seed, const Streams& streams);

// That, and the shortest scenario that shows it, which is looked for and written to a file in `folder`.
void report(const simulator::Program& program, const Finding& finding, const std::string& folder,
            const Streams& streams);

}  // namespace campaign
