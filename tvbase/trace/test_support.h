#ifndef TVBASE_TRACE_TEST_SUPPORT_H
#define TVBASE_TRACE_TEST_SUPPORT_H

// Helpers shared by the trace's tests: real temporary folders and files, and
// programs started as processes of their own.

#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace trace_test {

// A fresh folder under the system's temporary folder, removed with all it
// holds at the end of the scope. `path()` ends with a '/'.
class temp_dir {
 public:
  temp_dir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "tvbase-trace-XXXXXX").string();
    if (::mkdtemp(pattern.data()) != nullptr) path_ = pattern + "/";
  }
  ~temp_dir() {
    std::error_code ignored;
    if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
  }
  temp_dir(const temp_dir&) = delete;
  temp_dir& operator=(const temp_dir&) = delete;
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

inline std::string read_file(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

inline void write_file(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

// The names of the files in `folder`, sorted.
inline std::vector<std::string> files_in(const std::string& folder) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

// Splits text at `end`; a last piece without `end` is kept as it is.
inline std::vector<std::string> split_lines(const std::string& text, const std::string& end) {
  std::vector<std::string> lines;
  std::size_t from = 0;
  while (from < text.size()) {
    const std::size_t at = text.find(end, from);
    if (at == std::string::npos) {
      lines.push_back(text.substr(from));
      break;
    }
    lines.push_back(text.substr(from, at - from));
    from = at + end.size();
  }
  return lines;
}

// A started program with its standard output and error.
class child {
 public:
  explicit child(std::vector<std::string> words) {
    int out[2], err[2];
    if (::pipe(out) != 0 || ::pipe(err) != 0) return;
    pid_ = ::fork();
    if (pid_ == 0) {
      ::dup2(out[1], 1);
      ::dup2(err[1], 2);
      for (int fd : {out[0], out[1], err[0], err[1]}) ::close(fd);
      std::vector<char*> argv;
      for (std::string& w : words) argv.push_back(w.data());
      argv.push_back(nullptr);
      ::execv(argv[0], argv.data());
      ::_exit(127);
    }
    ::close(out[1]);
    ::close(err[1]);
    out_ = out[0];
    err_ = err[0];
  }
  ~child() { finish(); }

  // Reads standard error (or output) until it holds `text`, ends, or
  // `seconds` pass; true if found. A child that never says it is killed, so
  // that nothing waits for it forever.
  bool wait_for_stderr(const std::string& text, int seconds = 30) {
    return wait_for(err_, err_text_, text, seconds);
  }
  bool wait_for_stdout(const std::string& text, int seconds = 30) {
    return wait_for(out_, out_text_, text, seconds);
  }

  // Sends `signal` to the program if it is still running.
  void signal(int signal) {
    if (pid_ > 0) ::kill(pid_, signal);
  }

  // Waits for the end; gives the exit status.
  int finish() {
    if (pid_ <= 0) return status_;
    drain(out_, out_text_);
    drain(err_, err_text_);
    int status = 0;
    ::waitpid(pid_, &status, 0);
    pid_ = 0;
    status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return status_;
  }
  const std::string& out() const { return out_text_; }
  const std::string& err() const { return err_text_; }

 private:
  bool wait_for(int fd, std::string& read, const std::string& text, int seconds) {
    char buffer[512];
    while (read.find(text) == std::string::npos) {
      pollfd ready{fd, POLLIN, 0};
      if (::poll(&ready, 1, seconds * 1000) <= 0) {
        if (pid_ > 0) ::kill(pid_, SIGKILL);
        return false;
      }
      const ssize_t n = ::read(fd, buffer, sizeof buffer);
      if (n <= 0) return false;
      read.append(buffer, static_cast<std::size_t>(n));
    }
    return true;
  }
  static void drain(int& fd, std::string& text) {
    char buffer[4096];
    for (ssize_t n; (n = ::read(fd, buffer, sizeof buffer)) > 0;) text.append(buffer, n);
    ::close(fd);
    fd = -1;
  }
  pid_t pid_ = -1;
  int out_ = -1, err_ = -1, status_ = -1;
  std::string out_text_, err_text_;
};

}  // namespace trace_test

#endif  // TVBASE_TRACE_TEST_SUPPORT_H
