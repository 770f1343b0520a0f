#include <tvbase/testing/allocation_counter.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

std::atomic<long> counter{0};

void* allocate(std::size_t size) {
  counter.fetch_add(1, std::memory_order_relaxed);
  return std::malloc(size == 0 ? 1 : size);
}

void* allocate_or_throw(std::size_t size) {
  if (void* p = allocate(size)) return p;
  throw std::bad_alloc();
}

}  // namespace

namespace testing_support {
long allocations() { return counter.load(std::memory_order_relaxed); }

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
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { std::free(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { std::free(p); }
