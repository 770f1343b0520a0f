#include <tvbase/trace/log_cfg.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <tvbase/frame/shared_data.h>
#include <tvbase/trace/crc.h>
#include <tvbase/trace/func_log.h>
#include <tvbase/trace/test_support.h>

namespace {

using trace::LogCfgFields;
using trace_test::temp_dir;

LogCfgFields all_on(const char* folder = "/tmp/logs/") {
  return {folder, true, true, "*", "*", "ActivationContext", true, true};
}

TvLogCfg filled(const LogCfgFields& fields) {
  TvLogCfg cfg{};
  EXPECT_TRUE(trace::FillLogCfg(cfg, fields));
  return cfg;
}

std::string bytes_of(const TvLogCfg& cfg) {
  return std::string(reinterpret_cast<const char*>(&cfg), sizeof cfg);
}

TEST(LogCfg, FillsTheRecordByteForByte) {
  const TvLogCfg cfg = filled({"F/", true, false, "app", "bob", "x", false, true});
  const std::string b = bytes_of(cfg);
  EXPECT_EQ(b.substr(0, 4), std::string("\x01\0\0\0", 4));
  EXPECT_EQ(b.substr(4, 3), std::string("F/\0", 3));
  EXPECT_EQ(b.substr(264, 4), std::string("app\0", 4));
  EXPECT_EQ(b.substr(2312, 4), std::string("bob\0", 4));
  EXPECT_EQ(b.substr(4357, 2), std::string("x\0", 2));
  EXPECT_EQ(b.substr(4869, 7), std::string("\0\x01\x01\0\0\0\0", 7));
  const std::uint32_t crc = TvCrc().Add(b.data(), 4876).GetCrc();
  EXPECT_EQ(b.substr(4876), std::string(reinterpret_cast<const char*>(&crc), 4));
  EXPECT_TRUE(trace::IsValidLogCfg(cfg));
}

TEST(LogCfg, StringLimits) {
  const struct {
    std::size_t folder, programs, users, options;
    const char* too_long;
  } rows[] = {
      {259, 2047, 2044, 511, nullptr},
      {260, 0, 0, 0, "logFolder"},
      {0, 2048, 0, 0, "programs"},
      {0, 0, 2045, 0, "users"},
      {0, 0, 0, 512, "options"},
      {260, 2048, 2045, 512, "logFolder"},  // the first in order is named
      {0, 0, 2045, 512, "users"},
  };
  for (const auto& row : rows) {
    const std::string folder(row.folder, 'f'), programs(row.programs, 'p'), users(row.users, 'u'),
        options(row.options, 'o');
    SCOPED_TRACE(row.too_long != nullptr ? row.too_long : "all fit");
    const LogCfgFields fields{folder.c_str(), false,           false, programs.c_str(),
                              users.c_str(),  options.c_str(), false, false};
    const char* named = trace::TooLongField(fields);
    EXPECT_STREQ(named != nullptr ? named : "", row.too_long != nullptr ? row.too_long : "");
    TvLogCfg cfg;
    std::memset(&cfg, 0x5C, sizeof cfg);
    const std::string before = bytes_of(cfg);
    EXPECT_EQ(trace::FillLogCfg(cfg, fields), row.too_long == nullptr);
    if (row.too_long != nullptr) {
      EXPECT_EQ(bytes_of(cfg), before) << "a refusal changed the record";
    } else {
      EXPECT_EQ(std::strlen(cfg.users), row.users);
    }
  }
}

TEST(LogCfg, FillLeavesBytesBehindTheZeros) {
  TvLogCfg cfg;
  std::memset(&cfg, 0x5C, sizeof cfg);
  ASSERT_TRUE(trace::FillLogCfg(cfg, all_on("ab")));
  EXPECT_EQ(cfg.logFolder[2], 0);
  EXPECT_EQ(cfg.logFolder[3], 0x5C);
  EXPECT_EQ(cfg.alignment[0], 0x5C);
  EXPECT_TRUE(trace::IsValidLogCfg(cfg)) << "the CRC covers whatever the record holds";
}

TEST(LogCfg, Validity) {
  const TvLogCfg good = filled(all_on());
  const struct {
    const char* what;
    std::size_t offset;  // a byte to change, or sizeof(TvLogCfg) for none
    bool refill_crc;
    bool valid;
  } rows[] = {
      {"as filled", sizeof(TvLogCfg), false, true},      {"a string byte", 300, false, false},
      {"an alignment byte", 4874, false, false},         {"the CRC", 4878, false, false},
      {"version 2 with a matching CRC", 0, true, false}, {"a flag, CRC refilled", 4869, true, true},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    TvLogCfg cfg = good;
    if (row.offset < sizeof cfg) reinterpret_cast<unsigned char*>(&cfg)[row.offset] ^= 0x03;
    if (row.refill_crc) cfg.crc = TvCrc().Add(&cfg, 4876).GetCrc();
    EXPECT_EQ(trace::IsValidLogCfg(cfg), row.valid);
  }
}

TEST(ListContains, Entries) {
  const struct {
    const char* list;
    const char* name;
    bool found;
  } rows[] = {
      {"  App.EXE ;; other.exe ; ", "app.exe", true},
      {"  App.EXE ;; other.exe ; ", "OTHER.EXE", true},
      {"  App.EXE ;; other.exe ; ", "app", false},
      {"app.exe2;x", "app.exe", false},
      {"x;app.exe2;app.exe", "app.exe", true},
      {"app.exe", "app.exe2", false},
      {"\tapp.exe\r\n", "app.exe", true},
      {"", "app.exe", false},
      {";;; ", "app.exe", false},
      {"*", "app.exe", false},
      {" *", "*", true},
      {"app.exe", "", false},
      {"app.exe", nullptr, false},
      {"app .exe", "app", false},
      {"bob;alice", "alice", true},
      {"bo;bob", "bob", true},
      {"bobby;bob", "bob", true},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(std::string(row.list) + " / " + (row.name ? row.name : "(null)"));
    EXPECT_EQ(trace::ListContains(row.list, row.name, ';'), row.found);
  }
}

TEST(SaveLogCfg, WritesTheRecord) {
  temp_dir dir;
  const std::string path = dir.path() + "TvLog.cfg";
  trace_test::write_file(path, std::string(6000, 'x'));  // replaced, not overwritten
  unsigned long error = 99;
  EXPECT_TRUE(
      TvFuncLog::SaveLogCfg(path.c_str(), "/l/", false, true, "a;b", "*", "", true, false, &error));
  EXPECT_EQ(error, 0u);
  EXPECT_EQ(trace_test::read_file(path),
            bytes_of(filled({"/l/", false, true, "a;b", "*", "", true, false})));
}

TEST(SaveLogCfg, Failures) {
  temp_dir dir;
  const std::string existing = dir.path() + "old.cfg";
  trace_test::write_file(existing, "keep me");
  std::filesystem::create_directory(dir.path() + "sub");
  const std::string long_users(2045, 'u');
  const struct {
    const char* what;
    std::string path;
    const char* users;
    bool result;
    unsigned long error;
  } rows[] = {
#if defined(_WIN32)
    // ERROR_PATH_NOT_FOUND, and ERROR_ACCESS_DENIED where a folder stands
    {"missing folder", dir.path() + "no/such/TvLog.cfg", "*", true, 3},
    {"a folder at the path", dir.path(), "*", true, 5},
    {"a folder at the name", dir.path() + "sub", "*", true, 5},
#else
    {"missing folder", dir.path() + "no/such/TvLog.cfg", "*", true, ENOENT},
    {"a folder at the path", dir.path(), "*", true, EISDIR},
    {"a folder at the name", dir.path() + "sub", "*", true, EISDIR},
#endif
    {"users too long", existing, long_users.c_str(), false, 160},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    unsigned long error = 0;
    EXPECT_EQ(TvFuncLog::SaveLogCfg(row.path.c_str(), "", false, false, "*", row.users, "", true,
                                    true, &error),
              row.result);
    EXPECT_EQ(error, row.error);
  }
  EXPECT_EQ(trace_test::read_file(existing), "keep me");
  EXPECT_FALSE(TvFuncLog::SaveLogCfg(existing.c_str(), "", false, false, "*", long_users.c_str(),
                                     "", true, true, nullptr));
  EXPECT_EQ(trace_test::read_file(existing), "keep me");
  EXPECT_EQ(trace_test::files_in(dir.path()), (std::vector<std::string>{"old.cfg", "sub"}))
      << "a passing file was left behind";
}

// A link at the path is replaced by the record's file; what it points to,
// or would make, is never written. No passing file is left behind.
TEST(SaveLogCfg, ReplacesALinkAtThePathNeverItsTarget) {
  const struct {
    const char* what;
    bool target_exists;
  } rows[] = {{"link to a file", true}, {"link to nothing", false}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    temp_dir dir;
    const std::string target = dir.path() + "target";
    const std::string path = dir.path() + "TvLog.cfg";
    if (row.target_exists) trace_test::write_file(target, "precious");
    std::error_code made;
    std::filesystem::create_symlink(target, path, made);
    if (made) GTEST_SKIP() << "this system makes no symbolic link: " << made.message();
    unsigned long error = 99;
    EXPECT_TRUE(TvFuncLog::SaveLogCfg(path.c_str(), "/l/", false, false, "*", "*", "", true, false,
                                      &error));
    EXPECT_EQ(error, 0u);
    EXPECT_FALSE(std::filesystem::is_symlink(path));
    EXPECT_EQ(trace_test::read_file(path),
              bytes_of(filled({"/l/", false, false, "*", "*", "", true, false})));
    EXPECT_EQ(std::filesystem::exists(target), row.target_exists);
    if (row.target_exists) {
      EXPECT_EQ(trace_test::read_file(target), "precious");
    }
    const std::vector<std::string> expected = row.target_exists
                                                  ? std::vector<std::string>{"TvLog.cfg", "target"}
                                                  : std::vector<std::string>{"TvLog.cfg"};
    EXPECT_EQ(trace_test::files_in(dir.path()), expected);
  }
}

TEST(SharedLogCfg, SetClearAndDamage) {
  TvSharedData shared{};
  TvLogCfg copy;
  EXPECT_EQ(trace::ReadSharedLogCfg(shared, copy), trace::eSharedCfgState::NotSet);
  ASSERT_TRUE(trace::SetSharedLogCfg(shared, all_on("/a/")));
  EXPECT_EQ(shared.cfgSet, 1u);
  EXPECT_EQ(shared.lock, 0u);
  EXPECT_EQ(trace::ReadSharedLogCfg(shared, copy), trace::eSharedCfgState::Set);
  EXPECT_STREQ(copy.logFolder, "/a/");

  // Too long: record and flag stay.
  const std::string long_options(512, 'o');
  LogCfgFields refused = all_on("/b/");
  refused.options = long_options.c_str();
  EXPECT_FALSE(trace::SetSharedLogCfg(shared, refused));
  EXPECT_EQ(trace::ReadSharedLogCfg(shared, copy), trace::eSharedCfgState::Set);
  EXPECT_STREQ(copy.logFolder, "/a/");

  trace::SharedLogCfg(shared).version = 2;
  EXPECT_EQ(trace::ReadSharedLogCfg(shared, copy), trace::eSharedCfgState::Damaged);
  trace::ClearSharedLogCfg(shared);
  EXPECT_EQ(shared.cfgSet, 0u);
  EXPECT_EQ(trace::SharedLogCfg(shared).version, 2u) << "clearing keeps the record's bytes";
  EXPECT_EQ(trace::ReadSharedLogCfg(shared, copy), trace::eSharedCfgState::NotSet);
}

// The activation decision, with a program in a temporary folder.
class DecideActivationTest : public ::testing::Test {
 protected:
  static bool alice(char* out, std::size_t capacity) {
    if (capacity < 6) return false;
    std::memcpy(out, "alice", 6);
    return true;
  }
  static bool no_user(char*, std::size_t) { return false; }
  static platform::local_time fixed_time() { return {2026, 2, 3, 9, 5, 7, 12}; }

  trace::ActivationEnv env(const std::string& program) {
    program_ = dir_.path() + program;
    return {program_.c_str(), alice, 4242, fixed_time, false};
  }
  void save(const LogCfgFields& fields) {
    trace_test::write_file(dir_.path() + "TvLog.cfg", bytes_of(filled(fields)));
  }

  // Runs the decision; keeps it in decision_ and gives whether it said yes.
  bool decide(const trace::ActivationEnv& e) {
    decision_ = trace::DecideActivation(shared_, e);
    return decision_.on;
  }

  temp_dir dir_;
  std::string program_;
  TvSharedData shared_{};
  trace::ActivationDecision decision_;
};

TEST_F(DecideActivationTest, FromTheFile) {
  const struct {
    const char* what;
    const char* program;
    const char* programs;
    const char* users;
    bool user_fails;
    bool yes;
  } rows[] = {
      {"everyone", "app", "*", "*", false, true},
      {"program listed", "app.bin", "x; APP.BIN ;y", "*", false, true},
      {"program not listed", "app", "apps;x", "*", false, false},
      {"empty programs", "app", "", "*", false, false},
      {"blank and asterisk", "app", " *", "*", false, false},
      {"user listed", "app", "*", "bob;Alice", false, true},
      {"user not listed", "app", "*", "bob", false, false},
      {"empty users", "app", "*", "", false, false},
      {"user name unknown", "app", "*", "alice", true, false},
      {"user name not needed", "app", "*", "*", true, true},
      {"LogTune", "LogTune", "*", "*", false, false},
      {"logtune.EXE", "logtune.EXE", "*", "*", false, false},
      {"LogTune2", "LogTune2", "*", "*", false, true},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    save({"/logs/", false, false, row.programs, row.users, "", true, false});
    trace::ActivationEnv e = env(row.program);
    if (row.user_fails) e.userName = no_user;
    EXPECT_EQ(decide(e), row.yes);
    if (row.yes) {
      EXPECT_EQ(std::string(decision_.fileName),
                std::string("/logs/") + row.program + ".4242 03-02-2026 09.05.07.012.log");
    }
  }
}

TEST_F(DecideActivationTest, TakesTheOptions) {
  save({"", true, true, "*", "*", "x; activationcontext ", false, true});
  ASSERT_TRUE(decide(env("app")));
  EXPECT_TRUE(decision_.deleteOnClose);
  EXPECT_TRUE(decision_.debugEcho);
  EXPECT_FALSE(decision_.enabled[0]);
  EXPECT_TRUE(decision_.enabled[1]);
  EXPECT_TRUE(decision_.actCtx);
  EXPECT_STREQ(decision_.fileName, "app.4242 03-02-2026 09.05.07.012.log") << "relative to the cwd";
}

TEST_F(DecideActivationTest, BadFiles) {
  const std::string good = bytes_of(filled(all_on()));
  TvLogCfg version2 = filled(all_on());
  version2.version = 2;
  version2.crc = TvCrc().Add(&version2, 4876).GetCrc();
  const struct {
    const char* what;
    std::string bytes;
    bool yes;
  } rows[] = {
      {"valid", good, true},
      {"one byte more", good + "x", true},
      {"one byte less", good.substr(0, 4879), false},
      {"empty", "", false},
      {"twice the size", good + good, true},
      {"wrong CRC", good.substr(0, 4879) + static_cast<char>(good[4879] ^ 1), false},
      {"version 2", bytes_of(version2), false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    trace_test::write_file(dir_.path() + "TvLog.cfg", row.bytes);
    EXPECT_EQ(decide(env("app")), row.yes);
  }
  std::filesystem::remove(dir_.path() + "TvLog.cfg");
  EXPECT_FALSE(decide(env("app"))) << "no file";
}

TEST_F(DecideActivationTest, StringsWithoutTheirZeroStayInTheirField) {
  // Under ASan a read past a field shows; here the options run into the
  // flags, and the folder into the program list.
  TvLogCfg cfg = filled(all_on());
  std::memset(cfg.options, 'A', sizeof cfg.options);
  std::memset(cfg.logFolder, 'f', sizeof cfg.logFolder);
  cfg.filter0 = true;
  cfg.crc = TvCrc().Add(&cfg, 4876).GetCrc();
  trace_test::write_file(dir_.path() + "TvLog.cfg", bytes_of(cfg));
  EXPECT_FALSE(decide(env("a"))) << "259 + 34 characters";
  EXPECT_FALSE(decision_.actCtx);
  EXPECT_STREQ(decision_.fileName, "");
}

TEST_F(DecideActivationTest, PathLimits) {
  const std::string deep = dir_.path() + std::string(260 - 10 - dir_.path().size(), 'd') + "/app";
  ASSERT_TRUE(std::filesystem::create_directory(deep.substr(0, deep.size() - 4)));
  trace_test::write_file(deep.substr(0, deep.size() - 3) + "TvLog.cfg",
                         bytes_of(filled(all_on(""))));
  const std::string roomy = deep.substr(0, deep.size() - 5) + "/app";  // one shorter
  ASSERT_TRUE(std::filesystem::create_directory(roomy.substr(0, roomy.size() - 4)));
  trace_test::write_file(roomy.substr(0, roomy.size() - 3) + "TvLog.cfg",
                         bytes_of(filled(all_on(""))));
  const std::string long_folder(200, 'l');
  const struct {
    const char* what;
    const char* path;
    const char* log_folder;
    bool yes;
  } rows[] = {
      {"no path", nullptr, "/", false},
      {"no separator", "app", "/", false},
      {"TvLog.cfg path of 260 characters", deep.c_str(), "/", false},
      {"TvLog.cfg path of 259 characters", roomy.c_str(), "/", true},
      {"log file name of 260 characters", nullptr, long_folder.c_str(), false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    save({row.log_folder, false, false, "*", "*", "", true, true});
    trace::ActivationEnv e = env(std::string(43, 'p'));
    if (row.path != nullptr || std::strcmp(row.what, "no path") == 0) e.programPath = row.path;
    EXPECT_EQ(decide(e), row.yes);
    if (!row.yes) {
      EXPECT_STREQ(decision_.fileName, "");
    }
  }
}

TEST_F(DecideActivationTest, SharedRecordWinsOverTheFile) {
  save({"/file/", false, false, "*", "*", "", true, true});
  ASSERT_TRUE(
      trace::SetSharedLogCfg(shared_, {"/shared/", false, false, "*", "*", "", true, true}));
  ASSERT_TRUE(decide(env("app")));
  EXPECT_EQ(std::string(decision_.fileName).substr(0, 8), "/shared/");
  EXPECT_EQ(shared_.lock, 0u);

  // A shared record that names other programs still wins: no trace.
  ASSERT_TRUE(
      trace::SetSharedLogCfg(shared_, {"/shared/", false, false, "x", "*", "", true, true}));
  EXPECT_FALSE(decide(env("app")));
}

TEST_F(DecideActivationTest, LockedSharedRecordIsPassedBy) {
  save({"/file/", false, false, "*", "*", "", true, true});
  ASSERT_TRUE(
      trace::SetSharedLogCfg(shared_, {"/shared/", false, false, "*", "*", "", true, true}));
  shared_.lock = 1;
  trace::SharedLogCfg(shared_).version = 2;  // damaged, but nobody may look
  ASSERT_TRUE(decide(env("app")));
  EXPECT_EQ(std::string(decision_.fileName).substr(0, 6), "/file/");
  EXPECT_EQ(shared_.lock, 1u);
  EXPECT_EQ(shared_.cfgSet, 1u);
}

TEST_F(DecideActivationTest, DamagedSharedRecordIsClearedAndTheFileDecides) {
  save({"/file/", false, false, "*", "*", "", true, true});
  ASSERT_TRUE(
      trace::SetSharedLogCfg(shared_, {"/shared/", false, false, "*", "*", "", true, true}));
  trace::SharedLogCfg(shared_).version = 2;
  trace::SharedLogCfg(shared_).crc = TvCrc().Add(&trace::SharedLogCfg(shared_), 4876).GetCrc();
  ASSERT_TRUE(decide(env("app")));
  EXPECT_EQ(std::string(decision_.fileName).substr(0, 6), "/file/");
  EXPECT_EQ(shared_.cfgSet, 0u);
  EXPECT_EQ(shared_.lock, 0u);
}

TEST_F(DecideActivationTest, LogTuneIgnoresEvenTheSharedRecord) {
  ASSERT_TRUE(trace::SetSharedLogCfg(shared_, all_on()));
  shared_.lock = 0;
  EXPECT_FALSE(decide(env("LOGTUNE")));
  EXPECT_FALSE(decide(env("LogTune.exe")));
  EXPECT_EQ(shared_.cfgSet, 1u);
}

// A process that runs with rights its starter may lack never traces, and
// never touches the shared record: not even a damaged one is cleared.
TEST_F(DecideActivationTest, SecureExecutionNeverTraces) {
  const struct {
    const char* what;
    bool shared, damaged, locked;
  } rows[] = {
      {"the file alone", false, false, false},
      {"a shared record", true, false, false},
      {"a damaged shared record", true, true, false},
      {"a locked shared record", true, false, true},
  };
  save(all_on());
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    shared_ = TvSharedData{};
    if (row.shared) {
      ASSERT_TRUE(trace::SetSharedLogCfg(shared_, all_on("/shared/")));
    }
    if (row.damaged) trace::SharedLogCfg(shared_).version = 2;
    shared_.lock = row.locked ? 1 : 0;
    trace::ActivationEnv e = env("app");
    ASSERT_TRUE(decide(e)) << "traces when not secure";
    if (row.damaged) {
      ASSERT_TRUE(trace::SetSharedLogCfg(shared_, all_on("/shared/")));
      trace::SharedLogCfg(shared_).version = 2;
    }
    e.secureExecution = true;
    EXPECT_FALSE(decide(e));
    EXPECT_STREQ(decision_.fileName, "");
    EXPECT_EQ(shared_.cfgSet, row.shared ? 1u : 0u);
    EXPECT_EQ(shared_.lock, row.locked ? 1u : 0u);
  }
}

// ---------------------------------------------------------------------------
// Former bugs

// The flags were read as bools, but a record from a file may hold any byte
// there, and a bool holding other than 0 or 1 is undefined behaviour (UBSan
// reported it). Any byte but 0 now counts as set.
TEST_F(DecideActivationTest, FlagsMayHoldAnyByte) {
  const struct {
    unsigned char byte;
    bool on;
  } rows[] = {{0, false}, {1, true}, {2, true}, {0x80, true}, {0xFF, true}};
  for (const auto& row : rows) {
    SCOPED_TRACE(static_cast<int>(row.byte));
    TvLogCfg cfg = filled(all_on());
    std::memset(&cfg.filter0, row.byte, 4);  // filter0, filter1, deleteOnClose, debugEcho
    cfg.crc = TvCrc().Add(&cfg, 4876).GetCrc();
    trace_test::write_file(dir_.path() + "TvLog.cfg", bytes_of(cfg));
    ASSERT_TRUE(decide(env("app")));
    EXPECT_EQ(decision_.enabled[0], row.on);
    EXPECT_EQ(decision_.enabled[1], row.on);
    EXPECT_EQ(decision_.deleteOnClose, row.on);
    EXPECT_EQ(decision_.debugEcho, row.on);
  }
}

}  // namespace
