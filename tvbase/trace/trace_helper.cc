// A program for the trace's process tests: it loads the library as any
// application does (joining the test's own shared block) and then acts as
// its arguments say.
//
//   trace_helper run N      traces N calls, prints the log file's name or "-"
//   trace_helper crash N    the same, but dies by SIGKILL before main returns
//   trace_helper set FOLDER PROGRAMS DELETE   sets the shared record
//   trace_helper state      prints the shared record's flag and lock word
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <tvbase/frame/shared_data.h>
#include <tvbase/trace/func_log.h>
#include <tvbase/trace/log_sink.h>

namespace {

void traced_calls(int count, bool crash) {
  TvFuncLog log("main");
  for (int i = 0; i < count; ++i) {
    TvFuncLog step("step");
    step.WriteLineFormat("i=%d", i);
  }
  if (crash) std::raise(SIGKILL);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) return 2;
  const std::string mode = argv[1];
  if ((mode == "run" || mode == "crash") && argc == 3) {
    const TvLogSink& sink = trace::log_sink();
    std::printf("%s\n", sink.file >= 0 ? sink.fileName : "-");
    std::fflush(stdout);
    traced_calls(std::atoi(argv[2]), mode == "crash");
    return 0;
  }
  if (mode == "set" && argc == 5) {
    return TvFuncLog::SetSharedLogCfg(argv[2], std::strcmp(argv[4], "1") == 0, false, argv[3],
                                      "*", "", true, true)
               ? 0
               : 1;
  }
  if (mode == "state" && argc == 2) {
    const TvSharedData& shared = *TvGetSharedData();
    std::printf("%u %u\n", shared.cfgSet, shared.lock);
    return 0;
  }
  return 2;
}
