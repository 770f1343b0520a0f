#ifndef TVBASE_CSS_PROCESSOR_PATTERNS_H
#define TVBASE_CSS_PROCESSOR_PATTERNS_H

// The fixed patterns of the style-sheet processor, as hand-written scanners.
// Internal header.
//
// Each function finds exactly what the regular expression in its comment finds
// under leftmost-first semantics on bytes (`.` matches every byte). Every
// pattern here is deterministic once its start is fixed: no optional or
// repeated element can give back bytes and still let the rest match, so each
// attempt reads forwards only. The scanners use no recursion, allocate nothing
// and take linear time in the text they search; patterns_test.cc checks them
// against a regular-expression engine on the patterns as written.

#include <cstddef>
#include <optional>
#include <string_view>

namespace css_processor {

// White space of style sheets: blank, tab, carriage return, line feed.
constexpr bool is_space(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

// A match as offsets into the searched text: [begin, end).
struct span {
  std::size_t begin = 0;
  std::size_t end = 0;
};

// `(/\*.*?\*/)` searched from `from`: the leftmost comment, ending at the
// first "*/" behind its "/*".
std::optional<span> find_comment(std::string_view text, std::size_t from);

// `:root[ \t\r\n]*\{([^}]*)\}`, the leftmost match in the text.
struct root_block {
  span block;  // from ":root" to its '}' included
  span body;   // between the braces
};
std::optional<root_block> find_root_block(std::string_view text);

// `[ \t\r\n]*(--[-a-zA-Z0-9]+)[ \t\r\n]*:(.*)` as a full match on `piece`.
// The views point into `piece`; `value` is everything behind the first ':'.
struct definition {
  std::string_view name;
  std::string_view value;
};
std::optional<definition> match_definition(std::string_view piece);

// `[ \t\r\n]*` as a full match.
bool is_blank(std::string_view piece);

// `var\([ \t\r\n]*([^) \t\r\n]*)\)` searched from `from`. `name` points into
// the text and may be empty.
struct reference {
  span whole;
  std::string_view name;
};
std::optional<reference> find_reference(std::string_view text, std::size_t from);

// The elements of calc() expressions. NUM is `-?[0-9]+(?:\.[0-9]{1,2})?`,
// UNIT is `(px|em|%)`, and `[ ]` is one blank. The reducer of calc.cc reads
// these pieces from its own form of the expression; these searches over
// text are what it is checked against.
struct operand {
  std::string_view number;
  std::string_view unit;  // "px", "em", "%", or empty when absent
};

// `\(([ ]?NUM UNIT?[ ]?)\)`, searched: a pair of parentheses round one value.
struct group {
  span whole;
  std::string_view inner;  // capture 1, with its blanks
};
std::optional<group> find_group(std::string_view expr);

// `[ ]?(NUM)UNIT?[ ]?([*/])[ ]?(NUM)UNIT?[ ]?` and the same with `[-+]`,
// searched. `whole` holds the blanks in front and behind where present.
struct operation {
  span whole;
  operand left;
  char op = 0;
  operand right;
};
std::optional<operation> find_product(std::string_view expr);
std::optional<operation> find_sum(std::string_view expr);

// `[ ]?NUM UNIT?[ ]?` as a full match: the expression is one value.
bool is_value(std::string_view expr);

// `round\((?:[ ]?(up|down|nearest|to-zero)[ ]?,)?[ ]?(NUM)UNIT?[ ]?,[ ]?(NUM)UNIT?[ ]?\)`,
// searched. `strategy` is empty when the call has two arguments.
struct round_call {
  span whole;
  std::string_view strategy;
  operand value;
  operand step;
};
std::optional<round_call> find_round(std::string_view expr);

// `url\([ \t\r\n]*['"]?([a-z0-9.\-_]+\.(?:jpg|png|gif))['"]?[ \t\r\n]*\)`,
// case-insensitive for ASCII letters, searched from `from`.
struct image {
  span whole;
  std::string_view name;  // capture 1, as written
};
std::optional<image> find_image(std::string_view text, std::size_t from);

}  // namespace css_processor

#endif  // TVBASE_CSS_PROCESSOR_PATTERNS_H
