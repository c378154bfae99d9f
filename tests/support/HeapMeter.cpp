#include "tests/support/HeapMeter.h"

#include <malloc.h>

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<std::size_t> used{0};
std::atomic<std::size_t> most{0};

void* allocate(std::size_t size) {
  void* const block = std::malloc(size);
  if (!block) throw std::bad_alloc();
  const std::size_t now = used += malloc_usable_size(block);
  for (std::size_t before = most; before < now && !most.compare_exchange_weak(before, now);) {
  }
  return block;
}

void release(void* block) noexcept {
  if (block) used -= malloc_usable_size(block);
  std::free(block);
}

}  // namespace

void* operator new(std::size_t size) { return allocate(size); }
void* operator new[](std::size_t size) { return allocate(size); }
void operator delete(void* block) noexcept { release(block); }
void operator delete[](void* block) noexcept { release(block); }
void operator delete(void* block, std::size_t) noexcept { release(block); }
void operator delete[](void* block, std::size_t) noexcept { release(block); }

namespace heap {

std::size_t inUse() { return used; }
std::size_t peak() { return most; }
void resetPeak() { most = used.load(); }

}  // namespace heap
