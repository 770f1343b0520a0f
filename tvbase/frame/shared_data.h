#ifndef TVBASE_FRAME_SHARED_DATA_H
#define TVBASE_FRAME_SHARED_DATA_H

// The one block of memory that every process with the library loaded sees at
// the same content: the shared log configuration record, its set flag, the
// lock word that guards both, and the distinct counter. It is zero-filled
// when the first process maps it and its content is gone when the last one
// lets go (see <tvbase/platform/shared_memory.h> for how that survives
// crashed processes).
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
// mapped it, and in a process where the shared-memory object can't be had
// (no /dev/shm, or an object of another size or mode), this is a zero-filled
// block of the process's own: the library stays usable, but what it holds
// is then seen by this process alone.
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

// Maps the shared block (load) and lets go of it (unload); called by the
// library's own initialisation and finalisation only.
void attach_shared_data() noexcept;
void detach_shared_data() noexcept;

// The name of the shared-memory object. The library's own definition is weak
// and gives the machine-wide name; test programs link a strong definition
// that gives one block per test process (and its children), so that tests
// never touch the block of real applications.
const char* shared_block_name() noexcept;

}  // namespace frame

#endif  // TVBASE_FRAME_SHARED_DATA_H
