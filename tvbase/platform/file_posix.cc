#include <tvbase/platform/file.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>

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

bool remove_file(const char* path) noexcept { return ::unlink(path) == 0; }

long read_file_start(const char* path, void* out, std::size_t size) noexcept {
  const int fd = open_retry(path, O_RDONLY | O_CLOEXEC, 0);
  if (fd < 0) return -1;
  std::size_t done = 0;
  while (done < size) {
    const ssize_t n = ::read(fd, static_cast<char*>(out) + done, size - done);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      ::close(fd);
      return -1;
    }
    if (n == 0) break;
    done += static_cast<std::size_t>(n);
  }
  ::close(fd);
  return static_cast<long>(done);
}

bool read_regular_file(const char* path, std::size_t limit, std::vector<std::uint8_t>& out) {
  if (path == nullptr) return false;
  const int fd = open_retry(path, O_RDONLY | O_CLOEXEC, 0);
  if (fd < 0) return false;
  struct stat st;
  const bool ok = ::fstat(fd, &st) == 0 && S_ISREG(st.st_mode) &&
                  static_cast<std::uint64_t>(st.st_size) <= limit;
  if (ok) {
    try {
      out.resize(static_cast<std::size_t>(st.st_size));
    } catch (...) {
      ::close(fd);
      throw;
    }
    std::size_t done = 0;
    while (done < out.size()) {
      const ssize_t n = ::read(fd, out.data() + done, out.size() - done);
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) break;
      done += static_cast<std::size_t>(n);
    }
    out.resize(done);
  }
  ::close(fd);
  return ok;
}

unsigned long write_whole_file(const char* path, const void* data, std::size_t size) noexcept {
  const int fd = open_retry(path, O_CREAT | O_TRUNC | O_WRONLY | O_CLOEXEC, 0666);
  if (fd < 0) return static_cast<unsigned long>(errno);
  unsigned long error = 0;
  std::size_t done = 0;
  while (done < size) {
    const ssize_t n = ::write(fd, static_cast<const char*>(data) + done, size - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      error = n < 0 ? static_cast<unsigned long>(errno) : static_cast<unsigned long>(EIO);
      break;
    }
    done += static_cast<std::size_t>(n);
  }
  if (::close(fd) != 0 && error == 0) error = static_cast<unsigned long>(errno);
  return error;
}

void debug_echo(const char* text, std::size_t length) noexcept {
  write_two(STDERR_FILENO, text, length, "\n", 1);
}

void write_stderr(const char* text, std::size_t length, const char* tail,
                  std::size_t tail_length) noexcept {
  write_two(STDERR_FILENO, text, length, tail, tail_length);
}

}  // namespace platform
