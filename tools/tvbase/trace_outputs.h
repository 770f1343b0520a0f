#ifndef TVBASE_TOOLS_TVBASE_TRACE_OUTPUTS_H
#define TVBASE_TOOLS_TVBASE_TRACE_OUTPUTS_H

// Three views of call-trace logs, each made in one pass over each log with
// trace_reader.h, in memory that doesn't grow with the logs' size:
//
//   write_summary   a table per log: calls, total and self time, deepest
//                   depth, returns left by an exception, per function
//   write_timeline  the Trace Event Format (JSON) of trace viewers: a track
//                   per process and thread, a slice per call, an instant
//                   event per text line
//   write_flame     a flame graph as a self-contained SVG picture
//
//   std::string text;
//   trace_tools::output out(text);
//   const auto failures = trace_tools::write_summary({"app.42 ....log"}, out, {});
//
// A log that can't be opened or read is named in the messages given back;
// the other logs are written all the same. Lines that can't be read back
// are counted, never fatal. Times have the logs' resolution, milliseconds.

#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "trace_reader.h"

namespace trace_tools {

// Where an output goes: a file, through a buffer, or a string.
class output {
 public:
  // The file stays the caller's; flush() before closing it.
  explicit output(std::FILE* file) : file_(file) {}
  explicit output(std::string& text) : text_(&text) {}
  ~output() { flush(); }
  output(const output&) = delete;
  output& operator=(const output&) = delete;

  void put(std::string_view bytes) {
    buffer_.append(bytes);
    if (buffer_.size() >= kFlushAt) flush();
  }
  // False if a write to the file failed, now or before.
  bool flush();

 private:
  static constexpr std::size_t kFlushAt = 1 << 20;
  std::FILE* file_ = nullptr;
  std::string* text_ = nullptr;
  std::string buffer_;
  bool failed_ = false;
};

// What the widths of a flame graph's frames stand for.
enum class flame_widths {
  automatic,  // time, or calls when every call took the same time
  time,
  calls,
};

struct run_options {
  call_reader::limits limits;
  // Called as each log is read, about every 4 MB: its path, the bytes read
  // and its size (0 if unknown).
  std::function<void(const std::string& log, std::uint64_t done, std::uint64_t size)> progress;
  // The flame graph's merged call paths; calls on paths past it are counted
  // and left out.
  std::size_t flame_paths = 200000;
  flame_widths widths = flame_widths::automatic;
  // The flame graph's width in pixels.
  int flame_width = 1200;
};

// One table per log, in the order given:
//
//   == app.4242 03-02-2026 09.05.07.012.log
//   process 4242: 3 threads, 58 lines, 03/02/2026 09:05:07.012 to 09:05:07.020
//   ...
//       calls  total ms  self ms  deepest  "!"  no return  function
//           1         8        3        1    0          0  main
//
// sorted by total time, then calls, then name. Total time counts a
// recursive call once, at its outermost level; self time is the call's time
// less that of the calls made from it. Gives the messages of logs that
// could not be read.
std::vector<std::string> write_summary(const std::vector<std::string>& logs, output& out,
                                       const run_options& options);

// A JSON object {"traceEvents":[...],...}: per log a process (its number
// from the file's name where it has the trace's shape, else a number of its
// own), per thread a track named after its number, per call a complete
// event ("ph":"X") with its parameters in "args", per text line an instant
// event ("ph":"i"). Times are microseconds from the earliest first line of
// the logs. A call without a return line ends at the last time of its
// thread with "no_return": true in its args. The text is plain ASCII: other
// characters are \u escapes, and bytes that aren't UTF-8 U+FFFD.
std::vector<std::string> write_timeline(const std::vector<std::string>& logs, output& out,
                                        const run_options& options);

// An SVG flame graph of all the logs: calls merged by call path (all
// threads together, a level per log when there are several), the root at
// the bottom, each frame as wide as its calls' time, or as its number of
// calls and those of its callees (options.widths; by default when every
// call took the same time, as when all show 0 ms). The picture says which,
// and what was left out.
// Each frame has a <title> that viewers show as a tooltip; frames under a
// third of a pixel are left out.
std::vector<std::string> write_flame(const std::vector<std::string>& logs, output& out,
                                     const run_options& options);

// `bytes` as a JSON string with its quotes, in ASCII (see write_timeline).
void append_json_string(std::string& out, std::string_view bytes);

// `bytes` as XML character data: & < > " ' escaped, UTF-8 kept, control
// characters and bytes that aren't UTF-8 as U+FFFD. At most `characters`
// characters are written; a longer text ends in "..".
void append_xml_text(std::string& out, std::string_view bytes,
                     std::size_t characters = static_cast<std::size_t>(-1));

}  // namespace trace_tools

#endif  // TVBASE_TOOLS_TVBASE_TRACE_OUTPUTS_H
