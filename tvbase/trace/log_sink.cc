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
  file = platform::create_log_file(fileName);
  owner = platform::process_id();
}

void TvLogSink::TakeDown() noexcept {
  if (file < 0) return;
  platform::close_file(file);
  file = -1;
  if (deleteOnClose && owner == platform::process_id()) platform::remove_file(fileName);
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
