#ifndef TVBASE_PLATFORM_ICON_H
#define TVBASE_PLATFORM_ICON_H

// The system's icon calls. Where the system has no icon objects (Linux), an
// icon is a platform::icon made by the readers of icon_reader.h, a module is
// a Windows module file read into memory as data, and nothing of it is run.
// None of these throws; exhausted memory gives a null result.

#include <tvbase/platform/icon_reader.h>

namespace platform {

// A module opened as data.
struct module;

// One icon of the given size from an icon file; null on failure.
icon* load_icon_file(const char* path, int width, int height) noexcept;

// Opens a module as data only; null if it can't be read or is no module.
module* load_module_as_data(const char* path) noexcept;

// One icon of the given size from icon group `group` of a module; null on
// failure.
icon* load_icon_resource(const module* from, resource_ref group, int width, int height) noexcept;

// Closes a module; icons loaded from it stay valid. Null is allowed.
void free_module(module* m) noexcept;

// New bitmap objects for the icon's colour image (null for a monochrome
// icon) and mask, which the caller frees with delete_bitmap. False for a null
// icon.
bool get_icon_info(const icon* of, bitmap*& colour, bitmap*& mask) noexcept;

// The width and height of a bitmap; false for null.
bool get_bitmap_size(const bitmap* of, int& width, int& height) noexcept;

void delete_bitmap(bitmap* b) noexcept;
void destroy_icon(icon* i) noexcept;

}  // namespace platform

#endif  // TVBASE_PLATFORM_ICON_H
