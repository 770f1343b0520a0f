#include "calc.h"

#include <climits>
#include <cstdlib>
#include <functional>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <tvbase/testing/allocation_counter.h>
#include <tvbase/testing/exact_buffer.h>

#include "patterns.h"

namespace css_processor {
namespace {

// Number texts lie in blocks of exactly their size, so a read past the end of
// a view is reported under the address sanitizer.
using testing_support::exact_buffer;

TEST(ParseHundredths, ReadsNumberTexts) {
  struct row {
    std::string text;
    std::optional<hundredths> expected;
  };
  const std::vector<row> rows = {
      {"1", 100},
      {"1.5", 150},
      {"1.25", 125},
      {"-3.5", -350},
      {"0.05", 5},
      {"1.", 100},
      {".5", 50},
      {"", 0},
      {"-", 0},
      {"007", 700},
      {"1.255", {}},
      {"--1", {}},
      {"1-", {}},
      {"1.2.3", {}},
      {"1px", {}},
      {"+1", {}},
      {" 1", {}},
      {"21474836.47", INT_MAX},
      {"21474836.48", INT_MIN},
      {"-21474836.48", INT_MIN},
      {"99999999999", 1316134812},
  };
  for (const row& r : rows) {
    SCOPED_TRACE(r.text);
    hundredths value = 12345;
    const exact_buffer text{r.text};
    EXPECT_EQ(parse_hundredths(text.view(), value), r.expected.has_value());
    if (r.expected) {
      EXPECT_EQ(value, *r.expected);
    }
  }
}

TEST(FormatHundredths, WritesTheShortestText) {
  const std::vector<std::pair<hundredths, std::string>> rows = {
      {0, "0"},
      {100, "1"},
      {1000, "10"},
      {150, "1.5"},
      {125, "1.25"},
      {105, "1.05"},
      {50, "0.5"},
      {5, "0.05"},
      {-150, "-1.5"},
      {-25, "-0.25"},
      {-1, "-0.01"},
      {INT_MAX, "21474836.47"},
      {INT_MIN, "-21474836.48"},
  };
  for (const auto& [value, expected] : rows) {
    SCOPED_TRACE(value);
    EXPECT_EQ(format_hundredths(value), expected);
  }
}

TEST(FormatHundredths, ReadsBackToTheSameNumber) {
  std::mt19937 rng(3);
  std::uniform_int_distribution<hundredths> any(INT_MIN, INT_MAX);
  for (int i = 0; i < 20000; ++i) {
    const hundredths v = i < 200 ? i - 100 : any(rng);
    hundredths back = 0;
    ASSERT_TRUE(parse_hundredths(format_hundredths(v), back)) << v;
    ASSERT_EQ(back, v);
  }
}

TEST(ApplyOperator, ComputesInWrappingHundredths) {
  struct row {
    const char* left;
    char op;
    const char* right;
    const char* expected;
  };
  const std::vector<row> rows = {
      {"1", '+', "2", "3"},
      {"1", '-', "2", "-1"},
      {"0.5", '+', "0.25", "0.75"},
      {"1.50", '+', "0", "1.5"},
      {"0.1", '*', "0.1", "0.01"},
      {"-1.5", '*', "2", "-3"},
      {"1.11", '*', "1.11", "error_mul"},
      {"-0.5", '*', "0.03", "error_mul"},  // a negative remainder is a remainder
      {"100", '*', "1000", "100000"},
      {"1000", '*', "1000", "error_mul"},  // 10^10 wraps to a count that is no whole hundredth
      {"10", '/', "4", "2.5"},
      {"1", '/', "4", "0.25"},
      {"-7", '/', "2", "-3.5"},
      {"1", '/', "3", "error_div"},
      {"1", '/', "8", "error_div"},
      {"1", '/', "0", "error_div_by_0"},
      {"0", '/', "0", "error_div_by_0"},
      {"21474836.47", '+', "0.01", "-21474836.48"},
      {"-21474836.48", '-', "0.01", "21474836.47"},
      {"99999999999", '+', "0", "13161348.12"},
      {"5368709.12", '/', "-0.01", "-21474836.48"},  // the one quotient that leaves the range
      {"x", '+', "1", "error_bad_value"},
      {"1", '*', "1.234", "error_bad_value"},
  };
  for (const row& r : rows) {
    SCOPED_TRACE(std::string(r.left) + ' ' + r.op + ' ' + r.right);
    const exact_buffer left{r.left};
    const exact_buffer right{r.right};
    EXPECT_EQ(apply_operator(left.view(), right.view(), r.op), r.expected);
  }
}

TEST(RoundToStep, FollowsEachStrategy) {
  using enum round_strategy;
  struct row {
    const char* value;
    const char* step;
    round_strategy strategy;
    const char* expected;
  };
  const std::vector<row> rows = {
      {"1.5", "1", up, "2"},
      {"1.5", "1", down, "1"},
      {"1.5", "1", nearest, "2"},
      {"1.5", "1", to_zero, "1"},
      {"-1.5", "1", up, "-1"},
      {"-1.5", "1", down, "-2"},
      {"-1.5", "1", nearest, "-2"},
      {"-1.5", "1", to_zero, "-1"},
      {"2.5", "1", nearest, "3"},
      {"-2.5", "1", nearest, "-3"},
      {"0.5", "1", nearest, "1"},
      {"-0.5", "1", nearest, "-1"},
      {"-1.4", "1", nearest, "-1"},
      {"1.24", "0.5", nearest, "1"},
      {"1.25", "0.5", nearest, "1.5"},
      {"1.5", "0.5", up, "1.5"},
      {"1.5", "0.5", down, "1.5"},
      {"-1.5", "0.5", down, "-1.5"},
      {"0.01", "1", up, "1"},
      {"-0.01", "1", down, "-1"},
      {"-0.01", "1", to_zero, "0"},
      {"0", "1", up, "0"},
      {"0.12", "0.25", nearest, "0"},
      {"0.13", "0.25", nearest, "0.25"},
      {"1.5", "-1", nearest, "2"},
      {"1.5", "-1", up, "2"},
      {"1.5", "-1", down, "1"},
      {"15", "10", nearest, "20"},
      {"14", "10", nearest, "10"},
      {"1.5", "0", up, "error_div_by_0"},
      {"1.5", "x", up, "error_bad_value"},
  };
  for (const row& r : rows) {
    SCOPED_TRACE(std::string(r.value) + " by " + r.step + " strategy " +
                 std::to_string(static_cast<int>(r.strategy)));
    const exact_buffer value{r.value};
    const exact_buffer step{r.step};
    EXPECT_EQ(round_to_step(value.view(), step.view(), r.strategy), r.expected);
  }
}

std::string invalid(const std::string& expression) {
  return "Error in calc() for variable --v: expression (" + expression + ") is invalid.";
}

struct calc_row {
  std::string expression;
  std::string expected;  // the finished value, or the message
  bool fails = false;
};

calc_row ok(std::string expression, std::string value) {
  return {std::move(expression), std::move(value)};
}
calc_row bad(std::string expression, std::string message) {
  return {std::move(expression), std::move(message), true};
}
calc_row invalid_as(std::string expression, const std::string& left) {
  return bad(std::move(expression), invalid(left));
}

void check(const std::vector<calc_row>& rows) {
  for (const calc_row& r : rows) {
    SCOPED_TRACE("calc(" + r.expression + ")");
    std::string expression = r.expression;
    const auto message = evaluate_calc("--v", expression);
    if (r.fails) {
      EXPECT_EQ(message.value_or("(no message; value " + expression + ")"), r.expected);
    } else {
      EXPECT_EQ(message.value_or(""), "");
      EXPECT_EQ(expression, r.expected);
    }
  }
}

TEST(EvaluateCalc, ReducesOnePiecePerPass) {
  check({
      ok("1 + 2 * 3", "7"),
      ok("(1 + 2) * 3", "9"),
      ok("2 * (3 + 4)", "14"),
      ok("2*(3+(4-1))", "12"),
      ok("((2))", "2"),
      ok("8 / 2 * 3", "12"),
      ok("3 - 2 - 1", "0"),
      ok("1+2", "3"),
      ok("1 +2", "3"),
      ok("1-2", "-1"),
      ok("2--3", "5"),
      ok("2*-3", "-6"),
      ok("1 - (-2)", "3"),
      ok("1\t+\r\n2", "3"),
      ok("1      +   2", "3"),
      ok("2 * (3 + 4) + 1", "15"),
      ok("-(2)", "-2"),
      ok("(1 + 2) * 3px - 1px", "8px"),
      // A sum left of a product whose factor is not yet one value goes first.
      ok("1 + 2 * (3 + 4)", "21"),
      ok("round(1.5, 1) * 2 + 3", "10"),
      // The rewriting works on the text.
      ok("2 * 3 4", "64"),
      ok("2 + 3 4", "54"),
      ok("(1 + 2)3", "33"),
      ok("2(3)", "23"),
      ok("(2)px", "2px"),
      ok("( 1px )", " 1px "),
      ok(" 3 ", " 3 "),
      ok("\t3\n", " 3 "),
      ok("1.50", "1.50"),
      ok("1.50 + 0", "1.5"),
      ok("1 + 10 px", "11px"),
      ok("99999999999", "99999999999"),
      ok("1 / 2 * 4", "2"),
  });
}

TEST(EvaluateCalc, CarriesAndChecksUnits) {
  const std::string multiply = "Error in calc() for variable --v: cannot multiply 2 unit values.";
  const std::string divide = "Error in calc() for variable --v: cannot divide by a unit value.";
  const std::string different =
      "Error in calc() for variable --v: cannot add/subtract different unit values.";
  const std::string mixed =
      "Error in calc() for variable --v: cannot add/subtract a value and a unit value.";
  check({
      ok("10px + 5px", "15px"),
      ok("10% - 5%", "5%"),
      ok("1em + 1em", "2em"),
      ok("2 * 3px", "6px"),
      ok("3px * 2", "6px"),
      ok("50% * 2", "100%"),
      ok("6px / 2", "3px"),
      ok("1px / 2", "0.5px"),
      bad("2px * 3em", multiply),
      bad("2px * 3px", multiply),
      bad("6 / 2px", divide),
      bad("3px / 2px", divide),
      bad("1 / 0px", divide),
      bad("1px + 1em", different),
      bad("1% - 1px", different),
      bad("10px + 5", mixed),
      bad("5 + 10px", mixed),
      bad("0 + 5px", mixed),
      // The first piece decides: the product fails before the sum is looked at.
      bad("1px + 1em * 2em", multiply),
      invalid_as("10PX", "10PX"),
      invalid_as("1rem + 1rem", "1rem + 1rem"),
      invalid_as("2 * 10PX", "20PX"),
      invalid_as("1 + 1rem", "2rem"),
      invalid_as("10 px", "10 px"),
  });
}

TEST(EvaluateCalc, ResultWordsMakeTheExpressionInvalid) {
  check({
      invalid_as("1 / 3", "error_div"),
      invalid_as("1 / 8", "error_div"),
      invalid_as("1.11 * 1.11", "error_mul"),
      invalid_as("1000 * 1000", "error_mul"),
      invalid_as("1 / 0", "error_div_by_0"),
      invalid_as("1px / 3", "error_divpx"),
      invalid_as("1 / 3 + 1", "error_div+ 1"),
      invalid_as("1 / 0 + 1", "error_div_by_1"),
      invalid_as("1 / 0 * 2", "error_div_by_0"),
      invalid_as("round(1.5, 0)", "error_div_by_0"),
      invalid_as("round(1px, 0px)", "error_div_by_0px"),
  });
}

TEST(EvaluateCalc, RejectsWhatIsNoExpression) {
  check({
      invalid_as("", ""),
      invalid_as(" \t\n", " "),
      invalid_as(" ( 3 ) ", "  3  "),
      invalid_as("-(-2)", "--2"),
      invalid_as("- 1", "- 1"),
      invalid_as("1 2", "1 2"),
      invalid_as("1 + + 2", "1 + + 2"),
      invalid_as("1 +", "1 +"),
      invalid_as("+ 1", "+ 1"),
      invalid_as("* 2", "* 2"),
      invalid_as("abc", "abc"),
      invalid_as("min(1, 2)", "min(1, 2)"),
      invalid_as("sin(1)", "sin1"),
      invalid_as("max(1 + 1, 2)", "max(2, 2)"),
      invalid_as("(1 + 2", "(3"),
      invalid_as("1 + 2)", "3)"),
      invalid_as("()", "()"),
      invalid_as("1.234", "1.234"),
      invalid_as("1.234 * 2", "1.468"),
      invalid_as(".5 * 2", ".10"),
      invalid_as("calc1", "calc1"),
      invalid_as("1\xC3\xA9 + 1", "1\xC3\xA9 + 1"),
  });
}

TEST(EvaluateCalc, RoundsWhenNothingElseFits) {
  const std::string different =
      "Error in round() for variable --v: cannot round different unit values.";
  const std::string mixed =
      "Error in round() for variable --v: cannot round a value and a unit value.";
  check({
      ok("round(up, 1.5, 1)", "2"),
      ok("round(down, 1.5, 1)", "1"),
      ok("round(nearest, 1.5, 1)", "2"),
      ok("round(to-zero, 1.5, 1)", "1"),
      ok("round(-2.5, 1)", "-3"),
      ok("round(15px, 10px)", "20px"),
      ok("round(14%, 10%)", "10%"),
      ok("round(up, 14em, 10em)", "20em"),
      ok("round( up , 1.5 , 1 )", "2"),
      ok("round(up,1.5,1)", "2"),
      ok("round(1 + 1, 1)", "2"),
      ok("round((1 + 1), 1)", "2"),
      ok("round(round(1.5, 1), 1)", "2"),
      ok("1 + round(1.5, 1)", "3"),
      ok("2 * round(1.5, 1)", "4"),
      ok("round(1.5, 1) * 2", "4"),
      bad("round(1.5px, 1)", mixed),
      bad("round(1.5, 1px)", mixed),
      bad("round(1.5px, 0)", mixed),  // units are checked before the step
      bad("round(1.5px, 1em)", different),
      invalid_as("round(1.5)", "round1.5"),
      invalid_as("round(up, 1.5)", "round(up, 1.5)"),
      invalid_as("round(1, 2, 3)", "round(1, 2, 3)"),
      invalid_as("round(UP, 1.5, 1)", "round(UP, 1.5, 1)"),
      invalid_as("round(sideways, 1.5, 1)", "round(sideways, 1.5, 1)"),
      invalid_as("ROUND(1.5, 1)", "ROUND(1.5, 1)"),
      invalid_as("round (1.5, 1)", "round (1.5, 1)"),
      invalid_as("x round(1.5, 1) y", "x 2 y"),
      invalid_as("round(1, 1) round(2, 1)", "1 2"),
  });
}

TEST(EvaluateCalc, NestsDeepWithoutRecursion) {
  // Each level is a pass, which tries only the places next to the last
  // edit: a million levels take linear time.
  const int depth = 1000000;
  std::string nested = std::string(depth, '(') + "1.5px" + std::string(depth, ')');
  ASSERT_EQ(evaluate_calc("--v", nested), std::nullopt);
  EXPECT_EQ(nested, "1.5px");

  std::string sums;
  for (int i = 0; i < 100000; ++i) sums += "(1 + ";
  sums += "1" + std::string(100000, ')');
  ASSERT_EQ(evaluate_calc("--v", sums), std::nullopt);
  EXPECT_EQ(sums, "100001");

  // A long chain, reduced from its left end.
  std::string chain = "1";
  for (int i = 0; i < 100000; ++i) chain += i % 2 ? " - 1" : " + 2 * 1";
  ASSERT_EQ(evaluate_calc("--v", chain), std::nullopt);
  EXPECT_EQ(chain, "50001");
}

// The passes as written: each looks for the leftmost piece of the first kind
// that has one in the whole text, and rebuilds the text. Quadratic, and the
// oracle for evaluate_calc, which does the same passes where they can have
// changed anything.
std::optional<std::string> reference_calc(std::string_view name, std::string& expression) {
  std::string text;
  for (std::size_t i = 0; i < expression.size();) {
    const auto space = [&](std::size_t at) {
      return at < expression.size() && (expression[at] == ' ' || expression[at] == '\t' ||
                                        expression[at] == '\r' || expression[at] == '\n');
    };
    if (!space(i)) {
      text += expression[i++];
      continue;
    }
    while (space(i)) ++i;
    text += ' ';
  }
  const auto unit_error = [&](std::string_view l, std::string_view r,
                              char op) -> std::optional<std::string> {
    const std::string head = "Error in calc() for variable " + std::string(name) + ": ";
    if (op == '*' && !l.empty() && !r.empty()) return head + "cannot multiply 2 unit values.";
    if (op == '/' && !r.empty()) return head + "cannot divide by a unit value.";
    if ((op == '+' || op == '-') && l != r) {
      return head + (!l.empty() && !r.empty() ? "cannot add/subtract different unit values."
                                              : "cannot add/subtract a value and a unit value.");
    }
    return std::nullopt;
  };
  for (;;) {
    expression = text;
    span whole;
    std::string with;
    if (const auto g = find_group(text)) {
      whole = g->whole;
      with = g->inner;
    } else if (auto m = find_product(text); m || (m = find_sum(text))) {
      if (auto message = unit_error(m->left.unit, m->right.unit, m->op)) return message;
      whole = m->whole;
      with = apply_operator(m->left.number, m->right.number, m->op);
      with += m->op == '/' || m->left.unit.empty()
                  ? m->right.unit.empty() ? m->left.unit : m->right.unit
                  : m->left.unit;
    } else if (is_value(text)) {
      return std::nullopt;
    } else if (const auto r = find_round(text)) {
      if (r->value.unit != r->step.unit) {
        return "Error in round() for variable " + std::string(name) + ": " +
               (!r->value.unit.empty() && !r->step.unit.empty()
                    ? "cannot round different unit values."
                    : "cannot round a value and a unit value.");
      }
      whole = r->whole;
      const std::string_view s = r->strategy;
      const round_strategy strategy = s == "up"        ? round_strategy::up
                                      : s == "down"    ? round_strategy::down
                                      : s == "to-zero" ? round_strategy::to_zero
                                                       : round_strategy::nearest;
      with = round_to_step(r->value.number, r->step.number, strategy) + std::string(r->value.unit);
    } else {
      return "Error in calc() for variable " + std::string(name) + ": expression (" + text +
             ") is invalid.";
    }
    text.replace(whole.begin, whole.end - whole.begin, with);
  }
}

std::string repeat(std::string_view piece, std::size_t times) {
  std::string out;
  for (std::size_t i = 0; i < times; ++i) out += piece;
  return out;
}

// Shapes that once made passes read the same digits again and again: a run
// of digits that every edit grows (each edit then walked back over the whole
// run, and each search read it, so that 300 KB took 6.8 s), edits on both
// sides of a long run in turn, many round() calls behind a long number, and
// sums whose right number takes two digits of a long run. Each reduces as
// the passes as written do (checked against them at a small size); at sizes
// a hundred times apart, the places tried, the digits read and the bytes
// held per byte of expression stay under one bound, and the places tried
// per byte do not grow.
TEST(EvaluateCalc, HostileShapesCostWorkAndMemoryLinearInTheirLength) {
  struct row {
    const char* name;
    std::string (*make)(std::size_t n);
  };
  const row rows[] = {
      {"a run that every group grows", [](std::size_t n) { return "1" + repeat("(1)", n / 3); }},
      {"edits on both sides of a long run",
       [](std::size_t n) {
         return std::string(n / 8, '(') + std::string(n / 2, '7') + repeat("(1))", n / 8);
       }},
      {"round() calls behind a long number",
       [](std::size_t n) { return std::string(n / 2, '9') + repeat(" round(1, 1)", n / 24); }},
      {"right numbers that take two digits of a long run",
       [](std::size_t n) { return "1 + 2." + std::string(n / 2, '3') + repeat(" + 1", n / 8); }},
      {"products into long numbers",
       [](std::size_t n) { return std::string(n / 2, '5') + repeat(" * 1 + (2)", n / 20); }},
  };
  const std::size_t sizes[] = {30000, 300000, 3000000};
  const bool counted = testing_support::allocations_counted();
  for (const row& r : rows) {
    SCOPED_TRACE(r.name);
    std::string small = r.make(1800);
    std::string expected = small;
    const auto expected_message = reference_calc("--v", expected);
    EXPECT_EQ(evaluate_calc("--v", small), expected_message);
    EXPECT_EQ(small, expected);

    double first_looked = 0;
    for (const std::size_t n : sizes) {
      SCOPED_TRACE(n);
      std::string big = r.make(n);
      const auto length = static_cast<double>(big.size());
      calc_work work;
      const std::size_t held = testing_support::peak_bytes_during(
          [&] { static_cast<void>(evaluate_calc("--v", big, &work)); });
      const double looked = static_cast<double>(work.cells_looked_at) / length;
      const double read = static_cast<double>(work.digits_read) / length;
      const double bytes = static_cast<double>(held) / length;
      EXPECT_LE(looked, 10);
      EXPECT_LE(read, 3);
      if (counted) {
        EXPECT_LE(bytes, 16);
      }
      // Linear work has a share per byte that settles as the text grows;
      // anything worse grows it with the length. (The bytes held are
      // bounded only: the stores grow by doubling, so their share per byte
      // swings by up to two between sizes.)
      if (n == sizes[0]) {
        first_looked = looked;
      } else {
        EXPECT_LE(looked, 1.1 * first_looked);
      }
    }
  }
  std::string grown = "1" + repeat("(1)", 100000);
  ASSERT_EQ(evaluate_calc("--v", grown), std::nullopt);
  EXPECT_EQ(grown, std::string(100001, '1'));
}

// A piece that an edit completes although its start lies far in front of
// the edit, and in front of where the search for its kind has got to: the
// outer round() is tried, fails, and becomes whole only when the inner one
// has been computed and its parentheses dropped.
TEST(EvaluateCalc, FindsPiecesThatAnEditCompletesFarBehindTheirStart) {
  check({
      ok("round( nearest , -1.25px , -2.2(round(5, 1))px )", "-2.25px"),
      ok("round( to-zero , -1.25 , -2.2(round(5, 1)) )", "0"),
      ok(" -1.25px * -(round(5, 1)) ", "6.25px"),
      ok("1 + 2 - round(up, 1, round(1, 1)) + (round(2, 1))", "4"),
  });
  // The same expressions after an unrelated piece far in front of them.
  std::string far = "1 * 1 + 0";
  for (int i = 0; i < 100; ++i) far += " + (0)";
  far += " + round( nearest , -1.25 , -2.2(round(5, 1)) )";
  ASSERT_EQ(evaluate_calc("--v", far), std::nullopt);
  EXPECT_EQ(far, "-1.25");
}

// Random expressions: nested groups, operations and round() calls with
// numbers, units and blanks of every kind, some of them then damaged by
// stray bytes, reduced by both.
TEST(EvaluateCalc, DoesThePassesOfTheReference) {
  std::mt19937 rng(11);
  const auto pick = [&](std::size_t n) {
    return std::uniform_int_distribution<std::size_t>(0, n - 1)(rng);
  };
  const char* const numbers[] = {"0",    "1",    "2",     "7",           "10",
                                 "1.5",  "0.25", "-3",    "12.5",        "100",
                                 "0.01", "-0.5", "4.567", "99999999999", "3"};
  const char* const units[] = {"", "", "", "px", "em", "%", "PX", "rem"};
  const char* const ops[] = {"+", "-", "*", "/"};
  const char* const blanks[] = {"", "", " ", "  ", "\t", "\n "};
  const char* const strategies[] = {"up", "down", "nearest", "to-zero", "UP"};
  const char* const stray[] = {"(", ")", " ",  "-",      "+", "*", "/",
                               ".", "1", "px", "round(", ",", "x"};
  std::function<std::string(int)> expression = [&](int depth) {
    std::string out;
    const std::size_t terms = 1 + pick(depth > 0 ? 4 : 3);
    for (std::size_t t = 0; t < terms; ++t) {
      if (t > 0)
        out += std::string(blanks[pick(std::size(blanks))]) + ops[pick(std::size(ops))] +
               blanks[pick(std::size(blanks))];
      const std::size_t shape = depth > 0 ? pick(6) : 0;
      if (shape == 4) {
        out += "(" + std::string(blanks[pick(std::size(blanks))]) + expression(depth - 1) +
               blanks[pick(std::size(blanks))] + ")";
      } else if (shape == 5) {
        out += "round(";
        if (pick(2) == 0)
          out += std::string(strategies[pick(std::size(strategies))]) + blanks[pick(3)] + ",";
        out += blanks[pick(3)] + expression(depth - 1) + blanks[pick(3)] + "," + blanks[pick(3)] +
               expression(depth - 1) + ")";
      } else {
        out += std::string(numbers[pick(std::size(numbers))]) + units[pick(std::size(units))];
      }
    }
    return out;
  };
  // Or a soup of the bytes that pieces are made of, which reduces in fewer
  // and stranger steps.
  const char* const soup[] = {
      "(", ")",   "( ",   " )",     " ",  "-",  "+",      " * ",  "/",     ".",         "1", "23",
      "0", "4.5", "999",  "px",     "em", "%",  "round(", "up,",  ",",     "nearest ,", "x", "e",
      "p", "(1)", ".123", "1.2345", "7(", ")8", "..",     "0.01", "56789", ".123456"};
  const auto soup_text = [&] {
    std::string out;
    for (std::size_t n = 1 + pick(40); n > 0; --n) out += soup[pick(std::size(soup))];
    return out;
  };
  int reduced = 0;
  const int runs = std::getenv("CALC_RUNS") ? std::atoi(std::getenv("CALC_RUNS")) : 20000;
  for (int i = 0; i < runs; ++i) {
    std::string text = i % 4 == 3 ? soup_text() : expression(static_cast<int>(pick(7)));
    for (std::size_t damage = pick(4) == 0 ? 1 + pick(2) : 0; damage > 0; --damage) {
      text.insert(pick(text.size() + 1), stray[pick(std::size(stray))]);
    }
    SCOPED_TRACE("calc(" + text + ")");
    std::string expected = text;
    const auto expected_message = reference_calc("--v", expected);
    std::string got = text;
    const auto message = evaluate_calc("--v", got);
    ASSERT_EQ(message, expected_message);
    ASSERT_EQ(got, expected);
    reduced += !message;
  }
  // Enough of them reduce to a value to exercise every pass.
  EXPECT_GT(reduced, 2000);
}

}  // namespace
}  // namespace css_processor
