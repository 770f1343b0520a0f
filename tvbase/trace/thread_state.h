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

#endif  // TVBASE_TRACE_THREAD_STATE_H
