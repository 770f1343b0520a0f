// Test code may use the system directly: see hostile_files.h.
#include <tvbase/testing/hostile_files.h>

#include <dirent.h>
#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
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
  // Down to the last folder one descriptor at a time, then back up by "..",
  // removing each folder from the one above it.
  int at = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (at < 0) return false;
  int depth = 0;
  for (int next;
       (next = ::openat(at, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC)) >= 0;) {
    ::close(at);
    at = next;
    ++depth;
  }
  bool ok = depth == 0 || ::unlinkat(at, leaf.c_str(), 0) == 0;
  for (; ok && depth > 0; --depth) {
    const int up = ::openat(at, "..", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ::close(at);
    at = up;
    ok = at >= 0 && ::unlinkat(at, name.c_str(), AT_REMOVEDIR) == 0;
  }
  if (at >= 0) ::close(at);
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

bool refuse_openat2() {
  // Any call but openat2 passes; openat2 gives ENOSYS. The filter sees the
  // call's number only, which is all it needs in a process of one system
  // call table.
  sock_filter program[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_openat2, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | (ENOSYS & SECCOMP_RET_DATA)),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  sock_fprog filter{static_cast<unsigned short>(sizeof program / sizeof program[0]), program};
  return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

int in_child_with_alarm(const std::function<int()>& body, unsigned seconds, openat2 calls) {
  return in_child([&] {
    ::alarm(seconds);
    if (calls == openat2::refused && !refuse_openat2()) return 199;
    return body();
  });
}

}  // namespace testing_support
