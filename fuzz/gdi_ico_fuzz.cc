// platform::read_ico_file on any bytes, and decode_icon_image on the bytes as
// one image: each gives null or an icon of a sane size whose every pixel byte
// is read; a decoded bitmap holds exactly width x height BGRA pixels and at
// most 1024 pixels a side, a PNG its stored bytes. The first byte chooses the
// requested width (bits 0-2) and height (bits 3-5) among 0, 16, 24, 32, 48,
// 64, 256 and -1, and bit 6 reads the rest as an image rather than a file.
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
    // The stored bytes of an image that lies in the input.
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
  if (size == 0) return 0;
  const int width = kSides[data[0] & 7];
  const int height = kSides[data[0] >> 3 & 7];
  const std::span<const std::uint8_t> bytes(data + 1, size - 1);
  if (data[0] & 0x40) {
    check(platform::decode_icon_image(bytes), bytes);
  } else {
    check(platform::read_ico_file(bytes, width, height), bytes);
  }
  return 0;
}
