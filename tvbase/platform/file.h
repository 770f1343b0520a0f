#ifndef TVBASE_PLATFORM_FILE_H
#define TVBASE_PLATFORM_FILE_H

// Plain file access for the log configuration and the log file. Descriptors
// are ints; -1 stands for none. Error codes are the system's (errno).

#include <cstddef>
#include <cstdint>
#include <vector>

namespace platform {

// Creates the log file at `path`, replacing a file of that name, for writing
// (mode 0644 before the umask, closed across exec). Never follows a symbolic
// link planted at the name: that fails. Gives -1 on failure.
int create_log_file(const char* path) noexcept;

// Writes `text` and then `tail` with one system call, to the file's current
// end. The result is not reported: a line that can't be written (a full disk,
// a file size limit) is lost, and the next call tries again. A line the
// system takes only in part is finished if the rest goes through, or else
// cut off again, so that the file holds whole lines only. (Should another
// thread's line land between the two parts, that line goes with it.) A
// process killed outright (SIGKILL) in the middle of the call can't mend
// anything: the system stops copying at a page boundary of the file, so its
// log may end in a line cut there.
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

// Writes `text` and then `tail` to standard error with one system call.
void write_stderr(const char* text, std::size_t length, const char* tail,
                  std::size_t tail_length) noexcept;

}  // namespace platform

#endif  // TVBASE_PLATFORM_FILE_H
