#include "desk/Explore.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <string_view>
#include <system_error>
#include <utility>

#include "simulator/mac/Mac.h"
#include "simulator/mac/Scenario.h"
#include "simulator/system/SystemRoot.h"

namespace {

using simulator::Departure;
using simulator::Seed;

// How one schedule went.
struct Outcome {
  int status = 0;                      // as that of `play`; of a crash, the signal's number after 128
  std::string problem;                 // what cannot be understood, or the records that tell of the failure
  std::vector<std::uint32_t> choices;  // how many possibilities each choice had
};

class Pipe {
 public:
  Pipe() {
    if (pipe(ends_) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
  }
  ~Pipe() {
    closeEnd(0);
    closeEnd(1);
  }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;

  void closeEnd(int which) {
    if (ends_[which] >= 0) close(std::exchange(ends_[which], -1));
  }
  void write(const void* data, std::size_t size) const {
    for (const char* at = static_cast<const char*>(data); size > 0;) {
      const ssize_t written = ::write(ends_[1], at, size);
      if (written < 0 && errno == EINTR) continue;
      if (written <= 0) return;  // the reader is gone: nobody wants to know
      at += written;
      size -= static_cast<std::size_t>(written);
    }
  }
  [[nodiscard]] std::string readAll() const {
    std::string all;
    char buffer[4096];
    for (;;) {
      const ssize_t size = ::read(ends_[0], buffer, sizeof buffer);
      if (size < 0 && errno == EINTR) continue;
      if (size <= 0) return all;
      all.append(buffer, static_cast<std::size_t>(size));
    }
  }

 private:
  int ends_[2] = {-1, -1};
};

// In the child: plays, and tells the parent the number of choices, the choices and the problem.
[[noreturn]] void playAndTell(const simulator::Program& program, const std::vector<std::string>& files,
                              const Seed& seed, const Pipe& pipe) {
  std::string problem;
  simulator::Mac* played = nullptr;
  const auto tell = [&] {
    const std::vector<std::uint32_t> choices = played->scheduler.choices();
    const auto count = static_cast<std::uint32_t>(choices.size());
    pipe.write(&count, sizeof count);
    pipe.write(choices.data(), choices.size() * sizeof choices[0]);
    pipe.write(problem.data(), problem.size());
  };
  const auto trace = [&problem](std::string_view line) {
    if (line.find("\"what\":\"fatal\"") != line.npos || line.find("\"what\":\"leak\"") != line.npos) {
      problem.append(line).append("\n");
    }
  };
  simulator::Mac machine(program, {.seed = seed, .trace = trace, .fatal = [&tell] {
                                     tell();
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
    problem = error.what();
    status = 2;
  }
  machine.part<simulator::SystemRoot>().runIsCutShort();
  tell();
  std::_Exit(status);
}

Outcome playOnce(const simulator::Program& program, const std::vector<std::string>& files, const Seed& seed) {
  Pipe pipe;
  const pid_t child = fork();
  if (child < 0) throw std::system_error(errno, std::generic_category(), "fork");
  if (child == 0) playAndTell(program, files, seed, pipe);
  pipe.closeEnd(1);
  const std::string told = pipe.readAll();
  int status = 0;
  while (waitpid(child, &status, 0) == -1 && errno == EINTR) {
  }
  Outcome outcome;
  outcome.status = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
  std::uint32_t count = 0;
  if (told.size() < sizeof count) return outcome;
  told.copy(reinterpret_cast<char*>(&count), sizeof count);
  outcome.choices.resize(count);
  const std::size_t size = count * sizeof outcome.choices[0];
  told.copy(reinterpret_cast<char*>(outcome.choices.data()), size, sizeof count);
  outcome.problem = told.substr(sizeof count + size);
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
    if (outcome.status == 2) throw simulator::ScenarioError(outcome.problem);
    ++schedules_;
    if (outcome.status != 0) {
      ++failed_;
      out_ << "Fails with status " << outcome.status << ": dalvane-desk play --seed " << seed.text();
      for (const std::string& file : files_) out_ << ' ' << file;
      out_ << '\n' << outcome.problem << std::flush;
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
