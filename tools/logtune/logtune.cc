// logtune: switches the call trace of programs that use the library on and
// off from outside them, through TvLog.cfg beside a program or the record
// shared by one user's processes.
//
// It needs the frame's internals (a raw look at the shared record, the
// recovery of a lock word left held by a dead process), which the shared
// library does not export, so it is linked with the library's objects. Its
// own name keeps it from ever tracing itself.
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <iostream>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <fmt/format.h>

#include <tvbase/frame/shared_data.h>
#include <tvbase/platform/error_text.h>
#include <tvbase/platform/file.h>
#include <tvbase/platform/process.h>
#include <tvbase/platform/user.h>
#include <tvbase/trace/func_log.h>
#include <tvbase/trace/log_cfg.h>

#include "../tvbase/cli.h"

namespace {

constexpr std::string_view kUsage =
    R"(usage: logtune COMMAND [OPTIONS]

Switches the call trace of programs that use TvBase on or off. A program
reads its configuration once, when it starts: from the record shared by its
user's processes if that is set, else from TvLog.cfg in the program's folder.

commands:
  save PATH [FIELDS]  write the 4,880-byte record to PATH (e.g. <dir>/TvLog.cfg)
  set [FIELDS] [--hold [SECONDS]]
                      put the record into your shared block; with --hold,
                      then hold the block as 'hold' does
  clear               mark your shared record not set
  show [PATH]         print your shared record's state (not set, set, damaged),
                      how many other processes hold the block, and its fields;
                      or the state and fields of the record in the file PATH
  unlock              force your shared record's lock word back to 0
  hold [SECONDS]      keep your shared block, and so its record, alive until
                      interrupted (Ctrl-C, SIGTERM) or for SECONDS

  --user NAME         with set, clear, show, unlock and hold, run by root: act
                      on the block of user NAME (made for that user if need be)

fields (strings are empty and flags off unless given):
  --folder TEXT       put in front of the log file's name; end a folder with '/'
  --programs LIST     "*" for every program, else file names separated by ';'
  --users LIST        "*" for every user, else login names separated by ';'
  --options LIST      option words separated by ';' (ActivationContext)
  --filter0           trace objects of filter class 0 write
  --filter1           trace objects of filter class 1 write
  --delete-on-close   remove the log file when the program ends normally
  --debug-echo        send each line to standard error as well

The shared block lives only while a process holds it: a record set while no
program runs is gone when logtune ends (set says so). Start the program
first, or keep the block with --hold or hold, or save a TvLog.cfg instead.

One block per user: the shared record is seen by the processes of one user
only, and set, clear, show, unlock and hold act on the caller's. To switch the
trace on for another user's programs, write TvLog.cfg beside them (save), or
run logtune as root with --user. A log is written only into a folder that
no other user can add names to or remove names from (owned by the program's
user or root, and sticky where others may write), never by a set-user-ID
program, and only that user can read it.

Recovery: set, clear and show wait while another process holds the shared
record's lock. A lock left held by a process that died is never released;
logtune says so after 2 seconds, and 'logtune unlock' forces it free (only
do that when no other logtune or program is changing the record).

exit status: 0 success, 1 failure, 2 usage error
)";

// The 21st failed attempt comes after 20 sleeps of 100 ms: 2 seconds.
constexpr unsigned kAttemptsBeforeNotice = 21;

void notice_waiting(unsigned attempts) {
  if (attempts != kAttemptsBeforeNotice) return;
  std::cerr << "logtune: waiting for the shared record's lock, held for 2 seconds now; if the "
               "process holding it died, run 'logtune unlock'\n";
}

// Set by SIGINT and SIGTERM while logtune holds the block.
volatile std::sig_atomic_t g_stop = 0;

extern "C" void stop_holding(int) { g_stop = 1; }

// The longest hold that SECONDS may ask for: some 31 years.
constexpr unsigned long kMostHoldSeconds = 1'000'000'000;

unsigned long hold_seconds(const std::string& text) {
  const unsigned long seconds = cli::parse_unsigned(text, "SECONDS");
  if (seconds > kMostHoldSeconds) {
    throw cli::usage_error(fmt::format("SECONDS must be at most {}", kMostHoldSeconds));
  }
  return seconds;
}

// "your shared block", or with --user "the shared block of NAME".
std::string whose_block(const std::optional<std::string>& user) {
  return user ? "the shared block of " + *user : std::string("your shared block");
}

// How many processes besides logtune hold the block in use; -1 where that
// can't be told.
long other_holders() {
  const long all = frame::shared_data_holders();
  return all > 0 ? all - 1 : -1;
}

std::string holders_text(long others) {
  if (others < 0) return "whether other processes hold it can't be told here";
  if (others == 0) return "no other process holds it";
  return fmt::format("{} other process{} hold{} it", others, others == 1 ? "" : "es",
                     others == 1 ? "s" : "");
}

// Keeps the block in use until SIGINT or SIGTERM, or for `seconds`; one line
// on standard error when it starts holding and one when it lets go.
void hold_block(const std::optional<std::string>& user, std::optional<unsigned long> seconds) {
  std::signal(SIGINT, stop_holding);
  std::signal(SIGTERM, stop_holding);
  const std::string block = whose_block(user);
  std::cerr << fmt::format("logtune: holding {} (process {}) {}\n", block, platform::process_id(),
                           seconds
                               ? fmt::format("for {} second{}; Ctrl-C or SIGTERM lets go sooner",
                                             *seconds, *seconds == 1 ? "" : "s")
                               : std::string("until Ctrl-C or SIGTERM"));
  const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(seconds.value_or(0));
  constexpr auto kTick = std::chrono::milliseconds(50);
  while (g_stop == 0) {
    if (!seconds) {
      std::this_thread::sleep_for(kTick);
      continue;
    }
    const auto now = std::chrono::steady_clock::now();
    if (now >= until) break;
    std::this_thread::sleep_for(std::min<std::chrono::steady_clock::duration>(kTick, until - now));
  }
  const long others = other_holders();
  std::cerr << fmt::format("logtune: letting go of {}; {}{}\n", block, holders_text(others),
                           others == 0 ? ", so the block and its record are gone" : "");
}

struct field_values {
  std::string folder, programs, users, options;
  trace::LogCfgFields fields;
};

field_values take_fields(cli::args& args) {
  field_values v;
  v.folder = args.option("folder").value_or("");
  v.programs = args.option("programs").value_or("");
  v.users = args.option("users").value_or("");
  v.options = args.option("options").value_or("");
  v.fields.logFolder = v.folder.c_str();
  v.fields.programs = v.programs.c_str();
  v.fields.users = v.users.c_str();
  v.fields.options = v.options.c_str();
  v.fields.filter0 = args.flag("filter0");
  v.fields.filter1 = args.flag("filter1");
  v.fields.deleteOnClose = args.flag("delete-on-close");
  v.fields.debugEcho = args.flag("debug-echo");
  return v;
}

// Names the field that doesn't fit, as the user spelled it.
void check_lengths(const field_values& v) {
  const char* field = trace::TooLongField(v.fields);
  if (field == nullptr) return;
  struct limit {
    const char* field;
    const char* option;
    const std::string* value;
    std::size_t most;
  };
  const limit limits[] = {{"logFolder", "--folder", &v.folder, sizeof TvLogCfg::logFolder - 1},
                          {"programs", "--programs", &v.programs, sizeof TvLogCfg::programs - 1},
                          {"users", "--users", &v.users, sizeof TvLogCfg::users - 1},
                          {"options", "--options", &v.options, sizeof TvLogCfg::options - 1}};
  for (const limit& l : limits) {
    if (std::strcmp(l.field, field) != 0) continue;
    throw cli::failure(fmt::format("{} is too long: {} characters, at most {} fit (error {})",
                                   l.option, l.value->size(), l.most, trace::kErrorTooLong));
  }
}

// The shared block that set, clear, show and unlock act on: the caller's, or
// with --user (root only) that user's. Throws when it can't be had: acting on
// a block of this process's own would change nothing that any program reads.
TvSharedData& shared_block(const std::optional<std::string>& user) {
  if (user) {
    if (!platform::acts_for_every_user()) {
      throw cli::failure("--user is for root: other users' blocks are open to them alone");
    }
    platform::user_account account;
    if (!platform::find_user(user->c_str(), account)) {
      throw cli::failure(fmt::format("there is no user called {}", *user));
    }
    if (!frame::attach_shared_data(account)) {
      throw cli::failure(fmt::format(
          "the shared block of {} can't be had: an object at its name belongs to another user, "
          "is open to others, or is held at another size or locked",
          *user));
    }
  } else if (!frame::shared_data_is_shared()) {
    throw cli::failure(
        "your shared block can't be had: an object at its name belongs to another user, is "
        "open to others, or is held at another size or locked");
  }
  return *TvGetSharedData();
}

std::string_view bounded(const char* field, std::size_t size) {
  return {field, ::strnlen(field, size)};
}

// The processes that keep the block, and so the record, alive.
void print_holders() {
  const long others = other_holders();
  std::cout << "other processes holding the block: "
            << (others < 0 ? std::string("can't be told here") : std::to_string(others)) << '\n';
}

void print_fields(const TvLogCfg& cfg) {
  const auto line = [](std::string_view label, const auto& value) {
    std::cout << fmt::format("  {:<16}{}\n", label, value);
  };
  const auto yes_no = [](bool b) { return b ? "yes" : "no"; };
  line("version", cfg.version);
  line("folder", bounded(cfg.logFolder, sizeof cfg.logFolder));
  line("programs", bounded(cfg.programs, sizeof cfg.programs));
  line("users", bounded(cfg.users, sizeof cfg.users));
  line("options", bounded(cfg.options, sizeof cfg.options));
  line("filter0", yes_no(cfg.filter0));
  line("filter1", yes_no(cfg.filter1));
  line("delete-on-close", yes_no(cfg.deleteOnClose));
  line("debug-echo", yes_no(cfg.debugEcho));
  line("crc", fmt::format("{:08x}", cfg.crc));
}

int run_save(cli::args& args) {
  const field_values v = take_fields(args);
  const auto words = args.positional(1);
  if (words.empty()) throw cli::usage_error("save needs the PATH of the file to write");
  check_lengths(v);
  const trace::LogCfgFields& f = v.fields;
  unsigned long error = 0;
  if (!TvFuncLog::SaveLogCfg(words[0].c_str(), f.logFolder, f.deleteOnClose, f.debugEcho,
                             f.programs, f.users, f.options, f.filter0, f.filter1, &error)) {
    throw cli::failure(fmt::format("the fields don't fit the record (error {})", error));
  }
  if (error != 0) {
    throw cli::failure(fmt::format("cannot write {}: {}", words[0], platform::error_text(error)));
  }
  std::cout << "wrote " << words[0] << '\n';
  return cli::kOk;
}

int run_set(cli::args& args) {
  const field_values v = take_fields(args);
  const std::optional<std::string> user = args.option("user");
  // "--hold SECONDS" reaches here as "--hold=SECONDS" (see main).
  const bool hold = args.flag("hold");
  const std::optional<std::string> hold_for = args.option("hold");
  const std::optional<unsigned long> seconds =
      hold_for ? std::optional(hold_seconds(*hold_for)) : std::nullopt;
  args.positional(0);
  check_lengths(v);
  if (!trace::SetSharedLogCfg(shared_block(user), v.fields, notice_waiting)) {
    throw cli::failure("the fields don't fit the record");
  }
  std::cout << "shared record set" << std::endl;
  if (hold || hold_for) {
    hold_block(user, seconds);
  } else if (other_holders() == 0) {
    std::cerr << "logtune set: no other process holds " << whose_block(user)
              << ", so the record is gone when logtune ends: start the program first, or add "
                 "--hold, or save a TvLog.cfg beside the program\n";
  }
  return cli::kOk;
}

int run_hold(cli::args& args) {
  const std::optional<std::string> user = args.option("user");
  const auto words = args.positional(1);
  const std::optional<unsigned long> seconds =
      words.empty() ? std::nullopt : std::optional(hold_seconds(words[0]));
  (void)shared_block(user);
  hold_block(user, seconds);
  return cli::kOk;
}

int run_clear(cli::args& args) {
  const std::optional<std::string> user = args.option("user");
  args.positional(0);
  trace::ClearSharedLogCfg(shared_block(user), notice_waiting);
  std::cout << "shared record cleared\n";
  return cli::kOk;
}

int run_show(cli::args& args) {
  const std::optional<std::string> user = args.option("user");
  const auto words = args.positional(1);
  TvLogCfg cfg{};
  if (words.empty()) {
    switch (trace::ReadSharedLogCfg(shared_block(user), cfg, notice_waiting)) {
      case trace::eSharedCfgState::NotSet:
        std::cout << "shared record: not set\n";
        print_holders();
        return cli::kOk;
      case trace::eSharedCfgState::Set: std::cout << "shared record: set\n"; break;
      case trace::eSharedCfgState::Damaged:
        std::cout << "shared record: damaged (the next program to start clears it)\n";
        break;
    }
    print_holders();
    print_fields(cfg);
    return cli::kOk;
  }
  if (user) throw cli::usage_error("--user goes with the shared record, not with a PATH");
  // One byte more than the record, to tell a longer file. A pipe or device
  // is never read: it could keep logtune waiting.
  unsigned char bytes[sizeof(TvLogCfg) + 1];
  const long n = platform::read_file_start(words[0].c_str(), bytes, sizeof bytes);
  if (n == platform::kNotRegularFile) {
    throw cli::failure(fmt::format("cannot read {}: not a regular file", words[0]));
  }
  if (n < 0) {
    throw cli::failure(fmt::format("cannot read {}: {}", words[0], std::strerror(errno)));
  }
  const auto size = static_cast<std::size_t>(n);
  if (size < sizeof cfg) {
    std::cout << fmt::format("{}: not valid ({} bytes, a record has {})\n", words[0], size,
                             sizeof cfg);
    return cli::kOk;
  }
  std::memcpy(&cfg, bytes, sizeof cfg);
  std::string_view verdict = "valid";
  if (cfg.version != 1) {
    verdict = "not valid (version is not 1)";
  } else if (!trace::IsValidLogCfg(cfg)) {
    verdict = "not valid (CRC mismatch)";
  }
  std::cout << words[0] << ": " << verdict
            << (size > sizeof cfg ? " (bytes beyond the record are not read)" : "") << '\n';
  print_fields(cfg);
  return cli::kOk;
}

int run_unlock(cli::args& args) {
  const std::optional<std::string> user = args.option("user");
  args.positional(0);
  TvSharedData& shared = shared_block(user);
  const bool was_held = shared.lock != 0;
  frame::force_unlock(shared);
  std::cout << (was_held ? "lock word forced back to 0\n" : "lock word was already 0\n");
  return cli::kOk;
}

struct command {
  std::string_view name;
  int (*run)(cli::args&);
};

constexpr command kCommands[] = {{"save", run_save}, {"set", run_set},       {"clear", run_clear},
                                 {"show", run_show}, {"unlock", run_unlock}, {"hold", run_hold}};

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::cerr << kUsage;
    return cli::kUsage;
  }
  const std::string_view name = argv[1];
  if (name == "--help" || name == "-h" || name == "help") {
    std::cout << kUsage;
    return cli::kOk;
  }
  for (const command& c : kCommands) {
    if (c.name != name) continue;
    try {
      // --hold takes a value only when one follows it: "--hold 30" is
      // "--hold=30", a bare "--hold" is a flag.
      std::vector<std::string> words(argv + 2, argv + argc);
      for (std::size_t i = 0; i + 1 < words.size(); ++i) {
        if (words[i] != "--hold" || words[i + 1].empty() ||
            words[i + 1].find_first_not_of("0123456789") != std::string::npos) {
          continue;
        }
        words[i] += "=" + words[i + 1];
        words.erase(words.begin() + static_cast<std::ptrdiff_t>(i) + 1);
      }
      std::vector<char*> pointers;
      for (std::string& word : words) pointers.push_back(word.data());
      cli::args args(pointers);
      if (args.help()) {
        std::cout << kUsage;
        return cli::kOk;
      }
      const int status = c.run(args);
      std::cout.flush();
      return status;
    } catch (const cli::usage_error& e) {
      std::cerr << "logtune " << name << ": " << e.what() << "\n\n" << kUsage;
      return cli::kUsage;
    } catch (const std::exception& e) {
      std::cout.flush();
      std::cerr << "logtune " << name << ": " << e.what() << '\n';
      return cli::kFailed;
    }
  }
  std::cerr << "logtune: unknown command '" << name << "'\n\n" << kUsage;
  return cli::kUsage;
}
