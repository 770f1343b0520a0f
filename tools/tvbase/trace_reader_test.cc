#include "trace_reader.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <tvbase/trace/test_support.h>

namespace {

using namespace std::string_literals;
using trace_tools::call_reader;
using trace_tools::line_kind;
using trace_tools::line_reader;
using trace_tools::log_line;
using trace_tools::parse_line;

// A line in a few words: kind, depth, name, text, and what else it carries.
std::string describe(const log_line& l) {
  std::string out;
  switch (l.kind) {
    case line_kind::enter: out = "enter"; break;
    case line_kind::exit: out = "exit"; break;
    case line_kind::text: out = "text"; break;
    case line_kind::unreadable: return "unreadable";
  }
  out += " " + std::to_string(l.depth) + " [" + std::string(l.name) + "]";
  if (l.kind != line_kind::exit) out += " [" + std::string(l.text) + "]";
  if (l.kind == line_kind::enter && !l.closed) out += " open";
  if (l.marked) out += " !";
  if (l.has_context) {
    char context[16];
    std::snprintf(context, sizeof context, " ctx=%08x", l.context);
    out += context;
  }
  if (l.context_changed) out += " changed";
  return out;
}

constexpr const char* kHead = "03/02/2026 09:05:07.012 00001a2c";

struct line_row {
  std::string line;
  std::string expected;
};

TEST(ParseLine, TellsEveryKindOfLine) {
  const std::string h = kHead;
  const line_row rows[] = {
      {h + " Foo( int(3), dword(7) )", "enter 0 [Foo] [int(3), dword(7)]"},
      {h + " Foo(  )", "enter 0 [Foo] []"},
      {h + "     Foo return", "exit 1 [Foo]"},
      {h + "!        Foo return", "exit 2 [Foo] !"},
      {h + "!    Foo( int(1) )", "enter 1 [Foo] [int(1)] !"},
      {h + "     Foo: a text: with a colon", "text 1 [Foo] [a text: with a colon]"},
      {h + "     Foo: it will return", "text 1 [Foo] [it will return]"},
      {h + "     Foo: ", "text 1 [Foo] []"},
      {h + "     Foo( \"ab", "enter 1 [Foo] [\"ab] open"},
      {h + " Foo( ", "enter 0 [Foo] [] open"},
      {h + " CFoo::Bar( int(1) )", "enter 0 [CFoo::Bar] [int(1)]"},
      {h + " operator()( int(1) )", "enter 0 [operator()] [int(1)]"},
      {h + " (  )", "enter 0 [] []"},
      {h + "       Foo return", "exit 1 [  Foo]"},
      {h + " Foo( \"a: b\", \"c( d\" )", "enter 0 [Foo] [\"a: b\", \"c( d\"]"},
      {"(0000abcd) " + h + " Foo(  )", "enter 0 [Foo] [] ctx=0000abcd"},
      {"(1234ABCD) " + h + "     Foo return !!! Activation context has changed !!!",
       "exit 1 [Foo] ctx=1234abcd changed"},
      {"03/02/2026 09:05:07.012 00001A2C Foo(  )", "enter 0 [Foo] []"},
      {"29/02/2024 23:59:60.999 ffffffff Foo(  )", "enter 0 [Foo] []"},
      // Not in the trace's shape.
      {"", "unreadable"},
      {"hello", "unreadable"},
      {h, "unreadable"},
      {h + " ", "unreadable"},
      {h + "     Foo", "unreadable"},
      {h + "     Foo returned", "unreadable"},
      {h + "?Foo(  )", "unreadable"},
      {h + "\tFoo(  )", "unreadable"},
      {"32/02/2026 09:05:07.012 00001a2c Foo(  )", "unreadable"},
      {"00/02/2026 09:05:07.012 00001a2c Foo(  )", "unreadable"},
      {"03/13/2026 09:05:07.012 00001a2c Foo(  )", "unreadable"},
      {"03/02/2026 24:05:07.012 00001a2c Foo(  )", "unreadable"},
      {"03/02/2026 09:60:07.012 00001a2c Foo(  )", "unreadable"},
      {"03/02/2026 09:05:61.012 00001a2c Foo(  )", "unreadable"},
      {"03/02/2026 09:05:07.01x 00001a2c Foo(  )", "unreadable"},
      {"03/02/2026 09:05:07,012 00001a2c Foo(  )", "unreadable"},
      {"03-02-2026 09:05:07.012 00001a2c Foo(  )", "unreadable"},
      {"03/02/2026 09:05:07.012 0001a2c Foo(  )", "unreadable"},
      {"03/02/2026 09:05:07.012 00001g2c Foo(  )", "unreadable"},
      {"3/02/2026 09:05:07.012 00001a2c Foo(  )", "unreadable"},
      {"(0000abc) " + h + " Foo(  )", "unreadable"},
      {"(0000abcd)" + h + " Foo(  )", "unreadable"},
      {"(0000abcd) garbage", "unreadable"},
      {"(0000abcd) ", "unreadable"},
      {" " + h + " Foo(  )", "unreadable"},
      // A NUL is a byte like any other.
      {h + " Fo\0o(  )"s, "enter 0 [Fo\0o] []"s},
  };
  for (const line_row& row : rows) {
    SCOPED_TRACE(row.line);
    EXPECT_EQ(describe(parse_line(row.line)), row.expected);
  }
}

TEST(ParseLine, ViewsNeedNoZeroBehindThem) {
  const std::string text = std::string(kHead) + " Foo( int(1) )";
  for (std::size_t n = 0; n <= text.size(); ++n) {
    // An exact-size copy: ASan sees any read past its end.
    const std::unique_ptr<char[]> copy(new char[n]);
    std::memcpy(copy.get(), text.data(), n);
    const log_line l = parse_line(std::string_view(copy.get(), n));
    EXPECT_EQ(l.length, n);
    if (n == text.size()) {
      EXPECT_EQ(describe(l), "enter 0 [Foo] [int(1)]");
    }
  }
}

// The library's days, months and leap years against those of <chrono>.
TEST(ParseLine, TimesCountDaysAcrossMonthsYearsAndMidnight) {
  using namespace std::chrono;
  const struct {
    int day, month, year, hour, minute, second, milli;
  } rows[] = {
      {1, 1, 1970, 0, 0, 0, 0},   {31, 12, 2025, 23, 59, 59, 999}, {1, 1, 2026, 0, 0, 0, 0},
      {28, 2, 2024, 12, 0, 0, 0}, {29, 2, 2024, 12, 0, 0, 0},      {1, 3, 2024, 12, 0, 0, 0},
      {1, 3, 2100, 0, 0, 0, 1},   {29, 2, 2000, 7, 8, 9, 10},      {31, 12, 1969, 23, 59, 59, 0},
      {1, 1, 0, 0, 0, 0, 0},      {31, 12, 9999, 23, 59, 59, 999}, {3, 2, 2026, 9, 5, 7, 12},
  };
  for (const auto& r : rows) {
    char text[96];
    std::snprintf(text, sizeof text, "%02d/%02d/%04d %02d:%02d:%02d.%03d 00000001 F(  )", r.day,
                  r.month, r.year, r.hour, r.minute, r.second, r.milli);
    SCOPED_TRACE(text);
    const log_line l = parse_line(text);
    ASSERT_EQ(l.kind, line_kind::enter);
    const sys_days day = year_month_day{year{r.year}, month{static_cast<unsigned>(r.month)},
                                        std::chrono::day{static_cast<unsigned>(r.day)}};
    const auto expected = duration_cast<milliseconds>(day.time_since_epoch()) + hours{r.hour} +
                          minutes{r.minute} + seconds{r.second} + milliseconds{r.milli};
    EXPECT_EQ(l.time_ms, expected.count());
    EXPECT_EQ(trace_tools::format_time(l.time_ms), std::string(text, 23));
  }
  // A day past the month's end counts on into the next month.
  EXPECT_EQ(parse_line("31/02/2026 00:00:00.000 00000001 F(  )").time_ms,
            parse_line("03/03/2026 00:00:00.000 00000001 F(  )").time_ms);
}

// Lines mostly share their second with the line before; each is read
// whole all the same.
TEST(ParseLine, LinesOfOneSecondInARow) {
  const struct {
    std::string line;
    long long ms;  // after 03/02/2026 09:05:07.000, or -1 for unreadable
  } rows[] = {
      {"03/02/2026 09:05:07.012 00000001 F(  )", 12},
      {"03/02/2026 09:05:07.999 00000001 F(  )", 999},
      {"03/02/2026 09:05:07.0x2 00000001 F(  )", -1},
      {"03/02/2026 09:05:07.013 0000000g F(  )", -1},
      {"03/02/2026 09:05:07.013 00000001?F(  )", -1},
      {"03/02/2026 09:05:07,013 00000001 F(  )", -1},
      {"03/02/2026 09:05:07.013 00000001 F(  )", 13},
      {"03/02/2026 09:05:08.000 00000001 F(  )", 1000},
      {"04/02/2026 09:05:07.000 00000001 F(  )", 86400000},
      {"03/02/2026 09:05:07.000 00000001 F(  )", 0},
      {"03/02/2026 09:05:7a.000 00000001 F(  )", -1},
      {"03/02/2026 09:05:07.001 00000001 F(  )", 1},
  };
  const std::int64_t base = parse_line("03/02/2026 09:05:07.000 00000001 F(  )").time_ms;
  for (const auto& row : rows) {
    SCOPED_TRACE(row.line);
    const log_line l = parse_line(row.line);
    if (row.ms < 0) {
      EXPECT_EQ(l.kind, line_kind::unreadable);
    } else {
      ASSERT_EQ(l.kind, line_kind::enter);
      EXPECT_EQ(l.time_ms - base, row.ms);
    }
  }
}

struct split_row {
  std::string line;
  std::size_t expected;
};

TEST(EmbeddedLine, FindsAnotherThreadsLineInside) {
  const std::string a = "03/02/2026 09:05:07.012 00001a2c     Foo: text of a";
  const std::string b = "03/02/2026 09:05:07.013 00001b00 Bar( int(1) )";
  const std::string pa = "(00000000) " + a, pb = "(00000000) " + b;
  constexpr std::size_t npos = std::string::npos;
  const split_row rows[] = {
      {a + b, a.size()},
      {pa + pb, pa.size()},
      {a + "x/y/z " + b, a.size() + 6},
      {a, npos},
      {b, npos},
      // A date in a text is no line unless a whole line follows it.
      {a + " 03/02/2026 09:05:07", npos},
      {a + " 03/02/2026 09:05:07.013 00001b00 ", npos},
      {a + " 03/02/2026 09:05:07.013 00001b00 Bar", npos},
      // Without the prefix that the first line has, the second is no line.
      {pa + b, npos},
      // A line that doesn't start with a head is not taken apart.
      {"junk " + b, npos},
      {"", npos},
      {b.substr(0, 20), npos},
  };
  for (const split_row& row : rows) {
    SCOPED_TRACE(row.line);
    EXPECT_EQ(trace_tools::embedded_line(row.line), row.expected);
  }
}

// --- line_reader -------------------------------------------------------------------

// A file holding `bytes`, read back from its start; closed at the end of the
// scope.
// A file holding `bytes`, open for reading from its start. (Not tmpfile():
// the C run-time of Windows makes it in the root of the drive, which only
// an administrator may write.)
struct temp_file {
  explicit temp_file(const std::string& bytes)
      : file(std::fopen((dir.path() + "lines").c_str(), "w+b")) {
    if (file == nullptr) throw std::runtime_error("no file in " + dir.path());
    std::fwrite(bytes.data(), 1, bytes.size(), file);
    std::rewind(file);
  }
  ~temp_file() { std::fclose(file); }
  trace_test::temp_dir dir;
  std::FILE* file;
};

std::vector<std::string> all_lines(const std::string& bytes, std::size_t block,
                                   line_reader::counts* counts = nullptr) {
  temp_file f(bytes);
  line_reader reader(f.file, nullptr, block);
  std::vector<std::string> lines;
  std::string_view line;
  while (reader.next(line)) lines.emplace_back(line);
  EXPECT_FALSE(reader.failed());
  EXPECT_EQ(reader.bytes_read(), bytes.size());
  if (counts != nullptr) *counts = reader.totals();
  return lines;
}

struct reader_row {
  std::string name;
  std::string bytes;
  std::vector<std::string> lines;
  std::uint64_t overlong = 0, separated = 0, unterminated = 0;
};

TEST(LineReader, GivesTheLinesWhateverTheBlockSize) {
  const std::string a = "03/02/2026 09:05:07.012 00001a2c     Foo: a";
  const std::string b = "03/02/2026 09:05:07.012 00001b00 Bar(  )";
  const std::string c = "03/02/2026 09:05:07.013 00001a2c     Foo return";
  const std::string lng(trace_tools::kReadLimit, 'y');
  const reader_row rows[] = {
      {"empty file", "", {}},
      {"CR LF", "a\r\nb\r\n", {"a", "b"}},
      {"LF alone", "a\nb\n", {"a", "b"}},
      {"an empty line", "\r\n", {""}},
      {"no line end at the end", "a\r\nb", {"a", "b"}, 0, 0, 1},
      {"a CR at the very end", "a\r\nb\r", {"a", "b"}, 0, 0, 1},
      {"a LF inside a CR LF line", "a\r\nx\ny\r\n", {"a", "x\ny"}},
      {"a CR inside a line", "a\rb\r\n", {"a\rb"}},
      {"a CR LF line in a LF log", "a\nb\r\nc\n", {"a", "b", "c"}},
      {"lines run together", a + b + "\r\n\r\n" + c + "\r\n", {a, b, c}, 0, 1},
      {"three run together", a + b + c + "\r\n\r\n\r\n" + "z\r\n", {a, b, c, "z"}, 0, 2},
      {"a lone empty line stays", a + "\r\n\r\n" + c + "\r\n", {a, "", c}},
      {"the longest line", lng + "\r\nb\r\n", {lng, "b"}},
      {"one too long", lng + "yy\r\nb\r\n", {"b"}, 1},
      {"one too long, LF", lng + "yyyyy\nb\n", {"b"}, 1},
      {"far too long", std::string(3 * trace_tools::kReadLimit, 'z') + "\r\nb\r\n", {"b"}, 1},
      {"too long at the end", "a\r\n" + std::string(2 * trace_tools::kReadLimit, 'z'), {"a"}, 1},
  };
  for (const reader_row& row : rows) {
    for (const std::size_t block : {1, 2, 3, 7, 64, 1 << 20}) {
      SCOPED_TRACE(row.name + ", block " + std::to_string(block));
      line_reader::counts counts;
      EXPECT_EQ(all_lines(row.bytes, block, &counts), row.lines);
      EXPECT_EQ(counts.lines, row.lines.size());
      EXPECT_EQ(counts.overlong, row.overlong);
      EXPECT_EQ(counts.separated, row.separated);
      EXPECT_EQ(counts.unterminated, row.unterminated);
    }
  }
}

TEST(LineReader, ReportsProgressUpToTheFileSize) {
  std::string bytes;
  for (int i = 0; i < 1000; ++i) bytes += "line " + std::to_string(i) + "\r\n";
  temp_file f(bytes);
  std::vector<std::uint64_t> seen;
  line_reader reader(
      f.file, [&seen](std::uint64_t done) { seen.push_back(done); }, 1000);
  std::string_view line;
  std::size_t lines = 0;
  while (reader.next(line)) ++lines;
  EXPECT_EQ(lines, 1000u);
  ASSERT_FALSE(seen.empty());
  EXPECT_TRUE(std::is_sorted(seen.begin(), seen.end()));
  EXPECT_EQ(seen.back(), bytes.size());
  EXPECT_GE(seen.size(), bytes.size() / (1000 + trace_tools::kReadLimit + 1));
}

TEST(LineReader, AFolderFailsToRead) {
  trace_test::temp_dir dir;
  std::FILE* folder = std::fopen(dir.path().c_str(), "rb");
  if (folder == nullptr) GTEST_SKIP() << "this system doesn't open folders as files";
  line_reader reader(folder);
  std::string_view line;
  EXPECT_FALSE(reader.next(line));
  EXPECT_TRUE(reader.failed());
  std::fclose(folder);
}

// --- call_reader ---------------------------------------------------------------------

// A log line at `ms` milliseconds after 03/02/2026 09:05:07.000 on thread
// `thread`, at `depth`, with `mark` and then `rest` ("Foo(  )", "Foo return",
// "Foo: text").
std::string at(int ms, int thread, int depth, const std::string& rest, char mark = ' ') {
  char head[64];
  std::snprintf(head, sizeof head, "03/02/2026 09:05:%02d.%03d %08x%c", 7 + ms / 1000, ms % 1000,
                thread, mark);
  return head + std::string(4 * static_cast<std::size_t>(depth), ' ') + rest;
}

// Writes what the reader gives, one string per event.
struct recorder {
  std::vector<std::string> events;
  std::int64_t next_tag = 100;

  void on_thread(std::uint32_t thread) { events.push_back("thread " + std::to_string(thread)); }
  std::int64_t on_enter(const trace_tools::call& c, std::int64_t parent) {
    events.push_back("enter " + std::string(c.name) + " parent " + std::to_string(parent));
    return next_tag++;
  }
  void on_call(const trace_tools::call& c) {
    std::string e = std::string(c.name) + " " + std::to_string(c.start_ms % 60000 - 7000) + "-" +
                    std::to_string(c.end_ms % 60000 - 7000) + " d" + std::to_string(c.depth) +
                    " t" + std::to_string(c.thread) + " [" + std::string(c.parameters) + "]";
    if (c.children_ms > 0) e += " children " + std::to_string(c.children_ms);
    if (c.self() != c.duration()) e += " self " + std::to_string(c.self());
    if (!c.returned) e += " no-return";
    if (c.exception) e += " !";
    if (c.recursive) e += " recursive";
    if (c.parameters_cut) e += " cut";
    e += " tag " + std::to_string(c.tag);
    events.push_back(e);
  }
  void on_note(const trace_tools::note& n) {
    events.push_back("note " + std::string(n.name) + ": " + std::string(n.text));
  }
};

struct calls_row {
  std::string name;
  std::vector<std::string> lines;
  std::vector<std::string> events;
  std::uint64_t unmatched = 0, unreturned = 0, unreadable = 0;
};

std::vector<std::string> only_calls(const std::vector<std::string>& events) {
  std::vector<std::string> calls;
  for (const std::string& e : events) {
    if (!e.starts_with("enter ") && !e.starts_with("thread ")) calls.push_back(e);
  }
  return calls;
}

TEST(CallReader, PairsEnterAndReturnLinesByIndent) {
  const calls_row rows[] = {
      {"nested calls",
       {at(0, 1, 0, "A( int(1) )"), at(1, 1, 1, "B(  )"), at(3, 1, 2, "B return"),
        at(4, 1, 1, "A return")},
       {"B 1-3 d2 t1 [] tag 101", "A 0-4 d1 t1 [int(1)] children 2 self 2 tag 100"}},
      {"an exception on the way out",
       {at(0, 1, 0, "A(  )"), at(1, 1, 1, "B(  )"), at(2, 1, 2, "B return", '!'),
        at(2, 1, 1, "A return", '!')},
       {"B 1-2 d2 t1 [] ! tag 101", "A 0-2 d1 t1 [] children 1 self 1 ! tag 100"}},
      {"a callee of a class that is switched off",
       {at(0, 1, 0, "A(  )"), at(1, 1, 2, "C(  )"), at(2, 1, 3, "C return"),
        at(5, 1, 1, "A return")},
       {"C 1-2 d3 t1 [] tag 101", "A 0-5 d1 t1 [] children 1 self 4 tag 100"}},
      {"a lost return line ends the call at the caller's return",
       {at(0, 1, 0, "A(  )"), at(1, 1, 1, "B(  )"), at(6, 1, 1, "A return")},
       {"B 1-6 d2 t1 [] no-return tag 101", "A 0-6 d1 t1 [] children 5 self 1 tag 100"},
       0,
       1},
      {"an enter at an open call's indent ends that call",
       {at(0, 1, 0, "A(  )"), at(2, 1, 0, "A(  )"), at(3, 1, 1, "A return")},
       {"A 0-2 d1 t1 [] no-return tag 100", "A 2-3 d1 t1 [] tag 101"},
       0,
       1},
      {"a text line further out ends the calls above it",
       {at(0, 1, 0, "A(  )"), at(1, 1, 1, "B(  )"), at(4, 1, 1, "A: after B"),
        at(5, 1, 1, "A return")},
       {"B 1-4 d2 t1 [] no-return tag 101", "note A: after B",
        "A 0-5 d1 t1 [] children 3 self 2 tag 100"},
       0,
       1},
      {"a text line of the call itself ends nothing",
       {at(0, 1, 0, "A(  )"), at(1, 1, 1, "A: inside"), at(2, 1, 1, "A return")},
       {"note A: inside", "A 0-2 d1 t1 [] tag 100"}},
      {"a return without its call",
       {at(0, 1, 1, "B return"), at(1, 1, 0, "A(  )"), at(2, 1, 1, "A return")},
       {"A 1-2 d1 t1 [] tag 100"},
       1},
      {"a return of another name leaves the call open",
       {at(0, 1, 0, "A(  )"), at(1, 1, 1, "B return"), at(3, 1, 1, "A: still here")},
       {"note A: still here", "A 0-3 d1 t1 [] no-return tag 100"},
       1,
       1},
      {"a return at indent 0 can't end a call",
       {at(0, 1, 0, "A(  )"), at(1, 1, 0, "A return")},
       {"A 0-1 d1 t1 [] no-return tag 100"},
       1,
       1},
      {"recursion",
       {at(0, 1, 0, "R( int(2) )"), at(1, 1, 1, "R( int(1) )"), at(2, 1, 2, "R( int(0) )"),
        at(3, 1, 3, "R return"), at(4, 1, 2, "R return"), at(5, 1, 1, "R return")},
       {"R 2-3 d3 t1 [int(0)] recursive tag 102",
        "R 1-4 d2 t1 [int(1)] children 1 self 2 recursive tag 101",
        "R 0-5 d1 t1 [int(2)] children 3 self 2 tag 100"}},
      {"threads interleaved",
       {at(0, 1, 0, "A(  )"), at(1, 2, 0, "B(  )"), at(2, 1, 1, "A return"), at(3, 2, 1, "B: text"),
        at(4, 2, 1, "B return")},
       {"A 0-2 d1 t1 [] tag 100", "note B: text", "B 1-4 d1 t2 [] tag 101"}},
      {"open calls end at the last time of their own thread",
       {at(0, 1, 0, "A(  )"), at(1, 2, 0, "B(  )"), at(3, 1, 1, "A: late"), at(9, 2, 1, "B: later"),
        at(1, 1, 1, "A: the clock went back")},
       {"note A: late", "note B: later", "note A: the clock went back",
        "A 0-3 d1 t1 [] no-return tag 100", "B 1-9 d1 t2 [] no-return tag 101"},
       0,
       2},
      {"a clock set back gives no negative time",
       {at(5, 1, 0, "A(  )"), at(1, 1, 1, "B(  )"), at(0, 1, 2, "B return"),
        at(2, 1, 1, "A return")},
       {"B 1-0 d2 t1 [] tag 101", "A 5-2 d1 t1 [] tag 100"}},
      {"a cut enter line",
       {at(0, 1, 0, "A( \"abc"), at(1, 1, 1, "A return")},
       {"A 0-1 d1 t1 [\"abc] cut tag 100"}},
      {"unreadable lines change nothing",
       {at(0, 1, 0, "A(  )"), "garbage", at(1, 1, 1, "B return") + "x", "",
        at(2, 1, 1, "A return")},
       {"A 0-2 d1 t1 [] tag 100"},
       0,
       0,
       3},
  };
  for (const calls_row& row : rows) {
    SCOPED_TRACE(row.name);
    call_reader reader;
    recorder r;
    for (const std::string& line : row.lines) reader.feed(parse_line(line), r);
    reader.finish(r);
    EXPECT_EQ(only_calls(r.events), row.events);
    EXPECT_EQ(reader.totals().unmatched_returns, row.unmatched);
    EXPECT_EQ(reader.totals().unreturned, row.unreturned);
    EXPECT_EQ(reader.totals().unreadable, row.unreadable);
    EXPECT_EQ(reader.totals().lines, row.lines.size());
  }
}

TEST(CallReader, GivesEachCallItsCallersTag) {
  call_reader reader;
  recorder r;
  for (const std::string& line : {at(0, 1, 0, "A(  )"), at(0, 1, 1, "B(  )"), at(0, 2, 0, "C(  )"),
                                  at(0, 1, 2, "B return"), at(0, 1, 1, "D(  )")}) {
    reader.feed(parse_line(line), r);
  }
  const std::vector<std::string> expected = {
      "thread 1",          "enter A parent -1",      "enter B parent 100", "thread 2",
      "enter C parent -1", "B 0-0 d2 t1 [] tag 101", "enter D parent 100"};
  EXPECT_EQ(r.events, expected);
}

TEST(CallReader, KeepsToItsLimitsAndCountsWhatItLeftOut) {
  call_reader::limits limits;
  limits.depth = 2;
  limits.functions = 2;
  limits.threads = 1;
  limits.parameter_bytes = 5;
  limits.name_bytes = 4;
  call_reader reader(limits);
  recorder r;
  for (const std::string& line : {
           at(0, 1, 0, "Alpha( abc )"),       // the name is told by "Alph"
           at(1, 1, 1, "Alphabet( defgh )"),  // the same name; only "de" of the budget is left
           at(2, 1, 2, "Cee(  )"),            // deeper than 2: left out
           at(3, 1, 3, "Cee return"),         // so its return ends nothing
           at(4, 1, 2, "Alphx return"),
           at(5, 2, 0, "Other(  )"),  // a second thread: left out
           at(6, 1, 1, "Alpha return"),
           at(7, 1, 0, "Beta(  )"),
           at(8, 1, 1, "Beta return"),
           at(9, 1, 0, "Gamma(  )"),  // a third name: pooled
           at(10, 1, 1, "Gamma return"),
       }) {
    reader.feed(parse_line(line), r);
  }
  reader.finish(r);
  const std::vector<std::string> expected = {
      "Alph 1-4 d2 t1 [de] recursive cut tag 101",
      "Alph 0-6 d1 t1 [abc] children 3 self 3 tag 100",
      "Beta 7-8 d1 t1 [] tag 102",
      "(other functions) 9-10 d1 t1 [] tag 103",
  };
  EXPECT_EQ(only_calls(r.events), expected);
  const call_reader::counts& n = reader.totals();
  EXPECT_EQ(n.dropped_calls, 1u);
  EXPECT_EQ(n.unmatched_returns, 1u);
  EXPECT_EQ(n.dropped_lines, 1u);
  EXPECT_EQ(n.pooled_calls, 1u);
  EXPECT_EQ(n.cut_parameters, 1u);
  EXPECT_EQ(reader.thread_count(), 1u);
  EXPECT_EQ(reader.function_count(), 3u);  // Alph, Beta and the pool
}

TEST(CallReader, OpenCallsOfAllThreadsHaveALimit) {
  call_reader::limits limits;
  limits.open_calls = 3;
  call_reader reader(limits);
  recorder r;
  for (const std::string& line :
       {at(0, 1, 0, "A(  )"), at(0, 2, 0, "B(  )"), at(0, 1, 1, "C(  )"), at(0, 2, 1, "D(  )"),
        at(1, 1, 2, "C return"), at(2, 2, 1, "E(  )"), at(3, 2, 2, "E return")}) {
    reader.feed(parse_line(line), r);
  }
  reader.finish(r);
  // D is one too many; once C has ended, E has room.
  const std::vector<std::string> expected = {"C 0-1 d2 t1 [] tag 102", "E 2-3 d2 t2 [] tag 103",
                                             "A 0-1 d1 t1 [] children 1 self 0 no-return tag 100",
                                             "B 0-3 d1 t2 [] children 1 self 2 no-return tag 101"};
  EXPECT_EQ(only_calls(r.events), expected);
  EXPECT_EQ(reader.totals().dropped_calls, 1u);
}

TEST(CallReader, StartsEachLogAfreshButKeepsTheNames) {
  call_reader reader;
  recorder r;
  reader.feed(parse_line(at(0, 1, 0, "A(  )")), r);
  reader.finish(r);
  reader.start_log();
  EXPECT_EQ(reader.thread_count(), 0u);
  EXPECT_EQ(reader.totals().lines, 0u);
  reader.feed(parse_line(at(0, 1, 0, "B(  )")), r);
  reader.feed(parse_line(at(0, 1, 0, "A(  )")), r);
  EXPECT_EQ(reader.function_count(), 2u);
  EXPECT_EQ(reader.name(0), "A");
  EXPECT_EQ(reader.name(1), "B");
}

// --- log names -----------------------------------------------------------------------

TEST(ParseLogName, TakesTheProgramAndProcessFromTheTracesNames) {
  const struct {
    std::string path;
    std::string expected;  // "program pid", or "-"
  } rows[] = {
      {"app.exe.4242 03-02-2026 09.05.07.012.log", "app.exe 4242"},
      {"/tmp/logs/traced_app.7 23-11-2026 22.10.42.629.log", "traced_app 7"},
      {"c:\\logs\\app.1 03-02-2026 09.05.07.012.log", "app 1"},
      {"a.b.c.123 03-02-2026 09.05.07.012.log", "a.b.c 123"},
      {"app.4242 03-02-2026 09.05.07.012.txt", "-"},
      {"app.4242 03-02-2026 09.05.07.01.log", "-"},
      {"app.4242_03-02-2026 09.05.07.012.log", "-"},
      {"app.42x2 03-02-2026 09.05.07.012.log", "-"},
      {"app. 03-02-2026 09.05.07.012.log", "-"},
      {".4242 03-02-2026 09.05.07.012.log", "-"},
      {"4242 03-02-2026 09.05.07.012.log", "-"},
      {"app.123456789012 03-02-2026 09.05.07.012.log", "-"},
      {" 03-02-2026 09.05.07.012.log", "-"},
      {"", "-"},
      {"trace.log", "-"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.path);
    const auto name = trace_tools::parse_log_name(row.path);
    EXPECT_EQ(name ? name->program + " " + std::to_string(name->pid) : "-", row.expected);
  }
}

}  // namespace
