#include <tvbase/platform/local_memory.h>

#include <cstdlib>

namespace platform {

void* local_alloc_zeroed(std::size_t size) noexcept { return std::calloc(1, size); }

void local_free(void* block) noexcept { std::free(block); }

}  // namespace platform
