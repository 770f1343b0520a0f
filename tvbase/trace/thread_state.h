#ifndef TVBASE_TRACE_THREAD_STATE_H
#define TVBASE_TRACE_THREAD_STATE_H

// The trace's state of one thread, made zero-filled by calloc on the thread's
// first TvFuncLog, held in the frame's thread slot, touched by its own thread
// only, and freed with free() when the thread ends.

#include <cstddef>
#include <cstdint>

struct TvLogThreadState {
  static constexpr std::size_t kLineSize = 8192;  // so at most 8,191 characters

  std::int32_t depth;      // live TvFuncLog objects on this thread
  char line[kLineSize];    // the line being built, zero-ended
  std::uint32_t length;    // characters in `line`
  std::int32_t parmCount;  // -1 outside a parameter list, else counts items
  bool glue;               // the next item continues the last, without a separator
};

#endif  // TVBASE_TRACE_THREAD_STATE_H
