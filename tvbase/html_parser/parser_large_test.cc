// The scanner on very large and very deep documents, in both modes: a
// million nested elements, 10 MB attributes, comments, text and script.
// Each case checks what the handler saw (elements, the deepest list of open
// tags, the last row) and the error, and bounds the memory by the size of the
// document; time is the benchmark's business (bench/large).
#include <tvbase/html_parser/parser.h>

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <tvbase/testing/allocation_counter.h>

namespace html_parser {
namespace {

using testing_support::peak_bytes_during;

constexpr std::size_t kDeep = 1000000;
constexpr std::size_t kLong = std::size_t{10} << 20;

std::string repeat(std::string_view piece, std::size_t times) {
  std::string out;
  out.reserve(piece.size() * times);
  for (std::size_t i = 0; i < times; ++i) out += piece;
  return out;
}

// What one scan showed the handler.
struct seen {
  std::size_t elements = 0;
  std::size_t deepest = 0;        // the longest list of open tags handed over
  std::uint32_t last_row = 0;     // of the last element
  std::size_t longest_raw = 0;    // of any element
  std::size_t longest_value = 0;  // of any attribute value
};

struct row {
  const char* name;
  std::string text;
  seen expected;
  const char* error;  // the message, or null for a complete scan
};

// k = 32: the list of open tags holds a copy of each start tag, 64 bytes
// for the 4 bytes of "<p>\n", and doubles as it grows.
constexpr std::size_t kMemory = 32;

void check(const std::vector<row>& rows, bool strict) {
  for (const row& r : rows) {
    SCOPED_TRACE(r.name);
    seen got;
    std::optional<parse_error> error;
    const std::size_t held = peak_bytes_during([&] {
      error = parser::parse(r.text, strict,
                            [&got](const tag& t, const std::optional<std::vector<tag>>& open) {
                              ++got.elements;
                              got.deepest = std::max(got.deepest, open ? open->size() : 0);
                              got.last_row = t.row;
                              got.longest_raw = std::max(got.longest_raw, t.raw.size());
                              for (const attribute& a : t.attributes)
                                got.longest_value = std::max(got.longest_value, a.value.size());
                              return true;
                            });
    });
    EXPECT_LE(held, kMemory * r.text.size() + 4096);
    if (r.error) {
      ASSERT_TRUE(error);
      EXPECT_EQ(error->get_message(), r.error);
    } else {
      EXPECT_FALSE(error) << error->get_message();
    }
    EXPECT_EQ(got.elements, r.expected.elements);
    EXPECT_EQ(got.deepest, r.expected.deepest);
    EXPECT_EQ(got.last_row, r.expected.last_row);
    EXPECT_EQ(got.longest_raw, r.expected.longest_raw);
    EXPECT_EQ(got.longest_value, r.expected.longest_value);
  }
}

// A million open elements: the list grows on the heap, however deep.
TEST(HtmlParserLarge, MillionNestedElements) {
  const std::string open = repeat("<div>", kDeep);
  const std::string close = repeat("</div>", kDeep);
  const std::string lines = repeat("<p>\n", kDeep);
  const auto rows_of = [&](bool strict) {
    const char* unclosed =
        strict ? "html parse error: unclosed elements at end of html, last start tag=div on row 1."
               : nullptr;
    return std::vector<row>{
        {"unclosed", open, {kDeep, kDeep - 1, 1, 5, 0}, unclosed},
        {"closed", open + close, {2 * kDeep, kDeep, 1, 6, 0}, nullptr},
        // A start tag and a line feed per line.
        {"one per line",
         lines + "</p>",
         {2 * kDeep + 1, kDeep, static_cast<std::uint32_t>(kDeep + 1), 4, 0},
         strict
             ? "html parse error: unclosed elements at end of html, last start tag=p on row 999999."
             : nullptr},
        // Void elements open nothing.
        {"void elements", repeat("<br>", kDeep), {kDeep, 0, 1, 4, 0}, nullptr},
    };
  };
  for (const bool strict : {false, true}) {
    SCOPED_TRACE(strict ? "strict" : "not strict");
    check(rows_of(strict), strict);
  }
}

TEST(HtmlParserLarge, MismatchAfterAMillionLevels) {
  const std::string text = repeat("<div>\n", kDeep) + "</span>" + repeat("</div>", kDeep);
  check(
      {{"strict",
        text,
        {2 * kDeep, kDeep, static_cast<std::uint32_t>(kDeep), 5, 0},
        "html parse error on row 1000001: mismatched end tag, last start tag=div on row 1000000."}},
      true);
  // Without strict, the stray end tag ends the tracking and the scan goes on.
  check({{"not strict",
          text,
          {3 * kDeep + 1, kDeep, static_cast<std::uint32_t>(kDeep + 1), 7, 0},
          nullptr}},
        false);
}

TEST(HtmlParserLarge, TenMegabyteElements) {
  const std::string big(kLong, 'x');
  const std::string attribute = "<a href=\"" + big + "\" title=" + big + ">";
  const std::string comment = "<!--" + big + "-->";
  const std::string script = "<script>" + big + "</script>";
  const std::vector<row> rows = {
      {"attribute values", attribute + "</a>", {2, 1, 1, attribute.size(), kLong}, nullptr},
      {"comment", comment, {1, 0, 1, comment.size(), 0}, nullptr},
      {"text", "<p>" + big + "</p>", {3, 1, 1, kLong, 0}, nullptr},
      {"script", script, {3, 1, 1, kLong, 0}, nullptr},
      {"doctype", "<!doctype \"" + big + "\">", {1, 0, 1, kLong + 13, kLong}, nullptr},
      {"text on many lines",
       repeat("\n", kLong) + "<b></b>",
       {3, 1, static_cast<std::uint32_t>(kLong + 1), kLong, 0},
       nullptr},
      // Unclosed: the scan reads to the end once and stops with the row of
      // the element.
      {"unclosed comment",
       "<p>\n<!--" + big,
       {2, 1, 1, 3, 0},
       "html parse error on row 2: comment not closed."},
      {"unclosed quote",
       "\n<a href=\"" + big,
       {1, 0, 1, 1, 0},
       "html parse error on row 2: missing closing single/double quote."},
      {"unclosed script",
       "<script>" + big,
       {1, 0, 1, 8, 0},
       "html parse error on row 1: missing closing </script>."},
  };
  for (const bool strict : {false, true}) {
    SCOPED_TRACE(strict ? "strict" : "not strict");
    check(rows, strict);
  }
}

}  // namespace
}  // namespace html_parser
