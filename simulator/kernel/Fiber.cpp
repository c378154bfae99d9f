#include "simulator/kernel/Fiber.h"

#include <cxxabi.h>
#include <sys/mman.h>

#include <cstdint>
#include <system_error>
#include <utility>

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define SIMULATOR_ASAN 1
#include <sanitizer/common_interface_defs.h>
#endif
#if __has_feature(thread_sanitizer)
#define SIMULATOR_TSAN 1
#include <sanitizer/tsan_interface.h>
#endif
#endif

namespace simulator {
namespace {

// Pages are only taken when touched, so a roomy stack costs address space alone.
constexpr std::size_t stackSize = std::size_t{1} << 20;
constexpr std::size_t guardSize = 4096;

}  // namespace

Fiber::Fiber(std::function<void()> body) : body_(std::move(body)) {
  stack_ = mmap(nullptr, stackSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0);
  if (stack_ == MAP_FAILED) throw std::system_error(errno, std::generic_category(), "mmap of a stack");
  mprotect(stack_, guardSize, PROT_NONE);
  getcontext(&context_);
  context_.uc_stack.ss_sp = stack_;
  context_.uc_stack.ss_size = stackSize;
  context_.uc_link = nullptr;
  // makecontext passes ints only; the pointer goes in two halves.
  const auto self = reinterpret_cast<std::uintptr_t>(this);
  const auto entry = +[](unsigned int high, unsigned int low) {
    reinterpret_cast<Fiber*>((static_cast<std::uintptr_t>(high) << 32) | low)->run();
  };
  makecontext(&context_, reinterpret_cast<void (*)()>(entry), 2, static_cast<unsigned int>(self >> 32),
              static_cast<unsigned int>(self));
#ifdef SIMULATOR_TSAN
  threadState_ = __tsan_create_fiber(0);
#endif
}

Fiber::~Fiber() {
#ifdef SIMULATOR_TSAN
  __tsan_destroy_fiber(threadState_);
#endif
  munmap(stack_, stackSize);
}

void Fiber::swapExceptionState() {
  auto& current = *reinterpret_cast<ExceptionState*>(abi::__cxa_get_globals());
  std::swap(current, exceptions_);
}

void Fiber::resume() {
  swapExceptionState();
#ifdef SIMULATOR_ASAN
  void* fake = nullptr;
  __sanitizer_start_switch_fiber(&fake, stack_, stackSize);
#endif
#ifdef SIMULATOR_TSAN
  hostThreadState_ = __tsan_get_current_fiber();
  __tsan_switch_to_fiber(threadState_, 0);
#endif
  swapcontext(&host_, &context_);
#ifdef SIMULATOR_ASAN
  __sanitizer_finish_switch_fiber(fake, nullptr, nullptr);
#endif
  swapExceptionState();
}

void Fiber::suspend() {
#ifdef SIMULATOR_ASAN
  // Null tells the sanitizer that this stack is left for good.
  __sanitizer_start_switch_fiber(done_ ? nullptr : &fakeStack_, hostStack_, hostStackSize_);
#endif
#ifdef SIMULATOR_TSAN
  __tsan_switch_to_fiber(hostThreadState_, 0);
#endif
  swapcontext(&context_, &host_);
#ifdef SIMULATOR_ASAN
  __sanitizer_finish_switch_fiber(fakeStack_, &hostStack_, &hostStackSize_);
#endif
}

void Fiber::run() {
#ifdef SIMULATOR_ASAN
  __sanitizer_finish_switch_fiber(nullptr, &hostStack_, &hostStackSize_);
#endif
  body_();
  body_ = nullptr;
  done_ = true;
  suspend();
  __builtin_unreachable();
}

}  // namespace simulator
