// Test code may use the system directly: these are the test suite's own
// needs, which the library's platform layer rightly doesn't offer.
#include <tvbase/testing/system_objects.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace testing_support {

bool set_owner(const std::string& path, unsigned id) {
  return ::lchown(path.c_str(), static_cast<uid_t>(id), static_cast<gid_t>(id)) == 0;
}

bool set_mode(const std::string& path, unsigned mode) {
  return ::chmod(path.c_str(), static_cast<mode_t>(mode)) == 0;
}

file_status status_of(const std::string& path) {
  file_status s;
  struct stat info {};
  if (::lstat(path.c_str(), &info) != 0) return s;
  s.exists = true;
  s.regular = S_ISREG(info.st_mode);
  s.fifo = S_ISFIFO(info.st_mode);
  s.link = S_ISLNK(info.st_mode);
  s.owner = info.st_uid;
  s.mode = info.st_mode & 07777;
  s.size = static_cast<long long>(info.st_size);
  return s;
}

unsigned effective_uid() { return ::geteuid(); }

shared_object::shared_object(const std::string& name, open_mode how, unsigned mode) {
  const int flags = O_RDWR | O_NONBLOCK | (how == create ? O_CREAT | O_EXCL : 0);
  fd_ = ::shm_open(name.c_str(), flags, static_cast<mode_t>(mode));
  if (fd_ < 0) {
    error_ = errno;
    return;
  }
  if (how == create) ::fchmod(fd_, static_cast<mode_t>(mode));
}

shared_object::~shared_object() {
  if (fd_ >= 0) ::close(fd_);
}

bool shared_object::resize(std::size_t size) {
  return fd_ >= 0 && ::ftruncate(fd_, static_cast<off_t>(size)) == 0;
}

bool shared_object::write(std::size_t offset, const void* data, std::size_t size) {
  return fd_ >= 0 &&
         ::pwrite(fd_, data, size, static_cast<off_t>(offset)) == static_cast<ssize_t>(size);
}

bool shared_object::hold_guard() {
  struct flock range {};
  range.l_type = F_WRLCK;
  range.l_whence = SEEK_SET;
  range.l_start = 0;
  range.l_len = 1;
  return fd_ >= 0 && ::fcntl(fd_, F_OFD_SETLK, &range) == 0;
}

bool shared_object::hold_exclusive_flock() {
  return fd_ >= 0 && ::flock(fd_, LOCK_EX | LOCK_NB) == 0;
}

bool shared_object::hold_shared_flock() { return fd_ >= 0 && ::flock(fd_, LOCK_SH | LOCK_NB) == 0; }

bool remove_shared_object(const std::string& name) { return ::shm_unlink(name.c_str()) == 0; }

}  // namespace testing_support
