// The three views of a log, on logs that the library itself wrote in a real
// process (trace_sample), compared with a naive reading of the same log.
#include "trace_outputs.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include <tvbase/json/object.h>
#include <tvbase/testing/allocation_counter.h>
#include <tvbase/testing/processes.h>
#include <tvbase/trace/func_log.h>
#include <tvbase/trace/test_support.h>

namespace {

using trace_test::read_file;
using trace_test::split_lines;
using trace_test::temp_dir;
using trace_test::write_file;

// --- logs written by the library ---------------------------------------------------

// Runs trace_sample with `words` as a program called "app", traced (filter
// class 0 only) into a log folder of its own; gives the log's bytes.
class sample_log {
 public:
  explicit sample_log(const std::vector<std::string>& words, const char* options = "") {
    const std::string app = dir_.path() + "app";
    const std::string logs = dir_.path() + "logs/";
    std::filesystem::copy_file(TRACE_SAMPLE, app);
    std::filesystem::create_directory(logs);
    unsigned long error = 1;
    EXPECT_TRUE(TvFuncLog::SaveLogCfg((dir_.path() + "TvLog.cfg").c_str(), logs.c_str(), false,
                                      false, "app", "*", options, true, false, &error));
    std::vector<std::string> argv{app};
    argv.insert(argv.end(), words.begin(), words.end());
    trace_test::child run(argv);
    EXPECT_EQ(run.finish(), 0) << run.err();
    const std::vector<std::string> names = trace_test::files_in(logs);
    EXPECT_EQ(names.size(), 1u);
    if (names.size() == 1) {
      path_ = logs + names[0];
      bytes_ = read_file(path_);
    }
  }
  const std::string& path() const { return path_; }
  const std::string& bytes() const { return bytes_; }

 private:
  temp_dir dir_;
  std::string path_, bytes_;
};

// The sample's logs, made once for all tests.
const sample_log& calls_log() {
  static const sample_log log({"calls"});
  return log;
}

// "dd/mm/yyyy hh:mm:ss.mmm" of milliseconds since 1970, through <chrono>.
std::string stamp(long long ms) {
  using namespace std::chrono;
  const sys_time<milliseconds> t{milliseconds{ms}};
  const sys_days day = floor<days>(t);
  const year_month_day ymd{day};
  const hh_mm_ss<milliseconds> time{t - day};
  char text[32];
  std::snprintf(text, sizeof text, "%02u/%02u/%04d %02d:%02d:%02d.%03d",
                static_cast<unsigned>(ymd.day()), static_cast<unsigned>(ymd.month()),
                static_cast<int>(ymd.year()), static_cast<int>(time.hours().count()),
                static_cast<int>(time.minutes().count()), static_cast<int>(time.seconds().count()),
                static_cast<int>(time.subseconds().count()));
  return text;
}

// 31/12/2025 23:59:59.990: restamped logs cross midnight and a new year.
constexpr long long kBase = 1767225599990;

// The log with what varies from run to run made fixed: line i is stamped
// `base` + i * `step` milliseconds, and threads are numbered 1, 2, ... in
// the order of their first lines.
std::string restamp(const std::string& log, int step = 1) {
  std::map<std::string, int> threads;
  std::string out;
  long long i = 0;
  for (std::string line : split_lines(log, "\r\n")) {
    const std::size_t at = line.starts_with("(") ? 11 : 0;
    if (line.size() >= at + 33 && line[at + 2] == '/') {
      line.replace(at, 23, stamp(kBase + i * step));
      const auto [it, added] =
          threads.emplace(line.substr(at + 24, 8), static_cast<int>(threads.size()) + 1);
      char id[16];
      std::snprintf(id, sizeof id, "%08x", it->second);
      line.replace(at + 24, 8, id);
    }
    out += line + "\r\n";
    ++i;
  }
  return out;
}

// A file named as the trace names its logs, in a folder of the test's own.
class log_file {
 public:
  log_file(const std::string& bytes,
           const std::string& name = "app.4242 31-12-2025 23.59.59.990.log")
      : path_(dir_.path() + name) {
    write_file(path_, bytes);
  }
  const std::string& path() const { return path_; }

 private:
  temp_dir dir_;
  std::string path_;
};

std::string summary_of(const std::vector<std::string>& logs,
                       const trace_tools::run_options& options = {}) {
  std::string text;
  {
    trace_tools::output out(text);
    EXPECT_TRUE(trace_tools::write_summary(logs, out, options).empty());
  }
  return text;
}

// --- a naive reading of a log, as the reference ---------------------------------------

struct ref_call {
  std::string name;
  unsigned long thread = 0;
  long long start = 0, end = 0;
  std::string parameters;
  bool exception = false, returned = false, cut = false;
  std::string path;  // the names of the open calls below it and its own, "a;b;c"
  bool operator<(const ref_call& o) const {
    return std::tie(thread, start, end, name, parameters, exception, returned, cut) <
           std::tie(o.thread, o.start, o.end, o.name, o.parameters, o.exception, o.returned, o.cut);
  }
  bool operator==(const ref_call& o) const {
    return std::tie(name, thread, start, end, parameters, exception, returned, cut) ==
           std::tie(o.name, o.thread, o.start, o.end, o.parameters, o.exception, o.returned, o.cut);
  }
};

struct ref_note {
  unsigned long thread;
  long long time;
  std::string name, text;
  bool operator<(const ref_note& o) const {
    return std::tie(thread, time, name, text) < std::tie(o.thread, o.time, o.name, o.text);
  }
  bool operator==(const ref_note& o) const = default;
};

constexpr const char* kChanged = " return !!! Activation context has changed !!!";

long long ms_of(const std::string& t) {
  using namespace std::chrono;
  const int day = std::stoi(t.substr(0, 2)), month = std::stoi(t.substr(3, 2));
  const int year = std::stoi(t.substr(6, 4));
  const sys_days d =
      year_month_day{std::chrono::year{year}, std::chrono::month{static_cast<unsigned>(month)},
                     std::chrono::day{static_cast<unsigned>(day)}};
  return duration_cast<milliseconds>(d.time_since_epoch()).count() +
         std::stoll(t.substr(11, 2)) * 3600000 + std::stoll(t.substr(14, 2)) * 60000 +
         std::stoll(t.substr(17, 2)) * 1000 + std::stoll(t.substr(20, 3));
}

// Every call and text line of a log, with a std::map of open calls per
// thread keyed by indent: a call is ended by a return of its name one level
// further in, or cut short by any line at or left of its indent.
struct reference {
  std::vector<ref_call> calls;
  std::vector<ref_note> notes;
  std::set<unsigned long> threads;
};

reference read_reference(const std::string& log) {
  struct open_call {
    ref_call call;
  };
  reference ref;
  std::map<unsigned long, std::map<int, ref_call>> open;
  std::map<unsigned long, long long> last;
  const auto end_from = [&](unsigned long thread, int indent, long long time) {
    auto& calls = open[thread];
    while (!calls.empty() && calls.rbegin()->first >= indent) {
      ref_call c = calls.rbegin()->second;
      c.end = time;
      ref.calls.push_back(c);
      calls.erase(std::prev(calls.end()));
    }
  };
  for (std::string line : split_lines(log, "\r\n")) {
    if (line.starts_with("(")) line = line.substr(11);
    if (line.size() < 34 || line[2] != '/') continue;
    const long long time = ms_of(line.substr(0, 23));
    const unsigned long thread = std::stoul(line.substr(24, 8), nullptr, 16);
    const bool marked = line[32] == '!';
    std::size_t blanks = line.find_first_not_of(' ', 33) - 33;
    const int indent = static_cast<int>(blanks / 4);
    const std::string rest = line.substr(33 + blanks / 4 * 4);
    ref.threads.insert(thread);
    last[thread] = std::max(last[thread], time);
    const std::size_t paren = rest.find("( "), colon = rest.find(": ");
    if (paren != std::string::npos && (colon == std::string::npos || paren < colon)) {
      end_from(thread, indent, time);
      ref_call c;
      c.name = rest.substr(0, paren);
      c.thread = thread;
      c.start = time;
      c.parameters = rest.substr(paren + 2);
      c.cut = !c.parameters.ends_with(" )");
      if (!c.cut) c.parameters.resize(c.parameters.size() - 2);
      for (const auto& [unused, below] : open[thread]) c.path += below.name + ";";
      c.path += c.name;
      open[thread][indent] = c;
    } else if (colon != std::string::npos) {
      end_from(thread, indent, time);
      ref.notes.push_back({thread, time, rest.substr(0, colon), rest.substr(colon + 2)});
    } else if (rest.ends_with(" return") || rest.ends_with(kChanged)) {
      end_from(thread, indent, time);
      auto& calls = open[thread];
      const std::string name = rest.substr(0, rest.find(" return"));
      if (!calls.empty() && calls.rbegin()->first == indent - 1 &&
          calls.rbegin()->second.name == name) {
        ref_call c = calls.rbegin()->second;
        c.end = time;
        c.returned = true;
        c.exception = marked;
        ref.calls.push_back(c);
        calls.erase(std::prev(calls.end()));
      }
    }
  }
  for (auto& [thread, calls] : open) end_from(thread, 0, last[thread]);
  return ref;
}

// --- the timeline, read back with the library's JSON reader ---------------------------

json::object parse_json(const std::string& bytes) {
  EXPECT_TRUE(std::all_of(bytes.begin(), bytes.end(), [](char c) {
    return static_cast<unsigned char>(c) < 0x80;
  })) << "the timeline is plain ASCII";
  json::object doc;
  const auto error = doc.parse(std::wstring(bytes.begin(), bytes.end()));
  EXPECT_FALSE(error) << error->line << ":" << error->column << " " << error->message;
  return doc;
}

std::string narrow(const std::wstring& text) {
  std::string out;
  for (const wchar_t c : text) out += static_cast<char>(c);
  return out;
}

std::string timeline_of(const std::vector<std::string>& logs) {
  std::string text;
  {
    trace_tools::output out(text);
    EXPECT_TRUE(trace_tools::write_timeline(logs, out, {}).empty());
  }
  return text;
}

struct timeline {
  std::vector<ref_call> calls;
  std::vector<ref_note> notes;
  std::map<std::pair<long long, unsigned long>, std::string> thread_names;
  std::map<long long, std::string> process_names;
  std::vector<bool> no_return_flags;
};

// The events of a timeline, times back in milliseconds from `base`.
timeline read_timeline(const json::object& doc, long long base) {
  timeline t;
  EXPECT_TRUE(doc(L"traceEvents").is_array());
  doc(L"traceEvents").foreach([&](unsigned int, const json::object& e) {
    const std::string ph = narrow(e(L"ph").as_string(L""));
    const json::object& args = e(L"args");
    const unsigned long tid = e(L"tid").as_uint(0);
    if (ph == "M") {
      if (e(L"name").as_string(L"") == L"thread_name")
        t.thread_names[{e(L"pid").as_int64(0), tid}] = narrow(args(L"name").as_string(L""));
      if (e(L"name").as_string(L"") == L"process_name")
        t.process_names[e(L"pid").as_int64(0)] = narrow(args(L"name").as_string(L""));
    } else if (ph == "X") {
      ref_call c;
      c.name = narrow(e(L"name").as_string(L"?"));
      c.thread = tid;
      EXPECT_EQ(e(L"ts").as_int64(-1) % 1000, 0);
      c.start = base + e(L"ts").as_int64(-1) / 1000;
      c.end = c.start + e(L"dur").as_int64(-1) / 1000;
      c.parameters = narrow(args(L"parameters").as_string(L"?"));
      c.exception = args(L"exception").as_bool(false);
      c.returned = !args(L"no_return").as_bool(false);
      c.cut = args(L"cut").as_bool(false);
      t.calls.push_back(c);
    } else if (ph == "i") {
      EXPECT_EQ(e(L"s").as_string(L""), L"t");
      t.notes.push_back({tid, base + e(L"ts").as_int64(-1) / 1000,
                         narrow(args(L"function").as_string(L"?")),
                         narrow(args(L"text").as_string(L"?"))});
    } else {
      ADD_FAILURE() << "an event of kind " << ph;
    }
    return true;
  });
  std::sort(t.calls.begin(), t.calls.end());
  std::sort(t.notes.begin(), t.notes.end());
  return t;
}

void expect_timeline_matches_log(const std::string& log) {
  log_file file(log);
  const std::string json = timeline_of({file.path()});
  const json::object doc = parse_json(json);
  reference ref = read_reference(log);
  ASSERT_FALSE(ref.calls.empty());
  long long base = ref.calls.front().start;
  for (const ref_call& c : ref.calls) base = std::min(base, c.start);
  const timeline t = read_timeline(doc, base);
  std::sort(ref.calls.begin(), ref.calls.end());
  std::sort(ref.notes.begin(), ref.notes.end());
  ASSERT_EQ(t.calls.size(), ref.calls.size());
  for (std::size_t i = 0; i < ref.calls.size(); ++i) {
    SCOPED_TRACE(ref.calls[i].name + " at " + std::to_string(ref.calls[i].start));
    EXPECT_TRUE(t.calls[i] == ref.calls[i])
        << t.calls[i].name << " " << t.calls[i].start << "-" << t.calls[i].end << " ["
        << t.calls[i].parameters.substr(0, 60) << "] " << t.calls[i].returned;
  }
  EXPECT_EQ(t.notes, ref.notes);
  for (const unsigned long thread : ref.threads) {
    char name[32];
    std::snprintf(name, sizeof name, "thread %08lx", thread);
    EXPECT_EQ(t.thread_names.at({4242, thread}), name);
  }
  EXPECT_EQ(t.process_names.at(4242), "app 4242");
  EXPECT_EQ(narrow(doc(L"otherData")(L"start").as_string(L"")), stamp(base));
}

// --- the flame graph, read back --------------------------------------------------------

struct frame {
  std::string title;
  double x = 0, y = 0, width = 0;
  std::string path;  // from the frames below it
};

double attribute(const std::string& tag, const std::string& name) {
  const std::size_t at = tag.find(" " + name + "=\"");
  EXPECT_NE(at, std::string::npos) << name << " in " << tag;
  return at == std::string::npos ? -1 : std::stod(tag.substr(at + name.size() + 3));
}

// The frames of a flame graph, each with the call path that the frames
// under it spell.
std::vector<frame> frames_of(const std::string& svg) {
  std::vector<frame> frames;
  for (std::size_t at = 0; (at = svg.find("<g><title>", at)) != std::string::npos;) {
    frame f;
    const std::size_t end = svg.find("</title>", at);
    f.title = svg.substr(at + 10, end - at - 10);
    const std::size_t rect_end = svg.find("/>", end);
    const std::string rect = svg.substr(end, rect_end - end);
    f.x = attribute(rect, "x");
    f.y = attribute(rect, "y");
    f.width = attribute(rect, "width");
    frames.push_back(f);
    at = rect_end;
  }
  // Bottom up: each frame lies within one frame of the row under it.
  std::sort(frames.begin(), frames.end(), [](const frame& a, const frame& b) { return a.y > b.y; });
  for (std::size_t i = 1; i < frames.size(); ++i) {
    frame& f = frames[i];
    const frame* under = nullptr;
    for (std::size_t j = 0; j < i; ++j) {
      const frame& g = frames[j];
      if (g.y == f.y + 18 && g.x <= f.x + 0.01 && f.x + f.width <= g.x + g.width + 0.01) under = &g;
    }
    EXPECT_NE(under, nullptr) << f.title << " stands on no frame";
    if (under == nullptr) continue;
    const std::string name = f.title.substr(0, f.title.find(": "));
    f.path = under->path.empty() ? name : under->path + ";" + name;
  }
  return frames;
}

std::string flame_of(const std::vector<std::string>& logs,
                     const trace_tools::run_options& options = {}) {
  std::string svg;
  {
    trace_tools::output out(svg);
    EXPECT_TRUE(trace_tools::write_flame(logs, out, options).empty());
  }
  return svg;
}

// xmllint (Debian's libxml2-utils) finds the file well-formed. A Windows
// build under Wine starts the Linux program too, on the file's Linux path,
// but neither its exit status nor its output comes back through Wine: the
// shell leaves both in files, the status last, and the test waits for it.
void expect_well_formed(const std::string& svg) {
  temp_dir dir;
  const std::string path = dir.path() + "flame.svg";
  write_file(path, svg);
  const std::string host = testing_support::host_path(path);
  if (host.empty()) GTEST_SKIP() << "no Linux path for " << path << " to run xmllint on";
  trace_test::child lint({"/bin/sh", "-c",
                          "xmllint --noout - <\"$0\" 2>\"$0.err\"; echo $? >\"$0.tmp\"; "
                          "mv \"$0.tmp\" \"$0.status\"",
                          host});
  lint.finish();
  for (int i = 0; i < 3000 && !std::filesystem::exists(path + ".status"); ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  EXPECT_EQ(trace_test::read_file(path + ".status"), "0\n")
      << "xmllint: " << trace_test::read_file(path + ".err");
}

// The calls of the reference per path: "main;Outer;Inner" -> 3.
std::map<std::string, int> calls_per_path(const reference& ref) {
  std::map<std::string, int> paths;
  for (const ref_call& c : ref.calls) ++paths[c.path];
  return paths;
}

// --- tests -------------------------------------------------------------------------------

TEST(TraceSummary, TableOfALogOfNestedCallsThreadsAnExceptionAndCutLines) {
  const std::string log = restamp(calls_log().bytes());
  log_file file(log);
  const std::string expected = "== " + file.path() + R"(
process 4242 (app): 3 threads, 43 lines, 31/12/2025 23:59:59.990 to 01/01/2026 00:00:00.032
times in milliseconds, the log's resolution: a call shorter than 1 ms shows 0 or 1

calls  total ms  self ms  deepest  "!"  no return  function
    1        42       20        1    0          0  main
    1        13        6        2    0          0  Outer
    6        12       12        4    0          0  Inner
    2        11        5        1    0          0  Worker
    3         5        5        4    0          0  Recurse
    1         3        2        2    1          0  Risky
    1         1        1        3    0          0  Leaf
    1         1        1        3    1          0  Thrower
    1         1        1        2    0          0  Wide

"!": returns left by an exception; no return: calls without a return line, ended at their thread's last line
lines that could not be read back: 0
lines cut at 8,191 characters, read as far as they go: 1
)";
  EXPECT_EQ(summary_of({file.path()}), expected);
}

// The same log as written, with its own times, threads and process number:
// the same functions with the same counts.
TEST(TraceSummary, RealTimesGiveTheSameCounts) {
  const auto rows_of = [](const std::string& table) {
    std::map<std::string, std::string> rows;  // function -> calls, deepest, "!", no return
    for (const std::string& line : split_lines(table, "\n")) {
      std::vector<std::string> words;
      for (std::size_t at = 0; (at = line.find_first_not_of(' ', at)) != std::string::npos;) {
        const std::size_t end = std::min(line.find(' ', at), line.size());
        words.push_back(line.substr(at, end - at));
        at = end;
      }
      if (words.size() == 7 && words[0] != "calls")
        rows[words[6]] = words[0] + " " + words[3] + " " + words[4] + " " + words[5];
    }
    return rows;
  };
  log_file restamped(restamp(calls_log().bytes()));
  const auto expected = rows_of(summary_of({restamped.path()}));
  EXPECT_EQ(expected.size(), 9u);
  EXPECT_EQ(rows_of(summary_of({calls_log().path()})), expected);
}

TEST(TraceSummary, SameTableForLfLinesAndForThreadsThatRanTogether) {
  static const sample_log busy({"busy", "300"});
  const std::string log = restamp(busy.bytes());
  const std::vector<std::string> lines = split_lines(log, "\r\n");
  // Where two threads' lines follow each other, run them together as a
  // line and its line end written apart would: "A" "B" "\r\n" "\r\n".
  std::string together;
  std::size_t pairs = 0;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    if (i + 1 < lines.size() && lines[i].substr(24, 8) != lines[i + 1].substr(24, 8)) {
      together += lines[i] + lines[i + 1] + "\r\n\r\n";
      ++pairs;
      ++i;
    } else {
      together += lines[i] + "\r\n";
    }
  }
  ASSERT_GT(pairs, 0u) << "the threads never took turns";
  std::string lf = log;
  std::erase(lf, '\r');

  log_file original(log), joined(together), lf_only(lf);
  const auto body = [](const std::string& table) { return table.substr(table.find('\n')); };
  const std::string expected = body(summary_of({original.path()}));
  EXPECT_NE(expected.find("  600  "), std::string::npos) << expected;  // Step's calls
  EXPECT_EQ(body(summary_of({lf_only.path()})), expected);
  std::string apart = body(summary_of({joined.path()}));
  const std::string note =
      "lines of two threads run together, read apart: " + std::to_string(pairs) + "\n";
  ASSERT_NE(apart.find(note), std::string::npos) << apart;
  apart.erase(apart.find(note), note.size());
  EXPECT_EQ(apart, expected);
}

TEST(TraceSummary, CountsWhatItCannotReadAndNeverFails) {
  std::mt19937 random(7);
  std::string garbage = "junk\n";  // a log of LF lines
  for (int i = 0; i < 300000; ++i) garbage += static_cast<char>(random() % 256);
  garbage += std::string(200000, 'x');  // a line far too long
  const std::string good = "03/02/2026 09:05:07.012 00001a2c Foo(  )\r\n";
  log_file junk(garbage + "\r\n" + good), empty(""), one(good);
  const std::string table = summary_of({junk.path(), empty.path(), one.path()});
  EXPECT_NE(table.find("== " + empty.path() + "\nprocess 4242 (app): 0 threads, 0 lines\n"),
            std::string::npos)
      << table;
  EXPECT_NE(table.find("no calls\n"), std::string::npos);
  // Every line but the good one: as many as the line ends of the garbage.
  const std::size_t ends =
      static_cast<std::size_t>(std::count(garbage.begin(), garbage.end(), '\n'));
  EXPECT_NE(table.find("lines that could not be read back: " + std::to_string(ends + 1) + "\n"),
            std::string::npos)
      << table;
  EXPECT_NE(table.find("1         0        0        1    0          1  Foo"), std::string::npos)
      << table;
}

TEST(TraceSummary, ALogThatCannotBeReadIsNamedAndTheOthersAreWritten) {
  log_file one("03/02/2026 09:05:07.012 00001a2c Foo(  )\r\n");
  std::string text;
  trace_tools::output out(text);
  const auto failures = trace_tools::write_summary({"/no/such.log", one.path()}, out, {});
  out.flush();
  ASSERT_EQ(failures.size(), 1u);
  EXPECT_EQ(failures[0].rfind("cannot open /no/such.log: ", 0), 0u) << failures[0];
  EXPECT_NE(text.find("  Foo\n"), std::string::npos) << text;
}

TEST(TraceSummary, CallsLeftOpenAtTheEndAreCounted) {
  static const sample_log open({"open"});
  log_file file(restamp(open.bytes()));
  const std::string table = summary_of({file.path()});
  // main, Deep 3 to 0 and Bottom never returned.
  EXPECT_NE(table.find("    4         5        4        5    0          4  Deep\n"),
            std::string::npos)
      << table;
  EXPECT_NE(table.find("    1         6        1        1    0          1  main\n"),
            std::string::npos)
      << table;
  EXPECT_NE(table.find("    1         1        1        6    0          1  Bottom\n"),
            std::string::npos)
      << table;
}

TEST(TraceTimeline, EverySliceAndTextLineOfTheLogIsThere) {
  SCOPED_TRACE("calls");
  expect_timeline_matches_log(restamp(calls_log().bytes()));
  {
    SCOPED_TRACE("calls, all times equal");
    expect_timeline_matches_log(restamp(calls_log().bytes(), 0));
  }
  {
    SCOPED_TRACE("left open");
    static const sample_log open({"open"});
    expect_timeline_matches_log(restamp(open.bytes()));
  }
  {
    SCOPED_TRACE("two threads at once");
    static const sample_log busy({"busy", "200"});
    expect_timeline_matches_log(restamp(busy.bytes()));
  }
}

TEST(TraceTimeline, CarriesTheActivationContext) {
  static const sample_log context({"context"}, "ActivationContext");
  ASSERT_NE(context.bytes().find("(1234abcd) "), std::string::npos) << context.bytes();
  expect_timeline_matches_log(restamp(context.bytes()));
  log_file file(restamp(context.bytes()));
  const json::object doc = parse_json(timeline_of({file.path()}));
  std::map<std::string, std::string> seen;  // name -> context, changed
  doc(L"traceEvents").foreach([&](unsigned int, const json::object& e) {
    if (e(L"ph").as_string(L"") != L"X") return true;
    seen[narrow(e(L"name").as_string(L""))] =
        narrow(e(L"args")(L"context").as_string(L"-")) +
        (e(L"args")(L"context_changed").as_bool(false) ? " changed" : "");
    return true;
  });
  const std::map<std::string, std::string> expected = {
      {"main", "00000000 changed"}, {"Switch", "00000000 changed"}, {"Leaf", "1234abcd"}};
  EXPECT_EQ(seen, expected);
}

TEST(TraceTimeline, ATrackPerProcessNamedAfterItsLog) {
  log_file first(restamp(calls_log().bytes()), "app.7 31-12-2025 23.59.59.990.log");
  log_file second(restamp(calls_log().bytes(), 2), "app.7 01-01-2026 00.00.00.000.log");
  log_file third(restamp(calls_log().bytes()), "renamed.log");
  const json::object doc = parse_json(timeline_of({first.path(), second.path(), third.path()}));
  const timeline t = read_timeline(doc, kBase);
  // The second log has the first's number, so it gets one of its own.
  const std::map<long long, std::string> expected = {
      {7, "app 7"}, {1, "app 7"}, {2, "renamed.log"}};
  EXPECT_EQ(t.process_names, expected);
  EXPECT_EQ(t.calls.size(), 3 * read_reference(restamp(calls_log().bytes())).calls.size());
}

TEST(TraceTimeline, TextThatIsNotAsciiIsEscaped) {
  // A name and texts in UTF-8, a byte that is no UTF-8, a control character.
  const std::string log =
      "03/02/2026 09:05:07.012 00000001 Caf\xC3\xA9( \"\xE2\x82\xAC\" )\r\n"
      "03/02/2026 09:05:07.012 00000001     Caf\xC3\xA9: a\xFF\x01\"\\\t\n\xF0\x9F\x98\x80\r\n"
      "03/02/2026 09:05:07.013 00000001     Caf\xC3\xA9 return\r\n";
  log_file file(log);
  const std::string json = timeline_of({file.path()});
  const json::object doc = parse_json(json);
  std::wstring name, parameters, text;
  doc(L"traceEvents").foreach([&](unsigned int, const json::object& e) {
    if (e(L"ph").as_string(L"") == L"X") {
      name = e(L"name").as_string(L"");
      parameters = e(L"args")(L"parameters").as_string(L"");
    }
    if (e(L"ph").as_string(L"") == L"i") text = e(L"args")(L"text").as_string(L"");
    return true;
  });
  EXPECT_EQ(name, L"Caf\u00e9");
  EXPECT_EQ(parameters, L"\"\u20ac\"");
  const std::wstring expected_text = {L'a',  0xFFFD, 0x0001, L'"',  L'\\',
                                      L'\t', L'\n',  0xD83D, 0xDE00};
  EXPECT_EQ(text, expected_text);
}

TEST(TraceFlame, FramesMergeTheCallPathsOfTheLog) {
  const std::string log = restamp(calls_log().bytes());
  log_file file(log);
  const std::string svg = flame_of({file.path()});
  expect_well_formed(svg);
  EXPECT_NE(svg.find("widths: time in the calls"), std::string::npos);
  EXPECT_EQ(svg.find("<script"), std::string::npos);
  const std::vector<frame> frames = frames_of(svg);
  ASSERT_FALSE(frames.empty());
  // main ran 42 ms, the two Workers 4 and 7.
  EXPECT_EQ(frames.front().title, "all: 53 ms");

  const reference ref = read_reference(log);
  std::map<std::string, long long> time_per_path;
  for (const ref_call& c : ref.calls) time_per_path[c.path] += c.end - c.start;
  const std::map<std::string, int> expected = calls_per_path(ref);
  std::map<std::string, int> drawn;
  for (std::size_t i = 1; i < frames.size(); ++i) {
    const frame& f = frames[i];
    SCOPED_TRACE(f.path);
    const int calls = std::stoi(f.title.substr(f.title.find(": ") + 2));
    drawn[f.path] = calls;
    // As wide as its time: 53 ms span the picture's 1,180 pixels.
    const long long ms = time_per_path[f.path];
    EXPECT_NE(f.title.find(", " + std::to_string(ms) + " ms ("), std::string::npos) << f.title;
    EXPECT_NEAR(f.width, ms * 1180.0 / 53 - 0.5, 0.01);
  }
  EXPECT_EQ(drawn, expected);
  EXPECT_EQ(expected.at("main;Outer;Inner"), 3) << "Hidden is switched off: its callee is Outer's";
  EXPECT_EQ(expected.at("Worker;Inner"), 3);
}

TEST(TraceFlame, CallCountsWhenAllTimesAreEqual) {
  const std::string log = restamp(calls_log().bytes(), 0);
  log_file file(log);
  const std::string svg = flame_of({file.path()});
  expect_well_formed(svg);
  EXPECT_NE(svg.find("widths: numbers of calls"), std::string::npos);
  const std::vector<frame> frames = frames_of(svg);
  const reference ref = read_reference(log);
  ASSERT_FALSE(frames.empty());
  EXPECT_EQ(frames.front().title, "all: " + std::to_string(ref.calls.size()) + " calls");
  // A frame is as wide as its calls and those of the paths above it.
  std::map<std::string, int> inclusive;
  for (const auto& [path, calls] : calls_per_path(ref)) {
    for (const auto& [other, more] : calls_per_path(ref)) {
      if (other == path || other.starts_with(path + ";")) inclusive[path] += more;
    }
  }
  std::map<std::string, int> drawn;
  for (std::size_t i = 1; i < frames.size(); ++i) {
    SCOPED_TRACE(frames[i].path);
    drawn[frames[i].path] = std::stoi(frames[i].title.substr(frames[i].title.find(": ") + 2));
    EXPECT_NEAR(frames[i].width,
                inclusive[frames[i].path] * 1180.0 / static_cast<double>(ref.calls.size()) - 0.5,
                0.01);
  }
  EXPECT_EQ(drawn, calls_per_path(ref));
}

TEST(TraceFlame, ALevelPerLogAndWhatDidNotFitIsSaid) {
  log_file first(restamp(calls_log().bytes()), "app.7 31-12-2025 23.59.59.990.log");
  log_file second(restamp(calls_log().bytes()), "app.8 31-12-2025 23.59.59.990.log");
  trace_tools::run_options options;
  options.flame_paths = 20;
  const std::string svg = flame_of({first.path(), second.path()}, options);
  expect_well_formed(svg);
  const std::vector<frame> frames = frames_of(svg);
  std::set<std::string> paths;
  for (const frame& f : frames) paths.insert(f.path);
  // The root, the first log with its twelve call paths, the second with the
  // first five of them; the other calls are counted.
  EXPECT_EQ(frames.size(), 20u);
  EXPECT_TRUE(paths.count("app 7;Worker;Inner")) << frames.size();
  EXPECT_TRUE(paths.count("app 8;main;Recurse"));
  EXPECT_FALSE(paths.count("app 8;main;Recurse;Recurse"));
  EXPECT_NE(svg.find("left out: "), std::string::npos);
  EXPECT_NE(svg.find("on call paths past the limit of 20"), std::string::npos);
}

TEST(TraceFlame, NamesAreEscapedAndLongOnesShortened) {
  const std::string name = "a<b>&\"c'\x01\xFF" + std::string(400, 'n');
  const std::string log = "03/02/2026 09:05:07.012 00000001 " + name + "(  )\r\n" +
                          "03/02/2026 09:05:07.013 00000001     " + name + " return\r\n";
  log_file file(log);
  const std::string svg = flame_of({file.path()});
  expect_well_formed(svg);
  EXPECT_NE(svg.find("a&lt;b&gt;&amp;&quot;c&apos;\xEF\xBF\xBD\xEF\xBF\xBDnnn"), std::string::npos);
  EXPECT_NE(svg.find("nnn..</text>"), std::string::npos);
}

TEST(TraceFlame, SaysHowManyCallsTookNoTime) {
  log_file file(
      "03/02/2026 09:05:07.000 00000001 A(  )\r\n"
      "03/02/2026 09:05:07.002 00000001     B(  )\r\n"
      "03/02/2026 09:05:07.002 00000001         B return\r\n"
      "03/02/2026 09:05:07.005 00000001     A return\r\n");
  const std::string svg = flame_of({file.path()});
  EXPECT_NE(svg.find("widths: time in the calls"), std::string::npos);
  EXPECT_NE(svg.find("1 of the 2 calls took 0 ms"), std::string::npos) << svg;
  trace_tools::run_options by_calls;
  by_calls.widths = trace_tools::flame_widths::calls;
  const std::string counted = flame_of({file.path()}, by_calls);
  EXPECT_NE(counted.find("widths: numbers of calls"), std::string::npos);
  EXPECT_EQ(counted.find("took 0 ms"), std::string::npos);
  const std::vector<frame> frames = frames_of(counted);
  ASSERT_EQ(frames.size(), 3u);
  EXPECT_EQ(frames[2].path, "A;B");
  EXPECT_NEAR(frames[2].width, 1180.0 / 2 - 0.5, 0.01);
}

TEST(TraceFlame, EmptyAndUnreadableLogsMakeAPictureAllTheSame) {
  log_file empty(""), junk("junk\r\nmore junk\r\n");
  const std::string svg = flame_of({empty.path(), junk.path()});
  expect_well_formed(svg);
  EXPECT_NE(svg.find("no calls"), std::string::npos);
  EXPECT_NE(svg.find("lines that could not be read back: 2"), std::string::npos);
}

// A big log of many calls on three threads, made by the test: "thread
// runs f0( int(i) ) which calls f1 ... f3 and writes a line".
std::string synthetic_log(std::size_t bytes) {
  std::string log;
  log.reserve(bytes + 4096);
  long long ms = kBase;
  for (int i = 0; log.size() < bytes; ++i) {
    const std::string head = stamp(ms++) + " 0000000" + std::to_string(1 + i % 3) + " ";
    for (int d = 0; d < 4; ++d) {
      log += head + std::string(4 * d, ' ') + "f" + std::to_string(d) + "( int(" +
             std::to_string(i) + ") )\r\n";
    }
    log += head + std::string(16, ' ') + "f3: a text line\r\n";
    for (int d = 3; d >= 0; --d)
      log += head + std::string(4 * d + 4, ' ') + "f" + std::to_string(d) + " return\r\n";
  }
  return log;
}

// Reading ten times the log takes the same memory and no more
// allocations: nothing is held or made per line.
TEST(TraceReading, MemoryDoesNotGrowWithTheLog) {
  if (!testing_support::allocations_counted()) GTEST_SKIP() << "allocations are not counted here";
  log_file small(synthetic_log(2 << 20)), big(synthetic_log(20 << 20));
  temp_dir out_dir;
  const std::string out_path = out_dir.path() + "out";
  for (const char* view : {"summary", "timeline", "flame"}) {
    SCOPED_TRACE(view);
    std::size_t peak[2];
    long allocations[2];
    for (int i = 0; i < 2; ++i) {
      std::FILE* file = std::fopen(out_path.c_str(), "wb");
      ASSERT_NE(file, nullptr);
      const std::vector<std::string> logs{i == 0 ? small.path() : big.path()};
      const long before = testing_support::allocations();
      peak[i] = testing_support::peak_bytes_during([&] {
        trace_tools::output out(file);
        const std::string v = view;
        std::vector<std::string> failures;
        if (v == "summary") failures = trace_tools::write_summary(logs, out, {});
        if (v == "timeline") failures = trace_tools::write_timeline(logs, out, {});
        if (v == "flame") failures = trace_tools::write_flame(logs, out, {});
        EXPECT_TRUE(failures.empty());
      });
      allocations[i] = testing_support::allocations() - before;
      std::fclose(file);
    }
    EXPECT_LE(peak[1], peak[0] + 4096) << peak[0] << " for 2 MB";
    EXPECT_LE(allocations[1], allocations[0] + 16) << allocations[0] << " for 2 MB";
    EXPECT_LT(peak[0], 8u << 20);
  }
  // The summary still counted every call.
  const std::string table = summary_of({big.path()});
  EXPECT_EQ(table.find("lines that could not be read back: 0"), table.find("lines that could not"));
}

}  // namespace
