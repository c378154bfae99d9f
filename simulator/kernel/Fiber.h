// A flow of control with a stack of its own, switched by hand: what a thread of the program is on the
// deterministic clock. Created, resumed and destroyed on one host thread.
#pragma once

#include <ucontext.h>

#include <cstddef>
#include <functional>

namespace simulator {

class Fiber {
 public:
  explicit Fiber(std::function<void()> body);
  ~Fiber();
  Fiber(const Fiber&) = delete;
  Fiber& operator=(const Fiber&) = delete;

  // Runs the fiber until it suspends or its body ends. Called from outside any fiber.
  void resume();
  // Goes back to whoever resumed this fiber. Called on it.
  void suspend();

  [[nodiscard]] bool done() const { return done_; }

 private:
  // What the C++ runtime keeps per thread about exceptions in flight (the Itanium ABI's __cxa_eh_globals).
  struct ExceptionState {
    void* caught = nullptr;
    unsigned int uncaught = 0;
  };
  void swapExceptionState();
  [[noreturn]] void run();

  std::function<void()> body_;
  bool done_ = false;
  ucontext_t host_{};
  ucontext_t context_{};
  ExceptionState exceptions_;
  void* stack_ = nullptr;
  // Bookkeeping of the sanitizers, unused without them.
  [[maybe_unused]] void* fakeStack_ = nullptr;
  [[maybe_unused]] const void* hostStack_ = nullptr;
  [[maybe_unused]] std::size_t hostStackSize_ = 0;
  [[maybe_unused]] void* threadState_ = nullptr;
  [[maybe_unused]] void* hostThreadState_ = nullptr;
};

}  // namespace simulator
