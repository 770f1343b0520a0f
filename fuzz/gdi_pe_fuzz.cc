// platform::read_pe_icon and is_pe_module on any bytes: null or an icon of a
// sane size whose every pixel byte is read (a bitmap of exactly width x
// height BGRA pixels, at most 1024 a side, or the stored bytes of a PNG), and
// an icon only from bytes that is_pe_module takes for a module. The first
// byte chooses the requested width (bits 0-2) and height (bits 3-5) among 0,
// 16, 24, 32, 48, 64, 256 and -1; the second the group by number, or by the
// name "app" when 0.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <span>

#include <tvbase/platform/icon_reader.h>

namespace {

volatile unsigned sink;

void check(const std::unique_ptr<platform::icon>& icon, std::span<const std::uint8_t> input) {
  if (!icon) return;
  if (icon->width <= 0 || icon->height <= 0) std::abort();
  if (icon->format == platform::icon_format::png) {
    if (icon->pixels.size() < 24 || icon->pixels.size() > input.size() ||
        std::search(input.begin(), input.end(), icon->pixels.begin(), icon->pixels.end()) ==
            input.end()) {
      std::abort();
    }
  } else if (icon->width > 1024 || icon->height > 1024 ||
             icon->pixels.size() != static_cast<std::size_t>(icon->width) * icon->height * 4) {
    std::abort();
  }
  unsigned sum = 0;
  for (const std::uint8_t b : icon->pixels) sum += b;
  sink = sink + sum;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static constexpr int kSides[] = {0, 16, 24, 32, 48, 64, 256, -1};
  if (size < 2) return 0;
  const int width = kSides[data[0] & 7];
  const int height = kSides[data[0] >> 3 & 7];
  const platform::resource_ref group{data[1], data[1] == 0 ? "app" : ""};
  const std::span<const std::uint8_t> bytes(data + 2, size - 2);
  const bool module = platform::is_pe_module(bytes);
  const auto icon = platform::read_pe_icon(bytes, group, width, height);
  if (icon && !module) std::abort();
  check(icon, bytes);
  return 0;
}
