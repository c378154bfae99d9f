#include "desk/Explore.h"

#include <cstdint>
#include <cstdlib>
#include <optional>
#include <sstream>
#include <string_view>

#include "desk/Children.h"
#include "simulator/mac/Mac.h"
#include "simulator/mac/Scenario.h"

namespace {

using simulator::Departure;
using simulator::Seed;

// How one schedule went.
struct Outcome {
  int status = 0;                      // as that of `play`; of a crash, the signal's number after 128
  std::vector<std::string> records;    // that tell of its failure
  std::vector<std::uint32_t> choices;  // how many possibilities each choice had
  std::optional<std::string> misunderstood;
};

// What a child's texts begin with.
constexpr char aboutChoices = 'C';
constexpr char aboutRecord = 'R';
constexpr char aboutError = 'E';

// In the child: plays, and tells the parent what has become of it.
[[noreturn]] void playAndTell(const simulator::Program& program, const std::vector<std::string>& files,
                              const Seed& seed, const Tell& tell) {
  simulator::Mac* played = nullptr;
  const auto tellChoices = [&] {
    std::string choices(1, aboutChoices);
    for (const std::uint32_t count : played->scheduler.choices()) choices += std::to_string(count) + " ";
    tell(choices);
  };
  const auto trace = [&tell](std::string_view line) {
    if (line.find("\"what\":\"fatal\"") != line.npos || line.find("\"what\":\"leak\"") != line.npos) {
      tell(aboutRecord + std::string(line));
    }
  };
  simulator::Mac machine(program, {.seed = seed, .trace = trace, .fatal = [&tellChoices] {
                                     tellChoices();
                                     std::_Exit(1);
                                   }});
  played = &machine;
  int status = 0;
  try {
    simulator::Scenario scenario(machine);
    for (const std::string& file : files) scenario.addFile(file);
    scenario.play();
    status = machine.shutDown() ? 0 : 1;
  } catch (const simulator::ScenarioError& error) {
    tell(aboutError + std::string(error.what()));
    status = 2;
  }
  tellChoices();
  std::_Exit(status);
}

void take(Outcome& outcome, const std::string& told) {
  const std::string text = told.substr(1);
  if (told[0] == aboutRecord) outcome.records.push_back(text);
  if (told[0] == aboutError) outcome.misunderstood = text;
  if (told[0] != aboutChoices) return;
  std::istringstream choices(text);
  for (std::uint32_t count = 0; choices >> count;) outcome.choices.push_back(count);
}

Outcome playOnce(const simulator::Program& program, const std::vector<std::string>& files, const Seed& seed) {
  constexpr unsigned forAsLongAsItTakes = 0;
  Outcome outcome;
  Children children;
  children.start(0, forAsLongAsItTakes, [&](const Tell& tell) { playAndTell(program, files, seed, tell); });
  while (children.count() > 0) {
    children.wait([&outcome](std::size_t, const std::string& text) { take(outcome, text); },
                  [&outcome](std::size_t, int status) { outcome.status = status; });
  }
  return outcome;
}

class Exploration {
 public:
  Exploration(const simulator::Program& program, const std::vector<std::string>& files, std::size_t preemptions,
              std::ostream& out, std::ostream* progress)
      : program_(program), files_(files), preemptions_(preemptions), out_(out), progress_(progress) {}

  // Plays the schedule with these departures, and those that depart from it further on.
  void visit(std::vector<Departure> departures) {
    Seed seed;
    seed.departures = departures;
    const Outcome outcome = playOnce(program_, files_, seed);
    if (outcome.misunderstood) throw simulator::ScenarioError(*outcome.misunderstood);
    ++schedules_;
    if (outcome.status != 0) {
      ++failed_;
      out_ << "Fails with status " << outcome.status << ": dalvane-desk play --seed " << seed.text();
      for (const std::string& file : files_) out_ << ' ' << file;
      out_ << '\n';
      for (const std::string& record : outcome.records) out_ << record << '\n';
      out_ << std::flush;
    }
    if (progress_ && schedules_ % 100 == 0) *progress_ << '\r' << schedules_ << " schedules…" << std::flush;
    if (departures.size() == preemptions_) return;
    const std::size_t first = departures.empty() ? 0 : departures.back().choice + std::size_t{1};
    for (std::size_t choice = first; choice < outcome.choices.size(); ++choice) {
      for (std::uint32_t possibility = 1; possibility < outcome.choices[choice]; ++possibility) {
        departures.push_back({static_cast<std::uint32_t>(choice), possibility});
        visit(departures);
        departures.pop_back();
      }
    }
  }

  int report() {
    if (progress_) *progress_ << '\r';
    out_ << schedules_ << " schedules with up to " << preemptions_ << " preemptions, " << failed_ << " failed\n";
    return failed_ == 0 ? 0 : 1;
  }

 private:
  const simulator::Program& program_;
  const std::vector<std::string>& files_;
  const std::size_t preemptions_;
  std::ostream& out_;
  std::ostream* const progress_;
  std::size_t schedules_ = 0;
  std::size_t failed_ = 0;
};

}  // namespace

int explore(const simulator::Program& program, const std::vector<std::string>& files, std::size_t preemptions,
            std::ostream& out, std::ostream& errors, std::ostream* progress) {
  Exploration exploration(program, files, preemptions, out, progress);
  try {
    exploration.visit({});
  } catch (const simulator::ScenarioError& error) {
    errors << error.what() << '\n';
    return 2;
  }
  return exploration.report();
}
