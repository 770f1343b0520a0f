#ifndef TVBASE_PLATFORM_LOCAL_MEMORY_H
#define TVBASE_PLATFORM_LOCAL_MEMORY_H

// Blocks from the process's local heap, apart from operator new: what the
// library makes on a thread's behalf, where running out of memory must not
// throw. Here calloc and free.

#include <cstddef>

namespace platform {

// A zero-filled block of `size` bytes, or null if there is no memory.
void* local_alloc_zeroed(std::size_t size) noexcept;

// Frees a block from local_alloc_zeroed; null is allowed.
void local_free(void* block) noexcept;

}  // namespace platform

#endif  // TVBASE_PLATFORM_LOCAL_MEMORY_H
