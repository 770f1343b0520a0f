// The trace across processes: each test starts copies of trace_helper, which
// join this test process's own shared block.
#include <csignal>

#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <tvbase/frame/shared_data.h>
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
  shared.logCfg.programs[0] ^= 1;
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
