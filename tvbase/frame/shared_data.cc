#include <tvbase/frame/shared_data.h>

#include <tvbase/platform/shared_memory.h>
#include <tvbase/platform/sleep.h>

namespace {

constexpr unsigned kLockRetryMilliseconds = 100;

// Stands in for the shared block before load, after unload, and wherever the
// shared-memory object can't be had.
TvSharedData g_private{};
TvSharedData* g_shared = &g_private;
platform::shared_memory g_block;

std::atomic_ref<std::uint32_t> lock_word(TvSharedData& data) {
  return std::atomic_ref<std::uint32_t>(data.lock);
}

void rejoin_after_fork() { platform::rejoin_shared_memory(g_block, frame::shared_block_name()); }

}  // namespace

TvSharedData* TvGetSharedData() noexcept { return g_shared; }

namespace frame {

void acquire_lock(TvSharedData& data, lock_waiter waiting) noexcept {
  for (unsigned attempts = 1; lock_word(data).exchange(1) != 0; ++attempts) {
    if (waiting != nullptr) waiting(attempts);
    platform::sleep_milliseconds(kLockRetryMilliseconds);
  }
}

bool try_acquire_lock(TvSharedData& data) noexcept { return lock_word(data).exchange(1) == 0; }

void release_lock(TvSharedData& data) noexcept { lock_word(data).exchange(0); }

void attach_shared_data() noexcept {
  if (g_block.data != nullptr) return;
  g_block = platform::map_shared_memory(shared_block_name(), sizeof(TvSharedData));
  if (g_block.data == nullptr) return;
  g_shared = static_cast<TvSharedData*>(g_block.data);
  platform::on_fork_child(rejoin_after_fork);
}

void detach_shared_data() noexcept {
  // Later callers, such as static destructors that run after the unload,
  // get the private block rather than memory that is gone.
  g_shared = &g_private;
  platform::unmap_shared_memory(g_block, shared_block_name());
}

}  // namespace frame
