// Test code may use the system directly: see hostile_files.h.
#include <tvbase/testing/hostile_files.h>

#include <dirent.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>

#include <tvbase/testing/processes.h>

namespace testing_support {

bool make_fifo(const std::string& path) { return ::mkfifo(path.c_str(), 0666) == 0; }

bool exchange_names(const std::string& a, const std::string& b) {
  return ::renameat2(AT_FDCWD, a.c_str(), AT_FDCWD, b.c_str(), RENAME_EXCHANGE) == 0;
}

bool make_folder_chain(const std::string& folder, const std::string& name, int depth,
                       const std::string& leaf) {
  int at = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  bool ok = at >= 0;
  for (int i = 0; ok && i < depth; ++i) {
    const int next = ::mkdirat(at, name.c_str(), 0755) == 0
                         ? ::openat(at, name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)
                         : -1;
    ::close(at);
    at = next;
    ok = at >= 0;
  }
  if (ok) {
    const int file = ::openat(at, leaf.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644);
    ok = file >= 0;
    if (ok) ::close(file);
  }
  if (at >= 0) ::close(at);
  return ok;
}

bool remove_folder_chain(const std::string& folder, const std::string& name,
                         const std::string& leaf) {
  // Pulls the chain up one level at a time: folder/name/name becomes
  // folder/next, folder/name is removed, and folder/next takes its name.
  const int top = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (top < 0) return false;
  const std::string next = ".chain-next";
  bool ok = true;
  for (;;) {
    const int first = ::openat(top, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (first < 0) {
      ok = errno == ENOENT;
      break;
    }
    const bool deeper = ::renameat(first, name.c_str(), top, next.c_str()) == 0;
    ::unlinkat(first, leaf.c_str(), 0);
    ::close(first);
    if (::unlinkat(top, name.c_str(), AT_REMOVEDIR) != 0 ||
        (deeper && ::renameat(top, next.c_str(), top, name.c_str()) != 0)) {
      ok = false;
      break;
    }
    if (!deeper) break;
  }
  ::close(top);
  return ok;
}

int open_descriptor_count() {
  std::error_code error;
  int count = 0;
  for (std::filesystem::directory_iterator it("/proc/self/fd", error), end; !error && it != end;
       it.increment(error)) {
    ++count;
  }
  return count - 1;  // the iterator's own
}

bool limit_open_descriptors(int count) {
  struct rlimit limit;
  limit.rlim_cur = static_cast<rlim_t>(count);
  limit.rlim_max = static_cast<rlim_t>(count);
  return ::setrlimit(RLIMIT_NOFILE, &limit) == 0;
}

int in_child_with_alarm(const std::function<int()>& body, unsigned seconds) {
  return in_child([&] {
    ::alarm(seconds);
    return body();
  });
}

}  // namespace testing_support
