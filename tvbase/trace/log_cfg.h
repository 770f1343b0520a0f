#ifndef TVBASE_TRACE_LOG_CFG_H
#define TVBASE_TRACE_LOG_CFG_H

// The record that switches the call trace on, byte for byte the same in the
// file "TvLog.cfg" beside a program and in the block shared by one user's
// processes. Numbers are little-endian; strings are 8-bit text ended by a
// zero inside their field. A record is valid when `version` is 1 and `crc`
// is the TvCrc (default start value) of every byte before it.

#include <bit>
#include <cstddef>
#include <cstdint>
#include <new>
#include <type_traits>

#include <tvbase/frame/shared_data.h>
#include <tvbase/platform/process.h>

struct TvLogCfg {
  std::uint32_t version;
  char logFolder[260];  // put in front of the log file's name unchanged
  char programs[2048];  // "*" or program file names separated by ';'
  char users[2045];     // "*" or user names separated by ';'
  char options[512];    // option words separated by ';'
  bool filter0;         // trace objects of filter class 0 write
  bool filter1;         // trace objects of filter class 1 write
  bool deleteOnClose;   // the log file goes when the library is unloaded
  bool debugEcho;       // each line goes to standard error as well
  std::uint8_t alignment[3];
  std::uint32_t crc;
};

static_assert(std::endian::native == std::endian::little, "the record is little-endian");
static_assert(sizeof(bool) == 1);
static_assert(offsetof(TvLogCfg, version) == 0);
static_assert(offsetof(TvLogCfg, logFolder) == 4);
static_assert(offsetof(TvLogCfg, programs) == 264);
static_assert(offsetof(TvLogCfg, users) == 2312);
static_assert(offsetof(TvLogCfg, options) == 4357);
static_assert(offsetof(TvLogCfg, filter0) == 4869);
static_assert(offsetof(TvLogCfg, filter1) == 4870);
static_assert(offsetof(TvLogCfg, deleteOnClose) == 4871);
static_assert(offsetof(TvLogCfg, debugEcho) == 4872);
static_assert(offsetof(TvLogCfg, alignment) == 4873);
static_assert(offsetof(TvLogCfg, crc) == 4876);
static_assert(sizeof(TvLogCfg) == 4880);

namespace trace {

// The record in the shared block. The block keeps its bytes as raw storage
// (an array of unsigned char), in which the record lives: TvLogCfg is an
// implicit-lifetime type. Read and write it under the block's lock only.
inline TvLogCfg& SharedLogCfg(TvSharedData& shared) noexcept {
  static_assert(sizeof(TvLogCfg) == sizeof shared.logCfg);
  static_assert(alignof(TvLogCfg) <= alignof(TvSharedData));
  static_assert(std::is_trivially_copyable_v<TvLogCfg> &&
                std::is_trivially_default_constructible_v<TvLogCfg>);
  return *std::launder(reinterpret_cast<TvLogCfg*>(shared.logCfg));
}

// The error code of SaveLogCfg for a string that doesn't fit its field.
inline constexpr unsigned long kErrorTooLong = 160;

// The values that fill a record. A null string counts as an empty one.
struct LogCfgFields {
  const char* logFolder = "";
  bool deleteOnClose = false;
  bool debugEcho = false;
  const char* programs = "";
  const char* users = "";
  const char* options = "";
  bool filter0 = false;
  bool filter1 = false;
};

// The name of the first string that is too long for its field, testing
// logFolder (259 characters at most), programs (2,047), users (2,044) and
// options (511) in that order; null if all fit.
const char* TooLongField(const LogCfgFields& fields) noexcept;

// Fills `cfg` from `fields`: the strings with their zero, the flags, version
// 1 and the CRC. Refuses, changing nothing, if a string is too long. Bytes
// behind a string's zero are left as they were.
[[nodiscard]] bool FillLogCfg(TvLogCfg& cfg, const LogCfgFields& fields) noexcept;

// Version 1 and a CRC that matches the bytes before it.
[[nodiscard]] bool IsValidLogCfg(const TvLogCfg& cfg) noexcept;

// Whether the `separator`-separated `list` holds `name` as a whole entry,
// ignoring case (ASCII) and white space around entries. A null or empty name
// is never found; "*" means nothing special here.
[[nodiscard]] bool ListContains(const char* list, const char* name, char separator) noexcept;

enum class eSharedCfgState { NotSet, Set, Damaged };

// Replaces the shared record under the blocking lock and marks it set; false,
// changing nothing, if a string is too long. `waiting` is told of each failed
// attempt to take the lock.
bool SetSharedLogCfg(TvSharedData& shared, const LogCfgFields& fields,
                     void (*waiting)(unsigned attempts) = nullptr) noexcept;

// Marks the shared record not set, under the blocking lock.
void ClearSharedLogCfg(TvSharedData& shared, void (*waiting)(unsigned attempts) = nullptr) noexcept;

// A copy of the shared record, taken under the blocking lock, and its state.
eSharedCfgState ReadSharedLogCfg(TvSharedData& shared, TvLogCfg& out,
                                 void (*waiting)(unsigned attempts) = nullptr) noexcept;

// What the activation decision asks of the process. Tests give their own.
struct ActivationEnv {
  const char* programPath;  // the executable's full path; null if unknown or too long
  bool (*userName)(char* out, std::size_t capacity);
  unsigned long processId;
  platform::local_time (*now)();
  // The process runs with rights its starter may lack (set-user-ID and the
  // like): it never traces, whatever any configuration says.
  bool secureExecution;
};

// The environment of this process.
ActivationEnv ProcessActivationEnv(char (&path)[260]) noexcept;

// What the activation decision says: whether the process traces, and the
// options and log file name that the sink takes. deleteOnClose, debugEcho
// and enabled hold what the record said once a valid one was read, also when
// a later step said no; actCtx is set once the program and user were found;
// fileName only on yes.
struct ActivationDecision {
  bool on = false;
  bool actCtx = false;  // the option "ActivationContext"
  bool deleteOnClose = false;
  bool debugEcho = false;
  bool enabled[2] = {};  // by filter class
  char fileName[260] = {};
};

// Decides, once per process at load, whether the process traces, and with
// which options and log file name. Every "no" is silent. A process that runs
// with secureExecution never traces and reads nothing: a trace shows the
// texts its functions are given, and the log's folder comes from a record
// that its starter may have written. On Linux the program's file name
// follows the last '/', "TvLog.cfg" is looked for in the program's folder
// (only a regular file is read; a pipe there is never waited for), and a
// program called "LogTune" or "LogTune.exe" (in any case) never traces. A
// valid shared record that is set and not locked wins over the file; a
// damaged one is cleared. The shared record is the one of the process's
// user (see <tvbase/frame/shared_data.h>).
[[nodiscard]] ActivationDecision DecideActivation(TvSharedData& shared,
                                                  const ActivationEnv& env) noexcept;

}  // namespace trace

#endif  // TVBASE_TRACE_LOG_CFG_H
