#ifndef TVBASE_TRACE_FUNC_LOG_H
#define TVBASE_TRACE_FUNC_LOG_H

#include <cstdarg>
#include <cstdint>

#include <tvbase/export.h>

#if defined(__GNUC__)
#define TVBASE_PRINTF_LIKE(format_index, first_argument) \
  __attribute__((format(printf, format_index, first_argument)))
#else
#define TVBASE_PRINTF_LIKE(format_index, first_argument)
#endif

struct TvLogThreadState;

// The call trace's scope object: one per traced call, on the caller's stack.
// Its construction writes the enter line and raises the thread's call depth;
// its end writes the return line and lowers the depth. All threads of a
// process write into one log file, one line per event:
//
//   03/02/2026 09:05:07.012 00001a2c Foo( int(3), dword(7) )
//   03/02/2026 09:05:07.013 00001a2c     Foo: a text line
//   03/02/2026 09:05:07.015 00001a2c     Foo return
//
// (date, time, thread, "!" while an exception is in flight, 4 blanks per
// level). Whether a process traces is decided once, at load, from TvLog.cfg
// beside the program or from the record shared by all processes (see
// SaveLogCfg and SetSharedLogCfg); without a log file every call costs a
// thread-local lookup and a counter. The object keeps `name` as a pointer:
// the text must outlive it. Nothing here throws or reports a failure: a
// failure means no output, and an object without a thread state (made by the
// default constructor, or on a thread whose state couldn't be made) does
// nothing at all. Lines are at most 8,191 characters: a plain text is cut
// there, a formatted item that doesn't fit is dropped.
//
//   void Foo(int a, unsigned b) {
//     TvFuncLog log("Foo");                     // enter line "Foo(  )"
//     log.WriteLineFormat("a is %d", a);        // "    Foo: a is 3"
//   }                                           // "    Foo return"
//   TvFuncLog log("Bar", TvFuncLog::eLogFilter1, a, b);  // parameters streamed in
class TVBASE_EXPORT TvFuncLog {
 public:
  // The two filter classes; any value other than 1 counts as class 0.
  enum eLogFilter : std::uint8_t { eLogFilter0 = 0, eLogFilter1 = 1 };

  // An inert object: it has no thread state and does nothing.
  TvFuncLog() noexcept = default;
  // Starts the scope at filter class 0 and writes an enter line without
  // parameters if the class is enabled.
  explicit TvFuncLog(const char* name) noexcept {
    if (EnterFunc(name)) LogFuncAndParm();
  }
  TvFuncLog(const char* name, eLogFilter filter) noexcept {
    if (EnterFunc(name, filter)) LogFuncAndParm();
  }
  // Starts the scope and, if the class is enabled, writes an enter line with
  // each argument streamed in through `log << argument`, the typed
  // formatters of this class.
  template <typename... Args>
    requires(sizeof...(Args) > 0)
  TvFuncLog(const char* name, eLogFilter filter, const Args&... args) noexcept {
    if (EnterFunc(name, filter)) {
      WriteLogStartFunc();
      (static_cast<void>(*this << args), ...);
      WriteLogEnd();
    }
  }

  ~TvFuncLog() { ExitFunc(); }

  // A copy would end the scope twice.
  TvFuncLog(const TvFuncLog&) = delete;
  // Copies the four fields; both objects then end the same scope.
  TvFuncLog& operator=(const TvFuncLog& other) noexcept;

  // True if the object has a thread state, the process has a log file, and
  // the object's filter class is enabled. The write operations below don't
  // ask: only the return line is guarded by it.
  bool IsEnabled() const noexcept;

  // Writes an enter line without parameters: "Foo(  )".
  void LogFuncAndParm() noexcept;
  // Writes a text line: the head, ": " and `text`, which must not be null.
  void WriteLine(const char* text) const noexcept;
  // The same with printf-style formatting.
  void WriteLineFormat(const char* format, ...) const noexcept TVBASE_PRINTF_LIKE(2, 3);

  // Appends to the thread's current line; inside a parameter list each item
  // gets its separator first. A plain text is cut at the line's limit.
  const TvFuncLog& WriteAppend(const char* text) const noexcept;
  // Appends `length` characters (none if negative); `text` must hold them.
  const TvFuncLog& WriteAppend(const char* text, int length) const noexcept;
  // Appends printf-style formatted text; an item that doesn't fit, or can't
  // be formatted, is dropped whole.
  const TvFuncLog& WriteAppendFormat(const char* format, ...) const noexcept
      TVBASE_PRINTF_LIKE(2, 3);
  const TvFuncLog& WriteAppendFormatV(const char* format, std::va_list arguments) const noexcept
      TVBASE_PRINTF_LIKE(2, 0);

  // The configuration record. They use no field of the object. No string may
  // be null (a null is taken as an empty text).
  //
  // Writes the 4,880-byte record to `path`, replacing the file. The result
  // says whether the strings fit: false with error 160 when one is too long
  // (the file is not touched). `*error` (if `error` isn't null) is then 0, or
  // the system's code for a create or write that failed.
  static bool SaveLogCfg(const char* path, const char* logFolder, bool deleteOnClose,
                         bool debugEcho, const char* programs, const char* users,
                         const char* options, bool filter0, bool filter1,
                         unsigned long* error) noexcept;
  // Replaces the record shared by all processes; false, changing nothing, if
  // a string is too long. Waits, 100 ms at a time, while another process
  // holds the shared record's lock.
  static bool SetSharedLogCfg(const char* logFolder, bool deleteOnClose, bool debugEcho,
                              const char* programs, const char* users, const char* options,
                              bool filter0, bool filter1) noexcept;
  // Marks the shared record not set. Always true.
  static bool ClearSharedLogCfg() noexcept;

 private:
  // Exported all the same: the inline code above calls them. EnterFunc
  // gives IsEnabled() of the scope it started, which saves the inline code
  // a call.
  bool EnterFunc(const char* name) noexcept;
  bool EnterFunc(const char* name, eLogFilter filter) noexcept;
  void ExitFunc() noexcept;
  void WriteLogStart() const noexcept;
  const TvFuncLog& WriteLogStartFunc() const noexcept;
  void WriteLogEnd() const noexcept;
  void WriteAppendParmSep() const noexcept;
  bool Enter(const char* name, std::uint8_t filter) noexcept;

  TvLogThreadState* state_ = nullptr;
  const char* name_ = nullptr;
  std::uint8_t filter_ = eLogFilter0;
  std::uint32_t actCtx_ = 0;
};

#endif  // TVBASE_TRACE_FUNC_LOG_H
