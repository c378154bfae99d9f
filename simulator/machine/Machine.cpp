#include "simulator/machine/Machine.h"

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <nlohmann/json.hpp>

#include "simulator/audio/Audio.h"
#include "simulator/desktop/Accessibility.h"
#include "simulator/desktop/Alerts.h"
#include "simulator/desktop/Application.h"
#include "simulator/desktop/AudioCapture.h"
#include "simulator/desktop/EventStream.h"
#include "simulator/desktop/MenuBar.h"
#include "simulator/desktop/NotificationCenters.h"
#include "simulator/displays/Displays.h"
#include "simulator/displays/Registry.h"
#include "simulator/machine/Object.h"
#include "simulator/machine/RealTime.h"
#include "simulator/services/Applications.h"
#include "simulator/services/ChildProcesses.h"
#include "simulator/services/LoginItem.h"
#include "simulator/services/Preferences.h"
#include "simulator/services/URLLoading.h"
#include "simulator/time/Dispatch.h"
#include "simulator/time/RunLoop.h"

namespace simulator {
namespace {

Machine* currentMachine = nullptr;

// The C++ runtime ends the process: an exception that nothing caught, or one that broke a promise. The program's own
// end has to show in the trace.
[[noreturn]] void terminated() {
  if (!Scheduler::current()) std::abort();
  std::string text = "The program ended with an uncaught exception";
  try {
    if (const auto exception = std::current_exception()) std::rethrow_exception(exception);
    text = "The program was ended by the C++ runtime";
  } catch (const std::exception& error) {
    text += std::string(": ") + error.what();
  } catch (...) {
    text += " of an unknown type";
  }
  fatal(text);
}

}  // namespace

Machine::Machine(Program program, Options options)
    : seed_(std::move(options.seed)),
      scheduler(options.clock, seed_),
      trace(scheduler, std::move(options.trace)),
      process(*this, std::move(program)),
      onFatal_(std::move(options.fatal)) {
  if (currentMachine) std::abort();  // the platform's functions could not tell which one is meant
  currentMachine = this;
  previousTerminate_ = std::set_terminate(terminated);
  trace.setRoot(root.path().string());
  faults.declare({"kqueue", "kevent", "dlopen", "dlsym", "objc_lookUpClass", "OSDManager.sharedManager", "NSEvent.eventWithCGEvent"});
  const auto add = [this](auto& slot, auto part) {
    parts.push_back(part.get());
    slot = std::move(part);
  };
  add(runLoop, std::make_unique<RunLoop>(*this));
  add(dispatch, std::make_unique<Dispatch>(*this));
  add(notifications, std::make_unique<NotificationCenters>(*this));
  add(registry, std::make_unique<Registry>(*this));
  add(displays, std::make_unique<Displays>(*this));
  add(accessibility, std::make_unique<Accessibility>(*this));
  add(audioCapture, std::make_unique<AudioCapture>(*this));
  add(audio, std::make_unique<Audio>(*this));
  add(events, std::make_unique<EventStream>(*this));
  add(menuBar, std::make_unique<MenuBar>(*this));
  add(alerts, std::make_unique<Alerts>(*this));
  add(preferences, std::make_unique<Preferences>(*this));
  add(application, std::make_unique<Application>(*this));
  add(applications, std::make_unique<Applications>(*this));
  add(childProcesses, std::make_unique<ChildProcesses>(*this));
  add(urlLoading, std::make_unique<URLLoading>(*this));
  add(loginItem, std::make_unique<LoginItem>(*this));
}

Machine::~Machine() {
  trace.setMuted(true);
  process.kill();
  std::set_terminate(previousTerminate_);
  currentMachine = nullptr;
}

Machine& Machine::current() {
  if (!currentMachine) {
    std::fputs("A platform call was made without a simulated Mac.\n", stderr);
    std::abort();
  }
  return *currentMachine;
}

Machine* Machine::currentOrNull() { return currentMachine; }

void Machine::introduce() {
  if (std::exchange(isIntroduced_, true)) return;
  const std::string seed = seed_.text();
  trace.record("machine")
      .text("version", process.program().version)
      .json("seed", seed_.departures ? trace.quote(seed) : seed)
      .text("clock", scheduler.clock() == Clock::live ? "live" : "deterministic");
}

nlohmann::ordered_json Machine::snapshot() {
  const Scheduler::Lock lock(scheduler);
  nlohmann::ordered_json state;
  state["running"] = process.running();
  for (Part* const part : parts) part->snapshot(state);
  return state;
}

bool Machine::shutDown() {
  // Whoever quits closes first what is open: an alert may have others behind it.
  for (int tries = 0; process.running() && tries < 100; ++tries) {
    alerts->dismiss();
    application->quit();
    runReady();
    if (process.running() && !scheduler.settle()) fatal("The program does not come to rest");
  }
  if (process.running()) fatal("The program did not quit");
  for (const auto& [kind, count] : process.leaks()) {
    trace.record("leak").text("kind", kind).number("count", static_cast<std::int64_t>(count));
  }
  return process.leaks().empty();
}

void Machine::fatal(std::string_view text) {
  trace.setMuted(false);
  trace.record("fatal").text("text", text);
  root.remove();
  if (onFatal_) onFatal_();
  std::_Exit(1);
}

void fatal(std::string_view text) {
  if (Machine* const machine = Machine::currentOrNull()) machine->fatal(text);
  std::fprintf(stderr, "fatal: %.*s\n", static_cast<int>(text.size()), text.data());
  std::abort();
}

namespace {

Machine& enter(const char* call) {
  Machine& machine = Machine::current();
  if (RealTime::active()) machine.fatal(std::string(call) + " was called on a real-time thread");
  machine.scheduler.preempt();
  return machine;
}

}  // namespace

Call::Call(const char* name, On thread) : machine(enter(name)), name_(name), lock_(machine.scheduler) {
  if (thread == On::mainThread && !machine.process.onMainThread()) {
    fatal(std::string(name) + " was called off the main thread");
  }
}

}  // namespace simulator
