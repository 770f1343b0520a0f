#include <tvbase/platform/dir_list.h>

#include <windows.h>

#include <winternl.h>

#include <climits>
#include <cwchar>

namespace platform {

struct dir_handle {
  HANDLE handle;
  // The folder's path, without a separator at its end: "\\?\C:\..." for
  // one found through its handle, so that deep folders are not bound by
  // MAX_PATH.
  std::wstring path;
};

struct dir_listing {
  HANDLE find;
  WIN32_FIND_DATAW item;
  bool item_waiting;  // FindFirstFileW's item, not yet handed out
};

namespace {

void copy_item(const WIN32_FIND_DATAW& item, std::span<wchar_t> name, std::uint32_t& attributes) {
  const std::size_t length = wcsnlen(item.cFileName, MAX_PATH);
  const std::size_t n = length < name.size() ? length : name.size() - 1;
  std::wmemcpy(name.data(), item.cFileName, n);
  name[n] = L'\0';
  attributes = item.dwFileAttributes;
}

// Folders are held without FILE_SHARE_DELETE: while one is open nobody can
// rename or remove it, so its path keeps naming it for the listing.
constexpr DWORD kFolderAccess = FILE_LIST_DIRECTORY | FILE_TRAVERSE | SYNCHRONIZE;
constexpr DWORD kFolderShare = FILE_SHARE_READ | FILE_SHARE_WRITE;

// Checks that `handle` is a folder, and no reparse point where `links` is
// false; closes it and sets `error` if not.
bool is_folder(HANDLE handle, bool links, std::uint32_t& error) {
  BY_HANDLE_FILE_INFORMATION info{};
  if (!::GetFileInformationByHandle(handle, &info)) {
    error = ::GetLastError();
  } else if ((info.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
    error = ERROR_DIRECTORY;
  } else if (!links && (info.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
    error = ERROR_CANT_RESOLVE_FILENAME;
  } else {
    return true;
  }
  ::CloseHandle(handle);
  return false;
}

// Opens the folder `name` inside the folder open at `parent`, by the
// parent's handle and never through a reparse point. Null on failure.
HANDLE open_inside(HANDLE parent, std::wstring_view name, std::uint32_t& error) {
  if (name.empty() || name == L"." || name == L".." || name.size() > 32767) {
    error = ERROR_INVALID_NAME;
    return nullptr;
  }
  UNICODE_STRING text{static_cast<USHORT>(name.size() * sizeof(wchar_t)),
                      static_cast<USHORT>(name.size() * sizeof(wchar_t)),
                      const_cast<wchar_t*>(name.data())};
  OBJECT_ATTRIBUTES attributes{};
  InitializeObjectAttributes(&attributes, &text, OBJ_CASE_INSENSITIVE, parent, nullptr);
  IO_STATUS_BLOCK status{};
  HANDLE folder = nullptr;
  const NTSTATUS result = ::NtCreateFile(
      &folder, kFolderAccess, &attributes, &status, nullptr, 0, kFolderShare, FILE_OPEN,
      FILE_DIRECTORY_FILE | FILE_OPEN_REPARSE_POINT | FILE_SYNCHRONOUS_IO_NONALERT, nullptr, 0);
  if (result != 0) {
    error = ::RtlNtStatusToDosError(result);
    return nullptr;
  }
  return is_folder(folder, false, error) ? folder : nullptr;
}

// The path of the folder open at `handle`, as the system has it now; empty
// if it can't tell.
std::wstring path_of(HANDLE handle) {
  std::wstring out(MAX_PATH, L'\0');
  for (int tries = 0; tries < 2; ++tries) {
    const DWORD n = ::GetFinalPathNameByHandleW(handle, out.data(), static_cast<DWORD>(out.size()),
                                                FILE_NAME_NORMALIZED | VOLUME_NAME_DOS);
    if (n == 0) break;
    if (n < out.size()) {
      out.resize(n);
      while (!out.empty() && out.back() == L'\\') out.pop_back();
      return out;
    }
    out.resize(n);
  }
  return {};
}

}  // namespace

dir_handle* open_folder(std::wstring_view path, std::uint32_t& error) {
  std::wstring named(path);
  // Links on the way are followed, as the caller named the folder; a path
  // that names no folder (a file, a pipe) is refused without waiting.
  const HANDLE folder = ::CreateFileW(named.c_str(), kFolderAccess, kFolderShare, nullptr,
                                      OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
  if (folder == INVALID_HANDLE_VALUE) {
    error = ::GetLastError();
    return nullptr;
  }
  if (!is_folder(folder, true, error)) return nullptr;
  std::wstring found = path_of(folder);
  if (found.empty()) {
    found = std::move(named);
    while (found.size() > 1 && (found.back() == L'\\' || found.back() == L'/')) found.pop_back();
  }
  return new dir_handle{folder, std::move(found)};
}

dir_handle* open_subfolder(const dir_handle* parent, std::wstring_view relative,
                           std::uint32_t& error) {
  // Name by name, each opened from the one before, the one before held
  // until then.
  HANDLE current = parent->handle;
  std::wstring path = parent->path;
  for (std::size_t start = 0;;) {
    const std::size_t end = relative.find_first_of(L"\\/", start);
    const std::wstring_view name = relative.substr(
        start, end == std::wstring_view::npos ? std::wstring_view::npos : end - start);
    const HANDLE next = open_inside(current, name, error);
    if (current != parent->handle) ::CloseHandle(current);
    if (next == nullptr) return nullptr;
    current = next;
    path += L'\\';
    path += name;
    if (end == std::wstring_view::npos) break;
    start = end + 1;
  }
  return new dir_handle{current, std::move(path)};
}

void close_folder(dir_handle* folder) {
  if (folder == nullptr) return;
  ::CloseHandle(folder->handle);
  delete folder;
}

dir_listing* open_dir(const dir_handle* folder, std::uint32_t& error) {
  std::wstring pattern = folder->path;
  pattern += L"\\*.*";
  auto* listing = new dir_listing{};
  listing->find = ::FindFirstFileW(pattern.c_str(), &listing->item);
  if (listing->find == INVALID_HANDLE_VALUE) {
    const DWORD code = ::GetLastError();
    // An existing folder with no match; every folder has "." and "..", so
    // only a root ever says so.
    if (code == ERROR_FILE_NOT_FOUND) return listing;
    delete listing;
    error = code;
    return nullptr;
  }
  listing->item_waiting = true;
  return listing;
}

read_status read_dir(dir_listing* listing, std::span<wchar_t> name, std::uint32_t& attributes,
                     std::uint32_t& error) {
  if (listing->find == INVALID_HANDLE_VALUE) return read_status::end;
  if (!listing->item_waiting) {
    if (!::FindNextFileW(listing->find, &listing->item)) {
      const DWORD code = ::GetLastError();
      if (code == ERROR_NO_MORE_FILES) return read_status::end;
      error = code;
      return read_status::failed;
    }
  }
  listing->item_waiting = false;
  copy_item(listing->item, name, attributes);
  return read_status::item;
}

void close_dir(dir_listing* listing) {
  if (listing == nullptr) return;
  if (listing->find != INVALID_HANDLE_VALUE) ::FindClose(listing->find);
  delete listing;
}

std::string wide_to_path(std::wstring_view path) {
  std::string out;
  if (path.empty() || path.size() > INT_MAX) return out;
  const int units = static_cast<int>(path.size());
  const int needed =
      ::WideCharToMultiByte(CP_UTF8, 0, path.data(), units, nullptr, 0, nullptr, nullptr);
  if (needed <= 0) return out;
  out.resize(static_cast<std::size_t>(needed));
  const int got =
      ::WideCharToMultiByte(CP_UTF8, 0, path.data(), units, out.data(), needed, nullptr, nullptr);
  out.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
  return out;
}

std::size_t path_to_wide(std::string_view bytes, wchar_t* out, std::size_t capacity) {
  if (capacity == 0) return 0;
  std::size_t n = 0;
  if (!bytes.empty() && bytes.size() <= INT_MAX) {
    const int room = capacity - 1 > INT_MAX ? INT_MAX : static_cast<int>(capacity - 1);
    const int size = static_cast<int>(bytes.size());
    int got = ::MultiByteToWideChar(CP_UTF8, 0, bytes.data(), size, out, room);
    if (got == 0 && room > 0) {
      // Too long for `out`: convert it whole and keep what fits, never the
      // first half of a pair alone.
      const std::wstring whole = path_to_wide(bytes);
      n = whole.size() < static_cast<std::size_t>(room) ? whole.size()
                                                        : static_cast<std::size_t>(room);
      if (n > 0 && n < whole.size() && whole[n - 1] >= 0xD800 && whole[n - 1] <= 0xDBFF) --n;
      std::wmemcpy(out, whole.data(), n);
    } else {
      n = got > 0 ? static_cast<std::size_t>(got) : 0;
    }
  }
  out[n] = L'\0';
  return n;
}

std::wstring path_to_wide(std::string_view bytes) {
  std::wstring out;
  if (bytes.empty() || bytes.size() > INT_MAX) return out;
  const int size = static_cast<int>(bytes.size());
  const int needed = ::MultiByteToWideChar(CP_UTF8, 0, bytes.data(), size, nullptr, 0);
  if (needed <= 0) return out;
  out.resize(static_cast<std::size_t>(needed));
  const int got = ::MultiByteToWideChar(CP_UTF8, 0, bytes.data(), size, out.data(), needed);
  out.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
  return out;
}

}  // namespace platform
