// logtune as users run it: each test starts the program (built on this test
// process's own shared block) and looks at its output, its exit status, the
// files it wrote and the shared block.
#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <tvbase/frame/shared_data.h>
#include <tvbase/platform/user.h>
#include <tvbase/testing/processes.h>
#include <tvbase/testing/system_objects.h>
#include <tvbase/trace/log_cfg.h>
#include <tvbase/trace/test_support.h>

namespace {

// A hang guard for programs that must end on their own.
constexpr int kHang = 20;

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
  const std::string existing = dir_.path() + "TvLog.cfg";
  trace_test::write_file(existing, "keep");
  const std::string short_file = dir_.path() + "short.cfg";
  trace_test::write_file(short_file, std::string(4879, '\0'));
  const std::string fifo = dir_.path() + "fifo.cfg";
  ASSERT_TRUE(testing_support::make_fifo(fifo));
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
       "cannot write " + dir_.path() + "no/such/TvLog.cfg: No such file or directory"},
      {{"show", dir_.path() + "missing.cfg"}, 1, "", "cannot read"},
      {{"show", short_file}, 0, "not valid (4879 bytes, a record has 4880)", ""},
      {{"show", existing}, 0, "not valid (4 bytes", ""},
      {{"show", fifo}, 1, "", "cannot read " + fifo + ": not a regular file"},
      {{"show", dir_.path()}, 1, "", "not a regular file"},
      {{"show", existing, "--user", "root"}, 2, "", "--user goes with the shared record"},
      {{"save", existing, "--user", "root"}, 2, "", "unknown option --user"},
      {{"set", "--user", "no-such-user-here"}, 1, "", "there is no user called no-such-user-here"},
  };
  for (const auto& row : rows) {
    const std::vector<std::string> words = logtune(row.words);
    SCOPED_TRACE(row.words.empty() ? "(none)"
                                   : row.words[0] + " " +
                                         (row.words.size() > 1 ? row.words[1].substr(0, 30) : ""));
    child c(words);
    EXPECT_EQ(c.finish(kHang), row.status);
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

// A second user runs logtune set with a record that would switch on the
// trace of every program into a folder where this user's programs may
// write. It sets that user's own block: this user's next program is not
// traced, and this user's record is untouched.
TEST_F(LogTuneTest, AnotherUsersSetNeverReachesThisUsersPrograms) {
  const std::string app = dir_.path() + "app";
  const std::string logs = dir_.path() + "logs/";
  std::filesystem::copy_file(TRACE_HELPER, app);
  std::filesystem::create_directory(logs);
  const auto set = testing_support::as_other_user([&logs] {
    child c(logtune({"set", "--folder", logs, "--programs", "*", "--users", "*", "--filter0"}));
    const int status = c.finish(kHang);
    return std::to_string(status) + " " + c.out() + c.err();
  });
  if (!set) GTEST_SKIP() << "needs root, to act as a second user";
  EXPECT_EQ(*set, "0 shared record set\n");
  EXPECT_EQ(TvGetSharedData()->cfgSet, 0u);
  child traced({app, "run", "1"});
  ASSERT_EQ(traced.finish(kHang), 0);
  EXPECT_EQ(traced.out(), "-\n");
  EXPECT_TRUE(trace_test::files_in(logs).empty());
}

// Root acts on a user's block with --user: a program of that user sees what
// root set, and the block stays that user's alone. Other users may not.
TEST_F(LogTuneTest, RootActsForAUserWithUser) {
  if (testing_support::effective_uid() != 0) GTEST_SKIP() << "needs root";
  const std::string flags = dir_.path() + "flags/";
  ASSERT_TRUE(std::filesystem::create_directory(flags));
  ASSERT_TRUE(testing_support::set_mode(flags, 0777));
  const std::string ready = flags + "ready";
  testing_support::forked_child user([&ready] {
    // A process of the user, on the user's own block.
    if (!testing_support::become_other_user()) return 9;
    platform::user_account me;
    if (!platform::effective_user(me) || !frame::attach_shared_data(me)) return 8;
    trace_test::write_file(ready, "");
    TvSharedData& shared = *TvGetSharedData();
    for (int waited = 0; waited < kHang * 100; ++waited) {
      TvLogCfg cfg;
      if (trace::ReadSharedLogCfg(shared, cfg) == trace::eSharedCfgState::Set) {
        return std::string(cfg.logFolder) == "/from-root/" ? 0 : 7;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return 6;
  });
  for (int waited = 0; !std::filesystem::exists(ready) && waited < kHang * 100; ++waited) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  ASSERT_TRUE(std::filesystem::exists(ready));
  const std::string object = "/dev/shm" + std::string(frame::shared_block_name()) + "-" +
                             std::to_string(testing_support::kOtherUser);
  const testing_support::file_status before = testing_support::status_of(object);
  EXPECT_EQ(before.owner, testing_support::kOtherUser);
  EXPECT_EQ(before.mode, 0600u);

  child show(logtune({"show", "--user", "nobody"}));
  EXPECT_EQ(show.finish(kHang), 0) << show.err();
  EXPECT_EQ(show.out(), "shared record: not set\n");
  child set(logtune({"set", "--user", "nobody", "--folder", "/from-root/", "--programs", "*"}));
  EXPECT_EQ(set.finish(kHang), 0) << set.err();
  const testing_support::exit_status seen = user.wait(kHang);
  EXPECT_TRUE(seen.exited);
  EXPECT_EQ(seen.code, 0);
  EXPECT_EQ(TvGetSharedData()->cfgSet, 0u) << "root's own record changed";
  const testing_support::file_status after = testing_support::status_of(object);
  if (after.exists) {
    EXPECT_EQ(after.owner, testing_support::kOtherUser);
    EXPECT_EQ(after.mode, 0600u);
  }

  const auto refused = testing_support::as_other_user([] {
    child c(logtune({"show", "--user", "root"}));
    return std::to_string(c.finish(kHang)) + " " + c.err();
  });
  ASSERT_TRUE(refused);
  EXPECT_EQ(refused->rfind("1 logtune show: --user is for root", 0), 0u) << *refused;
  testing_support::remove_shared_object(object.substr(8));
}

// Where the caller's block can't be had (here another user made an object at
// its name first), set, clear, show and unlock fail and say so: acting on a
// block of logtune's own would reach no program.
TEST_F(LogTuneTest, SaysSoWhenTheBlockCannotBeHad) {
  const std::string stem = std::string(frame::shared_block_name()) + "-taken";
  const std::string name = stem + "-" + std::to_string(testing_support::effective_uid());
  const auto made = testing_support::as_other_user([&name] {
    testing_support::shared_object object(name, testing_support::create, 0666);
    return std::string(object.is_open() && object.resize(sizeof(TvSharedData)) ? "made" : "failed");
  });
  if (!made) GTEST_SKIP() << "needs root, to act as a second user";
  ASSERT_EQ(*made, "made");
  for (const char* command : {"set", "clear", "show", "unlock"}) {
    SCOPED_TRACE(command);
    child c(logtune({command}), {{"TVBASE_TEST_SHARED_BLOCK", stem}});
    EXPECT_EQ(c.finish(kHang), 1);
    EXPECT_NE(c.err().find("your shared block can't be had"), std::string::npos) << c.err();
    EXPECT_EQ(c.out(), "");
  }
  EXPECT_TRUE(testing_support::remove_shared_object(name));
}

}  // namespace
