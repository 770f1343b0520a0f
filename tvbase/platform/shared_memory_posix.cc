#include <tvbase/platform/shared_memory.h>

#include <fcntl.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace platform {
namespace {

constexpr mode_t kEveryone = 0666;

int flock_retry(int fd, int operation) {
  int result;
  do {
    result = ::flock(fd, operation);
  } while (result != 0 && errno == EINTR);
  return result;
}

// The guard: an exclusive open-file-description lock on the object's first
// byte. It is independent of the flock that counts holders, and goes with
// the descriptor's last close.
bool guard(int fd, short type) {
  struct flock range {};
  range.l_type = type;
  range.l_whence = SEEK_SET;
  range.l_start = 0;
  range.l_len = 1;
  int result;
  do {
    result = ::fcntl(fd, F_OFD_SETLKW, &range);
  } while (result != 0 && errno == EINTR);
  return result == 0;
}

// Opens the object and takes its guard. An object that the last holder
// removed while this process waited for the guard is dropped and opened anew.
int open_guarded(const char* name, int flags) {
  for (int attempt = 0; attempt < 100; ++attempt) {
    const int fd = ::shm_open(name, O_RDWR | O_CLOEXEC | flags, kEveryone);
    if (fd < 0) return -1;
    // The creator owns the object and widens the mode past its umask; for
    // everyone else this fails harmlessly.
    (void)::fchmod(fd, kEveryone);
    struct stat info {};
    if (guard(fd, F_WRLCK) && ::fstat(fd, &info) == 0 && info.st_nlink > 0) return fd;
    ::close(fd);
  }
  return -1;
}

}  // namespace

shared_memory map_shared_memory(const char* name, std::size_t size) noexcept {
  shared_memory block;
  const int fd = open_guarded(name, O_CREAT);
  if (fd < 0) return block;
  const bool alone = flock_retry(fd, LOCK_EX | LOCK_NB) == 0;
  struct stat info {};
  bool usable = ::fstat(fd, &info) == 0;
  if (usable && alone) {
    // Nobody holds the block: whatever it holds was left behind. Start from
    // zero at the size this process expects.
    usable = ::ftruncate(fd, 0) == 0 && ::ftruncate(fd, static_cast<off_t>(size)) == 0;
  } else if (usable) {
    usable = static_cast<std::size_t>(info.st_size) == size;
  }
  if (usable) usable = flock_retry(fd, LOCK_SH) == 0;
  void* data =
      usable ? ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0) : MAP_FAILED;
  if (data == MAP_FAILED) {
    ::close(fd);
    return block;
  }
  guard(fd, F_UNLCK);
  block.data = data;
  block.size = size;
  block.object = fd;
  return block;
}

void unmap_shared_memory(shared_memory& block, const char* name) noexcept {
  if (block.data == nullptr) return;
  if (guard(block.object, F_WRLCK) && flock_retry(block.object, LOCK_EX | LOCK_NB) == 0) {
    // The last holder. Removing the name frees the content once the mapping
    // is gone; where removal is refused, zero it instead.
    if (::shm_unlink(name) != 0) std::memset(block.data, 0, block.size);
  }
  ::munmap(block.data, block.size);
  ::close(block.object);  // drops the guard and the holder's lock
  block = shared_memory{};
}

void rejoin_shared_memory(shared_memory& block, const char* name) noexcept {
  if (block.data == nullptr) return;
  const int fd = open_guarded(name, 0);
  if (fd < 0) return;
  struct stat mine {
  }, inherited{};
  if (::fstat(fd, &mine) != 0 || ::fstat(block.object, &inherited) != 0 ||
      mine.st_dev != inherited.st_dev || mine.st_ino != inherited.st_ino ||
      flock_retry(fd, LOCK_SH) != 0) {
    ::close(fd);  // not the block this process maps
    return;
  }
  guard(fd, F_UNLCK);
  // The inherited descriptor still carries the parent's lock; closing the
  // child's copy leaves that lock alone.
  ::close(block.object);
  block.object = fd;
}

void on_fork_child(void (*child)()) noexcept { (void)::pthread_atfork(nullptr, nullptr, child); }

}  // namespace platform
