#ifndef TVBASE_PLATFORM_THREAD_KEY_H
#define TVBASE_PLATFORM_THREAD_KEY_H

// A key to a value per thread that starts as null, with a hook that runs when
// a thread ends: for each ending thread whose value is not null, after the
// value was set back to null; not for the thread that ends the process. On
// POSIX the key is a pthread key, which runs the hook by itself. On Windows it
// is a TLS index (TlsAlloc), and the library's entry, which the system tells
// of each thread's end (DLL_THREAD_DETACH), runs the hooks through
// thread_key_thread_ends().

#include <cstdint>

namespace platform {

inline constexpr std::uint32_t kNoThreadKey = 0xFFFFFFFF;

// A new key, or kNoThreadKey if none is free.
std::uint32_t thread_key_create(void (*on_thread_end)(void* value)) noexcept;

// Gives a valid key back; the hook no longer runs for it.
void thread_key_delete(std::uint32_t key) noexcept;

// This thread's value, null if none was set.
void* thread_key_get(std::uint32_t key) noexcept;

// Stores this thread's value.
void thread_key_set(std::uint32_t key, void* value) noexcept;

// Called on a thread that ends, by the library's entry where the system
// reports that: runs the hook of each key whose value on this thread is not
// null. Does nothing where the keys run their hooks themselves.
void thread_key_thread_ends() noexcept;

}  // namespace platform

#endif  // TVBASE_PLATFORM_THREAD_KEY_H
