#include <tvbase/frame/thread_slot.h>

#include <atomic>
#include <cstdlib>

#include <tvbase/trace/thread_state.h>

namespace {

std::uint32_t g_slot = platform::kNoThreadKey;
std::atomic<long> g_live_states{0};

void free_state(void* value) {
  if (value == nullptr || value == frame::kNoThreadState) return;
  std::free(value);
  g_live_states.fetch_sub(1, std::memory_order_relaxed);
}

// Runs when a thread ends, with the thread's value already set back to null.
void on_thread_end(void* value) {
  frame::cached_thread_state() = nullptr;
  free_state(value);
}

}  // namespace

namespace frame {

void build_thread_slot() noexcept {
  if (g_slot == platform::kNoThreadKey) g_slot = platform::thread_key_create(on_thread_end);
}

void take_down_thread_slot() noexcept {
  cached_thread_state() = nullptr;
  if (g_slot == platform::kNoThreadKey) return;
  platform::thread_key_delete(g_slot);
  g_slot = platform::kNoThreadKey;
}

bool thread_slot_valid() noexcept { return g_slot != platform::kNoThreadKey; }

TvLogThreadState* find_thread_state() noexcept {
  if (g_slot == platform::kNoThreadKey) return nullptr;
  void* value = platform::thread_key_get(g_slot);
  if (value != nullptr) {
    if (value == kNoThreadState) return nullptr;
    cached_thread_state() = static_cast<TvLogThreadState*>(value);
    return cached_thread_state();
  }
  auto* state = static_cast<TvLogThreadState*>(std::calloc(1, sizeof(TvLogThreadState)));
  if (state == nullptr) {
    platform::thread_key_set(g_slot, kNoThreadState);
    return nullptr;
  }
  state->parmCount = -1;
  g_live_states.fetch_add(1, std::memory_order_relaxed);
  platform::thread_key_set(g_slot, state);
  cached_thread_state() = state;
  return state;
}

void release_thread_state() noexcept {
  cached_thread_state() = nullptr;
  if (g_slot == platform::kNoThreadKey) return;
  free_state(platform::thread_key_get(g_slot));
  platform::thread_key_set(g_slot, nullptr);
}

void set_thread_slot_value(void* value) noexcept {
  cached_thread_state() = nullptr;
  if (g_slot != platform::kNoThreadKey) platform::thread_key_set(g_slot, value);
}

void* thread_slot_value() noexcept {
  return g_slot == platform::kNoThreadKey ? nullptr : platform::thread_key_get(g_slot);
}

long live_thread_states() noexcept { return g_live_states.load(std::memory_order_relaxed); }

}  // namespace frame
