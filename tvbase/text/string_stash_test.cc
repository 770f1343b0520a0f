#include <tvbase/text/string_stash.h>

#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <tvbase/testing/allocation_counter.h>

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
using winspect = stash_inspector<basic_string_stash<wchar_t>>;

TEST(StringStash, FirstPageHoldsTheTextAtItsEnd) {
  basic_string_stash<char> stash;
  EXPECT_TRUE(inspect::free_counts(stash).empty()) << "a new stash holds no page";
  const auto a = stash.store("abc");
  EXPECT_EQ(std::string_view(a), "abc");
  EXPECT_EQ(a.c_str()[3], '\0');
  // 528 bytes on 64-bit Linux: an 8-byte pointer and 520 characters.
  const auto* area = static_cast<const char*>(inspect::first_free_area(stash));
  EXPECT_EQ(a.data(), area + 520 - 4) << "the copy stands at the very end of the page";
  EXPECT_EQ(inspect::free_counts(stash), (std::vector<std::uint32_t>{516}));

  const auto b = stash.store("de");
  EXPECT_EQ(b.data() + 3, a.data()) << "the later copy stands in front of the earlier";
  EXPECT_EQ(std::string_view(a), "abc");
  const auto empty = stash.store("");
  EXPECT_EQ(empty.size(), 0u);
  EXPECT_EQ(empty.c_str()[0], '\0');
  EXPECT_EQ(inspect::free_counts(stash), (std::vector<std::uint32_t>{512}));
}

TEST(StringStash, RetiresAPageWithTooLittleRoomLeft) {
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

TEST(StringStash, GivesALongTextAPageOfItsOwnSize) {
  basic_string_stash<char> stash;
  const std::string text(10000, 'y');
  EXPECT_EQ(std::string_view(stash.store(text)), text);
  // Capacity 12,500: round-up-to-8(8 + 12,501) = 12,512 bytes, 12,504 characters.
  EXPECT_EQ(inspect::free_counts(stash), (std::vector<std::uint32_t>{12504 - 10001}));
  EXPECT_EQ(stash.next_page_size(), 12500u);
}

TEST(StringStash, PicksTheFittingPageWithTheLeastRoom) {
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

TEST(StringStash, TrimsTheFreeListByLeastRoomFirst) {
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

TEST(StringStash, KeepsTheFloorOfTheMinimum) {
  basic_string_stash<char> narrow;
  basic_string_stash<char8_t> bytes;
  basic_string_stash<wchar_t> wide;
  EXPECT_EQ(narrow.min_free_size(), 4u);
  EXPECT_EQ(wide.min_free_size(), sizeof(wchar_t) == 2 ? 2u : 1u);
  narrow.set_min_free_size(1);
  bytes.set_min_free_size(0);
  wide.set_min_free_size(0);
  EXPECT_EQ(narrow.min_free_size(), 4u);
  EXPECT_EQ(bytes.min_free_size(), 4u);
  EXPECT_EQ(wide.min_free_size(), sizeof(wchar_t) == 2 ? 2u : 1u);
  narrow.set_min_free_size(100);
  EXPECT_EQ(narrow.min_free_size(), 100u);
}

TEST(StringStash, WidePagesCountCharacters) {
  basic_string_stash<wchar_t> stash;
  const auto a = stash.store(L"\xD83D\xDE00x");
  EXPECT_EQ(std::wstring_view(a), L"\xD83D\xDE00x");
  // round-up-to-8(8 + 513 * 4) = 2,064 bytes: 514 characters.
  EXPECT_EQ(winspect::free_counts(stash), (std::vector<std::uint32_t>{514 - 4}));
  const std::wstring with_nul(L"a\0b", 3);
  EXPECT_EQ(std::wstring_view(stash.store(with_nul)), with_nul);
}

TEST(StringStash, StoreThatFindsRoomDoesNotAllocate) {
  if (!testing_support::allocations_counted())
    GTEST_SKIP() << "operator new is not ours to count here";
  basic_string_stash<char> stash;
  stash.store("first");  // makes the page
  const long before = testing_support::allocations();
  for (int i = 0; i < 50; ++i) stash.store("another");
  EXPECT_EQ(testing_support::allocations(), before);
  stash.store(std::string(600, 'z'));  // needs a page: the count moves
  EXPECT_GT(testing_support::allocations(), before);
}

TEST(StringStash, ViewsNeverMove) {
  basic_string_stash<char> stash;
  std::vector<std::pair<base::basic_zstring_view<char>, std::string>> kept;
  for (int i = 0; i < 20000; ++i) {
    std::string text(static_cast<std::size_t>(i % 700), static_cast<char>('a' + i % 26));
    kept.emplace_back(stash.store(text), text);
  }
  for (const auto& [view, text] : kept) {
    ASSERT_EQ(std::string_view(view), text);
    ASSERT_EQ(view.c_str()[view.size()], '\0');
  }
}

}  // namespace
}  // namespace base
