// The trace across processes: each test starts copies of trace_helper, which
// join this test process's own shared block.
#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <tvbase/frame/shared_data.h>
#include <tvbase/testing/processes.h>
#include <tvbase/testing/system_objects.h>
#include <tvbase/trace/func_log.h>
#include <tvbase/trace/log_cfg.h>
#include <tvbase/trace/test_support.h>

namespace {

// A hang guard for programs that must end on their own: one killed after
// this many seconds has hung, however slow the machine.
constexpr int kHang = 20;

using trace_test::temp_dir;

struct outcome {
  int status = -1;  // exit status, or 128 + signal
  std::string out;  // standard output, without its last line feed
};

outcome run(const std::vector<std::string>& words) {
  trace_test::child c(words);
  outcome result{c.finish(), c.out()};
  if (!result.out.empty() && result.out.back() == '\n') result.out.pop_back();
  return result;
}

// How a log may end. A process that ends in its own time ends its log with a
// line end. One killed by SIGKILL may be stopped in the middle of a write:
// the system copies a write into the file a page at a time and gives up at a
// page boundary when the process has been killed, so such a log may end in a
// cut line, and then its size is a multiple of the page (4 KiB here).
enum class ending { whole, killed };
constexpr std::size_t kFilePage = 4096;

// The lines of a log that trace_helper wrote, checked to be whole: the file
// ends with a line end (or, for a killed process, a cut at a page boundary,
// which is dropped), and each line is a time, a thread and one of the
// helper's texts. Gives the lines' last words: "main(", "step(", "i=7",
// "return".
std::vector<std::string> whole_lines(std::string log, ending end = ending::whole) {
  if (log.empty()) return {};
  if (end == ending::killed && !log.ends_with("\r\n")) {
    EXPECT_EQ(log.size() % kFilePage, 0u) << "cut last line off a page boundary";
    const std::size_t last = log.rfind("\r\n");
    log.erase(last == std::string::npos ? 0 : last + 2);
  }
  EXPECT_TRUE(log.empty() || log.ends_with("\r\n"))
      << "cut last line, log of " << log.size() << " bytes";
  std::vector<std::string> words;
  for (const std::string& line : trace_test::split_lines(log, "\r\n")) {
    // "23/11/2026 10:38:26.280 00001b69 " and then the text.
    constexpr std::size_t kText = 33;
    const bool stamped = line.size() > kText && line[2] == '/' && line[5] == '/' &&
                         line[13] == ':' && line[19] == '.' && line[23] == ' ' && line[32] == ' ';
    const std::string text = stamped ? line.substr(line.find_first_not_of(' ', kText)) : "";
    const bool number = text.starts_with("step: i=") && text.size() > 8 &&
                        text.find_first_not_of("0123456789", 8) == std::string::npos;
    const bool known = number || text == "main(  )" || text == "step(  )" ||
                       text == "step return" || text == "main return";
    EXPECT_TRUE(known) << "cut line: " << line;
    const std::string head = text.ends_with("(  )") ? text.substr(0, text.size() - 3) : text;
    words.push_back(head.substr(head.find_last_of(' ') + 1));
  }
  return words;
}

// A copy of the helper called "app" in a folder of its own, with a log folder
// beside it.
class ProcessTest : public ::testing::Test {
 protected:
  void SetUp() override {
    app_ = dir_.path() + "app";
    logs_ = dir_.path() + "logs/";
    std::filesystem::copy_file(TRACE_HELPER, app_);
    std::filesystem::create_directory(logs_);
    std::filesystem::create_directory(dir_.path() + "shared/");
  }
  void TearDown() override {
    TvSharedData& shared = *TvGetSharedData();
    shared.cfgSet = 0;
    shared.lock = 0;
  }
  void save_file_cfg(bool delete_on_close) {
    unsigned long error = 1;
    ASSERT_TRUE(TvFuncLog::SaveLogCfg((dir_.path() + "TvLog.cfg").c_str(), logs_.c_str(),
                                      delete_on_close, false, "app", "*", "", true, true, &error));
    ASSERT_EQ(error, 0u);
  }
  std::vector<std::string> logs() const { return trace_test::files_in(logs_); }

  temp_dir dir_;
  std::string app_, logs_;
};

TEST_F(ProcessTest, ConfigurationSetInOneProcessReachesALaterLoad) {
  const std::string shared_logs = dir_.path() + "shared/";
  EXPECT_EQ(run({app_, "set", shared_logs, "other;APP", "0"}).status, 0);
  EXPECT_EQ(TvGetSharedData()->cfgSet, 1u) << "this process sees it too";
  const outcome traced = run({app_, "run", "2"});
  ASSERT_EQ(traced.status, 0);
  ASSERT_EQ(traced.out.rfind(shared_logs + "app.", 0), 0u) << traced.out;
  const std::string log = trace_test::read_file(traced.out);
  EXPECT_EQ(trace_test::split_lines(log, "\r\n").size(), 2u + 3 * 2);
  EXPECT_TRUE(logs().empty());
}

TEST_F(ProcessTest, HeldLockMeansTheFileDecides) {
  save_file_cfg(false);
  TvSharedData& shared = *TvGetSharedData();
  ASSERT_TRUE(trace::SetSharedLogCfg(
      shared, {(dir_.path() + "shared/").c_str(), false, false, "*", "*", "", true, true}));
  shared.lock = 1;
  const outcome traced = run({app_, "run", "1"});
  EXPECT_EQ(traced.status, 0);
  EXPECT_EQ(traced.out.rfind(logs_ + "app.", 0), 0u) << traced.out;
  EXPECT_EQ(shared.lock, 1u);
  EXPECT_EQ(shared.cfgSet, 1u);
  EXPECT_EQ(run({app_, "state"}).out, "1 1");
}

TEST_F(ProcessTest, DamagedSharedRecordIsClearedAtTheNextLoad) {
  save_file_cfg(false);
  TvSharedData& shared = *TvGetSharedData();
  ASSERT_TRUE(trace::SetSharedLogCfg(
      shared, {(dir_.path() + "shared/").c_str(), false, false, "*", "*", "", true, true}));
  trace::SharedLogCfg(shared).programs[0] ^= 1;
  const outcome traced = run({app_, "run", "1"});
  EXPECT_EQ(traced.out.rfind(logs_ + "app.", 0), 0u) << traced.out;
  EXPECT_EQ(shared.cfgSet, 0u);
  EXPECT_EQ(shared.lock, 0u);
}

TEST_F(ProcessTest, DeleteOnCloseAtANormalEnd) {
  save_file_cfg(true);
  const outcome traced = run({app_, "run", "3"});
  EXPECT_EQ(traced.status, 0);
  EXPECT_EQ(traced.out.rfind(logs_ + "app.", 0), 0u) << traced.out;
  EXPECT_TRUE(logs().empty());
}

TEST_F(ProcessTest, KilledProcessLeavesItsLogCompleteToTheLastLine) {
  save_file_cfg(true);
  const outcome traced = run({app_, "crash", "50"});
  EXPECT_EQ(traced.status, 128 + SIGKILL);
  ASSERT_EQ(logs().size(), 1u);
  const std::string log = trace_test::read_file(traced.out);
  ASSERT_TRUE(log.ends_with("\r\n"));
  const std::vector<std::string> lines = trace_test::split_lines(log, "\r\n");
  // main's enter line and three lines per step; main never returned.
  ASSERT_EQ(lines.size(), 1u + 3 * 50);
  EXPECT_TRUE(lines.back().ends_with("    step return")) << lines.back();
}

// Processes killed at any moment, while loading or in the middle of writing
// lines, leave logs of whole lines, and a process tracing beside them is
// untouched: all its lines are there and the shared lock word is free.
TEST_F(ProcessTest, ProcessesKilledWhileTracingLeaveWholeLinesAndTheOthersRunOn) {
  save_file_cfg(false);
  std::vector<std::unique_ptr<trace_test::child>> killed;
  for (int delay_ms : {0, 1, 2, 5, 50, 200, 300}) {
    killed.push_back(std::make_unique<trace_test::child>(std::vector<std::string>{app_, "spin"}));
    std::this_thread::sleep_for(std::chrono::milliseconds(delay_ms));
    killed.back()->signal(SIGKILL);
  }
  trace_test::child survivor({app_, "run", "2000"});
  std::vector<std::unique_ptr<trace_test::child>> spinning;
  for (int i = 0; i < 3; ++i) {
    spinning.push_back(std::make_unique<trace_test::child>(std::vector<std::string>{app_, "spin"}));
  }
  // Each is killed once its log holds a good many lines, however slowly it
  // started (sanitizers make a start slow). Their sizes are watched side by
  // side, so that none writes on unwatched while another one is waited for
  // (a slow watcher, as under valgrind, would otherwise let logs grow to
  // gigabytes).
  std::vector<std::string> spinner_logs;
  for (auto& spinner : spinning) {
    ASSERT_TRUE(spinner->wait_for_stdout("\n"));
    spinner_logs.push_back(spinner->out().substr(0, spinner->out().size() - 1));
  }
  std::vector<bool> stopped(spinning.size(), false);
  for (int waited = 0; waited < 30000; waited += 5) {
    bool all = true;
    for (std::size_t i = 0; i < spinning.size(); ++i) {
      std::error_code error;
      if (!stopped[i] && std::filesystem::file_size(spinner_logs[i], error) >= 16384) {
        spinning[i]->signal(SIGKILL);
        stopped[i] = true;
      }
      all = all && stopped[i];
    }
    if (all) break;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  for (auto& spinner : spinning) spinner->signal(SIGKILL);

  ASSERT_EQ(survivor.finish(), 0);
  std::string survivor_log = survivor.out();
  survivor_log.pop_back();
  const std::vector<std::string> words = whole_lines(trace_test::read_file(survivor_log));
  ASSERT_EQ(words.size(), 2u + 3 * 2000);
  EXPECT_EQ(words[1 + 3 * 1999 + 1], "i=1999");
  for (auto& spinner : spinning) {
    EXPECT_EQ(spinner->finish(), 128 + SIGKILL);
    ASSERT_FALSE(spinner->out().empty());
    EXPECT_GT(
        whole_lines(trace_test::read_file(spinner->out().substr(0, spinner->out().size() - 1)),
                    ending::killed)
            .size(),
        3u);
  }
  for (auto& early : killed) EXPECT_EQ(early->finish(), 128 + SIGKILL);
  for (const std::string& name : logs()) {
    SCOPED_TRACE(name);
    whole_lines(trace_test::read_file(logs_ + name), ending::killed);
  }
  EXPECT_EQ(TvGetSharedData()->lock, 0u);
}

// A file that can't grow (a full disk, here a file size limit with SIGXFSZ
// ignored) costs lines, never the process, and leaves no cut line; once it
// can grow again, the next lines are there.
TEST_F(ProcessTest, FullDiskLosesLinesButNotTheProcess) {
  if (!testing_support::can_limit_file_size)
    GTEST_SKIP() << "no file size limit on this system to stand in for a full disk";
  save_file_cfg(false);
  constexpr int kLimit = 4000;
  const outcome traced = run({app_, "full", std::to_string(kLimit), "500", "3"});
  ASSERT_EQ(traced.status, 0);
  const std::string log = trace_test::read_file(traced.out);
  const std::vector<std::string> words = whole_lines(log);
  // What fitted under the limit: main's enter line and whole steps after it.
  const std::vector<std::string> after = {"main(",  "step(", "i=0", "return", "step(", "i=1",
                                          "return", "step(", "i=2", "return", "return"};
  ASSERT_GT(words.size(), after.size() + 10);
  const std::size_t before = words.size() - after.size();
  EXPECT_EQ(std::vector<std::string>(words.begin() + before, words.end()), after);
  EXPECT_EQ(words[0], "main(");
  const std::size_t limit_end = log.find(" main(  )", log.find(" main(  )") + 1);
  ASSERT_NE(limit_end, std::string::npos);
  EXPECT_LE(log.rfind("\r\n", limit_end) + 2, static_cast<std::size_t>(kLimit));
  EXPECT_GT(log.rfind("\r\n", limit_end) + 2, static_cast<std::size_t>(kLimit) - 200)
      << "lines stop only at the limit";
}

TEST_F(ProcessTest, NoConfigurationNoLog) {
  const struct {
    const char* what;
    std::string cfg;
  } rows[] = {
      {"no file", ""},
      {"short file", std::string(100, '\0')},
      {"zeros", std::string(sizeof(TvLogCfg), '\0')},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    if (!row.cfg.empty()) trace_test::write_file(dir_.path() + "TvLog.cfg", row.cfg);
    const outcome traced = run({app_, "run", "1"});
    EXPECT_EQ(traced.status, 0);
    EXPECT_EQ(traced.out, "-");
  }
  EXPECT_TRUE(logs().empty());
}

// Another process of the user holds the guard of the user's shared block
// (the lock that mapping and unmapping take) and never lets go. Programs
// still load, end and fork: a load that can't have the block within a short
// wait goes on with a block of its own, an end lets go without removing it.
TEST_F(ProcessTest, HeldGuardNeverStopsALoadAnEndOrAFork) {
#if defined(_WIN32)
  GTEST_SKIP()
      << "the POSIX object's guard lock and fork(); the Windows mapping has no guard to hold";
#else
  const std::string name = frame::shared_block_object_name();
  ASSERT_FALSE(name.empty());
  const std::string go = dir_.path() + "go";
  trace_test::child loaded({app_, "wait-for", go, "fork"});  // loads before the guard is held
  ASSERT_TRUE(loaded.wait_for_stdout("\n"));
  testing_support::shared_object holder(name, testing_support::open_existing);
  ASSERT_TRUE(holder.is_open());
  ASSERT_TRUE(holder.hold_guard());

  trace_test::child load({app_, "run", "1"});
  EXPECT_EQ(load.finish(kHang), 0) << "the load waited for the guard";
  trace_test::write_file(go, "");
  EXPECT_EQ(loaded.finish(kHang), 0) << "the fork or an end waited for the guard";
  EXPECT_TRUE(std::filesystem::exists("/dev/shm" + name));
#endif
}

// Waits, at most kHang seconds, for a file that another process makes when
// it is ready.
[[maybe_unused]] bool appears(const std::string& path) {
  for (int waited = 0; !std::filesystem::exists(path) && waited < kHang * 100; ++waited) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return std::filesystem::exists(path);
}

// What another user may try on a user's shared block, as a program of that
// user's would see it.
struct block_attack {
  const char* what;
  bool record;            // a record that switches the trace on, into the user's logs
  std::uint64_t counter;  // the distinct counter: the last number handed out
  bool cut;               // the object cut to size 0 once the program has loaded
};

// Another user makes an object at the name of a user's shared block before
// that user's program starts, and holds it as a process that maps it would:
// with a record that switches the trace on into a folder of the user's, the
// distinct counter at its end, or nothing at all, later cut to size 0. The
// program uses a block of its own: it doesn't trace, its distinct numbers
// start from 1, and nothing faults.
TEST_F(ProcessTest, AnotherUsersObjectAtTheBlockNameIsNeverUsed) {
#if defined(_WIN32)
  GTEST_SKIP() << "objects of a second uid under /dev/shm, made as root; see "
                  "SharedMemoryWin.RefusesAMappingOwnedByAnother";
#else
  if (testing_support::effective_uid() != 0) GTEST_SKIP() << "needs root, to act as a second user";
  const block_attack rows[] = {
      {"a record and the counter at its end", true, ~0ull, false},
      {"a record, cut to 0 once the program runs", true, 0, true},
      {"nothing, cut to 0 once the program runs", false, 0, true},
  };
  const std::string flags = dir_.path() + "flags/";
  ASSERT_TRUE(std::filesystem::create_directory(flags));
  ASSERT_TRUE(testing_support::set_mode(flags, 0777));
  int i = 0;
  for (const block_attack& row : rows) {
    SCOPED_TRACE(row.what);
    const std::string stem =
        std::string(frame::shared_block_name()) + "-planted" + std::to_string(i);
    const std::vector<std::pair<std::string, std::string>> env{{"TVBASE_TEST_SHARED_BLOCK", stem}};
    const std::string ready = flags + "ready" + std::to_string(i);
    const std::string go = dir_.path() + "go" + std::to_string(i++);
    // The name the program's block will have: a program that asks and ends
    // leaves nothing at it.
    trace_test::child ask({app_, "block"}, env);
    ASSERT_EQ(ask.finish(kHang), 0);
    const std::string name = ask.out().substr(0, ask.out().find('\n'));
    ASSERT_FALSE(name.empty());
    ASSERT_FALSE(std::filesystem::exists("/dev/shm" + name));
    TvSharedData planted{};
    if (row.record) {
      ASSERT_TRUE(
          trace::SetSharedLogCfg(planted, {logs_.c_str(), false, false, "*", "*", "", true, true}));
    }
    planted.distinctCounter = row.counter;
    testing_support::forked_child planter([&] {
      if (!testing_support::become_other_user()) return 9;
      testing_support::shared_object object(name, testing_support::create, 0666);
      if (!object.resize(sizeof planted) || !object.write(0, &planted, sizeof planted) ||
          !object.hold_shared_flock()) {
        return 1;
      }
      trace_test::write_file(ready, "");
      for (;;) std::this_thread::sleep_for(std::chrono::seconds(1));
    });
    ASSERT_TRUE(appears(ready));
    trace_test::child victim({app_, "distinct", go}, env);
    const bool loaded = victim.wait_for_stdout("\n1\n", kHang);
    if (loaded && row.cut) {
      const auto cut = testing_support::as_other_user([&] {
        testing_support::shared_object object(name, testing_support::open_existing);
        return std::string(object.resize(0) ? "cut" : "not cut");
      });
      EXPECT_EQ(cut.value_or(""), "cut");
    }
    trace_test::write_file(go, "");
    EXPECT_EQ(victim.finish(kHang), 0);
    EXPECT_EQ(victim.out(), "-\n\n1\n2\n") << "traced, or on the planted block";
    EXPECT_TRUE(logs().empty());
    planter.kill();
    planter.wait();
    EXPECT_TRUE(testing_support::remove_shared_object(name));
  }
#endif
}

// Another user goes for the block of a user's running program: writes the
// last number into its distinct counter, or cuts it to size 0. The program
// goes on handing out distinct numbers, and neither aborts nor faults: the
// block is the user's alone, and the other user can't open it.
TEST_F(ProcessTest, AnotherUserCannotSpoilTheBlockOfARunningProgram) {
#if defined(_WIN32)
  GTEST_SKIP() << "a second uid against the POSIX object (ftruncate, counter); POSIX only";
#else
  if (testing_support::effective_uid() != 0) GTEST_SKIP() << "needs root, to act as a second user";
  const block_attack rows[] = {
      {"the counter at its end", false, ~0ull, false},
      {"cut to 0", false, 0, true},
  };
  int i = 0;
  for (const block_attack& row : rows) {
    SCOPED_TRACE(row.what);
    // A block of the program's own, apart from this test's, which nothing
    // here may touch should the attack succeed.
    const std::string stem =
        std::string(frame::shared_block_name()) + "-running" + std::to_string(i);
    const std::string go = dir_.path() + "go" + std::to_string(i++);
    trace_test::child victim({app_, "distinct", go}, {{"TVBASE_TEST_SHARED_BLOCK", stem}});
    ASSERT_TRUE(victim.wait_for_stdout("\n1\n", kHang));
    const std::string name = victim.out().substr(2, victim.out().find('\n', 2) - 2);
    ASSERT_FALSE(name.empty()) << "the program has no shared block";
    const auto tried = testing_support::as_other_user([&] {
      testing_support::shared_object object(name, testing_support::open_existing);
      if (!object.is_open()) return "not opened: " + std::to_string(object.error());
      const bool done = row.cut ? object.resize(0)
                                : object.write(offsetof(TvSharedData, distinctCounter),
                                               &row.counter, sizeof row.counter);
      return std::string(done ? "done" : "refused");
    });
    ASSERT_TRUE(tried);
    trace_test::write_file(go, "");
    EXPECT_EQ(victim.finish(kHang), 0) << "the attack: " << *tried;
    EXPECT_EQ(victim.out(), "-\n" + name + "\n1\n2\n");
  }
#endif
}

// The log names that a program of process number `pid`, called "app", would
// have in `folder` if it loaded in one of the `count` milliseconds from
// `start` on.
[[maybe_unused]] std::vector<std::string> log_names(const std::string& folder, long pid,
                                                    std::chrono::system_clock::time_point start,
                                                    int count) {
  std::vector<std::string> names;
  const auto first = std::chrono::floor<std::chrono::milliseconds>(start);
  for (int i = 0; i < count; ++i) {
    const auto at = first + std::chrono::milliseconds(i);
    const std::time_t seconds =
        std::chrono::system_clock::to_time_t(std::chrono::floor<std::chrono::seconds>(at));
    const std::tm local = *std::localtime(&seconds);
    const long ms = static_cast<long>((at.time_since_epoch() % std::chrono::seconds(1)) /
                                      std::chrono::milliseconds(1));
    char name[128];
    std::snprintf(name, sizeof name, "app.%ld %02d-%02d-%04d %02d.%02d.%02d.%03ld.log", pid,
                  local.tm_mday, local.tm_mon + 1, local.tm_year + 1900, local.tm_hour,
                  local.tm_min, local.tm_sec, ms);
    names.push_back(folder + name);
  }
  return names;
}

// Another user guesses the names that a program is about to log to (its
// name, its process number, and its start time to the millisecond: here
// every millisecond of twenty seconds) and plants them in a folder that all may
// write, as /tmp: links to a file of theirs that they may read, or pipes.
// The program, once started, logs into a file of its own all the same, at
// one of those names; the planted file gets no line, and no pipe stops it.
TEST_F(ProcessTest, NamesPlantedForAProgramNeverGetItsTrace) {
#if defined(_WIN32)
  GTEST_SKIP() << "names planted by a second uid as root (files, FIFOs, links); POSIX only";
#else
  if (testing_support::effective_uid() != 0) GTEST_SKIP() << "needs root, to act as a second user";
  constexpr int kWindowMs = 20000;
  const std::string folder = dir_.path() + "tmp/";
  ASSERT_TRUE(std::filesystem::create_directory(folder));
  ASSERT_TRUE(testing_support::set_mode(folder, 01777));
  unsigned long error = 1;
  ASSERT_TRUE(TvFuncLog::SaveLogCfg((dir_.path() + "TvLog.cfg").c_str(), folder.c_str(), false,
                                    false, "app", "*", "", true, true, &error));
  ASSERT_EQ(error, 0u);
  for (const bool pipes : {false, true}) {
    SCOPED_TRACE(pipes ? "pipes" : "links to a file of theirs");
    const std::string go = dir_.path() + "go", out = dir_.path() + "out";
    // Planting takes a while on a loaded machine; a program that starts
    // after the window has passed proves nothing, and the round is tried
    // again with a window from then on.
    std::vector<std::string> names;
    testing_support::exit_status status;
    bool in_window = false;
    for (int round = 0; round < 3 && !in_window; ++round) {
      std::filesystem::remove(go);
      testing_support::forked_child victim([&] {
        if (!appears(go)) return 9;
        return testing_support::exec_program({app_, "run", "1"}, out);
      });
      ASSERT_TRUE(victim.started());
      const auto start = std::chrono::system_clock::now();
      names = log_names(folder, victim.pid(), start, kWindowMs);
      const std::string bait = folder + "bait";
      const auto planted = testing_support::as_other_user([&] {
        trace_test::write_file(bait, "");
        if (!testing_support::set_mode(bait, 0666)) return std::string("no bait");
        for (const std::string& name : names) {
          std::error_code failed;
          if (pipes) {
            if (!testing_support::make_fifo(name)) return "no pipe at " + name;
          } else if (std::filesystem::create_hard_link(bait, name, failed); failed) {
            return "no link at " + name;
          }
        }
        return std::string("planted");
      });
      ASSERT_TRUE(planted);
      ASSERT_EQ(*planted, "planted");
      trace_test::write_file(go, "");
      status = victim.wait(kHang);
      // A program killed for hanging (on a pipe) fails below, however late.
      in_window = !status.exited ||
                  std::chrono::system_clock::now() - start < std::chrono::milliseconds(kWindowMs);
      if (!in_window) {
        std::filesystem::remove_all(folder);
        ASSERT_TRUE(std::filesystem::create_directory(folder));
        ASSERT_TRUE(testing_support::set_mode(folder, 01777));
      }
    }
    if (!in_window) GTEST_SKIP() << "planting outran its window three times (a loaded machine)";
    EXPECT_TRUE(status.exited) << "killed: the load waited on a pipe";
    EXPECT_EQ(status.code, 0);
    std::string log = trace_test::read_file(out);
    if (!log.empty() && log.back() == '\n') log.pop_back();
    ASSERT_NE(std::find(names.begin(), names.end(), log), names.end())
        << "not a planted name: " << log;
    const testing_support::file_status own = testing_support::status_of(log);
    EXPECT_TRUE(own.regular);
    EXPECT_EQ(own.owner, 0u);
    EXPECT_EQ(own.mode, 0600u);
    EXPECT_EQ(whole_lines(trace_test::read_file(log)),
              (std::vector<std::string>{"main(", "step(", "i=0", "return", "return"}));
    EXPECT_EQ(trace_test::read_file(folder + "bait"), "") << "the planter could read the trace";
    std::filesystem::remove_all(folder);
    ASSERT_TRUE(std::filesystem::create_directory(folder));
    ASSERT_TRUE(testing_support::set_mode(folder, 01777));
  }
#endif
}

// A set-user-ID program never traces, whatever the configuration says: a
// trace shows the texts its functions are given, to whoever chose the log's
// folder. The same program without the bit, run by the same user, does.
TEST_F(ProcessTest, SetUserIdProgramNeverTraces) {
#if defined(_WIN32)
  GTEST_SKIP() << "set-user-ID programs (AT_SECURE) do not exist on Windows";
#else
  if (testing_support::effective_uid() != 0) GTEST_SKIP() << "needs root, to act as a second user";
  const std::string open_logs = dir_.path() + "open/";
  ASSERT_TRUE(std::filesystem::create_directory(open_logs));
  ASSERT_TRUE(testing_support::set_mode(open_logs, 01777));
  unsigned long error = 1;
  ASSERT_TRUE(TvFuncLog::SaveLogCfg((dir_.path() + "TvLog.cfg").c_str(), open_logs.c_str(), false,
                                    false, "app", "*", "", true, true, &error));
  ASSERT_EQ(error, 0u);
  const auto run_as_other = [this] {
    return testing_support::as_other_user([this] {
      trace_test::child c({app_, "run", "1"});
      const int status = c.finish(kHang);
      return std::to_string(status) + " " + c.out();
    });
  };
  const auto plain = run_as_other();
  ASSERT_TRUE(plain);
  EXPECT_EQ(plain->rfind("0 " + open_logs + "app.", 0), 0u) << *plain;
  const std::size_t logs_before = trace_test::files_in(open_logs).size();
  EXPECT_EQ(logs_before, 1u);

  ASSERT_TRUE(testing_support::set_mode(app_, 04755));
  const auto set_user_id = run_as_other();
  ASSERT_TRUE(set_user_id);
  EXPECT_EQ(*set_user_id, "0 -\n");
  EXPECT_EQ(trace_test::files_in(open_logs).size(), logs_before);
#endif
}

}  // namespace
