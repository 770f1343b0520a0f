#include "resolve.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace css_processor {
namespace {

const variable_table kTable = {{"--a", "1px"},   {"--n", "3"},        {"--e", ""},
                               {"--s", "1 + 2"}, {"--r", "var(--n)"}, {"--lf", "a\nb"}};

struct row {
  std::string text;
  std::string expected;  // the text afterwards, or the message
  bool fails = false;
};

row ok(std::string text, std::string result) { return {std::move(text), std::move(result)}; }
row bad(std::string text, std::string message) {
  return {std::move(text), std::move(message), true};
}

std::string undefined(const std::string& name) { return "Variable " + name + " is undefined."; }
const std::string kMismatched = "Mismatched parentheses in calc() in definition for variable --v.";

void check(std::optional<std::string_view> name, const std::vector<row>& rows) {
  for (const row& r : rows) {
    SCOPED_TRACE(r.text);
    std::string text = r.text;
    const auto message = resolve_values(name, kTable, text, {SIZE_MAX, 0});
    if (r.fails) {
      EXPECT_EQ(message.value_or("(no message; text " + text + ")"), r.expected);
    } else {
      EXPECT_EQ(message.value_or(""), "");
      EXPECT_EQ(text, r.expected);
    }
  }
}

TEST(ResolveValues, ReplacesReferences) {
  check(std::nullopt, {
                          ok("", ""),
                          ok("x var(--a) y var(--a) z", "x 1px y 1px z"),
                          ok("var(--a)var(--n)", "1px3"),
                          ok("xvar(--a)", "x1px"),
                          ok("[var(--e)]", "[]"),
                          ok("var( --a)", "1px"),
                          ok("var(\t\r\n --a)", "1px"),
                          ok("var(--a )", "var(--a )"),
                          ok("var( --a )", "var( --a )"),
                          ok("var(--a, 1px)", "var(--a, 1px)"),
                          ok("VAR(--a)", "VAR(--a)"),
                          ok("var (--a)", "var (--a)"),
                          ok("var(--a", "var(--a"),
                          ok("var(--a))", "1px)"),
                          ok("var(--r)", "var(--n)"),  // a stored value is not scanned again
                          ok("p{q:var(--lf)}", "p{q:a\nb}"),
                          ok("\xC3\xA9var(--n)\xFF",
                             "\xC3\xA9"
                             "3\xFF"),
                          ok("calc(var(--n) + 1)", "calc(3 + 1)"),  // no arithmetic without a name
                          ok("calc(1 + 2", "calc(1 + 2"),
                          bad("var(--a,1px)", undefined("--a,1px")),
                          bad("var()", undefined("")),
                          bad("var(var(--a)", undefined("var(--a")),
                          bad("var( )", undefined("")),
                          bad("var(--A)", undefined("--A")),
                          bad("var(--a) var(--nope)", undefined("--nope")),
                      });
}

TEST(ResolveValues, LeavesTheTextAsItWasOnAnUndefinedName) {
  std::string text = "a var(--a) b var(--nope) c var(--n)";
  EXPECT_EQ(resolve_values(std::nullopt, kTable, text, {SIZE_MAX, 0}), undefined("--nope"));
  EXPECT_EQ(text, "a var(--a) b var(--nope) c var(--n)");
}

TEST(ResolveValues, EvaluatesCalcInDefinitions) {
  check(
      "--v",
      {
          ok("calc(1 + 2)px", "3px"),
          ok("xcalc(2)", "x2"),
          ok("CALC(1)", "CALC(1)"),
          ok("calc (1)", "calc (1)"),
          ok("round(1.5, 1)", "round(1.5, 1)"),
          ok("calc(round(1.5, 1))", "2"),
          ok("a calc(2 * 3) b calc(1 + 1) c", "a 6 b 2 c"),
          ok("calc(1))", "1)"),
          ok("calc(var(--n) * 2)", "6"),
          ok("calc(var(--a) * 2)", "2px"),
          ok("calc(var(--s) * 2)", "5"),  // the value enters without parentheses
          ok("calc( 3 )", " 3 "),
          ok("calc( 1 + 2 )", "3"),
          ok("calc(\n1\n+\n2\n)", "3"),
          ok("1px solid var(--a)", "1px solid 1px"),
          bad("calc(1 + (2 * 3)", kMismatched),
          bad("calc(1 + 1) calc(", kMismatched),
          bad("calc(var(--nope) + 1) calc(1", undefined("--nope")),
          bad("calc(1px + 1em) calc(",
              "Error in calc() for variable --v: cannot add/subtract different unit values."),
          bad("calc(calc(1))", "Error in calc() for variable --v: expression (calc1) is invalid."),
          bad("calc()", "Error in calc() for variable --v: expression () is invalid."),
      });
}

TEST(ResolveValues, KeepsReferencesReplacedWhenCalcFails) {
  std::string text = "var(--n) calc(1 / 3) calc(1 + 1)";
  EXPECT_EQ(resolve_values("--v", kTable, text, {SIZE_MAX, 0}),
            "Error in calc() for variable --v: expression (error_div) is invalid.");
  EXPECT_EQ(text, "3 calc(1 / 3) calc(1 + 1)");
}

TEST(ResolveValues, HandlesManyReferencesAndDeepParentheses) {
  std::string text;
  std::string expected;
  for (int i = 0; i < 100000; ++i) {
    text += "var(--n) ";
    expected += "3 ";
  }
  ASSERT_EQ(resolve_values(std::nullopt, kTable, text, {SIZE_MAX, 0}), std::nullopt);
  EXPECT_EQ(text, expected);

  std::string unclosed = "calc(" + std::string(200000, '(') + "1" + std::string(199999, ')');
  EXPECT_EQ(resolve_values("--v", kTable, unclosed, {SIZE_MAX, 0}), kMismatched);
}

}  // namespace
}  // namespace css_processor
