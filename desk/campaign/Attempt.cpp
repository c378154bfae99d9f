#include "desk/campaign/Attempt.h"

#include <signal.h>

#include <cstdlib>

#include "simulator/kernel/Commands.h"

namespace campaign {

void attempt(const simulator::Program& program, std::uint64_t seed, const Tell& tell,
             const std::function<void(Run&)>& body) {
  Run run(program, seed, allInvariants(), [&tell](const Breach& breach) { tell("B" + breach.text()); });
  try {
    body(run);
    run.finish();
  } catch (const simulator::ScenarioError& error) {
    tell(std::string("E") + error.what());
  }
  std::_Exit(0);
}

void take(Outcome& outcome, const std::string& told) {
  if (told[0] == 'B') outcome.breach = Breach::of(told.substr(1));
  if (told[0] == 'E') outcome.misunderstood = told.substr(1);
}

void end(Outcome& outcome, int status, std::size_t lines) {
  if (status != 0 && !outcome.breach) outcome.breach = crash(status, lines);
}

Outcome playOnce(const simulator::Program& program, std::uint64_t seed, const Lines& lines, const std::string& file) {
  Outcome outcome;
  Children children;
  children.start(0, patience, [&](const Tell& tell) {
    attempt(program, seed, tell, [&](Run& run) { run.play(lines, [&tell] { tell("goes on"); }, file); });
  });
  while (children.count() > 0) {
    children.wait([&outcome](std::size_t, const std::string& text) { take(outcome, text); },
                  [&](std::size_t, int status) { end(outcome, status, lines.size()); });
  }
  return outcome;
}

Breach crash(int status, std::size_t lines) {
  const bool isStuck = status == 128 + SIGALRM;
  return {.name = isStuck ? "comes-to-an-end" : keepsGoing,
          .sentence = isStuck ? "Everything that happens comes to an end." : keepsGoingSentence,
          .how = isStuck ? "nothing has happened for " + std::to_string(patience) + " seconds"
                         : "the process ended with status " + std::to_string(status),
          .lines = lines,
          .trace = {}};
}

}  // namespace campaign
