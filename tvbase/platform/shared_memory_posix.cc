#include <tvbase/platform/shared_memory.h>

#include <fcntl.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace platform {
namespace {

constexpr mode_t kOwnerOnly = 0600;

// One try of a flock operation, never waiting.
bool flock_try(int fd, int operation) {
  int result;
  do {
    result = ::flock(fd, operation | LOCK_NB);
  } while (result != 0 && errno == EINTR);
  return result == 0;
}

// One try of the guard: an exclusive open-file-description lock on the
// object's first byte, independent of the flock that counts holders, gone
// with the descriptor's last close. Never waits.
bool guard_once(int fd, short type) {
  struct flock range {};
  range.l_type = type;
  range.l_whence = SEEK_SET;
  range.l_start = 0;
  range.l_len = 1;
  int result;
  do {
    result = ::fcntl(fd, F_OFD_SETLK, &range);
  } while (result != 0 && errno == EINTR);
  return result == 0;
}

void pause_for(unsigned ms) {
  if (ms == 0) return;
  struct timespec span {};
  span.tv_sec = static_cast<time_t>(ms / 1000);
  span.tv_nsec = static_cast<long>(ms % 1000) * 1000000L;
  ::nanosleep(&span, nullptr);  // a signal only cuts the pause short
}

unsigned attempts_of(guard_patience patience) {
  return patience.attempts > 0 ? patience.attempts : 1;
}

bool guard_with_patience(int fd, guard_patience patience) {
  for (unsigned attempt = 0; attempt < attempts_of(patience); ++attempt) {
    if (attempt > 0) pause_for(patience.pause_ms);
    if (guard_once(fd, F_WRLCK)) return true;
  }
  return false;
}

bool uid_of(const user_account& account, uid_t& out) {
  char* end = nullptr;
  errno = 0;
  const unsigned long value = std::strtoul(account.id, &end, 10);
  if (end == account.id || *end != 0 || errno != 0) return false;
  out = static_cast<uid_t>(value);
  return static_cast<unsigned long>(out) == value;
}

enum class opened { object, again, refused };

// Opens the object at `name` as a process may use it for `owner`: made now
// (exclusively, 0600, given to `owner`), or made before by `owner` and open
// to nobody else. `again` where the object went away between the tries.
opened open_object(const char* name, uid_t owner, bool create, int& fd) {
  if (create) {
    // shm_open adds O_NOFOLLOW and O_CLOEXEC.
    fd = ::shm_open(name, O_RDWR | O_CREAT | O_EXCL | O_NONBLOCK, kOwnerOnly);
    if (fd >= 0) {
      // The umask may have narrowed the mode; root acting for a user gives
      // the object away before anyone but root can open it.
      if (::fchmod(fd, kOwnerOnly) == 0 &&
          (::geteuid() == owner || ::fchown(fd, owner, static_cast<gid_t>(-1)) == 0)) {
        return opened::object;
      }
      ::shm_unlink(name);
      ::close(fd);
      return opened::refused;
    }
    if (errno != EEXIST) return opened::refused;
  }
  fd = ::shm_open(name, O_RDWR | O_NONBLOCK, 0);
  if (fd < 0) return create && errno == ENOENT ? opened::again : opened::refused;
  struct stat info {};
  if (::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode) || info.st_uid != owner ||
      (info.st_mode & 077) != 0) {
    ::close(fd);
    return opened::refused;
  }
  return opened::object;
}

// Opens the object and takes its guard, within the patience. An object that
// its last holder removed meanwhile is dropped and opened anew.
int open_guarded(const char* name, uid_t owner, bool create, guard_patience patience) {
  for (unsigned attempt = 0; attempt < attempts_of(patience); ++attempt) {
    if (attempt > 0) pause_for(patience.pause_ms);
    int fd = -1;
    switch (open_object(name, owner, create, fd)) {
      case opened::refused: return -1;
      case opened::again: continue;
      case opened::object: break;
    }
    struct stat info {};
    if (guard_once(fd, F_WRLCK) && ::fstat(fd, &info) == 0 && info.st_nlink > 0) return fd;
    ::close(fd);
  }
  return -1;
}

}  // namespace

shared_memory map_shared_memory(const char* name, std::size_t size, const user_account& owner,
                                guard_patience patience) noexcept {
  shared_memory block;
  uid_t uid = 0;
  if (!uid_of(owner, uid)) return block;
  const int fd = open_guarded(name, uid, true, patience);
  if (fd < 0) return block;
  const bool alone = flock_try(fd, LOCK_EX);
  struct stat info {};
  bool usable = ::fstat(fd, &info) == 0;
  if (usable && alone) {
    // Nobody holds the block: whatever it holds was left behind. Start from
    // zero at the size this process expects.
    usable = ::ftruncate(fd, 0) == 0 && ::ftruncate(fd, static_cast<off_t>(size)) == 0;
  } else if (usable) {
    // Never map past the object's end: that would be a fault at first touch.
    usable = static_cast<std::size_t>(info.st_size) == size;
  }
  if (usable) usable = flock_try(fd, LOCK_SH);
  void* data =
      usable ? ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0) : MAP_FAILED;
  if (data == MAP_FAILED) {
    ::close(fd);
    return block;
  }
  guard_once(fd, F_UNLCK);
  block.data = data;
  block.size = size;
  block.object = fd;
  return block;
}

void unmap_shared_memory(shared_memory& block, const char* name, guard_patience patience) noexcept {
  if (block.data == nullptr) return;
  if (block.object >= 0 && guard_with_patience(block.object, patience) &&
      flock_try(block.object, LOCK_EX)) {
    // The last holder. Removing the name frees the content once the mapping
    // is gone; where removal is refused, zero it instead.
    if (::shm_unlink(name) != 0) std::memset(block.data, 0, block.size);
  }
  ::munmap(block.data, block.size);
  if (block.object >= 0) ::close(block.object);  // drops the guard and the holder's lock
  block = shared_memory{};
}

void rejoin_shared_memory(shared_memory& block, const char* name,
                          guard_patience patience) noexcept {
  if (block.data == nullptr || block.object < 0) return;
  struct stat inherited {};
  const int fd = ::fstat(block.object, &inherited) == 0
                     ? open_guarded(name, inherited.st_uid, false, patience)
                     : -1;
  struct stat mine {};
  const bool same = fd >= 0 && ::fstat(fd, &mine) == 0 && mine.st_dev == inherited.st_dev &&
                    mine.st_ino == inherited.st_ino && flock_try(fd, LOCK_SH);
  // The inherited descriptor still carries the parent's lock; closing the
  // child's copy leaves that lock alone.
  ::close(block.object);
  if (same) {
    guard_once(fd, F_UNLCK);
    block.object = fd;
    return;
  }
  // Not the block this process maps, or no lock to be had: keep the mapping,
  // hold no lock of the child's own, and never remove the object.
  if (fd >= 0) ::close(fd);
  block.object = -1;
}

long shared_memory_holders(const shared_memory& block) noexcept {
  struct stat info {};
  if (block.object < 0 || ::fstat(block.object, &info) != 0) return -1;
  int fd;
  do {
    fd = ::open("/proc/locks", O_RDONLY | O_CLOEXEC);
  } while (fd < 0 && errno == EINTR);
  if (fd < 0) return -1;
  // Lines such as "3: FLOCK  ADVISORY  READ 1234 00:1b:16524 0 EOF"; one
  // with "->" after the number is a process waiting for the lock, not one
  // that holds it. Devices are written as hexadecimal major:minor.
  char id[64];
  const int id_length =
      std::snprintf(id, sizeof id, " %02x:%02x:%llu ", ::major(info.st_dev), ::minor(info.st_dev),
                    static_cast<unsigned long long>(info.st_ino));
  constexpr std::size_t kMostBytes = std::size_t{16} << 20;
  char line[256];
  std::size_t length = 0, total = 0;
  bool overlong = false;
  long holders = 0;
  const auto count = [&] {
    if (overlong || length == 0) return;
    line[length] = 0;
    if (std::strstr(line, ": FLOCK ") != nullptr && std::strstr(line, "->") == nullptr &&
        std::strstr(line, id) != nullptr) {
      ++holders;
    }
  };
  char buffer[4096];
  for (;;) {
    const ssize_t n = ::read(fd, buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 || (total += static_cast<std::size_t>(n)) > kMostBytes) {
      ::close(fd);
      return -1;
    }
    if (n == 0) break;
    for (ssize_t i = 0; i < n; ++i) {
      if (buffer[i] == '\n') {
        count();
        length = 0;
        overlong = false;
      } else if (length + 1 < sizeof line) {
        line[length++] = buffer[i];
      } else {
        overlong = true;
      }
    }
  }
  count();
  ::close(fd);
  return id_length > 0 ? holders : -1;
}

void on_fork_child(void (*child)()) noexcept { (void)::pthread_atfork(nullptr, nullptr, child); }

}  // namespace platform
