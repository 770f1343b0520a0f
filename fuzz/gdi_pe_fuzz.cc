// gdi::read_pe_icon and is_pe_module on any bytes: null or an icon that
// passes fuzz_icon::check, and an icon only from bytes that is_pe_module
// takes for a module. The first byte chooses the requested width and height
// (fuzz_icon); the second the group by number, or by the name "app" when 0.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>

#include <tvbase/system/icon_reader.h>

#include "icon_check.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2) return 0;
  const int width = fuzz_icon::requested_width(data[0]);
  const int height = fuzz_icon::requested_height(data[0]);
  const gdi::resource_ref group{data[1], data[1] == 0 ? "app" : ""};
  const std::span<const std::uint8_t> bytes(data + 2, size - 2);
  const bool module = gdi::is_pe_module(bytes);
  const auto icon = gdi::read_pe_icon(bytes, group, width, height);
  if (icon && !module) std::abort();
  fuzz_icon::check(icon, bytes);
  return 0;
}
