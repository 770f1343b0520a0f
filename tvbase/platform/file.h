#ifndef TVBASE_PLATFORM_FILE_H
#define TVBASE_PLATFORM_FILE_H

// Plain file access for the log configuration, the log file and the files
// that callers name. Descriptors are ints; -1 stands for none. Error codes
// are the system's (errno).

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

// What reading a file named by a caller came to.
enum class read_outcome {
  done,         // `out` holds the file's bytes
  cannot_open,  // no such file, no right to it, ...: `error` says which
  not_regular,  // a folder, a FIFO, a device, a socket
  too_large,    // more than the limit
  read_failed,  // a read failed part way: `error` says why
};

// Reads the whole of the regular file at `path` into `out`. The file is opened
// without blocking, and checked to be a regular file before anything is read
// from it, so a FIFO or a device at `path` is refused at once rather than
// waited on (a FIFO without a writer would hold the caller forever). `limit`
// is the largest size taken. A file that shrinks while it is read gives the
// bytes read up to its new end. `error` is set for cannot_open and
// read_failed. A null path cannot be opened. Where memory runs out this
// throws std::bad_alloc, having closed the file.
read_outcome read_regular_file(const char* path, std::size_t limit, std::vector<std::uint8_t>& out,
                               std::uint32_t& error);

// The same, saying only whether it was read.
bool read_regular_file(const char* path, std::size_t limit, std::vector<std::uint8_t>& out);

// Creates or replaces the file at `path` with the `size` bytes at `data`.
// Gives 0, or the system's error code of the create or the write that
// failed.
unsigned long write_whole_file(const char* path, const void* data, std::size_t size) noexcept;

// Puts the `size` bytes at `data` at `path` whole or not at all: they are
// written to a new temporary file beside it (a name of its own, created
// exclusively, mode 0600), flushed to the disk and renamed over `path`. A
// symbolic link at `path` is replaced, not followed. Gives 0, or the system's
// code of the step that failed, in which case the temporary file is gone and
// `path` is as it was.
unsigned long replace_whole_file(const char* path, const void* data, std::size_t size) noexcept;

// Writes `text` and then `tail` to standard error with one system call.
void write_stderr(const char* text, std::size_t length, const char* tail,
                  std::size_t tail_length) noexcept;

}  // namespace platform

#endif  // TVBASE_PLATFORM_FILE_H
