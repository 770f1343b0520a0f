#include <tvbase/platform/memory_advice.h>

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>

namespace platform {
namespace {

// The whole pages of `unit` bytes inside [buffer, buffer + size).
bool inner_pages(void* buffer, std::size_t size, std::uintptr_t unit, void*& start,
                 std::size_t& length) {
  const auto begin = reinterpret_cast<std::uintptr_t>(buffer);
  const std::uintptr_t first = (begin + unit - 1) & ~(unit - 1);
  const std::uintptr_t end = (begin + size) & ~(unit - 1);
  if (end <= first) return false;
  start = reinterpret_cast<void*>(first);
  length = end - first;
  return true;
}

std::uintptr_t page_size() {
  static const auto size = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
  return size;
}

}  // namespace

void prefer_large_pages(void* buffer, std::size_t size) noexcept {
#ifdef MADV_HUGEPAGE
  void* start;
  std::size_t length;
  if (inner_pages(buffer, size, page_size(), start, length)) madvise(start, length, MADV_HUGEPAGE);
#else
  static_cast<void>(buffer);
  static_cast<void>(size);
#endif
}

void populate_pages(void* buffer, std::size_t size) noexcept {
#ifdef MADV_POPULATE_WRITE
  void* start;
  std::size_t length;
  if (inner_pages(buffer, size, page_size(), start, length))
    madvise(start, length, MADV_POPULATE_WRITE);
#else
  static_cast<void>(buffer);
  static_cast<void>(size);
#endif
}

}  // namespace platform
