#ifndef TVBASE_CSS_PROCESSOR_CALC_H
#define TVBASE_CSS_PROCESSOR_CALC_H

// calc() and round() arithmetic of the style-sheet processor. Internal header.
//
// Numbers are `hundredths`: a signed 32-bit count of hundredths (1.5 is 150).
// Every sum, difference and product wraps in 32-bit two's complement without
// notice; a product or quotient that is not exact in hundredths, and a
// division by zero, give a result word ("error_mul", "error_div",
// "error_div_by_0", "error_bad_value") in place of a number text.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace css_processor {

using hundredths = std::int32_t;

// Reads a number text byte by byte: digits, one optional point with at most
// two digits behind it, and a '-' only as the first byte. False if the text is
// no number. Accepts more than the number of the patterns: "1." is 100, ".5"
// is 50, "" and "-" are 0. The digits accumulate with 32-bit wrap-around, so
// "99999999999" is 1316134812.
bool parse_hundredths(std::string_view text, hundredths& value);

// The shortest text of a number: 150 is "1.5", 105 "1.05", -25 "-0.25",
// 1000 "10", and the most negative value "-21474836.48".
std::string format_hundredths(hundredths value);

// `left op right` on number texts, op one of * / + -. A number text, or a
// result word; no unit.
std::string apply_operator(std::string_view left, std::string_view right, char op);

enum class round_strategy { up, down, nearest, to_zero };

// Rounds `value` to a multiple of the magnitude of `step`; "nearest" sends a
// half away from zero. A number text or a result word; no unit.
std::string round_to_step(std::string_view value, std::string_view step, round_strategy strategy);

// Reduces the text between the parentheses of one calc() to one value, in
// place, rewriting one piece per pass: the leftmost parenthesised value, else
// the leftmost product or quotient, else the leftmost sum or difference, else
// (when the text is not yet one value) the leftmost round() call. Empty on
// success, with `expression` the finished value, blanks round it kept;
// otherwise the message, which names `name`.
//
// The work of one evaluate_calc: cells its searches looked at (a run of
// digits is one cell) and digits it read, for tests that bound them.
struct calc_work {
  std::size_t cells_looked_at = 0;
  std::size_t digits_read = 0;
};

// Because each pass takes the leftmost piece that fits, a sum to the left of a
// product whose factor is still in parentheses or still a round() call is
// computed first, and the product takes its result as the left operand:
// "1 + 2 * (3 + 4)" is 21, "round(1.5, 1) * 2 + 3" is 10. The rewriting works
// on the text, so "2 * 3 4" is "64" and "1.234 * 2" leaves "1.468". A pass
// tries only the places that the edit before it can have changed, and a run
// of digits counts as one place, which edits join to and cut from without
// reading it: the time is linear in the expression's length, whatever its
// nesting, its count of operations or the length of its numbers (a run of
// digits is read once, when its number is computed), and nesting depth
// costs no stack. `work`, if given, receives what was done.
std::optional<std::string> evaluate_calc(std::string_view name, std::string& expression,
                                         calc_work* work = nullptr);

}  // namespace css_processor

#endif  // TVBASE_CSS_PROCESSOR_CALC_H
