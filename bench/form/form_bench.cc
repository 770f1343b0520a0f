// The distinct counter uncontended, and a 100 MB body built from 1 MB file
// parts: throughput, and the builder's peak memory against the body's size.
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include <tvbase/form/distinct_value.h>
#include <tvbase/form/multipart_form_data.h>
#include <tvbase/testing/processes.h>

namespace {

void BM_DistinctValueGet(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(distinct_value::get());
}
BENCHMARK(BM_DistinctValueGet);

void BM_DistinctValueGetTwoThreads(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(distinct_value::get());
}
BENCHMARK(BM_DistinctValueGetTwoThreads)->Threads(2)->UseRealTime();

// Runs first in the program, so that the process's peak resident size is the
// builder's: the peak grows by what the builder held at most beyond the file
// part and the program itself.
void BM_MultipartBody100MB(benchmark::State& state) {
  const std::vector<unsigned char> part(1u << 20, 'x');
  std::size_t body_size = 0, capacity = 0;
  const long long rss_before = testing_support::peak_resident_bytes();
  for (auto _ : state) {
    multipart_form_data form;
    for (int i = 0; i < 100; ++i) {
      if (!form.add_file("part", "part.bin", part.data(), static_cast<unsigned int>(part.size()),
                         std::nullopt)) {
        state.SkipWithError("add_file refused the part");
        return;
      }
    }
    std::string content_type;
    std::vector<unsigned char> body;
    form.finish(content_type, body);
    body_size = body.size();
    capacity = body.capacity();
    benchmark::DoNotOptimize(body.data());
  }
  const double rss_growth =
      static_cast<double>(testing_support::peak_resident_bytes() - rss_before);
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * body_size));
  state.counters["capacity_per_body"] =
      static_cast<double>(capacity) / static_cast<double>(body_size);
  state.counters["peak_rss_per_body"] = rss_growth / static_cast<double>(body_size);
}
BENCHMARK(BM_MultipartBody100MB)->Unit(benchmark::kMillisecond)->Iterations(5);

}  // namespace

BENCHMARK_MAIN();
