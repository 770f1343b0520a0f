#include <tvbase/frame/shared_data.h>

#include <cstdio>

#include <tvbase/platform/shared_memory.h>
#include <tvbase/platform/sleep.h>

namespace {

constexpr unsigned kLockRetryMilliseconds = 100;

// Mapping and unmapping wait for the block's guard at most 20 tries 5 ms
// apart: a process that holds it only maps or unmaps, which takes far less,
// and one that holds it longer must not stop a load, an exit or a fork.
constexpr platform::guard_patience kGuardPatience{20, 5};

// Stands in for the shared block before load, after unload, and wherever the
// user's block can't be had.
TvSharedData g_private{};
TvSharedData* g_shared = &g_private;
platform::shared_memory g_block;
char g_name[256] = {};  // the object's name while g_block is mapped

std::atomic_ref<std::uint32_t> lock_word(TvSharedData& data) {
  return std::atomic_ref<std::uint32_t>(data.lock);
}

void rejoin_after_fork() { platform::rejoin_shared_memory(g_block, g_name, kGuardPatience); }

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

bool attach_shared_data(const platform::user_account& owner) noexcept {
  detach_shared_data();
  const int n = std::snprintf(g_name, sizeof g_name, "%s-%s", shared_block_name(), owner.id);
  if (n < 0 || static_cast<std::size_t>(n) >= sizeof g_name) {
    g_name[0] = 0;
    return false;
  }
  g_block = platform::map_shared_memory(g_name, sizeof(TvSharedData), owner, kGuardPatience);
  if (g_block.data == nullptr) {
    g_name[0] = 0;
    return false;
  }
  g_shared = static_cast<TvSharedData*>(g_block.data);
  static const bool registered = (platform::on_fork_child(rejoin_after_fork), true);
  (void)registered;
  return true;
}

void attach_shared_data() noexcept {
  if (g_block.data != nullptr) return;
  platform::user_account me;
  if (platform::effective_user(me)) (void)attach_shared_data(me);
}

void detach_shared_data() noexcept {
  // Later callers, such as static destructors that run after the unload,
  // get the private block rather than memory that is gone.
  g_shared = &g_private;
  platform::unmap_shared_memory(g_block, g_name, kGuardPatience);
  g_name[0] = 0;
}

bool shared_data_is_shared() noexcept { return g_shared != &g_private; }

long shared_data_holders() noexcept {
  return shared_data_is_shared() ? platform::shared_memory_holders(g_block) : -1;
}

const char* shared_block_object_name() noexcept { return g_name; }

}  // namespace frame
