#include <tvbase/platform/file.h>

#include <windows.h>

#include <aclapi.h>
#include <fcntl.h>
#include <io.h>
#include <winternl.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <string>

#include <tvbase/platform/user_security_win.h>

namespace platform {
namespace {

int to_descriptor(HANDLE handle) {
  return static_cast<int>(reinterpret_cast<std::intptr_t>(handle));
}

HANDLE to_handle(int file) { return reinterpret_cast<HANDLE>(static_cast<std::intptr_t>(file)); }

// Writes all of `size` bytes; false if the system took fewer.
bool write_all(HANDLE file, const char* data, std::size_t size) {
  while (size > 0) {
    const DWORD part = size > 0x40000000 ? 0x40000000 : static_cast<DWORD>(size);
    DWORD written = 0;
    if (!::WriteFile(file, data, part, &written, nullptr) || written == 0) return false;
    data += written;
    size -= written;
  }
  return true;
}

// Windows appends each WriteFile to a FILE_APPEND_DATA handle whole, but
// Wine finds the end and writes there in two steps, so two threads of one
// process can write a line over another's. One lock per process keeps the
// lines whole there too; the threads of a process wait for the disk one
// after the other either way.
SRWLOCK g_append_lock = SRWLOCK_INIT;

// `text` and `tail` in one WriteFile where they fit together on the stack
// (a trace line always does), else in two.
void write_two(HANDLE file, const char* text, std::size_t length, const char* tail,
               std::size_t tail_length) {
  char joined[8200];
  ::AcquireSRWLockExclusive(&g_append_lock);
  if (length + tail_length <= sizeof joined) {
    std::memcpy(joined, text, length);
    std::memcpy(joined + length, tail, tail_length);
    write_all(file, joined, length + tail_length);
  } else if (write_all(file, text, length)) {
    write_all(file, tail, tail_length);
  }
  ::ReleaseSRWLockExclusive(&g_append_lock);
}

// Opened for reading without waiting on anything: a named pipe is
// connected to at once or refused (all instances busy), never read before
// its type is checked. Others may go on writing and removing the file.
HANDLE open_for_reading(const char* path) {
  return ::CreateFileA(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                       nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
}

// Why `path` could not be opened for reading: a folder (which CreateFileA
// opens only for backup) and a named pipe whose instances are all taken are
// no disk files; anything else is the open's own failure.
bool refused_as_no_file(const char* path) {
  const DWORD error = ::GetLastError();
  const DWORD attributes = ::GetFileAttributesA(path);
  ::SetLastError(error);
  return error == ERROR_PIPE_BUSY ||
         (error == ERROR_ACCESS_DENIED && attributes != INVALID_FILE_ATTRIBUTES &&
          (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0);
}

// A file on a disk, neither a folder nor a reparse point: no pipe, console,
// device or link.
bool is_disk_file(HANDLE file) {
  BY_HANDLE_FILE_INFORMATION info{};
  return ::GetFileType(file) == FILE_TYPE_DISK && ::GetFileInformationByHandle(file, &info) &&
         (info.dwFileAttributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT)) == 0;
}

// Reads up to `size` bytes; false if a read failed.
bool read_up_to(HANDLE file, std::uint8_t* out, std::size_t size, std::size_t& done) {
  done = 0;
  while (done < size) {
    const std::size_t left = size - done;
    DWORD got = 0;
    if (!::ReadFile(file, out + done, left > 0x40000000 ? 0x40000000 : static_cast<DWORD>(left),
                    &got, nullptr)) {
      return false;
    }
    if (got == 0) break;
    done += got;
  }
  return true;
}

// Opens `name` (bytes in the system's code page) in the folder open at
// `folder`, by the folder's handle rather than by a path, so that whatever
// is renamed meanwhile the name is looked up in that folder. A reparse
// point at the name is opened itself, never followed. Gives null and sets
// the last error on failure.
HANDLE open_in_folder(int folder, const char* name, ACCESS_MASK access, ULONG share,
                      ULONG disposition, ULONG options, PSECURITY_DESCRIPTOR security) {
  wchar_t wide[MAX_PATH];
  const int units = ::MultiByteToWideChar(CP_ACP, MB_ERR_INVALID_CHARS, name, -1, wide, MAX_PATH);
  // One name, never a path nor the folder itself.
  if (units <= 1 || std::wcspbrk(wide, L"\\/") != nullptr || std::wcscmp(wide, L".") == 0 ||
      std::wcscmp(wide, L"..") == 0) {
    ::SetLastError(ERROR_INVALID_NAME);
    return nullptr;
  }
  UNICODE_STRING text{static_cast<USHORT>((units - 1) * sizeof(wchar_t)),
                      static_cast<USHORT>(units * sizeof(wchar_t)), wide};
  OBJECT_ATTRIBUTES attributes{};
  InitializeObjectAttributes(&attributes, &text, OBJ_CASE_INSENSITIVE, to_handle(folder), security);
  IO_STATUS_BLOCK status{};
  HANDLE file = nullptr;
  const NTSTATUS result = ::NtCreateFile(
      &file, access | SYNCHRONIZE, &attributes, &status, nullptr, FILE_ATTRIBUTE_NORMAL, share,
      disposition, options | FILE_OPEN_REPARSE_POINT | FILE_SYNCHRONOUS_IO_NONALERT, nullptr, 0);
  if (result != 0) {
    ::SetLastError(::RtlNtStatusToDosError(result));
    return nullptr;
  }
  return file;
}

// The user of the process's token, copied into `out`.
bool token_user(unsigned char (&out)[SECURITY_MAX_SID_SIZE]) {
  HANDLE token = nullptr;
  if (!::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &token)) return false;
  alignas(TOKEN_USER) unsigned char buffer[sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE];
  DWORD size = 0;
  const bool ok = ::GetTokenInformation(token, TokenUser, buffer, sizeof buffer, &size) != 0 &&
                  ::CopySid(sizeof out, out, reinterpret_cast<TOKEN_USER*>(buffer)->User.Sid) != 0;
  ::CloseHandle(token);
  return ok;
}

bool is_system_or_administrators(PSID sid) {
  return ::IsWellKnownSid(sid, WinLocalSystemSid) ||
         ::IsWellKnownSid(sid, WinBuiltinAdministratorsSid);
}

// A new file of a passing name beside `path` (whose folder part is the
// first `folder_length` bytes), made exclusively; its path goes to `out`.
HANDLE create_passing_file(const char* path, std::size_t folder_length, std::string& out) {
  static std::atomic<unsigned> counter{0};
  for (int attempt = 0; attempt < 100; ++attempt) {
    char name[64];
    std::snprintf(name, sizeof name, ".tvbase-%lu-%u-%llx.new", ::GetCurrentProcessId(),
                  counter.fetch_add(1, std::memory_order_relaxed),
                  static_cast<unsigned long long>(::GetTickCount64()));
    out.assign(path, folder_length);
    out += name;
    const HANDLE file = ::CreateFileA(out.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                      FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file != INVALID_HANDLE_VALUE || ::GetLastError() != ERROR_FILE_EXISTS) return file;
  }
  return INVALID_HANDLE_VALUE;
}

}  // namespace

int create_log_file(const char* path) noexcept {
  win::user_only_security security(false);
  if (!security.valid()) return -1;
  // Replacing: the old file goes first, and the new one is made anew, so
  // that a file somebody else put at the name is never written to.
  ::DeleteFileA(path);
  const HANDLE file =
      ::CreateFileA(path, FILE_APPEND_DATA | SYNCHRONIZE, FILE_SHARE_READ, security.attributes(),
                    CREATE_NEW, FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
  return file == INVALID_HANDLE_VALUE ? -1 : to_descriptor(file);
}

void write_line(int file, const char* text, std::size_t length, const char* tail,
                std::size_t tail_length) noexcept {
  if (file >= 0) write_two(to_handle(file), text, length, tail, tail_length);
}

void close_file(int file) noexcept {
  if (file >= 0) ::CloseHandle(to_handle(file));
}

int open_folder(const char* path) noexcept {
  // Others may still rename and remove the folder: the handle keeps
  // pointing at it.
  const HANDLE folder =
      ::CreateFileA(path, FILE_LIST_DIRECTORY | FILE_TRAVERSE | READ_CONTROL | SYNCHRONIZE,
                    FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                    FILE_FLAG_BACKUP_SEMANTICS, nullptr);
  if (folder == INVALID_HANDLE_VALUE) return -1;
  BY_HANDLE_FILE_INFORMATION info{};
  if (!::GetFileInformationByHandle(folder, &info) ||
      (info.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
    ::CloseHandle(folder);
    ::SetLastError(ERROR_DIRECTORY);
    return -1;
  }
  return to_descriptor(folder);
}

void close_folder(int folder) noexcept {
  if (folder >= 0) ::CloseHandle(to_handle(folder));
}

bool folder_access_of(int folder, folder_access& out) noexcept {
  unsigned char me[SECURITY_MAX_SID_SIZE];
  if (folder < 0 || !token_user(me)) return false;
  PSID owner = nullptr;
  PACL dacl = nullptr;
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  if (::GetSecurityInfo(to_handle(folder), SE_FILE_OBJECT,
                        OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION, &owner, nullptr,
                        &dacl, nullptr, &descriptor) != ERROR_SUCCESS) {
    return false;
  }
  bool ok = owner != nullptr;
  if (ok) {
    out.owner_is_me = ::EqualSid(owner, me) != 0;
    out.owner_is_root = is_system_or_administrators(owner);
    // No DACL at all lets everybody do everything.
    out.others_may_add = dacl == nullptr;
    out.others_may_replace = dacl == nullptr;
  }
  // What entries that allow anyone but the owner, SYSTEM and the
  // Administrators grant on the folder itself. Deny entries are not
  // weighed: the answer errs towards "others may".
  GENERIC_MAPPING generic = {FILE_GENERIC_READ, FILE_GENERIC_WRITE, FILE_GENERIC_EXECUTE,
                             FILE_ALL_ACCESS};
  for (DWORD i = 0; ok && dacl != nullptr && i < dacl->AceCount; ++i) {
    void* entry = nullptr;
    if (!::GetAce(dacl, i, &entry)) {
      ok = false;
      break;
    }
    const auto* header = static_cast<const ACE_HEADER*>(entry);
    if (header->AceType != ACCESS_ALLOWED_ACE_TYPE || (header->AceFlags & INHERIT_ONLY_ACE) != 0)
      continue;
    auto* allowed = static_cast<ACCESS_ALLOWED_ACE*>(entry);
    const PSID who = &allowed->SidStart;
    if (::EqualSid(who, owner) || is_system_or_administrators(who)) continue;
    DWORD mask = allowed->Mask;
    ::MapGenericMask(&mask, &generic);
    // Who may change the folder's DACL or owner may grant themselves the rest.
    const bool everything = (mask & (WRITE_DAC | WRITE_OWNER)) != 0;
    if (everything || (mask & (FILE_ADD_FILE | FILE_ADD_SUBDIRECTORY)) != 0)
      out.others_may_add = true;
    if (everything || (mask & FILE_DELETE_CHILD) != 0) out.others_may_replace = true;
  }
  ::LocalFree(descriptor);
  return ok;
}

bool remove_in_folder(int folder, const char* name) noexcept {
  // Opened as itself (a link is never followed), and gone from the folder
  // when the handle closes, unless another process holds it open.
  const HANDLE file =
      open_in_folder(folder, name, DELETE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                     FILE_OPEN, FILE_NON_DIRECTORY_FILE | FILE_DELETE_ON_CLOSE, nullptr);
  if (file == nullptr) return false;
  ::CloseHandle(file);
  return true;
}

int create_own_file_in(int folder, const char* name) noexcept {
  win::user_only_security security(false);
  if (!security.valid()) return -1;
  // FILE_CREATE fails if anything stands at the name. Appending only,
  // others allowed to read, inherited by no child process.
  const HANDLE file =
      open_in_folder(folder, name, FILE_APPEND_DATA, FILE_SHARE_READ, FILE_CREATE,
                     FILE_NON_DIRECTORY_FILE, security.attributes()->lpSecurityDescriptor);
  return file == nullptr ? -1 : to_descriptor(file);
}

bool file_facts_of(int file, file_facts& out) noexcept {
  if (file < 0) return false;
  const HANDLE handle = to_handle(file);
  unsigned char me[SECURITY_MAX_SID_SIZE];
  if (!token_user(me)) return false;
  out.regular = is_disk_file(handle);
  // The owner is read through a second handle to the same open file: the
  // log's own handle asks for appending alone, which is what keeps each
  // line's write whole at the end where threads write at once (Wine appends
  // atomically only then).
  const HANDLE asking =
      ::ReOpenFile(handle, READ_CONTROL, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, 0);
  if (asking == INVALID_HANDLE_VALUE) return false;
  out.owner_is_me = win::owned_by(asking, SE_FILE_OBJECT, me);
  ::CloseHandle(asking);
  return true;
}

long read_file_start(const char* path, void* out, std::size_t size) noexcept {
  const HANDLE file = open_for_reading(path);
  if (file == INVALID_HANDLE_VALUE) return refused_as_no_file(path) ? kNotRegularFile : -1;
  if (!is_disk_file(file)) {
    ::CloseHandle(file);
    return kNotRegularFile;
  }
  std::size_t done = 0;
  const bool ok = read_up_to(file, static_cast<std::uint8_t*>(out), size, done);
  const DWORD error = ::GetLastError();
  ::CloseHandle(file);
  ::SetLastError(error);
  return ok ? static_cast<long>(done) : -1;
}

read_outcome read_regular_file(const char* path, std::size_t limit, std::vector<std::uint8_t>& out,
                               std::uint32_t& error) {
  if (path == nullptr) {
    error = ERROR_INVALID_PARAMETER;
    return read_outcome::cannot_open;
  }
  const HANDLE file = open_for_reading(path);
  if (file == INVALID_HANDLE_VALUE) {
    if (refused_as_no_file(path)) return read_outcome::not_regular;
    error = ::GetLastError();
    return read_outcome::cannot_open;
  }
  LARGE_INTEGER size{};
  read_outcome outcome = read_outcome::done;
  if (!is_disk_file(file) || !::GetFileSizeEx(file, &size)) {
    outcome = read_outcome::not_regular;
  } else if (static_cast<std::uint64_t>(size.QuadPart) > limit) {
    outcome = read_outcome::too_large;
  } else {
    try {
      out.resize(static_cast<std::size_t>(size.QuadPart));
    } catch (...) {
      ::CloseHandle(file);
      throw;
    }
    std::size_t done = 0;
    if (!read_up_to(file, out.data(), out.size(), done)) {
      error = ::GetLastError();
      outcome = read_outcome::read_failed;
    }
    out.resize(done);
  }
  ::CloseHandle(file);
  return outcome;
}

read_outcome open_regular_file(const char* path, std::FILE*& out, std::uint32_t& error) noexcept {
  out = nullptr;
  if (path == nullptr) {
    error = ERROR_INVALID_PARAMETER;
    return read_outcome::cannot_open;
  }
  const HANDLE file = open_for_reading(path);
  if (file == INVALID_HANDLE_VALUE) {
    if (refused_as_no_file(path)) return read_outcome::not_regular;
    error = ::GetLastError();
    return read_outcome::cannot_open;
  }
  if (!is_disk_file(file)) {
    ::CloseHandle(file);
    return read_outcome::not_regular;
  }
  // The C runtime's descriptor takes the handle over, and the stream the
  // descriptor.
  const int fd = ::_open_osfhandle(reinterpret_cast<std::intptr_t>(file), _O_RDONLY | _O_BINARY);
  if (fd < 0) {
    error = ERROR_TOO_MANY_OPEN_FILES;
    ::CloseHandle(file);
    return read_outcome::cannot_open;
  }
  out = ::_fdopen(fd, "rb");
  if (out == nullptr) {
    error = ERROR_NOT_ENOUGH_MEMORY;
    ::_close(fd);
    return read_outcome::cannot_open;
  }
  return read_outcome::done;
}

bool read_regular_file(const char* path, std::size_t limit, std::vector<std::uint8_t>& out) {
  std::uint32_t error = 0;
  return read_regular_file(path, limit, out, error) == read_outcome::done;
}

unsigned long write_whole_file(const char* path, const void* data, std::size_t size) noexcept {
  if (*path == 0) return ERROR_PATH_NOT_FOUND;
  const char* name = path;
  for (const char* c = path; *c != 0; ++c) {
    if (*c == '\\' || *c == '/' || *c == ':') name = c + 1;
  }
  // A path that ends in a separator names a folder, which the rename below
  // would refuse the same way.
  if (*name == 0) return ERROR_ACCESS_DENIED;
  std::string passing;
  HANDLE file = INVALID_HANDLE_VALUE;
  try {
    file = create_passing_file(path, static_cast<std::size_t>(name - path), passing);
  } catch (...) {
    return ERROR_NOT_ENOUGH_MEMORY;
  }
  if (file == INVALID_HANDLE_VALUE) return ::GetLastError();
  unsigned long error = 0;
  if (!write_all(file, static_cast<const char*>(data), size)) {
    error = ::GetLastError();
    if (error == 0) error = ERROR_WRITE_FAULT;
  }
  // On the disk before the name moves, so that a crash leaves the old bytes
  // or the new, never an empty file at `path`.
  if (error == 0 && !::FlushFileBuffers(file)) error = ::GetLastError();
  if (!::CloseHandle(file) && error == 0) error = ::GetLastError();
  // The move replaces whatever file or link stands at the name, following
  // nothing; a folder there makes it fail.
  if (error == 0 &&
      !::MoveFileExA(passing.c_str(), path, MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) {
    error = ::GetLastError();
  }
  if (error != 0) ::DeleteFileA(passing.c_str());
  return error;
}

void debug_echo(const char* text, std::size_t length) noexcept {
  // The call takes a zero-ended text; a trace line fits the buffer.
  char line[8193];
  const std::size_t n = length < sizeof line - 1 ? length : sizeof line - 1;
  std::memcpy(line, text, n);
  line[n] = '\0';
  ::OutputDebugStringA(line);
  ::OutputDebugStringA("\n");
}

void write_stderr(const char* text, std::size_t length, const char* tail,
                  std::size_t tail_length) noexcept {
  const HANDLE error = ::GetStdHandle(STD_ERROR_HANDLE);
  if (error != nullptr && error != INVALID_HANDLE_VALUE)
    write_two(error, text, length, tail, tail_length);
}

}  // namespace platform
