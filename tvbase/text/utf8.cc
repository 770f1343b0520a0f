#include <tvbase/text/utf8.h>

#include <array>
#include <cstdint>
#include <cstring>

namespace {

// Continuation bytes a lead byte announces; 255 marks a continuation byte and
// 4, 5 and 254 bytes that are never allowed.
constexpr std::array<unsigned char, 256> kClass = [] {
  std::array<unsigned char, 256> c{};
  for (int b = 0x80; b <= 0xBF; ++b) c[b] = 255;
  for (int b = 0xC0; b <= 0xDF; ++b) c[b] = 1;
  for (int b = 0xE0; b <= 0xEF; ++b) c[b] = 2;
  for (int b = 0xF0; b <= 0xF7; ++b) c[b] = 3;
  for (int b = 0xF8; b <= 0xFB; ++b) c[b] = 4;
  for (int b = 0xFC; b <= 0xFD; ++b) c[b] = 5;
  for (int b = 0xFE; b <= 0xFF; ++b) c[b] = 254;
  return c;
}();

constexpr std::uint64_t kOnes = 0x0101010101010101ULL;
constexpr std::uint64_t kHighs = 0x8080808080808080ULL;

// Skips aligned words of ASCII without a zero byte. An aligned word never
// crosses a page, so reading past the text's zero cannot fault; the reads are
// hidden from AddressSanitizer for that reason.
__attribute__((no_sanitize("address")))
const unsigned char* skip_ascii_words(const unsigned char* p) {
  while ((reinterpret_cast<std::uintptr_t>(p) & 7) == 0) {
    std::uint64_t word;
    std::memcpy(&word, p, sizeof word);
    const std::uint64_t zero_bytes = (word - kOnes) & ~word & kHighs;
    if (((word & kHighs) | zero_bytes) != 0) break;
    p += 8;
  }
  return p;
}

}  // namespace

bool TvxIsValidUtf8(const char* text) {
  auto p = reinterpret_cast<const unsigned char*>(text);
  for (;;) {
    p = skip_ascii_words(p);
    const unsigned char b = *p++;
    if (b == 0) return true;
    const unsigned char follow = kClass[b];
    if (follow == 0) continue;
    if (follow > 3) return false;
    for (unsigned char i = 0; i < follow; ++i) {
      if (kClass[*p++] != 255) return false;
    }
  }
}
