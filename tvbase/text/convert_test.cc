#include <tvbase/text/convert.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <tvbase/platform/code_page.h>
#include <tvbase/testing/exact_buffer.h>

namespace {

// Every input lies in a block of exactly its size (see exact_buffer.h).
using testing_support::exact_buffer;

struct narrow_row {
  std::string text;
  unsigned int code_page;
  std::string expected;
};

void expect_rows(const std::vector<narrow_row>& rows) {
  for (const narrow_row& r : rows) {
    SCOPED_TRACE(r.text + " / " + std::to_string(r.code_page));
    const exact_buffer text{r.text};
    EXPECT_EQ(convert::url_encode(text.view(), r.code_page), r.expected);
  }
}

TEST(UrlEncode, EncodesNarrowText) {
  expect_rows({
      {"", 0, ""},
      {"", 1252, ""},
      {" ", 0, "+"},
      {"+", 0, "%2B"},
      {"a b&c=d/e?f", 0, "a+b%26c%3Dd%2Fe%3Ff"},
      {"%", 0, "%25"},
      {"~", 0, "%7E"},
      {"-._!$'()*,", 0, "-._!$'()*,"},
      {"AZaz09", 0, "AZaz09"},
      {std::string("a\0b", 3), 0, "a%00b"},
      {"\x7F\n", 0, "%7F%0A"},
      {"\"#<>[\\]^`{|}:;@", 0, "%22%23%3C%3E%5B%5C%5D%5E%60%7B%7C%7D%3A%3B%40"},
      {"\xC3\xA9", 0, "%C3%A9"},  // bytes as they are, whatever the default code page
      {"x", 12345, ""},           // unknown code page
  });
}

// With a code page, the narrow text is read in the system's default code
// page first: UTF-8 on Linux, the ANSI code page on Windows (Windows-1252
// in western Windows and under Wine). The same characters in each.
TEST(UrlEncode, RecodesNarrowTextFromTheDefaultCodePage) {
  const unsigned int default_code_page = platform::default_code_page();
  if (default_code_page == 65001) {
    expect_rows({
        {"\xC3\xA9", 28591, "%E9"},
        {"\xC3\xA9", 65001, "%C3%A9"},
        {"\xE2\x82\xAC", 1252, "%80"},   // the euro sign in Windows-1252
        {"\xE2\x82\xAC", 28591, "%3F"},  // lacking in Latin-1
        {"\xE2\x82\xAC", 20127, "%3F"},
        {"\xFF", 65001, "%EF%BF%BD"},  // malformed UTF-8 reads as U+FFFD
        {"\xC3\xA9", 12345, ""},
    });
  } else if (default_code_page == 1252) {
    expect_rows({
        {"\xE9", 28591, "%E9"},
        {"\xE9", 65001, "%C3%A9"},
        {"\x80", 1252, "%80"},
        {"\x80", 28591, "%3F"},
        {"\x80", 20127, "%3F"},
        {"\xFF", 65001, "%C3%BF"},  // every byte is a character in Windows-1252
        {"\xE9", 12345, ""},
    });
  } else {
    GTEST_SKIP() << "rows are written for a default code page of UTF-8 or Windows-1252, not "
                 << default_code_page;
  }
}

struct wide_row {
  std::wstring text;
  unsigned int code_page;
  std::string expected;
  // Where Windows differs: its ANSI code page for 0 (Windows-1252 here),
  // and its own substitutes. WideCharToMultiByte without flags maps a
  // character that the code page lacks to a similar one where the code page
  // has a "best fit" (e to e, l with stroke to l), else to "?", and each
  // unit of a pair on its own; to UTF-8 an unpaired surrogate becomes U+FFFD.
  const char* on_windows = nullptr;
};

TEST(UrlEncode, ConvertsWideTextToTheCodePageFirst) {
#if defined(_WIN32)
  if (platform::default_code_page() != 1252)
    GTEST_SKIP() << "rows are written for the ANSI code page 1252, not "
                 << platform::default_code_page();
#endif
  const wide_row rows[] = {
      {L"", 0, ""},
      {L"", 99999, ""},
      {L"a b", 0, "a+b"},
      {L"\u00E9", 65001, "%C3%A9"},
      {L"\u00E9", 0, "%C3%A9", "%E9"},
      {L"\u00E9", 28591, "%E9"},
      {L"\u00E9", 1252, "%E9"},
      {L"\u00E9", 20127, "%3F", "e"},
      {L"\u0142", 1252, "%3F", "l"},
      {L"\u20AC", 28591, "%3F"},
      {L"\u20AC", 1252, "%80"},
      {L"\u0436", 1251, "%E6"},  // through iconv on Linux
      {L"\u0436", 20866, "%D6"},
      {L"\u65E5", 932, "%93%FA"},
      {L"\xD83D\xDE00", 65001, "%F0%9F%98%80"},  // a surrogate pair is one character
      {L"\xD83D", 65001, "%3F", "%EF%BF%BD"},    // an unpaired surrogate
      {L"a\xDE00"
       L"b",
       28591, "a%3Fb"},
      {L"\xD83D\xDE00", 28591, "%3F", "%3F%3F"},
      {std::wstring(L"a\0b", 3), 0, "a%00b"},
      {L"x", 12345, ""},
  };
  for (const wide_row& r : rows) {
    SCOPED_TRACE(testing::Message() << "code page " << r.code_page << ", expected " << r.expected);
    const exact_buffer text{r.text};
#if defined(_WIN32)
    const std::string expected = r.on_windows != nullptr ? r.on_windows : r.expected;
#else
    const std::string& expected = r.expected;
#endif
    EXPECT_EQ(convert::url_encode(text.view(), r.code_page), expected);
  }
}

TEST(UrlEncode, EveryByteGivesOneOrThreeCharacters) {
  std::string all;
  for (int b = 0; b < 256; ++b) all.push_back(static_cast<char>(b));
  const exact_buffer text{all};
  const std::string encoded = convert::url_encode(text.view(), 0);
  // 72 kept bytes and the space give one character, the other 183 three.
  EXPECT_EQ(encoded.size(), 73u + 183u * 3u);
  for (const char c : encoded) EXPECT_LT(static_cast<unsigned char>(c), 0x80);
}

}  // namespace
