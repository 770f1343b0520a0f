#ifndef TVBASE_SYSTEM_ICON_SOURCE_H
#define TVBASE_SYSTEM_ICON_SOURCE_H

// What TvGdi asks of the system's icon calls, one function for each call it
// makes. gdi.cc keeps the parsing of the source text and the order of the
// calls; these only load, describe and free. The build picks one
// implementation:
//
//   icon_source_decoded.cc  where the system has no icon objects (Linux): an
//                           icon is decoded by icon_reader.h from the bytes
//                           of a file read through the platform's file
//                           calls, and a module is a Windows module read into
//                           memory as data, none of which runs.
//   (Windows, to come)      the system's own calls: LoadImageA from a file or
//                           a module, LoadLibraryExA as a data file,
//                           FreeLibrary, GetIconInfo, GetObjectA, DeleteObject
//                           and DestroyIcon, each translated in platform/.
//
// None of these throws; exhausted memory gives a null result.

#include <cstddef>
#include <cstdint>
#include <string_view>

#include <tvbase/system/gdi.h>

namespace gdi {

// Names a resource either by number (1-65535) or, when `id` is 0, by name.
struct resource_ref {
  std::uint16_t id = 0;
  std::string_view name;  // UTF-8; compared without regard to ASCII case
};

// A module opened as data, and one of an icon's bitmaps.
struct module;
struct bitmap;

// One icon of the given size from an icon file; null on failure.
win::HICON load_icon_file(const char* path, int width, int height) noexcept;

// Opens a module as data only; null if it can't be read or is no module.
module* load_module_as_data(const char* path) noexcept;

// One icon of the given size from icon group `group` of a module; null on
// failure.
win::HICON load_icon_resource(const module* from, resource_ref group, int width,
                              int height) noexcept;

// Closes a module; icons loaded from it stay valid. Null is allowed.
void free_module(module* m) noexcept;

// New bitmaps for the icon's colour image (null for a monochrome icon) and
// mask, which the caller frees with delete_bitmap. False for a null icon.
bool get_icon_info(win::HICON of, bitmap*& colour, bitmap*& mask) noexcept;

// The width and height of a bitmap; false for null.
bool get_bitmap_size(const bitmap* of, int& width, int& height) noexcept;

void delete_bitmap(bitmap* b) noexcept;

// Frees an icon; null is allowed.
void destroy_icon(win::HICON icon) noexcept;

// The icon's image, as TvGdi::GetIconPixels hands it out; false for null.
bool get_icon_pixels(win::HICON icon, TvGdi::IconPixels& pixels) noexcept;

}  // namespace gdi

#endif  // TVBASE_SYSTEM_ICON_SOURCE_H
