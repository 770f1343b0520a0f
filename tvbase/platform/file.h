#ifndef TVBASE_PLATFORM_FILE_H
#define TVBASE_PLATFORM_FILE_H

// Plain file access for the log configuration, the log file and the files
// that callers name. Descriptors of files and folders are ints; -1 stands
// for none. On Windows a file's descriptor is its HANDLE, whose value the
// system keeps within 32 bits (INVALID_HANDLE_VALUE is -1), and a folder's
// is a handle to the folder itself, opened without following a reparse
// point. Error codes are the system's: errno, or GetLastError() on Windows.
//
// Where Windows differs (it has no modes, only owners and access lists):
//   - "only the effective user may open" is a new file whose owner is the
//     process's user and whose protected DACL grants that user alone;
//   - a folder's access is read from its DACL: others_may_add when an
//     allowing entry for anyone but the owner, SYSTEM and the
//     Administrators grants adding files; others_may_replace when one grants
//     deleting children (FILE_DELETE_CHILD), which is what the sticky bit
//     withholds on POSIX. Deny entries are not weighed, so the answer errs
//     towards "others may", never towards trust;
//   - owner_is_root means SYSTEM or the Administrators group owns it.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <vector>

namespace platform {

// Creates the file at `path`, replacing a file of that name, for writing
// (mode 0644 before the umask, closed across exec). Never follows a symbolic
// link planted at the name: that fails. Gives -1 on failure. For a path that
// the caller chose itself (tests, benchmarks); the log file is made with
// create_own_file_in. On Windows the old file is deleted and the new one
// made anew (CREATE_NEW, never opened if another process made it
// meanwhile), for appending only, others allowed to read.
int create_log_file(const char* path) noexcept;

// A folder, opened to act on the names in it: what is looked at and made
// through the descriptor is in the same folder, whatever happens to `path`
// meanwhile. Links in `path` are followed. Gives -1 on failure.
int open_folder(const char* path) noexcept;
void close_folder(int folder) noexcept;

// Who owns a folder, and who else may change the names in it.
struct folder_access {
  bool owner_is_me = false;    // the effective user owns it
  bool owner_is_root = false;  // the system's administrator owns it
  // Users other than the owner may make new names in it (group or world
  // write permission)...
  bool others_may_add = false;
  // ...and may also remove or rename names that are not theirs (no sticky
  // bit).
  bool others_may_replace = false;
};
[[nodiscard]] bool folder_access_of(int folder, folder_access& out) noexcept;

// Removes the name `name` in `folder`: a file, or a link itself, never a
// folder and never a link's target. False if nothing was removed.
bool remove_in_folder(int folder, const char* name) noexcept;

// Creates a new file called `name` in `folder`, for writing, that only the
// effective user may open (mode 0600), closed across exec. Fails at once,
// opening nothing, if anything at all stands at that name: a file, a link,
// a pipe. Gives -1 on failure.
int create_own_file_in(int folder, const char* name) noexcept;

// What an open file is.
struct file_facts {
  bool regular = false;      // a regular file (no pipe, device or folder)
  bool owner_is_me = false;  // the effective user owns it
};
[[nodiscard]] bool file_facts_of(int file, file_facts& out) noexcept;

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

// Reads up to `size` bytes from the start of the regular file at `path`.
// Gives the number read, which is less than `size` only at the file's end;
// -1 if the file can't be opened or read (errno tells why); or
// kNotRegularFile for a pipe, a device or a folder, which is opened without
// waiting for a writer and never read.
inline constexpr long kNotRegularFile = -2;
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

// Opens the regular file at `path` for reading, as a stream for the caller to
// fclose, for files too large to read whole. Opened without blocking and
// checked, as above, before the stream is made: gives done with `out` set,
// cannot_open with `error` set, or not_regular; `out` is null but for done.
read_outcome open_regular_file(const char* path, std::FILE*& out, std::uint32_t& error) noexcept;

// The same, saying only whether it was read.
bool read_regular_file(const char* path, std::size_t limit, std::vector<std::uint8_t>& out);

// Creates or replaces the file at `path` with the `size` bytes at `data`
// (mode 0666 before the umask): writes a new file of a passing name in the
// same folder, flushes it to the disk and renames it to `path`, so that a
// reader (or a crash) sees the old bytes or the new, and a link standing at
// `path` is replaced, never followed.
// Gives 0, or the system's error code of the step that failed (EISDIR for a
// `path` that ends in '/' or names a folder); the passing file is gone then.
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
