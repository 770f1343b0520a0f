// url_encode on 10 MB texts, through each way a text can take: bytes as
// they are, UTF-8 recoded, wide text recoded directly or through iconv,
// with characters that the code page lacks everywhere.
#include <tvbase/text/convert.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <tvbase/platform/code_page.h>
#include <tvbase/testing/allocation_counter.h>

namespace {

using testing_support::peak_bytes_during;

constexpr std::size_t kBytes = std::size_t{10} << 20;

template <typename Char>
std::basic_string<Char> repeat(std::basic_string_view<Char> piece, std::size_t bytes) {
  std::basic_string<Char> out;
  const std::size_t times = bytes / (piece.size() * sizeof(Char));
  out.reserve(piece.size() * times);
  for (std::size_t i = 0; i < times; ++i) out += piece;
  return out;
}

std::string repeat_encoded(std::string_view encoded, std::size_t times) {
  std::string out;
  out.reserve(encoded.size() * times);
  for (std::size_t i = 0; i < times; ++i) out += encoded;
  return out;
}

// Bytes held per byte of text. For a recoded narrow text, k = 12: a byte
// may be a character, which takes 4 bytes as wide text (on Linux, where
// wchar_t has 32 bits) and 4 more as a code point for iconv; then the recoded
// bytes (2 per character at first) and their encoding (3 per recoded byte).
// For wide text, k = 16 per unit: on Linux the code points of 4 bytes each
// and the rest; on Windows, to UTF-8, up to 3 bytes per unit and their
// encoding, 9.
constexpr std::size_t kNarrowMemory = 12;
constexpr std::size_t kWideMemoryPerUnit = 16;

struct narrow_row {
  const char* name;
  std::string_view piece;  // repeated to 10 MB
  unsigned int code_page;
  std::string_view encoded;  // of one piece
};

// With a code page, narrow text is read in the system's default code page
// first: UTF-8 on Linux, the ANSI code page on Windows (1252 under Wine).
std::vector<narrow_row> narrow_rows(unsigned int default_code_page) {
  if (default_code_page == 65001) {
    return {
        {"bytes", "a b&~", 0, "a+b%26%7E"},
        {"UTF-8 to Latin-1", "\xC3\xA9", 28591, "%E9"},
        {"UTF-8 through iconv", "\xE2\x82\xAC ", 1252, "%80+"},
        {"lacking in Windows-1252", "\xE4\xB8\x80", 1252, "%3F"},
        {"malformed UTF-8 through iconv", "\xFF", 1252, "%3F"},
    };
  }
  if (default_code_page == 1252) {
    return {
        {"bytes", "a b&~", 0, "a+b%26%7E"},
        {"Windows-1252 to Latin-1", "\xE9", 28591, "%E9"},
        {"Windows-1252 to UTF-8", "\x80 ", 65001, "%E2%82%AC+"},
        {"lacking in Latin-1", "\x80", 28591, "%3F"},
        {"Windows-1252 to itself", "\xFF\x80", 1252, "%FF%80"},
    };
  }
  return {};
}

TEST(UrlEncodeLarge, TenMegabyteNarrowTexts) {
  const std::vector<narrow_row> rows = narrow_rows(platform::default_code_page());
  if (rows.empty()) {
    GTEST_SKIP() << "rows are written for a default code page of UTF-8 or Windows-1252, not "
                 << platform::default_code_page();
  }
  for (const narrow_row& r : rows) {
    SCOPED_TRACE(r.name);
    const std::string text = repeat(r.piece, kBytes);
    std::string encoded;
    const std::size_t held =
        peak_bytes_during([&] { encoded = convert::url_encode(text, r.code_page); });
    EXPECT_TRUE(encoded == repeat_encoded(r.encoded, text.size() / r.piece.size()))
        << "encoded to " << encoded.size() << " bytes: " << encoded.substr(0, 32);
    EXPECT_LE(held, kNarrowMemory * text.size());
  }
}

// Characters that the code page lacks, each substituted on its own, used to
// grow iconv's buffer by the whole rest of the text each: 10,000 of them
// took 1.4 s, and a million would ask for terabytes. And iconv read each
// time thousands of characters ahead again: a million took 16 s.
TEST(UrlEncodeLarge, TenMegabyteWideTexts) {
  struct row {
    const char* name;
    std::wstring_view piece;
    unsigned int code_page;
    std::string_view encoded;
    // Windows' own substitute where it differs: a character that the code
    // page lacks becomes a similar one where the code page has a best fit.
    const char* on_windows = nullptr;
  };
  const row rows[] = {
      {"to UTF-8", L"\x00E9\xD83D\xDE00", 65001, "%C3%A9%F0%9F%98%80"},
      {"lacking in Latin-1", L"\x4E00", 28591, "%3F"},
      {"lacking in Windows-1252", L"\x4E00", 1252, "%3F"},
      {"unpaired surrogates through iconv", L"\xDC00", 1252, "%3F"},
      {"some lacking in Windows-1252", L"\x20AC\x4E00", 1252, "%80%3F"},
      {"lacking in Shift-JIS", L"\x00E9", 932, "%3F", "e"},
      {"in Shift-JIS", L"\x4E00", 932, "%88%EA"},
  };
  for (const row& r : rows) {
    SCOPED_TRACE(r.name);
    const std::wstring text = repeat(r.piece, kBytes);
    std::string encoded;
    const std::size_t held =
        peak_bytes_during([&] { encoded = convert::url_encode(text, r.code_page); });
#if defined(_WIN32)
    const std::string_view expected = r.on_windows != nullptr ? r.on_windows : r.encoded;
#else
    const std::string_view expected = r.encoded;
#endif
    EXPECT_TRUE(encoded == repeat_encoded(expected, text.size() / r.piece.size()))
        << "encoded to " << encoded.size() << " bytes: " << encoded.substr(0, 32);
    EXPECT_LE(held, kWideMemoryPerUnit * text.size());
  }
}

}  // namespace
