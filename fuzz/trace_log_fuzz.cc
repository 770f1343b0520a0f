// The log reader of `tvbase trace` on any bytes: read through line_reader
// (byte 0 picks the block size, 1 to 64 bytes, so that lines cross blocks
// at every place), each line taken apart by parse_line and fed to a
// call_reader with small limits. Checks what must hold whatever the input:
// lines within kReadLimit and covering the input, calls with no negative
// time and their callees' time within their own where the clock runs on,
// limits kept, and the texts of the calls written as JSON strings that the
// library's JSON reader takes back and as XML text without a raw markup
// character.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include <tvbase/json/object.h>
#include <tvbase/testing/temp_dir.h>

#include "trace_outputs.h"
#include "trace_reader.h"

namespace {

void check(bool ok, const char* what) {
  if (!ok) {
    std::fprintf(stderr, "broken: %s\n", what);
    std::abort();
  }
}

void check_texts(std::string_view text) {
  std::string json;
  trace_tools::append_json_string(json, text);
  std::wstring wide;
  for (const char c : json) {
    check(static_cast<unsigned char>(c) < 0x80, "the JSON text is ASCII");
    wide += static_cast<wchar_t>(c);
  }
  json::object value;
  check(!value.parse(wide) && value.is_string(), "the JSON string reads back");
  std::string xml;
  trace_tools::append_xml_text(xml, text, 40);
  check(xml.find('<') == std::string::npos && xml.find('>') == std::string::npos,
        "no raw < or > in XML text");
}

struct checker {
  trace_tools::call_reader::limits limits;
  std::size_t open = 0;

  void on_thread(std::uint32_t) {}
  std::int64_t on_enter(const trace_tools::call& c, std::int64_t parent) {
    check(c.depth >= 1, "a depth of at least 1");
    check(c.parameters.size() <= limits.parameter_bytes, "parameters within the budget");
    check(parent >= -1, "a parent tag that was given");
    check(open < limits.depth * limits.threads, "open calls within the limits");
    check_texts(c.parameters);
    return static_cast<std::int64_t>(open++);
  }
  void on_call(const trace_tools::call& c) {
    check(c.duration() >= 0 && c.self() >= 0 && c.self() <= c.duration(), "times add up");
    check(c.name.size() <= limits.name_bytes || c.name == trace_tools::call_reader::kPooledName,
          "names within their limit");
    check_texts(c.name);
    --open;
  }
  void on_note(const trace_tools::note& n) { check_texts(n.text); }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::size_t block = 1 + data[0] % 64;
  // A file of this process's own in the temporary folder, made anew for each
  // input (tmpfile() on Windows wants the root of the drive).
  static const testing_support::temp_dir folder("tvbase-fuzz-");  // removed at exit
  if (folder.path().empty()) std::abort();
  std::FILE* file = std::fopen((folder.path() + "input").c_str(), "w+b");
  if (file == nullptr) std::abort();
  std::fwrite(data + 1, 1, size - 1, file);
  std::rewind(file);

  checker visitor;
  visitor.limits.depth = 8;
  visitor.limits.functions = 16;
  visitor.limits.threads = 4;
  visitor.limits.parameter_bytes = 64;
  visitor.limits.name_bytes = 32;
  trace_tools::call_reader calls(visitor.limits);
  trace_tools::line_reader lines(file, nullptr, block);
  std::string_view line;
  std::size_t bytes = 0;
  while (lines.next(line)) {
    check(line.size() <= trace_tools::kReadLimit, "lines within kReadLimit");
    bytes += line.size();
    calls.feed(trace_tools::parse_line(line), visitor);
  }
  calls.finish(visitor);
  check(!lines.failed() && lines.bytes_read() == size - 1, "the whole input is read");
  check(bytes <= size - 1, "lines come from the input");
  check(visitor.open == 0, "every call ends");
  check(calls.totals().lines == lines.totals().lines, "every line is fed");
  check(calls.thread_count() <= visitor.limits.threads, "threads within their limit");
  check(calls.function_count() <= visitor.limits.functions + 1, "names within their limit");
  std::fclose(file);
  return 0;
}
