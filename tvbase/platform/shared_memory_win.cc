#include <tvbase/platform/shared_memory.h>

#include <windows.h>

#include <winternl.h>

#include <cstdint>
#include <string>

#include <tvbase/platform/user_security_win.h>

// On Windows the block is a named file mapping backed by the paging file,
// one per user: `name` ends in the user's SID, it lives in the session's
// Local\ namespace, and it is created with that user as owner and a DACL
// that grants that user and SYSTEM alone. The kernel creates or opens it in
// one step and zero-fills it when it creates it, and keeps it while any
// process holds a handle to it, crashed ones until the system closes their
// handles: so there is no creation or removal step to guard, and mapping and
// unmapping never wait for anything (the patience goes unused). A mapping of
// that name owned by another user (a squatter), or of another size, is not
// used: the process then has no shared block.

namespace platform {
namespace {

HANDLE to_handle(int object) {
  return reinterpret_cast<HANDLE>(static_cast<std::intptr_t>(object));
}

// "Local\<name without its leading slash>".
bool mapping_name(const char* name, std::wstring& out) {
  try {
    out = L"Local\\";
    for (const char* c = name[0] == '/' ? name + 1 : name; *c != '\0'; ++c)
      out += static_cast<wchar_t>(static_cast<unsigned char>(*c));
  } catch (...) {
    return false;
  }
  // A name with a backslash would name another namespace or fail.
  return out.find(L'\\', 6) == std::wstring::npos && out.size() < MAX_PATH;
}

}  // namespace

shared_memory map_shared_memory(const char* name, std::size_t size, const user_account& owner,
                                guard_patience) noexcept {
  shared_memory block;
  user_account me;
  // Only the process's own user's block: no process gives objects away here.
  if (size == 0 || !effective_user(me) || !same_user(me, owner)) return block;
  win::user_only_security security(true);
  std::wstring full;
  if (!security.valid() || !mapping_name(name, full)) return block;
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
  // mapping that another holder made at another size is refused.
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

void unmap_shared_memory(shared_memory& block, const char*, guard_patience) noexcept {
  if (block.data == nullptr) return;
  ::UnmapViewOfFile(block.data);
  ::CloseHandle(to_handle(block.object));
  block = shared_memory{};
}

// Windows has no fork(): nothing to rejoin, and no child to run anything in.
void rejoin_shared_memory(shared_memory&, const char*, guard_patience) noexcept {}

long shared_memory_holders(const shared_memory& block) noexcept {
  if (block.data == nullptr || block.object == -1) return -1;
  // The kernel's count of open handles to the mapping: one per process that
  // maps the block (the library never duplicates its handle).
  PUBLIC_OBJECT_BASIC_INFORMATION info{};
  ULONG length = 0;
  if (::NtQueryObject(to_handle(block.object), ObjectBasicInformation, &info, sizeof info,
                      &length) != 0 ||
      info.HandleCount == 0) {
    return -1;
  }
  return static_cast<long>(info.HandleCount);
}

void on_fork_child(void (*)()) noexcept {}

}  // namespace platform
