#ifndef TVBASE_TRACE_FUNC_LOG_H
#define TVBASE_TRACE_FUNC_LOG_H

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include <tvbase/export.h>
#include <tvbase/platform/win_types.h>

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
// beside the program or from the record shared by the user's processes (see
// SaveLogCfg and SetSharedLogCfg); without a log file every call costs a
// thread-local lookup and a counter. The log file is the process's own: a new
// file of mode 0600, made only in a folder that no other user can add names
// to or take names from (owned by the process's user or root, and sticky
// where others may write); whatever stood at its name is replaced or, where
// it can't be removed, there is no log. A set-user-ID program never traces.
// The object keeps `name` as a pointer: the text must outlive it. Nothing
// here throws or reports a failure: a failure means no output, and an object
// without a thread state (made by the default constructor, or on a thread
// whose state couldn't be made) does nothing at all. Lines are at most 8,191
// characters: a plain text is cut there, a formatted item that doesn't fit is
// dropped.
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
  // The memory that parameters of several pointer and structure forms read
  // is asked about in one request to the kernel before the line is built.
  template <typename... Args>
  requires(sizeof...(Args) > 0) TvFuncLog(const char* name, eLogFilter filter, const Args&... args)
  noexcept {
    if (EnterFunc(name, filter)) {
      WriteLogStartFunc();
      if constexpr ((int{AsksMemory<Args>()} + ...) >= 2) {
        if (BeginPrecheck()) {
          (Precheck(args), ...);
          EndPrecheck();
        }
      }
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
  // Writes the 4,880-byte record to `path`, replacing the file: through a
  // new file in the same folder renamed into place, so a link at `path` is
  // replaced and never followed. The result says whether the strings fit:
  // false with error 160 when one is too long (the file is not touched).
  // `*error` (if `error` isn't null) is then 0, or the system's code for a
  // create, write or rename that failed.
  [[nodiscard]] static bool SaveLogCfg(const char* path, const char* logFolder, bool deleteOnClose,
                                       bool debugEcho, const char* programs, const char* users,
                                       const char* options, bool filter0, bool filter1,
                                       unsigned long* error) noexcept;
  // Replaces the record shared by the processes of this process's user (one
  // record per user, never one that other users' programs read); false,
  // changing nothing, if a string is too long. Waits, 100 ms at a time, while
  // another process holds the shared record's lock.
  [[nodiscard]] static bool SetSharedLogCfg(const char* logFolder, bool deleteOnClose,
                                            bool debugEcho, const char* programs, const char* users,
                                            const char* options, bool filter0,
                                            bool filter1) noexcept;
  // Marks the shared record not set. Always true.
  static bool ClearSharedLogCfg() noexcept;

  // Typed parameters. Each form appends one item to the thread's line and
  // gives back the object; inside a parameter list the item gets its ", "
  // first. Values whose plain type would pick the wrong form are wrapped:
  struct CharPtr {  // a pointer to one character, not a text
    explicit CharPtr(const char* p) noexcept : value(p) {}
    const char* value;
  };
  struct WCharPtr {  // a pointer to one wide character, not a text
    explicit WCharPtr(const wchar_t* p) noexcept : value(p) {}
    const wchar_t* value;
  };
  struct Flags {  // a bit mask, shown in binary: "bits(101)"
    explicit Flags(std::uint32_t v) noexcept : value(v) {}
    std::uint32_t value;
  };
  struct Hex {  // a number shown as "hex(0000002a)"
    explicit Hex(std::uint32_t v) noexcept : value(v) {}
    std::uint32_t value;
  };
  struct OleDate {  // an OLE automation date: "DATE(03/02/2026 09:05:07)"
    explicit OleDate(double v) noexcept : value(v) {}
    double value;
  };
  struct OleDatePtr {  // a pointer to an OLE automation date
    explicit OleDatePtr(const double* p) noexcept : value(p) {}
    const double* value;
  };

  // Appends the pointer as "%08x->" (at least eight lower-case hex digits;
  // sixteen at most on 64-bit builds) and makes the next item part of this
  // one, without a separator. Gives true if `size` bytes at `p` can be read,
  // asked of the kernel, so a bad pointer never faults; asked also on an
  // inert object, and always true for a size of 0.
  bool WriteAppendPtr(const void* p, unsigned int size) const noexcept;

  // Values: 'c', byte(1), short(-1), word(1), int(-1), dword(1), long(-1),
  // ulong(1), int64(-1), uint64(1), true/false, float(12.50) and beyond
  // ±9999.99 float(12345.5), double(2.50) and beyond ±9999999999999.99
  // double(1e+14), L'c' (a wide character turned into UTF-8, "*" for one that
  // can't be shown).
  const TvFuncLog& operator<<(char value) const noexcept;
  const TvFuncLog& operator<<(unsigned char value) const noexcept;
  const TvFuncLog& operator<<(short value) const noexcept;
  const TvFuncLog& operator<<(unsigned short value) const noexcept;
  const TvFuncLog& operator<<(int value) const noexcept;
  const TvFuncLog& operator<<(unsigned int value) const noexcept;
  const TvFuncLog& operator<<(long value) const noexcept;
  const TvFuncLog& operator<<(unsigned long value) const noexcept;
  const TvFuncLog& operator<<(long long value) const noexcept;
  const TvFuncLog& operator<<(unsigned long long value) const noexcept;
  const TvFuncLog& operator<<(bool value) const noexcept;
  const TvFuncLog& operator<<(const float& value) const noexcept;
  const TvFuncLog& operator<<(double value) const noexcept;
  const TvFuncLog& operator<<(wchar_t value) const noexcept;

  // Pointers to values: "7ffd5e8c->int(5)", or with a pointer that can't be
  // read "7ffd5e8c->int(?)" (and so on for each value type; "bool(?)" for
  // bool). A pointer to anything else shows as "7ffd5e8c->void".
  const TvFuncLog& operator<<(const unsigned char* value) const noexcept;
  const TvFuncLog& operator<<(const short* value) const noexcept;
  const TvFuncLog& operator<<(const unsigned short* value) const noexcept;
  const TvFuncLog& operator<<(const int* value) const noexcept;
  const TvFuncLog& operator<<(const unsigned int* value) const noexcept;
  const TvFuncLog& operator<<(const long* value) const noexcept;
  const TvFuncLog& operator<<(const unsigned long* value) const noexcept;
  const TvFuncLog& operator<<(const long long* value) const noexcept;
  const TvFuncLog& operator<<(const unsigned long long* value) const noexcept;
  const TvFuncLog& operator<<(const float* value) const noexcept;
  const TvFuncLog& operator<<(const double* value) const noexcept;
  const TvFuncLog& operator<<(const bool* value) const noexcept;
  const TvFuncLog& operator<<(const void* value) const noexcept;
  const TvFuncLog& operator<<(std::nullptr_t) const noexcept;

  // Texts, shown whole up to 150 characters, else the first 100, "..." and
  // the last 50: "text", L"wide text" (turned into UTF-8, "*" for what can't
  // be shown). A text that can't be read through to its zero shows its
  // address in upper-case hex digits (16 on 64-bit builds): 00007FFD5E8C0010
  // ->"?" and ...->L"?"; a null text is such a text.
  const TvFuncLog& operator<<(const char* text) const noexcept;
  const TvFuncLog& operator<<(const wchar_t* text) const noexcept;
  // A BSTR by reference: BSTR("text"), BSTR(null), or R<address of the
  // reference>->BSTR(?) when its text can't be read; by pointer as above, with
  // "BSTR(?)" for a pointer that can't be read.
  const TvFuncLog& operator<<(wchar_t* const& bstr) const noexcept;
  const TvFuncLog& operator<<(wchar_t* const* bstr) const noexcept;

  // Structures, spelt win::GUID, win::CREATESTRUCTA and win::VARIANT on every
  // system (<tvbase/platform/win_types.h>: on Windows the system's types, on
  // POSIX the library's stand-ins, which are not declared at global scope).
  // {0010A2B3-...} for a GUID, CREATESTRUCT() (no field shown),
  // and a VARIANT by its type: VT_I4(5), VT_BSTR's V_BSTR("text"), VT_CY(-1.5000),
  // VT_DATE(...), VT_ARRAY(?) and VT_BYREF(?) for those flags, VT_?12? for a
  // type without a form. A reference that can't be read shows
  // R<address>->{?}, R<address>->CREATESTRUCT(?) or R<address>->VT_?); a
  // pointer that can't be read {?}, CREATESTRUCT(?) or VT_?. A date before
  // 1 January 100 or after 31 December 9999 shows as DATE(?) or VT_DATE(?).
  const TvFuncLog& operator<<(const win::GUID& value) const noexcept;
  const TvFuncLog& operator<<(const win::GUID* value) const noexcept;
  const TvFuncLog& operator<<(const win::CREATESTRUCTA& value) const noexcept;
  const TvFuncLog& operator<<(const win::CREATESTRUCTA* value) const noexcept;
  const TvFuncLog& operator<<(const win::VARIANT& value) const noexcept;
  const TvFuncLog& operator<<(const win::VARIANT* value) const noexcept;

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

  // Whether the form of a T reads memory that the kernel is asked about
  // first: pointers to values and texts, the structures, the pointer
  // wrappers. Only the library's own forms: a form defined elsewhere is
  // never run twice.
  template <typename T>
  static constexpr bool AsksMemory() noexcept {
    using U = std::remove_cv_t<T>;
    if constexpr (std::is_array_v<U>) {
      using E = std::remove_cv_t<std::remove_extent_t<U>>;
      return std::is_same_v<E, char> || std::is_same_v<E, wchar_t>;
    } else if constexpr (std::is_pointer_v<U>) {
      using P = std::remove_cv_t<std::remove_pointer_t<U>>;
      return std::is_arithmetic_v<P> || std::is_same_v<P, wchar_t*> ||
             std::is_same_v<P, win::GUID> || std::is_same_v<P, win::CREATESTRUCTA> ||
             std::is_same_v<P, win::VARIANT>;
    } else {
      return std::is_same_v<U, win::GUID> || std::is_same_v<U, win::CREATESTRUCTA> ||
             std::is_same_v<U, win::VARIANT> || std::is_same_v<U, CharPtr> ||
             std::is_same_v<U, WCharPtr> || std::is_same_v<U, OleDatePtr>;
    }
  }
  // The gathering pass: the forms note what they would read, write nothing,
  // and EndPrecheck asks the kernel about all of it at once. BeginPrecheck
  // is false on an object without a thread state.
  template <typename T>
  void Precheck(const T& arg) const noexcept {
    if constexpr (AsksMemory<T>()) static_cast<void>(*this << arg);
  }
  bool BeginPrecheck() const noexcept;
  void EndPrecheck() const noexcept;

  TvLogThreadState* state_ = nullptr;
  const char* name_ = nullptr;
  std::uint8_t filter_ = eLogFilter0;
  std::uint32_t actCtx_ = 0;
};

// The forms of the wrapper classes above: '?' or 'c', L'c', bits(101),
// hex(0000002a), DATE(dd/mm/yyyy hh:mm:ss); the pointer wrappers as the
// pointer forms ("'?'", "L'?'", "DATE(?)" when unreadable).
TVBASE_EXPORT const TvFuncLog& operator<<(const TvFuncLog& log,
                                          const TvFuncLog::CharPtr& value) noexcept;
TVBASE_EXPORT const TvFuncLog& operator<<(const TvFuncLog& log,
                                          const TvFuncLog::WCharPtr& value) noexcept;
TVBASE_EXPORT const TvFuncLog& operator<<(const TvFuncLog& log,
                                          const TvFuncLog::Flags& value) noexcept;
TVBASE_EXPORT const TvFuncLog& operator<<(const TvFuncLog& log,
                                          const TvFuncLog::Hex& value) noexcept;
TVBASE_EXPORT const TvFuncLog& operator<<(const TvFuncLog& log,
                                          const TvFuncLog::OleDate& value) noexcept;
TVBASE_EXPORT const TvFuncLog& operator<<(const TvFuncLog& log,
                                          const TvFuncLog::OleDatePtr& value) noexcept;

#undef TVBASE_PRINTF_LIKE

#endif  // TVBASE_TRACE_FUNC_LOG_H
