#include <tvbase/platform/dir_list.h>

#include <dirent.h>
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstring>
#include <new>
#include <string>

namespace platform {

struct dir_handle {
  int fd;
};

struct dir_listing {
  DIR* dir;
};

namespace {

// Length of the valid UTF-8 sequence at `p` (at most `left` bytes), or 0.
std::size_t utf8_length(const unsigned char* p, std::size_t left, char32_t& c) {
  const unsigned char b = p[0];
  if (b < 0x80) {
    c = b;
    return 1;
  }
  std::size_t n;
  unsigned char lo = 0x80;
  unsigned char hi = 0xBF;
  if (b >= 0xC2 && b <= 0xDF) {
    n = 2;
    c = b & 0x1F;
  } else if (b >= 0xE0 && b <= 0xEF) {
    n = 3;
    c = b & 0x0F;
    if (b == 0xE0) lo = 0xA0;
    if (b == 0xED) hi = 0x9F;  // no surrogates
  } else if (b >= 0xF0 && b <= 0xF4) {
    n = 4;
    c = b & 0x07;
    if (b == 0xF0) lo = 0x90;
    if (b == 0xF4) hi = 0x8F;
  } else {
    return 0;
  }
  if (left < n || p[1] < lo || p[1] > hi) return 0;
  c = c << 6 | (p[1] & 0x3F);
  for (std::size_t i = 2; i < n; ++i) {
    if ((p[i] & 0xC0) != 0x80) return 0;
    c = c << 6 | (p[i] & 0x3F);
  }
  return n;
}

void append_utf8(std::string& out, char32_t c) {
  if (c < 0x80) {
    out += static_cast<char>(c);
  } else if (c < 0x800) {
    out += static_cast<char>(0xC0 | c >> 6);
    out += static_cast<char>(0x80 | (c & 0x3F));
  } else if (c < 0x10000) {
    out += static_cast<char>(0xE0 | c >> 12);
    out += static_cast<char>(0x80 | (c >> 6 & 0x3F));
    out += static_cast<char>(0x80 | (c & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | c >> 18);
    out += static_cast<char>(0x80 | (c >> 12 & 0x3F));
    out += static_cast<char>(0x80 | (c >> 6 & 0x3F));
    out += static_cast<char>(0x80 | (c & 0x3F));
  }
}

// The attributes of the item `name` in the open folder `dir`, asking the
// system only where the listing's type doesn't tell.
std::uint32_t attributes_of(DIR* dir, const dirent& entry) {
  unsigned char type = entry.d_type;
  struct stat st;
  if (type == DT_UNKNOWN) {
    if (fstatat(dirfd(dir), entry.d_name, &st, AT_SYMLINK_NOFOLLOW) != 0) return kAttributeNormal;
    type = S_ISDIR(st.st_mode) ? DT_DIR : S_ISLNK(st.st_mode) ? DT_LNK : DT_REG;
  }
  if (type == DT_DIR) return kAttributeDirectory;
  if (type != DT_LNK) return kAttributeNormal;
  if (fstatat(dirfd(dir), entry.d_name, &st, 0) == 0 && S_ISDIR(st.st_mode)) {
    return kAttributeReparsePoint | kAttributeDirectory;
  }
  return kAttributeReparsePoint;
}

// Set once openat2 was found missing (a kernel before 5.6, or a container's
// filter that refuses calls it doesn't know).
std::atomic<bool> g_no_openat2{false};

constexpr int kFolderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

// Opens the folder `path` (names joined by '/') inside the folder open at
// `at`, following no link at any step. One openat2 call resolves the whole
// path where the system has it and the path fits; otherwise each name is
// opened from the one before with O_NOFOLLOW, holding two descriptors at a
// time. Gives -1 and errno on failure.
int open_beneath(int at, const std::string& path) {
  if (path.size() < PATH_MAX && !g_no_openat2.load(std::memory_order_relaxed)) {
    open_how how{};
    how.flags = kFolderFlags;
    how.resolve = RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS | RESOLVE_BENEATH;
    long fd;
    do {
      fd = ::syscall(SYS_openat2, at, path.c_str(), &how, sizeof how);
    } while (fd < 0 && errno == EINTR);
    if (fd >= 0) return static_cast<int>(fd);
    // EAGAIN: a rename raced with the lookup; the names one by one below
    // don't mind. ENOSYS and EPERM: no openat2 here, for good.
    if (errno == ENOSYS || errno == EPERM) {
      g_no_openat2.store(true, std::memory_order_relaxed);
    } else if (errno != EAGAIN) {
      return -1;
    }
  }
  int current = at;
  for (std::size_t start = 0;;) {
    const std::size_t slash = path.find('/', start);
    const std::size_t end = slash == std::string::npos ? path.size() : slash;
    int next;
    do {
      next = ::openat(current, path.substr(start, end - start).c_str(), kFolderFlags);
    } while (next < 0 && errno == EINTR);
    const int saved = errno;
    if (current != at) ::close(current);
    if (next < 0) {
      errno = saved;
      return -1;
    }
    if (end == path.size()) return next;
    current = next;
    start = end + 1;
  }
}

dir_handle* handle_for(int fd, std::uint32_t& error) {
  if (fd < 0) {
    error = static_cast<std::uint32_t>(errno);
    return nullptr;
  }
  auto* handle = new (std::nothrow) dir_handle{fd};
  if (handle == nullptr) {
    ::close(fd);
    error = ENOMEM;
  }
  return handle;
}

}  // namespace

dir_handle* open_folder(std::wstring_view path, std::uint32_t& error) {
  const std::string bytes = wide_to_path(path);
  int fd;
  do {
    fd = ::open(bytes.empty() ? "." : bytes.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  } while (fd < 0 && errno == EINTR);
  return handle_for(fd, error);
}

dir_handle* open_subfolder(const dir_handle* parent, std::wstring_view relative,
                           std::uint32_t& error) {
  return handle_for(open_beneath(parent->fd, wide_to_path(relative)), error);
}

void close_folder(dir_handle* folder) {
  if (folder == nullptr) return;
  ::close(folder->fd);
  delete folder;
}

dir_listing* open_dir(const dir_handle* folder, std::uint32_t& error) {
  // A listing reads from a descriptor of its own, which closedir closes;
  // the copy shares the folder's read position, so it starts from the top.
  const int fd = ::fcntl(folder->fd, F_DUPFD_CLOEXEC, 0);
  DIR* dir = fd < 0 ? nullptr : ::fdopendir(fd);
  if (dir == nullptr) {
    error = static_cast<std::uint32_t>(errno);
    if (fd >= 0) ::close(fd);
    return nullptr;
  }
  ::rewinddir(dir);
  auto* listing = new (std::nothrow) dir_listing{dir};
  if (listing == nullptr) {
    ::closedir(dir);
    error = ENOMEM;
  }
  return listing;
}

read_status read_dir(dir_listing* listing, std::span<wchar_t> name, std::uint32_t& attributes,
                     std::uint32_t& error) {
  errno = 0;
  const dirent* entry = readdir(listing->dir);
  if (entry == nullptr) {
    if (errno == 0) return read_status::end;
    error = static_cast<std::uint32_t>(errno);
    return read_status::failed;
  }
  path_to_wide(entry->d_name, name.data(), name.size());
  attributes = attributes_of(listing->dir, *entry);
  return read_status::item;
}

void close_dir(dir_listing* listing) {
  if (listing == nullptr) return;
  closedir(listing->dir);
  delete listing;
}

std::string wide_to_path(std::wstring_view path) {
  std::string out;
  out.reserve(path.size());
  for (std::size_t i = 0; i < path.size(); ++i) {
    const auto u = static_cast<char32_t>(path[i]);
    if (u >= 0xDC80 && u <= 0xDCFF) {
      out += static_cast<char>(u - 0xDC00);
    } else if (u >= 0xD800 && u <= 0xDBFF && i + 1 < path.size() &&
               static_cast<char32_t>(path[i + 1]) >= 0xDC00 &&
               static_cast<char32_t>(path[i + 1]) <= 0xDFFF) {
      append_utf8(out,
                  0x10000 + ((u - 0xD800) << 10) + (static_cast<char32_t>(path[++i]) - 0xDC00));
    } else if (u > 0x10FFFF) {
      append_utf8(out, 0xFFFD);
    } else {
      append_utf8(out, u);  // a lone surrogate keeps its three-byte form
    }
  }
  return out;
}

std::size_t path_to_wide(std::string_view bytes, wchar_t* out, std::size_t capacity) {
  if (capacity == 0) return 0;
  const auto* p = reinterpret_cast<const unsigned char*>(bytes.data());
  std::size_t i = 0;
  std::size_t n = 0;
  while (i < bytes.size() && n + 1 < capacity) {
    char32_t c;
    const std::size_t len = utf8_length(p + i, bytes.size() - i, c);
    if (len == 0) {
      out[n++] = static_cast<wchar_t>(0xDC00 + p[i]);
      ++i;
    } else if (c < 0x10000) {
      out[n++] = static_cast<wchar_t>(c);
      i += len;
    } else {
      if (n + 2 >= capacity) break;
      out[n++] = static_cast<wchar_t>(0xD800 + ((c - 0x10000) >> 10));
      out[n++] = static_cast<wchar_t>(0xDC00 + ((c - 0x10000) & 0x3FF));
      i += len;
    }
  }
  out[n] = L'\0';
  return n;
}

std::wstring path_to_wide(std::string_view bytes) {
  std::wstring out(bytes.size() + 1, L'\0');
  out.resize(path_to_wide(bytes, out.data(), out.size()));
  return out;
}

}  // namespace platform
