#ifndef TVBASE_TOOLS_TVBASE_TRACE_READER_H
#define TVBASE_TOOLS_TVBASE_TRACE_READER_H

// Reading call-trace logs back, as the trace writes them: one line per
// event, "dd/mm/yyyy hh:mm:ss.mmm tttttttt" and a mark, then the call depth
// as four blanks a level, the function's name and what the line is:
//
//   (00000000) 03/02/2026 09:05:07.012 00001a2c Foo( int(3), dword(7) )
//   (00000000) 03/02/2026 09:05:07.013 00001a2c     Foo: a text line
//   (00000000) 03/02/2026 09:05:07.015 00001a2c!    Foo return
//
// (the "(%08x) " activation-context prefix only where the log has it; "!"
// where an exception was in flight). Three layers, each usable alone:
//
//   parse_line    takes one line apart; nothing is copied.
//   line_reader   gives the lines of a file in one pass through a buffer of
//                 fixed size, whatever the file's size.
//   call_reader   pairs enter and return lines per thread and hands each
//                 finished call to a visitor, in memory bounded by the
//                 limits it is given.
//
//   std::FILE* file = std::fopen(path, "rb");
//   trace_tools::call_reader calls;
//   my_visitor visitor;
//   trace_tools::read_log(file, calls, visitor, nullptr);
//
// Nothing here throws for bad input: a line that isn't in the log's format
// is counted and skipped. Only exhausted memory passes through.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace trace_tools {

// The longest line the trace writes: its line buffer less the zero. A line
// of this length may have lost its end.
inline constexpr std::size_t kLineLimit = 8191;

// The longest line that line_reader gives out; a longer one can't come from
// the trace (two lines run together are at most twice kLineLimit) and is
// skipped as unreadable.
inline constexpr std::size_t kReadLimit = 64 * 1024;

enum class line_kind : std::uint8_t { enter, exit, text, unreadable };

// One line taken apart. The views point into the text given to parse_line.
struct log_line {
  line_kind kind = line_kind::unreadable;
  std::size_t length = 0;  // of the whole line, without its line end
  bool has_context = false;
  std::uint32_t context = 0;  // the "(%08x) " prefix
  // Milliseconds since 1 January 1970 on the log's local clock.
  std::int64_t time_ms = 0;
  std::uint32_t thread = 0;
  bool marked = false;  // "!": an exception was in flight
  int depth = 0;        // the indent, in levels of four blanks
  std::string_view name;
  // enter: the parameters, without "( " and " )"; text: what follows ": ".
  std::string_view text;
  bool closed = false;           // enter: the line ends with " )"
  bool context_changed = false;  // exit: " !!! Activation context has changed !!!"
};

// Takes a line (without its line end) apart. The kind is told by what
// follows the name: "( " an enter line, ": " a text line, " return" (with or
// without the activation-context notice) a return line, whichever of "( "
// and ": " comes first. Blanks of the indent beyond a multiple of four
// belong to the name, as the trace writes a name as it is given. A line
// whose head has not the trace's shape, or with nothing after the head, is
// `unreadable`. Dates are day first; a day beyond the month's end counts on
// into the next month.
[[nodiscard]] log_line parse_line(std::string_view line) noexcept;

// Where a second line starts inside `line`, or npos. When two threads
// write at once, one line's text can land between another's text and its
// line end, so that one line holds two; the second is found by its head
// (and prefix, if the first has one), and only if what follows it reads as
// a line. npos too for a line that doesn't start with a head.
[[nodiscard]] std::size_t embedded_line(std::string_view line) noexcept;

// "dd/mm/yyyy hh:mm:ss.mmm" of a time as parse_line gives it.
[[nodiscard]] std::string format_time(std::int64_t time_ms);

// Gives the lines of a file in order, reading `block` bytes at a time into
// one buffer (of `block` and kReadLimit bytes): memory doesn't grow with the
// file. The line end is CR
// LF or LF alone, told by the first line: in a CR LF log a LF without a CR
// before it belongs to the line (a text with a line feed in it). A line
// that holds another thread's line (see embedded_line) is given as two, and
// the empty line that such a meeting leaves behind is dropped. A line
// longer than kReadLimit is skipped and counted; the last line may lack its
// line end.
class line_reader {
 public:
  struct counts {
    std::uint64_t lines = 0;         // given out
    std::uint64_t overlong = 0;      // skipped, longer than kReadLimit
    std::uint64_t separated = 0;     // lines taken out of another line
    std::uint64_t unterminated = 0;  // a last line without its line end
  };

  // Reads from `file`, which stays the caller's. `progress`, if set, is
  // called after each block with the bytes read so far.
  explicit line_reader(std::FILE* file, std::function<void(std::uint64_t)> progress = nullptr,
                       std::size_t block = 4 << 20);

  // The next line, without its line end, as a view into the buffer that the
  // next call overwrites. False at the end of the file or after a read
  // error.
  bool next(std::string_view& line);

  // True if reading failed before the file's end.
  bool failed() const { return failed_; }
  std::uint64_t bytes_read() const { return bytes_read_; }
  const counts& totals() const { return counts_; }

 private:
  bool next_raw(std::string_view& line);
  bool refill();
  std::string_view take_apart(std::string_view line);

  std::FILE* file_;
  std::function<void(std::uint64_t)> progress_;
  std::size_t block_;
  std::vector<char> buffer_;
  std::size_t begin_ = 0, end_ = 0;
  bool eof_ = false, failed_ = false;
  bool mode_known_ = false, crlf_ = false;
  bool skipping_ = false;
  std::string_view pending_;          // the rest of a line taken apart
  std::uint64_t stray_ends_due_ = 0;  // empty lines that meetings left
  std::uint64_t bytes_read_ = 0;
  counts counts_;
};

// One call, as call_reader gives it to its visitor: at the enter line, with
// `end_ms` equal to `start_ms`, and again when it ends.
struct call {
  std::uint32_t thread = 0;
  std::uint32_t function = 0;  // the name's number in call_reader::name()
  std::string_view name;
  // Valid only during the visitor's call.
  std::string_view parameters;
  std::int64_t start_ms = 0;
  std::int64_t end_ms = 0;
  std::int64_t children_ms = 0;  // the time of the calls made from this one
  int depth = 1;                 // 1 for a call at the top of its thread
  std::int64_t tag = -1;         // what the visitor gave back at the enter line
  bool parameters_cut = false;   // the enter line, or the reader's budget, cut them
  bool exception = false;        // the return line was marked "!"
  bool returned = false;         // false: no return line was found
  bool context_changed = false;
  bool recursive = false;  // the same function is further down its thread's stack
  bool has_context = false;
  std::uint32_t context = 0;  // at the enter line

  // Times that run backwards (a clock set back) count as 0.
  std::int64_t duration() const { return end_ms > start_ms ? end_ms - start_ms : 0; }
  std::int64_t self() const {
    const std::int64_t d = duration();
    return d > children_ms ? d - children_ms : 0;
  }
};

// A text line, as call_reader gives it to its visitor.
struct note {
  std::uint32_t thread = 0;
  std::int64_t time_ms = 0;
  std::string_view name;
  std::string_view text;
  int depth = 0;
  bool cut = false;  // the line had the trace's greatest length
  bool marked = false;
};

// Pairs the enter and return lines of each thread of one log and gives the
// calls to a visitor, a class with these members (see read_log):
//
//   void on_thread(std::uint32_t thread);      // a thread's first line
//   std::int64_t on_enter(const call& c, std::int64_t parent_tag);
//   void on_call(const call& c);               // a call ended
//   void on_note(const note& n);
//
// on_enter's result comes back as `tag` of the same call; `parent_tag` is
// the tag of the call below it on its thread's stack, or -1.
//
// The indent is taken as the truth about each thread's depth, because
// enter and return lines of a filter class that is switched off are
// missing while the depth still counts them: a return at indent d ends the
// call entered at indent d - 1 if it has the same name; calls above it on
// the stack, and calls at or above the indent of an enter or text line,
// lost their return lines and end there, with `returned` false. A return
// with no call to end is counted. What is left open at the log's end ends
// at the last time of its thread.
//
// Memory is bounded by the limits: past them, names are pooled under one
// name, lines of further threads and calls deeper than the stack limit are
// dropped, parameters beyond the byte budget are cut, and each is counted.
class call_reader {
 public:
  // The defaults keep the worst case near 250 MB, a log in the usual shape
  // under a megabyte.
  struct limits {
    std::size_t functions = 65536;           // distinct names
    std::size_t name_bytes = 1024;           // longer names are told apart by these
    std::size_t threads = 65536;             // per log
    std::size_t depth = 10000;               // open calls per thread
    std::size_t open_calls = 1 << 20;        // open calls, all threads
    std::size_t parameter_bytes = 64 << 20;  // parameters of open calls, all threads
  };
  struct counts {
    std::uint64_t lines = 0, enters = 0, returns = 0, texts = 0;
    std::uint64_t unreadable = 0;
    std::uint64_t cut = 0;                // lines of the trace's greatest length
    std::uint64_t unmatched_returns = 0;  // a return line with no call to end
    std::uint64_t unreturned = 0;         // calls ended without a return line
    std::uint64_t dropped_lines = 0;      // of threads past the limit
    std::uint64_t dropped_calls = 0;      // past the depth or open-call limit
    std::uint64_t pooled_calls = 0;       // of names past the limit
    std::uint64_t cut_parameters = 0;     // parameters the budget cut
    bool any_time = false;
    std::int64_t first_ms = 0, last_ms = 0;  // least and greatest line times
  };

  // The name that stands for all names past the limit.
  static constexpr std::string_view kPooledName = "(other functions)";

  call_reader();
  explicit call_reader(limits limits);

  // Starts another log: threads and counts begin afresh; names and their
  // numbers stay.
  void start_log();

  template <class Visitor>
  void feed(const log_line& line, Visitor& visitor);

  // Ends every open call at the last time of its thread, threads in the
  // order of their first lines.
  template <class Visitor>
  void finish(Visitor& visitor);

  const counts& totals() const { return counts_; }
  std::size_t thread_count() const { return threads_.size(); }
  // Names are numbered from 0 in the order first seen.
  std::size_t function_count() const { return names_.size(); }
  std::string_view name(std::uint32_t function) const { return names_[function]; }

 private:
  struct frame {
    std::uint32_t function;
    int indent;
    std::int64_t start_ms;
    std::int64_t children_ms;
    std::int64_t tag;
    std::size_t parameters_at;
    std::size_t parameters_size;
    bool parameters_cut;
    bool recursive;
    bool has_context;
    std::uint32_t context;
  };
  struct thread_state {
    std::uint32_t id = 0;
    std::int64_t last_ms = 0;
    std::vector<frame> stack;
    std::string parameters;  // of the open calls, stacked
  };
  struct name_hash {
    using is_transparent = void;
    std::size_t operator()(std::string_view s) const noexcept {
      return std::hash<std::string_view>{}(s);
    }
  };

  thread_state* thread_for(std::uint32_t id, bool& created);
  std::uint32_t intern(std::string_view name);
  std::optional<std::uint32_t> lookup(std::string_view name) const;
  // Whether a return line of `name` can end the call `f`.
  bool ends(const frame& f, std::string_view name) const;
  void note_time(thread_state& t, std::int64_t time_ms);
  frame& push(thread_state& t, const log_line& line);
  template <class Visitor>
  void pop(thread_state& t, std::int64_t end_ms, const log_line* returned, Visitor& visitor);
  template <class Visitor>
  void end_above(thread_state& t, int indent, std::int64_t end_ms, Visitor& visitor);

  limits limits_;
  counts counts_;
  std::deque<std::string> names_;
  std::unordered_map<std::string_view, std::uint32_t, name_hash, std::equal_to<>> ids_;
  std::optional<std::uint32_t> pooled_;
  std::vector<thread_state> threads_;
  std::unordered_map<std::uint32_t, std::size_t> thread_index_;
  std::size_t last_thread_ = static_cast<std::size_t>(-1);
  std::size_t parameter_bytes_ = 0;
  std::size_t open_calls_ = 0;
};

// Reads every line of `file` into `calls` (after calls.start_log()) and
// finishes it. False if reading failed before the end; what was read is
// given all the same. `progress` as for line_reader.
template <class Visitor>
bool read_log(std::FILE* file, call_reader& calls, Visitor& visitor,
              std::function<void(std::uint64_t)> progress, line_reader::counts* reading = nullptr) {
  calls.start_log();
  line_reader lines(file, std::move(progress));
  std::string_view text;
  while (lines.next(text)) calls.feed(parse_line(text), visitor);
  calls.finish(visitor);
  if (reading != nullptr) *reading = lines.totals();
  return !lines.failed();
}

// The parts of a log file's name as the trace makes it:
// "<program>.<pid> dd-mm-yyyy hh.mm.ss.mmm.log", any folder in front.
struct log_name {
  std::string program;
  unsigned long pid = 0;
};
[[nodiscard]] std::optional<log_name> parse_log_name(std::string_view path);

// --- call_reader's templates ---------------------------------------------------

template <class Visitor>
void call_reader::feed(const log_line& line, Visitor& visitor) {
  ++counts_.lines;
  if (line.kind == line_kind::unreadable) {
    ++counts_.unreadable;
    return;
  }
  if (line.length >= kLineLimit) ++counts_.cut;
  bool created = false;
  thread_state* t = thread_for(line.thread, created);
  if (t == nullptr) {
    ++counts_.dropped_lines;
    return;
  }
  if (created) visitor.on_thread(line.thread);
  note_time(*t, line.time_ms);
  switch (line.kind) {
    case line_kind::enter: {
      ++counts_.enters;
      end_above(*t, line.depth - 1, line.time_ms, visitor);
      if (t->stack.size() >= limits_.depth || open_calls_ >= limits_.open_calls) {
        ++counts_.dropped_calls;
        return;
      }
      const std::int64_t parent_tag = t->stack.empty() ? -1 : t->stack.back().tag;
      frame& f = push(*t, line);
      call c;
      c.thread = t->id;
      c.function = f.function;
      c.name = names_[f.function];
      c.parameters = std::string_view(t->parameters).substr(f.parameters_at, f.parameters_size);
      c.start_ms = c.end_ms = f.start_ms;
      c.depth = line.depth + 1;
      c.parameters_cut = f.parameters_cut;
      c.recursive = f.recursive;
      c.has_context = f.has_context;
      c.context = f.context;
      f.tag = visitor.on_enter(c, parent_tag);
      return;
    }
    case line_kind::exit: {
      ++counts_.returns;
      // The call that this line ends was entered one level further out.
      if (line.depth >= 1) end_above(*t, line.depth - 1, line.time_ms, visitor);
      if (line.depth >= 1 && !t->stack.empty() && t->stack.back().indent == line.depth - 1 &&
          ends(t->stack.back(), line.name)) {
        pop(*t, line.time_ms, &line, visitor);
      } else {
        ++counts_.unmatched_returns;
      }
      return;
    }
    case line_kind::text: {
      ++counts_.texts;
      end_above(*t, line.depth - 1, line.time_ms, visitor);
      note n;
      n.thread = t->id;
      n.time_ms = line.time_ms;
      n.name = line.name;
      n.text = line.text;
      n.depth = line.depth;
      n.cut = line.length >= kLineLimit;
      n.marked = line.marked;
      visitor.on_note(n);
      return;
    }
    case line_kind::unreadable: return;
  }
}

// Ends, without a return line, the calls entered at an indent above `indent`.
template <class Visitor>
void call_reader::end_above(thread_state& t, int indent, std::int64_t end_ms, Visitor& visitor) {
  while (!t.stack.empty() && t.stack.back().indent > indent) pop(t, end_ms, nullptr, visitor);
}

template <class Visitor>
void call_reader::pop(thread_state& t, std::int64_t end_ms, const log_line* returned,
                      Visitor& visitor) {
  const frame f = t.stack.back();
  call c;
  c.thread = t.id;
  c.function = f.function;
  c.name = names_[f.function];
  c.parameters = std::string_view(t.parameters).substr(f.parameters_at, f.parameters_size);
  c.start_ms = f.start_ms;
  c.end_ms = end_ms;
  c.children_ms = f.children_ms;
  c.depth = f.indent + 1;
  c.tag = f.tag;
  c.parameters_cut = f.parameters_cut;
  c.recursive = f.recursive;
  c.has_context = f.has_context;
  c.context = f.context;
  c.returned = returned != nullptr;
  if (returned != nullptr) {
    c.exception = returned->marked;
    c.context_changed = returned->context_changed;
  } else {
    ++counts_.unreturned;
  }
  visitor.on_call(c);
  t.stack.pop_back();
  if (!t.stack.empty()) t.stack.back().children_ms += c.duration();
  parameter_bytes_ -= f.parameters_size;
  --open_calls_;
  t.parameters.resize(f.parameters_at);
}

template <class Visitor>
void call_reader::finish(Visitor& visitor) {
  for (thread_state& t : threads_) {
    while (!t.stack.empty()) pop(t, t.last_ms, nullptr, visitor);
  }
}

}  // namespace trace_tools

#endif  // TVBASE_TOOLS_TVBASE_TRACE_READER_H
