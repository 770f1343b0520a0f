#include <tvbase/platform/dir_list.h>

#include <windows.h>

#include <climits>
#include <cwchar>

namespace platform {

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

}  // namespace

dir_listing* open_dir(std::wstring_view folder, std::uint32_t& error) {
  std::wstring pattern(folder);
  pattern += L"*.*";
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
