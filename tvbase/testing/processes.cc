// Test code may use the system directly: these are the test suite's own
// needs, which the library's platform layer rightly doesn't offer.
#include <tvbase/testing/processes.h>

#include <dirent.h>
#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>

namespace testing_support {
namespace {

exit_status status_of(int raw) {
  exit_status s;
  if (WIFEXITED(raw)) {
    s.exited = true;
    s.code = WEXITSTATUS(raw);
  } else if (WIFSIGNALED(raw)) {
    s.signal = WTERMSIG(raw);
  }
  return s;
}

// Whether the child `pid` ends within `seconds`; it is not reaped.
bool ended_within(long pid, int seconds) {
  for (long waited_ms = 0; waited_ms < seconds * 1000L; waited_ms += 10) {
    siginfo_t info{};
    if (::waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT) != 0 ||
        info.si_pid != 0) {
      return true;
    }
    ::usleep(10000);
  }
  return false;
}

void drain(int& fd, std::string& text) {
  char buffer[4096];
  for (ssize_t n; (n = ::read(fd, buffer, sizeof buffer)) > 0;)
    text.append(buffer, static_cast<std::size_t>(n));
  ::close(fd);
  fd = -1;
}

// A child of the test ends with it: a test that dies (an assertion in a
// forked copy, the memory checker running out of memory) must not leave
// tracers spinning on and filling the disk. The flag survives exec.
void end_with_parent(pid_t parent) {
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (::getppid() != parent) ::_exit(127);
}

}  // namespace

forked_child::forked_child(const std::function<int()>& body) {
  const pid_t parent = ::getpid();
  const pid_t pid = ::fork();
  if (pid == 0) {
    end_with_parent(parent);
    ::_exit(body());
  }
  pid_ = pid;
}

forked_child::~forked_child() {
  kill();
  wait();
}

void forked_child::kill() {
  if (pid_ > 0) ::kill(static_cast<pid_t>(pid_), SIGKILL);
}

exit_status forked_child::wait() {
  if (pid_ <= 0) return status_;
  int raw = 0;
  if (::waitpid(static_cast<pid_t>(pid_), &raw, 0) == pid_) status_ = status_of(raw);
  pid_ = 0;
  return status_;
}

exit_status forked_child::wait(int seconds) {
  if (pid_ > 0 && !ended_within(pid_, seconds)) kill();
  return wait();
}

bool become_other_user() {
  if (::setgroups(0, nullptr) != 0 || ::setgid(kOtherUser) != 0 || ::setuid(kOtherUser) != 0) {
    return false;
  }
  // A change of user clears the signal that ends a child with its parent.
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  return true;
}

int exec_program(const std::vector<std::string>& words, const std::string& out_path) {
  if (words.empty()) return 127;
  const int out = ::open(out_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (out < 0 || ::dup2(out, 1) < 0) return 127;
  std::vector<std::string> copy = words;
  std::vector<char*> argv;
  for (std::string& w : copy) argv.push_back(w.data());
  argv.push_back(nullptr);
  ::execv(argv[0], argv.data());
  return 127;
}

int in_child(const std::function<int()>& body) {
  forked_child child(body);
  const exit_status s = child.wait();
  return s.exited ? s.code : -1;
}

std::optional<std::string> as_other_user(const std::function<std::string()>& body) {
  if (::geteuid() != 0) return std::nullopt;
  int fds[2];
  if (::pipe(fds) != 0) return std::nullopt;
  const pid_t parent = ::getpid();
  const pid_t pid = ::fork();
  if (pid == 0) {
    end_with_parent(parent);
    ::close(fds[0]);
    if (!become_other_user()) ::_exit(3);
    const std::string out = body();
    std::size_t done = 0;
    while (done < out.size()) {
      const ssize_t n = ::write(fds[1], out.data() + done, out.size() - done);
      if (n <= 0) ::_exit(4);
      done += static_cast<std::size_t>(n);
    }
    ::_exit(0);
  }
  ::close(fds[1]);
  if (pid < 0) {
    ::close(fds[0]);
    return std::nullopt;
  }
  std::string got;
  char buffer[4096];
  for (ssize_t n; (n = ::read(fds[0], buffer, sizeof buffer)) > 0;) {
    got.append(buffer, static_cast<std::size_t>(n));
  }
  ::close(fds[0]);
  int raw = 0;
  ::waitpid(pid, &raw, 0);
  const exit_status s = status_of(raw);
  if (s.exited && s.code == 3) return std::nullopt;
  if (!s.exited || s.code != 0) {
    return "<child ended: " +
           (s.exited ? "exit " + std::to_string(s.code) : "signal " + std::to_string(s.signal)) +
           ">";
  }
  return got;
}

program::program(std::vector<std::string> words,
                 const std::vector<std::pair<std::string, std::string>>& environment) {
  int out[2], err[2];
  if (words.empty() || ::pipe(out) != 0 || ::pipe(err) != 0) return;
  const pid_t parent = ::getpid();
  const pid_t pid = ::fork();
  if (pid == 0) {
    end_with_parent(parent);
    ::setpgid(0, 0);  // a group of its own, which finish(seconds) can end whole
    ::dup2(out[1], 1);
    ::dup2(err[1], 2);
    for (int fd : {out[0], out[1], err[0], err[1]}) ::close(fd);
    for (const auto& [name, value] : environment) ::setenv(name.c_str(), value.c_str(), 1);
    std::vector<char*> argv;
    for (std::string& w : words) argv.push_back(w.data());
    argv.push_back(nullptr);
    ::execv(argv[0], argv.data());
    ::_exit(127);
  }
  pid_ = pid;
  if (pid > 0) ::setpgid(pid, pid);  // as the child does: whichever comes first
  ::close(out[1]);
  ::close(err[1]);
  out_ = out[0];
  err_ = err[0];
}

bool program::wait_for_stderr(const std::string& text, int seconds) {
  return wait_for(err_, err_text_, text, seconds);
}

bool program::wait_for_stdout(const std::string& text, int seconds) {
  return wait_for(out_, out_text_, text, seconds);
}

void program::signal(int signal) {
  if (pid_ > 0) ::kill(static_cast<pid_t>(pid_), signal);
}

int program::finish() {
  if (pid_ <= 0) return status_;
  drain(out_, out_text_);
  drain(err_, err_text_);
  int raw = 0;
  ::waitpid(static_cast<pid_t>(pid_), &raw, 0);
  pid_ = 0;
  status_ = WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw);
  return status_;
}

int program::finish(int seconds) {
  if (pid_ <= 0) return status_;
  // Output is drained only at the end: the programs tests start this way say
  // little, far less than a pipe holds. A hung program is killed with its
  // whole group: a child it made may hold the pipes open.
  if (!ended_within(pid_, seconds)) {
    ::kill(-static_cast<pid_t>(pid_), SIGKILL);
    ::kill(static_cast<pid_t>(pid_), SIGKILL);  // should it hang before it has its group
  }
  return finish();
}

bool program::wait_for(int fd, std::string& read, const std::string& text, int seconds) {
  char buffer[512];
  while (read.find(text) == std::string::npos) {
    pollfd ready{fd, POLLIN, 0};
    if (::poll(&ready, 1, seconds * 1000) <= 0) {
      if (pid_ > 0) ::kill(static_cast<pid_t>(pid_), SIGKILL);
      return false;
    }
    const ssize_t n = ::read(fd, buffer, sizeof buffer);
    if (n <= 0) return false;
    read.append(buffer, static_cast<std::size_t>(n));
  }
  return true;
}

bool run_quietly(const std::vector<std::string>& words) {
  if (words.empty()) return false;
  std::vector<char*> argv;
  for (const std::string& w : words) argv.push_back(const_cast<char*>(w.c_str()));
  argv.push_back(nullptr);
  pid_t pid = 0;
  if (::posix_spawnp(&pid, argv[0], nullptr, nullptr, argv.data(), environ) != 0) return false;
  int raw = 0;
  if (::waitpid(pid, &raw, 0) != pid) return false;
  return WIFEXITED(raw) && WEXITSTATUS(raw) == 0;
}

std::string capture_stderr(const std::string& path, const std::function<void()>& body) {
  std::fflush(stderr);
  const int saved = ::dup(2);
  const int file = ::open(path.c_str(), O_CREAT | O_TRUNC | O_WRONLY, 0600);
  ::dup2(file, 2);
  ::close(file);
  body();
  ::dup2(saved, 2);
  ::close(saved);
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

guarded_page::guarded_page() {
  size_ = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
  void* map =
      ::mmap(nullptr, 2 * size_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (map == MAP_FAILED) std::abort();
  base_ = static_cast<char*>(map);
  if (::mprotect(base_ + size_, size_, PROT_NONE) != 0) std::abort();
}

guarded_page::~guarded_page() { ::munmap(base_, 2 * size_); }

unsigned set_umask(unsigned mask) { return ::umask(static_cast<mode_t>(mask)); }

int file_mode(const std::string& path) {
  struct stat info {};
  if (::stat(path.c_str(), &info) != 0) return -1;
  return static_cast<int>(info.st_mode & 07777);
}

bool limit_file_size(unsigned long long bytes) {
  std::signal(SIGXFSZ, SIG_IGN);
  rlimit limit{};
  if (::getrlimit(RLIMIT_FSIZE, &limit) != 0) return false;
  limit.rlim_cur = bytes == kNoSizeLimit ? limit.rlim_max : static_cast<rlim_t>(bytes);
  return ::setrlimit(RLIMIT_FSIZE, &limit) == 0;
}

long long peak_resident_bytes() {
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  return static_cast<long long>(usage.ru_maxrss) * 1024;
}

std::string host_path(const std::string& path) { return path; }

std::string capture_debug_output(const std::string& path, const std::function<void()>& body) {
  return capture_stderr(path, body);
}

long open_handle_count() {
  DIR* fds = ::opendir("/proc/self/fd");
  if (fds == nullptr) return -1;
  long count = 0;
  while (::readdir(fds) != nullptr) ++count;
  ::closedir(fds);
  return count;
}

long cheapest_system_call() { return static_cast<long>(::getppid()); }

void set_environment(const char* name, const char* value) { ::setenv(name, value, 1); }

void kill_this_process() { ::raise(SIGKILL); }

}  // namespace testing_support
