#ifndef TVBASE_PLATFORM_READABLE_MEMORY_H
#define TVBASE_PLATFORM_READABLE_MEMORY_H

// Questions about memory that a caller may have been handed in a bad state.
// The answers come from the kernel: nothing here reads the memory in
// question directly, so a bad address never faults, and no signal handler is
// installed. No allocation.

#include <cstddef>

namespace platform {

// True if all `size` bytes at `address` can be read; a size of 0 is always
// readable, a null address with a non-zero size never.
bool is_readable(const void* address, std::size_t size) noexcept;

// True if the text at `text` can be read through to its terminating zero,
// checked page by page; its length, in characters, goes to `length`.
bool is_readable_text(const char* text, std::size_t& length) noexcept;
bool is_readable_text(const wchar_t* text, std::size_t& length) noexcept;

// One question of a batch for check_readable(), and its answer.
struct readable_range {
  const void* address;
  std::size_t size;
  bool readable;  // set by check_readable()
};

// Answers is_readable() for every range of a batch at once: one request to
// the kernel when all of them can be read, one more after each that can't.
// Ranges above a page are asked one by one.
void check_readable(readable_range* ranges, std::size_t count) noexcept;

// The bytes from `address` to the end of its page: the part of a text that
// can be asked about before its length is known.
std::size_t bytes_to_page_end(const void* address) noexcept;

}  // namespace platform

#endif  // TVBASE_PLATFORM_READABLE_MEMORY_H
