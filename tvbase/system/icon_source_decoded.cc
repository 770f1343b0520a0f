// TvGdi's icon calls where the system has no icon objects: see
// icon_source.h.
#include <tvbase/system/icon_source.h>

#include <cstdint>
#include <memory>
#include <new>
#include <utility>
#include <vector>

#include <tvbase/platform/file.h>
#include <tvbase/system/icon_reader.h>

// An icon handle points at one of these: the decoded image.
struct win::HICON__ {
  gdi::icon image;
};

namespace gdi {

struct module {
  std::vector<std::uint8_t> bytes;
};

// A bitmap as the icon's information hands it out: its size only.
struct bitmap {
  int width = 0;
  int height = 0;
};

namespace {

// Files larger than this are not read.
constexpr std::size_t kMaxFileSize = std::size_t{256} << 20;

win::HICON to_handle(std::unique_ptr<icon> decoded) {
  if (!decoded) return nullptr;
  return new win::HICON__{std::move(*decoded)};
}

}  // namespace

win::HICON load_icon_file(const char* path, int width, int height) noexcept {
  try {
    std::vector<std::uint8_t> bytes;
    if (!platform::read_regular_file(path, kMaxFileSize, bytes)) return nullptr;
    return to_handle(read_ico_file(bytes, width, height));
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

module* load_module_as_data(const char* path) noexcept {
  try {
    auto m = std::make_unique<module>();
    if (!platform::read_regular_file(path, kMaxFileSize, m->bytes) || !is_pe_module(m->bytes))
      return nullptr;
    return m.release();
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

win::HICON load_icon_resource(const module* from, resource_ref group, int width,
                              int height) noexcept {
  if (from == nullptr) return nullptr;
  try {
    return to_handle(read_pe_icon(from->bytes, group, width, height));
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

void free_module(module* m) noexcept { delete m; }

bool get_icon_info(win::HICON of, bitmap*& colour, bitmap*& mask) noexcept {
  colour = nullptr;
  mask = nullptr;
  if (of == nullptr) return false;
  const icon& i = of->image;
  // A monochrome icon keeps its image and its mask in one bitmap of twice
  // the height.
  mask = new (std::nothrow) bitmap{i.width, i.has_colour ? i.height : 2 * i.height};
  if (mask == nullptr) return false;
  if (i.has_colour) {
    colour = new (std::nothrow) bitmap{i.width, i.height};
    if (colour == nullptr) {
      delete mask;
      mask = nullptr;
      return false;
    }
  }
  return true;
}

bool get_bitmap_size(const bitmap* of, int& width, int& height) noexcept {
  if (of == nullptr) return false;
  width = of->width;
  height = of->height;
  return true;
}

void delete_bitmap(bitmap* b) noexcept { delete b; }

void destroy_icon(win::HICON icon) noexcept { delete icon; }

bool get_icon_pixels(win::HICON icon, TvGdi::IconPixels& pixels) noexcept {
  if (icon == nullptr) return false;
  const gdi::icon& i = icon->image;
  pixels.Width = i.width;
  pixels.Height = i.height;
  pixels.Format =
      i.format == icon_format::png ? TvGdi::PixelFormat::Png : TvGdi::PixelFormat::Bgra32;
  pixels.Data = i.pixels.data();
  pixels.Size = i.pixels.size();
  return true;
}

}  // namespace gdi
