#include <tvbase/text/replace_engine.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <tvbase/testing/char_types.h>
#include <tvbase/testing/exact_buffer.h>
#include <tvbase/text/replace_engine_model.h>

namespace {

using replace_engine::model::edit;
using replace_engine::model::naive_engine;
using testing_support::exact_buffer;
using testing_support::shown;
using testing_support::widen;

// The same suites for each instance of the engine. Every source text lies in
// a block of exactly its size, so a read past a view's end is reported under
// the address sanitizer.
template <typename Char>
class ReplaceEngine : public ::testing::Test {
 protected:
  using view = std::basic_string_view<Char>;
  using engine = replace_engine::engine<Char>;
};
TYPED_TEST_SUITE(ReplaceEngine, testing_support::char_types, testing_support::char_type_names);

struct row {
  const char* name;
  std::vector<edit> edits;
  std::vector<bool> accepted;
  std::string expected;
};

TYPED_TEST(ReplaceEngine, FollowsTheCollisionRules) {
  using Char = TypeParam;
  const exact_buffer text{widen<Char>("abcdef")};
  const std::vector<row> rows = {
      {"order of recording does not matter", {{2, 2, "X"}, {0, 2, "YY"}}, {true, true}, "YYXef"},
      {"overlap refused", {{1, 2, "1"}, {2, 2, "2"}}, {true, false}, "a1def"},
      {"touching spans accepted",
       {{0, 2, "1"}, {2, 2, "2"}, {1, 2, "3"}},
       {true, true, false},
       "12ef"},
      {"insert at start and end", {{0, 0, "<"}, {6, 0, ">"}}, {true, true}, "<abcdef>"},
      {"insertions keep recording order", {{3, 0, "1"}, {3, 0, "2"}}, {true, true}, "abc12def"},
      {"insertion before a replacement at its place",
       {{3, 2, "R"}, {3, 0, "I"}},
       {true, true},
       "abcIRf"},
      {"insertion inside a span refused", {{1, 3, "R"}, {2, 0, "I"}}, {true, false}, "aRef"},
      {"insertion at span begin and end",
       {{1, 3, "R"}, {1, 0, "<"}, {4, 0, ">"}},
       {true, true, true},
       "a<R>ef"},
      {"span over a recorded insertion refused",
       {{2, 0, "I"}, {1, 3, "R"}},
       {true, false},
       "abIcdef"},
      {"span starting at a recorded insertion",
       {{2, 0, "I"}, {2, 2, "R"}, {0, 2, "L"}},
       {true, true, true},
       "LIRef"},
      {"span past the end refused", {{4, 3, "x"}, {6, 1, "y"}}, {false, false}, "abcdef"},
      {"erase", {{1, 4, ""}}, {true}, "af"},
      {"whole text", {{0, 6, "new"}, {0, 0, "+"}, {6, 0, "-"}}, {true, true, true}, "+new-"},
      {"first recorded wins whatever the size",
       {{2, 1, "1"}, {0, 6, "big"}},
       {true, false},
       "ab1def"},
  };
  for (const row& r : rows) {
    SCOPED_TRACE(r.name);
    typename TestFixture::engine engine{text.view()};
    for (std::size_t i = 0; i < r.edits.size(); ++i) {
      const edit& e = r.edits[i];
      const typename TestFixture::view what(text.data() + std::min(e.at, text.size()), e.length);
      const exact_buffer with{widen<Char>(e.with)};
      EXPECT_EQ(engine.replace(what, with.view()), r.accepted[i]) << "edit " << i;
    }
    EXPECT_EQ(shown(engine.apply()), r.expected);
    EXPECT_EQ(shown(engine.apply()), "abcdef") << "a second apply gives the unedited source";
  }
}

TYPED_TEST(ReplaceEngine, RefusesViewsOutsideTheText) {
  using Char = TypeParam;
  using view = typename TestFixture::view;
  const exact_buffer text{widen<Char>("abcdef")};
  const exact_buffer copy{text.view()};
  const exact_buffer x{widen<Char>("x")};
  typename TestFixture::engine engine{text.view()};
  EXPECT_FALSE(engine.replace(copy.view().substr(1, 2), x.view())) << "equal content elsewhere";
  EXPECT_FALSE(engine.replace(view(), x.view())) << "null view";
  EXPECT_FALSE(engine.replace(view(text.data() + 5, 2), x.view())) << "runs past the end";
  EXPECT_EQ(engine.size(), 0u);
  EXPECT_EQ(shown(engine.apply()), "abcdef");
}

TYPED_TEST(ReplaceEngine, CopiesNewContentAtOnceAndMayReadTheSource) {
  using Char = TypeParam;
  const exact_buffer text{widen<Char>("hello world")};
  typename TestFixture::engine engine{text.view()};
  {
    const exact_buffer temporary{widen<Char>("HELLO")};
    ASSERT_TRUE(engine.replace(text.view().substr(0, 5), temporary.view()));
  }
  ASSERT_TRUE(engine.replace(text.view().substr(6, 5), text.view().substr(0, 5)));
  EXPECT_EQ(shown(engine.apply()), "HELLO hello");
}

TYPED_TEST(ReplaceEngine, KeepsNulUnits) {
  using Char = TypeParam;
  const exact_buffer text{widen<Char>(std::string_view("a\0b", 3))};
  const exact_buffer nuls{widen<Char>(std::string_view("\0\0", 2))};
  typename TestFixture::engine engine{text.view()};
  ASSERT_TRUE(engine.replace(text.view().substr(1, 1), nuls.view()));
  EXPECT_EQ(shown(engine.apply()), std::string("a\0\0b", 4));
}

// Lengths count units of the type: a span may take one unit of a character
// that has two (a UTF-8 sequence, a surrogate pair).
TYPED_TEST(ReplaceEngine, CountsUnitsNotCharacters) {
  using Char = TypeParam;
  const std::basic_string<Char> pair = testing_support::two_unit_character<Char>();
  const exact_buffer text{widen<Char>("x") + pair + widen<Char>("y")};
  const exact_buffer mark{widen<Char>("?")};
  typename TestFixture::engine engine{text.view()};
  ASSERT_TRUE(engine.replace(text.view().substr(1, 1), mark.view()));
  EXPECT_EQ(shown(engine.apply()), shown(widen<Char>("x?") + pair.substr(1) + widen<Char>("y")));
}

TYPED_TEST(ReplaceEngine, ResetStartsABatchOnANewText) {
  using Char = TypeParam;
  const exact_buffer first{widen<Char>("one two")};
  const exact_buffer one{widen<Char>("1")};
  const exact_buffer two{widen<Char>("2")};
  typename TestFixture::engine engine{first.view()};
  ASSERT_TRUE(engine.replace(first.view().substr(0, 3), one.view()));
  const exact_buffer second{engine.apply()};
  engine.reset(second.view());
  ASSERT_TRUE(engine.replace(second.view().substr(2, 3), two.view()));
  ASSERT_FALSE(engine.replace(first.view().substr(4, 3), one.view()))
      << "old text no longer the source";
  EXPECT_EQ(shown(engine.apply()), "1 2");
}

// Random batches against the naive model, big enough to split index blocks.
TYPED_TEST(ReplaceEngine, MatchesTheLinearModelOnRandomBatches) {
  using Char = TypeParam;
  std::mt19937 random(12345);
  for (int round = 0; round < 40; ++round) {
    SCOPED_TRACE(round);
    std::string bytes(static_cast<std::size_t>(random() % 4000), 'x');
    for (char& c : bytes) c = static_cast<char>('a' + random() % 26);
    const exact_buffer text{widen<Char>(bytes)};
    typename TestFixture::engine engine{text.view()};
    naive_engine model{bytes, {}};
    const int count = static_cast<int>(random() % 3000);
    for (int i = 0; i < count; ++i) {
      const std::size_t at = random() % (text.size() + 2);
      const std::size_t length = random() % 4 == 0 ? 0 : random() % 8;
      const edit e{at, length, std::string(random() % 3, static_cast<char>('0' + i % 10))};
      const bool inside = at <= text.size() && length <= text.size() - at;
      const bool expected = model.replace(e);
      const exact_buffer with{widen<Char>(e.with)};
      const bool got = inside && engine.replace({text.data() + at, length}, with.view());
      ASSERT_EQ(got, expected) << "edit " << i << " at " << at << " length " << length;
    }
    EXPECT_EQ(engine.size(), model.edits.size());
    EXPECT_EQ(shown(engine.apply()), model.apply());
  }
}

// A second oracle for long batches, where the naive model's linear check
// is too slow: recorded spans in an ordered map, insertions in a set, and
// the naive model's stable sort to rebuild.
struct ordered_model {
  std::size_t size;
  std::map<std::size_t, std::size_t> spans;  // begin -> end of the non-empty ones
  std::set<std::size_t> insertions;
  naive_engine rebuild;

  bool replace(const edit& e) {
    if (e.at > size || e.length > size - e.at) return false;
    const std::size_t begin = e.at;
    const std::size_t end = begin + e.length;
    const auto after = spans.lower_bound(begin);  // the first span beginning at or after
    const bool from_before = after != spans.begin() && std::prev(after)->second > begin &&
                             std::prev(after)->first < begin;
    if (e.length == 0) {
      if (from_before) return false;  // strictly inside a span
      insertions.insert(begin);
    } else {
      if (after != spans.end() && after->first < end) return false;
      if (after != spans.begin() && std::prev(after)->second > begin) return false;
      const auto inside = insertions.upper_bound(begin);
      if (inside != insertions.end() && *inside < end) return false;
      spans.emplace(begin, end);
    }
    rebuild.edits.push_back(e);
    return true;
  }
};

// Long batches in orders that move a block's gap both ways and far, split
// blocks and chunks over and over, and land edits on, inside and beside
// recorded ones: every answer and the result against the ordered model.
constexpr std::size_t kSize = 200000;
constexpr std::size_t kEdits = 60000;

TEST(ReplaceEngine, MatchesAnOrderedModelOnLongBatchesInAnyOrder) {
  std::mt19937 random(777);
  std::string text(kSize, 'x');
  for (char& c : text) c = static_cast<char>('a' + random() % 26);
  struct row {
    const char* name;
    std::size_t (*place)(std::size_t k, std::mt19937& random);
  };
  const row rows[] = {
      {"in text order", [](std::size_t k, std::mt19937&) { return k * 3; }},
      {"backwards", [](std::size_t k, std::mt19937&) { return kSize - 1 - k * 3; }},
      {"scattered by a stride", [](std::size_t k, std::mt19937&) { return (k * 7919) % kSize; }},
      {"uniformly random",
       [](std::size_t, std::mt19937& r) -> std::size_t { return r() % (kSize + 1); }},
      {"to and fro in a window",
       [](std::size_t k, std::mt19937& r) { return (k / 64) * 3 + r() % 400; }},
      {"crowding one place",
       [](std::size_t, std::mt19937& r) -> std::size_t { return 100000 + r() % 8; }},
  };
  for (const row& r : rows) {
    SCOPED_TRACE(r.name);
    replace_engine::engine<char> engine{text};
    ordered_model model{kSize, {}, {}, {text, {}}};
    std::size_t accepted = 0;
    for (std::size_t k = 0; k < kEdits; ++k) {
      const std::size_t at = std::min(r.place(k, random), kSize);
      const std::size_t length = random() % 3 == 0 ? 0 : random() % 6;
      const edit e{at, std::min(length, kSize - at),
                   std::string(random() % 3, static_cast<char>('0' + k % 10))};
      const bool expected = model.replace(e);
      ASSERT_EQ(engine.replace(std::string_view(text.data() + e.at, e.length), e.with), expected)
          << "edit " << k << " at " << e.at << " length " << e.length;
      accepted += expected ? 1 : 0;
    }
    EXPECT_EQ(engine.size(), accepted);
    EXPECT_TRUE(engine.apply() == model.rebuild.apply());
    EXPECT_EQ(engine.size(), 0u);
    EXPECT_TRUE(engine.apply() == text) << "a second apply gives the unedited source";
  }
}

// A copy holds the recorded edits of its own; both apply them.
TEST(ReplaceEngine, CopiesCarryTheirEdits) {
  const std::string text(5000, '.');
  replace_engine::engine<char> engine{text};
  std::string expected = text;
  for (std::size_t i = 0; i < 1000; ++i) {
    const std::size_t at = (i * 613) % 1000 * 5;  // out of order, so blocks split
    ASSERT_TRUE(engine.replace(std::string_view(text).substr(at, 1), "#"));
    expected[at] = '#';
  }
  replace_engine::engine<char> copy = engine;
  EXPECT_TRUE(engine.apply() == expected);
  ASSERT_TRUE(copy.replace(std::string_view(text).substr(1, 1), "+"));
  expected[1] = '+';
  EXPECT_TRUE(copy.apply() == expected);
}

}  // namespace
