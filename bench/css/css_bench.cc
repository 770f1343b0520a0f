// The style-sheet processor on the generated corpora, beside lightningcss
// (minify) and a PostCSS pipeline (custom properties with preserve false, then
// calc), both run by node when bench/peers/install.sh has installed them.
#include <benchmark/benchmark.h>

#include "../node_peer.h"
#include "../ratio_reporter.h"

#include <malloc.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include <tvbase/css_processor/processor.h>

namespace {

const std::string& corpus(const std::string& size) {
  static std::map<std::string, std::string> loaded;
  std::string& text = loaded[size];
  if (text.empty()) {
    const std::string path = std::string(TVBASE_CSS_CORPUS_DIR) + "/corpus-" + size + ".css";
    std::ifstream in(path, std::ios::binary);
    if (!in) throw std::runtime_error("cannot read " + path + " (build the css_corpora target)");
    text.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }
  return text;
}

const char* const kSizes[] = {"1M", "10M"};

void BM_Process(benchmark::State& state) {
  const std::string& source = corpus(kSizes[state.range(0)]);
  for (auto _ : state) {
    state.PauseTiming();
    css_processor::processor sheet{std::string(source)};
    state.ResumeTiming();
    if (auto error = sheet.process()) {
      state.SkipWithError(error->c_str());
      break;
    }
    benchmark::DoNotOptimize(sheet.css().data());
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(source.size()));
  state.SetLabel(std::string("corpus ") + kSizes[state.range(0)]);
}
BENCHMARK(BM_Process)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

void BM_Images(benchmark::State& state) {
  const css_processor::processor sheet{std::string(corpus("1M"))};
  for (auto _ : state) benchmark::DoNotOptimize(sheet.images());
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(corpus("1M").size()));
  state.SetLabel("corpus 1M, " + std::to_string(sheet.images().size()) + " names");
}
BENCHMARK(BM_Images)->Unit(benchmark::kMillisecond);

// n references in one rule.
void BM_References(benchmark::State& state) {
  std::string source = ":root{--gap:calc(2px * 4);--line:1px solid #333}\np{";
  for (std::int64_t i = 0; i < state.range(0); ++i)
    source += i % 2 ? "border:var(--line);" : "margin:var(--gap);";
  source += "}\n";
  for (auto _ : state) {
    state.PauseTiming();
    css_processor::processor sheet{std::string(source)};
    state.ResumeTiming();
    if (auto error = sheet.process()) state.SkipWithError(error->c_str());
    benchmark::DoNotOptimize(sheet.css().data());
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(source.size()));
}
BENCHMARK(BM_References)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

// calc() nesting: each level is one more pass over the whole expression.
void BM_NestedCalc(benchmark::State& state) {
  const auto depth = static_cast<std::size_t>(state.range(0));
  const std::string source = ":root{--d:calc(" + std::string(depth, '(') + "2px * 3" +
                             std::string(depth, ')') + ")}p{q:var(--d)}";
  for (auto _ : state) {
    css_processor::processor sheet{std::string(source)};
    if (auto error = sheet.process()) state.SkipWithError(error->c_str());
    benchmark::DoNotOptimize(sheet.css().data());
  }
}
BENCHMARK(BM_NestedCalc)->Arg(10000)->Unit(benchmark::kMillisecond);

// One peer run by node on the 1 MB corpus.
void run_peer(benchmark::State& state, const char* tool, int runs) {
  const std::string& source = corpus("1M");
  bench_support::run_node_peer(state, tool, std::string(TVBASE_CSS_CORPUS_DIR) + "/corpus-1M.css",
                               runs);
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(source.size()));
  state.SetLabel(std::string("corpus 1M, node, mean of ") + std::to_string(runs) + " runs");
}

void BM_Peer_LightningcssMinify(benchmark::State& state) { run_peer(state, "lightningcss", 20); }
BENCHMARK(BM_Peer_LightningcssMinify)
    ->UseManualTime()
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);

void BM_Peer_PostcssCustomPropertiesCalc(benchmark::State& state) { run_peer(state, "postcss", 3); }
BENCHMARK(BM_Peer_PostcssCustomPropertiesCalc)
    ->UseManualTime()
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);

// Prints the table and then the ratios that the targets are stated in.
void print_ratios(const bench_support::ratio_reporter& r) {
  r.ratio("process 10M / 1M time (at most 11)", "BM_Process/1", "BM_Process/0");
  r.ratio("100,000 / 10,000 references time (at most 11)", "BM_References/100000",
          "BM_References/10000");
  r.ratio("lightningcss minify / process time on 1M (at least 5)",
          "BM_Peer_LightningcssMinify/iterations:1/manual_time", "BM_Process/0");
  r.ratio("PostCSS pipeline / process time on 1M",
          "BM_Peer_PostcssCustomPropertiesCalc/iterations:1/manual_time", "BM_Process/0");
}

}  // namespace

int main(int argc, char** argv) {
  // Keep freed memory in the process, as an application that has run a while
  // does, so that each benchmark meets the same allocator state and measures
  // the library rather than fresh pages from the kernel, whatever ran before.
  mallopt(M_MMAP_THRESHOLD, 32 << 20);
  mallopt(M_TRIM_THRESHOLD, 256 << 20);
  return bench_support::run_with_ratios(argc, argv, print_ratios);
}
