// process() and images() on very large and very deep sheets: a million
// levels of parentheses in calc() or of braces, 10 MB comments and names, a
// million images. Each case checks the exact text, message and names, and
// bounds the memory by the size of the sheet; time is the benchmark's
// business (bench/large), but a case that turns quadratic runs into the
// test's time limit.
#include <tvbase/css_processor/processor.h>

#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <tvbase/testing/allocation_counter.h>

namespace css_processor {
namespace {

using testing_support::peak_bytes_during;

constexpr std::size_t kDeep = 1000000;
constexpr std::size_t kLong = std::size_t{10} << 20;  // bytes of one comment or name

std::string repeat(std::string_view piece, std::size_t times) {
  std::string out;
  out.reserve(piece.size() * times);
  for (std::size_t i = 0; i < times; ++i) out += piece;
  return out;
}

struct row {
  const char* name;
  std::string source;
  std::string expected;              // the text after process()
  std::optional<std::string> error;  // the message of process()
  std::vector<std::string> images;   // images() after process()
};

// k = 8: process() holds the text, the rebuilt text beside it and the edits
// recorded for the rebuild, 24 bytes each, which the densest sheet here has
// one of for every five bytes ("/**/a"); or a message that holds a
// definition's text, beside the definition.
constexpr std::size_t kMemory = 8;

void check(const std::vector<row>& rows) {
  for (const row& r : rows) {
    SCOPED_TRACE(r.name);
    const std::size_t size = r.source.size();
    processor sheet{std::string(r.source)};
    std::optional<std::string> error;
    const std::size_t held = peak_bytes_during([&] { error = sheet.process(); });
    EXPECT_EQ(error, r.error);
    EXPECT_LE(held, kMemory * size) << "bytes held for a sheet of " << size;
    EXPECT_EQ(sheet.images(), r.images);
    EXPECT_TRUE(sheet.css() == r.expected)
        << "text of " << sheet.css().size() << " bytes, expected " << r.expected.size();
  }
}

TEST(ProcessLarge, MillionLevelsOfParenthesesInCalc) {
  const std::string open(kDeep, '(');
  const std::string close(kDeep, ')');
  const std::string mismatched = "Mismatched parentheses in calc() in definition for variable --d.";
  check({
      {"a value",
       ":root{--d:calc(" + open + "1.5px" + close + ")}p{m:var(--d)}",
       "p{m:1.5px}",
       {},
       {}},
      {"a product inside",
       ":root{--d:calc(" + open + "2 * 3em" + close + ")}p{m:var(--d)}",
       "p{m:6em}",
       {},
       {}},
      {"an image inside",
       ":root{--d:calc(" + open + "1" + close + ")}p{m:var(--d) url(a.png)}",
       "p{m:1 url(a.png)}",
       {},
       {"a.png"}},
      {"unclosed",
       ":root{--d:calc(" + open + "1)}p{m:var(--d)}",
       ":root{--d:calc(" + open + "1)}p{m:var(--d)}",
       mismatched,
       {}},
      {"nothing inside",
       ":root{--d:calc(" + open + close + ")}p{m:var(--d)}",
       ":root{--d:calc(" + open + close + ")}p{m:var(--d)}",
       "Error in calc() for variable --d: expression (" + open + close + ") is invalid.",
       {}},
      // In a rule, calc() is kept as written.
      {"in a rule",
       ":root{--v:2}p{m:calc(" + open + "var(--v)" + close + ")}",
       "p{m:calc(" + open + "2" + close + ")}",
       {},
       {}},
  });
}

TEST(ProcessLarge, MillionLevelsOfBraces) {
  const std::string open = repeat("a{", kDeep);
  const std::string close(kDeep, '}');
  check({
      {"rules", open + "b:url(x.png)" + close, open + "b:url(x.png)" + close, {}, {"x.png"}},
      {"unclosed", open + "b:url(x.png)", open + "b:url(x.png)", {}, {"x.png"}},
      {"behind a root block",
       ":root{--c:1}" + open + "b:var(--c)" + close,
       open + "b:1" + close,
       {},
       {}},
      // The root block ends at its first '}'; the rest of its body stays.
      {"inside a root block",
       ":root{--c:1;" + open + "}" + close,
       ":root{" + open + "}" + close,
       {},
       {}},
  });
}

TEST(ProcessLarge, TenMegabyteComments) {
  const std::string body(kLong, '*');
  const std::string hidden = repeat(":root{--c:1}url(i.png)", kLong / 22);
  check({
      {"closed", "a{}/*" + body + "*/b{}", "a{}b{}", {}, {}},
      {"unclosed, plain text", "a{}/*" + body, "a{}/*" + body, {}, {}},
      {"closed, then unclosed", "a{}/*" + body + "*/b{}/*" + body, "a{}b{}/*" + body, {}, {}},
      {"hiding definitions and images",
       "/*" + hidden + "*/:root{--c:2}p{q:var(--c)}",
       "p{q:2}",
       {},
       {}},
      {"a million small ones", repeat("/**/a", kDeep), repeat("a", kDeep), {}, {}},
  });
}

TEST(ProcessLarge, TenMegabyteNames) {
  const std::string name = "--" + std::string(kLong, 'n');
  check({
      {"defined and used", ":root{" + name + ": 1px;}a{b:var(" + name + ")}", "a{b:1px}", {}, {}},
      {"used in a definition",
       ":root{" + name + ": 2;--m: calc(var(" + name + ") * 3)}a{b:var(--m)}",
       "a{b:6}",
       {},
       {}},
      {"undefined",
       "a{b:var(" + name + ")}",
       "a{b:var(" + name + ")}",
       "Variable " + name + " is undefined.",
       {}},
      {"defined twice",
       ":root{" + name + ":1;" + name + ":2}",
       ":root{" + name + ":1;" + name + ":2}",
       "Variable name " + name + " already defined.",
       {}},
      {"a long value",
       ":root{--v:" + std::string(kLong, 'v') + "}a{b:var(--v)}",
       "a{b:" + std::string(kLong, 'v') + "}",
       {},
       {}},
  });
}

// A sheet of a million rules, each naming an image of its own, some using
// variables. images() gives each name once, in order, in its first
// spelling; it used to find the names seen before by a linear search per
// image, and took hours for this sheet.
TEST(ProcessLarge, MillionRulesAndImages) {
  std::string source = ":root{--c:#abc;--w:calc(2px * 3)}\n";
  std::string expected = "\n";
  std::vector<std::string> images;
  for (std::size_t i = 0; i < kDeep; ++i) {
    const std::string n = std::to_string(i);
    const std::string image = "i" + n + (i % 2 ? ".png" : ".GIF");
    images.push_back(image);
    if (i % 10 == 9) {
      // The image of the rule before, in other capitals, and the variables.
      const std::string again = "url(I" + std::to_string(i - 1) + ".gif)";
      source += "p{b:var(--c) var(--w) url(" + image + ") " + again + "}\n";
      expected += "p{b:#abc 6px url(" + image + ") " + again + "}\n";
    } else {
      source += "p{b:url(" + image + ")}\n";
      expected += "p{b:url(" + image + ")}\n";
    }
  }
  check({{"rules", std::move(source), std::move(expected), {}, std::move(images)}});
}

}  // namespace
}  // namespace css_processor
