#ifndef TVBASE_PLATFORM_DIR_LIST_H
#define TVBASE_PLATFORM_DIR_LIST_H

// Listing the items of one folder, and the conversion of wide paths to the
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

// An open listing of one folder.
struct dir_listing;

// Opens a listing of every item of `folder`, "." and ".." included. Gives
// null and the system's error code in `error` on failure. On Windows
// `folder` ends in a separator and the listing is FindFirstFileW of
// `folder` + "*.*", which gives all items; a folder with none ends at once.
dir_listing* open_dir(std::wstring_view folder, std::uint32_t& error);

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
