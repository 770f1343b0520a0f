// logtune as users run it: each test starts the program (built on this test
// process's own shared block) and looks at its output, its exit status, the
// files it wrote and the shared block.
#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <tvbase/frame/shared_data.h>
#include <tvbase/platform/error_text.h>
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
  // The system's words for a missing folder on the way to a file: for the
  // Win32 code on Windows (once strerror's for the errno of that number).
#if defined(_WIN32)
  const std::string kNoSuchFolder = platform::error_text(3);  // ERROR_PATH_NOT_FOUND
#else
  const std::string kNoSuchFolder = "No such file or directory";
#endif
  // Where no process acts for other users (Windows), --user is refused
  // before the name is looked up.
  const std::string kNoSuchUser =
      platform::acts_for_every_user()
          ? "there is no user called"
          : "--user is for root: other users' blocks are open to them alone";
  const std::string existing = dir_.path() + "TvLog.cfg";
  trace_test::write_file(existing, "keep");
  const std::string short_file = dir_.path() + "short.cfg";
  trace_test::write_file(short_file, std::string(4879, '\0'));
#if defined(_WIN32)
  // No FIFOs in the file system: the NUL device stands for what is no file.
  const std::string fifo = "NUL";
#else
  const std::string fifo = dir_.path() + "fifo.cfg";
  ASSERT_TRUE(testing_support::make_fifo(fifo));
#endif
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
      {{"show", fifo}, 1, "", "cannot read " + fifo + ": not a regular file"},
      {{"show", dir_.path()}, 1, "", "not a regular file"},
      {{"show", existing, "--user", "root"}, 2, "", "--user goes with the shared record"},
      {{"save", existing, "--user", "root"}, 2, "", "unknown option --user"},
      {{"set", "--user", "no-such-user-here"},
       1,
       "",
       kNoSuchUser + (platform::acts_for_every_user() ? " no-such-user-here" : "")},
      {{"hold", "x"}, 2, "", "SECONDS must be an unsigned number, not 'x'"},
      {{"hold", "1", "2"}, 2, "", "unexpected argument 2"},
      {{"hold", "1000000001"}, 2, "", "SECONDS must be at most 1000000000"},
      {{"hold", "--user", "no-such-user-here"}, 1, "", kNoSuchUser},
      {{"set", "--hold=soon"}, 2, "", "SECONDS must be an unsigned number, not 'soon'"},
      {{"set", "--hold", "soon"}, 2, "", "unexpected argument soon"},
      {{"save", existing, "--hold", "5"}, 2, "", "unknown option --hold=5"},
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
  // This test process holds the block, so logtune sees one other holder.
  EXPECT_EQ(show(), "shared record: not set\nother processes holding the block: 1\n");
  child set(
      logtune({"set", "--folder", "/l/", "--programs", "app;other", "--users", "*", "--filter0"}));
  ASSERT_EQ(set.finish(), 0) << set.err();
  EXPECT_EQ(shared.cfgSet, 1u);
  EXPECT_STREQ(trace::SharedLogCfg(shared).programs, "app;other");
  EXPECT_EQ(show().rfind("shared record: set\nother processes holding the block: 1\n", 0), 0u);
  trace::SharedLogCfg(shared).users[0] = '?';
  EXPECT_EQ(show().rfind("shared record: damaged", 0), 0u);
  child clear(logtune({"clear"}));
  ASSERT_EQ(clear.finish(), 0);
  EXPECT_EQ(shared.cfgSet, 0u);
  EXPECT_EQ(show(), "shared record: not set\nother processes holding the block: 1\n");
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
  // Their own block, which no program of theirs holds.
  EXPECT_EQ(*set,
            "0 shared record set\nlogtune set: no other process holds your shared block, so "
            "the record is gone when logtune ends: start the program first, or add --hold, "
            "or save a TvLog.cfg beside the program\n");
  EXPECT_EQ(TvGetSharedData()->cfgSet, 0u);
  child traced({app, "run", "1"});
  ASSERT_EQ(traced.finish(kHang), 0);
  EXPECT_EQ(traced.out(), "-\n");
  EXPECT_TRUE(trace_test::files_in(logs).empty());
}

// Root acts on a user's block with --user: a program of that user sees what
// root set, and the block stays that user's alone. Other users may not.
TEST_F(LogTuneTest, RootActsForAUserWithUser) {
#if defined(_WIN32)
  GTEST_SKIP() << "root acting for a second uid; on Windows each user sets their own block";
#else
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
  EXPECT_EQ(show.out(), "shared record: not set\nother processes holding the block: 1\n");
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
#endif
}

// Where the caller's block can't be had (here another user made an object at
// its name first), set, clear, show, unlock and hold fail and say so: acting
// on a block of logtune's own would reach no program.
TEST_F(LogTuneTest, SaysSoWhenTheBlockCannotBeHad) {
#if defined(_WIN32)
  GTEST_SKIP() << "a block taken by a second uid under /dev/shm; see "
                  "SharedMemoryWin.RefusesAMappingOwnedByAnother";
#else
  const std::string stem = std::string(frame::shared_block_name()) + "-taken";
  const std::string name = stem + "-" + std::to_string(testing_support::effective_uid());
  const auto made = testing_support::as_other_user([&name] {
    testing_support::shared_object object(name, testing_support::create, 0666);
    return std::string(object.is_open() && object.resize(sizeof(TvSharedData)) ? "made" : "failed");
  });
  if (!made) GTEST_SKIP() << "needs root, to act as a second user";
  ASSERT_EQ(*made, "made");
  for (const char* command : {"set", "clear", "show", "unlock", "hold"}) {
    SCOPED_TRACE(command);
    child c(logtune({command}), {{"TVBASE_TEST_SHARED_BLOCK", stem}});
    EXPECT_EQ(c.finish(kHang), 1);
    EXPECT_NE(c.err().find("your shared block can't be had"), std::string::npos) << c.err();
    EXPECT_EQ(c.out(), "");
  }
  EXPECT_TRUE(testing_support::remove_shared_object(name));
#endif
}

// A block of a test's own, apart from this test process's: held by the
// processes started with `env()` alone.
class LogTuneBlockTest : public LogTuneTest {
 protected:
  void SetUp() override {
    stem_ = std::string(frame::shared_block_name()) + "-" +
            ::testing::UnitTest::GetInstance()->current_test_info()->name();
    app_ = dir_.path() + "app";
    logs_ = dir_.path() + "logs/";
    std::filesystem::copy_file(TRACE_HELPER, app_);
    std::filesystem::create_directory(logs_);
  }
  std::vector<std::pair<std::string, std::string>> env() const {
    return {{"TVBASE_TEST_SHARED_BLOCK", stem_}};
  }
  // Runs logtune on the test's block to its end.
  std::unique_ptr<child> run(const std::vector<std::string>& words) const {
    auto c = std::make_unique<child>(logtune(words), env());
    c->finish(kHang);
    return c;
  }
  std::vector<std::string> set_words() const {
    return {"set", "--folder", logs_, "--programs", "app", "--users", "*", "--filter0"};
  }
  // A program that holds the block until `go` exists; it has loaded once it
  // has said where it logs.
  std::unique_ptr<child> holder(const std::string& go) const {
    auto c = std::make_unique<child>(std::vector<std::string>{app_, "wait-for", go}, env());
    EXPECT_TRUE(c->wait_for_stdout("\n", kHang));
    return c;
  }
  std::string stem_, app_, logs_;
};

std::size_t lines_in(const std::string& text) {
  return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
}

// set tells, in one line on standard error, that nothing keeps the record
// alive once logtune ends, and the ways out; show counts the processes that
// hold the block. Neither says anything more while programs hold it.
TEST_F(LogTuneBlockTest, SetSaysSoWhenNoOtherProcessHoldsTheBlock) {
  for (const int programs : {0, 1, 2}) {
    SCOPED_TRACE(programs);
    const std::string go = dir_.path() + "go" + std::to_string(programs);
    std::vector<std::unique_ptr<child>> holders;
    for (int i = 0; i < programs; ++i) holders.push_back(holder(go));
    const auto set = run(set_words());
    EXPECT_EQ(set->finish(), 0);
    EXPECT_EQ(set->out(), "shared record set\n");
    if (programs == 0) {
      EXPECT_EQ(lines_in(set->err()), 1u) << set->err();
      EXPECT_EQ(set->err().rfind("logtune set: no other process holds your shared block, so the "
                                 "record is gone when logtune ends",
                                 0),
                0u)
          << set->err();
      for (const char* way : {"start the program first", "--hold", "save a TvLog.cfg"}) {
        EXPECT_NE(set->err().find(way), std::string::npos) << way;
      }
    } else {
      EXPECT_EQ(set->err(), "");
    }
    const auto show = run({"show"});
    EXPECT_EQ(show->out().rfind(
                  std::string(programs == 0 ? "shared record: not set\n" : "shared record: set\n") +
                      "other processes holding the block: " + std::to_string(programs) + "\n",
                  0),
              0u)
        << show->out();
    trace_test::write_file(go, "");
    for (auto& h : holders) EXPECT_EQ(h->finish(kHang), 0);
  }
}

// set --hold and hold keep the block, and so the record, alive until
// SIGINT or SIGTERM: a program started later traces. One line says that
// logtune holds the block, one that it lets go, with what then holds it.
TEST_F(LogTuneBlockTest, HoldKeepsTheRecordUntilInterrupted) {
#if defined(_WIN32)
  GTEST_SKIP() << "Ctrl-C and SIGTERM can't be sent to one process here: the harness can only "
                  "TerminateProcess it";
#else
  const struct {
    const char* what;
    bool set_first;  // set --hold, else hold and then a set
    int signal;
  } rows[] = {
      {"set --hold, SIGTERM", true, SIGTERM},
      {"set --hold, SIGINT", true, SIGINT},
      {"hold, then set, SIGINT", false, SIGINT},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    std::vector<std::string> words = row.set_first ? set_words() : std::vector<std::string>{"hold"};
    if (row.set_first) words.push_back("--hold");
    child holding(logtune(words), env());
    ASSERT_TRUE(holding.wait_for_stderr("\n", kHang)) << holding.err();
    EXPECT_EQ(holding.err().rfind("logtune: holding your shared block (process ", 0), 0u)
        << holding.err();
    EXPECT_NE(holding.err().find(") until Ctrl-C or SIGTERM\n"), std::string::npos)
        << holding.err();
    if (!row.set_first) {
      const auto set = run(set_words());
      EXPECT_EQ(set->finish(), 0);
      EXPECT_EQ(set->err(), "") << "the holder was not counted";
    }
    const auto show = run({"show"});
    EXPECT_EQ(show->out().rfind("shared record: set\nother processes holding the block: 1\n", 0),
              0u)
        << show->out();
    child traced({app_, "run", "1"}, env());
    ASSERT_EQ(traced.finish(kHang), 0);
    EXPECT_EQ(traced.out().rfind(logs_ + "app.", 0), 0u) << traced.out();

    holding.signal(row.signal);
    EXPECT_EQ(holding.finish(kHang), 0);
    EXPECT_EQ(holding.out(), row.set_first ? "shared record set\n" : "");
    EXPECT_EQ(lines_in(holding.err()), 2u) << holding.err();
    EXPECT_NE(holding.err().find("\nlogtune: letting go of your shared block; no other process "
                                 "holds it, so the block and its record are gone\n"),
              std::string::npos)
        << holding.err();
    const auto after = run({"show"});
    EXPECT_EQ(after->out(), "shared record: not set\nother processes holding the block: 0\n");
  }
#endif
}

// With SECONDS the hold ends by itself (the test waits for that end, killing
// a logtune that never ends), and its last line counts the programs that
// still hold the block, which keep the record.
TEST_F(LogTuneBlockTest, HoldForSecondsLetsGoByItself) {
  const std::string go = dir_.path() + "go";
  const auto program = holder(go);
  std::vector<std::string> words = set_words();
  words.insert(words.end(), {"--hold", "1"});
  for (const std::vector<std::string>& hold : {std::vector<std::string>{"hold", "1"}, words}) {
    SCOPED_TRACE(hold[0]);
    const auto holding = run(hold);
    EXPECT_EQ(holding->finish(), 0);
    EXPECT_EQ(holding->err().rfind("logtune: holding your shared block (process ", 0), 0u)
        << holding->err();
    EXPECT_NE(holding->err().find(") for 1 second; Ctrl-C or SIGTERM lets go sooner\n"
                                  "logtune: letting go of your shared block; 1 other process "
                                  "holds it\n"),
              std::string::npos)
        << holding->err();
  }
  const auto show = run({"show"});
  EXPECT_EQ(show->out().rfind("shared record: set\nother processes holding the block: 1\n", 0), 0u)
      << show->out();
  trace_test::write_file(go, "");
  EXPECT_EQ(program->finish(kHang), 0);
}

}  // namespace
