// gdi::read_ico_file on any bytes, and decode_icon_image on the bytes as
// one image: each gives null or an icon that passes fuzz_icon::check. The
// first byte chooses the requested width and height (fuzz_icon), and bit 6
// reads the rest as an image rather than a file.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>

#include <tvbase/system/icon_reader.h>

#include "icon_check.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const int width = fuzz_icon::requested_width(data[0]);
  const int height = fuzz_icon::requested_height(data[0]);
  const std::span<const std::uint8_t> bytes(data + 1, size - 1);
  if (data[0] & 0x40) {
    fuzz_icon::check(gdi::decode_icon_image(bytes), bytes);
  } else {
    fuzz_icon::check(gdi::read_ico_file(bytes, width, height), bytes);
  }
  return 0;
}
