#include <tvbase/trace/log_sink.h>

#include <tvbase/frame/shared_data.h>
#include <tvbase/platform/file.h>
#include <tvbase/trace/log_cfg.h>

namespace {

// Constant-initialised, and trivially destroyed: threads may still write
// while the program's static objects go away.
TvLogSink g_process_sink;

}  // namespace

TvLogSink* trace::g_active_sink = &g_process_sink;

void TvLogSink::Build(TvSharedData& shared, const trace::activation_env& env) noexcept {
  *this = TvLogSink{};
  if (!trace::DecideActivation(*this, shared, env)) return;
  file = platform::create_log_file(fileName);
  owner = env.process_id;
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
  if (debugEcho) platform::write_stderr(line, length, "\n", 1);
}

namespace trace {

void build_process_sink() noexcept {
  char path[260];
  g_process_sink.Build(*TvGetSharedData(), ProcessActivationEnv(path));
}

void take_down_process_sink() noexcept { g_process_sink.TakeDown(); }

TvLogSink* use_sink(TvLogSink* sink) noexcept {
  TvLogSink* before = g_active_sink;
  g_active_sink = sink != nullptr ? sink : &g_process_sink;
  return before;
}

}  // namespace trace
