#ifndef TVBASE_PLATFORM_FIND_DATA_H
#define TVBASE_PLATFORM_FIND_DATA_H

// The record that a folder listing gives for one item, laid out like the
// Windows find data: attributes, times, size and a zero-ended UTF-16 name of
// at most 259 units. On Linux a listing fills the attributes and the name
// only; times, size and the alternate name stay zero, since they would cost a
// file-status call per item.
//
// Names are UTF-8 on disk. Each byte that starts no valid UTF-8 sequence is
// held as the unit 0xDC00 + byte (0xDC80-0xDCFF, which valid UTF-8 never
// gives), so every name turns back into the bytes it came from.

#include <cstdint>

namespace platform {

// Attribute bits, as on Windows.
inline constexpr std::uint32_t kAttributeDirectory = 0x10;      // a folder, or a link to one
inline constexpr std::uint32_t kAttributeNormal = 0x80;         // a plain item, no other bit
inline constexpr std::uint32_t kAttributeReparsePoint = 0x400;  // a symbolic link

struct find_data {
  std::uint32_t attributes;
  std::uint64_t creation_time;  // 100-ns ticks since 1601; 0 when not known
  std::uint64_t last_access_time;
  std::uint64_t last_write_time;
  std::uint32_t file_size_high;
  std::uint32_t file_size_low;
  std::uint32_t reserved0;
  std::uint32_t reserved1;
  wchar_t file_name[260];
  wchar_t alternate_file_name[14];
};

}  // namespace platform

#endif  // TVBASE_PLATFORM_FIND_DATA_H
