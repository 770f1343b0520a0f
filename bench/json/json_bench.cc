// Reading and writing the three usual JSON documents with json::object,
// beside nlohmann/json (on the UTF-8 bytes) and RapidJSON (on UTF-16 units).
// Every throughput is counted in the bytes of the UTF-8 file, so the rows of
// one file compare directly. The files are turned into UTF-16 once, before
// timing.
#include <malloc.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <memory>
#include <new>
#include <sstream>
#include <stdexcept>
#include <string>

#include <benchmark/benchmark.h>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <nlohmann/json.hpp>

#include <tvbase/json/object.h>
#include <tvbase/platform/code_page.h>

// Bytes held on the heap, counted by malloc's usable size while g_counting
// is set, so that the memory rows can weigh the tree that a parse builds.
// The timed rows run with counting off.
namespace {
bool g_counting = false;
long long g_heap_bytes = 0;
long long g_heap_blocks = 0;

void* counted_alloc(std::size_t size) {
  void* p = std::malloc(size ? size : 1);
  if (!p) throw std::bad_alloc();
  if (g_counting) {
    g_heap_bytes += static_cast<long long>(malloc_usable_size(p));
    ++g_heap_blocks;
  }
  return p;
}
void counted_free(void* p) noexcept {
  if (!p) return;
  if (g_counting) {
    g_heap_bytes -= static_cast<long long>(malloc_usable_size(p));
    --g_heap_blocks;
  }
  std::free(p);
}
}  // namespace

void* operator new(std::size_t size) { return counted_alloc(size); }
void* operator new[](std::size_t size) { return counted_alloc(size); }
void operator delete(void* p) noexcept { counted_free(p); }
void operator delete[](void* p) noexcept { counted_free(p); }
void operator delete(void* p, std::size_t) noexcept { counted_free(p); }
void operator delete[](void* p, std::size_t) noexcept { counted_free(p); }

namespace {

struct document {
  std::string utf8;
  std::wstring utf16;
};

const document& load(const char* name) {
  static std::map<std::string, document> cache;
  auto [it, fresh] = cache.try_emplace(name);
  if (fresh) {
    // The environment may point elsewhere, e.g. from a second work tree.
    const char* folder = std::getenv("TVBASE_BENCH_DATA");
    std::ifstream in(std::string(folder ? folder : TVBASE_BENCH_DATA) + "/" + name,
                     std::ios::binary);
    if (!in) throw std::runtime_error(std::string("cannot read ") + name);
    std::ostringstream bytes;
    bytes << in.rdbuf();
    it->second.utf8 = bytes.str();
    it->second.utf16 = platform::default_to_wide(it->second.utf8);
  }
  return it->second;
}

using wide_document = rapidjson::GenericDocument<rapidjson::UTF16<wchar_t>>;

// A parse row times the building of the tree; freeing the previous one
// happens with the clock stopped, for every library alike.
template <class Parse>
void time_parse(benchmark::State& state, const document& doc, Parse parse) {
  for (auto _ : state) {
    auto value = parse(doc);
    benchmark::DoNotOptimize(value);
    state.PauseTiming();
    { auto dropped = std::move(value); }
    state.ResumeTiming();
  }
  state.SetBytesProcessed(static_cast<long long>(state.iterations() * doc.utf8.size()));
}

void parse_tvbase(benchmark::State& state, const char* name) {
  time_parse(state, load(name), [&state](const document& doc) {
    auto value = std::make_unique<json::object>();
    if (auto error = value->parse(doc.utf16)) state.SkipWithError(error->message.c_str());
    return value;
  });
}

void parse_nlohmann(benchmark::State& state, const char* name) {
  time_parse(state, load(name), [](const document& doc) {
    return std::make_unique<nlohmann::json>(nlohmann::json::parse(doc.utf8));
  });
}

void parse_rapidjson_utf16(benchmark::State& state, const char* name) {
  time_parse(state, load(name), [&state](const document& doc) {
    auto value = std::make_unique<wide_document>();
    value->Parse(doc.utf16.c_str());
    if (value->HasParseError()) state.SkipWithError("rapidjson parse error");
    return value;
  });
}

// The cost of freeing a parsed tree.
template <class Parse>
void time_free(benchmark::State& state, const document& doc, Parse parse) {
  for (auto _ : state) {
    state.PauseTiming();
    auto value = parse(doc);
    state.ResumeTiming();
    value.reset();
  }
  state.SetBytesProcessed(static_cast<long long>(state.iterations() * doc.utf8.size()));
}

void free_tvbase(benchmark::State& state, const char* name) {
  time_free(state, load(name), [](const document& doc) {
    auto value = std::make_unique<json::object>();
    if (value->parse(doc.utf16)) std::abort();
    return value;
  });
}

void free_nlohmann(benchmark::State& state, const char* name) {
  time_free(state, load(name), [](const document& doc) {
    return std::make_unique<nlohmann::json>(nlohmann::json::parse(doc.utf8));
  });
}

void to_string_tvbase(benchmark::State& state, const char* name) {
  const document& doc = load(name);
  json::object value;
  if (value.parse(doc.utf16)) state.SkipWithError("parse error");
  for (auto _ : state) {
    std::wstring text = value.to_string();
    benchmark::DoNotOptimize(text);
  }
  state.SetBytesProcessed(static_cast<long long>(state.iterations() * doc.utf8.size()));
}

void dump_nlohmann(benchmark::State& state, const char* name) {
  const document& doc = load(name);
  const nlohmann::json value = nlohmann::json::parse(doc.utf8);
  for (auto _ : state) {
    std::string text = value.dump();
    benchmark::DoNotOptimize(text);
  }
  state.SetBytesProcessed(static_cast<long long>(state.iterations() * doc.utf8.size()));
}

void write_rapidjson_utf16(benchmark::State& state, const char* name) {
  const document& doc = load(name);
  wide_document value;
  value.Parse(doc.utf16.c_str());
  for (auto _ : state) {
    rapidjson::GenericStringBuffer<rapidjson::UTF16<wchar_t>> buffer;
    rapidjson::Writer<decltype(buffer), rapidjson::UTF16<wchar_t>, rapidjson::UTF16<wchar_t>>
        writer(buffer);
    value.Accept(writer);
    benchmark::DoNotOptimize(buffer.GetString());
  }
  state.SetBytesProcessed(static_cast<long long>(state.iterations() * doc.utf8.size()));
}

// The heap that the parsed tree holds, against the bytes of the wide text.
template <class Parse>
void tree_memory(benchmark::State& state, const char* name, Parse parse) {
  const document& doc = load(name);
  const double text_bytes = static_cast<double>(doc.utf16.size() * sizeof(wchar_t));
  double tree_bytes = 0;
  double blocks = 0;
  for (auto _ : state) {
    const long long bytes_before = g_heap_bytes;
    const long long blocks_before = g_heap_blocks;
    g_counting = true;
    auto value = parse(doc);
    g_counting = false;
    tree_bytes = static_cast<double>(g_heap_bytes - bytes_before);
    blocks = static_cast<double>(g_heap_blocks - blocks_before);
    benchmark::DoNotOptimize(value);
  }
  state.counters["tree_bytes"] = tree_bytes;
  state.counters["blocks"] = blocks;
  state.counters["wstring_bytes"] = text_bytes;
  state.counters["tree/wstring"] = tree_bytes / text_bytes;
}

void memory_tvbase(benchmark::State& state, const char* name) {
  tree_memory(state, name, [](const document& doc) {
    json::object value;
    if (value.parse(doc.utf16)) std::abort();
    return value;
  });
}

void memory_nlohmann(benchmark::State& state, const char* name) {
  tree_memory(state, name, [](const document& doc) { return nlohmann::json::parse(doc.utf8); });
}

}  // namespace

#define JSON_FILE_BENCH(fn, file) \
  BENCHMARK_CAPTURE(fn, file, #file ".json")->Unit(benchmark::kMillisecond)
#define JSON_ALL_FILES(fn)           \
  JSON_FILE_BENCH(fn, twitter);      \
  JSON_FILE_BENCH(fn, citm_catalog); \
  JSON_FILE_BENCH(fn, canada)

JSON_ALL_FILES(parse_tvbase);
JSON_ALL_FILES(parse_nlohmann);
JSON_ALL_FILES(parse_rapidjson_utf16);
JSON_ALL_FILES(free_tvbase);
JSON_ALL_FILES(free_nlohmann);
JSON_ALL_FILES(to_string_tvbase);
JSON_ALL_FILES(dump_nlohmann);
JSON_ALL_FILES(write_rapidjson_utf16);
JSON_ALL_FILES(memory_tvbase);
JSON_ALL_FILES(memory_nlohmann);

BENCHMARK_MAIN();
