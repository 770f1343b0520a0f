#include <tvbase/platform/file.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

namespace platform {
namespace {

void write_two(int file, const char* text, std::size_t length, const char* tail,
               std::size_t tail_length) {
  struct iovec parts[2] = {{const_cast<char*>(text), length},
                           {const_cast<char*>(tail), tail_length}};
  const std::size_t whole = length + tail_length;
  std::size_t done = 0;
  while (done < whole) {
    const ssize_t n = ::writev(file, parts, 2);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    done += static_cast<std::size_t>(n);
    std::size_t skip = static_cast<std::size_t>(n);
    for (struct iovec& part : parts) {
      const std::size_t step = skip < part.iov_len ? skip : part.iov_len;
      part.iov_base = static_cast<char*>(part.iov_base) + step;
      part.iov_len -= step;
      skip -= step;
    }
  }
  if (done == 0 || done == whole) return;
  // Cut short for good: take the part that went out back.
  const off_t end = ::lseek(file, 0, SEEK_CUR);
  const off_t start = end - static_cast<off_t>(done);
  if (end >= 0 && start >= 0 && ::ftruncate(file, start) == 0) ::lseek(file, start, SEEK_SET);
}

int open_retry(const char* path, int flags, mode_t mode) {
  int fd;
  do {
    fd = ::open(path, flags, mode);
  } while (fd < 0 && errno == EINTR);
  return fd;
}

// The folder part of `path` (up to its last '/', or "." without one) and
// where the last name starts.
std::string folder_of(const char* path, const char*& name) {
  const char* slash = std::strrchr(path, '/');
  if (slash == nullptr) {
    name = path;
    return ".";
  }
  name = slash + 1;
  return slash == path ? std::string("/") : std::string(path, slash);
}

// Writes everything, or sets `error` to the code of the write that failed.
void write_all(int fd, const void* data, std::size_t size, int& error) {
  std::size_t done = 0;
  while (done < size) {
    const ssize_t n = ::write(fd, static_cast<const char*>(data) + done, size - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      error = n < 0 ? errno : EIO;
      return;
    }
    done += static_cast<std::size_t>(n);
  }
}

// A new file of a passing name in `folder`, made exclusively; its name goes
// to `name`.
int create_passing_file(int folder, char (&name)[64]) {
  static std::atomic<unsigned> counter{0};
  for (int attempt = 0; attempt < 100; ++attempt) {
    struct timespec clock {};
    ::clock_gettime(CLOCK_MONOTONIC, &clock);
    std::snprintf(name, sizeof name, ".tvbase-%ld-%u-%lx.new", static_cast<long>(::getpid()),
                  counter.fetch_add(1, std::memory_order_relaxed),
                  static_cast<unsigned long>(clock.tv_nsec));
    int fd;
    do {
      fd = ::openat(folder, name, O_CREAT | O_EXCL | O_WRONLY | O_NOFOLLOW | O_CLOEXEC, 0666);
    } while (fd < 0 && errno == EINTR);
    if (fd >= 0 || errno != EEXIST) return fd;
  }
  return -1;
}

// Opens the file at `path` for reading, if it is a regular file: gives the
// descriptor (and its size, when asked), or -1 with `outcome` saying why
// (cannot_open with `error` and errno set, or not_regular). O_NONBLOCK:
// opening a FIFO for reading would otherwise wait for a writer; on a regular
// file the flag changes nothing.
int open_regular(const char* path, read_outcome& outcome, std::uint32_t& error,
                 std::uint64_t* size = nullptr) {
  outcome = read_outcome::cannot_open;
  if (path == nullptr) {
    error = EINVAL;
    errno = EINVAL;
    return -1;
  }
  const int fd = open_retry(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, 0);
  if (fd < 0) {
    error = static_cast<std::uint32_t>(errno);
    return -1;
  }
  struct stat st;
  if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
    ::close(fd);
    outcome = read_outcome::not_regular;
    return -1;
  }
  if (size != nullptr) *size = static_cast<std::uint64_t>(st.st_size);
  outcome = read_outcome::done;
  return fd;
}

}  // namespace

int create_log_file(const char* path) noexcept {
  return open_retry(path, O_CREAT | O_TRUNC | O_WRONLY | O_CLOEXEC | O_NOFOLLOW, 0644);
}

void write_line(int file, const char* text, std::size_t length, const char* tail,
                std::size_t tail_length) noexcept {
  if (file >= 0) write_two(file, text, length, tail, tail_length);
}

void close_file(int file) noexcept {
  if (file >= 0) ::close(file);
}

int open_folder(const char* path) noexcept {
  return open_retry(path, O_PATH | O_DIRECTORY | O_CLOEXEC, 0);
}

void close_folder(int folder) noexcept {
  if (folder >= 0) ::close(folder);
}

bool folder_access_of(int folder, folder_access& out) noexcept {
  struct stat info {};
  if (::fstat(folder, &info) != 0 || !S_ISDIR(info.st_mode)) return false;
  out.owner_is_me = info.st_uid == ::geteuid();
  out.owner_is_root = info.st_uid == 0;
  out.others_may_add = (info.st_mode & (S_IWGRP | S_IWOTH)) != 0;
  out.others_may_replace = out.others_may_add && (info.st_mode & S_ISVTX) == 0;
  return true;
}

bool remove_in_folder(int folder, const char* name) noexcept {
  return ::unlinkat(folder, name, 0) == 0;
}

int create_own_file_in(int folder, const char* name) noexcept {
  int fd;
  do {
    fd = ::openat(folder, name, O_CREAT | O_EXCL | O_NOFOLLOW | O_NONBLOCK | O_WRONLY | O_CLOEXEC,
                  0600);
  } while (fd < 0 && errno == EINTR);
  return fd;
}

bool file_facts_of(int file, file_facts& out) noexcept {
  struct stat info {};
  if (::fstat(file, &info) != 0) return false;
  out.regular = S_ISREG(info.st_mode);
  out.owner_is_me = info.st_uid == ::geteuid();
  return true;
}

long read_file_start(const char* path, void* out, std::size_t size) noexcept {
  read_outcome opened;
  std::uint32_t error = 0;
  const int fd = open_regular(path, opened, error);
  if (fd < 0) return opened == read_outcome::not_regular ? kNotRegularFile : -1;
  std::size_t done = 0;
  while (done < size) {
    const ssize_t n = ::read(fd, static_cast<char*>(out) + done, size - done);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      const int failed = errno;
      ::close(fd);
      errno = failed;
      return -1;
    }
    if (n == 0) break;
    done += static_cast<std::size_t>(n);
  }
  ::close(fd);
  return static_cast<long>(done);
}

read_outcome read_regular_file(const char* path, std::size_t limit, std::vector<std::uint8_t>& out,
                               std::uint32_t& error) {
  read_outcome outcome;
  std::uint64_t size = 0;
  const int fd = open_regular(path, outcome, error, &size);
  if (fd < 0) return outcome;
  if (size > limit) {
    outcome = read_outcome::too_large;
  } else {
    try {
      out.resize(static_cast<std::size_t>(size));
    } catch (...) {
      ::close(fd);
      throw;
    }
    std::size_t done = 0;
    while (done < out.size()) {
      const ssize_t n = ::read(fd, out.data() + done, out.size() - done);
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) {
        error = static_cast<std::uint32_t>(errno);
        outcome = read_outcome::read_failed;
      }
      if (n <= 0) break;
      done += static_cast<std::size_t>(n);
    }
    out.resize(done);
  }
  ::close(fd);
  return outcome;
}

read_outcome open_regular_file(const char* path, std::FILE*& out, std::uint32_t& error) noexcept {
  out = nullptr;
  read_outcome outcome;
  const int fd = open_regular(path, outcome, error);
  if (fd < 0) return outcome;
  // Reads of a regular file never wait anyway; the stream gets the plain
  // descriptor all the same.
  const int flags = ::fcntl(fd, F_GETFL);
  if (flags >= 0) ::fcntl(fd, F_SETFL, flags & ~O_NONBLOCK);
  out = ::fdopen(fd, "rb");
  if (out == nullptr) {
    error = static_cast<std::uint32_t>(errno);
    ::close(fd);
    return read_outcome::cannot_open;
  }
  return read_outcome::done;
}

bool read_regular_file(const char* path, std::size_t limit, std::vector<std::uint8_t>& out) {
  std::uint32_t error = 0;
  return read_regular_file(path, limit, out, error) == read_outcome::done;
}

unsigned long write_whole_file(const char* path, const void* data, std::size_t size) noexcept {
  if (*path == 0) return ENOENT;
  const char* name = nullptr;
  std::string folder_path;
  try {
    folder_path = folder_of(path, name);
  } catch (...) {
    return ENOMEM;
  }
  if (*name == 0) return EISDIR;
  const int folder = open_folder(folder_path.c_str());
  if (folder < 0) return static_cast<unsigned long>(errno);
  char passing[64];
  const int fd = create_passing_file(folder, passing);
  int error = fd < 0 ? errno : 0;
  if (fd >= 0) {
    write_all(fd, data, size, error);
    // On the disk before the name moves, so that a crash leaves the old
    // bytes or the new, never an empty file at `path`.
    if (error == 0 && ::fsync(fd) != 0) error = errno;
    if (::close(fd) != 0 && error == 0) error = errno;
    // rename replaces whatever stands at the name, a link included, and
    // follows nothing.
    if (error == 0 && ::renameat(folder, passing, folder, name) != 0) error = errno;
    if (error != 0) ::unlinkat(folder, passing, 0);
  }
  ::close(folder);
  return static_cast<unsigned long>(error);
}

void debug_echo(const char* text, std::size_t length) noexcept {
  write_two(STDERR_FILENO, text, length, "\n", 1);
}

void write_stderr(const char* text, std::size_t length, const char* tail,
                  std::size_t tail_length) noexcept {
  write_two(STDERR_FILENO, text, length, tail, tail_length);
}

}  // namespace platform
