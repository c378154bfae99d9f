// The simulated Mac: its parts, and the program that runs on it.
#pragma once

#include <cstdint>
#include <exception>
#include <filesystem>
#include <functional>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/machine/Faults.h"
#include "simulator/machine/Part.h"
#include "simulator/machine/Process.h"
#include "simulator/machine/SystemRoot.h"
#include "simulator/machine/Trace.h"
#include "simulator/time/Scheduler.h"

namespace simulator {

class Accessibility;
class Alerts;
class Application;
class Applications;
class Audio;
class AudioCapture;
class ChildProcesses;
class Dispatch;
class Displays;
class EventStream;
class LoginItem;
class MenuBar;
class NotificationCenters;
class Preferences;
class Registry;
class RunLoop;
class URLLoading;

struct Options {
  Clock clock = Clock::deterministic;
  Seed seed = {};
  Trace::Sink trace;  // none: nothing is recorded
  // What happens after a `fatal` record. It must not return; by default the process ends with status 1.
  std::function<void()> fatal;
};

// One at a time; the platform's functions find it by `current`.
class Machine {
 public:
  Machine(Program program, Options options);
  ~Machine();
  Machine(const Machine&) = delete;
  Machine& operator=(const Machine&) = delete;

  static Machine& current();
  // Null when there is none, as when objects of the platform are used in a plain unit test.
  static Machine* currentOrNull();

 private:
  const Seed seed_;  // the parts below are made from it
  bool isIntroduced_ = false;

 public:
  // Writes the trace's first record, which says what machine this is; once.
  void introduce();
  // Everything visible, as the `snapshot` record has it (without its name).
  [[nodiscard]] nlohmann::ordered_json snapshot();
  // Lets everything run that is ready at this instant.
  void runReady() { scheduler.runReady(); }
  // Quits the program if it runs, and writes the leak records. True when nothing was left alive.
  bool shutDown();

  Scheduler scheduler;
  Trace trace;
  Faults faults;
  SystemRoot root;
  Process process;

  std::unique_ptr<RunLoop> runLoop;
  std::unique_ptr<Dispatch> dispatch;
  std::unique_ptr<NotificationCenters> notifications;
  std::unique_ptr<Registry> registry;
  std::unique_ptr<Displays> displays;
  std::unique_ptr<Accessibility> accessibility;
  std::unique_ptr<AudioCapture> audioCapture;
  std::unique_ptr<Audio> audio;
  std::unique_ptr<EventStream> events;
  std::unique_ptr<MenuBar> menuBar;
  std::unique_ptr<Alerts> alerts;
  std::unique_ptr<Preferences> preferences;
  std::unique_ptr<Application> application;
  std::unique_ptr<Applications> applications;
  std::unique_ptr<ChildProcesses> childProcesses;
  std::unique_ptr<URLLoading> urlLoading;
  std::unique_ptr<LoginItem> loginItem;

  // Every part, in the order in which processes ask for them.
  std::vector<Part*> parts;

  [[noreturn]] void fatal(std::string_view text);

 private:
  std::function<void()> onFatal_;
  std::terminate_handler previousTerminate_ = nullptr;
};

// Stops the run: the program broke a rule of the platform, or stopped itself.
[[noreturn]] void fatal(std::string_view text);

// The beginning of every call from the program into the machine: another thread may be chosen first, and the machine's
// lock is held until the call returns.
class Call {
 public:
  // Also fatal off the main thread, for calls that belong there.
  enum class On { anyThread, mainThread };

  explicit Call(const char* name, On thread = On::anyThread);

  // The status that this call has been told to fail with, counted as one call.
  [[nodiscard]] std::optional<std::int32_t> fault() const { return machine.faults.take(name_); }

  Machine& machine;

 private:
  const char* name_;
  Scheduler::Lock lock_;
};

}  // namespace simulator
