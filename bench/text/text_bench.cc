// Text tools against their peers: the replace engine against a plain sorted
// rebuild, url_encode against curl_easy_escape, the UTF-8 check against
// g_utf8_validate_len, and the stash's allocations per store.
#include <algorithm>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <curl/curl.h>
#include <glib.h>

#include <tvbase/testing/allocation_counter.h>
#include <tvbase/text/convert.h>
#include <tvbase/text/replace_engine.h>
#include <tvbase/text/string_stash.h>
#include <tvbase/text/utf8.h>

namespace {

constexpr std::size_t kTextSize = 16u << 20;
constexpr std::size_t kEdits = 1'000'000;

struct edit {
  std::size_t at, length;
  std::string with;
};

const std::string& big_text() {
  static const std::string text = [] {
    std::string t(kTextSize, ' ');
    std::mt19937 random(1);
    for (char& c : t) c = static_cast<char>('a' + random() % 26);
    return t;
  }();
  return text;
}

// A million disjoint spans, one every 16 bytes, recorded in shuffled order.
const std::vector<edit>& shuffled_edits() {
  static const std::vector<edit> edits = [] {
    std::vector<edit> e;
    e.reserve(kEdits);
    for (std::size_t i = 0; i < kEdits; ++i)
      e.push_back({i * 16, 1 + i % 8, std::string(i % 5, 'X')});
    std::shuffle(e.begin(), e.end(), std::mt19937(2));
    return e;
  }();
  return edits;
}

void BM_ReplaceEngine_MillionEdits(benchmark::State& state) {
  const std::string& text = big_text();
  const auto& edits = shuffled_edits();
  replace_engine::engine<char> engine{text};
  for (auto _ : state) {
    engine.reset(text);
    for (const edit& e : edits) {
      if (!engine.replace(std::string_view(text.data() + e.at, e.length), e.with))
        state.SkipWithError("refused");
    }
    std::string out = engine.apply();
    benchmark::DoNotOptimize(out.data());
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * kEdits));
}
BENCHMARK(BM_ReplaceEngine_MillionEdits)->Unit(benchmark::kMillisecond)->MinTime(2);

// The peer: the same edits copied into a vector, sorted, and applied in one pass.
void BM_Peer_SortedRebuild_MillionEdits(benchmark::State& state) {
  const std::string& text = big_text();
  const auto& edits = shuffled_edits();
  struct span {
    std::size_t at, length;
    const std::string* with;
  };
  for (auto _ : state) {
    std::vector<span> spans;
    spans.reserve(edits.size());
    std::string pool;
    for (const edit& e : edits) spans.push_back({e.at, e.length, &e.with});
    std::sort(spans.begin(), spans.end(), [](const span& a, const span& b) { return a.at < b.at; });
    std::size_t total = text.size();
    for (const span& s : spans) total = total + s.with->size() - s.length;
    std::string out;
    out.reserve(total);
    std::size_t read = 0;
    for (const span& s : spans) {
      out.append(text, read, s.at - read).append(*s.with);
      read = s.at + s.length;
    }
    out.append(text, read);
    benchmark::DoNotOptimize(out.data());
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * kEdits));
}
BENCHMARK(BM_Peer_SortedRebuild_MillionEdits)->Unit(benchmark::kMillisecond)->MinTime(2);

// About 1 MB of mixed ASCII: words, spaces, punctuation, digits.
const std::string& mixed_ascii() {
  static const std::string text = [] {
    const std::string alphabet =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789 .,-_/?&=:;!~()";
    std::string t(1u << 20, ' ');
    std::mt19937 random(3);
    for (char& c : t) c = alphabet[random() % alphabet.size()];
    return t;
  }();
  return text;
}

void BM_UrlEncode_Narrow(benchmark::State& state) {
  const std::string& text = mixed_ascii();
  for (auto _ : state) benchmark::DoNotOptimize(convert::url_encode(std::string_view(text), 0));
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_UrlEncode_Narrow);

void BM_UrlEncode_WideUtf8(benchmark::State& state) {
  const std::string& narrow = mixed_ascii();
  const std::wstring text(narrow.begin(), narrow.end());
  for (auto _ : state)
    benchmark::DoNotOptimize(convert::url_encode(std::wstring_view(text), 65001));
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_UrlEncode_WideUtf8);

void BM_Peer_CurlEasyEscape(benchmark::State& state) {
  const std::string& text = mixed_ascii();
  CURL* curl = curl_easy_init();
  for (auto _ : state) {
    char* out = curl_easy_escape(curl, text.data(), static_cast<int>(text.size()));
    benchmark::DoNotOptimize(out);
    curl_free(out);
  }
  curl_easy_cleanup(curl);
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_Peer_CurlEasyEscape);

// 1 MB of valid UTF-8 of which `percent` of the characters are ASCII.
std::string utf8_text(int percent) {
  std::string t;
  t.reserve(1u << 20);
  std::mt19937 random(static_cast<unsigned>(percent));
  const char* wide[] = {"\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80", "\xD0\xB6"};
  while (t.size() < (1u << 20) - 4) {
    if (static_cast<int>(random() % 100) < percent)
      t.push_back(static_cast<char>('a' + random() % 26));
    else
      t += wide[random() % 4];
  }
  return t;
}

void BM_IsValidUtf8(benchmark::State& state) {
  const std::string text = utf8_text(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    if (!TvxIsValidUtf8(text.c_str())) state.SkipWithError("invalid");
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_IsValidUtf8)->Arg(99)->Arg(40);

void BM_Peer_GUtf8ValidateLen(benchmark::State& state) {
  const std::string text = utf8_text(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    if (!g_utf8_validate_len(text.data(), text.size(), nullptr)) state.SkipWithError("invalid");
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_Peer_GUtf8ValidateLen)->Arg(99)->Arg(40);

// Stores short strings; the counter shows allocations per store (pages only).
void BM_StringStash_Store(benchmark::State& state) {
  const std::string text = "a short name";
  long stores = 0;
  const long before = testing_support::allocations();
  base::basic_string_stash<char> stash;
  for (auto _ : state) {
    benchmark::DoNotOptimize(stash.store(text).data());
    ++stores;
  }
  state.counters["allocs_per_store"] =
      static_cast<double>(testing_support::allocations() - before) / static_cast<double>(stores);
}
BENCHMARK(BM_StringStash_Store);

}  // namespace

BENCHMARK_MAIN();
