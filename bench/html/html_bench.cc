// The HTML scanner on two real pages, beside gumbo's full parse of the same
// bytes and htmlparser2 run by node (when bench/peers/install.sh has
// installed it). An allocation counter shows what a scan allocates, and a
// deep nesting run shows that the time grows linearly with the depth.
#include <benchmark/benchmark.h>

#include <gumbo.h>
#include <malloc.h>
#include "../node_peer.h"
#include "../ratio_reporter.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <map>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include <tvbase/html_parser/parser.h>
#include <tvbase/testing/allocation_counter.h>

// Every allocation of the program is counted by the counting operator new
// that the tests use too.

namespace {

using html_parser::tag;
using open_tags = std::optional<std::vector<tag>>;

const char* const kFiles[] = {"wikipedia.html", "rfc9110.html"};

std::string path_of(std::int64_t file) {
  return std::string(TVBASE_BENCH_DATA) + "/" + kFiles[file];
}

const std::string& page(std::int64_t file) {
  static std::map<std::int64_t, std::string> loaded;
  std::string& text = loaded[file];
  if (text.empty()) {
    std::ifstream in(path_of(file), std::ios::binary);
    if (!in) throw std::runtime_error("cannot read " + path_of(file));
    text.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }
  return text;
}

// What one scan saw: elements, and the start tags whose copies on the open
// tags carry attributes (each such copy is one allocation).
struct tally {
  std::size_t elements = 0;
  std::size_t copies_with_attributes = 0;
  std::size_t copies = 0;
};

std::optional<html_parser::parse_error> scan(const std::string& text, bool strict, tally& seen) {
  return html_parser::parser::parse(text, strict, [&seen](const tag& t, const open_tags& open) {
    ++seen.elements;
    if (open && t.type == html_parser::tag_type::start_tag) {
      ++seen.copies;
      seen.copies_with_attributes += !t.attributes.empty();
    }
    return true;
  });
}

// One untimed scan with the allocation counter read around it.
void count_allocations(benchmark::State& state, const std::string& text, bool strict) {
  tally seen;
  const std::size_t before = static_cast<std::size_t>(testing_support::allocations());
  const auto error = scan(text, strict, seen);
  const std::size_t made = static_cast<std::size_t>(testing_support::allocations()) - before;
  if (error) state.SkipWithError(error->get_message().c_str());
  state.counters["elements"] = static_cast<double>(seen.elements);
  state.counters["copies"] = static_cast<double>(seen.copies);
  state.counters["copies_attr"] = static_cast<double>(seen.copies_with_attributes);
  state.counters["allocs"] = static_cast<double>(made);
}

void BM_Scan(benchmark::State& state) {
  const std::string& text = page(state.range(0));
  const bool strict = state.range(1) != 0;
  for (auto _ : state) {
    tally seen;
    benchmark::DoNotOptimize(scan(text, strict, seen));
    benchmark::DoNotOptimize(seen.elements);
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
  count_allocations(state, text, strict);
  state.SetLabel(kFiles[state.range(0)]);
}
BENCHMARK(BM_Scan)
    ->ArgsProduct({{0, 1}, {0, 1}})
    ->ArgNames({"file", "strict"})
    ->Unit(benchmark::kMillisecond);

void BM_Peer_GumboParse(benchmark::State& state) {
  const std::string& text = page(state.range(0));
  for (auto _ : state) {
    GumboOutput* output = gumbo_parse_with_options(&kGumboDefaultOptions, text.data(), text.size());
    benchmark::DoNotOptimize(output->root);
    gumbo_destroy_output(&kGumboDefaultOptions, output);
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
  state.SetLabel(kFiles[state.range(0)]);
}
BENCHMARK(BM_Peer_GumboParse)->Arg(0)->Arg(1)->ArgName("file")->Unit(benchmark::kMillisecond);

// htmlparser2 run by node, 20 runs after a warm-up.
void BM_Peer_Htmlparser2(benchmark::State& state) {
  const std::string& text = page(state.range(0));
  bench_support::run_node_peer(state, "htmlparser2", path_of(state.range(0)), 20);
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
  state.SetLabel(std::string(kFiles[state.range(0)]) + ", node, mean of 20 runs");
}
BENCHMARK(BM_Peer_Htmlparser2)
    ->Arg(0)
    ->Arg(1)
    ->ArgName("file")
    ->UseManualTime()
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);

// Attribute-heavy elements after a stray end tag has ended the tracking of
// open tags: the only allocations are the attribute vector's first growth.
void BM_ScanUntracked(benchmark::State& state) {
  std::string text = "</x>";
  for (std::int64_t i = 0; i < state.range(0); ++i) {
    text += "<a href='/p' class=x id=y data-n=1 title=\"t\">link</a>\n";
  }
  for (auto _ : state) {
    tally seen;
    benchmark::DoNotOptimize(scan(text, false, seen));
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
  count_allocations(state, text, false);
}
BENCHMARK(BM_ScanUntracked)->Arg(1000)->Arg(100000)->Unit(benchmark::kMillisecond);

// N nested start tags: the list of open tags grows to N and the time stays
// linear in N in both modes (strict ends with unclosed elements, which is
// expected here).
void BM_Nested(benchmark::State& state) {
  const std::string text = [n = state.range(0)] {
    std::string s;
    for (std::int64_t i = 0; i < n; ++i) s += "<div>";
    return s;
  }();
  const bool strict = state.range(1) != 0;
  for (auto _ : state) {
    tally seen;
    benchmark::DoNotOptimize(scan(text, strict, seen));
  }
  state.SetComplexityN(state.range(0));
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}
BENCHMARK(BM_Nested)
    ->ArgsProduct({{10000, 100000, 1000000}, {0}})
    ->ArgNames({"depth", "strict"})
    ->Complexity(benchmark::oN)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Nested)
    ->ArgsProduct({{10000, 100000, 1000000}, {1}})
    ->ArgNames({"depth", "strict"})
    ->Complexity(benchmark::oN)
    ->Unit(benchmark::kMillisecond);

// Prints the table and then the ratios that the targets are stated in.
void print_ratios(const bench_support::ratio_reporter& r) {
  std::printf("\nthroughput ratios, scan over peer (times faster)\n");
  for (int file = 0; file < 2; ++file) {
    const std::string scan = "BM_Scan/file:" + std::to_string(file) + "/strict:0";
    const std::string arg = "/file:" + std::to_string(file);
    r.ratio(std::string(kFiles[file]) + ": over gumbo (at least 10)", "BM_Peer_GumboParse" + arg,
            scan);
    r.ratio(std::string(kFiles[file]) + ": over htmlparser2",
            "BM_Peer_Htmlparser2" + arg + "/iterations:1/manual_time", scan);
  }
  std::printf("\nnesting, time of depth 1,000,000 over 100,000 (linear: about 10)\n");
  for (const char* strict : {"0", "1"}) {
    r.ratio(std::string("strict ") + strict,
            std::string("BM_Nested/depth:1000000/strict:") + strict,
            std::string("BM_Nested/depth:100000/strict:") + strict);
  }
}

}  // namespace

int main(int argc, char** argv) {
  // Keep freed memory in the process, as an application that has run a while
  // does: a million open tags take 64 MB, which glibc would otherwise map
  // afresh and fault in page by page on every run, so that the nesting runs
  // would time the kernel rather than the scan.
  mallopt(M_MMAP_THRESHOLD, 256 << 20);
  mallopt(M_TRIM_THRESHOLD, 512 << 20);
  return bench_support::run_with_ratios(argc, argv, print_ratios);
}
