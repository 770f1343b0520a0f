#ifndef TVBASE_PLATFORM_ICONS_H
#define TVBASE_PLATFORM_ICONS_H

// The system's icon objects, where it has them (Windows; there is no POSIX
// twin: elsewhere TvGdi decodes icons itself). Handles are the system's,
// passed as void*: icons (HICON), modules (HMODULE) and bitmaps (HBITMAP).

#include <cstddef>
#include <cstdint>
#include <vector>

namespace platform {

// LoadImageA of one icon of the given size from an icon file
// (LR_LOADFROMFILE); null on failure.
void* load_icon_from_file(const char* path, int width, int height) noexcept;

// LoadLibraryExA with LOAD_LIBRARY_AS_DATAFILE: the module's resources, none
// of its code; null on failure.
void* load_module_as_data(const char* path) noexcept;

// LoadImageA of one icon of the given size from icon group `id` (1-65535) or,
// when `id` is 0, the group called `name` (zero-ended) of a module.
void* load_icon_from_module(void* module, std::uint16_t id, const char* name, int width,
                            int height) noexcept;

// FreeLibrary.
void free_module(void* module) noexcept;

// GetIconInfo: the icon's colour bitmap (null for a monochrome icon) and
// mask bitmap, which the caller deletes with delete_bitmap.
bool get_icon_bitmaps(void* icon, void*& colour, void*& mask) noexcept;

// GetObjectA of a bitmap: its width and height.
bool get_bitmap_size(void* bitmap, int& width, int& height) noexcept;

// DeleteObject.
void delete_bitmap(void* bitmap) noexcept;

// DestroyIcon.
void destroy_icon(void* icon) noexcept;

// The icon's image as 32-bit blue, green, red, alpha pixels, top row first:
// GetDIBits of its bitmaps. Where the colour image has no alpha of its own,
// the mask gives it (transparent where the mask is set); a monochrome icon is
// black and white. False for a null icon or where the system refuses.
bool get_icon_bgra(void* icon, int& width, int& height, std::vector<std::uint8_t>& pixels);

}  // namespace platform

#endif  // TVBASE_PLATFORM_ICONS_H
