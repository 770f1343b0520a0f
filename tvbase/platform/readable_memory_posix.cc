#include <tvbase/platform/readable_memory.h>

#include <fcntl.h>
#include <pthread.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstring>

namespace platform {
namespace {

constexpr std::size_t kChunk = 4096;

// The process's own number, which the kernel requests name. Asking for it is
// a system call of its own, so it is kept, and a forked child takes its own
// before it can ask anything.
std::atomic<pid_t> g_own_pid{0};

pid_t own_pid() noexcept {
  pid_t pid = g_own_pid.load(std::memory_order_relaxed);
  if (pid == 0) {
    static const bool watching_forks = pthread_atfork(nullptr, nullptr, [] {
                                         g_own_pid.store(getpid(), std::memory_order_relaxed);
                                       }) == 0;
    pid = getpid();
    if (watching_forks) g_own_pid.store(pid, std::memory_order_relaxed);
  }
  return pid;
}

// Copies `size` bytes (at most kChunk) from `address` into `to` through the
// kernel, which answers EFAULT instead of faulting. Where the kernel refuses
// the call itself, a write into a pipe answers the same question.
bool copy_in(const void* address, std::size_t size, void* to) noexcept {
  if (size == 0) return true;
  iovec local{to, size};
  iovec remote{const_cast<void*>(address), size};
  const ssize_t got = process_vm_readv(own_pid(), &local, 1, &remote, 1, 0);
  if (got == static_cast<ssize_t>(size)) return true;
  if (got >= 0 || (errno != ENOSYS && errno != EPERM)) return false;
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return false;
  const bool read_ok = write(ends[1], address, size) == static_cast<ssize_t>(size) &&
                       read(ends[0], to, size) == static_cast<ssize_t>(size);
  close(ends[0]);
  close(ends[1]);
  return read_ok;
}

// Bytes from `address` up to the end of its page, at most kChunk.
std::size_t to_page_end(std::uintptr_t address) { return kChunk - (address % kChunk); }

template <typename Char>
bool readable_text(const Char* text, std::size_t& length) noexcept {
  if (text == nullptr || reinterpret_cast<std::uintptr_t>(text) % alignof(Char) != 0) return false;
  alignas(Char) unsigned char buffer[kChunk];
  auto at = reinterpret_cast<std::uintptr_t>(text);
  std::size_t count = 0;
  for (;;) {
    const std::size_t bytes = to_page_end(at) / sizeof(Char) * sizeof(Char);
    if (!copy_in(reinterpret_cast<const void*>(at), bytes, buffer)) return false;
    const std::size_t units = bytes / sizeof(Char);
    for (std::size_t i = 0; i < units; ++i) {
      Char c;
      std::memcpy(&c, buffer + i * sizeof(Char), sizeof(Char));
      if (c == Char{}) {
        length = count + i;
        return true;
      }
    }
    count += units;
    at += bytes;
    if (at == 0) return false;  // ran off the end of the address space
  }
}

}  // namespace

bool is_readable(const void* address, std::size_t size) noexcept {
  if (size == 0) return true;
  if (address == nullptr) return false;
  unsigned char buffer[kChunk];
  auto at = reinterpret_cast<std::uintptr_t>(address);
  if (at + size < at) return false;
  while (size > 0) {
    const std::size_t bytes = std::min(size, to_page_end(at));
    if (!copy_in(reinterpret_cast<const void*>(at), bytes, buffer)) return false;
    at += bytes;
    size -= bytes;
  }
  return true;
}

void check_readable(readable_range* ranges, std::size_t count) noexcept {
  constexpr std::size_t kBatch = 16;
  unsigned char scratch[kChunk];  // every answer is copied here and dropped
  for (std::size_t first = 0; first < count;) {
    // The next batch: small ranges go to the kernel together; others are
    // settled here.
    iovec local[kBatch], remote[kBatch];
    std::size_t asked[kBatch];
    std::size_t n = 0, end = first;
    for (; end < count && n < kBatch; ++end) {
      readable_range& r = ranges[end];
      if (r.size == 0 || r.address == nullptr || r.size > kChunk) {
        r.readable = is_readable(r.address, r.size);
        continue;
      }
      local[n] = {scratch, r.size};
      remote[n] = {const_cast<void*>(r.address), r.size};
      asked[n++] = end;
    }
    if (n == 0) {
      first = end;
      continue;
    }
    ssize_t got = process_vm_readv(own_pid(), local, n, remote, n, 0);
    if (got < 0 && (errno == ENOSYS || errno == EPERM)) {
      for (std::size_t i = 0; i < n; ++i)
        ranges[asked[i]].readable = is_readable(remote[i].iov_base, remote[i].iov_len);
      first = end;
      continue;
    }
    // The kernel stops at the first range it can't read all of: those
    // before it are readable, it is not, and those behind it are asked again.
    std::size_t done = 0;
    for (; done < n && got >= static_cast<ssize_t>(remote[done].iov_len); ++done) {
      ranges[asked[done]].readable = true;
      got -= static_cast<ssize_t>(remote[done].iov_len);
    }
    if (done < n) {
      ranges[asked[done]].readable = false;
      first = asked[done] + 1;
    } else {
      first = end;
    }
  }
}

std::size_t bytes_to_page_end(const void* address) noexcept {
  return to_page_end(reinterpret_cast<std::uintptr_t>(address));
}

bool is_readable_text(const char* text, std::size_t& length) noexcept {
  return readable_text(text, length);
}
bool is_readable_text(const wchar_t* text, std::size_t& length) noexcept {
  return readable_text(text, length);
}

}  // namespace platform
