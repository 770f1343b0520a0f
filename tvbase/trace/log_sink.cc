#include <tvbase/trace/log_sink.h>

#include <cstring>

#include <tvbase/frame/shared_data.h>
#include <tvbase/platform/file.h>
#include <tvbase/platform/process.h>
#include <tvbase/trace/log_cfg.h>

namespace {

// Constant-initialised, and trivially destroyed: threads may still write
// while the program's static objects go away.
TvLogSink g_process_sink;

// A folder where only its owner decides what its names are, and the owner is
// this user or root. Anywhere else another user could plant a file, a link
// or a pipe at the log's name, or take the log away.
bool trusted(const platform::folder_access& access) {
  return !access.others_may_replace && (access.owner_is_me || access.owner_is_root);
}

// Opens the folder part of `path`: up to its last separator, or the current
// folder without one. `name_at` is where the last name starts. A folder that
// is a root ("/", "C:\\") keeps its separator.
int open_folder_of(const char* path, std::uint16_t& name_at) {
  const char* slash = nullptr;
  for (const char* c = path; *c != 0; ++c) {
    if (std::strchr(platform::kPathSeparators, *c) != nullptr) slash = c;
  }
  if (slash == nullptr) {
    name_at = 0;
    return platform::open_folder(".");
  }
  std::size_t length = static_cast<std::size_t>(slash - path);
  name_at = static_cast<std::uint16_t>(length + 1);
  if (length == 0 || path[length - 1] == ':') ++length;
  char folder[sizeof TvLogSink::fileName];
  if (length + 1 >= sizeof folder) return -1;
  std::memcpy(folder, path, length);
  folder[length] = 0;
  return platform::open_folder(folder);
}

}  // namespace

TvLogSink* trace::g_active_sink = &g_process_sink;

void TvLogSink::Build(const trace::ActivationDecision& decision) noexcept {
  *this = TvLogSink{};
  actCtx = decision.actCtx;
  std::memcpy(fileName, decision.fileName, sizeof fileName);
  deleteOnClose = decision.deleteOnClose;
  debugEcho = decision.debugEcho;
  enabled[0] = decision.enabled[0];
  enabled[1] = decision.enabled[1];
  if (!decision.on) return;
  folder = open_folder_of(fileName, nameAt);
  platform::folder_access access;
  if (folder >= 0 && platform::folder_access_of(folder, access) && trusted(access)) {
    const char* name = fileName + nameAt;
    // Replaces an old file of the name; what can't be removed makes the
    // creation fail.
    platform::remove_in_folder(folder, name);
    file = platform::create_own_file_in(folder, name);
    platform::file_facts facts;
    if (file >= 0 &&
        !(platform::file_facts_of(file, facts) && facts.regular && facts.owner_is_me)) {
      platform::close_file(file);
      file = -1;
    }
  }
  if (file < 0) {
    platform::close_folder(folder);
    folder = -1;
    return;
  }
  owner = platform::process_id();
}

void TvLogSink::TakeDown() noexcept {
  if (file < 0) return;
  platform::close_file(file);
  file = -1;
  if (deleteOnClose && owner == platform::process_id() && folder >= 0) {
    platform::remove_in_folder(folder, fileName + nameAt);
  }
  platform::close_folder(folder);
  folder = -1;
}

void TvLogSink::Write(const char* line, std::size_t length) const noexcept {
  if (file < 0) return;
  platform::write_line(file, line, length, "\r\n", 2);
  if (debugEcho) platform::debug_echo(line, length);
}

namespace trace {

void BuildProcessSink() noexcept {
  char path[260];
  g_process_sink.Build(DecideActivation(*TvGetSharedData(), ProcessActivationEnv(path)));
}

void TakeDownProcessSink() noexcept { g_process_sink.TakeDown(); }

TvLogSink* UseSink(TvLogSink* sink) noexcept {
  TvLogSink* before = g_active_sink;
  g_active_sink = sink != nullptr ? sink : &g_process_sink;
  return before;
}

}  // namespace trace
