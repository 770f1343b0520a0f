// `tvbase trace summary` (the same write_summary that the tool runs) on a
// log that the benchmark writes first: four threads taking turns, calls
// nested six deep with parameters, text lines, returns left by an
// exception. Reports bytes per second and, to show that memory doesn't grow
// with the log, the peak of the process's resident memory during the run
// ("peak_RSS_MB", from VmHWM, reset before the run through
// /proc/self/clear_refs) and of the bytes held on the heap ("peak_heap_MB").
//
// The log is read from the page cache, where writing it left it: this
// measures the reader, not the disk. It lives in the temporary folder and is
// deleted after each size; a size that doesn't fit there is skipped.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>

#include <benchmark/benchmark.h>

#include <tvbase/testing/allocation_counter.h>

#include "trace_outputs.h"

namespace {

constexpr std::int64_t kMB = 1 << 20;

// "dd/mm/yyyy hh:mm:ss.mmm" from a count of milliseconds in one day, on 3
// February 2026.
void put_time(std::string& out, std::int64_t ms) {
  char text[32];
  std::snprintf(text, sizeof text, "03/02/2026 %02d:%02d:%02d.%03d",
                static_cast<int>(ms / 3600000 % 24), static_cast<int>(ms / 60000 % 60),
                static_cast<int>(ms / 1000 % 60), static_cast<int>(ms % 1000));
  out += text;
}

// Writes a log of at least `bytes` to `path`; false if the disk refused.
bool write_log(const std::string& path, std::int64_t bytes) {
  static const char* const kNames[] = {"CMainFrame::OnIdle", "CDocument::Load", "Parser::ReadToken",
                                       "Renderer::DrawItem", "Cache::Lookup",   "Net::Send"};
  std::FILE* file = std::fopen(path.c_str(), "wb");
  if (file == nullptr) return false;
  std::mt19937 random(42);
  struct thread {
    unsigned id;
    int depth = 0;
  } threads[4] = {{0x1a2c}, {0x1b00}, {0x2f14}, {0x3001}};
  std::string chunk;
  std::int64_t written = 0, ms = 9 * 3600000;
  bool ok = true;
  while (ok && written < bytes) {
    chunk.clear();
    while (chunk.size() < (1 << 20)) {
      thread& t = threads[random() % 4];
      ms += random() % 3;
      const auto head = [&](char mark, int indent) {
        put_time(chunk, ms);
        char id[16];
        std::snprintf(id, sizeof id, " %08x%c", t.id, mark);
        chunk += id;
        chunk.append(4 * static_cast<std::size_t>(indent), ' ');
      };
      const char* name = kNames[t.depth % 6];
      const unsigned roll = random() % 8;
      if (t.depth < 6 && (t.depth == 0 || roll < 4)) {
        head(' ', t.depth);
        chunk += name;
        chunk += "( int(" + std::to_string(random() % 1000) + "), \"item\", hex(0000002a) )\r\n";
        ++t.depth;
      } else if (roll < 6) {
        head(' ', t.depth);
        chunk += kNames[(t.depth - 1) % 6];
        chunk += ": state " + std::to_string(random() % 100) + " of the current item\r\n";
      } else {
        head(roll == 7 && t.depth > 3 ? '!' : ' ', t.depth);
        chunk += kNames[(t.depth - 1) % 6];
        chunk += " return\r\n";
        --t.depth;
      }
    }
    ok = std::fwrite(chunk.data(), 1, chunk.size(), file) == chunk.size();
    written += static_cast<std::int64_t>(chunk.size());
  }
  return std::fclose(file) == 0 && ok;
}

// A line of /proc/self/status in megabytes ("VmHWM", "VmRSS"), or -1.
double status_mb(const std::string& key) {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with(key + ":")) return std::stod(line.substr(key.size() + 1)) / 1024;
  }
  return -1;
}

void BM_TraceSummary(benchmark::State& state) {
  const std::int64_t bytes = state.range(0) * kMB;
  const std::filesystem::path folder =
      std::filesystem::temp_directory_path() /
      ("tvbase-trace-bench-" + std::to_string(std::random_device{}()));
  std::filesystem::create_directory(folder);
  const std::string log = (folder / "app.4242 03-02-2026 09.00.00.000.log").string();
  std::error_code error;
  const auto space = std::filesystem::space(folder, error);
  if (error || space.available < static_cast<std::uintmax_t>(bytes + 512 * kMB)) {
    state.SkipWithError("not enough room in the temporary folder");
  } else if (!write_log(log, bytes)) {
    state.SkipWithError("cannot write the log");
  } else {
    const std::vector<std::string> logs{log};
    const std::int64_t size = static_cast<std::int64_t>(std::filesystem::file_size(log));
    std::string table;
    double rss = 0, rss_before = 0;
    std::size_t heap = 0;
    for (auto _ : state) {
      table.clear();
      // Resets VmHWM to the present resident size.
      std::ofstream("/proc/self/clear_refs") << "5";
      rss_before = status_mb("VmRSS");
      heap = testing_support::peak_bytes_during([&] {
        trace_tools::output out(table);
        if (!trace_tools::write_summary(logs, out, {}).empty()) state.SkipWithError("read failed");
      });
      rss = status_mb("VmHWM");
    }
    if (table.find("lines that could not be read back: 0\n") == std::string::npos)
      state.SkipWithError("the log did not read back whole");
    state.SetBytesProcessed(state.iterations() * size);
    state.counters["peak_RSS_MB"] = rss;
    state.counters["RSS_growth_MB"] = rss - rss_before;
    state.counters["peak_heap_MB"] = static_cast<double>(heap) / kMB;
  }
  std::filesystem::remove_all(folder, error);
}
BENCHMARK(BM_TraceSummary)
    ->Arg(100)
    ->Arg(1024)
    ->ArgName("MB")
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1)
    ->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
