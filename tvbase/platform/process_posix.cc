#include <tvbase/platform/process.h>

#include <pthread.h>
#include <pwd.h>
#include <sys/auxv.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstring>

namespace platform {
namespace {

thread_local std::uint32_t t_thread_id = 0;

struct time_cache {
  time_t second = -1;
  struct tm fields {};
};
thread_local time_cache t_time;

// The stand-in context: bits 0-31 the value, bit 32 set for a failure.
std::atomic<std::uint64_t> g_activation_context{0};

void forget_thread_id() { t_thread_id = 0; }

}  // namespace

bool executable_path(char* out, std::size_t capacity) noexcept {
  if (capacity == 0) return false;
  const ssize_t n = ::readlink("/proc/self/exe", out, capacity);
  if (n <= 0 || static_cast<std::size_t>(n) >= capacity) return false;
  out[n] = 0;
  return true;
}

bool user_name(char* out, std::size_t capacity) noexcept {
  char buffer[4096];
  struct passwd entry {};
  struct passwd* found = nullptr;
  if (::getpwuid_r(::geteuid(), &entry, buffer, sizeof buffer, &found) != 0 || found == nullptr ||
      found->pw_name == nullptr) {
    return false;
  }
  const std::size_t n = std::strlen(found->pw_name);
  if (n >= capacity) return false;
  std::memcpy(out, found->pw_name, n + 1);
  return true;
}

unsigned long process_id() noexcept { return static_cast<unsigned long>(::getpid()); }

bool secure_execution() noexcept { return ::getauxval(AT_SECURE) != 0; }

std::uint32_t thread_id() noexcept {
  if (t_thread_id == 0) {
    static const int registered = ::pthread_atfork(nullptr, nullptr, forget_thread_id);
    (void)registered;
    t_thread_id = static_cast<std::uint32_t>(::syscall(SYS_gettid));
  }
  return t_thread_id;
}

local_time now() noexcept {
  struct timespec clock {};
  ::clock_gettime(CLOCK_REALTIME, &clock);
  if (clock.tv_sec != t_time.second) {
    if (::localtime_r(&clock.tv_sec, &t_time.fields) == nullptr) t_time.fields = {};
    t_time.second = clock.tv_sec;
  }
  const struct tm& f = t_time.fields;
  return {f.tm_year + 1900,
          f.tm_mon + 1,
          f.tm_mday,
          f.tm_hour,
          f.tm_min,
          f.tm_sec,
          static_cast<int>(clock.tv_nsec / 1000000)};
}

bool current_activation_context(std::uint32_t& out) noexcept {
  const std::uint64_t context = g_activation_context.load(std::memory_order_relaxed);
  if (context >> 32 != 0) return false;
  out = static_cast<std::uint32_t>(context);
  return true;
}

void set_activation_context_stand_in(std::uint32_t value, bool fails) noexcept {
  g_activation_context.store((fails ? std::uint64_t{1} << 32 : 0) | value,
                             std::memory_order_relaxed);
}

void abort_then_exit(int status) noexcept {
  std::raise(SIGABRT);
  ::_exit(status);
}

}  // namespace platform
