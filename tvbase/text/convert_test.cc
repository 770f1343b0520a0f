#include <tvbase/text/convert.h>

#include <string>

#include <gtest/gtest.h>

#include <tvbase/testing/exact_buffer.h>

namespace {

// Every input lies in a block of exactly its size (see exact_buffer.h).
using testing_support::exact_buffer;

struct narrow_row {
  std::string text;
  unsigned int code_page;
  std::string expected;
};

TEST(UrlEncode, EncodesNarrowText) {
#if defined(_WIN32)
  GTEST_SKIP() << "rows read narrow text as UTF-8; on Windows it is the ANSI code page";
#endif
  const narrow_row rows[] = {
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
      {"\xC3\xA9", 0, "%C3%A9"},   // bytes as they are
      {"\xC3\xA9", 28591, "%E9"},  // read as UTF-8, recoded to Latin-1
      {"\xC3\xA9", 65001, "%C3%A9"},
      {"\xE2\x82\xAC", 1252, "%80"},   // the euro sign in Windows-1252
      {"\xE2\x82\xAC", 28591, "%3F"},  // lacking in Latin-1
      {"\xE2\x82\xAC", 20127, "%3F"},
      {"\xFF", 65001, "%EF%BF%BD"},  // malformed UTF-8 reads as U+FFFD
      {"x", 12345, ""},              // unknown code page
  };
  for (const narrow_row& r : rows) {
    SCOPED_TRACE(r.text + " / " + std::to_string(r.code_page));
    const exact_buffer text{r.text};
    EXPECT_EQ(convert::url_encode(text.view(), r.code_page), r.expected);
  }
}

struct wide_row {
  std::wstring text;
  unsigned int code_page;
  std::string expected;
};

TEST(UrlEncode, ConvertsWideTextToTheCodePageFirst) {
#if defined(_WIN32)
  GTEST_SKIP() << "rows hold the POSIX substitutes; WideCharToMultiByte substitutes its own";
#endif
  const wide_row rows[] = {
      {L"", 0, ""},
      {L"", 99999, ""},
      {L"a b", 0, "a+b"},
      {L"\u00E9", 65001, "%C3%A9"},
      {L"\u00E9", 0, "%C3%A9"},
      {L"\u00E9", 28591, "%E9"},
      {L"\u00E9", 1252, "%E9"},
      {L"\u20AC", 28591, "%3F"},
      {L"\u20AC", 1252, "%80"},
      {L"\u0436", 1251, "%E6"},  // through iconv
      {L"\u0436", 20866, "%D6"},
      {L"\u65E5", 932, "%93%FA"},
      {L"\xD83D\xDE00", 65001, "%F0%9F%98%80"},  // a surrogate pair is one character
      {L"\xD83D", 65001, "%3F"},                 // an unpaired surrogate
      {L"a\xDE00"
       L"b",
       28591, "a%3Fb"},
      {L"\xD83D\xDE00", 28591, "%3F"},
      {std::wstring(L"a\0b", 3), 0, "a%00b"},
      {L"x", 12345, ""},
  };
  for (const wide_row& r : rows) {
    SCOPED_TRACE(testing::Message() << "code page " << r.code_page << ", expected " << r.expected);
    const exact_buffer text{r.text};
    EXPECT_EQ(convert::url_encode(text.view(), r.code_page), r.expected);
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
