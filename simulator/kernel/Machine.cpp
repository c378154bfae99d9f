#include "simulator/kernel/Machine.h"

#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string>

#include "simulator/kernel/Call.h"

namespace simulator {
namespace {

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

Machine* Machine::current_ = nullptr;

Machine::Machine(Program program, Options options)
    : seed_(std::move(options.seed)),
      scheduler(options.clock, seed_),
      trace(scheduler, std::move(options.trace)),
      process(*this, std::move(program)),
      onFatal_(std::move(options.fatal)) {
  if (current_) std::abort();  // the platform's functions could not tell which one is meant
  current_ = this;
  previousTerminate_ = std::set_terminate(terminated);
  faults.declare({"kqueue", "kevent"});
}

Machine::~Machine() {
  trace.setMuted(true);
  process.kill();
  while (!parts_.empty()) parts_.pop_back();
  std::set_terminate(previousTerminate_);
  current_ = nullptr;
}

std::size_t Machine::nextTypeNumber() {
  static std::size_t next = 0;
  return next++;
}

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
  for (const auto& part : parts_) part->snapshot(state);
  return state;
}

void Machine::noteMistake(std::string text) {
  const Scheduler::Lock lock(scheduler);
  if (!mistake_) mistake_ = std::move(text);
}

std::optional<std::string> Machine::takeMistake() {
  const Scheduler::Lock lock(scheduler);
  return std::exchange(mistake_, std::nullopt);
}

void Machine::fatal(std::string_view text) {
  trace.setMuted(false);
  trace.record("fatal").text("text", text);
  for (const auto& part : parts_) part->runIsCutShort();
  if (onFatal_) onFatal_();
  std::_Exit(1);
}

}  // namespace simulator
