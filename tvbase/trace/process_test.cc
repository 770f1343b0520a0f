// The trace across processes: each test starts copies of trace_helper, which
// join this test process's own shared block.
#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <tvbase/frame/shared_data.h>
#include <tvbase/testing/processes.h>
#include <tvbase/trace/func_log.h>
#include <tvbase/trace/log_cfg.h>
#include <tvbase/trace/test_support.h>

namespace {

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

// The lines of a log that trace_helper wrote, checked to be whole: the file
// ends with a line end, and each line is a time, a thread and one of the
// helper's texts. Gives the lines' last words: "main(", "step(", "i=7",
// "return".
std::vector<std::string> whole_lines(const std::string& log) {
  if (log.empty()) return {};
  EXPECT_TRUE(log.ends_with("\r\n")) << "cut last line";
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
        whole_lines(trace_test::read_file(spinner->out().substr(0, spinner->out().size() - 1)))
            .size(),
        3u);
  }
  for (auto& early : killed) EXPECT_EQ(early->finish(), 128 + SIGKILL);
  for (const std::string& name : logs()) {
    SCOPED_TRACE(name);
    whole_lines(trace_test::read_file(logs_ + name));
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

}  // namespace
