// The program's child processes, and its own process as other programs see it.
//
// The simulated system's tools run as real processes. One that the program waits for runs to its end while the program
// stands still, and then counts as a step of a fixed time. The shell that relaunches the program outlives it: it is
// waited for once the program has ended.
#pragma once

#include <signal.h>
#include <sys/types.h>

#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "simulator/kernel/Part.h"

namespace simulator {

class Machine;
class SystemRoot;

// What the program asked posix_spawn for: Apple's flags and what goes with them.
struct SpawnSettings {
  int flags = 0;
  sigset_t mask{};             // with POSIX_SPAWN_SETSIGMASK
  sigset_t defaults{};         // with POSIX_SPAWN_SETSIGDEF
  std::vector<int> inherited;  // with POSIX_SPAWN_CLOEXEC_DEFAULT, the files that are passed on
};

class ChildProcesses : public Part {
 public:
  // `open` is told of each application that open(1) was asked for.
  using Open = std::function<void(const std::filesystem::path&)>;
  ChildProcesses(Machine& machine, SystemRoot& root, Open open);
  ~ChildProcesses() override;

  // The running program's process identifier: the same in every run.
  pid_t programIdentifier();

  // Starts a program of the simulated system. `error` is set to the errno when it cannot be started.
  pid_t start(const std::string& executable, const std::vector<std::string>& arguments,
              std::vector<std::string> environment, const SpawnSettings& settings, int& error);
  // Waits for a child; its wait status, or none when there is no such child (any more).
  std::optional<int> wait(pid_t child);

  // How many the program has not waited for.
  [[nodiscard]] std::size_t unwaited() const { return children_.size(); }

  void processEnded(Leaks& leaks) override;
  void snapshot(nlohmann::ordered_json& state) override;

 private:
  struct Child {
    pid_t host = 0;  // its identifier on the host; 0 once it has ended
    int status = 0;  // its wait status
  };

  [[nodiscard]] std::filesystem::path processFile(pid_t identifier) const;
  std::optional<int> takeFault(const std::string& tool, const std::vector<std::string>& arguments);
  void waitForSurvivors();
  void openWhatWasAsked();

  Machine& machine_;
  SystemRoot& root_;
  const Open open_;
  pid_t lastIdentifier_ = 500;
  std::optional<pid_t> program_;
  std::map<pid_t, Child> children_;  // not waited for yet
  std::vector<pid_t> survivors_;     // host identifiers of children that outlived the program
};

}  // namespace simulator
