#ifndef TVBASE_SYSTEM_ICON_READER_H
#define TVBASE_SYSTEM_ICON_READER_H

// The icon images that TvGdi decodes where the system has no icon objects,
// and the readers that make them from the bytes of an .ico file or of a
// Windows module (.dll, .exe) opened as data, choosing the image of the size
// asked for. Every reader is bounds-checked: any byte string, however
// malformed, gives an icon or null, never a read out of range, and memory use
// follows the size of the input.
//
//   std::unique_ptr<gdi::icon> icon = gdi::read_ico_file(bytes, 32, 32);
//   if (icon && icon->format == gdi::icon_format::bgra32) { /* icon->pixels */ }

#include <cstdint>
#include <memory>
#include <span>
#include <string_view>
#include <vector>

#include <tvbase/system/icon_source.h>

namespace gdi {

enum class icon_format {
  bgra32,  // width x height pixels, 4 bytes each (blue, green, red, alpha), top row first
  png,     // the bytes of a PNG image, as stored
};

// One loaded icon image, at its own size: images are never scaled.
struct icon {
  int width = 0;
  int height = 0;
  // False for a monochrome (1-bit) image, which has a mask bitmap only.
  bool has_colour = true;
  icon_format format = icon_format::bgra32;
  std::vector<std::uint8_t> pixels;
};

// The size of one image of an icon directory, as the directory states it.
struct icon_entry_size {
  int width;
  int height;
  int bit_count;
};

// The index of the entry to load for a request of width x height: the exact
// size, else the smallest larger one, else the largest; among equal sizes the
// most colour bits, then the first. A width or height of 0 or less asks for
// the largest. -1 for an empty list.
int choose_icon_entry(std::span<const icon_entry_size> entries, int width, int height);

// An icon from one image: a device-independent bitmap (1, 4, 8, 24 or 32 bits
// per pixel, uncompressed, at most 1024 pixels a side, colour rows followed
// by the optional 1-bit mask) or a PNG, of which only the header is read.
std::unique_ptr<icon> decode_icon_image(std::span<const std::uint8_t> image);

// The chosen image of an .ico file. Null if the bytes are not an icon file or
// the chosen image can't be read.
std::unique_ptr<icon> read_ico_file(std::span<const std::uint8_t> file, int width, int height);

// True if the bytes start with the headers of a Windows module.
bool is_pe_module(std::span<const std::uint8_t> file);

// The chosen image of icon group `group` in a module's resources. Null if the
// module has no such group or its image can't be read.
std::unique_ptr<icon> read_pe_icon(std::span<const std::uint8_t> file, resource_ref group,
                                   int width, int height);

}  // namespace gdi

#endif  // TVBASE_SYSTEM_ICON_READER_H
