#ifndef TVBASE_TOOLS_TVBASE_UTF8_SEQUENCE_H
#define TVBASE_TOOLS_TVBASE_UTF8_SEQUENCE_H

#include <cstddef>
#include <cstdint>

namespace cli {

// The length of the UTF-8 sequence at `p`, of the `n` bytes from there on
// (at least 1), with its code point through `cp`; 0 for a byte that starts
// no valid sequence: a continuation byte, an overlong form, a surrogate, a
// code point above U+10FFFF, or a sequence that the end cuts.
inline std::size_t utf8_sequence(const unsigned char* p, std::size_t n, std::uint32_t& cp) {
  const unsigned char lead = p[0];
  if (lead < 0x80) {
    cp = lead;
    return 1;
  }
  std::size_t length;
  std::uint32_t least;
  if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2, cp = lead & 0x1Fu, least = 0x80;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3, cp = lead & 0x0Fu, least = 0x800;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4, cp = lead & 0x07u, least = 0x10000;
  } else {
    return 0;
  }
  if (n < length) return 0;
  for (std::size_t i = 1; i < length; ++i) {
    if ((p[i] & 0xC0) != 0x80) return 0;
    cp = cp << 6 | (p[i] & 0x3Fu);
  }
  if (cp < least || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return 0;
  return length;
}

}  // namespace cli

#endif  // TVBASE_TOOLS_TVBASE_UTF8_SEQUENCE_H
