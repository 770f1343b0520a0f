// TvVersion on any input. Parse() on the bytes as a zero-ended text (in a
// buffer of exactly that size) agrees with a naive reading of the one form it
// takes, and what it packs is written back by ToString() to text that parses
// to the same value. On the first eight bytes as a version number: every
// written form fits its buffer, parts in range round-trip, and Compare() and
// ToString() read only the low 32 bits, Compare() antisymmetrically.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include <tvbase/system/version.h>

namespace {

bool is_digit(char c) { return c >= '0' && c <= '9'; }

// One or two digits, ".", two digits, "_" or a small letter, then the zero.
unsigned long naive_parse(const char* t) {
  const std::size_t n = std::strlen(t);
  const std::size_t major_digits = n == 5 ? 1 : n == 6 ? 2 : 0;
  if (major_digits == 0) return 0;
  for (std::size_t i = 0; i < major_digits; ++i) {
    if (!is_digit(t[i])) return 0;
  }
  const char* rest = t + major_digits;
  if (rest[0] != '.' || !is_digit(rest[1]) || !is_digit(rest[2])) return 0;
  if (rest[3] != '_' && (rest[3] < 'a' || rest[3] > 'z')) return 0;
  const unsigned long major =
      major_digits == 1 ? t[0] - '0' : static_cast<unsigned long>((t[0] - '0') * 10 + t[1] - '0');
  const unsigned long letter = rest[3] == '_' ? 0 : static_cast<unsigned long>(rest[3] - 'a' + 1);
  return major << 24 | static_cast<unsigned long>(rest[1] - '0') << 16 |
         static_cast<unsigned long>(rest[2] - '0') << 8 | letter;
}

void check_round_trip(unsigned long v) {
  if (TvVersion::Parse(TvVersion::ToString(v).c_str()) != v) std::abort();
  if ((v & 0xFF) != 0 &&
      TvVersion::Parse(TvVersion::ToString(v, TvVersion::CompareFull, true).c_str()) != v) {
    std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto text = std::make_unique<char[]>(size + 1);
  std::memcpy(text.get(), data, size);
  text[size] = 0;
  const unsigned long parsed = TvVersion::Parse(text.get());
  if (parsed != naive_parse(text.get())) std::abort();
  if (parsed != 0) check_round_trip(parsed);

  if (size < 8) return 0;
  std::uint64_t raw;
  std::memcpy(&raw, data, sizeof raw);
  const unsigned long v = raw;
  const unsigned long low = v & 0xFFFFFFFFul;
  // The upper half (an unsigned long has none on Windows, where it is 32 bits).
  const auto other = static_cast<unsigned long>(raw >> 32);
  for (int type = -2; type <= 5; ++type) {
    const auto t = static_cast<TvVersion::CompareType>(type);
    for (const bool no_underscore : {false, true}) {
      const std::string written = TvVersion::ToString(v, t, no_underscore);
      if (written.size() > 6 || written != TvVersion::ToString(low, t, no_underscore)) {
        std::abort();
      }
    }
    const int c = TvVersion::Compare(v, other, t);
    if (c < -1 || c > 1 || TvVersion::Compare(other, v, t) != -c ||
        c != TvVersion::Compare(low, other, t)) {
      std::abort();
    }
  }
  if (low != TvVersion::Unknown && (low >> 24) <= 99 && (low >> 16 & 0xFF) <= 9 &&
      (low >> 8 & 0xFF) <= 9 && (low & 0xFF) <= 26) {
    check_round_trip(low);
  }
  return 0;
}
