// The distinct counter uncontended, and a 100 MB body built from 1 MB file
// parts: throughput, and the builder's peak memory against the body's size.
// Then what the check for the form's delimiter in the data costs, on bytes
// of six kinds, from bytes that seldom hold a CR to the check's worst: the
// check alone over 64 MB (a file refused for the delimiter at its very end),
// beside a plain copy of the same bytes into a buffer made beforehand, and a
// whole form of 64 such 1 MB files.
#include <cstring>
#include <memory>
#include <random>
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

// `size` file bytes of a kind: 0 random, 1 text lines with CR LF ends, 2 all
// CR, 3 the delimiter's start with the boundary's fixed text, over and over
// (long compares), 4 all '0', the boundary's most common digit, 5 CR and '0'
// in turn (the check's worst: a CR every other byte, and windows that end in
// a boundary digit).
std::vector<unsigned char> file_bytes(std::int64_t kind, std::size_t size) {
  std::vector<unsigned char> bytes;
  bytes.reserve(size + 128);
  std::mt19937 random(7);
  const std::string line = std::string(78, 'a') + "\r\n";
  const std::string near = "\r\n--Tarvelo-Client-App-";
  while (bytes.size() < size) {
    switch (kind) {
      case 0: bytes.push_back(static_cast<unsigned char>(random())); break;
      case 1: bytes.insert(bytes.end(), line.begin(), line.end()); break;
      case 2: bytes.push_back('\r'); break;
      case 4: bytes.push_back('0'); break;
      case 5: bytes.push_back(bytes.size() % 2 == 0 ? '\r' : '0'); break;
      default: bytes.insert(bytes.end(), near.begin(), near.end()); break;
    }
  }
  bytes.resize(size);
  return bytes;
}

// The boundary that `form` will end with, from a copy of it.
std::string boundary_of(const multipart_form_data& form) {
  multipart_form_data copy = form;
  std::string content_type;
  std::vector<unsigned char> body;
  copy.finish(content_type, body);
  return content_type.substr(content_type.find('=') + 1);
}

constexpr std::size_t kScanBytes = std::size_t{64} << 20;

// The check alone: each file holds the form's delimiter in its last bytes,
// so add_file looks at every byte and appends nothing.
void BM_DelimiterCheck64MB(benchmark::State& state) {
  multipart_form_data form;
  std::vector<unsigned char> data = file_bytes(state.range(0), kScanBytes);
  const std::string delimiter = "\r\n--" + boundary_of(form);
  std::memcpy(data.data() + data.size() - delimiter.size(), delimiter.data(), delimiter.size());
  for (auto _ : state) {
    if (form.add_file("part", "part.bin", data.data(), static_cast<unsigned int>(data.size()),
                      std::nullopt)) {
      state.SkipWithError("add_file took a file that holds the delimiter");
      return;
    }
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(data.size()));
}
BENCHMARK(BM_DelimiterCheck64MB)->DenseRange(0, 5)->Unit(benchmark::kMillisecond);

// The floor of any builder: the same bytes copied into a buffer made
// beforehand.
void BM_Copy64MB(benchmark::State& state) {
  const std::vector<unsigned char> data = file_bytes(state.range(0), kScanBytes);
  std::vector<unsigned char> copy(data.size());
  for (auto _ : state) {
    std::memcpy(copy.data(), data.data(), data.size());
    benchmark::DoNotOptimize(copy.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(data.size()));
}
BENCHMARK(BM_Copy64MB)->DenseRange(0, 5)->Unit(benchmark::kMillisecond);

constexpr int kFileParts = 64;

// A whole form of 64 files of 1 MB each: the check, the copies and the
// growth of the body.
void BM_MultipartFiles64MB(benchmark::State& state) {
  const std::vector<unsigned char> part = file_bytes(state.range(0), 1u << 20);
  for (auto _ : state) {
    multipart_form_data form;
    for (int i = 0; i < kFileParts; ++i) {
      if (!form.add_file("part", "part.bin", part.data(), static_cast<unsigned int>(part.size()),
                         std::nullopt)) {
        state.SkipWithError("add_file refused the part");
        return;
      }
    }
    std::string content_type;
    std::vector<unsigned char> body;
    form.finish(content_type, body);
    benchmark::DoNotOptimize(body.data());
  }
  state.SetBytesProcessed(state.iterations() * kFileParts * static_cast<std::int64_t>(part.size()));
}
BENCHMARK(BM_MultipartFiles64MB)->DenseRange(0, 5)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
