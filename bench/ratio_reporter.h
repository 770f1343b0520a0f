#ifndef TVBASE_BENCH_RATIO_REPORTER_H
#define TVBASE_BENCH_RATIO_REPORTER_H

// The console table of Google Benchmark, followed by ratios between rows of
// the same run (the library beside its peer, a large input beside a small
// one), which the benchmark's targets are stated in.

#include <cstdio>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

namespace bench_support {

class ratio_reporter : public benchmark::ConsoleReporter {
 public:
  // `print_ratios` runs after the table, and calls ratio() for each row.
  explicit ratio_reporter(std::function<void(ratio_reporter&)> print_ratios)
      : print_ratios_(std::move(print_ratios)) {}

  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      if (!run.error_occurred) seconds_[run.benchmark_name()] = run.GetAdjustedRealTime();
    }
  }
  void Finalize() override {
    ConsoleReporter::Finalize();
    print_ratios_(*this);
  }

  // Prints the time of row `a` over that of row `b`; nothing if either did
  // not run.
  void ratio(const std::string& what, const std::string& a, const std::string& b) const {
    const auto x = seconds_.find(a);
    const auto y = seconds_.find(b);
    if (x == seconds_.end() || y == seconds_.end() || y->second <= 0) return;
    std::printf("  %-56s %8.2f\n", what.c_str(), x->second / y->second);
  }

 private:
  std::function<void(ratio_reporter&)> print_ratios_;
  std::map<std::string, double> seconds_;
};

// Runs the benchmarks of a program with the reporter above.
inline int run_with_ratios(int argc, char** argv,
                           std::function<void(ratio_reporter&)> print_ratios) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  ratio_reporter reporter(std::move(print_ratios));
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return 0;
}

}  // namespace bench_support

#endif  // TVBASE_BENCH_RATIO_REPORTER_H
