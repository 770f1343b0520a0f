// Every parser of the library on inputs growing to 100 MB, and on nesting
// growing to a million levels: the fitted complexity of each family (O(N),
// with its RMS error; O(1) where the work is bounded), the time of the
// largest input over the one ten times smaller, and the peak of the bytes
// held on the heap per byte of input, as the counter "peak/B", taken by the
// counting operator new of the tests on one more, untimed run.
//
// Sizes count the bytes of the input as held: a wide text of 100 MB has 25
// million units. Depths count levels.
//
// The untimed run goes first and warms the heap, and the program keeps all
// freed memory and takes none straight from the kernel, as an application
// that has run a while does. Otherwise a 100 MB input, which the runner
// times once, would time the kernel faulting in fresh pages (several
// milliseconds a megabyte on a virtual machine) while the 10 MB runs reuse
// warm ones.
#include <malloc.h>

#include <climits>
#include <cstdio>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include <tvbase/css_processor/processor.h>
#include <tvbase/form/multipart_form_data.h>
#include <tvbase/html_parser/parser.h>
#include <tvbase/json/object.h>
#include <tvbase/system/version.h>
#include <tvbase/testing/allocation_counter.h>
#include <tvbase/testing/colliding_keys.h>
#include <tvbase/text/convert.h>
#include <tvbase/text/replace_engine.h>
#include <tvbase/text/string_stash.h>
#include <tvbase/text/utf8.h>
#include "../ratio_reporter.h"

namespace {

constexpr std::int64_t kMB = 1 << 20;
constexpr std::int64_t kSizes[] = {kMB, 10 * kMB, 100 * kMB};
constexpr std::int64_t kDepths[] = {10000, 100000, 1000000};

// `piece` repeated to `bytes` of text at most (at least once).
template <typename Char>
std::basic_string<Char> fill(std::basic_string_view<Char> piece, std::int64_t bytes) {
  const std::size_t times =
      std::max<std::size_t>(1, static_cast<std::size_t>(bytes) / (piece.size() * sizeof(Char)));
  std::basic_string<Char> out;
  out.reserve(times * piece.size());
  for (std::size_t i = 0; i < times; ++i) out += piece;
  return out;
}
std::string fill(std::string_view piece, std::int64_t bytes) { return fill<char>(piece, bytes); }
std::wstring fill(std::wstring_view piece, std::int64_t bytes) {
  return fill<wchar_t>(piece, bytes);
}

template <typename Char>
std::size_t bytes_of(const std::basic_string<Char>& text) {
  return text.size() * sizeof(Char);
}

// Runs `run()` once to take the peak of the heap, then times it; range(0)
// is the size or depth that the complexity is fitted to.
template <typename Run>
void measure(benchmark::State& state, std::size_t bytes, Run run) {
  const std::size_t peak = testing_support::peak_bytes_during(run);
  for (auto _ : state) run();
  state.SetComplexityN(state.range(0));
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes));
  state.counters["peak/B"] = static_cast<double>(peak) / static_cast<double>(bytes);
}

void sizes(benchmark::internal::Benchmark* b) {
  for (const std::int64_t size : kSizes) b->Arg(size);
  b->ArgName("bytes")->Complexity(benchmark::oN)->Unit(benchmark::kMillisecond)->MinTime(0.1);
}
void depths(benchmark::internal::Benchmark* b) {
  for (const std::int64_t depth : kDepths) b->Arg(depth);
  b->ArgName("depth")->Complexity(benchmark::oN)->Unit(benchmark::kMillisecond)->MinTime(0.1);
}
// Work bounded whatever the input: fitted to O(1).
void bounded(benchmark::internal::Benchmark* b, const std::int64_t (&args)[3], const char* name) {
  for (const std::int64_t arg : args) b->Arg(arg);
  b->ArgName(name)->Complexity(benchmark::o1)->Unit(benchmark::kMicrosecond)->MinTime(0.1);
}

// --- json ---------------------------------------------------------------------

void json_parse(benchmark::State& state, const std::wstring& text) {
  measure(state, bytes_of(text), [&] {
    json::object value;
    benchmark::DoNotOptimize(value.parse(text));
  });
}

// An array of small values of every kind.
void BM_JsonArray(benchmark::State& state) {
  std::wstring text =
      L"[" + fill(L"123,\"abc\",true,null,[],{\"k\":-1.5e3},", state.range(0)) + L"0]";
  json_parse(state, text);
}
BENCHMARK(BM_JsonArray)->Apply(sizes);

// One dictionary of distinct keys.
void BM_JsonKeys(benchmark::State& state) {
  std::wstring text = L"{";
  for (std::size_t i = 0; bytes_of(text) < static_cast<std::size_t>(state.range(0)); ++i) {
    text.append(L"\"key").append(std::to_wstring(i)).append(L"\":1,");
  }
  text.back() = L'}';
  json_parse(state, text);
}
BENCHMARK(BM_JsonKeys)->Apply(sizes);

// One dictionary of keys that libstdc++'s std::hash maps to one value: the
// key index once used that hash, and read these in quadratic time.
void BM_JsonCollidingKeys(benchmark::State& state) {
  const std::size_t count = static_cast<std::size_t>(state.range(0)) / (11 * sizeof(wchar_t));
  std::wstring text = L"{";
  for (const std::wstring& key : testing_support::keys_colliding_in_the_standard_hash(count)) {
    text.append(L"\"").append(key).append(L"\":0,");
  }
  text.back() = L'}';
  json_parse(state, text);
}
BENCHMARK(BM_JsonCollidingKeys)->Apply(sizes);

void BM_JsonString(benchmark::State& state) {
  json_parse(state, L"\"" + fill(L"text \\n\\u00e9 ", state.range(0)) + L"\"");
}
BENCHMARK(BM_JsonString)->Apply(sizes);

void BM_JsonNumber(benchmark::State& state) {
  json_parse(state, L"-1" + fill(L"0123456789", state.range(0)) + L".5e+10");
}
BENCHMARK(BM_JsonNumber)->Apply(sizes);

// Nesting past the limit of 512 levels: the reader stops there.
void BM_JsonDepthLimit(benchmark::State& state) {
  json_parse(state, std::wstring(static_cast<std::size_t>(state.range(0)), L'['));
}
BENCHMARK(BM_JsonDepthLimit)->Apply([](benchmark::internal::Benchmark* b) {
  bounded(b, kDepths, "depth");
});

void BM_JsonDictionaryDepthLimit(benchmark::State& state) {
  json_parse(state,
             fill(L"{\"a\":", state.range(0) * 5 * static_cast<std::int64_t>(sizeof(wchar_t))));
}
BENCHMARK(BM_JsonDictionaryDepthLimit)->Apply([](benchmark::internal::Benchmark* b) {
  bounded(b, kDepths, "depth");
});

void BM_JsonUnescape(benchmark::State& state) {
  const std::wstring text = fill(L"text \\n\\u00e9\\\" ", state.range(0));
  measure(state, bytes_of(text), [&] { benchmark::DoNotOptimize(json::object::unescape(text)); });
}
BENCHMARK(BM_JsonUnescape)->Apply(sizes);

void BM_JsonNumberText(benchmark::State& state) {
  const std::wstring text = L"1" + fill(L"0123456789", state.range(0)) + L"E5";
  measure(state, bytes_of(text),
          [&] { benchmark::DoNotOptimize(json::functions::wstring_to_number_wstring(text)); });
}
BENCHMARK(BM_JsonNumberText)->Apply(sizes);

// Writing the tree read from BM_JsonArray's text; the size is the text's.
void BM_JsonWriteWide(benchmark::State& state) {
  const std::wstring text =
      L"[" + fill(L"123,\"abc\",true,null,[],{\"k\":-1.5e3},", state.range(0)) + L"0]";
  json::object value;
  if (value.parse(text)) state.SkipWithError("parse failed");
  measure(state, bytes_of(text), [&] { benchmark::DoNotOptimize(value.to_string()); });
}
BENCHMARK(BM_JsonWriteWide)->Apply(sizes);

void BM_JsonWriteDeep(benchmark::State& state) {
  json::object value;
  json::object* at = &value;
  for (std::int64_t i = 0; i < state.range(0); ++i) at = &(*at)[L"k"];
  measure(state, static_cast<std::size_t>(state.range(0)) * 6 * sizeof(wchar_t),
          [&] { benchmark::DoNotOptimize(value.to_string()); });
}
BENCHMARK(BM_JsonWriteDeep)->Apply(depths);

// --- css_processor -------------------------------------------------------------

void css_process(benchmark::State& state, const std::string& sheet) {
  measure(state, sheet.size(), [&] {
    css_processor::processor p{std::string(sheet)};
    benchmark::DoNotOptimize(p.process());
    benchmark::DoNotOptimize(p.images());
  });
}

// Ordinary rules with variables, comments and images.
void BM_CssSheet(benchmark::State& state) {
  css_process(
      state,
      ":root{--c:#abc;--w:calc(2px * 3 + (1px))}\n" +
          fill("p.x > a:hover{color:var(--c);width:var(--w);/* note */background:url(a.png)}\n",
               state.range(0)));
}
BENCHMARK(BM_CssSheet)->Apply(sizes);

void BM_CssCalcNesting(benchmark::State& state) {
  const std::size_t depth = static_cast<std::size_t>(state.range(0));
  css_process(state, ":root{--d:calc(" + std::string(depth, '(') + "1 + 2 * 3px" +
                         std::string(depth, ')') + ")}p{m:var(--d)}");
}
BENCHMARK(BM_CssCalcNesting)->Apply(depths);

// calc(1(1)(1)...): each group that goes joins its digit to one growing
// run, which the reducer once read again at every pass.
void BM_CssCalcGrowingRun(benchmark::State& state) {
  css_process(state, ":root{--d:calc(1" + fill("(1)", state.range(0)) + ")}p{m:var(--d)}");
}
BENCHMARK(BM_CssCalcGrowingRun)->Apply(sizes);

// A :root block that doubles a value up to range(0) bytes and then defines a
// hundred variables that each refer to it: without one budget for the whole
// call, each held another copy. process() throws std::length_error once the
// sheet and its values pass the budget (16 MiB for so small a sheet), so the
// work is bounded whatever the size asked for.
void BM_CssReferenceBomb(benchmark::State& state) {
  std::string sheet = ":root{--v0:abcdefgh;";
  int steps = 0;
  for (std::int64_t size = 8; size < state.range(0); size *= 2) {
    ++steps;
    sheet += "--v" + std::to_string(steps) + ":var(--v" + std::to_string(steps - 1) + ")var(--v" +
             std::to_string(steps - 1) + ");";
  }
  for (int i = 0; i < 100; ++i) {
    sheet += "--use" + std::to_string(i) + ":var(--v" + std::to_string(steps) + ");";
  }
  sheet += "}p{q:var(--use99)}";
  measure(state, sheet.size(), [&] {
    css_processor::processor p{std::string(sheet)};
    try {
      benchmark::DoNotOptimize(p.process());
    } catch (const std::length_error&) {
      // the budget's answer
    }
  });
}
BENCHMARK(BM_CssReferenceBomb)->Apply([](benchmark::internal::Benchmark* b) {
  bounded(b, kSizes, "bytes");
});

void BM_CssBraces(benchmark::State& state) {
  css_process(state, fill("a{", state.range(0) * 2) + "b:url(x.png)" +
                         std::string(static_cast<std::size_t>(state.range(0)), '}'));
}
BENCHMARK(BM_CssBraces)->Apply(depths);

void BM_CssComment(benchmark::State& state) {
  css_process(state,
              "a{}/*" + std::string(static_cast<std::size_t>(state.range(0)), '*') + "*/b{}");
}
BENCHMARK(BM_CssComment)->Apply(sizes);

void BM_CssUnclosedComment(benchmark::State& state) {
  css_process(state, "a{}/*" + std::string(static_cast<std::size_t>(state.range(0)), '*'));
}
BENCHMARK(BM_CssUnclosedComment)->Apply(sizes);

void BM_CssVariableName(benchmark::State& state) {
  const std::string name = "--" + std::string(static_cast<std::size_t>(state.range(0)) / 2, 'n');
  css_process(state, ":root{" + name + ":1px}a{b:var(" + name + ")}");
}
BENCHMARK(BM_CssVariableName)->Apply(sizes);

// images() alone, on rules that each name an image of their own.
void BM_CssImages(benchmark::State& state) {
  std::string sheet;
  for (std::size_t i = 0; sheet.size() < static_cast<std::size_t>(state.range(0)); ++i) {
    sheet.append("p{b:url(i").append(std::to_string(i)).append(".png)}\n");
  }
  const css_processor::processor p{std::move(sheet)};
  measure(state, static_cast<std::size_t>(state.range(0)),
          [&] { benchmark::DoNotOptimize(p.images()); });
}
BENCHMARK(BM_CssImages)->Apply(sizes);

// --- html_parser -----------------------------------------------------------------

void html_scan(benchmark::State& state, const std::string& text) {
  const bool strict = state.range(1) != 0;
  measure(state, text.size(), [&] {
    std::size_t elements = 0;
    benchmark::DoNotOptimize(html_parser::parser::parse(
        text, strict,
        [&elements](const html_parser::tag&, const std::optional<std::vector<html_parser::tag>>&) {
          ++elements;
          return true;
        }));
    benchmark::DoNotOptimize(elements);
  });
}

// Ordinary markup, its elements closed.
void BM_HtmlDocument(benchmark::State& state) {
  html_scan(
      state,
      "<!doctype html><html><body>" +
          fill(
              "<div class=\"c\" id=x><p>Some <b>text</b> &amp; a <a href='/l?q=1'>link</a>.<br></p>"
              "<!-- note --><script>if (a < b) x();</script></div>\n",
              state.range(0)) +
          "</body></html>");
}
BENCHMARK(BM_HtmlDocument)->Apply([](benchmark::internal::Benchmark* b) {
  b->Args({kMB, 0})->Args({10 * kMB, 0})->Args({100 * kMB, 0});
  b->ArgNames({"bytes", "strict"})
      ->Complexity(benchmark::oN)
      ->Unit(benchmark::kMillisecond)
      ->MinTime(0.1);
});
void BM_HtmlDocumentStrict(benchmark::State& state) { BM_HtmlDocument(state); }
BENCHMARK(BM_HtmlDocumentStrict)->Apply([](benchmark::internal::Benchmark* b) {
  b->Args({kMB, 1})->Args({10 * kMB, 1})->Args({100 * kMB, 1});
  b->ArgNames({"bytes", "strict"})
      ->Complexity(benchmark::oN)
      ->Unit(benchmark::kMillisecond)
      ->MinTime(0.1);
});

void BM_HtmlNesting(benchmark::State& state) {
  html_scan(state, fill("<div>", state.range(0) * 5));
}
BENCHMARK(BM_HtmlNesting)->Apply([](benchmark::internal::Benchmark* b) {
  for (const std::int64_t depth : kDepths) b->Args({depth, 0});
  b->ArgNames({"depth", "strict"})
      ->Complexity(benchmark::oN)
      ->Unit(benchmark::kMillisecond)
      ->MinTime(0.1);
});
void BM_HtmlNestingStrict(benchmark::State& state) { BM_HtmlNesting(state); }
BENCHMARK(BM_HtmlNestingStrict)->Apply([](benchmark::internal::Benchmark* b) {
  for (const std::int64_t depth : kDepths) b->Args({depth, 1});
  b->ArgNames({"depth", "strict"})
      ->Complexity(benchmark::oN)
      ->Unit(benchmark::kMillisecond)
      ->MinTime(0.1);
});

void BM_HtmlAttribute(benchmark::State& state) {
  html_scan(state, "<a href=\"" + std::string(static_cast<std::size_t>(state.range(0)), 'x') +
                       "\">x</a><!--" + std::string(static_cast<std::size_t>(state.range(0)), 'c') +
                       "-->");
}
BENCHMARK(BM_HtmlAttribute)->Apply([](benchmark::internal::Benchmark* b) {
  for (const std::int64_t size : kSizes) b->Args({size / 2, 0});
  b->ArgNames({"bytes", "strict"})
      ->Complexity(benchmark::oN)
      ->Unit(benchmark::kMillisecond)
      ->MinTime(0.1);
});

// --- text ----------------------------------------------------------------------

void BM_UrlEncodeBytes(benchmark::State& state) {
  const std::string text = fill("a b&c=d/\xC3\xA9-", state.range(0));
  measure(state, text.size(), [&] { benchmark::DoNotOptimize(convert::url_encode(text, 0)); });
}
BENCHMARK(BM_UrlEncodeBytes)->Apply(sizes);

void BM_UrlEncodeUtf8ToWindows1252(benchmark::State& state) {
  const std::string text = fill("a b\xC3\xA9\xE2\x82\xAC\xE4\xB8\x80", state.range(0));
  measure(state, text.size(), [&] { benchmark::DoNotOptimize(convert::url_encode(text, 1252)); });
}
BENCHMARK(BM_UrlEncodeUtf8ToWindows1252)->Apply(sizes);

// Every character lacking in the code page.
void BM_UrlEncodeWideLacking(benchmark::State& state) {
  const std::wstring text = fill(L"\x4E00", state.range(0));
  measure(state, bytes_of(text),
          [&] { benchmark::DoNotOptimize(convert::url_encode(text, 1252)); });
}
BENCHMARK(BM_UrlEncodeWideLacking)->Apply(sizes);

void BM_Utf8Check(benchmark::State& state) {
  const std::string text =
      fill("plain text, caf\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80 ", state.range(0));
  measure(state, text.size(), [&] { benchmark::DoNotOptimize(TvxIsValidUtf8(text.c_str())); });
}
BENCHMARK(BM_Utf8Check)->Apply(sizes);

// One edit per 10 bytes, recorded in the order that range(1) names: 0 in
// text order, 1 backwards, 2 scattered.
void BM_ReplaceEngine(benchmark::State& state) {
  const std::string text = fill("<abc>12345", state.range(0));
  const std::string_view view = text;
  const std::size_t edits = text.size() / 10;
  const int order = static_cast<int>(state.range(1));
  replace_engine::engine<char> engine{view};
  measure(state, text.size(), [&] {
    engine.reset(view);
    for (std::size_t k = 0; k < edits; ++k) {
      const std::size_t i = order == 0 ? k : order == 1 ? edits - 1 - k : (k * 7919) % edits;
      benchmark::DoNotOptimize(engine.replace(view.substr(i * 10 + 1, 3), "xy"));
    }
    benchmark::DoNotOptimize(engine.apply());
  });
}
BENCHMARK(BM_ReplaceEngine)->Apply([](benchmark::internal::Benchmark* b) {
  for (const std::int64_t size : kSizes) b->Args({size, 0});
  b->ArgNames({"bytes", "order"})
      ->Complexity(benchmark::oN)
      ->Unit(benchmark::kMillisecond)
      ->MinTime(0.1);
});
void BM_ReplaceEngineBackwards(benchmark::State& state) { BM_ReplaceEngine(state); }
BENCHMARK(BM_ReplaceEngineBackwards)->Apply([](benchmark::internal::Benchmark* b) {
  for (const std::int64_t size : kSizes) b->Args({size, 1});
  b->ArgNames({"bytes", "order"})
      ->Complexity(benchmark::oN)
      ->Unit(benchmark::kMillisecond)
      ->MinTime(0.1);
});
void BM_ReplaceEngineScattered(benchmark::State& state) { BM_ReplaceEngine(state); }
BENCHMARK(BM_ReplaceEngineScattered)->Apply([](benchmark::internal::Benchmark* b) {
  for (const std::int64_t size : kSizes) b->Args({size, 2});
  b->ArgNames({"bytes", "order"})
      ->Complexity(benchmark::oN)
      ->Unit(benchmark::kMillisecond)
      ->MinTime(0.1);
});

void BM_StringStash(benchmark::State& state) {
  const std::string big(static_cast<std::size_t>(state.range(0)), 's');
  measure(state, big.size(), [&] {
    base::string_stash stash;
    benchmark::DoNotOptimize(stash.store(big).data());
    benchmark::DoNotOptimize(stash.store("small").data());
  });
}
BENCHMARK(BM_StringStash)->Apply(sizes);

// --- system and form ---------------------------------------------------------------

// Many version texts one after the other, each ended by its NUL, as a
// list of products' versions would be read: valid ones of every length and
// part, and some that are not versions.
void BM_VersionParse(benchmark::State& state) {
  const char* const forms[] = {"12.41b", "3.05_", "9.99z", "10.00a", "7.1",   "12.41B",
                               "0.00_",  "99.9",  "1.2x",  "4.56_",  "45.67", "123.4a"};
  std::string texts;
  std::vector<std::size_t> starts;
  for (std::size_t i = 0; texts.size() < static_cast<std::size_t>(state.range(0)); ++i) {
    starts.push_back(texts.size());
    texts.append(forms[i % std::size(forms)]).push_back('\0');
  }
  measure(state, texts.size(), [&] {
    unsigned long sum = 0;
    for (const std::size_t at : starts) sum += TvVersion::Parse(texts.data() + at);
    benchmark::DoNotOptimize(sum);
  });
}
BENCHMARK(BM_VersionParse)->Apply(sizes);

void BM_FormField(benchmark::State& state) {
  const std::string half(static_cast<std::size_t>(state.range(0)) / 2, 'v');
  measure(state, 2 * half.size(), [&] {
    multipart_form_data form;
    if (!form.add_field(half, half)) state.SkipWithError("add_field refused the name");
    std::string type;
    std::vector<unsigned char> body;
    form.finish(type, body);
    benchmark::DoNotOptimize(body.data());
  });
}
BENCHMARK(BM_FormField)->Apply(sizes);

// Each family's largest input over the one ten times smaller.
void print_ratios(const bench_support::ratio_reporter& r) {
  std::printf(
      "\ntime of the largest input over the one ten times smaller (linear: about 10, bounded: "
      "about 1)\n");
  const char* const by_size[] = {"BM_JsonArray",
                                 "BM_JsonKeys",
                                 "BM_JsonCollidingKeys",
                                 "BM_JsonString",
                                 "BM_JsonNumber",
                                 "BM_JsonUnescape",
                                 "BM_JsonNumberText",
                                 "BM_JsonWriteWide",
                                 "BM_CssSheet",
                                 "BM_CssCalcGrowingRun",
                                 "BM_CssReferenceBomb",
                                 "BM_CssComment",
                                 "BM_CssUnclosedComment",
                                 "BM_CssVariableName",
                                 "BM_CssImages",
                                 "BM_UrlEncodeBytes",
                                 "BM_UrlEncodeUtf8ToWindows1252",
                                 "BM_UrlEncodeWideLacking",
                                 "BM_Utf8Check",
                                 "BM_StringStash",
                                 "BM_VersionParse",
                                 "BM_FormField"};
  const std::string big = std::to_string(100 * kMB);
  const std::string middle = std::to_string(10 * kMB);
  for (const char* name : by_size) {
    r.ratio(name, std::string(name) + "/bytes:" + big + "/min_time:0.100",
            std::string(name) + "/bytes:" + middle + "/min_time:0.100");
  }
  for (const auto& [name, arg] : {std::pair{"BM_HtmlDocument", "/strict:0"},
                                  {"BM_HtmlDocumentStrict", "/strict:1"},
                                  {"BM_ReplaceEngine", "/order:0"},
                                  {"BM_ReplaceEngineBackwards", "/order:1"},
                                  {"BM_ReplaceEngineScattered", "/order:2"}}) {
    r.ratio(name, std::string(name) + "/bytes:" + big + arg + "/min_time:0.100",
            std::string(name) + "/bytes:" + middle + arg + "/min_time:0.100");
  }
  r.ratio("BM_HtmlAttribute",
          "BM_HtmlAttribute/bytes:" + std::to_string(50 * kMB) + "/strict:0/min_time:0.100",
          "BM_HtmlAttribute/bytes:" + std::to_string(5 * kMB) + "/strict:0/min_time:0.100");
  std::printf(
      "\ntime at a million levels over a hundred thousand (linear: about 10, bounded: about 1)\n");
  for (const char* name : {"BM_JsonDepthLimit", "BM_JsonDictionaryDepthLimit", "BM_JsonWriteDeep",
                           "BM_CssCalcNesting", "BM_CssBraces"}) {
    r.ratio(name, std::string(name) + "/depth:1000000/min_time:0.100",
            std::string(name) + "/depth:100000/min_time:0.100");
  }
  for (const auto& [name, arg] :
       {std::pair{"BM_HtmlNesting", "/strict:0"}, {"BM_HtmlNestingStrict", "/strict:1"}}) {
    r.ratio(name, std::string(name) + "/depth:1000000" + arg + "/min_time:0.100",
            std::string(name) + "/depth:100000" + arg + "/min_time:0.100");
  }
}

}  // namespace

int main(int argc, char** argv) {
  mallopt(M_MMAP_MAX, 0);
  mallopt(M_TRIM_THRESHOLD, INT_MAX);
  return bench_support::run_with_ratios(argc, argv, print_ratios);
}
