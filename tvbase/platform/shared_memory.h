#ifndef TVBASE_PLATFORM_SHARED_MEMORY_H
#define TVBASE_PLATFORM_SHARED_MEMORY_H

// A named block of memory that belongs to one user: every process of that
// user that maps the same name sees the same content, and no other user can
// open, map, resize or remove it.
//
// Here the block is a POSIX shared-memory object of mode 0600, created
// exclusively (never opened through a name that somebody else made first)
// and given to its user. An object found at the name is used only if it is a
// regular object of that user, open to nobody else, and either of the right
// size or held by nobody; anything else gives no block, and nothing of it is
// mapped. Its content lives as long as some process holds it, crashed
// processes included:
//   - every process that maps the block holds a shared flock on the object;
//     the kernel drops it when the process ends, however it ends;
//   - mapping and unmapping are guarded by an exclusive lock on the object's
//     first byte (an open-file-description lock, independent of the flock);
//   - a process that maps the block and can take the object's flock
//     exclusively is alone with it: it zero-fills the block first, so that a
//     block left behind by crashed processes starts from zero again;
//   - a process that unmaps the block and can take the flock exclusively is
//     the last: it removes the object (or zero-fills it where it may not).
// No lock is ever waited for without a bound: the guard is tried `attempts`
// times, `pause_ms` apart, and every flock is tried once. Mapping that can't
// have the guard gives no block; unmapping that can't have it lets go without
// removing anything (the next process alone with the object zero-fills it).
// So the content is gone once the last process lets go, and the next map
// starts from a zero-filled block.
//
// On Windows the block is a named file mapping in the session's Local\ namespace
// (named with the user's SID), made with the user as owner and a DACL for
// that user and SYSTEM alone. The kernel creates or opens it in one step, zero-fills what
// it creates and drops it with the last handle, crashed processes' included,
// so nothing is guarded and the patience goes unused: mapping and unmapping
// never wait. A mapping found at the name is used only if that user owns it
// and it has the size asked for. Only the process's own user's block can be
// had there (see acts_for_every_user).
//
// On Windows the block is a named file mapping backed by the paging file,
// one per user: "Local\<name>-<the user's SID>", made with the user as owner
// and a DACL that grants the user and SYSTEM alone. The system zero-fills it
// at creation and keeps it while some process holds a handle, so no lock is
// needed and nothing waits. A mapping of that name owned by anyone else is
// not used (the block stays unmapped). There is no fork(): rejoin and
// on_fork_child do nothing, and `object` holds the mapping's handle.

#include <cstddef>

#include <tvbase/platform/user.h>

namespace platform {

struct shared_memory {
  void* data = nullptr;  // null: not mapped
  std::size_t size = 0;
  int object = -1;  // the object's descriptor, which holds the shared lock; -1: none
};

// How long mapping and unmapping try for the guard.
struct guard_patience {
  unsigned attempts = 1;
  unsigned pause_ms = 0;
};

// Maps the block called `name` (a name such as "/tvbase-shared-1-1000") of
// `size` bytes, belonging to `owner`, creating it zero-filled if need be. A
// process whose effective user is not `owner` (root acting for a user) gives
// the object it creates to `owner`. Gives a block with null `data` if the
// object can't be had: made by another user, open to others, of another size
// while held, or its guard held past the patience.
shared_memory map_shared_memory(const char* name, std::size_t size, const user_account& owner,
                                guard_patience patience) noexcept;

// Lets go of the block, removing or zero-filling it if this was the last
// process that held it. Leaves `block` unmapped. Does nothing for a block
// that isn't mapped.
void unmap_shared_memory(shared_memory& block, const char* name, guard_patience patience) noexcept;

// In a child made by fork(), which shares its parent's lock: takes a lock of
// the child's own, so that the child's unmap does not count its parent out.
// If that can't be had, the child keeps the mapping but holds no lock of its
// own, and its unmap removes nothing.
void rejoin_shared_memory(shared_memory& block, const char* name, guard_patience patience) noexcept;

// How many processes hold the block: the shared locks on its object, one per
// process that maps it (a child made by fork() that couldn't take a lock of
// its own counts with its parent; a process of the owner that takes such a
// lock without mapping counts too). -1 where the system can't tell, or for a
// block that holds no lock. Here the count comes from the kernel's table of
// file locks (/proc/locks), which is read in one pass, never waits for
// another process, and is read no further than 16 MiB: a machine with more
// locks than that gets -1. On Windows it is the kernel's count of handles to
// the mapping (NtQueryObject), one per process that maps it.
long shared_memory_holders(const shared_memory& block) noexcept;

// Runs `child` in the child process after every fork().
void on_fork_child(void (*child)()) noexcept;

}  // namespace platform

#endif  // TVBASE_PLATFORM_SHARED_MEMORY_H
