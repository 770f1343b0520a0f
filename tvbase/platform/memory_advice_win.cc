#include <tvbase/platform/memory_advice.h>

namespace platform {

// Windows gives large pages only to allocations made for them, with a
// privilege that programs rarely hold, and commits a buffer's pages on first
// touch with no cheaper way to do it at once: both hints do nothing here.
void prefer_large_pages(void*, std::size_t) noexcept {}

void populate_pages(void*, std::size_t) noexcept {}

}  // namespace platform
