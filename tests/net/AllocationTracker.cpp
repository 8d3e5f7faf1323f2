// Replaces the global operator new of the net test program so that a test can see the largest
// single allocation made while it ran: a hostile length must never turn into an allocation of
// that size.
#include "tests/net/AllocationTracker.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<bool> tracking{false};
std::atomic<size_t> largest{0};

}  // namespace

namespace net_test {

void StartAllocationTracking() {
  largest = 0;
  tracking = true;
}

size_t StopAllocationTracking() {
  tracking = false;
  return largest.load();
}

}  // namespace net_test

namespace {

void* Allocate(size_t size) {
  if (tracking.load(std::memory_order_relaxed)) {
    size_t seen = largest.load(std::memory_order_relaxed);
    while (size > seen && !largest.compare_exchange_weak(seen, size)) {
    }
  }
  return std::malloc(size ? size : 1);
}

}  // namespace

// Every plain form is replaced, so that each new and its delete meet in malloc and free.
void* operator new(size_t size) {
  if (void* memory = Allocate(size)) return memory;
  throw std::bad_alloc();
}
void* operator new[](size_t size) {
  if (void* memory = Allocate(size)) return memory;
  throw std::bad_alloc();
}
void* operator new(size_t size, const std::nothrow_t&) noexcept { return Allocate(size); }
void* operator new[](size_t size, const std::nothrow_t&) noexcept { return Allocate(size); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, size_t) noexcept { std::free(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { std::free(memory); }
void operator delete[](void* memory, const std::nothrow_t&) noexcept { std::free(memory); }
