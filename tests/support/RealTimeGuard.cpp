#include "tests/support/RealTimeGuard.h"

#include <pthread.h>

#include <atomic>
#include <cstdlib>
#include <new>

#include "simulator/kernel/RealTime.h"

namespace {

thread_local int guards = 0;
std::atomic<std::size_t> allocationCount{0};
std::atomic<std::size_t> lockCount{0};

bool isRealTime() { return guards > 0 || simulator::RealTime::active(); }

}  // namespace

RealTimeGuard::RealTimeGuard() { ++guards; }
RealTimeGuard::~RealTimeGuard() { --guards; }

void RealTimeGuard::reset() {
  allocationCount = 0;
  lockCount = 0;
}

std::size_t RealTimeGuard::allocations() { return allocationCount; }
std::size_t RealTimeGuard::locks() { return lockCount; }

// The linker hands the executable's own calls to us: of the allocator, of operators new and delete, and of mutexes.
extern "C" {

void* __real_malloc(std::size_t size);
void* __wrap_malloc(std::size_t size);
void __real_free(void* storage);
void __wrap_free(void* storage);
int __real_pthread_mutex_lock(pthread_mutex_t* mutex);
int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex);
void* __real__Znwm(std::size_t size);
void* __wrap__Znwm(std::size_t size);
void __real__ZdlPvm(void* storage, std::size_t size);
void __wrap__ZdlPvm(void* storage, std::size_t size);

void* __wrap_malloc(std::size_t size) {
  if (isRealTime()) ++allocationCount;
  return __real_malloc(size);
}

void __wrap_free(void* storage) {
  if (isRealTime()) ++allocationCount;
  __real_free(storage);
}

void* __wrap__Znwm(std::size_t size) {
  if (isRealTime()) ++allocationCount;
  return __real__Znwm(size);
}

void __wrap__ZdlPvm(void* storage, std::size_t size) {
  if (isRealTime()) ++allocationCount;
  __real__ZdlPvm(storage, size);
}

int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
  if (isRealTime()) ++lockCount;
  return __real_pthread_mutex_lock(mutex);
}

}  // extern "C"
