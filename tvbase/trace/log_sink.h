#ifndef TVBASE_TRACE_LOG_SINK_H
#define TVBASE_TRACE_LOG_SINK_H

// The trace's one output per process: built at load from the activation
// decision, read by every thread without a lock afterwards, taken down at
// unload. A file of -1 means that nothing is written.
//
// The log file is the process's own, whatever the configuration names: it
// is made only in a folder that no other user can put names into or take
// names out of (owned by this user or root, and sticky where others may
// write), through a descriptor of that folder, as a new file of mode 0600
// after an old file of its name was removed; nothing that stands at the name
// is ever opened, so a file, link or pipe planted there gets no line and
// can't stop the load. Where any step fails there is no log.

#include <cstddef>
#include <cstdint>

namespace trace {
struct ActivationDecision;
}

struct TvLogSink {
  bool actCtx = false;  // lines carry the activation context
  int file = -1;
  int folder = -1;  // the log file's folder, while there is a file
  char fileName[260] = {};
  std::uint16_t nameAt = 0;  // where the file's own name starts in fileName
  bool deleteOnClose = false;
  bool debugEcho = false;
  bool enabled[2] = {};     // by filter class
  unsigned long owner = 0;  // the process that created the file

  // Acts on the activation decision: takes its options and file name and,
  // on yes, creates the log file as above.
  void Build(const trace::ActivationDecision& decision) noexcept;

  // Closes the file and, if so configured, deletes it from the folder it was
  // made in; a process made by fork() never deletes its parent's file.
  void TakeDown() noexcept;

  // Hands one line to the file with its CR LF in one write, and to the debug
  // output with a LF if debugEcho is set (the debugger on Windows, standard
  // error elsewhere). Nothing without a file.
  void Write(const char* line, std::size_t length) const noexcept;
};

namespace trace {

// The sink in use: the process's own, or the one a test put in its place.
// Read on every traced call, so it is inline.
extern TvLogSink* g_active_sink;
inline TvLogSink& LogSink() noexcept { return *g_active_sink; }

// Load and unload of the process's own sink.
void BuildProcessSink() noexcept;
void TakeDownProcessSink() noexcept;

// For tests and benchmarks: makes `sink` the one in use (null: the process's
// own again) and gives back the one in use before.
TvLogSink* UseSink(TvLogSink* sink) noexcept;

}  // namespace trace

#endif  // TVBASE_TRACE_LOG_SINK_H
