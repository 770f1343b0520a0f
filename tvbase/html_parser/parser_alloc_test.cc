// Counts the allocations of a parse with the test programs' counting
// operator new.
#include <tvbase/html_parser/parser.h>

#include <string>

#include <gtest/gtest.h>

#include <tvbase/testing/allocation_counter.h>

namespace html_parser {
namespace {

// Allocations of one parse, not counting the handler's own.
std::size_t count_allocations(const std::string& text, bool strict) {
  const element_handler count_nothing = [](const tag&, const std::optional<std::vector<tag>>&) {
    return true;
  };
  const auto before = static_cast<std::size_t>(testing_support::allocations());
  const auto error = parser::parse(text, strict, count_nothing);
  const auto after = static_cast<std::size_t>(testing_support::allocations());
  EXPECT_FALSE(error.has_value()) << error->get_message();
  return after - before;
}

std::string repeat(std::string_view piece, std::size_t times, std::string_view prefix = {}) {
  std::string out(prefix);
  for (std::size_t i = 0; i < times; ++i) out += piece;
  return out;
}

struct alloc_row {
  std::string_view piece;
  std::size_t per_pushed_copy;  // allocations per copy pushed on the open tags
};

TEST(HtmlParserAllocations, NonePerElementBeyondOpenTagCopies) {
  if (!testing_support::allocations_counted())
    GTEST_SKIP() << "operator new is not ours to count here";
  const alloc_row rows[] = {
      {"<p>text<!-- c --></p>\n", 0},
      {"<p a=1 b='2' c>text<br x=y></p>\n", 1},       // the copy of <p> holds its attributes
      {"<script src=x></script><style></style>", 1},  // <style> has none
  };
  for (const alloc_row& r : rows) {
    SCOPED_TRACE(r.piece);
    // With tracking on, each start tag's copy with attributes allocates once;
    // the list itself grows by doubling, which the pieces here never reach
    // beyond depth one.
    const std::size_t small = count_allocations(repeat(r.piece, 100), true);
    const std::size_t large = count_allocations(repeat(r.piece, 1100), true);
    EXPECT_EQ(large - small, 1000 * r.per_pushed_copy);
    // Once a stray end tag ends the tracking nothing is copied: the count
    // doesn't grow with the text.
    EXPECT_EQ(count_allocations(repeat(r.piece, 10, "</x>"), false),
              count_allocations(repeat(r.piece, 1000, "</x>"), false));
  }
}

TEST(HtmlParserAllocations, AttributeVectorKeepsItsStorage) {
  if (!testing_support::allocations_counted())
    GTEST_SKIP() << "operator new is not ours to count here";
  const std::string text = repeat("<a x=1 y=2 z=3><b q=1></b></a>", 50, "</x>");
  std::vector<const attribute*> storage;
  std::size_t capacity = 0;
  const auto error =
      parser::parse(text, false, [&](const tag& t, const std::optional<std::vector<tag>>&) {
        if (!t.attributes.empty()) storage.push_back(t.attributes.data());
        capacity = std::max(capacity, t.attributes.capacity());
        return t.attributes.capacity() >= t.attributes.size();
      });
  ASSERT_FALSE(error.has_value());
  ASSERT_EQ(storage.size(), 100u);
  // After the first tag with three attributes, all share one block.
  for (std::size_t i = 1; i < storage.size(); ++i) EXPECT_EQ(storage[i], storage[0]) << i;
  EXPECT_GE(capacity, 3u);
}

}  // namespace
}  // namespace html_parser
