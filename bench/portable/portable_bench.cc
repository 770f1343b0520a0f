// A handful of the benchmarks in a form that needs nothing but the library,
// so that one source gives figures for the Linux build and for the Windows
// build under wine64 in the same run (make bench-windows): the enter line
// with six typed parameters, JSON parse and write on 16-bit or 32-bit
// wchar_t, the HTML scan and the style-sheet processor. Google Benchmark has
// no MinGW build to link with, hence the small loop below; it runs each case
// in batches until half a second has passed and prints the mean per call.
//
//   portable_bench <bench-data folder> <style-sheet corpus>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <stdexcept>
#include <string>

#include <tvbase/css_processor/processor.h>
#include <tvbase/html_parser/parser.h>
#include <tvbase/json/object.h>
#include <tvbase/platform/code_page.h>
#include <tvbase/platform/file.h>
#include <tvbase/testing/temp_dir.h>
#include <tvbase/trace/func_log.h>
#include <tvbase/trace/log_sink.h>

namespace {

using clock_type = std::chrono::steady_clock;

std::string read_all(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw std::runtime_error("cannot read " + path);
  std::ostringstream bytes;
  bytes << in.rdbuf();
  return bytes.str();
}

// Calls `body` (which does `batch` calls of the measured thing) until half a
// second has passed, then prints the mean per call in `unit`s.
void run(const char* name, long batch, const std::function<void()>& body, double unit_ns,
         const char* unit) {
  body();  // warm caches and one-time set-up
  long calls = 0;
  const auto start = clock_type::now();
  auto now = start;
  while (now - start < std::chrono::milliseconds(500)) {
    body();
    calls += batch;
    now = clock_type::now();
  }
  const double ns = std::chrono::duration<double, std::nano>(now - start).count() / calls;
  std::printf("%s\t%.3f\t%s\n", name, ns / unit_ns, unit);
  std::fflush(stdout);
}

volatile std::size_t g_sink;  // keeps results alive

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: portable_bench <bench-data folder> <style-sheet corpus>\n");
    return 2;
  }
  const std::string data = std::string(argv[1]) + "/";
  try {
    {
      testing_support::temp_dir scratch("tvbase-bench-");
      const std::string path = scratch.path() + "trace.log";
      TvLogSink sink;
      sink.enabled[0] = sink.enabled[1] = true;
      sink.file = platform::create_log_file(path.c_str());
      if (sink.file < 0) throw std::runtime_error("cannot make " + path);
      TvLogSink* before = trace::UseSink(&sink);
      static const int number = 42;
      static const win::GUID id{
          0x00112233, 0x4455, 0x6677, {0x88, 0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF}};
      const std::string narrow(40, 'n');
      const std::wstring wide(40, L'w');
      // The enter line and its return line, into a file.
      run(
          "trace: six typed parameters, enter + return line", 1000,
          [&] {
            for (int i = 0; i < 1000; ++i) {
              TvFuncLog log("Foo", TvFuncLog::eLogFilter0, 7, 2.5, narrow.c_str(), wide.c_str(),
                            &number, id);
            }
          },
          1e3, "us");
      trace::UseSink(before);
      platform::close_file(sink.file);
      std::filesystem::remove(path);
    }
    for (const char* file : {"twitter.json", "citm_catalog.json", "canada.json"}) {
      const std::wstring text = platform::default_to_wide(read_all(data + file));
      run((std::string("json parse ") + file).c_str(), 1,
          [&] {
            json::object value;
            if (value.parse(text)) throw std::runtime_error(std::string("parse error in ") + file);
            g_sink = static_cast<std::size_t>(value.get_type());
          },
          1e6, "ms");
      json::object value;
      if (value.parse(text)) throw std::runtime_error(std::string("parse error in ") + file);
      run((std::string("json write ") + file).c_str(), 1,
          [&] { g_sink = value.to_string().size(); }, 1e6, "ms");
    }
    for (const char* file : {"wikipedia.html", "rfc9110.html"}) {
      const std::string text = read_all(data + file);
      run((std::string("html scan ") + file).c_str(), 1,
          [&] {
            std::size_t elements = 0;
            const auto error = html_parser::parser::parse(
                text, false, [&elements](const html_parser::tag&, const auto&) {
                  ++elements;
                  return true;
                });
            if (error) throw std::runtime_error(std::string("parse error in ") + file);
            g_sink = elements;
          },
          1e6, "ms");
    }
    const std::string sheet_source = read_all(argv[2]);
    run(
        "css process 1M corpus", 1,
        [&] {
          css_processor::processor sheet{std::string(sheet_source)};
          if (auto error = sheet.process()) throw std::runtime_error(*error);
          g_sink = sheet.css().size();
        },
        1e6, "ms");
  } catch (const std::exception& e) {
    std::fprintf(stderr, "portable_bench: %s\n", e.what());
    return 1;
  }
  return 0;
}
