#include <tvbase/platform/readable_memory.h>

#include <windows.h>

#include <cstdint>
#include <cstring>
#include <cwchar>

namespace platform {
namespace {

constexpr std::size_t kPage = 4096;

template <typename Char>
bool aligned(const Char* text) {
  return reinterpret_cast<std::uintptr_t>(text) % alignof(Char) == 0;
}

}  // namespace

// IsBadReadPtr and its kin look at the memory under a structured exception
// handler of the system's: a bad address gives an answer, never a fault.
bool is_readable(const void* address, std::size_t size) noexcept {
  if (size == 0) return true;
  if (address == nullptr) return false;
  return ::IsBadReadPtr(address, size) == 0;
}

bool is_readable_text(const char* text, std::size_t& length) noexcept {
  if (text == nullptr || ::IsBadStringPtrA(text, UINT_PTR(-1)) != 0) return false;
  length = std::strlen(text);
  return true;
}

bool is_readable_text(const wchar_t* text, std::size_t& length) noexcept {
  if (text == nullptr || !aligned(text) || ::IsBadStringPtrW(text, UINT_PTR(-1)) != 0) return false;
  length = std::wcslen(text);
  return true;
}

// No batching to gain here: each question is a few instructions when the
// memory can be read.
void check_readable(readable_range* ranges, std::size_t count) noexcept {
  for (std::size_t i = 0; i < count; ++i)
    ranges[i].readable = is_readable(ranges[i].address, ranges[i].size);
}

std::size_t bytes_to_page_end(const void* address) noexcept {
  return kPage - reinterpret_cast<std::uintptr_t>(address) % kPage;
}

}  // namespace platform
