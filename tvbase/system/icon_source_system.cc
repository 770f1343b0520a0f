// TvGdi's icon calls over the system's own icon objects (Windows): see
// icon_source.h. An HICON is the system's; the pixels that GetIconPixels
// hands out are read from its bitmaps once and kept until TvGdi::DestroyIcon.
#include <tvbase/system/icon_source.h>

#include <map>
#include <mutex>
#include <new>
#include <string>
#include <vector>

#include <tvbase/platform/icons.h>

namespace gdi {
namespace {

struct pixels {
  int width = 0;
  int height = 0;
  std::vector<std::uint8_t> bgra;
};

// The images handed out so far, by icon.
std::mutex g_images_lock;
std::map<win::HICON, pixels>& images() {
  static auto* held = new std::map<win::HICON, pixels>;  // outlives every caller
  return *held;
}

}  // namespace

win::HICON load_icon_file(const char* path, int width, int height) noexcept {
  return static_cast<win::HICON>(platform::load_icon_from_file(path, width, height));
}

module* load_module_as_data(const char* path) noexcept {
  return static_cast<module*>(platform::load_module_as_data(path));
}

win::HICON load_icon_resource(const module* from, resource_ref group, int width,
                              int height) noexcept {
  if (from == nullptr) return nullptr;
  try {
    const std::string name(group.name);
    return static_cast<win::HICON>(platform::load_icon_from_module(
        const_cast<module*>(from), group.id, name.c_str(), width, height));
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

void free_module(module* m) noexcept { platform::free_module(m); }

bool get_icon_info(win::HICON of, bitmap*& colour, bitmap*& mask) noexcept {
  void* c = nullptr;
  void* m = nullptr;
  const bool ok = platform::get_icon_bitmaps(of, c, m);
  colour = static_cast<bitmap*>(c);
  mask = static_cast<bitmap*>(m);
  return ok;
}

bool get_bitmap_size(const bitmap* of, int& width, int& height) noexcept {
  return platform::get_bitmap_size(const_cast<bitmap*>(of), width, height);
}

void delete_bitmap(bitmap* b) noexcept { platform::delete_bitmap(b); }

void destroy_icon(win::HICON icon) noexcept {
  if (icon == nullptr) return;
  {
    const std::lock_guard<std::mutex> hold(g_images_lock);
    images().erase(icon);
  }
  platform::destroy_icon(icon);
}

bool get_icon_pixels(win::HICON icon, TvGdi::IconPixels& out) noexcept {
  if (icon == nullptr) return false;
  try {
    const std::lock_guard<std::mutex> hold(g_images_lock);
    auto found = images().find(icon);
    if (found == images().end()) {
      pixels image;
      if (!platform::get_icon_bgra(icon, image.width, image.height, image.bgra)) return false;
      found = images().emplace(icon, std::move(image)).first;
    }
    out.Width = found->second.width;
    out.Height = found->second.height;
    out.Format = TvGdi::PixelFormat::Bgra32;
    out.Data = found->second.bgra.data();
    out.Size = found->second.bgra.size();
    return true;
  } catch (...) {
    return false;
  }
}

}  // namespace gdi
