// The string stash with 10 MB strings among small ones.
#include <tvbase/text/string_stash.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <tvbase/testing/allocation_counter.h>

namespace base {
namespace {

using testing_support::peak_bytes_during;

template <typename Char>
class StringStashLarge : public ::testing::Test {};
using chars = ::testing::Types<char, char8_t, wchar_t>;
TYPED_TEST_SUITE(StringStashLarge, chars);

// A 10 MB string gets a page of its own size and a quarter, which then
// takes the small strings stored behind it; the views stay as stored.
TYPED_TEST(StringStashLarge, TenMegabyteStringsAmongSmallOnes) {
  using Char = TypeParam;
  const std::size_t length = (std::size_t{10} << 20) / sizeof(Char);
  const std::basic_string<Char> big(length, static_cast<Char>('b'));
  const std::basic_string<Char> small(10, static_cast<Char>('s'));
  basic_string_stash<Char> stash;
  std::vector<basic_zstring_view<Char>> views;
  const std::size_t held = peak_bytes_during([&] {
    views.push_back(stash.store(small));
    views.push_back(stash.store(big));
    // A quarter of the big page is left, for small strings.
    for (std::size_t i = 0; i < length / 4 / 11; ++i) views.push_back(stash.store(small));
    views.push_back(stash.store(big));
  });
  // The first big page set the size, the second grew it by a quarter.
  const std::size_t first_big_page = length + length / 4;
  EXPECT_EQ(stash.next_page_size(), first_big_page + first_big_page / 4);
  ASSERT_EQ(views.size(), length / 4 / 11 + 3);
  EXPECT_TRUE(std::basic_string_view<Char>(views[1]) == big);
  EXPECT_TRUE(std::basic_string_view<Char>(views.back()) == big);
  EXPECT_EQ(views.back().c_str()[length], Char{});
  for (std::size_t i = 0; i < views.size(); ++i) {
    if (i == 1 || i + 1 == views.size()) continue;
    ASSERT_TRUE(std::basic_string_view<Char>(views[i]) == small) << i;
  }
  // Two big pages, a quarter over the two big strings, which hold the small
  // ones; and the vector of views.
  const std::size_t stored = 2 * length * sizeof(Char);
  EXPECT_LE(held, stored + stored / 4 + 2 * views.size() * sizeof(views[0]) + 4096);
}

}  // namespace
}  // namespace base
