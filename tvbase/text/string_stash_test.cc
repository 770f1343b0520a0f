#include <tvbase/text/string_stash.h>

#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <tvbase/testing/allocation_counter.h>
#include <tvbase/testing/char_types.h>
#include <tvbase/testing/exact_buffer.h>

namespace base {

// Reads the page lists of a stash.
template <typename Stash>
struct stash_inspector {
  using page = typename Stash::page;
  static std::vector<std::uint32_t> free_counts(Stash& s) {
    std::vector<std::uint32_t> counts;
    for (page* p = s.free_.get(); p != nullptr; p = p->next.get()) {
      std::uint32_t count;
      std::memcpy(&count, p->area(), sizeof count);
      counts.push_back(count);
    }
    return counts;
  }
  static std::size_t full_pages(Stash& s) {
    std::size_t n = 0;
    for (page* p = s.full_.get(); p != nullptr; p = p->next.get()) ++n;
    return n;
  }
  static const void* first_free_area(Stash& s) { return s.free_->area(); }
  static void set_policy(Stash& s, typename Stash::page_size_policy policy) {
    s.page_size_ = std::move(policy);
  }
};

namespace {

using inspect = stash_inspector<basic_string_stash<char>>;
using testing_support::exact_buffer;
using testing_support::shown;
using testing_support::widen;

// The suites that hold for each instance of the stash. Texts come from
// blocks of exactly their size, so a read past a view's end is reported
// under the address sanitizer.
template <typename Char>
class StringStash : public ::testing::Test {
 protected:
  using stash_type = basic_string_stash<Char>;
  using inspect = stash_inspector<stash_type>;

  // The characters that a page for a capacity of n characters offers, as the
  // header gives the page's size: round-up-to-8(pointer + max(n + 1, 128)
  // characters).
  static std::uint32_t page_characters(std::size_t n) {
    const std::size_t bytes =
        (sizeof(void*) + std::max<std::size_t>(n + 1, 128) * sizeof(Char) + 7) / 8 * 8;
    return static_cast<std::uint32_t>((bytes - sizeof(void*)) / sizeof(Char));
  }
};
TYPED_TEST_SUITE(StringStash, testing_support::char_types, testing_support::char_type_names);

TYPED_TEST(StringStash, FirstPageHoldsTheTextAtItsEnd) {
  using Char = TypeParam;
  typename TestFixture::stash_type stash;
  using inspect = typename TestFixture::inspect;
  EXPECT_TRUE(inspect::free_counts(stash).empty()) << "a new stash holds no page";
  // 520 characters of 8 bits or 514 of 32 on 64-bit Linux.
  const std::uint32_t room = TestFixture::page_characters(512);
  const exact_buffer abc{widen<Char>("abc")};
  const auto a = stash.store(abc.view());
  EXPECT_EQ(shown(std::basic_string_view<Char>(a)), "abc");
  EXPECT_EQ(a.c_str()[3], Char{});
  const auto* area = static_cast<const Char*>(inspect::first_free_area(stash));
  EXPECT_EQ(a.data(), area + room - 4) << "the copy stands at the very end of the page";
  EXPECT_EQ(inspect::free_counts(stash), (std::vector<std::uint32_t>{room - 4}));

  const exact_buffer de{widen<Char>("de")};
  const auto b = stash.store(de.view());
  EXPECT_EQ(b.data() + 3, a.data()) << "the later copy stands in front of the earlier";
  EXPECT_EQ(shown(std::basic_string_view<Char>(a)), "abc");
  const exact_buffer nothing{std::basic_string_view<Char>()};
  const auto empty = stash.store(nothing.view());
  EXPECT_EQ(empty.size(), 0u);
  EXPECT_EQ(empty.c_str()[0], Char{});
  EXPECT_EQ(inspect::free_counts(stash), (std::vector<std::uint32_t>{room - 8}));
}

TYPED_TEST(StringStash, KeepsNulUnitsAndCharactersOfTwoUnits) {
  using Char = TypeParam;
  typename TestFixture::stash_type stash;
  const exact_buffer with_nul{widen<Char>(std::string_view("a\0b", 3))};
  const exact_buffer pair{testing_support::two_unit_character<Char>() + widen<Char>("x")};
  const auto a = stash.store(with_nul.view());
  const auto b = stash.store(pair.view());
  EXPECT_EQ(shown(std::basic_string_view<Char>(a)), shown(with_nul.view()));
  EXPECT_EQ(shown(std::basic_string_view<Char>(b)), shown(pair.view()));
  EXPECT_EQ(b.size(), 3u) << "lengths count units";
  EXPECT_EQ(TestFixture::inspect::free_counts(stash),
            (std::vector<std::uint32_t>{TestFixture::page_characters(512) - 8}));
}

TYPED_TEST(StringStash, KeepsTheFloorOfTheMinimum) {
  using Char = TypeParam;
  // The 32-bit free count needs 4 units of a byte, 2 of 16 bits, 1 of 32.
  const unsigned int floor = sizeof(Char) == 1 ? 4u : sizeof(Char) == 2 ? 2u : 1u;
  typename TestFixture::stash_type stash;
  EXPECT_EQ(stash.min_free_size(), floor);
  for (const unsigned int below : {0u, 1u, floor - 1}) {
    SCOPED_TRACE(below);
    stash.set_min_free_size(below);
    EXPECT_EQ(stash.min_free_size(), floor);
  }
  stash.set_min_free_size(100);
  EXPECT_EQ(stash.min_free_size(), 100u);
}

TYPED_TEST(StringStash, StoreThatFindsRoomDoesNotAllocate) {
  using Char = TypeParam;
  if (!testing_support::allocations_counted())
    GTEST_SKIP() << "operator new is not ours to count here";
  typename TestFixture::stash_type stash;
  const exact_buffer first{widen<Char>("first")};
  const exact_buffer another{widen<Char>("another")};
  const exact_buffer long_text{std::basic_string<Char>(600, static_cast<Char>('z'))};
  stash.store(first.view());  // makes the page
  const long before = testing_support::allocations();
  for (int i = 0; i < 50; ++i) stash.store(another.view());
  EXPECT_EQ(testing_support::allocations(), before);
  stash.store(long_text.view());  // needs a page: the count moves
  EXPECT_GT(testing_support::allocations(), before);
}

TYPED_TEST(StringStash, ViewsNeverMove) {
  using Char = TypeParam;
  typename TestFixture::stash_type stash;
  std::vector<std::pair<basic_zstring_view<Char>, std::basic_string<Char>>> kept;
  for (int i = 0; i < 20000; ++i) {
    const exact_buffer text{std::basic_string<Char>(static_cast<std::size_t>(i % 700),
                                                    static_cast<Char>('a' + i % 26))};
    kept.emplace_back(stash.store(text.view()), text.view());
  }
  for (const auto& [view, text] : kept) {
    ASSERT_TRUE(std::basic_string_view<Char>(view) == text);
    ASSERT_EQ(view.c_str()[view.size()], Char{});
  }
}

// The page policy, with the sizes of char pages.
TEST(StringStashPolicy, RetiresAPageWithTooLittleRoomLeft) {
  struct row {
    std::size_t length;
    std::vector<std::uint32_t> free_after;
    std::size_t full_after;
  };
  const row rows[] = {
      {515, {4}, 0},  // rest 4 reaches the minimum: the page stays free
      {516, {}, 1},   // rest 3: straight to the full list
      {519, {}, 1},   // rest 0
  };
  for (const row& r : rows) {
    SCOPED_TRACE(r.length);
    basic_string_stash<char> stash;
    // A page of 520 characters whatever the length (the default policy would
    // give a longer text a larger page).
    inspect::set_policy(stash, [](unsigned int&, unsigned int) { return 512u; });
    const std::string text(r.length, 'x');
    EXPECT_EQ(std::string_view(stash.store(text)), text);
    EXPECT_EQ(inspect::free_counts(stash), r.free_after);
    EXPECT_EQ(inspect::full_pages(stash), r.full_after);
  }
}

TEST(StringStashPolicy, GivesALongTextAPageOfItsOwnSize) {
  basic_string_stash<char> stash;
  const std::string text(10000, 'y');
  EXPECT_EQ(std::string_view(stash.store(text)), text);
  // Capacity 12,500: round-up-to-8(8 + 12,501) = 12,512 bytes, 12,504 characters.
  EXPECT_EQ(inspect::free_counts(stash), (std::vector<std::uint32_t>{12504 - 10001}));
  EXPECT_EQ(stash.next_page_size(), 12500u);
}

TEST(StringStashPolicy, PicksTheFittingPageWithTheLeastRoom) {
  basic_string_stash<char> stash;
  // Pages of 600 and 520 free characters, filled to leave 100 and 50.
  inspect::set_policy(stash, [](unsigned int&, unsigned int) { return 592u; });
  stash.store(std::string(499, 'a'));  // 600 - 500 = 100 left
  inspect::set_policy(stash, [](unsigned int&, unsigned int) { return 512u; });
  stash.store(std::string(519, 'b'));  // too big for 100: a new 520 page, rest 0, full
  stash.store(std::string(469, 'c'));  // the 100 page can't: new 520 page, 50 left
  EXPECT_EQ(inspect::free_counts(stash), (std::vector<std::uint32_t>{50, 100}));
  stash.store(std::string(49, 'd'));  // fits both; goes to 50, leaves 0, retired
  EXPECT_EQ(inspect::free_counts(stash), (std::vector<std::uint32_t>{100}));
  EXPECT_EQ(inspect::full_pages(stash), 2u);
}

TEST(StringStashPolicy, TrimsTheFreeListByLeastRoomFirst) {
  basic_string_stash<char> stash;
  inspect::set_policy(stash, [](unsigned int&, unsigned int) { return 512u; });
  // Nine pages, each left with a different amount of room.
  for (unsigned int i = 0; i < 9; ++i) stash.store(std::string(509 - 10 * i, 'x'));
  std::vector<std::uint32_t> free = inspect::free_counts(stash);
  ASSERT_EQ(free.size(), 8u) << "the ninth page trimmed the list";
  EXPECT_EQ(*std::min_element(free.begin(), free.end()), 20u) << "the page with 10 left went";
  EXPECT_EQ(inspect::full_pages(stash), 1u);

  stash.set_max_free_pages(0);
  EXPECT_EQ(inspect::free_counts(stash), (std::vector<std::uint32_t>{90})) << "the most room stays";
  EXPECT_EQ(stash.max_free_pages(), 1u);
}

}  // namespace
}  // namespace base
