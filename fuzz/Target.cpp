#include "fuzz/Target.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <utility>

#include "simulator/mac/Mac.h"

namespace fuzz {
namespace {

const Target* first = nullptr;

class Machine {
 public:
  Machine() {
    machine_.process.launch();
    machine_.runReady();
  }

  void run(const std::function<void()>& task) {
    task_ = &task;
    machine_.scheduler.advance(std::chrono::seconds(10));
    require(!task_, "the task was not begun");
  }

 private:
  [[noreturn]] void main() {
    for (;;) {
      if (const auto* const task = std::exchange(task_, nullptr)) (*task)();
      std::this_thread::sleep_for(std::chrono::seconds(4));
    }
  }

  const std::function<void()>* task_ = nullptr;
  simulator::Mac machine_{
      {.main = [this]() -> int { main(); }, .name = "Fuzz", .identifier = "example.fuzz", .version = "1"},
      {.clock = simulator::Clock::deterministic, .seed = {}, .trace = {}, .fatal = [] { std::abort(); }}};
};

}  // namespace

Target::Target(const char* name, Function function) : name_(name), function_(function), next_(first) { first = this; }

const Target* Target::find(std::string_view name) {
  const Target* target = first;
  while (target && target->name_ != name) target = target->next_;
  return target;
}

void require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "fuzzing: it does not hold that %s\n", what);
  std::abort();
}

void onMachine(const std::function<void()>& task) {
  static Machine machine;
  machine.run(task);
}

}  // namespace fuzz
