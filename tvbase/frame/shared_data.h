#ifndef TVBASE_FRAME_SHARED_DATA_H
#define TVBASE_FRAME_SHARED_DATA_H

// The block of memory that every process of one user with the library
// loaded sees at the same content: the shared log configuration record, its
// set flag, the lock word that guards both, and the distinct counter. It is
// zero-filled when the user's first process maps it and its content is gone
// when the last one lets go (see <tvbase/platform/shared_memory.h> for how
// that survives crashed processes).
//
// One block per user, not one per machine: a block that every user could
// write let any user switch on, and read, the trace of another user's
// programs, or spoil their distinct counter. Here the block belongs to the
// effective user (the uid is part of its name, and nobody else may open
// it); a setting for another user's programs is TvLog.cfg beside them, or
// root's `logtune --user`. Where the user's block can't be had (an object of
// another user at its name, one open to others, one held at another size, or
// its guard held past a short wait) the process uses a block of its own and
// says nothing: it then neither sees nor changes what the user's other
// processes share, and its distinct numbers are its own.
//
// The block is a plain layout. frame keeps the 4,880 bytes of the log
// configuration as raw storage and never looks inside them: the call trace
// gives them their meaning (trace::SharedLogCfg, in the trace's log_cfg.h).
// The lock word and the counter are changed only through atomic operations
// on the mapped memory, which are correct across processes:
//
//   TvSharedData& shared = *TvGetSharedData();
//   frame::acquire_lock(shared);   // sleeps 100 ms between attempts
//   ... read or write the record's bytes and shared.cfgSet ...
//   frame::release_lock(shared);

#include <atomic>
#include <cstddef>
#include <cstdint>

#include <tvbase/platform/user.h>

struct TvSharedData {
  // The log configuration record, as raw bytes; an array of unsigned char
  // provides storage for the record that the trace reads and writes there.
  alignas(std::uint64_t) unsigned char logCfg[4880];
  std::uint32_t cfgSet;           // non-zero: logCfg was set by SetSharedLogCfg
  std::uint32_t lock;             // 0 free, 1 held; no owner record
  std::uint64_t distinctCounter;  // the last distinct value handed out
};

static_assert(offsetof(TvSharedData, logCfg) == 0);
static_assert(offsetof(TvSharedData, cfgSet) == 4880);
static_assert(offsetof(TvSharedData, lock) == 4884);
static_assert(offsetof(TvSharedData, distinctCounter) == 4888);
static_assert(sizeof(TvSharedData) == 4896);
static_assert(std::atomic_ref<std::uint32_t>::is_always_lock_free);
static_assert(std::atomic_ref<std::uint64_t>::is_always_lock_free);
static_assert(alignof(std::uint32_t) >= std::atomic_ref<std::uint32_t>::required_alignment);
static_assert(alignof(std::uint64_t) >= std::atomic_ref<std::uint64_t>::required_alignment);

// The block that this process maps; never null. Until the library's load has
// mapped it, and in a process where the user's block can't be had (see
// above), this is a zero-filled block of the process's own: the library
// stays usable, but what it holds is then seen by this process alone.
TvSharedData* TvGetSharedData() noexcept;

namespace frame {

// Called after every failed attempt of acquire_lock, before its sleep, with
// the number of attempts so far.
using lock_waiter = void (*)(unsigned attempts);

// Takes the lock word: exchanges it with 1 until the old value was 0, sleeping
// 100 ms between attempts, without a limit. A word left at 1 by a process that
// died makes this wait forever; force_unlock() is the recovery.
void acquire_lock(TvSharedData& data, lock_waiter waiting = nullptr) noexcept;

// One exchange with 1: true if the word was 0 and the caller now holds it.
[[nodiscard]] bool try_acquire_lock(TvSharedData& data) noexcept;

// Sets the word back to 0. There is no owner check: force_unlock is the same
// operation, named for the recovery of a word left held by a dead process.
void release_lock(TvSharedData& data) noexcept;
inline void force_unlock(TvSharedData& data) noexcept { release_lock(data); }

// The distinct counter, for compare-and-exchange.
inline std::atomic_ref<std::uint64_t> distinct_counter(TvSharedData& data) noexcept {
  return std::atomic_ref<std::uint64_t>(data.distinctCounter);
}

// Maps this process's user's block (load) and lets go of it (unload);
// called by the library's own initialisation and finalisation. Neither ever
// waits for a lock without a bound: what can't be had within a short wait
// leaves the process on its private block (load), or lets go without
// removing the block (unload).
void attach_shared_data() noexcept;
void detach_shared_data() noexcept;

// Lets go of the block in use and maps the block of `owner` instead, creating
// it for that user if need be: for root acting for a user (`logtune --user`).
// False if it can't be had; the private block is then in use.
[[nodiscard]] bool attach_shared_data(const platform::user_account& owner) noexcept;

// Whether TvGetSharedData() is a block shared with other processes rather
// than the process's private one.
[[nodiscard]] bool shared_data_is_shared() noexcept;

// How many processes hold the block in use, this one included (see
// platform::shared_memory_holders for what counts); the block's content lives
// as long as one does. -1 for the private block, and where the system can't
// tell.
[[nodiscard]] long shared_data_holders() noexcept;

// The name of the shared-memory object in use, or an empty text while the
// private block is in use.
const char* shared_block_object_name() noexcept;

// The stem of the shared-memory object's name; the owner's identity follows
// it after a '-' ("/tvbase-shared-1-1000"). The library's own definition is
// weak; test programs link a strong definition that gives one stem per test
// process (and its children), so that tests never touch the block of real
// applications.
const char* shared_block_name() noexcept;

}  // namespace frame

#endif  // TVBASE_FRAME_SHARED_DATA_H
