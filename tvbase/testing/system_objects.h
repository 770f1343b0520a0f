#ifndef TVBASE_TESTING_SYSTEM_OBJECTS_H
#define TVBASE_TESTING_SYSTEM_OBJECTS_H

// What tests do to files, folders and shared-memory objects behind the
// library's back, as another user or a careless one would: pipes planted at
// a name, owners and modes changed, objects made, resized, written and held
// locked by name. Test code only. Nothing here throws; a call that fails says
// so in its result.
//
//   testing_support::shared_object object("/tvbase-x-0", testing_support::create, 0666);
//   if (!object.is_open()) return "open failed: " + std::to_string(object.error());

#include <cstddef>
#include <string>

#include <tvbase/testing/hostile_files.h>  // make_fifo

namespace testing_support {

// Sets owner and group (both to `id`) of the file at `path`, not following a
// link; sets the permission bits (0777 and the sticky bit 01000, 04000 for
// set-user-ID).
bool set_owner(const std::string& path, unsigned id);
bool set_mode(const std::string& path, unsigned mode);

// What stands at `path`, as lstat tells (links are not followed).
struct file_status {
  bool exists = false;
  bool regular = false;
  bool fifo = false;
  bool link = false;
  unsigned owner = 0;
  unsigned mode = 0;  // permission bits, 07777
  long long size = 0;
};
file_status status_of(const std::string& path);

// This process's effective uid.
unsigned effective_uid();

enum open_mode { open_existing, create };

// A POSIX shared-memory object opened by name, as any process may try.
class shared_object {
 public:
  // Opens `name` for reading and writing; with `create`, makes it
  // exclusively with `mode` (fchmod'ed, so the umask can't narrow it).
  shared_object(const std::string& name, open_mode how, unsigned mode = 0600);
  ~shared_object();
  shared_object(const shared_object&) = delete;
  shared_object& operator=(const shared_object&) = delete;

  bool is_open() const { return fd_ >= 0; }
  // The system's code of the failed open, 0 if it is open.
  int error() const { return error_; }
  bool resize(std::size_t size);
  bool write(std::size_t offset, const void* data, std::size_t size);
  // Takes the lock that the library guards mapping and unmapping with (an
  // open-file-description lock on the first byte), or an exclusive flock,
  // without waiting; both are held until the object is closed.
  bool hold_guard();
  bool hold_exclusive_flock();
  // Takes a shared flock, as a process that maps the object holds it.
  bool hold_shared_flock();

 private:
  int fd_ = -1;
  int error_ = 0;
};

// Removes the object called `name`; false if that failed.
bool remove_shared_object(const std::string& name);

}  // namespace testing_support

#endif  // TVBASE_TESTING_SYSTEM_OBJECTS_H
