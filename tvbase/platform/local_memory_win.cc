#include <tvbase/platform/local_memory.h>

#include <windows.h>

namespace platform {

void* local_alloc_zeroed(std::size_t size) noexcept { return ::LocalAlloc(LPTR, size); }

void local_free(void* block) noexcept {
  if (block != nullptr) ::LocalFree(block);
}

}  // namespace platform
