#ifndef TVBASE_TRACE_THREAD_STATE_H
#define TVBASE_TRACE_THREAD_STATE_H

// The trace's state of one thread: made zero-filled from the platform's local
// heap on the thread's first TvFuncLog, kept in the frame's thread slot,
// touched by its own thread only, and freed when the thread ends (or, for the
// thread that unloads the library, at unload).
//
// The slot's value is null while the thread has no state, kNoThreadState
// once making it failed (the thread then never traces), else the state's
// address.

#include <cstddef>
#include <cstdint>

struct TvLogThreadState {
  static constexpr std::size_t kLineSize = 8192;  // so at most 8,191 characters

  std::int32_t depth;      // live TvFuncLog objects on this thread
  char line[kLineSize];    // the line being built, zero-ended
  std::uint32_t length;    // characters in `line`
  std::int32_t parmCount;  // -1 outside a parameter list, else counts items
  bool glue;               // the next item continues the last, without a separator

  // The memory that an enter line's parameters read, asked about all at once
  // before the line is built (one request to the kernel instead of one per
  // parameter); the answers hold for that line only.
  struct precheck {
    const void* address;
    std::uint32_t size;  // in bytes; for a text, up to the end of its page
    bool text;
    bool readable;
  };
  static constexpr int kPrechecks = 8;
  bool collecting;  // the pass that gathers the questions: nothing is written
  std::int32_t precheckCount;
  precheck prechecks[kPrechecks];
};

namespace trace {

// The slot value for "no state on this thread, and none will be made". A
// marker, never an address.
inline void* const kNoThreadState = reinterpret_cast<void*>(std::uintptr_t{1});

// The calling thread's state once it was made: a cache of the slot's value,
// so that a traced call costs one thread-local read. Cleared wherever the
// state is released.
// (A function-local static, so that no TLS wrapper stands in front of it.
// Initial-exec, so that reading it is one instruction; a library loaded
// late with dlopen takes its 8 bytes from the static TLS that glibc keeps
// in reserve for that.)
inline TvLogThreadState*& CachedThreadState() noexcept {
  [[gnu::tls_model("initial-exec")]] static thread_local constinit TvLogThreadState* state =
      nullptr;
  return state;
}

// The slow path of ThreadState(): reads the slot, and makes the state if the
// value is null.
[[gnu::cold]] TvLogThreadState* FindThreadState() noexcept;

// This thread's state, made on first use; null if there is no thread slot or
// the state could not be made, now or before.
inline TvLogThreadState* ThreadState() noexcept {
  TvLogThreadState* state = CachedThreadState();
  return state != nullptr ? state : FindThreadState();
}

// The hook that the thread slot runs when a thread ends, and at unload for
// the unloading thread: frees the state unless `value` is kNoThreadState.
void ThreadStateEnds(void* value) noexcept;

// For tests: the states alive in the process.
long LiveThreadStates() noexcept;

}  // namespace trace

#endif  // TVBASE_TRACE_THREAD_STATE_H
