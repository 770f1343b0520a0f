#ifndef TVBASE_PLATFORM_DIR_LIST_H
#define TVBASE_PLATFORM_DIR_LIST_H

// Listing the items of one folder, and the conversion of wide paths to the
// bytes the system takes. Wide text is UTF-16 units, one per wchar_t.

#include <tvbase/platform/find_data.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace platform {

// An open listing of one folder.
struct dir_listing;

// Opens a listing of every item of `folder`, "." and ".." included. Gives
// null and the system's error code in `error` on failure.
dir_listing* open_dir(std::wstring_view folder, std::uint32_t& error);

enum class read_status { item, end, failed };

// Fills the attributes and name of the next item into `data`, leaving its
// other fields alone. A symbolic link carries kAttributeReparsePoint, and
// kAttributeDirectory too when it leads to a folder. On `failed`, `error`
// holds the system's code.
read_status read_dir(dir_listing* listing, find_data& data, std::uint32_t& error);

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
