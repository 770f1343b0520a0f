#include <tvbase/text/utf8.h>

#include <array>
#include <bit>
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

bool is_continuation(unsigned char b) { return (b & 0xC0) == 0x80; }

// The high bit of each byte that is zero or above 0x7F. Bytes above the
// lowest such byte may be marked falsely; the lowest mark is always right.
std::uint64_t zero_or_high(std::uint64_t word) {
  return (((word - kOnes) & ~word) | word) & kHighs;
}

// True if eight bytes at p lie in one page: such a read cannot fault, even
// where it passes the text's zero.
bool word_fits_page(const unsigned char* p) {
  return (reinterpret_cast<std::uintptr_t>(p) & 4095) <= 4096 - 8;
}

// Bytes 1 to n of a 32-bit little-endian load.
constexpr std::uint32_t kFollowMask[4] = {0, 0xFF00, 0xFFFF00, 0xFFFFFF00};

// One character checked a byte at a time, each continuation byte tested
// before the next is read. Returns the next character, or null if invalid.
const unsigned char* check_bytewise(const unsigned char* p) {
  const unsigned char follow = kClass[*p];
  if (follow > 3) return nullptr;
  for (unsigned char i = 1; i <= follow; ++i) {
    if (!is_continuation(p[i])) return nullptr;
  }
  return p + follow + 1;
}

}  // namespace

// Where a word fits in its page, the text is read in words: eight ASCII bytes
// are skipped at once, and a character's continuation bytes are tested
// together. Those reads may look at bytes behind the zero, within the page,
// so they are hidden from AddressSanitizer.
__attribute__((no_sanitize("address"))) bool TvxIsValidUtf8(const char* text) noexcept {
  auto p = reinterpret_cast<const unsigned char*>(text);
  for (;;) {
    if (std::endian::native == std::endian::little && word_fits_page(p)) {
      std::uint64_t word;
      std::memcpy(&word, p, sizeof word);
      const std::uint64_t marks = zero_or_high(word);
      if (marks == 0) {
        p += 8;
        continue;
      }
      const int ascii = std::countr_zero(marks) / 8;  // plain ASCII in front of the mark
      if (ascii != 0) {
        p += ascii;
        continue;
      }
      const unsigned char b = *p;
      if (b == 0) return true;
      const unsigned char follow = kClass[b];
      // A zero among the continuation bytes fails the test like any other
      // byte that is not one, so nothing behind the text decides the result.
      const auto strangers = (static_cast<std::uint32_t>(word) ^ 0x80808080u) & 0xC0C0C0C0u;
      if (follow > 3 || (strangers & kFollowMask[follow]) != 0) return false;
      p += follow + 1;
      continue;
    }
    if (*p == 0) return true;
    p = check_bytewise(p);
    if (p == nullptr) return false;
  }
}
