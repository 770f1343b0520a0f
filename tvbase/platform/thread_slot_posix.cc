#include <tvbase/platform/thread_slot.h>

#include <pthread.h>

#include <type_traits>

namespace platform {

static_assert(std::is_same_v<pthread_key_t, unsigned int> && sizeof(pthread_key_t) == 4);

std::uint32_t thread_slot_alloc(void (*on_thread_end)(void* value)) noexcept {
  pthread_key_t key;
  if (::pthread_key_create(&key, on_thread_end) != 0 || key == kNoThreadSlot) return kNoThreadSlot;
  return key;
}

void thread_slot_free(std::uint32_t slot) noexcept { ::pthread_key_delete(slot); }

void* thread_slot_get(std::uint32_t slot) noexcept { return ::pthread_getspecific(slot); }

void thread_slot_set(std::uint32_t slot, void* value) noexcept {
  ::pthread_setspecific(slot, value);
}

}  // namespace platform
