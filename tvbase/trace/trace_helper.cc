// A program for the trace's process tests: it loads the library as any
// application does (joining the test's own shared block) and then acts as
// its arguments say.
//
//   trace_helper run N      traces N calls, prints the log file's name or "-"
//   trace_helper crash N    the same, but dies by SIGKILL before main returns
//   trace_helper spin       traces calls until it is killed (at most kSpinCalls)
//   trace_helper full BYTES N M   traces N calls under a file size limit of
//                           BYTES (SIGXFSZ ignored), lifts it, traces M more
//   trace_helper hold-lock  takes the shared record's lock word, says "held"
//                           on standard error and waits to be killed
//   trace_helper set FOLDER PROGRAMS DELETE   sets the shared record
//   trace_helper state      prints the shared record's flag and lock word
//   trace_helper wait-for PATH [fork]   prints the log file's name or "-",
//                           waits until PATH exists, traces a call (in a
//                           child made by fork() too, which ends normally
//                           first), then ends normally: both unload
//   trace_helper distinct PATH   prints the log file's name or "-", the
//                           shared block's name (empty for a private block)
//                           and a distinct number, waits until PATH exists,
//                           prints another (an application may use any part
//                           of the library)
//   trace_helper block      prints the shared block's name
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>

#include <tvbase/form/distinct_value.h>
#include <tvbase/frame/shared_data.h>
#include <tvbase/testing/processes.h>
#include <tvbase/trace/func_log.h>
#include <tvbase/trace/log_sink.h>

namespace {

// A spinner whose test died before killing it stops on its own: 2,000,000
// calls are some 350 MB of log, far more than any test waits for.
constexpr long kSpinCalls = 2'000'000;

void traced_calls(long count, bool crash) {
  TvFuncLog log("main");
  for (long i = 0; count < 0 || i < count; ++i) {
    TvFuncLog step("step");
    step.WriteLineFormat("i=%ld", i);
  }
  if (crash) testing_support::kill_this_process();
}

void wait_for_file(const char* path) {
  while (!std::filesystem::exists(path)) std::this_thread::sleep_for(std::chrono::milliseconds(5));
}

void print_log_name() {
  const TvLogSink& sink = trace::LogSink();
  std::printf("%s\n", sink.file >= 0 ? sink.fileName : "-");
  std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) return 2;
  const std::string mode = argv[1];
  if ((mode == "run" || mode == "crash") && argc == 3) {
    print_log_name();
    traced_calls(std::atol(argv[2]), mode == "crash");
    return 0;
  }
  if (mode == "spin" && argc == 2) {
    print_log_name();
    traced_calls(kSpinCalls, false);
    return 0;
  }
  if (mode == "full" && argc == 5) {
    print_log_name();
    if (!testing_support::limit_file_size(std::strtoull(argv[2], nullptr, 10))) return 3;
    traced_calls(std::atol(argv[3]), false);
    if (!testing_support::limit_file_size(testing_support::kNoSizeLimit)) return 3;
    traced_calls(std::atol(argv[4]), false);
    return 0;
  }
  if (mode == "hold-lock" && argc == 2) {
    frame::acquire_lock(*TvGetSharedData());
    std::fputs("held\n", stderr);
    std::fflush(stderr);  // a pipe may be buffered (Windows)
    for (;;) std::this_thread::sleep_for(std::chrono::hours(1));
  }
  if (mode == "set" && argc == 5) {
    return TvFuncLog::SetSharedLogCfg(argv[2], std::strcmp(argv[4], "1") == 0, false, argv[3], "*",
                                      "", true, true)
               ? 0
               : 1;
  }
  if (mode == "wait-for" && (argc == 3 || (argc == 4 && std::strcmp(argv[3], "fork") == 0))) {
    print_log_name();
    wait_for_file(argv[2]);
    if (argc == 4) {
      const int status = testing_support::in_child([]() -> int {
        traced_calls(1, false);
        std::exit(0);  // a normal end, which unloads the library in the child
      });
      if (status != 0) return 4;
    }
    traced_calls(1, false);
    return 0;
  }
  if (mode == "distinct" && argc == 3) {
    print_log_name();
    std::printf("%s\n%llu\n", frame::shared_block_object_name(), distinct_value::get());
    std::fflush(stdout);
    wait_for_file(argv[2]);
    std::printf("%llu\n", distinct_value::get());
    return 0;
  }
  if (mode == "block" && argc == 2) {
    std::printf("%s\n", frame::shared_block_object_name());
    return 0;
  }
  if (mode == "state" && argc == 2) {
    const TvSharedData& shared = *TvGetSharedData();
    std::printf("%u %u\n", shared.cfgSet, shared.lock);
    return 0;
  }
  return 2;
}
