#include <tvbase/trace/func_log.h>

#include <charconv>
#include <cstdio>
#include <cstring>
#include <exception>

#include <tvbase/frame/shared_data.h>
#include <tvbase/platform/file.h>
#include <tvbase/platform/process.h>
#include <tvbase/trace/log_cfg.h>
#include <tvbase/trace/log_sink.h>
#include <tvbase/trace/thread_state.h>

namespace {

constexpr std::uint32_t kMaxLine = TvLogThreadState::kLineSize - 1;
constexpr std::uint32_t kNoContext = 0xABCD9876;

// Off the fast path: only with the option "ActivationContext".
[[gnu::cold, gnu::noinline]] std::uint32_t current_context() {
  std::uint32_t context = 0;
  return platform::current_activation_context(context) ? context : kNoContext;
}

// Appends `n` characters, cutting them at the line's limit.
void append_plain(TvLogThreadState& s, const char* text, std::size_t n) {
  const std::size_t room = kMaxLine - s.length;
  if (n > room) n = room;
  std::memcpy(s.line + s.length, text, n);
  s.length += static_cast<std::uint32_t>(n);
  s.line[s.length] = 0;
}

// Appends one formatted item whole, or nothing if it doesn't fit.
void append_formatted(TvLogThreadState& s, const char* format, std::va_list arguments) {
  const std::size_t room = kMaxLine - s.length;
  const int n = std::vsnprintf(s.line + s.length, room + 1, format, arguments);
  if (n >= 0 && static_cast<std::size_t>(n) <= room) {
    s.length += static_cast<std::uint32_t>(n);
  }
  s.line[s.length] = 0;
}

// Writes `value` in decimal with at least `width` digits, as "%0*d" does.
char* put_decimal(char* out, int value, int width) {
  unsigned magnitude = static_cast<unsigned>(value);
  if (value < 0) {
    *out++ = '-';
    magnitude = 0u - magnitude;
    --width;
  }
  char digits[16];
  const auto end = std::to_chars(digits, digits + sizeof digits, magnitude).ptr;
  for (auto n = end - digits; n < width; ++n) *out++ = '0';
  std::memcpy(out, digits, static_cast<std::size_t>(end - digits));
  return out + (end - digits);
}

char* put_hex8(char* out, std::uint32_t value) {
  static constexpr char kDigits[] = "0123456789abcdef";
  for (int shift = 28; shift >= 0; shift -= 4) *out++ = kDigits[(value >> shift) & 0xF];
  return out;
}

// The head, as "%02d/%02d/%04d %02d:%02d:%02d.%03d %08x%s%*s%s" would write
// it: one item, appended whole or dropped whole.
void append_head(TvLogThreadState& s, int indent_depth, const char* name) {
  const platform::local_time t = platform::now();
  char stamp[96];
  char* p = stamp;
  p = put_decimal(p, t.day, 2);
  *p++ = '/';
  p = put_decimal(p, t.month, 2);
  *p++ = '/';
  p = put_decimal(p, t.year, 4);
  *p++ = ' ';
  p = put_decimal(p, t.hour, 2);
  *p++ = ':';
  p = put_decimal(p, t.minute, 2);
  *p++ = ':';
  p = put_decimal(p, t.second, 2);
  *p++ = '.';
  p = put_decimal(p, t.millisecond, 3);
  *p++ = ' ';
  p = put_hex8(p, platform::thread_id());
  *p++ = std::uncaught_exceptions() > 0 ? '!' : ' ';
  // A negative width pads all the same, as printf's does.
  const long long width = 4LL * indent_depth;
  const std::size_t indent = static_cast<std::size_t>(width < 0 ? -width : width);
  if (name == nullptr) name = "(null)";
  const std::size_t stamp_length = static_cast<std::size_t>(p - stamp);
  const std::size_t name_length = std::strlen(name);
  const std::size_t room = kMaxLine - s.length;
  if (indent > room || stamp_length + name_length > room - indent) return;
  char* out = s.line + s.length;
  std::memcpy(out, stamp, stamp_length);
  std::memset(out + stamp_length, ' ', indent);
  std::memcpy(out + stamp_length + indent, name, name_length);
  s.length += static_cast<std::uint32_t>(stamp_length + indent + name_length);
  s.line[s.length] = 0;
}

bool enabled(const TvLogThreadState* state, std::uint8_t filter) {
  if (state == nullptr) return false;
  const TvLogSink& sink = trace::LogSink();
  return sink.file >= 0 && sink.enabled[filter == TvFuncLog::eLogFilter1 ? 1 : 0];
}

}  // namespace

TvFuncLog& TvFuncLog::operator=(const TvFuncLog& other) noexcept {
  state_ = other.state_;
  name_ = other.name_;
  filter_ = other.filter_;
  actCtx_ = other.actCtx_;
  return *this;
}

bool TvFuncLog::EnterFunc(const char* name) noexcept { return Enter(name, eLogFilter0); }

bool TvFuncLog::EnterFunc(const char* name, eLogFilter filter) noexcept {
  return Enter(name, filter);
}

inline bool TvFuncLog::Enter(const char* name, std::uint8_t filter) noexcept {
  state_ = trace::ThreadState();
  if (state_ == nullptr) return false;
  name_ = name;
  filter_ = filter;
  const TvLogSink& sink = trace::LogSink();
  if (sink.actCtx) actCtx_ = current_context();
  ++state_->depth;
  return sink.file >= 0 && sink.enabled[filter == eLogFilter1 ? 1 : 0];
}

void TvFuncLog::ExitFunc() noexcept {
  if (state_ == nullptr) return;
  if (enabled(state_, filter_)) {
    const std::uint32_t kept = actCtx_;
    if (trace::LogSink().actCtx) actCtx_ = current_context();
    WriteLogStart();
    WriteAppend(" return");
    if (kept != actCtx_) WriteAppend(" !!! Activation context has changed !!!");
    WriteLogEnd();
  }
  --state_->depth;
}

bool TvFuncLog::IsEnabled() const noexcept { return enabled(state_, filter_); }

void TvFuncLog::LogFuncAndParm() noexcept {
  WriteLogStartFunc();
  WriteLogEnd();
}

void TvFuncLog::WriteLine(const char* text) const noexcept {
  WriteLogStart();
  WriteAppend(": ");
  WriteAppend(text);
  WriteLogEnd();
}

void TvFuncLog::WriteLineFormat(const char* format, ...) const noexcept {
  WriteLogStart();
  WriteAppend(": ");
  std::va_list arguments;
  va_start(arguments, format);
  WriteAppendFormatV(format, arguments);
  va_end(arguments);
  WriteLogEnd();
}

void TvFuncLog::WriteLogStart() const noexcept {
  if (state_ == nullptr) return;
  TvLogThreadState& s = *state_;
  s.length = 0;
  s.line[0] = 0;
  s.parmCount = -1;
  if (trace::LogSink().actCtx) {
    char prefix[16] = {'('};
    char* end = put_hex8(prefix + 1, actCtx_);
    *end++ = ')';
    *end++ = ' ';
    append_plain(s, prefix, static_cast<std::size_t>(end - prefix));
  }
  append_head(s, s.depth, name_);
}

const TvFuncLog& TvFuncLog::WriteLogStartFunc() const noexcept {
  if (state_ == nullptr) return *this;
  --state_->depth;
  WriteLogStart();
  ++state_->depth;
  WriteAppend("( ");
  state_->parmCount = 0;
  return *this;
}

void TvFuncLog::WriteLogEnd() const noexcept {
  if (state_ == nullptr) return;
  TvLogThreadState& s = *state_;
  if (s.parmCount >= 0) {
    s.parmCount = -1;
    WriteAppend(" )");
  }
  trace::LogSink().Write(s.line, s.length);
  s.length = 0;
  s.line[0] = 0;
  s.precheckCount = 0;
}

const TvFuncLog& TvFuncLog::WriteAppend(const char* text) const noexcept {
  if (state_ == nullptr || state_->collecting) return *this;
  if (state_->parmCount >= 0) WriteAppendParmSep();
  if (text != nullptr) append_plain(*state_, text, std::strlen(text));
  return *this;
}

const TvFuncLog& TvFuncLog::WriteAppend(const char* text, int length) const noexcept {
  if (state_ == nullptr || state_->collecting) return *this;
  if (state_->parmCount >= 0) WriteAppendParmSep();
  if (text != nullptr && length > 0) append_plain(*state_, text, static_cast<std::size_t>(length));
  return *this;
}

const TvFuncLog& TvFuncLog::WriteAppendFormat(const char* format, ...) const noexcept {
  std::va_list arguments;
  va_start(arguments, format);
  WriteAppendFormatV(format, arguments);
  va_end(arguments);
  return *this;
}

const TvFuncLog& TvFuncLog::WriteAppendFormatV(const char* format,
                                               std::va_list arguments) const noexcept {
  if (state_ == nullptr || state_->collecting) return *this;
  if (state_->parmCount >= 0) WriteAppendParmSep();
  if (format != nullptr) append_formatted(*state_, format, arguments);
  return *this;
}

void TvFuncLog::WriteAppendParmSep() const noexcept {
  TvLogThreadState& s = *state_;
  ++s.parmCount;
  if (s.parmCount > 1 && !s.glue) {
    // The separator is an item of its own, which counts once more but gets
    // no separator: the glue flag stands for it.
    ++s.parmCount;
    append_plain(s, ", ", 2);
  }
  s.glue = false;
}

bool TvFuncLog::SaveLogCfg(const char* path, const char* logFolder, bool deleteOnClose,
                           bool debugEcho, const char* programs, const char* users,
                           const char* options, bool filter0, bool filter1,
                           unsigned long* error) noexcept {
  TvLogCfg cfg{};
  const trace::LogCfgFields fields{logFolder, deleteOnClose, debugEcho, programs,
                                   users,     options,       filter0,   filter1};
  unsigned long code = trace::kErrorTooLong;
  const bool fits = trace::FillLogCfg(cfg, fields);
  if (fits) code = platform::write_whole_file(path != nullptr ? path : "", &cfg, sizeof cfg);
  if (error != nullptr) *error = code;
  return fits;
}

bool TvFuncLog::SetSharedLogCfg(const char* logFolder, bool deleteOnClose, bool debugEcho,
                                const char* programs, const char* users, const char* options,
                                bool filter0, bool filter1) noexcept {
  const trace::LogCfgFields fields{logFolder, deleteOnClose, debugEcho, programs,
                                   users,     options,       filter0,   filter1};
  return trace::SetSharedLogCfg(*TvGetSharedData(), fields);
}

bool TvFuncLog::ClearSharedLogCfg() noexcept {
  trace::ClearSharedLogCfg(*TvGetSharedData());
  return true;
}
