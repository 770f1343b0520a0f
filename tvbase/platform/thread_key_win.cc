#include <tvbase/platform/thread_key.h>

#include <windows.h>

#include <atomic>

namespace platform {
namespace {

static_assert(TLS_OUT_OF_INDEXES == kNoThreadKey);

// The keys in use and their hooks. The library makes one key, at load; a few
// places leave room for tests.
struct key_hook {
  std::atomic<std::uint32_t> key{kNoThreadKey};
  std::atomic<void (*)(void*)> hook{nullptr};
};
key_hook g_hooks[8];

}  // namespace

std::uint32_t thread_key_create(void (*on_thread_end)(void* value)) noexcept {
  const DWORD key = ::TlsAlloc();
  if (key == TLS_OUT_OF_INDEXES) return kNoThreadKey;
  for (key_hook& slot : g_hooks) {
    std::uint32_t free = kNoThreadKey;
    if (slot.key.load() != kNoThreadKey) continue;
    slot.hook.store(on_thread_end);
    if (slot.key.compare_exchange_strong(free, key)) return key;
  }
  // No room for the hook: a key whose values would never be released is no
  // key at all.
  ::TlsFree(key);
  return kNoThreadKey;
}

void thread_key_delete(std::uint32_t key) noexcept {
  for (key_hook& slot : g_hooks) {
    std::uint32_t expected = key;
    if (slot.key.compare_exchange_strong(expected, kNoThreadKey)) break;
  }
  ::TlsFree(key);
}

void* thread_key_get(std::uint32_t key) noexcept { return ::TlsGetValue(key); }

void thread_key_set(std::uint32_t key, void* value) noexcept { ::TlsSetValue(key, value); }

void thread_key_thread_ends() noexcept {
  for (key_hook& slot : g_hooks) {
    const std::uint32_t key = slot.key.load();
    if (key == kNoThreadKey) continue;
    void* value = ::TlsGetValue(key);
    if (value == nullptr) continue;
    ::TlsSetValue(key, nullptr);
    if (auto hook = slot.hook.load()) hook(value);
  }
}

}  // namespace platform
