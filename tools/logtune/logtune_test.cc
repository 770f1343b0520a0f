// logtune as users run it: each test starts the program (built on this test
// process's own shared block) and looks at its output, its exit status, the
// files it wrote and the shared block.
#include <csignal>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <tvbase/frame/shared_data.h>
#include <tvbase/platform/error_text.h>
#include <tvbase/trace/log_cfg.h>
#include <tvbase/trace/test_support.h>

namespace {

using trace_test::child;
using trace_test::temp_dir;

std::vector<std::string> logtune(std::vector<std::string> words) {
  words.insert(words.begin(), LOGTUNE);
  return words;
}

class LogTuneTest : public ::testing::Test {
 protected:
  void TearDown() override {
    TvSharedData& shared = *TvGetSharedData();
    shared.cfgSet = 0;
    shared.lock = 0;
  }
  temp_dir dir_;
};

TEST_F(LogTuneTest, UsageAndFailures) {
  // The system's words for a missing folder on the way to a file: for the
  // Win32 code on Windows (once strerror's for the errno of that number).
#if defined(_WIN32)
  const std::string kNoSuchFolder = platform::error_text(3);  // ERROR_PATH_NOT_FOUND
#else
  const std::string kNoSuchFolder = "No such file or directory";
#endif
  const std::string existing = dir_.path() + "TvLog.cfg";
  trace_test::write_file(existing, "keep");
  const std::string short_file = dir_.path() + "short.cfg";
  trace_test::write_file(short_file, std::string(4879, '\0'));
  const struct {
    std::vector<std::string> words;
    int status;
    std::string out, err;  // texts that must appear
  } rows[] = {
      {{}, 2, "", "usage: logtune"},
      {{"--help"}, 0, "usage: logtune", ""},
      {{"show", "--help"}, 0, "--delete-on-close", ""},
      {{"frobnicate"}, 2, "", "unknown command 'frobnicate'"},
      {{"save"}, 2, "", "save needs the PATH"},
      {{"set", "--bogus"}, 2, "", "unknown option --bogus"},
      {{"set", "--folder"}, 2, "", "--folder needs a value"},
      {{"clear", "extra"}, 2, "", "unexpected argument extra"},
      {{"save", existing, "--users", std::string(2045, 'u')},
       1,
       "",
       "--users is too long: 2045 characters, at most 2044 fit (error 160)"},
      {{"save", existing, "--folder", std::string(260, 'f'), "--options", std::string(600, 'o')},
       1,
       "",
       "--folder is too long"},
      {{"set", "--options", std::string(512, 'o')}, 1, "", "--options is too long"},
      {{"save", dir_.path() + "no/such/TvLog.cfg"},
       1,
       "",
       "cannot write " + dir_.path() + "no/such/TvLog.cfg: " + kNoSuchFolder},
      {{"show", dir_.path() + "missing.cfg"}, 1, "", "cannot read"},
      {{"show", short_file}, 0, "not valid (4879 bytes, a record has 4880)", ""},
      {{"show", existing}, 0, "not valid (4 bytes", ""},
  };
  for (const auto& row : rows) {
    const std::vector<std::string> words = logtune(row.words);
    SCOPED_TRACE(row.words.empty() ? "(none)"
                                   : row.words[0] + " " +
                                         (row.words.size() > 1 ? row.words[1].substr(0, 30) : ""));
    child c(words);
    EXPECT_EQ(c.finish(), row.status);
    EXPECT_NE(c.out().find(row.out), std::string::npos) << c.out();
    EXPECT_NE(c.err().find(row.err), std::string::npos) << c.err();
  }
  EXPECT_EQ(trace_test::read_file(existing), "keep") << "a refused save changed the file";
  EXPECT_EQ(TvGetSharedData()->cfgSet, 0u) << "a refused set changed the shared record";
}

TEST_F(LogTuneTest, SaveWritesEveryField) {
  const std::string path = dir_.path() + "TvLog.cfg";
  child save(logtune({"save", path, "--folder", "/tmp/logs/", "--programs", "app;other", "--users",
                      "*", "--options", "ActivationContext", "--filter1", "--delete-on-close",
                      "--debug-echo"}));
  ASSERT_EQ(save.finish(), 0) << save.err();
  // Byte for byte the record that the library fills from the same fields.
  TvLogCfg expected{};
  ASSERT_TRUE(trace::FillLogCfg(
      expected, {"/tmp/logs/", true, true, "app;other", "*", "ActivationContext", false, true}));
  EXPECT_EQ(trace_test::read_file(path),
            std::string(reinterpret_cast<const char*>(&expected), sizeof expected));

  child show(logtune({"show", path}));
  EXPECT_EQ(show.finish(), 0);
  EXPECT_NE(show.out().find(path + ": valid\n"), std::string::npos) << show.out();
  EXPECT_NE(show.out().find("  programs        app;other\n"), std::string::npos) << show.out();
  EXPECT_NE(show.out().find("  filter0         no\n"), std::string::npos) << show.out();

  // Defaults: strings empty, flags off.
  child bare(logtune({"save", path}));
  ASSERT_EQ(bare.finish(), 0);
  expected = TvLogCfg{};
  ASSERT_TRUE(trace::FillLogCfg(expected, {}));
  EXPECT_EQ(trace_test::read_file(path),
            std::string(reinterpret_cast<const char*>(&expected), sizeof expected));
}

TEST_F(LogTuneTest, SharedRecordStates) {
  TvSharedData& shared = *TvGetSharedData();
  const auto show = [] {
    child c(logtune({"show"}));
    c.finish();
    return c.out();
  };
  EXPECT_EQ(show(), "shared record: not set\n");
  child set(
      logtune({"set", "--folder", "/l/", "--programs", "app;other", "--users", "*", "--filter0"}));
  ASSERT_EQ(set.finish(), 0) << set.err();
  EXPECT_EQ(shared.cfgSet, 1u);
  EXPECT_STREQ(trace::SharedLogCfg(shared).programs, "app;other");
  EXPECT_EQ(show().rfind("shared record: set\n", 0), 0u);
  trace::SharedLogCfg(shared).users[0] = '?';
  EXPECT_EQ(show().rfind("shared record: damaged", 0), 0u);
  child clear(logtune({"clear"}));
  ASSERT_EQ(clear.finish(), 0);
  EXPECT_EQ(shared.cfgSet, 0u);
  EXPECT_EQ(show(), "shared record: not set\n");
}

TEST_F(LogTuneTest, SetReachesAProgramStartedLater) {
  const std::string app = dir_.path() + "app";
  const std::string logs = dir_.path() + "logs/";
  std::filesystem::copy_file(TRACE_HELPER, app);
  std::filesystem::create_directory(logs);
  child set(logtune({"set", "--folder", logs, "--programs", "app;other", "--users", "*",
                     "--filter0", "--filter1"}));
  ASSERT_EQ(set.finish(), 0) << set.err();
  child traced({app, "run", "1"});
  ASSERT_EQ(traced.finish(), 0);
  EXPECT_EQ(traced.out().rfind(logs + "app.", 0), 0u) << traced.out();
  EXPECT_EQ(trace_test::files_in(logs).size(), 1u);
}

// A program killed while it holds the shared record's lock word leaves it
// held: programs started after it run on (the file beside them decides, here
// none, so they don't trace), logtune set waits and says how to recover, and
// after logtune unlock the set goes through and reaches the next program.
TEST_F(LogTuneTest, LockLeftByAKilledProgramIsRecoveredByUnlock) {
  const std::string app = dir_.path() + "app";
  const std::string logs = dir_.path() + "logs/";
  std::filesystem::copy_file(TRACE_HELPER, app);
  std::filesystem::create_directory(logs);
  TvSharedData& shared = *TvGetSharedData();
  child holder({app, "hold-lock"});
  ASSERT_TRUE(holder.wait_for_stderr("held")) << holder.err();
  holder.signal(SIGKILL);
  ASSERT_EQ(holder.finish(), 128 + SIGKILL);
  ASSERT_EQ(shared.lock, 1u) << "nobody releases a dead holder's lock";

  child meanwhile({app, "run", "3"});
  EXPECT_EQ(meanwhile.finish(), 0);
  EXPECT_EQ(meanwhile.out(), "-\n");

  child set(logtune({"set", "--folder", logs, "--programs", "app", "--users", "*", "--filter0"}));
  ASSERT_TRUE(set.wait_for_stderr("run 'logtune unlock'")) << set.err();
  EXPECT_EQ(shared.cfgSet, 0u) << "set went ahead without the lock";
  child unlock(logtune({"unlock"}));
  EXPECT_EQ(unlock.finish(), 0);
  EXPECT_EQ(unlock.out(), "lock word forced back to 0\n");
  EXPECT_EQ(set.finish(), 0);
  EXPECT_EQ(shared.cfgSet, 1u);
  EXPECT_EQ(shared.lock, 0u);
  child again(logtune({"unlock"}));
  EXPECT_EQ(again.finish(), 0);
  EXPECT_EQ(again.out(), "lock word was already 0\n");

  child traced({app, "run", "3"});
  ASSERT_EQ(traced.finish(), 0);
  const std::string log = traced.out().substr(0, traced.out().size() - 1);
  ASSERT_EQ(log.rfind(logs + "app.", 0), 0u) << traced.out();
  EXPECT_EQ(trace_test::split_lines(trace_test::read_file(log), "\r\n").size(), 2u + 3 * 3);
}

}  // namespace
