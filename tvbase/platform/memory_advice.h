#ifndef TVBASE_PLATFORM_MEMORY_ADVICE_H
#define TVBASE_PLATFORM_MEMORY_ADVICE_H

// Hints about large buffers that the caller owns and is about to fill. They
// never change a buffer's content or where it lies, and act only on the whole
// pages inside the range: partial pages at its ends, which an allocator may
// share with its own bookkeeping, are left alone. They do nothing where the
// system has no such notion, and a hint the system refuses is no failure.

#include <cstddef>

namespace platform {

// Asks for large pages behind a big buffer about to be filled: fewer, cheaper
// page faults.
void prefer_large_pages(void* buffer, std::size_t size) noexcept;

// Makes the pages of a buffer about to be written present at once, in one
// call, instead of one page fault at a time.
void populate_pages(void* buffer, std::size_t size) noexcept;

}  // namespace platform

#endif  // TVBASE_PLATFORM_MEMORY_ADVICE_H
