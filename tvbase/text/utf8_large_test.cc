// TvxIsValidUtf8 on 10 MB texts, with the fault, if any, at their very end.
#include <tvbase/text/utf8.h>

#include <string>

#include <gtest/gtest.h>

#include <tvbase/testing/allocation_counter.h>

namespace {

constexpr std::size_t kBytes = std::size_t{10} << 20;

std::string repeat(std::string_view piece) {
  std::string out;
  while (out.size() + piece.size() <= kBytes) out += piece;
  return out;
}

TEST(IsValidUtf8Large, TenMegabyteTexts) {
  struct row {
    const char* name;
    std::string text;
    bool valid;
  };
  const std::string ascii = repeat("plain text ");
  const row rows[] = {
      {"ASCII", ascii, true},
      {"two-byte characters", repeat("\xC3\xA9"), true},
      {"mixed", repeat("a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"), true},
      {"lone continuation byte at the end", ascii + "\x80", false},
      {"lead byte cut by the end", ascii + "\xE2\x82", false},
      {"0xFF at the end", repeat("\xC3\xA9") + "\xFF", false},
      {"fault at the start", "\xC3" + ascii, false},
  };
  for (const row& r : rows) {
    SCOPED_TRACE(r.name);
    const long before = testing_support::allocations();
    EXPECT_EQ(TvxIsValidUtf8(r.text.c_str()), r.valid);
    EXPECT_EQ(testing_support::allocations(), before) << "the check allocates nothing";
  }
}

}  // namespace
