#include "patterns.h"

#include <map>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#if defined(TVBASE_HAVE_RE2)
#include <re2/re2.h>
#endif

#include <tvbase/testing/exact_buffer.h>

namespace css_processor {
namespace {

#if defined(TVBASE_HAVE_RE2)

// The patterns as regular expressions, run by RE2 on bytes with leftmost-first
// semantics: the oracle for the scanners.
constexpr const char* kComment = R"((/\*.*?\*/))";
constexpr const char* kRootBlock = R"(:root[ \t\r\n]*\{([^}]*)\})";
constexpr const char* kDefinition = R"([ \t\r\n]*(--[-a-zA-Z0-9]+)[ \t\r\n]*:(.*))";
constexpr const char* kBlank = R"([ \t\r\n]*)";
constexpr const char* kReference = R"(var\([ \t\r\n]*([^) \t\r\n]*)\))";
constexpr const char* kGroup = R"(\(([ ]?-?[0-9]+(?:\.[0-9]{1,2})?(?:px|em|%)?[ ]?)\))";
constexpr const char* kProduct =
    R"([ ]?(-?[0-9]+(?:\.[0-9]{1,2})?)(px|em|%)?[ ]?([*/])[ ]?(-?[0-9]+(?:\.[0-9]{1,2})?)(px|em|%)?[ ]?)";
constexpr const char* kSum =
    R"([ ]?(-?[0-9]+(?:\.[0-9]{1,2})?)(px|em|%)?[ ]?([-+])[ ]?(-?[0-9]+(?:\.[0-9]{1,2})?)(px|em|%)?[ ]?)";
constexpr const char* kValue = R"([ ]?-?[0-9]+(?:\.[0-9]{1,2})?(?:px|em|%)?[ ]?)";
constexpr const char* kRound =
    R"(round\((?:[ ]?(up|down|nearest|to-zero)[ ]?,)?[ ]?(-?[0-9]+(?:\.[0-9]{1,2})?)(px|em|%)?[ ]?,[ ]?)"
    R"((-?[0-9]+(?:\.[0-9]{1,2})?)(px|em|%)?[ ]?\))";
constexpr const char* kImage =
    R"(url\([ \t\r\n]*['"]?([a-z0-9.\-_]+\.(?:jpg|png|gif))['"]?[ \t\r\n]*\))";

enum class letters { exact, any_case };

const RE2& compiled(const char* pattern, letters mode = letters::exact) {
  RE2::Options options;
  options.set_encoding(RE2::Options::EncodingLatin1);
  options.set_dot_nl(true);
  options.set_case_sensitive(mode == letters::exact);
  options.set_log_errors(false);
  // One RE2 per pattern and mode; the map keeps them for the process.
  static std::map<std::pair<const char*, letters>, std::unique_ptr<RE2>> cache;
  auto& re = cache[{pattern, mode}];
  if (!re) re = std::make_unique<RE2>(pattern, options);
  return *re;
}

// Capture i of the oracle's match as an offset pair, "-" when unset.
using captures = std::vector<std::string>;

std::string offsets(std::string_view text, std::string_view part) {
  if (part.data() == nullptr) return "-";
  return std::to_string(part.data() - text.data()) + "+" + std::to_string(part.size());
}

// Matches the oracle found, so that a test can tell that its random texts
// reach the pattern at all.
int oracle_hits = 0;

std::optional<captures> oracle_search(const RE2& re, std::string_view text, std::size_t from) {
  const int n = re.NumberOfCapturingGroups() + 1;
  std::vector<re2::StringPiece> groups(static_cast<std::size_t>(n));
  if (!re.Match(re2::StringPiece(text.data(), text.size()), from, text.size(), RE2::UNANCHORED,
                groups.data(), n)) {
    return std::nullopt;
  }
  ++oracle_hits;
  captures out;
  for (const auto& g : groups) out.push_back(offsets(text, std::string_view(g.data(), g.size())));
  return out;
}

// The end offset of a capture written as "begin+length".
std::size_t end_of(const std::string& part) {
  const std::size_t plus = part.find('+');
  return std::stoul(part.substr(0, plus)) + std::stoul(part.substr(plus + 1));
}

bool oracle_full(const RE2& re, std::string_view text) {
  const bool matched = RE2::FullMatch(re2::StringPiece(text.data(), text.size()), re);
  oracle_hits += matched;
  return matched;
}

// A scanner's result in the oracle's form. An absent unit is "-" for the
// oracle and an empty view for the scanner; both read as "absent".
std::string whole(std::string_view text, span s) {
  return offsets(text, text.substr(s.begin, s.end - s.begin));
}
std::string optional_part(std::string_view text, std::string_view part) {
  return part.empty() ? "-" : offsets(text, part);
}
captures normalise_absent(captures c) {
  for (auto& part : c) {
    if (part.ends_with("+0")) part = "-";
  }
  return c;
}

// A random text near the samples: one of them, changed in a few places by
// tokens, with a few tokens round it.
std::string random_text(std::mt19937& rng, const std::vector<std::string>& samples,
                        const std::vector<std::string_view>& tokens) {
  const auto pick = [&](std::size_t n) {
    return std::uniform_int_distribution<std::size_t>(0, n - 1)(rng);
  };
  const auto noise = [&] {
    std::string out;
    if (pick(2) == 0) return out;
    for (std::size_t n = pick(3); n > 0; --n) out += tokens[pick(tokens.size())];
    return out;
  };
  std::string core = samples[pick(samples.size())];
  for (std::size_t edits = pick(3); edits > 0 && !core.empty(); --edits) {
    const std::size_t at = pick(core.size());
    if (pick(2) == 0) {
      core.erase(at, 1);
    } else {
      core.replace(at, pick(2), tokens[pick(tokens.size())]);
    }
  }
  return noise() + core + noise();
}

// Runs `check` on hand-picked texts and on random ones near them, each in a
// block of exactly its size, so that a scanner that reads past the end of its
// view is reported under the address sanitizer.
template <typename Check>
void against_oracle(const std::vector<std::string>& samples,
                    const std::vector<std::string_view>& tokens, Check check) {
  std::mt19937 rng(7);
  for (const std::string& text : samples) {
    SCOPED_TRACE("sample: " + text);
    const testing_support::exact_buffer exact{text};
    check(exact.view());
  }
  const int hits_before = oracle_hits;
  const int runs = 4000;
  for (int i = 0; i < runs; ++i) {
    const std::string text = random_text(rng, samples, tokens);
    SCOPED_TRACE("random: " + text);
    const testing_support::exact_buffer exact{text};
    check(exact.view());
    if (testing::Test::HasFailure()) return;
  }
  EXPECT_GT(oracle_hits - hits_before, runs / 10)
      << "the random texts rarely match: pick other samples";
}

const std::vector<std::string_view> kCalcTokens = {
    " ", " ", "1", "23", "0",  "-",  "+", "*", "/", ".", ".5", "1.25", "4.567",
    "(", ")", "(", ")",  "px", "em", "%", "p", "x", "e", "PX", "a"};

TEST(Patterns, CommentMatchesTheExpression) {
  against_oracle({"a/*/b*/c", "/* open", "x/**/y/*z*/", "/*/", "**//**/"},
                 {"/", "*", "a", "\n", "/*", "*/"}, [](std::string_view text) {
                   std::vector<captures> expected, got;
                   for (auto m = oracle_search(compiled(kComment), text, 0); m;
                        m = oracle_search(compiled(kComment), text, end_of((*m)[0]))) {
                     expected.push_back({(*m)[0]});
                   }
                   for (auto c = find_comment(text, 0); c; c = find_comment(text, c->end)) {
                     got.push_back({whole(text, *c)});
                   }
                   EXPECT_EQ(got, expected);
                 });
}

TEST(Patterns, RootBlockMatchesTheExpression) {
  against_oracle(
      {"html:root{--a:1}", ":root,body{}:root {x}", ":root{", ":ROOT{}", ":root \n\t{a;b}c}"},
      {":root", ":roo", " ", "\n", "{", "}", "a", ";", ":", "t"}, [](std::string_view text) {
        const auto expected = oracle_search(compiled(kRootBlock), text, 0);
        const auto got = find_root_block(text);
        ASSERT_EQ(got.has_value(), expected.has_value());
        if (got) {
          EXPECT_EQ((captures{whole(text, got->block), whole(text, got->body)}), *expected);
        }
      });
}

TEST(Patterns, DefinitionAndBlankMatchTheExpressions) {
  against_oracle(
      {" --a : 1", "--:1", "--x_y:1", "--1:", "---:a:b", "\n--a\t:\n", "-a:1", "--a b:1"},
      {"--", "-", "a", "Z", "9", "_", " ", "\t", "\n", ":", "x", "\xE9"},
      [](std::string_view text) {
        const RE2& re = compiled(kDefinition);
        re2::StringPiece name, value;
        const bool expected =
            RE2::FullMatch(re2::StringPiece(text.data(), text.size()), re, &name, &value);
        oracle_hits += expected;
        const auto got = match_definition(text);
        ASSERT_EQ(got.has_value(), expected);
        if (got) {
          EXPECT_EQ(offsets(text, got->name),
                    offsets(text, std::string_view(name.data(), name.size())));
          EXPECT_EQ(offsets(text, got->value),
                    offsets(text, std::string_view(value.data(), value.size())));
        }
        EXPECT_EQ(is_blank(text), oracle_full(compiled(kBlank), text));
      });
}

TEST(Patterns, ReferenceMatchesTheExpression) {
  against_oracle(
      {"var(--a) var( --b)var(--c )", "var(var(--a)", "var(x var(--y)", "var(abvar( --x)", "var()",
       "var(--a,1px)", "VAR(--a)", "var(--a"},
      {"var(", "va", "r(", "--a", ",", " ", "\n", ")", "(", "x", "v"}, [](std::string_view text) {
        std::vector<captures> expected, got;
        std::size_t from = 0;
        while (auto m = oracle_search(compiled(kReference), text, from)) {
          expected.push_back(*m);
          from = end_of((*m)[0]);
        }
        for (auto r = find_reference(text, 0); r; r = find_reference(text, r->whole.end)) {
          // An empty name is still a capture that took part.
          got.push_back({whole(text, r->whole), offsets(text, r->name)});
        }
        EXPECT_EQ(got, expected);
      });
}

TEST(Patterns, GroupMatchesTheExpression) {
  against_oracle(
      {"( 1px )", "((2))", "(1.234)", "( ( 3 ) )", "(-2)", "(1 + 2)", "( -1.5% )"}, kCalcTokens,
      [](std::string_view text) {
        const auto expected = oracle_search(compiled(kGroup), text, 0);
        const auto got = find_group(text);
        ASSERT_EQ(got.has_value(), expected.has_value());
        if (got) {
          EXPECT_EQ((captures{whole(text, got->whole), offsets(text, got->inner)}), *expected);
        }
      });
}

TEST(Patterns, ProductAndSumMatchTheExpressions) {
  const std::vector<std::string> samples = {
      "1.234 * 2",           "2 * 3 4",         "1--2",     "1 -2",    "2*-3", "10 px", ".5 * 2",
      "(1 + 2) * 3px - 1px", "99999999999 + 0", "1 + 1rem", "2 * 10PX"};
  for (const char op : {'*', '+'}) {
    SCOPED_TRACE(op == '*' ? "product" : "sum");
    const RE2& re = compiled(op == '*' ? kProduct : kSum);
    against_oracle(samples, kCalcTokens, [&](std::string_view text) {
      const auto expected = oracle_search(re, text, 0);
      const auto got = op == '*' ? find_product(text) : find_sum(text);
      ASSERT_EQ(got.has_value(), expected.has_value());
      if (!got) return;
      const captures mine = {whole(text, got->whole),
                             offsets(text, got->left.number),
                             optional_part(text, got->left.unit),
                             (*expected)[3],
                             offsets(text, got->right.number),
                             optional_part(text, got->right.unit)};
      EXPECT_EQ(mine, normalise_absent(*expected));
      EXPECT_EQ(got->op, text[std::stoul((*expected)[3])]);
    });
  }
}

TEST(Patterns, ValueMatchesTheExpression) {
  against_oracle(
      {" 3 ", "1.50", "-2.5%", "0em", " 7px", "1.", "-", " ( 3 ) ", "10px ", "  1", "1.234"},
      kCalcTokens, [](std::string_view text) {
        EXPECT_EQ(is_value(text), oracle_full(compiled(kValue), text));
      });
}

TEST(Patterns, RoundMatchesTheExpression) {
  against_oracle(
      {"round( up , 1.5 , 1 )", "round(up,1.5,1)", "round(up, 1.5)", "round(1, 2, 3)",
       "round(UP, 1.5, 1)", "round (1.5, 1)", "x round(1.5px, 1em) y", "round(nearest,-1,-0.25%)",
       "round(round(1, 1), 1)", "round(to-zero, 1, 1) round(2, 1)"},
      {"round(", "up", "down", "nearest", "to-zero", "UP", " ", ",", ")", "1", "2.5", "-", "px",
       "%", "em", "0", "(", "x"},
      [](std::string_view text) {
        const auto expected = oracle_search(compiled(kRound), text, 0);
        const auto got = find_round(text);
        ASSERT_EQ(got.has_value(), expected.has_value());
        if (!got) return;
        const captures mine = {
            whole(text, got->whole),          optional_part(text, got->strategy),
            offsets(text, got->value.number), optional_part(text, got->value.unit),
            offsets(text, got->step.number),  optional_part(text, got->step.unit)};
        EXPECT_EQ(mine, normalise_absent(*expected));
      });
}

TEST(Patterns, ImageMatchesTheExpression) {
  against_oracle(
      {"url(url(a.png))", "url(a.png.gif)", "URL( 'B.JPG\" )", "url(\"\"a.png)", "url(.png)",
       "url(..png)", "xurl(a.png)", "url(a.png", "url(img/a.png)", "url(a.jpeg)"},
      {"url(", "URL(", "uRl", "(", ")", "a", "B", ".", ".png", ".GIF", ".jpg", "_", "-", "'", "\"",
       " ", "\n", "/", "\xC3"},
      [](std::string_view text) {
        const RE2& re = compiled(kImage, letters::any_case);
        std::vector<captures> expected, got;
        std::size_t from = 0;
        while (auto m = oracle_search(re, text, from)) {
          expected.push_back(*m);
          from = end_of((*m)[0]);
        }
        for (auto i = find_image(text, 0); i; i = find_image(text, i->whole.end)) {
          got.push_back({whole(text, i->whole), offsets(text, i->name)});
        }
        EXPECT_EQ(got, expected);
      });
}

#else

// RE2, the oracle of these tests, is built for Linux only (Debian has no
// MinGW build of it): where it is missing they say so and skip.
#define TVBASE_ORACLE_TEST(name) \
  TEST(Patterns, name) { GTEST_SKIP() << "RE2, the oracle of this test, is not built here"; }
TVBASE_ORACLE_TEST(CommentMatchesTheExpression)
TVBASE_ORACLE_TEST(RootBlockMatchesTheExpression)
TVBASE_ORACLE_TEST(DefinitionAndBlankMatchTheExpressions)
TVBASE_ORACLE_TEST(ReferenceMatchesTheExpression)
TVBASE_ORACLE_TEST(GroupMatchesTheExpression)
TVBASE_ORACLE_TEST(ProductAndSumMatchTheExpressions)
TVBASE_ORACLE_TEST(ValueMatchesTheExpression)
TVBASE_ORACLE_TEST(RoundMatchesTheExpression)
TVBASE_ORACLE_TEST(ImageMatchesTheExpression)
#undef TVBASE_ORACLE_TEST

#endif  // TVBASE_HAVE_RE2

// Inputs far beyond what a backtracking matcher survives, sized to stay fast.
TEST(Patterns, LongRunsNeitherRecurseNorRescan) {
  const std::string name_bytes(1 << 20, 'a');
  const std::string url_run = "url(" + name_bytes;
  EXPECT_FALSE(find_image(url_run, 0).has_value());
  EXPECT_EQ(find_image(url_run + ".png)", 0)->name.size(), name_bytes.size() + 4);

  std::string vars;
  for (int i = 0; i < 100000; ++i) vars += "var(";
  EXPECT_FALSE(find_reference(vars + " x", 0).has_value());
  // The match holds views into the text, which must outlive it.
  const std::string ended = vars + " --x)";
  const auto last = find_reference(ended, 0);
  ASSERT_TRUE(last.has_value());
  EXPECT_EQ(last->name, "--x");

  const std::string comment = "a/*" + name_bytes + "*/b";
  const auto c = find_comment(comment, 0);
  ASSERT_TRUE(c.has_value());
  EXPECT_EQ(c->end, comment.size() - 1);

  const std::string digits(1 << 20, '7');
  EXPECT_FALSE(find_product(digits).has_value());
  EXPECT_FALSE(find_sum(digits + "x+1").has_value());
}

}  // namespace
}  // namespace css_processor
