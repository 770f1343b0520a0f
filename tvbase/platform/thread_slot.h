#ifndef TVBASE_PLATFORM_THREAD_SLOT_H
#define TVBASE_PLATFORM_THREAD_SLOT_H

// A value per thread that starts as null, with a hook that runs when a thread
// ends. Here a pthread key: the hook runs for each ending thread whose value
// is not null, after the value was set back to null; it does not run for the
// thread that calls exit().

#include <cstdint>

namespace platform {

inline constexpr std::uint32_t kNoThreadSlot = 0xFFFFFFFF;

// A new slot index, or kNoThreadSlot if none is free.
std::uint32_t thread_slot_alloc(void (*on_thread_end)(void* value)) noexcept;

// Gives a valid index back; the hook no longer runs for it.
void thread_slot_free(std::uint32_t slot) noexcept;

// This thread's value, null if none was set.
void* thread_slot_get(std::uint32_t slot) noexcept;

// Stores this thread's value.
void thread_slot_set(std::uint32_t slot, void* value) noexcept;

}  // namespace platform

#endif  // TVBASE_PLATFORM_THREAD_SLOT_H
