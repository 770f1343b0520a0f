#include <tvbase/platform/thread_key.h>

#include <pthread.h>

#include <type_traits>

namespace platform {

static_assert(std::is_same_v<pthread_key_t, unsigned int> && sizeof(pthread_key_t) == 4);

std::uint32_t thread_key_create(void (*on_thread_end)(void* value)) noexcept {
  pthread_key_t key;
  if (::pthread_key_create(&key, on_thread_end) != 0 || key == kNoThreadKey) return kNoThreadKey;
  return key;
}

void thread_key_delete(std::uint32_t key) noexcept { ::pthread_key_delete(key); }

void* thread_key_get(std::uint32_t key) noexcept { return ::pthread_getspecific(key); }

void thread_key_set(std::uint32_t key, void* value) noexcept { ::pthread_setspecific(key, value); }

void thread_key_thread_ends() noexcept {}

}  // namespace platform
