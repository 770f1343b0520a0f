// trace::DecideActivation on a TvLogCfg made from the input, in the file
// beside a program in a temporary folder and, if asked, in a shared block of
// the target's own. Any bytes give a decision; it, the log file name and the
// options agree with a naive reading of the rules, and the shared block
// keeps its lock word and loses its set flag only when its record is
// damaged. The same input in a process that runs with secure execution
// (set-user-ID) gives "no" and leaves the shared block as it was.
//
// Byte 0: bit 0 builds a record from the rest (else the rest is the file as
// it is, of any length); bit 1 leaves its CRC wrong (built) or makes it right
// (as is, 4,880 bytes or more); bit 2 puts the record in the shared block as
// well, bit 3 holds the shared lock; bits 4-5 choose the program, bit 6 makes
// the user name unknown, bit 7 makes it 256 characters long.
// A built record: byte 1 fills it, byte 2 gives the four flag bytes (its
// bits 0-3 as 0 or 1, or the byte itself for all when bit 7 is set), and the
// rest holds the folder, programs, users and options separated by 0x1F
// bytes, each copied into its field without a zero and cut at its end.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <string_view>

#include <tvbase/frame/shared_data.h>
#include <tvbase/testing/temp_dir.h>
#include <tvbase/trace/crc.h>
#include <tvbase/trace/log_cfg.h>

namespace {

constexpr std::size_t kRecord = sizeof(TvLogCfg);
constexpr std::size_t kCrcAt = offsetof(TvLogCfg, crc);

// The program's folder, made at the first run and removed at exit.
std::string g_folder;

void remove_folder() {
  std::error_code ignored;
  std::filesystem::remove_all(g_folder, ignored);
}

const std::string& folder() {
  if (g_folder.empty()) {
    g_folder = testing_support::make_temp_dir("tvbase-log-cfg-fuzz-");
    if (g_folder.empty()) std::abort();
    std::atexit(remove_folder);
  }
  return g_folder;
}

const std::string kLongUser(256, 'u');
bool g_user_known = true;
bool g_user_long = false;

bool user_name(char* out, std::size_t capacity) {
  if (!g_user_known) return false;
  const std::string& name = g_user_long ? kLongUser : std::string("alice");
  if (capacity <= name.size()) return false;
  std::memcpy(out, name.c_str(), name.size() + 1);
  return true;
}

platform::local_time fixed_time() { return {2026, 2, 3, 9, 5, 7, 12}; }

std::uint32_t crc_of(const unsigned char* record) { return TvCrc().Add(record, kCrcAt).GetCrc(); }

bool valid(const unsigned char* record) {
  std::uint32_t version, crc;
  std::memcpy(&version, record, 4);
  std::memcpy(&crc, record + kCrcAt, 4);
  return version == 1 && crc == crc_of(record);
}

// The text of a field: up to its zero, and no further than the byte before
// its end.
std::string field(const unsigned char* record, std::size_t at, std::size_t size) {
  const char* p = reinterpret_cast<const char*>(record + at);
  return std::string(p, strnlen(p, size - 1));
}

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool same_nocase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (lower(a[i]) != lower(b[i])) return false;
  }
  return true;
}

// Whether one ';'-separated entry, blanks around it dropped, is `name`.
bool naive_contains(std::string_view list, std::string_view name) {
  if (name.empty()) return false;
  for (;;) {
    const std::size_t end = std::min(list.find(';'), list.size());
    std::string_view entry = list.substr(0, end);
    const auto blank = [](char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; };
    while (!entry.empty() && blank(entry.front())) entry.remove_prefix(1);
    while (!entry.empty() && blank(entry.back())) entry.remove_suffix(1);
    if (same_nocase(entry, name)) return true;
    if (end == list.size()) return false;
    list.remove_prefix(end + 1);
  }
}

// The decision that the rules make of `record`; false for "no".
bool naive_decision(const unsigned char* record, const std::string& program,
                    trace::ActivationDecision& out) {
  const std::string programs = field(record, offsetof(TvLogCfg, programs), 2048);
  const std::string users = field(record, offsetof(TvLogCfg, users), 2045);
  const std::string options = field(record, offsetof(TvLogCfg, options), 512);
  out.deleteOnClose = record[offsetof(TvLogCfg, deleteOnClose)] != 0;
  out.debugEcho = record[offsetof(TvLogCfg, debugEcho)] != 0;
  out.enabled[0] = record[offsetof(TvLogCfg, filter0)] != 0;
  out.enabled[1] = record[offsetof(TvLogCfg, filter1)] != 0;
  if (programs != "*" && !naive_contains(programs, program)) return false;
  if (users != "*" && (!g_user_known || !naive_contains(users, g_user_long ? kLongUser : "alice")))
    return false;
  out.actCtx = naive_contains(options, "ActivationContext");
  const std::string name = field(record, offsetof(TvLogCfg, logFolder), 260) + program +
                           ".4242 03-02-2026 09.05.07.012.log";
  if (name.size() >= sizeof out.fileName) return false;
  std::memcpy(out.fileName, name.c_str(), name.size() + 1);
  return true;
}

// The record that the fields part of a built input makes.
void build(const std::uint8_t* data, std::size_t size, unsigned char* record) {
  if (size < 2) return;
  std::memset(record, data[0], kRecord);
  const std::uint8_t flags = data[1];
  for (std::size_t i = 0; i < 4; ++i) {
    record[offsetof(TvLogCfg, filter0) + i] =
        flags & 0x80 ? flags : static_cast<unsigned char>(flags >> i & 1);
  }
  static constexpr std::size_t kFields[][2] = {
      {offsetof(TvLogCfg, logFolder), 260},
      {offsetof(TvLogCfg, programs), 2048},
      {offsetof(TvLogCfg, users), 2045},
      {offsetof(TvLogCfg, options), 512},
  };
  std::string_view rest(reinterpret_cast<const char*>(data + 2), size - 2);
  for (const auto& [at, length] : kFields) {
    const std::size_t end = std::min(rest.find('\x1F'), rest.size());
    std::memcpy(record + at, rest.data(), std::min(end, length));
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
  const std::uint32_t version = 1;
  std::memcpy(record, &version, 4);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  static const char* const kPrograms[] = {"app", "App.Bin", "LogTune.exe", nullptr};
  static const std::string kLongProgram(300, 'p');
  const std::uint8_t mode = data[0];
  ++data, --size;
  const bool built = mode & 1;
  const bool flip_crc = mode & 2;
  const bool shared_too = mode & 4;
  const bool locked = mode & 8;
  const char* chosen = kPrograms[mode >> 4 & 3];
  const std::string program = chosen ? chosen : kLongProgram;
  g_user_known = !(mode & 0x40);
  g_user_long = mode & 0x80;

  std::string file;
  unsigned char record[kRecord] = {};
  if (built) {
    build(data, size, record);
    std::uint32_t crc = crc_of(record) ^ (flip_crc ? 1 : 0);
    std::memcpy(record + kCrcAt, &crc, 4);
    file.assign(reinterpret_cast<const char*>(record), kRecord);
  } else {
    file.assign(reinterpret_cast<const char*>(data), size);
    if (flip_crc && file.size() >= kRecord) {
      file[0] = 1, file[1] = file[2] = file[3] = 0;
      const std::uint32_t crc = crc_of(reinterpret_cast<const unsigned char*>(file.data()));
      std::memcpy(file.data() + kCrcAt, &crc, 4);
    }
    std::memcpy(record, file.data(), std::min(file.size(), kRecord));
  }
  const std::string cfg_path = folder() + "TvLog.cfg";
  FILE* out = std::fopen(cfg_path.c_str(), "wb");
  if (out == nullptr || std::fwrite(file.data(), 1, file.size(), out) != file.size()) std::abort();
  std::fclose(out);

  TvSharedData shared{};
  if (shared_too) {
    std::memcpy(&shared.logCfg, record, kRecord);
    shared.cfgSet = 1;
  }
  shared.lock = locked ? 1 : 0;

  const std::string path = folder() + program;
  trace::ActivationEnv env{path.c_str(), user_name, 4242, fixed_time, true};
  const TvSharedData before = shared;
  if (trace::DecideActivation(shared, env).on ||
      std::memcmp(&before, &shared, sizeof shared) != 0) {
    std::abort();
  }
  env.secureExecution = false;
  const trace::ActivationDecision decision = trace::DecideActivation(shared, env);
  const bool decided = decision.on;

  // The naive decision. The shared block is looked at only for a program
  // that may trace at all.
  trace::ActivationDecision expected;
  bool yes = false;
  const bool looked = path.size() < 260 && !same_nocase(program, "LogTune.exe");
  const bool shared_wins = looked && shared_too && !locked && valid(record);
  if (looked && (shared_wins || (file.size() >= kRecord &&
                                 valid(reinterpret_cast<const unsigned char*>(file.data()))))) {
    yes = naive_decision(record, program, expected);
  }
  if (decided != yes || std::strcmp(decision.fileName, expected.fileName) != 0) std::abort();
  if (yes &&
      (decision.actCtx != expected.actCtx || decision.deleteOnClose != expected.deleteOnClose ||
       decision.debugEcho != expected.debugEcho || decision.enabled[0] != expected.enabled[0] ||
       decision.enabled[1] != expected.enabled[1])) {
    std::abort();
  }
  if (shared.lock != (locked ? 1u : 0u)) std::abort();
  const bool cleared = looked && shared_too && !locked && !valid(record);
  if (shared.cfgSet != (shared_too && !cleared ? 1u : 0u)) std::abort();
  return 0;
}
