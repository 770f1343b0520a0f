#ifndef TVBASE_TESTING_PROCESSES_H
#define TVBASE_TESTING_PROCESSES_H

// What tests need of processes and of the system beyond what the library's
// platform layer offers: forked copies of the test, started programs with
// their output, guard pages, resource limits. Test code only; the library
// never links it. Nothing here throws; a call that fails says so in its
// result (a child that could not start ends with exit code -1).
//
//   testing_support::forked_child child([] { return distinct_value::get() > 0 ? 0 : 1; });
//   EXPECT_EQ(child.wait().code, 0);
//
//   testing_support::program tool({"/usr/bin/logtune", "show"});
//   EXPECT_EQ(tool.finish(), 0);
//   EXPECT_NE(tool.out().find("not set"), std::string::npos);

#include <csignal>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

// Windows has no kill signal; its value stands for the exit code 128 + 9
// that an ended program gives there (program::signal).
#if defined(_WIN32) && !defined(SIGKILL)
#define SIGKILL 9
#endif

namespace testing_support {

// Whether forked_child, in_child and as_other_user work: not on Windows,
// which has no fork(). Tests that need them skip there, saying why.
// Whether limit_file_size can stand in for a full disk: not on Windows,
// which limits no process's file sizes.
#if defined(_WIN32)
inline constexpr bool can_fork = false;
inline constexpr bool can_limit_file_size = false;
#else
inline constexpr bool can_fork = true;
inline constexpr bool can_limit_file_size = true;
#endif

// Ends this process at once as the kill signal would (SIGKILL; on Windows
// TerminateProcess with 128 + 9).
void kill_this_process();

// How a child process ended: by exit with `code`, or killed by `signal`.
struct exit_status {
  bool exited = false;
  int code = -1;
  int signal = 0;
};

// A forked copy of this process that runs `body` and ends with its result as
// the exit code, running no exit handlers; the parent goes on at once.
class forked_child {
 public:
  explicit forked_child(const std::function<int()>& body);
  // Kills the child if it still runs, and waits for it.
  ~forked_child();
  forked_child(const forked_child&) = delete;
  forked_child& operator=(const forked_child&) = delete;

  bool started() const { return pid_ > 0; }
  // The child's process number, which a program it runs (exec_program) keeps.
  long pid() const { return pid_; }
  // Sends the kill signal (SIGKILL) if the child still runs.
  void kill();
  // Waits for the end (once; later calls give the same).
  exit_status wait();
  // The same, but a child still running after `seconds` is killed first: a
  // guard against a hang, never a measure of time.
  exit_status wait(int seconds);

 private:
  long pid_ = -1;
  exit_status status_;
};

// Replaces this process (a forked child) by the program `words` (its path
// and arguments), with its standard output going to the file `out_path`
// (replaced). Returns, with 127, only if that failed.
int exec_program(const std::vector<std::string>& words, const std::string& out_path);

// Runs `body` in a forked child and waits: its exit code, or -1 if it didn't
// exit normally.
int in_child(const std::function<int()>& body);

// A started program with its standard output and error. `words` are its path
// and arguments; `environment` holds variables set for it alone.
class program {
 public:
  explicit program(std::vector<std::string> words,
                   const std::vector<std::pair<std::string, std::string>>& environment = {});
  ~program() { finish(); }
  program(const program&) = delete;
  program& operator=(const program&) = delete;

  // Reads standard error (or output) until it holds `text`, ends, or
  // `seconds` pass; true if found. A program that never says it is killed,
  // so that nothing waits for it forever.
  bool wait_for_stderr(const std::string& text, int seconds = 30);
  bool wait_for_stdout(const std::string& text, int seconds = 30);

  // Sends `signal` to the program if it is still running.
  void signal(int signal);

  // Waits for the end; gives the exit status, or 128 + the signal that
  // ended it.
  int finish();
  // The same, but a program still running after `seconds` is killed first,
  // with the processes it started (a program runs in a process group of its
  // own): a guard against a hang, never a measure of time.
  int finish(int seconds);
  const std::string& out() const { return out_text_; }
  const std::string& err() const { return err_text_; }

 private:
  bool wait_for(int fd, std::string& read, const std::string& text, int seconds);
  long pid_ = -1;
  int out_ = -1, err_ = -1, status_ = -1;
  std::string out_text_, err_text_;
};

// The uid and gid of the unprivileged user that tests act as when they
// need a second user on the machine ("nobody" on Debian).
inline constexpr unsigned kOtherUser = 65534;

// Runs `body` in a forked child that has given up root for kOtherUser, and
// gives what the body returned, passed back through a pipe. Empty if this
// process can't make such a child (it doesn't run as root): the caller skips.
// A body that dies or exits early gives "<child ended: ...>".
std::optional<std::string> as_other_user(const std::function<std::string()>& body);

// Gives up root for kOtherUser in this process (a forked child); false if
// that failed.
bool become_other_user();

// Runs a program to its end, on this process's standard streams, started as
// cheaply as the system allows (the peer runs of the benchmarks). `words[0]`
// is looked for in PATH. True if it exited with 0.
bool run_quietly(const std::vector<std::string>& words);

// Runs `body` with standard error going to the file `path` (replaced), and
// gives what the file then holds.
std::string capture_stderr(const std::string& path, const std::function<void()>& body);

// Runs `body` and gives what it sent to the debug output: what a debugger
// would see of OutputDebugStringA on Windows (the call's own exception, seen
// by a handler of this process), standard error through the file `path`
// elsewhere.
std::string capture_debug_output(const std::string& path, const std::function<void()>& body);

// One readable and writable page followed by one that can't be read, for as
// long as the object lives.
class guarded_page {
 public:
  guarded_page();
  ~guarded_page();
  guarded_page(const guarded_page&) = delete;
  guarded_page& operator=(const guarded_page&) = delete;

  char* base() const { return base_; }         // the readable page
  char* end() const { return base_ + size_; }  // the first byte that can't be read
  std::size_t size() const { return size_; }   // of one page

 private:
  std::size_t size_ = 0;
  char* base_ = nullptr;
};

// Sets this process's file-creation mask; gives the one before.
unsigned set_umask(unsigned mask);

// The permission bits of the file at `path` (as stat gives them), or -1.
int file_mode(const std::string& path);

// Limits the size of the files this process writes to `bytes`, or lifts the
// limit (kNoSizeLimit). A write past the limit then fails instead of
// killing the process. False if the system refused.
inline constexpr unsigned long long kNoSizeLimit = ~0ull;
bool limit_file_size(unsigned long long bytes);

// The largest resident size that this process has had so far, in bytes.
long long peak_resident_bytes();

// The path by which programs of the machine's own system name the file at
// `path`: under Wine, the Linux path of a Windows one (wine_get_unix_file_name);
// elsewhere `path` itself. Empty if there is none.
std::string host_path(const std::string& path);

// How many files, folders and listings this process holds open: its file
// descriptors on POSIX, its handles on Windows. -1 if the system won't say.
long open_handle_count();

// The cheapest system call there is here, for the scale of benchmarks.
long cheapest_system_call();

// Sets an environment variable of this process, for the programs it starts.
void set_environment(const char* name, const char* value);

}  // namespace testing_support

#endif  // TVBASE_TESTING_PROCESSES_H
