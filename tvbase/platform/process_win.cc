#include <tvbase/platform/process.h>

#include <windows.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <cstring>

namespace platform {
namespace {

// A context that a test put in place of the thread's own: bits 0-31 the
// value, bit 32 set for a failure, bit 33 set while one is in place.
constexpr std::uint64_t kStandIn = std::uint64_t{1} << 33;
std::atomic<std::uint64_t> g_activation_context{0};

}  // namespace

bool executable_path(char* out, std::size_t capacity) noexcept {
  if (capacity == 0) return false;
  const DWORD size = capacity > MAXDWORD ? MAXDWORD : static_cast<DWORD>(capacity);
  ::SetLastError(ERROR_SUCCESS);
  const DWORD n = ::GetModuleFileNameA(nullptr, out, size);
  // A path that had to be cut fills the buffer (and says so, where the
  // system does).
  if (n == 0 || n >= size || ::GetLastError() == ERROR_INSUFFICIENT_BUFFER) return false;
  out[n] = 0;
  return true;
}

bool user_name(char* out, std::size_t capacity) noexcept {
  if (capacity == 0) return false;
  DWORD size = capacity > MAXDWORD ? MAXDWORD : static_cast<DWORD>(capacity);
  return ::GetUserNameA(out, &size) != 0;
}

unsigned long process_id() noexcept { return ::GetCurrentProcessId(); }

// A Windows program runs with the rights of whoever started it (elevation
// makes a new process of the same user): nothing like a set-user-ID program.
bool secure_execution() noexcept { return false; }

std::uint32_t thread_id() noexcept { return ::GetCurrentThreadId(); }

local_time now() noexcept {
  SYSTEMTIME t{};
  ::GetLocalTime(&t);
  return {t.wYear, t.wMonth, t.wDay, t.wHour, t.wMinute, t.wSecond, t.wMilliseconds};
}

bool current_activation_context(std::uint32_t& out) noexcept {
  const std::uint64_t stand_in = g_activation_context.load(std::memory_order_relaxed);
  if ((stand_in & kStandIn) != 0) {
    if ((stand_in >> 32 & 1) != 0) return false;
    out = static_cast<std::uint32_t>(stand_in);
    return true;
  }
  HANDLE context = nullptr;
  if (!::GetCurrentActCtx(&context)) return false;
  // The handle's value names the context; 64-bit Windows keeps handle
  // values within 32 bits.
  out = static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(context));
  if (context != nullptr) ::ReleaseActCtx(context);
  return true;
}

void set_activation_context_stand_in(std::uint32_t value, bool fails) noexcept {
  g_activation_context.store(kStandIn | (fails ? std::uint64_t{1} << 32 : 0) | value,
                             std::memory_order_relaxed);
}

void abort_then_exit(int status) noexcept {
  std::raise(SIGABRT);
  ::_exit(status);
}

}  // namespace platform
