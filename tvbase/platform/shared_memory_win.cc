#include <tvbase/platform/shared_memory.h>

#include <windows.h>

#include <cstdint>
#include <string>

#include <tvbase/platform/user_security_win.h>

// On Windows the block is a named file mapping backed by the paging file,
// one per user: its name, in the session's Local\ namespace, ends in the
// user's SID, and it is created with that user as owner and a DACL that
// grants that user and SYSTEM alone. The system keeps the mapping while any
// process holds a handle to it and zero-fills it when it is created, which is
// exactly the block's life: nothing to lock, so nothing can block at load or
// exit. A mapping of that name that exists with another owner (a squatter)
// is not used: the process then has no shared block.

namespace platform {
namespace {

HANDLE to_handle(int object) {
  return reinterpret_cast<HANDLE>(static_cast<std::intptr_t>(object));
}

// "Local\<name without its leading slash>-<SID>".
std::wstring mapping_name(const char* name, const std::wstring& sid) {
  std::wstring out = L"Local\\";
  for (const char* c = name[0] == '/' ? name + 1 : name; *c != '\0'; ++c)
    out += static_cast<wchar_t>(static_cast<unsigned char>(*c));
  out += L'-';
  out += sid;
  return out;
}

}  // namespace

shared_memory map_shared_memory(const char* name, std::size_t size) noexcept {
  shared_memory block;
  win::user_only_security security(true);
  if (!security.valid() || size == 0) return block;
  std::wstring full;
  try {
    full = mapping_name(name, security.user_text());
  } catch (...) {
    return block;
  }
  // A name with a backslash would name another namespace or fail.
  if (full.find(L'\\', 6) != std::wstring::npos || full.size() >= MAX_PATH) return block;
  const auto high = static_cast<DWORD>(static_cast<std::uint64_t>(size) >> 32);
  const auto low = static_cast<DWORD>(size);
  const HANDLE mapping = ::CreateFileMappingW(INVALID_HANDLE_VALUE, security.attributes(),
                                              PAGE_READWRITE, high, low, full.c_str());
  if (mapping == nullptr) return block;
  const bool existed = ::GetLastError() == ERROR_ALREADY_EXISTS;
  if (existed && !win::owned_by(mapping, SE_KERNEL_OBJECT, security.user())) {
    ::CloseHandle(mapping);
    return block;
  }
  // The whole mapping, whose size (in whole pages) must be this one: a
  // mapping that another holder made at another size is refused, as on POSIX.
  void* data = ::MapViewOfFile(mapping, FILE_MAP_READ | FILE_MAP_WRITE, 0, 0, 0);
  MEMORY_BASIC_INFORMATION region{};
  const std::size_t pages = (size + 4095) / 4096 * 4096;
  if (data != nullptr &&
      (::VirtualQuery(data, &region, sizeof region) == 0 || region.RegionSize != pages)) {
    ::UnmapViewOfFile(data);
    data = nullptr;
  }
  if (data == nullptr) {
    ::CloseHandle(mapping);
    return block;
  }
  block.data = data;
  block.size = size;
  block.object = static_cast<int>(reinterpret_cast<std::intptr_t>(mapping));
  return block;
}

void unmap_shared_memory(shared_memory& block, const char*) noexcept {
  if (block.data == nullptr) return;
  ::UnmapViewOfFile(block.data);
  ::CloseHandle(to_handle(block.object));
  block = shared_memory{};
}

// Windows has no fork(): nothing to rejoin, and no child to run anything in.
void rejoin_shared_memory(shared_memory&, const char*) noexcept {}

void on_fork_child(void (*)()) noexcept {}

}  // namespace platform
