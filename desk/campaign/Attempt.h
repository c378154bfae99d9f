// A scenario that is played in a child process and held against the invariants.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "desk/Children.h"
#include "desk/campaign/Run.h"
#include "desk/campaign/Shrink.h"
#include "simulator/kernel/Process.h"

namespace campaign {

// A day takes milliseconds. A child that says nothing for so many seconds will never say anything.
inline constexpr unsigned patience = 120;

// How one scenario went.
struct Outcome {
  std::optional<Breach> breach;
  std::string misunderstood;  // why it cannot be played
};

// The work of a child: plays what `body` plays and finishes, tells what is broken ("B…") or cannot be played ("E…"),
// and ends the process.
[[noreturn]] void attempt(const simulator::Program& program, std::uint64_t seed, const Tell& tell,
                          const std::function<void(Run&)>& body);
// For its parent: what it told, and how it ended.
void take(Outcome& outcome, const std::string& told);
void end(Outcome& outcome, int status, std::size_t lines);

// Plays the lines in a child process; `file` is where they are from.
Outcome playOnce(const simulator::Program& program, std::uint64_t seed, const Lines& lines,
                 const std::string& file = "campaign");

// What is broken when a child ends with that status in the middle of its work.
Breach crash(int status, std::size_t lines);

}  // namespace campaign
