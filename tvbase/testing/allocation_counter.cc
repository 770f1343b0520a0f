#include <tvbase/testing/allocation_counter.h>

#include <malloc.h>
#if defined(_WIN32)
#define malloc_usable_size _msize
#endif

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

std::atomic<long> counter{0};
std::atomic<std::size_t> live{0};
std::atomic<std::size_t> peak{0};

void raise_peak(std::size_t now) {
  std::size_t seen = peak.load(std::memory_order_relaxed);
  while (now > seen && !peak.compare_exchange_weak(seen, now, std::memory_order_relaxed)) {
  }
}

void* allocate(std::size_t size) {
  counter.fetch_add(1, std::memory_order_relaxed);
  void* p = std::malloc(size == 0 ? 1 : size);
  if (p != nullptr) {
    const std::size_t bytes = malloc_usable_size(p);
    raise_peak(live.fetch_add(bytes, std::memory_order_relaxed) + bytes);
  }
  return p;
}

void* allocate_or_throw(std::size_t size) {
  if (void* p = allocate(size)) return p;
  throw std::bad_alloc();
}

void release(void* p) noexcept {
  if (p == nullptr) return;
  live.fetch_sub(malloc_usable_size(p), std::memory_order_relaxed);
  std::free(p);
}

}  // namespace

namespace testing_support {
long allocations() { return counter.load(std::memory_order_relaxed); }

std::size_t live_bytes() { return live.load(std::memory_order_relaxed); }

std::size_t peak_bytes() { return peak.load(std::memory_order_relaxed); }

void reset_peak_bytes() {
  peak.store(live.load(std::memory_order_relaxed), std::memory_order_relaxed);
}

bool allocations_counted() {
  // valgrind preloads its own operator new, which takes most calls away
  // from the one above.
  const char* preload = std::getenv("LD_PRELOAD");
  return preload == nullptr || std::strstr(preload, "vgpreload") == nullptr;
}
}  // namespace testing_support

// All plain forms go to malloc and free, so that allocation and release always
// match, also for sanitizers. The aligned forms keep their defaults.
void* operator new(std::size_t size) { return allocate_or_throw(size); }
void* operator new[](std::size_t size) { return allocate_or_throw(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return allocate(size); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return allocate(size); }
void operator delete(void* p) noexcept { release(p); }
void operator delete[](void* p) noexcept { release(p); }
void operator delete(void* p, std::size_t) noexcept { release(p); }
void operator delete[](void* p, std::size_t) noexcept { release(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { release(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { release(p); }
