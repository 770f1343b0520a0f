#ifndef TVBASE_SYSTEM_GDI_H
#define TVBASE_SYSTEM_GDI_H

#include <tvbase/export.h>
#include <tvbase/platform/win_types.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <type_traits>

// Loads icons, in several sizes at once, from a source text, and tells an
// icon's size. A source is either the path of an icon file (a text with no
// ';'), or "module;resource": a Windows module (.dll, .exe), opened as data so
// that none of its code runs, and one of its icon groups, by number when the
// resource text is a decimal from 1 to 65535 and by name (ASCII case ignored)
// otherwise. Blanks and tabs around module and resource are ignored; each
// holds at most 259 characters, and a longer one loads nothing.
//
// For each requested size the image is the one that the directory of the file
// or group offers at exactly that size, else the smallest larger one, else the
// largest; a width or height of 0 or less asks for the largest. Images are not
// scaled: an icon has the size of the image it came from. An HICON here owns
// that image: 32-bit BGRA pixels, top row first, decoded from a bitmap image
// (transparent where its mask says so, unless it has alpha of its own), or the
// stored bytes of a PNG image, whose size is read from its header. The caller
// owns each icon and releases it with DestroyIcon() (or holds it in an
// IconPtr). Failures give null icons and false results; nothing throws.
//
//   TvGdi::IconData sizes[] = {{16, 16, nullptr}, {32, 32, nullptr}};
//   TvGdi::LoadIcons("app.dll; 101", sizes, 2);
//   TvGdi::SIZE size;
//   if (TvGdi::GetIconSize(sizes[0].icon, size)) { /* size.cx x size.cy */ }
//   for (auto& s : sizes) TvGdi::DestroyIcon(s.icon);
class TVBASE_EXPORT TvGdi {
 public:
  using HICON = win::HICON;

  struct SIZE {
    long cx;
    long cy;
  };

  // One request: the size asked for, and the icon loaded for it.
  struct IconData {
    int width;
    int height;
    HICON icon;  // null if it couldn't be loaded
  };

  enum class PixelFormat {
    Bgra32,  // Width x Height x 4 bytes: blue, green, red, alpha; top row first
    Png,     // the bytes of a PNG image
  };

  // A view of an icon's image, valid while the icon lives.
  struct IconPixels {
    int Width;
    int Height;
    PixelFormat Format;
    const std::uint8_t* Data;
    std::size_t Size;
  };

  struct IconDeleter {
    void operator()(HICON icon) const noexcept { DestroyIcon(icon); }
  };
  // An icon that releases itself.
  using IconPtr = std::unique_ptr<std::remove_pointer_t<HICON>, IconDeleter>;

  // The size of the icon's colour image. False, leaving `size` alone, for a
  // null icon or a monochrome one (which has a mask image only).
  [[nodiscard]] static bool GetIconSize(HICON icon, SIZE& size);

  // One icon; see LoadIcons().
  [[nodiscard]] static HICON LoadIconA(const char* source, int width, int height);

  // Fills the icon of each of `count` records. A null source, or a module
  // that can't be opened, gives null icons; a count of 0 or less loads
  // nothing, though a module source is still opened and closed.
  static void LoadIcons(const char* source, IconData* icons, int count);

  // Releases an icon; null is allowed.
  static void DestroyIcon(HICON icon);

  // The icon's image; false for a null icon.
  [[nodiscard]] static bool GetIconPixels(HICON icon, IconPixels& pixels);
};

#endif  // TVBASE_SYSTEM_GDI_H
