#include <tvbase/system/gdi.h>

#include <charconv>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include <tvbase/system/icon_source.h>

namespace {

constexpr std::size_t kMaxPart = 259;

std::string_view strip(std::string_view text) {
  const auto first = text.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

// Opens and closes a module as data.
struct module_closer {
  void operator()(gdi::module* m) const noexcept { gdi::free_module(m); }
};

}  // namespace

bool TvGdi::GetIconSize(HICON icon, SIZE& size) {
  gdi::bitmap* colour = nullptr;
  gdi::bitmap* mask = nullptr;
  if (!gdi::get_icon_info(icon, colour, mask)) return false;
  bool result = false;
  if (colour != nullptr) {
    int width = 0;
    int height = 0;
    if (gdi::get_bitmap_size(colour, width, height)) {
      size.cx = width;
      size.cy = height;
      result = true;
    }
    gdi::delete_bitmap(colour);
  }
  if (mask != nullptr) gdi::delete_bitmap(mask);
  return result;
}

TvGdi::HICON TvGdi::LoadIconA(const char* source, int width, int height) {
  IconData data{width, height, nullptr};
  LoadIcons(source, &data, 1);
  return data.icon;
}

void TvGdi::LoadIcons(const char* source, IconData* icons, int count) {
  if (icons == nullptr) count = 0;
  for (int i = 0; i < count; ++i) icons[i].icon = nullptr;
  if (source == nullptr) return;
  const char* separator = std::strchr(source, ';');
  if (separator == nullptr) {
    for (int i = 0; i < count; ++i) {
      icons[i].icon = gdi::load_icon_file(source, icons[i].width, icons[i].height);
    }
    return;
  }
  const std::string_view module_text = strip(std::string_view(source, separator));
  if (module_text.size() > kMaxPart) return;
  const std::unique_ptr<gdi::module, module_closer> module(
      gdi::load_module_as_data(std::string(module_text).c_str()));
  if (!module) return;
  const std::string_view resource = strip(separator + 1);
  if (resource.size() > kMaxPart) return;
  unsigned long number = 0;
  const auto [end, error] =
      std::from_chars(resource.data(), resource.data() + resource.size(), number);
  gdi::resource_ref group{0, resource};
  if (error == std::errc() && end == resource.data() + resource.size() && number >= 1 &&
      number <= 65535) {
    group.id = static_cast<std::uint16_t>(number);
  }
  for (int i = 0; i < count; ++i) {
    icons[i].icon = gdi::load_icon_resource(module.get(), group, icons[i].width, icons[i].height);
  }
}

void TvGdi::DestroyIcon(HICON icon) { gdi::destroy_icon(icon); }

bool TvGdi::GetIconPixels(HICON icon, IconPixels& pixels) {
  return gdi::get_icon_pixels(icon, pixels);
}
