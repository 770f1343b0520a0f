#ifndef TVBASE_PLATFORM_FILE_H
#define TVBASE_PLATFORM_FILE_H

// Plain file access for the log configuration and the log file. Descriptors
// are ints; -1 stands for none. On Windows a descriptor is the file's HANDLE,
// whose value the system keeps within 32 bits (INVALID_HANDLE_VALUE is -1).
// Error codes are the system's: errno, or GetLastError() on Windows.

#include <cstddef>
#include <cstdint>
#include <vector>

namespace platform {

// Creates the log file at `path`, replacing a file of that name, for writing
// (mode 0644 before the umask, closed across exec). Never follows a symbolic
// link planted at the name: that fails. Gives -1 on failure. On Windows the
// old file is deleted and the new one made anew (CREATE_NEW, never opened
// if another process made it meanwhile), for appending only, others allowed
// to read, with a DACL that grants the process's user alone.
int create_log_file(const char* path) noexcept;

// Writes `text` and then `tail` with one system call, to the file's current
// end. The result is not reported: a line that can't be written (a full disk,
// a file size limit) is lost, and the next call tries again. A line the
// system takes only in part is finished if the rest goes through, or else
// cut off again, so that the file holds whole lines only. (Should another
// thread's line land between the two parts, that line goes with it.)
void write_line(int file, const char* text, std::size_t length, const char* tail,
                std::size_t tail_length) noexcept;

void close_file(int file) noexcept;

// Removes the file called `path`; false if that failed.
bool remove_file(const char* path) noexcept;

// Reads up to `size` bytes from the start of the file at `path`. Gives the
// number read, which is less than `size` only at the file's end, or -1 if
// the file can't be opened or read.
long read_file_start(const char* path, void* out, std::size_t size) noexcept;

// Reads the whole of the regular file at `path` into `out`. False if `path`
// is null, the file can't be opened, is no regular file (a folder, a device)
// or holds more than `limit` bytes. A file that shrinks while it is read, or
// a read that fails part way, gives the bytes read so far. Where memory runs
// out this throws std::bad_alloc, having closed the file.
bool read_regular_file(const char* path, std::size_t limit, std::vector<std::uint8_t>& out);

// Creates or replaces the file at `path` with the `size` bytes at `data`.
// Gives 0, or the system's error code of the create or the write that
// failed.
unsigned long write_whole_file(const char* path, const void* data, std::size_t size) noexcept;

// Sends `text` and a line feed to the debug output: the attached debugger
// through OutputDebugStringA on Windows (nothing if none listens), standard
// error elsewhere.
void debug_echo(const char* text, std::size_t length) noexcept;

// Writes `text` and then `tail` to standard error with one system call.
void write_stderr(const char* text, std::size_t length, const char* tail,
                  std::size_t tail_length) noexcept;

}  // namespace platform

#endif  // TVBASE_PLATFORM_FILE_H
