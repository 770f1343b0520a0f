#ifndef TVBASE_PLATFORM_MEMORY_ADVICE_H
#define TVBASE_PLATFORM_MEMORY_ADVICE_H

// Hints about large buffers, and a move of their content that needs no copy.
// The hints act only on the whole pages that lie inside the range: partial
// pages at its ends, which an allocator may share with its own bookkeeping,
// are left alone. They do nothing where the system has no such notion.

#include <cstddef>

namespace platform {

// Asks for large pages behind a big buffer about to be filled: fewer, cheaper
// page faults.
void prefer_large_pages(void* buffer, std::size_t size) noexcept;

// Makes the pages of a buffer about to be written present at once, in one
// call, instead of one page fault at a time.
void populate_pages(void* buffer, std::size_t size) noexcept;

// Gives the memory of a buffer's pages back to the system while the buffer
// stays allocated. Its content is lost; reading it afterwards gives zeros.
void release_pages(void* buffer, std::size_t size) noexcept;

// Gives `to` the content of the `size` bytes at `from` without copying most
// of it: the whole pages inside the source change place, and only the
// partial pages at its ends are copied. This is for ranges that lie at the
// same offset within a page, in private anonymous memory (the standard
// allocator's large blocks are such); for others it returns false having
// changed nothing, and the caller copies. Where the system refuses to move
// the pages after all, they are copied, and the result is true as well.
// Afterwards the source's content is not to be relied on: it reads as zeros
// where pages left. The ranges must not overlap, and no other thread may use
// either of them meanwhile.
bool move_pages(void* to, void* from, std::size_t size) noexcept;

}  // namespace platform

#endif  // TVBASE_PLATFORM_MEMORY_ADVICE_H
