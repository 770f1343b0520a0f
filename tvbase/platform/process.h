#ifndef TVBASE_PLATFORM_PROCESS_H
#define TVBASE_PLATFORM_PROCESS_H

// Facts about the running process and thread, as the call trace needs them.

#include <cstddef>
#include <cstdint>

namespace platform {

// The full path of the program's executable file (the target of
// /proc/self/exe), zero-ended. False if it can't be had or needs `capacity`
// characters or more with its zero.
bool executable_path(char* out, std::size_t capacity) noexcept;

// The login name of the effective user, zero-ended. False if it can't be had
// or doesn't fit.
bool user_name(char* out, std::size_t capacity) noexcept;

unsigned long process_id() noexcept;

// Whether the process runs with rights that whoever started it may lack: a
// set-user-ID or set-group-ID program, or one with file capabilities (the
// kernel's AT_SECURE).
bool secure_execution() noexcept;

// A number for the calling thread (the kernel's thread id). Asked of the
// system once per thread, and again after fork().
std::uint32_t thread_id() noexcept;

struct local_time {
  int year, month, day, hour, minute, second, millisecond;
};

// Local date and time with milliseconds. The broken-down time is computed
// once per second and thread.
local_time now() noexcept;

// Linux has no activation contexts. This stand-in gives 0, the one context
// there is, unless a test set something else through
// set_activation_context_stand_in.
bool current_activation_context(std::uint32_t& out) noexcept;

// For tests: makes current_activation_context give `value` from now on, in
// every thread, or fail when `fails` is set.
void set_activation_context_stand_in(std::uint32_t value, bool fails) noexcept;

// Ends the process with the abort signal and, should that return (a handler
// caught it, or it is ignored), at once with `status`, running no exit
// handlers and flushing nothing.
[[noreturn]] void abort_then_exit(int status) noexcept;

}  // namespace platform

#endif  // TVBASE_PLATFORM_PROCESS_H
