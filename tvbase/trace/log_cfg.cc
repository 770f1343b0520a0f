#include <tvbase/trace/log_cfg.h>

#include <cstdio>
#include <cstring>

#include <tvbase/platform/file.h>
#include <tvbase/trace/crc.h>

namespace trace {
namespace {

constexpr char kCfgFileName[] = "TvLog.cfg";
constexpr std::size_t kPathLimit = 260;  // paths have at most 259 characters
constexpr std::size_t kUserLimit = 257;  // user names up to 256 characters

const char* or_empty(const char* text) { return text != nullptr ? text : ""; }

bool is_space(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool starts_with_nocase(const char* text, const char* prefix, std::size_t n) {
  for (std::size_t i = 0; i < n; ++i) {
    if (text[i] == 0 || lower(text[i]) != lower(prefix[i])) return false;
  }
  return true;
}

bool equals_nocase(const char* a, const char* b) {
  const std::size_t n = std::strlen(b);
  return std::strlen(a) == n && starts_with_nocase(a, b, n);
}

std::uint32_t record_crc(const TvLogCfg& cfg) {
  return TvCrc().Add(&cfg, offsetof(TvLogCfg, crc)).GetCrc();
}

template <std::size_t N>
void copy_field(char (&field)[N], const char* text) {
  std::memcpy(field, text, std::strlen(text) + 1);
}

// A record read from outside may lack a string's zero; end each string
// within its field so that nothing reads past it.
void end_strings(TvLogCfg& cfg) {
  cfg.logFolder[sizeof cfg.logFolder - 1] = 0;
  cfg.programs[sizeof cfg.programs - 1] = 0;
  cfg.users[sizeof cfg.users - 1] = 0;
  cfg.options[sizeof cfg.options - 1] = 0;
}

// A flag read from outside may hold any byte, but a bool holding other than
// 0 or 1 is no valid bool: read it as a byte, and any but 0 as true.
bool flag(const bool& field) {
  unsigned char byte;
  std::memcpy(&byte, &field, 1);
  return byte != 0;
}

}  // namespace

const char* TooLongField(const LogCfgFields& f) noexcept {
  if (std::strlen(or_empty(f.logFolder)) >= sizeof TvLogCfg::logFolder) return "logFolder";
  if (std::strlen(or_empty(f.programs)) >= sizeof TvLogCfg::programs) return "programs";
  if (std::strlen(or_empty(f.users)) >= sizeof TvLogCfg::users) return "users";
  if (std::strlen(or_empty(f.options)) >= sizeof TvLogCfg::options) return "options";
  return nullptr;
}

bool FillLogCfg(TvLogCfg& cfg, const LogCfgFields& f) noexcept {
  if (TooLongField(f) != nullptr) return false;
  copy_field(cfg.logFolder, or_empty(f.logFolder));
  copy_field(cfg.programs, or_empty(f.programs));
  copy_field(cfg.users, or_empty(f.users));
  copy_field(cfg.options, or_empty(f.options));
  cfg.filter0 = f.filter0;
  cfg.filter1 = f.filter1;
  cfg.deleteOnClose = f.deleteOnClose;
  cfg.debugEcho = f.debugEcho;
  cfg.version = 1;
  cfg.crc = record_crc(cfg);
  return true;
}

bool IsValidLogCfg(const TvLogCfg& cfg) noexcept {
  return cfg.version == 1 && cfg.crc == record_crc(cfg);
}

bool ListContains(const char* list, const char* name, char separator) noexcept {
  if (list == nullptr || name == nullptr || *name == 0) return false;
  const std::size_t n = std::strlen(name);
  const auto skip_separators = [separator](const char* p) {
    while (*p == separator || is_space(*p)) ++p;
    return p;
  };
  const char* p = skip_separators(list);
  while (*p != 0) {
    if (starts_with_nocase(p, name, n)) {
      p += n;
      while (is_space(*p)) ++p;
      if (*p == separator || *p == 0) return true;
    }
    p = std::strchr(p, separator);
    if (p == nullptr) return false;
    p = skip_separators(p);
  }
  return false;
}

bool SetSharedLogCfg(TvSharedData& shared, const LogCfgFields& fields,
                     void (*waiting)(unsigned)) noexcept {
  frame::acquire_lock(shared, waiting);
  const bool filled = FillLogCfg(SharedLogCfg(shared), fields);
  if (filled) shared.cfgSet = 1;
  frame::release_lock(shared);
  return filled;
}

void ClearSharedLogCfg(TvSharedData& shared, void (*waiting)(unsigned)) noexcept {
  frame::acquire_lock(shared, waiting);
  shared.cfgSet = 0;
  frame::release_lock(shared);
}

eSharedCfgState ReadSharedLogCfg(TvSharedData& shared, TvLogCfg& out,
                                 void (*waiting)(unsigned)) noexcept {
  frame::acquire_lock(shared, waiting);
  std::memcpy(&out, &SharedLogCfg(shared), sizeof out);
  const bool set = shared.cfgSet != 0;
  frame::release_lock(shared);
  if (!set) return eSharedCfgState::NotSet;
  return IsValidLogCfg(out) ? eSharedCfgState::Set : eSharedCfgState::Damaged;
}

ActivationEnv ProcessActivationEnv(char (&path)[260]) noexcept {
  return {platform::executable_path(path, sizeof path) ? path : nullptr, platform::user_name,
          platform::process_id(), platform::now, platform::secure_execution()};
}

ActivationDecision DecideActivation(TvSharedData& shared, const ActivationEnv& env) noexcept {
  ActivationDecision d;
  if (env.secureExecution) return d;
  const char* path = env.programPath;
  if (path == nullptr || std::strlen(path) >= kPathLimit) return d;
  const char* slash = nullptr;
  for (const char* p = path; *p != 0; ++p) {
    if (std::strchr(platform::kPathSeparators, *p) != nullptr) slash = p;
  }
  if (slash == nullptr) return d;
  const char* program = slash + 1;
  if (equals_nocase(program, "LogTune.exe") || equals_nocase(program, "LogTune")) return d;

  TvLogCfg cfg;
  bool have_shared = false;
  if (frame::try_acquire_lock(shared)) {
    if (shared.cfgSet != 0) {
      std::memcpy(&cfg, &SharedLogCfg(shared), sizeof cfg);
      have_shared = IsValidLogCfg(cfg);
      if (!have_shared) shared.cfgSet = 0;
    }
    frame::release_lock(shared);
  }
  if (!have_shared) {
    char cfg_path[kPathLimit];
    const std::size_t folder = static_cast<std::size_t>(program - path);
    if (folder + sizeof kCfgFileName > kPathLimit) return d;
    std::memcpy(cfg_path, path, folder);
    std::memcpy(cfg_path + folder, kCfgFileName, sizeof kCfgFileName);
    if (platform::read_file_start(cfg_path, &cfg, sizeof cfg) != static_cast<long>(sizeof cfg) ||
        !IsValidLogCfg(cfg)) {
      return d;
    }
  }
  end_strings(cfg);

  d.deleteOnClose = flag(cfg.deleteOnClose);
  d.debugEcho = flag(cfg.debugEcho);
  d.enabled[0] = flag(cfg.filter0);
  d.enabled[1] = flag(cfg.filter1);
  if (std::strcmp(cfg.programs, "*") != 0 && !ListContains(cfg.programs, program, ';')) return d;
  if (std::strcmp(cfg.users, "*") != 0) {
    char user[kUserLimit];
    if (env.userName == nullptr || !env.userName(user, sizeof user) ||
        !ListContains(cfg.users, user, ';')) {
      return d;
    }
  }
  if (ListContains(cfg.options, "ActivationContext", ';')) d.actCtx = true;

  const platform::local_time t = env.now();
  const int n =
      std::snprintf(d.fileName, sizeof d.fileName, "%s%s.%d %02d-%02d-%04d %02d.%02d.%02d.%03d.log",
                    cfg.logFolder, program, static_cast<int>(env.processId), t.day, t.month, t.year,
                    t.hour, t.minute, t.second, t.millisecond);
  if (n < 0 || static_cast<std::size_t>(n) >= kPathLimit) {
    d.fileName[0] = 0;
    return d;
  }
  d.on = true;
  return d;
}

}  // namespace trace
