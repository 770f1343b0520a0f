#ifndef TVBASE_PLATFORM_DIR_LIST_H
#define TVBASE_PLATFORM_DIR_LIST_H

// Opening folders, each from the one it lies in and never through a link,
// listing the items of one folder, and the conversion of wide paths to the
// bytes the system takes. Wide text is UTF-16 units, one per wchar_t.
//
// On Windows names are UTF-16 already, and the bytes of a path are its UTF-8
// form (an unpaired surrogate becomes U+FFFD). Elsewhere names are UTF-8 on
// disk. Each byte that starts no valid UTF-8 sequence is
// held as the unit 0xDC00 + byte (0xDC80-0xDCFF, which valid UTF-8 never
// gives), so every name turns back into the bytes it came from.

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace platform {

// What separates the folders of a path: '\\' on Windows, '/' elsewhere.
#if defined(_WIN32)
inline constexpr wchar_t kPathSeparator = L'\\';
#else
inline constexpr wchar_t kPathSeparator = L'/';
#endif

// Attribute bits of an item, as on Windows.
inline constexpr std::uint32_t kAttributeDirectory = 0x10;      // a folder, or a link to one
inline constexpr std::uint32_t kAttributeNormal = 0x80;         // a plain item, no other bit
inline constexpr std::uint32_t kAttributeReparsePoint = 0x400;  // a symbolic link

// An open folder, that its subfolders are opened from and that a listing
// reads. On POSIX it holds one descriptor (two while a listing of it is
// open); where folders are only known by path (Windows), it may hold the
// folder's path instead.
struct dir_handle;

// Opens the folder at `path`, following symbolic links on the way as the
// caller named it. A path that names no folder (a file, a FIFO) fails at
// once, without waiting. Gives null and the system's error code in `error`
// on failure.
dir_handle* open_folder(std::wstring_view path, std::uint32_t& error);

// Opens the folder that `relative` names inside `parent`: one name, or
// several joined by '/' (or '\\' on Windows; never empty, never "." or ".."). No symbolic link
// (or junction) is followed at any step: a name that is a link, or that
// became one since the caller listed it, fails, so the folder opened lies
// inside `parent` by real folders alone. A name that is no folder fails too.
// There is no limit on the length of `relative`: it is never handed to the
// system as one path where that would be too long. Gives null and the
// system's code in `error` on failure.
//
// On Windows each name is opened from the handle of the one before
// (NtCreateFile relative to it, the reparse point itself opened and then
// refused, ERROR_CANT_RESOLVE_FILENAME), so junctions and symbolic links are
// never entered. The listing, though, is FindFirstFileW of a path: the
// folder's path as the system gave it for the start folder ("\\?\C:\..."),
// with the names below appended, which stops working past the system's
// 32,767 units. While a folder is open nobody may rename or remove it (it
// is held without FILE_SHARE_DELETE), so that path keeps naming it.
dir_handle* open_subfolder(const dir_handle* parent, std::wstring_view relative,
                           std::uint32_t& error);

// Closes a folder; null is allowed.
void close_folder(dir_handle* folder);

// An open listing of one folder.
struct dir_listing;

// Opens a listing of every item of the open `folder`, "." and ".."
// included. The folder stays open, and the caller's to close, after the
// listing ends. Gives null and the system's error code in `error` on
// failure. On Windows the listing is FindFirstFileW of the folder's path, a
// separator and "*.*", which gives all items; a folder with none ends at
// once.
dir_listing* open_dir(const dir_handle* folder, std::uint32_t& error);

enum class read_status { item, end, failed };

// Gives the next item: its zero-ended name in `name` (cut to name.size() - 1
// units; `name` must not be empty) and its attribute bits in `attributes`. A
// symbolic link carries kAttributeReparsePoint, and kAttributeDirectory too
// when it leads to a folder. On `failed`, `error` holds the system's code; on
// `end` nothing is written.
read_status read_dir(dir_listing* listing, std::span<wchar_t> name, std::uint32_t& attributes,
                     std::uint32_t& error);

// Ends a listing; null is allowed.
void close_dir(dir_listing* listing);

// The bytes of a wide path: UTF-8, with the units 0xDC80-0xDCFF turned back
// into the single bytes they stand for.
std::string wide_to_path(std::wstring_view path);

// The wide form of a name or path from the system. Writes at most
// `capacity` - 1 units and a zero into `out`, and gives how many units it wrote.
std::size_t path_to_wide(std::string_view bytes, wchar_t* out, std::size_t capacity);

// The same into a string.
std::wstring path_to_wide(std::string_view bytes);

}  // namespace platform

#endif  // TVBASE_PLATFORM_DIR_LIST_H
