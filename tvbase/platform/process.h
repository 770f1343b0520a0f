#ifndef TVBASE_PLATFORM_PROCESS_H
#define TVBASE_PLATFORM_PROCESS_H

// Facts about the running process and thread, as the call trace needs them.

#include <cstddef>
#include <cstdint>

namespace platform {

// The characters that end a folder in a path: '\\' and '/' on Windows, '/'
// elsewhere.
#if defined(_WIN32)
inline constexpr const char* kPathSeparators = "\\/";
#else
inline constexpr const char* kPathSeparators = "/";
#endif

// The full path of the program's executable file, zero-ended (the target of
// /proc/self/exe; on Windows GetModuleFileNameA of the program, not of the
// library). False if it can't be had or needs `capacity`
// characters or more with its zero.
bool executable_path(char* out, std::size_t capacity) noexcept;

// The login name of the effective user (GetUserNameA on Windows), zero-ended. False if it can't be
// had or doesn't fit.
bool user_name(char* out, std::size_t capacity) noexcept;

unsigned long process_id() noexcept;

// Whether the process runs with rights that whoever started it may lack: a
// set-user-ID or set-group-ID program, or one with file capabilities (the
// kernel's AT_SECURE). Windows has no such programs: always false there.
bool secure_execution() noexcept;

// A number for the calling thread: the kernel's thread id, asked of the
// system once per thread and again after fork(); GetCurrentThreadId on
// Windows.
std::uint32_t thread_id() noexcept;

struct local_time {
  int year, month, day, hour, minute, second, millisecond;
};

// Local date and time with milliseconds. On POSIX the broken-down time is
// computed once per second and thread; on Windows it is GetLocalTime.
local_time now() noexcept;

// The calling thread's activation context. On Windows GetCurrentActCtx,
// whose handle value names the context (false where it fails). Linux has no
// activation contexts: there this gives 0, the one context there is. On both,
// a test can put a value or a failure in place through
// set_activation_context_stand_in.
bool current_activation_context(std::uint32_t& out) noexcept;

// For tests: makes current_activation_context give `value` from now on, in
// every thread, or fail when `fails` is set.
void set_activation_context_stand_in(std::uint32_t value, bool fails) noexcept;

// Ends the process with the abort signal (raise) and, should that return (a
// handler caught it, or it is ignored), at once with `status` (_exit),
// running no exit handlers and flushing nothing.
[[noreturn]] void abort_then_exit(int status) noexcept;

}  // namespace platform

#endif  // TVBASE_PLATFORM_PROCESS_H
