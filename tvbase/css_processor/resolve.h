#ifndef TVBASE_CSS_PROCESSOR_RESOLVE_H
#define TVBASE_CSS_PROCESSOR_RESOLVE_H

// var() substitution and calc() reduction of the style-sheet processor.
// Internal header.

#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace css_processor {

// A variable's name, with its two leading dashes, to its resolved value. Keys
// compare byte by byte, so "--a" and "--A" are two variables. Lookups take
// views, so a reference's name is not copied to be looked up.
using variable_table = std::map<std::string, std::string, std::less<>>;

// Replaces every `var(NAME)` reference in `text` by the stored value of NAME;
// a stored value is inserted as it is and not scanned again. White space may
// stand between "var(" and the name, not behind it: "var(--a )" is plain text.
//
// With a `name` (a variable's definition being resolved), it then replaces
// each "calc(" ... ")" of the result, found by counting parentheses, by what
// evaluate_calc leaves of the text between them. Without one, a calc() stays
// as written, with its references replaced.
//
// Empty on success. Otherwise the first failure's message, in text order: an
// undefined variable (then `text` is unchanged), a calc( without its closing
// parenthesis, or a message of evaluate_calc (then `text` has its references
// replaced and nothing more).
//
// The bytes that one process() call may hold: `limit` for all its texts
// together (the style sheet, the stored values, the text being built), of
// which `held` are taken by those other than the one being built.
struct byte_budget {
  std::size_t limit;
  std::size_t held;
};

// References whose values would grow the text past budget.limit bytes
// throw std::length_error at the reference that does it; a text within that
// but past what the budget has left beside budget.held throws once all are
// counted. Either way before the text is built, with `text` unchanged:
// values that hold references to values that hold references can double at
// each step.
std::optional<std::string> resolve_values(std::optional<std::string_view> name,
                                          const variable_table& table, std::string& text,
                                          byte_budget budget);

}  // namespace css_processor

#endif  // TVBASE_CSS_PROCESSOR_RESOLVE_H
