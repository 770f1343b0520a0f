#include <tvbase/trace/thread_state.h>

#include <atomic>

#include <tvbase/frame/thread_slot.h>
#include <tvbase/platform/local_memory.h>

namespace {

std::atomic<long> g_live_states{0};

}  // namespace

namespace trace {

TvLogThreadState* FindThreadState() noexcept {
  if (!frame::thread_slot_valid()) return nullptr;
  void* value = frame::thread_slot_value();
  if (value != nullptr) {
    if (value == kNoThreadState) return nullptr;
    CachedThreadState() = static_cast<TvLogThreadState*>(value);
    return CachedThreadState();
  }
  auto* state =
      static_cast<TvLogThreadState*>(platform::local_alloc_zeroed(sizeof(TvLogThreadState)));
  if (state == nullptr) {
    frame::set_thread_slot_value(kNoThreadState);
    return nullptr;
  }
  state->parmCount = -1;
  g_live_states.fetch_add(1, std::memory_order_relaxed);
  frame::set_thread_slot_value(state);
  CachedThreadState() = state;
  return state;
}

void ThreadStateEnds(void* value) noexcept {
  CachedThreadState() = nullptr;
  if (value == nullptr || value == kNoThreadState) return;
  platform::local_free(value);
  g_live_states.fetch_sub(1, std::memory_order_relaxed);
}

long LiveThreadStates() noexcept { return g_live_states.load(std::memory_order_relaxed); }

}  // namespace trace
