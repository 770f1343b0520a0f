// The call trace: the cost of a scope with the trace off, and lines per
// second with it on, beside spdlog's basic_file_sink_mt flushed after every
// line (the same two lines, from 1 and 2 threads).
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>

#include <benchmark/benchmark.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>

#include <tvbase/platform/file.h>
#include <tvbase/testing/processes.h>
#include <tvbase/testing/temp_dir.h>
#include <tvbase/trace/func_log.h>
#include <tvbase/trace/log_sink.h>

namespace {

std::string scratch_folder() {
  static const std::string folder = [] {
    const std::string made = testing_support::make_temp_dir("tvbase-bench-");
    return made.empty() ? std::string("/tmp/") : made;
  }();
  return folder;
}

// Installs a sink for the length of one benchmark run: off (no file), a
// fresh file in the scratch folder, or /dev/null (every step of a line, the
// write call included, but no disk).
class sink_scope {
 public:
  enum kind { off, file, null_device };
  explicit sink_scope(kind k) {
    sink_.enabled[0] = sink_.enabled[1] = true;
    if (k == file) {
      path_ = scratch_folder() + "trace.log";
      sink_.file = platform::create_log_file(path_.c_str());
    } else if (k == null_device) {
      sink_.file = platform::create_log_file("/dev/null");
    }
    before_ = trace::UseSink(&sink_);
  }
  ~sink_scope() {
    trace::UseSink(before_);
    platform::close_file(sink_.file);
    if (!path_.empty()) std::filesystem::remove(path_);
  }

 private:
  TvLogSink sink_;
  TvLogSink* before_ = nullptr;
  std::string path_;
};

// One scope with the trace off: a thread-local lookup and a counter.
void BM_TraceOff(benchmark::State& state) {
  const sink_scope off(sink_scope::off);
  for (auto _ : state) {
    TvFuncLog log("Foo");
    benchmark::DoNotOptimize(&log);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_TraceOff);

// Building one line with three formatted items, with no file to hand it to:
// all the work of a line but the write.
void BM_TraceBuildLine(benchmark::State& state) {
  const sink_scope off(sink_scope::off);
  const TvFuncLog log("Foo");
  for (auto _ : state) {
    log.WriteLineFormat("int(%d), int(%d), int(%d)", 3, 7, -12);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_TraceBuildLine);

std::unique_ptr<sink_scope> g_file_sink;

// An enter line with three parameters and its return line, into a file.
void BM_TraceToFile(benchmark::State& state) {
  if (state.thread_index() == 0) g_file_sink = std::make_unique<sink_scope>(sink_scope::file);
  for (auto _ : state) {
    TvFuncLog log("Foo", TvFuncLog::eLogFilter0, 3, 7, -12);
  }
  state.SetItemsProcessed(2 * state.iterations());
  if (state.thread_index() == 0) g_file_sink.reset();
}
BENCHMARK(BM_TraceToFile)->Threads(1)->Threads(2)->UseRealTime();

// An enter line with six typed parameters (an int, a double, a narrow and a
// wide text of 40 characters, a pointer to an int, a GUID) and its return
// line, into a file: the texts and the pointer are checked with the kernel
// before they are read.
void BM_TraceSixTypedParameters(benchmark::State& state) {
  const sink_scope file(sink_scope::file);
  static const int number = 42;
  static const win::GUID id{
      0x00112233, 0x4455, 0x6677, {0x88, 0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF}};
  const std::string narrow(40, 'n');
  const std::wstring wide(40, L'w');
  for (auto _ : state) {
    TvFuncLog log("Foo", TvFuncLog::eLogFilter0, 7, 2.5, narrow.c_str(), wide.c_str(), &number, id);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_TraceSixTypedParameters)->UseRealTime();

// The same scope with /dev/null as the log file: the line's cost but the
// disk's.
void BM_TraceSixTypedParametersDevNull(benchmark::State& state) {
  const sink_scope null_device(sink_scope::null_device);
  static const int number = 42;
  static const win::GUID id{
      0x00112233, 0x4455, 0x6677, {0x88, 0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF}};
  const std::string narrow(40, 'n');
  const std::wstring wide(40, L'w');
  for (auto _ : state) {
    TvFuncLog log("Foo", TvFuncLog::eLogFilter0, 7, 2.5, narrow.c_str(), wide.c_str(), &number, id);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_TraceSixTypedParametersDevNull);

// The price of the cheapest system call on this machine, for scale: a scope
// with typed parameters makes at least three (one question about memory, the
// enter line's write, the return line's write).
void BM_SystemCallFloor(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(testing_support::cheapest_system_call());
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_SystemCallFloor);

std::shared_ptr<spdlog::logger> g_spdlog;

// The same two lines through spdlog, flushed after every line.
void BM_SpdlogBasicFileSinkMt(benchmark::State& state) {
  if (state.thread_index() == 0) {
    g_spdlog = std::make_shared<spdlog::logger>(
        "bench",
        std::make_shared<spdlog::sinks::basic_file_sink_mt>(scratch_folder() + "spd.log", true));
    g_spdlog->set_pattern("%d/%m/%Y %H:%M:%S.%e %t %v");
    g_spdlog->flush_on(spdlog::level::trace);
  }
  for (auto _ : state) {
    g_spdlog->info("Foo( int({}), int({}), int({}) )", 3, 7, -12);
    g_spdlog->info("    Foo return");
  }
  state.SetItemsProcessed(2 * state.iterations());
  if (state.thread_index() == 0) {
    g_spdlog.reset();
    std::filesystem::remove(scratch_folder() + "spd.log");
  }
}
BENCHMARK(BM_SpdlogBasicFileSinkMt)->Threads(1)->Threads(2)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
