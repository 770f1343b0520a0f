#include <tvbase/trace/func_log.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <tvbase/frame/shared_data.h>
#include <tvbase/frame/thread_slot.h>
#include <tvbase/platform/file.h>
#include <tvbase/platform/process.h>
#include <tvbase/testing/allocation_counter.h>
#include <tvbase/testing/processes.h>
#include <tvbase/testing/system_objects.h>
#include <tvbase/trace/log_cfg.h>
#include <tvbase/trace/log_sink.h>
#include <tvbase/trace/test_support.h>
#include <tvbase/trace/thread_state.h>

namespace {

// True if `text` has the shape `shape` character by character: 'd' stands for
// a decimal digit, 'h' for a lower-case hex digit, anything else for itself.
bool has_shape(std::string_view text, std::string_view shape) {
  if (text.size() != shape.size()) return false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    const bool digit = c >= '0' && c <= '9';
    const bool ok = shape[i] == 'd'   ? digit
                    : shape[i] == 'h' ? digit || (c >= 'a' && c <= 'f')
                                      : c == shape[i];
    if (!ok) return false;
  }
  return true;
}

// The head of a line: date, time and thread number.
constexpr std::string_view kHeadShape = "dd/dd/dddd dd:dd:dd.ddd hhhhhhhh";

using trace_test::temp_dir;

// Parameter types streamed in the way the typed formatters do it.
struct Item {
  const char* text;
};
const TvFuncLog& operator<<(const TvFuncLog& log, const Item& item) {
  return log.WriteAppend(item.text);
}
struct Number {
  int value;
};
const TvFuncLog& operator<<(const TvFuncLog& log, const Number& n) {
  return log.WriteAppendFormat("int(%d)", n.value);
}
// A pointer prefix: the next item continues it without a separator.
struct Pointer {
  const char* prefix;
};
const TvFuncLog& operator<<(const TvFuncLog& log, const Pointer& p) {
  log.WriteAppend(p.prefix);
  trace::ThreadState()->glue = true;
  return log;
}

constexpr std::size_t kHead = 32;  // "03/02/2026 09:05:07.012 00001a2c"

// Every test writes through a sink of its own, into a temporary file.
class TraceTest : public ::testing::Test {
 protected:
  void SetUp() override {
    path_ = dir_.path() + "trace.log";
    sink_.file = platform::create_log_file(path_.c_str());
    ASSERT_GE(sink_.file, 0);
    sink_.enabled[0] = sink_.enabled[1] = true;
    before_ = trace::UseSink(&sink_);
    ASSERT_NE(trace::ThreadState(), nullptr);
    depth_ = trace::ThreadState()->depth;
  }
  void TearDown() override {
    trace::UseSink(before_);
    platform::close_file(sink_.file);
    platform::set_activation_context_stand_in(0, false);
    EXPECT_EQ(trace::ThreadState()->depth, depth_) << "depth not balanced";
  }

  std::string text() const { return trace_test::read_file(path_); }

  // The lines written so far, each without its date, time and thread, which
  // are checked here.
  std::vector<std::string> tails(std::size_t prefix = 0) const {
    std::vector<std::string> out;
    const std::string all = text();
    EXPECT_TRUE(all.empty() || all.ends_with("\r\n"));
    char thread[9];
    std::snprintf(thread, sizeof thread, "%08x", platform::thread_id());
    for (const std::string& line : trace_test::split_lines(all, "\r\n")) {
      if (line.size() < prefix + kHead) {
        out.push_back("<short> " + line);
        continue;
      }
      const std::string head = line.substr(prefix, kHead);
      EXPECT_TRUE(has_shape(head, kHeadShape)) << head;
      EXPECT_EQ(head.substr(24), thread);
      out.push_back(line.substr(0, prefix) + line.substr(prefix + kHead));
    }
    return out;
  }

  // An empty log file in place of the one the sink writes to.
  void restart_log() {
    platform::close_file(sink_.file);
    sink_.file = platform::create_log_file(path_.c_str());
    ASSERT_GE(sink_.file, 0);
  }

  temp_dir dir_;
  std::string path_;
  TvLogSink sink_;
  TvLogSink* before_ = nullptr;
  int depth_ = 0;
};

void Inner() {
  TvFuncLog log("Inner");
  log.WriteLine("inside");
}

void Outer() {
  TvFuncLog log("Outer");
  Inner();
  log.WriteLineFormat("n=%d", 5);
}

TEST_F(TraceTest, LineLayouts) {
  const struct {
    const char* what;
    bool enabled0, enabled1;
    std::function<void()> body;
    std::vector<std::string> expected;
  } rows[] = {
      {"nested calls",
       true,
       true,
       Outer,
       {" Outer(  )", "     Inner(  )", "         Inner: inside", "         Inner return",
        "     Outer: n=5", "     Outer return"}},
      {"parameters",
       true,
       true,
       [] { TvFuncLog log("F", TvFuncLog::eLogFilter0, Item{"a"}, Number{2}, Item{"c"}); },
       {" F( a, int(2), c )", "     F return"}},
      {"one parameter",
       true,
       true,
       [] { TvFuncLog log("F", TvFuncLog::eLogFilter1, Number{-1}); },
       {" F( int(-1) )", "     F return"}},
      {"pointer prefix glues",
       true,
       true,
       [] {
         TvFuncLog log("P", TvFuncLog::eLogFilter0, Item{"a"}, Pointer{"0012ff00->"}, Number{5},
                       Pointer{"0012ff04->"}, Item{"x"});
       },
       {" P( a, 0012ff00->int(5), 0012ff04->x )", "     P return"}},
      {"pointer first",
       true,
       true,
       [] { TvFuncLog log("P", TvFuncLog::eLogFilter0, Pointer{"00000000->"}, Item{"?"}); },
       {" P( 00000000->? )", "     P return"}},
      {"disabled class: text only",
       true,
       false,
       [] {
         TvFuncLog log("Quiet", TvFuncLog::eLogFilter1);
         log.WriteLine("still");
       },
       {"     Quiet: still"}},
      {"filter 7 is class 0",
       true,
       false,
       [] { TvFuncLog log("Seven", static_cast<TvFuncLog::eLogFilter>(7)); },
       {" Seven(  )", "     Seven return"}},
      {"class 0 disabled", false, true, [] { TvFuncLog log("Zero"); }, {}},
      {"depth comes back after a disabled call",
       false,
       true,
       [] {
         { TvFuncLog quiet("Quiet"); }
         TvFuncLog log("Loud", TvFuncLog::eLogFilter1);
       },
       {" Loud(  )", "     Loud return"}},
      {"exception in flight",
       true,
       true,
       [] {
         try {
           TvFuncLog log("Thrower");
           throw std::runtime_error("x");
         } catch (const std::runtime_error&) {
           TvFuncLog after("Catcher");
         }
       },
       {" Thrower(  )", "!    Thrower return", " Catcher(  )", "     Catcher return"}},
      {"explicit lines",
       true,
       true,
       [] {
         TvFuncLog log;  // inert: made without EnterFunc
         log.WriteLine("nothing");
         TvFuncLog named("N", TvFuncLog::eLogFilter0);
         named.LogFuncAndParm();
         named.WriteLineFormat("%s|%5.1f|%x", "s", 2.25, 255u);
       },
       {" N(  )", " N(  )", "     N: s|  2.2|ff", "     N return"}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    ASSERT_NO_FATAL_FAILURE(restart_log());
    sink_.enabled[0] = row.enabled0;
    sink_.enabled[1] = row.enabled1;
    row.body();
    EXPECT_EQ(tails(), row.expected);
    EXPECT_EQ(trace::ThreadState()->depth, depth_);
  }
}

TEST_F(TraceTest, LineLimits) {
  const std::string long_text(9000, 'x');
  const std::string name_fits(8191 - 33, 'n');  // the head fills the line
  const std::string name_over(8191 - 32, 'n');  // one more: dropped whole
  const std::string items(8150, 'a');           // leaves room for ", " and 3 more
  const struct {
    const char* what;
    std::function<void()> body;
    std::size_t index;     // of the line looked at
    std::string expected;  // after the head's first 32 characters
    std::size_t length;    // of the whole line
  } rows[] = {
      {"plain text is cut", [&] { TvFuncLog("T").WriteLine(long_text.c_str()); }, 1,
       "     T: " + long_text.substr(0, 8191 - 40), 8191},
      {"formatted item is dropped",
       [&] { TvFuncLog("T").WriteLineFormat("%s", long_text.c_str()); }, 1, "     T: ", 40},
      {"head that just fits", [&] { TvFuncLog log(name_fits.c_str()); }, 0, " " + name_fits, 8191},
      {"head one over", [&] { TvFuncLog log(name_over.c_str()); }, 0, "", 4},
      {"formatted parameter dropped, separator kept",
       [&] { TvFuncLog log("F", TvFuncLog::eLogFilter0, Item{items.c_str()}, Number{123456789}); },
       0, " F( " + items + ",  )", 32 + 4 + 8150 + 4},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    ASSERT_NO_FATAL_FAILURE(restart_log());
    row.body();
    const std::vector<std::string> lines = trace_test::split_lines(text(), "\r\n");
    ASSERT_GT(lines.size(), row.index);
    const std::string& line = lines[row.index];
    EXPECT_EQ(line.size(), row.length);
    if (row.length == 4) {
      EXPECT_EQ(line, "(  )") << "only what follows the head";
    } else {
      EXPECT_EQ(line.substr(kHead), row.expected);
    }
  }
}

TEST_F(TraceTest, DeepCallsDropTheHead) {
  const struct {
    int depth;
    bool head_kept;
  } rows[] = {{2000, true}, {2038, true}, {2039, false}, {100000, false}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.depth);
    ASSERT_NO_FATAL_FAILURE(restart_log());
    TvFuncLog log("Deep");
    TvLogThreadState& state = *trace::ThreadState();
    const int kept = state.depth;
    state.depth = row.depth;  // head: 33 + 4 * depth + 4 of 8,191 characters
    log.WriteLine("tail");
    state.depth = kept;
    const std::vector<std::string> lines = trace_test::split_lines(text(), "\r\n");
    ASSERT_EQ(lines.size(), 2u);
    if (row.head_kept) {
      EXPECT_EQ(lines[1].substr(kHead, 1 + 4 * row.depth + 4),
                std::string(1 + 4 * row.depth, ' ') + "Deep");
    } else {
      EXPECT_EQ(lines[1], ": tail");
    }
  }
}

TEST_F(TraceTest, ActivationContext) {
  sink_.actCtx = true;
  const struct {
    const char* what;
    std::uint32_t enter, exit;
    bool enter_fails, exit_fails;
    std::vector<std::string> expected;
  } rows[] = {
      {"unchanged", 0x11, 0x11, false, false, {"(00000011)  F(  )", "(00000011)      F return"}},
      {"changed",
       0x11,
       0x22,
       false,
       false,
       {"(00000011)  F(  )", "(00000022)      F return !!! Activation context has changed !!!"}},
      {"failing", 0, 0, true, true, {"(abcd9876)  F(  )", "(abcd9876)      F return"}},
      {"failing at the end",
       0xABCD9876,
       0,
       false,
       true,
       {"(abcd9876)  F(  )", "(abcd9876)      F return"}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    ASSERT_NO_FATAL_FAILURE(restart_log());
    platform::set_activation_context_stand_in(row.enter, row.enter_fails);
    {
      TvFuncLog log("F");
      platform::set_activation_context_stand_in(row.exit, row.exit_fails);
    }
    EXPECT_EQ(tails(11), row.expected);
  }
}

TEST_F(TraceTest, DebugEcho) {
  const std::string echo_path = dir_.path() + "stderr";
  sink_.debugEcho = true;
  const std::string echoed =
      testing_support::capture_debug_output(echo_path, [] { TvFuncLog("E").WriteLine("hi"); });
  const std::vector<std::string> echo_lines = trace_test::split_lines(echoed, "\n");
  const std::vector<std::string> file_lines = trace_test::split_lines(text(), "\r\n");
  ASSERT_EQ(echo_lines.size(), 3u);
  EXPECT_EQ(echo_lines, file_lines) << "the same lines, ended by LF only";
  EXPECT_EQ(echoed.find('\r'), std::string::npos);

  TvLogSink no_file = sink_;
  no_file.file = -1;
  trace::UseSink(&no_file);
  EXPECT_EQ(
      testing_support::capture_debug_output(echo_path, [] { TvFuncLog("E").WriteLine("hi"); }), "");
  trace::UseSink(&sink_);
}

TEST_F(TraceTest, WithoutAFileNothingIsWrittenButDepthIsKept) {
  TvLogSink no_file = sink_;
  no_file.file = -1;
  trace::UseSink(&no_file);
  {
    TvFuncLog log("F");
    EXPECT_FALSE(log.IsEnabled());
    EXPECT_EQ(trace::ThreadState()->depth, depth_ + 1);
    log.WriteLine("formatted, not written");
    EXPECT_EQ(trace::ThreadState()->length, 0u);
  }
  trace::UseSink(&sink_);
  EXPECT_EQ(text(), "");
}

TEST_F(TraceTest, AssignmentCopiesTheScope) {
  {
    TvFuncLog first("A");
    TvFuncLog second;
    EXPECT_FALSE(second.IsEnabled());
    second = first;
    EXPECT_TRUE(second.IsEnabled());
    trace::ThreadState()->depth += 1;  // both end the scope
  }
  EXPECT_EQ(tails(), (std::vector<std::string>{" A(  )", "         A return", "     A return"}));
}

TEST_F(TraceTest, ThreadsWriteWholeLines) {
  constexpr int kLines = 500;
  const auto work = [] {
    for (int i = 0; i < kLines; ++i) {
      TvFuncLog log("Worker", TvFuncLog::eLogFilter0, Number{i});
    }
  };
  std::thread a(work), b(work);
  a.join();
  b.join();
  const std::vector<std::string> lines = trace_test::split_lines(text(), "\r\n");
  ASSERT_EQ(lines.size(), 4u * kLines);
  for (const std::string& line : lines) {
    const std::string_view rest =
        std::string_view(line).substr(std::min(line.size(), kHeadShape.size()));
    const bool worker_line = rest.starts_with(" Worker( int(") && rest.ends_with(") )") &&
                             rest.find_first_not_of("0123456789", 13) == rest.size() - 3 &&
                             rest.size() > 16;
    ASSERT_TRUE(has_shape(std::string_view(line).substr(0, kHeadShape.size()), kHeadShape) &&
                (worker_line || rest == "     Worker return"))
        << line;
  }
}

TEST_F(TraceTest, NoAllocationAfterTheFirstCall) {
  if (!testing_support::allocations_counted()) GTEST_SKIP() << "operator new is not counted";
  TvLogSink off = sink_;
  off.file = -1;
  const struct {
    const char* what;
    TvLogSink* sink;
  } rows[] = {{"trace off", &off}, {"trace on", &sink_}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    trace::UseSink(row.sink);
    long states = -1, allocations = -1;
    std::thread([&] {
      { TvFuncLog first("First"); }  // makes the thread's state
      states = trace::LiveThreadStates();
      allocations = testing_support::allocations();
      for (int i = 0; i < 100; ++i) {
        TvFuncLog log("F", TvFuncLog::eLogFilter0, Number{i});
        log.WriteLineFormat("%d", i);
      }
      states = trace::LiveThreadStates() - states;
      allocations = testing_support::allocations() - allocations;
    }).join();
    EXPECT_EQ(states, 0);
    EXPECT_EQ(allocations, 0);
  }
  trace::UseSink(&sink_);
}

TEST(ThreadState, NeverTracedThreadHasNothingToFree) {
  const long live = trace::LiveThreadStates();
  void* seen = reinterpret_cast<void*>(7);
  std::thread([&] { seen = frame::thread_slot_value(); }).join();
  EXPECT_EQ(seen, nullptr);
  EXPECT_EQ(trace::LiveThreadStates(), live);
}

TEST(ThreadState, IsFreedWhenItsThreadEnds) {
  const long live = trace::LiveThreadStates();
  long during = 0;
  std::thread([&] {
    TvFuncLog log("T");
    during = trace::LiveThreadStates();
  }).join();
  EXPECT_EQ(during, live + 1);
  EXPECT_EQ(trace::LiveThreadStates(), live);
}

TEST(ThreadState, FailedAllocationMakesTheThreadInert) {
  const long live = trace::LiveThreadStates();
  bool enabled = true;
  void* slot = nullptr;
  std::thread([&] {
    frame::set_thread_slot_value(trace::kNoThreadState);
    TvFuncLog log("T");
    log.WriteLine("x");
    enabled = log.IsEnabled();
    slot = frame::thread_slot_value();
  }).join();
  EXPECT_FALSE(enabled);
  EXPECT_EQ(slot, trace::kNoThreadState) << "not tried again";
  EXPECT_EQ(trace::LiveThreadStates(), live);
}

// A hang guard for children that must end on their own.
constexpr int kHang = 20;

// A sink built from a real configuration, as at load.
class SinkTest : public ::testing::Test {
 protected:
  static platform::local_time fixed_time() { return {2026, 2, 3, 9, 5, 7, 12}; }
  void configure(bool delete_on_close) {
    TvLogCfg cfg{};
    ASSERT_TRUE(trace::FillLogCfg(
        cfg, {dir_.path().c_str(), delete_on_close, false, "*", "*", "", true, true}));
    trace_test::write_file(dir_.path() + "TvLog.cfg",
                           std::string(reinterpret_cast<const char*>(&cfg), sizeof cfg));
  }
  trace::ActivationEnv env() {
    program_ = dir_.path() + "app";
    return {program_.c_str(), nullptr, platform::process_id(), fixed_time, false};
  }
  std::string log_path() const {
    return dir_.path() + "app." + std::to_string(platform::process_id()) +
           " 03-02-2026 09.05.07.012.log";
  }

  // In a forked child that runs as root (`user` 0) or as the second user:
  // builds the sink as at load, as process `pid` (0: the child's own number),
  // writes a line and takes it down. Exit code 1 if there was a log file,
  // else 0; killed after kHang seconds if the load never ends.
  testing_support::exit_status build_as(unsigned user, unsigned long pid) {
    testing_support::forked_child child([&] {
      if (user != 0 && !testing_support::become_other_user()) return 9;
      trace::ActivationEnv e = env();
      if (pid != 0) e.processId = pid;
      TvLogSink sink;
      sink.Build(trace::DecideActivation(shared_, e));
      sink.Write("line", 4);
      const bool made = sink.file >= 0;
      sink.TakeDown();
      return made ? 1 : 0;
    });
    return child.wait(kHang);
  }

  temp_dir dir_;
  std::string program_;
  TvSharedData shared_{};
};

TEST_F(SinkTest, DeleteOnClose) {
  if (!testing_support::can_fork)
    GTEST_SKIP() << "checks what a fork()ed child does, and Windows has no fork()";
  for (const bool delete_on_close : {false, true}) {
    SCOPED_TRACE(delete_on_close);
    configure(delete_on_close);
    TvLogSink sink;
    sink.Build(trace::DecideActivation(shared_, env()));
    ASSERT_GE(sink.file, 0);
    sink.Write("line", 4);
    EXPECT_EQ(trace_test::read_file(log_path()), "line\r\n");
    // A child made by fork() never deletes its parent's file.
    EXPECT_EQ(testing_support::in_child([&sink] {
                sink.TakeDown();
                return 0;
              }),
              0);
    EXPECT_TRUE(std::filesystem::exists(log_path()));
    sink.TakeDown();
    EXPECT_EQ(std::filesystem::exists(log_path()), !delete_on_close);
    EXPECT_EQ(sink.file, -1);
  }
}

// A link at the log's name is replaced by a file of the process's own; its
// target is never written.
TEST_F(SinkTest, ReplacesASymbolicLinkAtItsName) {
  configure(false);
  const std::string target = dir_.path() + "target";
  trace_test::write_file(target, "precious");
  std::error_code error;
  std::filesystem::create_symlink(target, log_path(), error);
  if (error) GTEST_SKIP() << "no symbolic link can be made here: " << error.message();
  TvLogSink sink;
  sink.Build(trace::DecideActivation(shared_, env()));
  EXPECT_GE(sink.file, 0);
  sink.Write("line", 4);
  sink.TakeDown();
  EXPECT_EQ(trace_test::read_file(target), "precious");
  EXPECT_FALSE(std::filesystem::is_symlink(log_path()));
  EXPECT_EQ(trace_test::read_file(log_path()), "line\r\n");
  EXPECT_EQ(testing_support::file_mode(log_path()), 0600);
}

TEST_F(SinkTest, MissingLogFolderMeansNoFile) {
  TvLogCfg cfg{};
  const std::string folder = dir_.path() + "missing/";
  ASSERT_TRUE(trace::FillLogCfg(cfg, {folder.c_str(), true, false, "*", "*", "", true, true}));
  trace_test::write_file(dir_.path() + "TvLog.cfg",
                         std::string(reinterpret_cast<const char*>(&cfg), sizeof cfg));
  TvLogSink sink;
  sink.Build(trace::DecideActivation(shared_, env()));
  EXPECT_EQ(sink.file, -1);
  sink.TakeDown();
}

// The log's folder as another user could shape it, and the process that
// traces as root or as a second user: a log is made only where nobody but
// the folder's owner decides what its names are, and the owner is the
// process's user or root. The process (a forked child, as `victim`) builds
// its sink from TvLog.cfg beside the program.
TEST_F(SinkTest, LogsOnlyIntoFoldersThatOthersCannotChange) {
#if defined(_WIN32)
  GTEST_SKIP() << "folders given to a second uid by chown/chmod as root; POSIX only";
#else
  if (testing_support::effective_uid() != 0) GTEST_SKIP() << "needs root, to act as other users";
  constexpr unsigned kRoot = 0;
  constexpr unsigned kOther = testing_support::kOtherUser;
  constexpr unsigned kThird = 12345;  // a user with no processes, for a folder's owner
  const struct {
    const char* what;
    unsigned victim, owner, mode;
    bool log;
  } rows[] = {
      {"root's own, 0755", kRoot, kRoot, 0755, true},
      {"root's own, 0700", kRoot, kRoot, 0700, true},
      {"root's, writable by all, sticky", kRoot, kRoot, 01777, true},
      {"root's, writable by all, not sticky", kRoot, kRoot, 0777, false},
      {"root's, writable by its group, not sticky", kRoot, kRoot, 0775, false},
      {"root's, writable by its group, sticky", kRoot, kRoot, 01775, true},
      {"another user's, 0755", kRoot, kOther, 0755, false},
      {"another user's, writable by all, sticky", kRoot, kOther, 01777, false},
      {"a user's own, 0755", kOther, kOther, 0755, true},
      {"a user's own, writable by all, not sticky", kOther, kOther, 0777, false},
      {"a user's in root's, writable by all, sticky", kOther, kRoot, 01777, true},
      {"a user's in root's, writable by all, not sticky", kOther, kRoot, 0777, false},
      {"a user's in a third user's, writable by all, sticky", kOther, kThird, 01777, false},
  };
  int i = 0;
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    const std::string folder = dir_.path() + "f" + std::to_string(i++) + "/";
    ASSERT_TRUE(std::filesystem::create_directory(folder));
    ASSERT_TRUE(testing_support::set_owner(folder, row.owner));
    ASSERT_TRUE(testing_support::set_mode(folder, row.mode));
    TvLogCfg cfg{};
    ASSERT_TRUE(trace::FillLogCfg(cfg, {folder.c_str(), false, false, "*", "*", "", true, true}));
    trace_test::write_file(dir_.path() + "TvLog.cfg",
                           std::string(reinterpret_cast<const char*>(&cfg), sizeof cfg));
    const testing_support::exit_status status = build_as(row.victim, 0);
    ASSERT_TRUE(status.exited);
    EXPECT_EQ(status.code, row.log ? 1 : 0);
    const std::vector<std::string> names = trace_test::files_in(folder);
    ASSERT_EQ(names.size(), row.log ? 1u : 0u);
    if (row.log) {
      const testing_support::file_status log = testing_support::status_of(folder + names[0]);
      EXPECT_TRUE(log.regular);
      EXPECT_EQ(log.owner, row.victim);
      EXPECT_EQ(log.mode, 0600u);
      EXPECT_EQ(trace_test::read_file(folder + names[0]), "line\r\n");
    }
  }
#endif
}

// Another user plants the names that a process is going to log to (its
// program, process number and start time can be guessed) in a folder that
// all may write, as /tmp: files of theirs, with a second name to read them
// by, pipes, and links. The process replaces what it may remove and refuses
// the rest; it never writes into, and never waits on, what was planted. A
// process that can't finish its load is killed after kHang seconds: a hang,
// never a time.
TEST_F(SinkTest, PlantedNamesNeverGetTheTrace) {
#if defined(_WIN32)
  GTEST_SKIP() << "names planted by a second uid as root (files, FIFOs, links); POSIX only";
#else
  if (testing_support::effective_uid() != 0) GTEST_SKIP() << "needs root, to act as other users";
  constexpr unsigned kRoot = 0;
  constexpr unsigned kOther = testing_support::kOtherUser;
  enum planted { file, fifo, link };
  const struct {
    const char* what;
    unsigned planter, victim;
    planted kind;
    bool replaced;  // else refused: no log, the planted name stays
  } rows[] = {
      {"a user's file, root traces", kOther, kRoot, file, true},
      {"a user's pipe, root traces", kOther, kRoot, fifo, true},
      {"a user's link to root's file, root traces", kOther, kRoot, link, true},
      {"root's file, a user traces", kRoot, kOther, file, false},
      {"root's pipe, a user traces", kRoot, kOther, fifo, false},
      {"a third user's file, a user traces", 12345, kOther, file, false},
  };
  const std::string folder = dir_.path() + "tmp/";
  ASSERT_TRUE(std::filesystem::create_directory(folder));
  ASSERT_TRUE(testing_support::set_mode(folder, 01777));
  TvLogCfg cfg{};
  ASSERT_TRUE(trace::FillLogCfg(cfg, {folder.c_str(), false, false, "*", "*", "", true, true}));
  trace_test::write_file(dir_.path() + "TvLog.cfg",
                         std::string(reinterpret_cast<const char*>(&cfg), sizeof cfg));
  const std::string name = folder + "app.4242 03-02-2026 09.05.07.012.log";
  const std::string second = folder + "second-name";
  const std::string precious = dir_.path() + "precious";
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    trace_test::write_file(precious, "precious");
    switch (row.kind) {
      case file:
        trace_test::write_file(name, "");
        ASSERT_TRUE(testing_support::set_mode(name, 0666));
        std::filesystem::create_hard_link(name, second);
        break;
      case fifo: ASSERT_TRUE(testing_support::make_fifo(name)); break;
      case link: std::filesystem::create_symlink(precious, name); break;
    }
    ASSERT_TRUE(testing_support::set_owner(name, row.planter));
    const testing_support::file_status before = testing_support::status_of(name);
    const testing_support::exit_status status = build_as(row.victim, 4242);
    ASSERT_TRUE(status.exited) << "the load waited on what was planted";
    EXPECT_EQ(status.code, row.replaced ? 1 : 0);
    const testing_support::file_status after = testing_support::status_of(name);
    if (row.replaced) {
      EXPECT_TRUE(after.regular);
      EXPECT_EQ(after.owner, row.victim);
      EXPECT_EQ(after.mode, 0600u);
      EXPECT_EQ(trace_test::read_file(name), "line\r\n");
    } else {
      EXPECT_EQ(after.fifo, before.fifo);
      EXPECT_EQ(after.owner, before.owner);
      EXPECT_EQ(after.mode, before.mode);
      if (after.regular) {
        EXPECT_EQ(trace_test::read_file(name), "");
      }
    }
    if (row.kind == file) {
      EXPECT_EQ(trace_test::read_file(second), "") << "the planter could read the trace";
    }
    EXPECT_EQ(trace_test::read_file(precious), "precious");
    std::filesystem::remove(name);
    std::filesystem::remove(second);
  }
#endif
}

}  // namespace
