// One life of a desk, played on a machine and held against the invariants.
#pragma once

#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "desk/campaign/Invariant.h"
#include "desk/campaign/World.h"
#include "simulator/kernel/Process.h"
#include "simulator/kernel/Schedule.h"

namespace simulator {
class Scenario;
}

namespace campaign {

// An invariant that does not hold.
struct Breach {
  std::string name;
  std::string sentence;
  std::string how;
  std::size_t lines = 0;  // that were played until then
  std::string trace;      // around it

  [[nodiscard]] std::string text() const;
  static Breach of(const std::string& text);
};

// The name of what is broken when the program stops, or breaks a rule of the platform.
inline constexpr const char* keepsGoing = "keeps-going";
inline constexpr const char* keepsGoingSentence = "The program never stops and breaks no rule of the platform.";

class Run {
 public:
  // `broken` is called at the first breach. After one that ends the process it must not return.
  Run(const simulator::Program& program, const simulator::Seed& seed, Invariants invariants,
      std::function<void(const Breach&)> broken);
  ~Run();
  Run(const Run&) = delete;
  Run& operator=(const Run&) = delete;

  // Plays the lines; those that make no sense where they stand, because others have raced past them, are left out.
  // False when an invariant does not hold. Calls `goesOn` now and then. Throws ScenarioError at a line that cannot be
  // understood, and when there is none; `file` is where the lines are from, and where their paths begin.
  bool play(const std::vector<std::string>& lines, const std::function<void()>& goesOn = {},
            const std::string& file = "campaign");
  // Quits the program, and counts what is left of it. False when an invariant does not hold.
  bool finish();

  [[nodiscard]] simulator::Mac& machine() { return *mac_; }

 private:
  void take(std::string_view line);
  bool look();
  void tell(const Invariant& invariant);
  void tell(Breach breach);

  Invariants invariants_;
  const std::function<void(const Breach&)> broken_;
  std::deque<std::string> trace_;  // its end
  std::size_t lines_ = 0;
  std::size_t given_ = 0;
  bool isBroken_ = false;
  std::unique_ptr<simulator::Mac> mac_;
  std::unique_ptr<World> world_;
  std::unique_ptr<simulator::Scenario> scenario_;
};

}  // namespace campaign
