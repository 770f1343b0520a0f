#include <tvbase/frame/thread_slot.h>

#include <cstdint>

#include <tvbase/platform/thread_key.h>

namespace {

std::uint32_t g_key = platform::kNoThreadKey;
frame::thread_end_hook g_on_thread_end = nullptr;

}  // namespace

namespace frame {

void build_thread_slot(thread_end_hook on_thread_end) noexcept {
  if (g_key != platform::kNoThreadKey) return;
  g_on_thread_end = on_thread_end;
  g_key = platform::thread_key_create(on_thread_end);
}

void take_down_thread_slot() noexcept {
  if (g_key == platform::kNoThreadKey) return;
  platform::thread_key_delete(g_key);
  g_key = platform::kNoThreadKey;
}

bool thread_slot_valid() noexcept { return g_key != platform::kNoThreadKey; }

void* thread_slot_value() noexcept {
  return g_key == platform::kNoThreadKey ? nullptr : platform::thread_key_get(g_key);
}

void set_thread_slot_value(void* value) noexcept {
  if (g_key != platform::kNoThreadKey) platform::thread_key_set(g_key, value);
}

void release_thread_slot_value() noexcept {
  if (g_key == platform::kNoThreadKey) return;
  void* value = platform::thread_key_get(g_key);
  platform::thread_key_set(g_key, nullptr);
  if (value != nullptr && g_on_thread_end != nullptr) g_on_thread_end(value);
}

}  // namespace frame
