// The kernel of the simulated Mac: the clock, the program's process, the trace and the faults, and the parts that are
// built on them.
#pragma once

#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "simulator/kernel/Faults.h"
#include "simulator/kernel/Part.h"
#include "simulator/kernel/Process.h"
#include "simulator/kernel/Scheduler.h"
#include "simulator/kernel/Trace.h"

namespace simulator {

struct Options {
  Clock clock = Clock::deterministic;
  Seed seed = {};
  Trace::Sink trace;  // none: nothing is recorded
  // What happens after a `fatal` record. It must not return; by default the process ends with status 1.
  std::function<void()> fatal;
};

// One at a time; the platform's functions find it by a `Call`.
class Machine {
 public:
  Machine(Program program, Options options);
  virtual ~Machine();
  Machine(const Machine&) = delete;
  Machine& operator=(const Machine&) = delete;

  // The part of that type, which must be there. Parts get those that they work with in their constructors; this is for
  // the platform's functions and for whoever sits in front of the machine.
  template <typename T>
  [[nodiscard]] T& part() const {
    return static_cast<T&>(*byType_[typeNumber<T>()]);
  }
  // All of them, in the order in which processes ask for them.
  [[nodiscard]] const std::vector<std::unique_ptr<Part>>& parts() const { return parts_; }

  // Writes the trace's first record, which says what machine this is; once.
  void introduce();
  // Everything visible, as the `snapshot` record has it (without its name).
  [[nodiscard]] nlohmann::ordered_json snapshot();
  // Lets everything run that is ready at this instant.
  void runReady() { scheduler.runReady(); }

  [[noreturn]] void fatal(std::string_view text);

  // A mistake of the scenario that shows in the middle of the program's work, on any thread. The program goes on: it has
  // no part in it. The first one is kept for the line that is being carried out.
  void noteMistake(std::string text);
  std::optional<std::string> takeMistake();

 private:
  const Seed seed_;  // what follows is made from it

 public:
  Scheduler scheduler;
  Trace trace;
  Faults faults;
  Process process;

 protected:
  template <typename T, typename... Arguments>
  T& add(Arguments&&... arguments) {
    auto part = std::make_unique<T>(*this, std::forward<Arguments>(arguments)...);
    T& added = *part;
    if (byType_.size() <= typeNumber<T>()) byType_.resize(typeNumber<T>() + 1);
    byType_[typeNumber<T>()] = &added;
    parts_.push_back(std::move(part));
    return added;
  }

 private:
  friend class Call;
  static Machine* current_;  // the one that there is

  static std::size_t nextTypeNumber();
  template <typename T>
  static std::size_t typeNumber() {
    static const std::size_t number = nextTypeNumber();
    return number;
  }

  std::vector<std::unique_ptr<Part>> parts_;
  std::vector<Part*> byType_;
  bool isIntroduced_ = false;
  std::optional<std::string> mistake_;
  std::function<void()> onFatal_;
  std::terminate_handler previousTerminate_ = nullptr;
};

}  // namespace simulator
