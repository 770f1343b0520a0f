#ifndef TVBASE_FUZZ_ICON_CHECK_H
#define TVBASE_FUZZ_ICON_CHECK_H

// What the icon readers' fuzz targets require of every icon they get: a sane
// size whose every pixel byte is read; a bitmap of exactly width x height
// BGRA pixels, at most 1024 a side; a PNG, its stored bytes, which lie in the
// input. Also the sizes a target's first byte asks for.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <span>

#include <tvbase/system/icon_reader.h>

namespace fuzz_icon {

// Bits 0-2 of `choice` pick the width, bits 3-5 the height.
inline int requested_width(std::uint8_t choice) {
  static constexpr int kSides[] = {0, 16, 24, 32, 48, 64, 256, -1};
  return kSides[choice & 7];
}
inline int requested_height(std::uint8_t choice) {
  return requested_width(static_cast<std::uint8_t>(choice >> 3));
}

inline volatile unsigned sink;

inline void check(const std::unique_ptr<gdi::icon>& icon, std::span<const std::uint8_t> input) {
  if (!icon) return;
  if (icon->width <= 0 || icon->height <= 0) std::abort();
  if (icon->format == gdi::icon_format::png) {
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

}  // namespace fuzz_icon

#endif  // TVBASE_FUZZ_ICON_CHECK_H
