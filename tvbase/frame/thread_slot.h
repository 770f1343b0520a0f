#ifndef TVBASE_FRAME_THREAD_SLOT_H
#define TVBASE_FRAME_THREAD_SLOT_H

// The thread slot: one value per thread, 0 while the thread has no trace
// state, 1 once making it failed (the thread then never traces), else the
// address of the thread's TvLogThreadState. A thread's state is released when
// the thread ends (a pthread key's destructor) and, for the thread that
// unloads the library, at unload; states of other threads still alive then
// are left alone.

#include <cstdint>

#include <tvbase/platform/thread_key.h>

struct TvLogThreadState;

namespace frame {

// The marker value for "no state on this thread, and none will be made".
inline void* const kNoThreadState = reinterpret_cast<void*>(std::uintptr_t{1});

// Load and unload. The slot is built first and taken down last. Building
// only records a failure: on Linux a load can't be refused from the library's
// initialisation, so without a slot the library stays loaded and no thread
// ever traces.
void build_thread_slot() noexcept;
void take_down_thread_slot() noexcept;
bool thread_slot_valid() noexcept;

// The calling thread's state once it was made: a cache of the slot's value,
// so that a traced call costs one thread-local read. Cleared wherever the
// slot's value is released or replaced.
// (A function-local static, so that no TLS wrapper stands in front of it.
// Initial-exec, so that reading it is one instruction; a library loaded
// late with dlopen takes its 8 bytes from the static TLS that glibc keeps
// in reserve for that.)
inline TvLogThreadState*& cached_thread_state() noexcept {
  [[gnu::tls_model("initial-exec")]] static thread_local constinit TvLogThreadState* state =
      nullptr;
  return state;
}

// The slow path of thread_state(): reads the slot, and makes the state if
// the value is 0.
[[gnu::cold]] TvLogThreadState* find_thread_state() noexcept;

// This thread's state, made on first use; null if the slot is invalid or
// the state could not be made, now or before.
inline TvLogThreadState* thread_state() noexcept {
  TvLogThreadState* state = cached_thread_state();
  return state != nullptr ? state : find_thread_state();
}

// Releases this thread's value: frees the state if there is one, and sets
// the value back to 0 in every case.
void release_thread_state() noexcept;

// For tests: stores a raw slot value for this thread, and counts the states
// that are alive in the process.
void set_thread_slot_value(void* value) noexcept;
void* thread_slot_value() noexcept;
long live_thread_states() noexcept;

}  // namespace frame

#endif  // TVBASE_FRAME_THREAD_SLOT_H
