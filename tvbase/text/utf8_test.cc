#include <tvbase/text/utf8.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <tvbase/testing/exact_buffer.h>

namespace {

// Texts lie in blocks that end with their zero (see exact_buffer.h).
using testing_support::ending;
using testing_support::exact_buffer;

// The check as stated, one byte at a time.
bool naive_valid(const unsigned char* p) {
  for (;;) {
    const unsigned char b = *p++;
    if (b == 0) return true;
    int follow = 0;
    if (b >= 0x80 && b <= 0xBF) return false;
    if (b >= 0xF8) return false;
    if (b >= 0xF0)
      follow = 3;
    else if (b >= 0xE0)
      follow = 2;
    else if (b >= 0xC0)
      follow = 1;
    for (int i = 0; i < follow; ++i) {
      if ((*p++ & 0xC0) != 0x80) return false;
    }
  }
}

struct row {
  const char* text;
  bool valid;
};

TEST(IsValidUtf8, ChecksTheShapeOnly) {
  const row rows[] = {
      {"", true},
      {"plain ASCII text", true},
      {"caf\xC3\xA9", true},
      {"\xE2\x82\xAC", true},
      {"\xF0\x9F\x98\x80", true},
      {"\xC3", false},  // the zero comes where a continuation is due
      {"\xE2\x82", false},
      {"\x80"
       "abc",
       false},  // a continuation byte starts a character
      {"a\xBF", false},
      {"\xF8\x88\x80\x80\x80", false},  // five- and six-byte forms
      {"\xFC\x84\x80\x80\x80\x80", false},
      {"\xFE", false},
      {"\xFF", false},
      {"\xC0\x80", true},  // overlong forms pass
      {"\xC1\xBF", true},
      {"\xED\xA0\x80", true},      // a surrogate code point passes
      {"\xF4\x90\x80\x80", true},  // above U+10FFFF with four bytes
      {"\xF7\xBF\xBF\xBF", true},
      {"\xC3\xA9\xC3", false},
      {"\xE2\x82"
       "a",
       false},
  };
  for (const row& r : rows) {
    SCOPED_TRACE(r.text);
    const exact_buffer text{r.text, ending::zero};
    EXPECT_EQ(TvxIsValidUtf8(text.c_str()), r.valid);
  }
}

// The word-at-a-time path must agree with the byte rule wherever the text
// starts, ends or breaks relative to an eight-byte boundary.
TEST(IsValidUtf8, AgreesWithTheByteRuleAtEveryAlignment) {
  std::mt19937 random(7);
  const std::vector<std::string> pieces = {
      "a",    "abcdefgh", "\xC3\xA9", "\xE2\x82\xAC",    "\xF0\x9F\x98\x80",
      "\x80", "\xC3",     "\xF8",     "0123456789012345"};
  for (int round = 0; round < 20000; ++round) {
    std::string text(static_cast<std::size_t>(random() % 8), 'x');  // shifts the alignment
    const int count = static_cast<int>(random() % 12);
    for (int i = 0; i < count; ++i) text += pieces[random() % pieces.size()];
    const exact_buffer exact{text, ending::zero};
    const bool expected = naive_valid(reinterpret_cast<const unsigned char*>(exact.c_str()));
    ASSERT_EQ(TvxIsValidUtf8(exact.c_str()), expected) << round;
  }
}

TEST(IsValidUtf8, StopsAtTheFirstZero) {
  const char text[] = "ok\0\xFF";
  EXPECT_TRUE(TvxIsValidUtf8(text));
  const std::string long_ascii(100000, 'a');
  const exact_buffer ascii{long_ascii, ending::zero};
  const exact_buffer cut{long_ascii + "\xC3", ending::zero};
  EXPECT_TRUE(TvxIsValidUtf8(ascii.c_str()));
  EXPECT_FALSE(TvxIsValidUtf8(cut.c_str()));
}

}  // namespace
