#include <tvbase/platform/code_page.h>

#include <iconv.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

namespace platform {
namespace {

constexpr unsigned int kUtf8 = 65001;
constexpr unsigned int kLatin1 = 28591;
constexpr unsigned int kAscii = 20127;
constexpr char32_t kInvalid = 0xFFFFFFFF;  // what iconv refuses, so it is substituted

const char* iconv_name(unsigned int code_page) {
  switch (code_page) {
    case 437: return "CP437";
    case 850: return "CP850";
    case 866: return "CP866";
    case 874: return "CP874";
    case 932: return "CP932";
    case 936: return "CP936";
    case 949: return "CP949";
    case 950: return "CP950";
    case 1250: return "CP1250";
    case 1251: return "CP1251";
    case 1252: return "CP1252";
    case 1253: return "CP1253";
    case 1254: return "CP1254";
    case 1255: return "CP1255";
    case 1256: return "CP1256";
    case 1257: return "CP1257";
    case 1258: return "CP1258";
    case 20866: return "KOI8-R";
    case 21866: return "KOI8-U";
    case 28592: return "ISO-8859-2";
    case 28593: return "ISO-8859-3";
    case 28594: return "ISO-8859-4";
    case 28595: return "ISO-8859-5";
    case 28596: return "ISO-8859-6";
    case 28597: return "ISO-8859-7";
    case 28598: return "ISO-8859-8";
    case 28599: return "ISO-8859-9";
    case 28600: return "ISO-8859-10";
    case 28601: return "ISO-8859-11";
    case 28603: return "ISO-8859-13";
    case 28604: return "ISO-8859-14";
    case 28605: return "ISO-8859-15";
    default: return nullptr;
  }
}

bool is_high(char32_t u) { return u >= 0xD800 && u <= 0xDBFF; }
bool is_low(char32_t u) { return u >= 0xDC00 && u <= 0xDFFF; }

// Calls `emit(code_point)` for each character of UTF-16 text; an unpaired
// surrogate or an element above 0xFFFF gives kInvalid.
template <typename Emit>
void for_each_code_point(std::wstring_view text, Emit emit) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto unit = static_cast<char32_t>(text[i]);
    if (unit > 0xFFFF || is_low(unit)) {
      emit(kInvalid);
    } else if (is_high(unit)) {
      if (i + 1 < text.size() && is_low(static_cast<char32_t>(text[i + 1]))) {
        emit(0x10000 + ((unit - 0xD800) << 10) + (static_cast<char32_t>(text[++i]) - 0xDC00));
      } else {
        emit(kInvalid);
      }
    } else {
      emit(unit);
    }
  }
}

// UTF-8 bytes of a code point; 0 for kInvalid.
std::size_t encode_utf8(char32_t c, char* out) {
  if (c < 0x80) {
    out[0] = static_cast<char>(c);
    return 1;
  }
  if (c < 0x800) {
    out[0] = static_cast<char>(0xC0 | (c >> 6));
    out[1] = static_cast<char>(0x80 | (c & 0x3F));
    return 2;
  }
  if (c < 0x10000) {
    out[0] = static_cast<char>(0xE0 | (c >> 12));
    out[1] = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    out[2] = static_cast<char>(0x80 | (c & 0x3F));
    return 3;
  }
  if (c <= 0x10FFFF) {
    out[0] = static_cast<char>(0xF0 | (c >> 18));
    out[1] = static_cast<char>(0x80 | ((c >> 12) & 0x3F));
    out[2] = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    out[3] = static_cast<char>(0x80 | (c & 0x3F));
    return 4;
  }
  return 0;
}

// iconv stops at each character that the code page lacks, and glibc's then
// converts again, from the start of the input it was given, what its first
// step (UTF-32 to its own form) had read ahead: up to thousands of
// characters, for each one substituted. So the input goes in slices, short
// behind a substitution and doubling while none comes, which bounds that
// cost by what the slices before have converted.
constexpr std::size_t kFirstSlice = 16;  // code points
constexpr std::size_t kLongestSlice = 4096;

bool convert_with_iconv(std::wstring_view text, const char* name, std::string_view substitute,
                        std::string& out) {
  iconv_t cd = iconv_open(name, "UTF-32LE");
  if (cd == reinterpret_cast<iconv_t>(-1)) return false;
  std::vector<char32_t> code_points;
  code_points.reserve(text.size());
  for_each_code_point(text, [&](char32_t c) { code_points.push_back(c); });

  const std::size_t start = out.size();
  char* in = reinterpret_cast<char*>(code_points.data());
  std::size_t in_left = code_points.size() * sizeof(char32_t);
  std::size_t written = start;
  std::size_t slice = kFirstSlice;
  out.resize(start + text.size() * 2 + 16);
  while (in_left > 0) {
    char* to = out.data() + written;
    std::size_t to_left = out.size() - written;
    std::size_t slice_left = std::min(in_left, slice * sizeof(char32_t));
    const std::size_t behind = in_left - slice_left;
    const std::size_t result = iconv(cd, &in, &slice_left, &to, &to_left);
    in_left = slice_left + behind;
    written = static_cast<std::size_t>(to - out.data());
    if (result != static_cast<std::size_t>(-1)) {
      slice = std::min(2 * slice, kLongestSlice);
    } else if (errno == E2BIG) {
      out.resize(out.size() * 2);
    } else if (errno == EILSEQ || errno == EINVAL) {
      // A character that the code page lacks: substitute it and go on. The
      // buffer grows as for E2BIG, by doubling, so that a text of many such
      // characters costs linear time and memory.
      if (out.size() - written < substitute.size())
        out.resize(std::max(out.size() * 2, written + substitute.size()));
      std::memcpy(out.data() + written, substitute.data(), substitute.size());
      written += substitute.size();
      in += sizeof(char32_t);
      in_left -= sizeof(char32_t);
      slice = kFirstSlice;
    } else {
      iconv_close(cd);
      out.resize(start);
      return false;
    }
  }
  iconv_close(cd);
  out.resize(written);
  return true;
}

}  // namespace

unsigned int default_code_page() noexcept { return kUtf8; }

bool code_page_known(unsigned int code_page) {
  return code_page == 0 || code_page == kUtf8 || code_page == kLatin1 || code_page == kAscii ||
         iconv_name(code_page) != nullptr;
}

std::wstring default_to_wide(std::string_view text) {
  std::wstring out;
  out.reserve(text.size());
  const auto* p = reinterpret_cast<const unsigned char*>(text.data());
  const auto* end = p + text.size();
  while (p < end) {
    const unsigned char b = *p;
    if (b < 0x80) {
      out.push_back(static_cast<wchar_t>(b));
      ++p;
      continue;
    }
    // Length, smallest code point and lead bits of a well-formed sequence.
    std::size_t length = 0;
    char32_t c = 0, least = 0;
    if (b >= 0xC2 && b <= 0xDF)
      length = 2, c = b & 0x1F, least = 0x80;
    else if (b >= 0xE0 && b <= 0xEF)
      length = 3, c = b & 0x0F, least = 0x800;
    else if (b >= 0xF0 && b <= 0xF4)
      length = 4, c = b & 0x07, least = 0x10000;
    std::size_t taken = 1;
    while (length != 0 && taken < length && p + taken < end && (p[taken] & 0xC0) == 0x80) {
      c = (c << 6) | (p[taken] & 0x3F);
      ++taken;
    }
    if (length == 0 || taken < length || c < least || c > 0x10FFFF ||
        (c >= 0xD800 && c <= 0xDFFF)) {
      out.push_back(static_cast<wchar_t>(0xFFFD));
      p += 1;
      continue;
    }
    if (c >= 0x10000) {
      out.push_back(static_cast<wchar_t>(0xD800 + ((c - 0x10000) >> 10)));
      out.push_back(static_cast<wchar_t>(0xDC00 + ((c - 0x10000) & 0x3FF)));
    } else {
      out.push_back(static_cast<wchar_t>(c));
    }
    p += taken;
  }
  return out;
}

bool wide_to_code_page(std::wstring_view text, unsigned int code_page, std::string_view substitute,
                       std::string& out) {
  if (code_page == 0 || code_page == kUtf8) {
    out.reserve(out.size() + text.size());
    for_each_code_point(text, [&](char32_t c) {
      char bytes[4];
      const std::size_t n = encode_utf8(c, bytes);
      if (n == 0)
        out.append(substitute);
      else
        out.append(bytes, n);
    });
    return true;
  }
  if (code_page == kLatin1 || code_page == kAscii) {
    const char32_t highest = code_page == kLatin1 ? 0xFF : 0x7F;
    out.reserve(out.size() + text.size());
    for_each_code_point(text, [&](char32_t c) {
      if (c <= highest)
        out.push_back(static_cast<char>(c));
      else
        out.append(substitute);
    });
    return true;
  }
  const char* name = iconv_name(code_page);
  return name != nullptr && convert_with_iconv(text, name, substitute, out);
}

std::size_t wide_to_default(std::wstring_view text, std::string_view substitute, char* out,
                            std::size_t capacity) {
  std::size_t written = 0;
  bool full = false;
  for_each_code_point(text, [&](char32_t c) {
    if (full) return;
    char bytes[4];
    std::size_t n = encode_utf8(c, bytes);
    const char* from = bytes;
    if (n == 0) from = substitute.data(), n = substitute.size();
    if (n > capacity - written) {
      full = true;
      return;
    }
    std::memcpy(out + written, from, n);
    written += n;
  });
  return written;
}

}  // namespace platform
