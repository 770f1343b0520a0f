#include <tvbase/platform/icons.h>

#include <windows.h>

namespace platform {
namespace {

// The rows of `bitmap` as top-down 32-bit pixels, or as 1-bit rows padded to
// 32 bits when `bits` is 1.
bool dib_rows(HBITMAP bitmap, int width, int height, WORD bits, std::vector<std::uint8_t>& out) {
  BITMAPINFO info{};
  info.bmiHeader.biSize = sizeof info.bmiHeader;
  info.bmiHeader.biWidth = width;
  info.bmiHeader.biHeight = -height;
  info.bmiHeader.biPlanes = 1;
  info.bmiHeader.biBitCount = bits;
  info.bmiHeader.biCompression = BI_RGB;
  const std::size_t stride = (static_cast<std::size_t>(width) * bits + 31) / 32 * 4;
  // A 1-bit DIB takes a palette of two entries behind the header.
  struct {
    BITMAPINFOHEADER header;
    RGBQUAD colours[2];
  } mono{info.bmiHeader, {}};
  out.assign(stride * static_cast<std::size_t>(height), 0);
  const HDC screen = ::GetDC(nullptr);
  if (screen == nullptr) return false;
  const int rows =
      ::GetDIBits(screen, bitmap, 0, static_cast<UINT>(height), out.data(),
                  bits == 1 ? reinterpret_cast<BITMAPINFO*>(&mono) : &info, DIB_RGB_COLORS);
  ::ReleaseDC(nullptr, screen);
  return rows == height;
}

}  // namespace

void* load_icon_from_file(const char* path, int width, int height) noexcept {
  if (path == nullptr) return nullptr;
  return ::LoadImageA(nullptr, path, IMAGE_ICON, width, height, LR_LOADFROMFILE);
}

void* load_module_as_data(const char* path) noexcept {
  if (path == nullptr) return nullptr;
  return ::LoadLibraryExA(path, nullptr, LOAD_LIBRARY_AS_DATAFILE);
}

void* load_icon_from_module(void* module, std::uint16_t id, const char* name, int width,
                            int height) noexcept {
  if (module == nullptr) return nullptr;
  const char* resource = id != 0 ? MAKEINTRESOURCEA(id) : name;
  return ::LoadImageA(static_cast<HINSTANCE>(module), resource, IMAGE_ICON, width, height, 0);
}

void free_module(void* module) noexcept {
  if (module != nullptr) ::FreeLibrary(static_cast<HMODULE>(module));
}

bool get_icon_bitmaps(void* icon, void*& colour, void*& mask) noexcept {
  colour = mask = nullptr;
  ICONINFO info{};
  if (icon == nullptr || !::GetIconInfo(static_cast<HICON>(icon), &info)) return false;
  colour = info.hbmColor;
  mask = info.hbmMask;
  return true;
}

bool get_bitmap_size(void* bitmap, int& width, int& height) noexcept {
  BITMAP description{};
  if (bitmap == nullptr || ::GetObjectA(bitmap, sizeof description, &description) == 0)
    return false;
  width = description.bmWidth;
  height = description.bmHeight;
  return true;
}

void delete_bitmap(void* bitmap) noexcept {
  if (bitmap != nullptr) ::DeleteObject(bitmap);
}

void destroy_icon(void* icon) noexcept {
  if (icon != nullptr) ::DestroyIcon(static_cast<HICON>(icon));
}

bool get_icon_bgra(void* icon, int& width, int& height, std::vector<std::uint8_t>& pixels) {
  void* colour = nullptr;
  void* mask = nullptr;
  if (!get_icon_bitmaps(icon, colour, mask)) return false;
  bool ok = false;
  int mask_width = 0, mask_height = 0;
  if (mask != nullptr && get_bitmap_size(mask, mask_width, mask_height)) {
    // A monochrome icon keeps its mask (upper half) and its image (lower
    // half) in one bitmap.
    width = mask_width;
    height = colour != nullptr ? mask_height : mask_height / 2;
    std::vector<std::uint8_t> mask_rows;
    ok = dib_rows(static_cast<HBITMAP>(mask), mask_width, mask_height, 1, mask_rows);
    const std::size_t mask_stride = (static_cast<std::size_t>(mask_width) + 31) / 32 * 4;
    if (ok && colour != nullptr) {
      ok = dib_rows(static_cast<HBITMAP>(colour), width, height, 32, pixels);
    } else if (ok) {
      // The lower half: set bits are white.
      pixels.assign(static_cast<std::size_t>(width) * height * 4, 0);
      for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
          const std::uint8_t bits = mask_rows[mask_stride * (height + y) + x / 8];
          const bool white = (bits >> (7 - x % 8) & 1) != 0;
          std::uint8_t* p = &pixels[(static_cast<std::size_t>(y) * width + x) * 4];
          p[0] = p[1] = p[2] = white ? 0xFF : 0;
        }
      }
    }
    bool has_alpha = false;
    if (ok && colour != nullptr) {
      for (std::size_t i = 3; i < pixels.size() && !has_alpha; i += 4) has_alpha = pixels[i] != 0;
    }
    if (ok && !has_alpha) {
      for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
          const std::uint8_t bits = mask_rows[mask_stride * y + x / 8];
          const bool transparent = (bits >> (7 - x % 8) & 1) != 0;
          pixels[(static_cast<std::size_t>(y) * width + x) * 4 + 3] = transparent ? 0 : 0xFF;
        }
      }
    }
  }
  delete_bitmap(colour);
  delete_bitmap(mask);
  return ok;
}

}  // namespace platform
