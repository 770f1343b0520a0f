#include <tvbase/platform/file.h>

#include <windows.h>

#include <cstdint>
#include <cstring>

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

HANDLE open_for_reading(const char* path) {
  return ::CreateFileA(path, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                       FILE_ATTRIBUTE_NORMAL, nullptr);
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

bool remove_file(const char* path) noexcept { return ::DeleteFileA(path) != 0; }

long read_file_start(const char* path, void* out, std::size_t size) noexcept {
  const HANDLE file = open_for_reading(path);
  if (file == INVALID_HANDLE_VALUE) return -1;
  std::size_t done = 0;
  while (done < size) {
    const std::size_t left = size - done;
    DWORD got = 0;
    if (!::ReadFile(file, static_cast<char*>(out) + done,
                    left > 0x40000000 ? 0x40000000 : static_cast<DWORD>(left), &got, nullptr)) {
      ::CloseHandle(file);
      return -1;
    }
    if (got == 0) break;
    done += got;
  }
  ::CloseHandle(file);
  return static_cast<long>(done);
}

bool read_regular_file(const char* path, std::size_t limit, std::vector<std::uint8_t>& out) {
  if (path == nullptr) return false;
  const HANDLE file = open_for_reading(path);
  if (file == INVALID_HANDLE_VALUE) return false;
  BY_HANDLE_FILE_INFORMATION info{};
  LARGE_INTEGER size{};
  const bool ok =
      ::GetFileType(file) == FILE_TYPE_DISK && ::GetFileInformationByHandle(file, &info) &&
      (info.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0 && ::GetFileSizeEx(file, &size) &&
      static_cast<std::uint64_t>(size.QuadPart) <= limit;
  if (ok) {
    try {
      out.resize(static_cast<std::size_t>(size.QuadPart));
    } catch (...) {
      ::CloseHandle(file);
      throw;
    }
    std::size_t done = 0;
    while (done < out.size()) {
      const std::size_t left = out.size() - done;
      DWORD got = 0;
      if (!::ReadFile(file, out.data() + done,
                      left > 0x40000000 ? 0x40000000 : static_cast<DWORD>(left), &got, nullptr) ||
          got == 0) {
        break;
      }
      done += got;
    }
    out.resize(done);
  }
  ::CloseHandle(file);
  return ok;
}

unsigned long write_whole_file(const char* path, const void* data, std::size_t size) noexcept {
  const HANDLE file =
      ::CreateFileA(path, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return ::GetLastError();
  unsigned long error = 0;
  if (!write_all(file, static_cast<const char*>(data), size)) {
    error = ::GetLastError();
    if (error == 0) error = ERROR_WRITE_FAULT;
  }
  if (!::CloseHandle(file) && error == 0) error = ::GetLastError();
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
