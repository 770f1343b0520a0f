#include <tvbase/system/version.h>

namespace {

constexpr unsigned long kMasks[] = {0xFF000000ul, 0xFFFF0000ul, 0xFFFFFF00ul, 0xFFFFFFFFul};

bool is_digit(char c) { return c >= '0' && c <= '9'; }

unsigned long low32(unsigned long v) { return v & 0xFFFFFFFFul; }

}  // namespace

int TvVersion::Compare(unsigned long a, unsigned long b, CompareType type) noexcept {
  const int index = static_cast<int>(type);
  const unsigned long mask = index >= 0 && index <= 2 ? kMasks[index] : kMasks[3];
  const unsigned long x = a & mask;
  const unsigned long y = b & mask;
  return x < y ? -1 : x > y ? 1 : 0;
}

unsigned long TvVersion::Parse(const char* text) noexcept {
  if (text == nullptr || !is_digit(text[0])) return 0;
  unsigned long major = static_cast<unsigned long>(text[0] - '0');
  const char* p = text + 1;
  if (is_digit(*p)) major = major * 10 + static_cast<unsigned long>(*p++ - '0');
  if (*p++ != '.') return 0;
  if (!is_digit(p[0]) || !is_digit(p[1])) return 0;
  const auto minor = static_cast<unsigned long>(p[0] - '0');
  const auto sub = static_cast<unsigned long>(p[1] - '0');
  p += 2;
  unsigned long letter;
  if (*p == '_') {
    letter = 0;
  } else if (*p >= 'a' && *p <= 'z') {
    letter = static_cast<unsigned long>(*p - 'a' + 1);
  } else {
    return 0;
  }
  if (p[1] != '\0') return 0;
  return major << 24 | minor << 16 | sub << 8 | letter;
}

void TvVersion::GetString(char* buffer, unsigned long version, bool noUnderscore,
                          CompareType type) noexcept {
  const int parts = static_cast<int>(type);
  char* out = buffer;
  if (parts >= 0) {
    version = low32(version);
    if (version == Unknown) {
      *out++ = '?';
      if (parts >= 1) {
        *out++ = '.';
        *out++ = '?';
      }
      if (parts >= 2) *out++ = '?';
      if (parts >= 3) *out++ = '?';
    } else {
      const auto major = static_cast<unsigned char>(version >> 24);
      const auto minor = static_cast<unsigned char>(version >> 16);
      const auto sub = static_cast<unsigned char>(version >> 8);
      const auto letter = static_cast<unsigned char>(version);
      if (major >= 10) *out++ = static_cast<char>('0' + major / 10);
      *out++ = static_cast<char>('0' + major % 10);
      if (parts >= 1) {
        *out++ = '.';
        *out++ = static_cast<char>('0' + minor);
      }
      if (parts >= 2) *out++ = static_cast<char>('0' + sub);
      if (parts >= 3) {
        if (letter != 0) {
          *out++ = static_cast<char>('a' + letter - 1);
        } else if (!noUnderscore) {
          *out++ = '_';
        }
      }
    }
  }
  *out = '\0';
}
