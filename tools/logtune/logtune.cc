// logtune: switches the call trace of programs that use the library on and
// off from outside them, through TvLog.cfg beside a program or the record
// shared by all processes.
//
// It needs the frame's internals (a raw look at the shared record, the
// recovery of a lock word left held by a dead process), which the shared
// library does not export, so it is linked with the library's objects. Its
// own name keeps it from ever tracing itself.
#include <cerrno>
#include <cstring>
#include <iostream>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include <fmt/format.h>

#include <tvbase/frame/shared_data.h>
#include <tvbase/platform/error_text.h>
#include <tvbase/platform/file.h>
#include <tvbase/trace/func_log.h>
#include <tvbase/trace/log_cfg.h>

#include "../tvbase/cli.h"

namespace {

constexpr std::string_view kUsage =
    R"(usage: logtune COMMAND [OPTIONS]

Switches the call trace of programs that use TvBase on or off. A program
reads its configuration once, when it starts: from the record shared by all
processes if that is set, else from TvLog.cfg in the program's folder.

commands:
  save PATH [FIELDS]  write the 4,880-byte record to PATH (e.g. <dir>/TvLog.cfg)
  set [FIELDS]        put the record into the block shared by all processes
  clear               mark the shared record not set
  show [PATH]         print the shared record's state (not set, set, damaged)
                      and fields, or those of the record in the file PATH
  unlock              force the shared record's lock word back to 0

fields (strings are empty and flags off unless given):
  --folder TEXT       put in front of the log file's name; end a folder with '/'
  --programs LIST     "*" for every program, else file names separated by ';'
  --users LIST        "*" for every user, else login names separated by ';'
  --options LIST      option words separated by ';' (ActivationContext)
  --filter0           trace objects of filter class 0 write
  --filter1           trace objects of filter class 1 write
  --delete-on-close   remove the log file when the program ends normally
  --debug-echo        send each line to standard error as well

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

std::string_view bounded(const char* field, std::size_t size) {
  return {field, ::strnlen(field, size)};
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
  args.positional(0);
  check_lengths(v);
  if (!trace::SetSharedLogCfg(*TvGetSharedData(), v.fields, notice_waiting)) {
    throw cli::failure("the fields don't fit the record");
  }
  std::cout << "shared record set\n";
  return cli::kOk;
}

int run_clear(cli::args& args) {
  args.positional(0);
  trace::ClearSharedLogCfg(*TvGetSharedData(), notice_waiting);
  std::cout << "shared record cleared\n";
  return cli::kOk;
}

int run_show(cli::args& args) {
  const auto words = args.positional(1);
  TvLogCfg cfg{};
  if (words.empty()) {
    switch (trace::ReadSharedLogCfg(*TvGetSharedData(), cfg, notice_waiting)) {
      case trace::eSharedCfgState::NotSet: std::cout << "shared record: not set\n"; return cli::kOk;
      case trace::eSharedCfgState::Set: std::cout << "shared record: set\n"; break;
      case trace::eSharedCfgState::Damaged:
        std::cout << "shared record: damaged (the next program to start clears it)\n";
        break;
    }
    print_fields(cfg);
    return cli::kOk;
  }
  // One byte more than the record, to tell a longer file.
  unsigned char bytes[sizeof(TvLogCfg) + 1];
  const long n = platform::read_file_start(words[0].c_str(), bytes, sizeof bytes);
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
  args.positional(0);
  TvSharedData& shared = *TvGetSharedData();
  const bool was_held = shared.lock != 0;
  frame::force_unlock(shared);
  std::cout << (was_held ? "lock word forced back to 0\n" : "lock word was already 0\n");
  return cli::kOk;
}

struct command {
  std::string_view name;
  int (*run)(cli::args&);
};

constexpr command kCommands[] = {{"save", run_save},
                                 {"set", run_set},
                                 {"clear", run_clear},
                                 {"show", run_show},
                                 {"unlock", run_unlock}};

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
      cli::args args(std::span<char* const>(argv + 2, static_cast<std::size_t>(argc - 2)));
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
