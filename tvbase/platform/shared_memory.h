#ifndef TVBASE_PLATFORM_SHARED_MEMORY_H
#define TVBASE_PLATFORM_SHARED_MEMORY_H

// A named block of memory that every process mapping the same name sees at
// the same content, whoever runs it.
//
// Here the block is a POSIX shared-memory object, read- and writable by every
// user (mode 0666, set with fchmod so that the umask can't narrow it). Its
// content lives as long as some process holds it, crashed processes
// included:
//   - every process that maps the block holds a shared flock on the object;
//     the kernel drops it when the process ends, however it ends;
//   - mapping and unmapping are serialised by an exclusive lock on the
//     object's first byte (an open-file-description lock, independent of the
//     flock); a process that waited for it on an object that was removed
//     meanwhile opens the name anew;
//   - a process that maps the block and can take the object's lock
//     exclusively is alone with it: it zero-fills the block first, so that a
//     block left behind by crashed processes starts from zero again;
//   - a process that unmaps the block and can take the lock exclusively is
//     the last: it removes the object, or zero-fills it where it may not
//     remove it (an object created by another user in a sticky folder).
// So the content is gone once the last process lets go, and the next map
// starts from a zero-filled block.
//
// On Windows the block is a named file mapping backed by the paging file,
// one per user: "Local\<name>-<the user's SID>", made with the user as owner
// and a DACL that grants the user and SYSTEM alone. The system zero-fills it
// at creation and keeps it while some process holds a handle, so no lock is
// needed and nothing waits. A mapping of that name owned by anyone else is
// not used (the block stays unmapped). There is no fork(): rejoin and
// on_fork_child do nothing, and `object` holds the mapping's handle.

#include <cstddef>

namespace platform {

struct shared_memory {
  void* data = nullptr;  // null: not mapped
  std::size_t size = 0;
  int object = -1;  // the object's descriptor, which holds the shared lock
};

// Maps the block called `name` (a name such as "/tvbase-shared") of `size` bytes, creating it
// zero-filled if need be. Gives a block with null `data` if the object can't be had, or if another
// process holds it at a different size.
shared_memory map_shared_memory(const char* name, std::size_t size) noexcept;

// Lets go of the block, removing or zero-filling it if this was the last
// process that held it. Leaves `block` unmapped. Does nothing for a block
// that isn't mapped.
void unmap_shared_memory(shared_memory& block, const char* name) noexcept;

// In a child made by fork(), which shares its parent's lock: takes a lock of
// the child's own, so that the child's unmap does not count its parent out.
void rejoin_shared_memory(shared_memory& block, const char* name) noexcept;

// Runs `child` in the child process after every fork().
void on_fork_child(void (*child)()) noexcept;

}  // namespace platform

#endif  // TVBASE_PLATFORM_SHARED_MEMORY_H
