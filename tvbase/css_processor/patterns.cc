#include "patterns.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace css_processor {
namespace {

constexpr std::size_t npos = std::string_view::npos;

constexpr bool is_digit(char c) { return c >= '0' && c <= '9'; }

constexpr char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

// `[-a-zA-Z0-9]`, the bytes of a variable's name behind its two dashes.
constexpr std::array<bool, 256> kNameByte = [] {
  std::array<bool, 256> table{};
  for (int c = 'a'; c <= 'z'; ++c) table[c] = true;
  for (int c = 'A'; c <= 'Z'; ++c) table[c] = true;
  for (int c = '0'; c <= '9'; ++c) table[c] = true;
  table['-'] = true;
  return table;
}();

// `[a-z0-9.\-_]` without regard to case, the bytes of an image's name.
constexpr std::array<bool, 256> kImageByte = [] {
  std::array<bool, 256> table = kNameByte;
  table['.'] = true;
  table['_'] = true;
  return table;
}();

bool at(std::string_view t, std::size_t i, char c) { return i < t.size() && t[i] == c; }

// `[ ]?` at i: the offset behind it.
std::size_t skip_blank(std::string_view t, std::size_t i) { return at(t, i, ' ') ? i + 1 : i; }

std::size_t skip_space(std::string_view t, std::size_t i) {
  while (i < t.size() && is_space(t[i])) ++i;
  return i;
}

// `-?[0-9]+(?:\.[0-9]{1,2})?` at i: the offset behind it, or npos. The greedy
// choice is the only one that can lead anywhere: what may follow a number in
// every pattern is neither a digit nor a point.
std::size_t read_number(std::string_view t, std::size_t i) {
  if (at(t, i, '-')) ++i;
  const std::size_t digits = i;
  while (i < t.size() && is_digit(t[i])) ++i;
  if (i == digits) return npos;
  if (at(t, i, '.') && i + 1 < t.size() && is_digit(t[i + 1])) {
    i += 2;
    if (i < t.size() && is_digit(t[i])) ++i;
  }
  return i;
}

// `(px|em|%)?` at i: the offset behind it.
std::size_t read_unit(std::string_view t, std::size_t i) {
  if (at(t, i, '%')) return i + 1;
  if (i + 1 < t.size() && ((t[i] == 'p' && t[i + 1] == 'x') || (t[i] == 'e' && t[i + 1] == 'm'))) {
    return i + 2;
  }
  return i;
}

// NUM UNIT? at i into `out`: the offset behind it, or npos.
std::size_t read_operand(std::string_view t, std::size_t i, operand& out) {
  const std::size_t number_end = read_number(t, i);
  if (number_end == npos) return npos;
  const std::size_t unit_end = read_unit(t, number_end);
  out.number = t.substr(i, number_end - i);
  out.unit = t.substr(number_end, unit_end - number_end);
  return unit_end;
}

std::optional<operation> operation_at(std::string_view t, std::size_t start, char op1, char op2) {
  operation m;
  std::size_t i = read_operand(t, skip_blank(t, start), m.left);
  if (i == npos) return std::nullopt;
  i = skip_blank(t, i);
  if (i >= t.size() || (t[i] != op1 && t[i] != op2)) return std::nullopt;
  m.op = t[i];
  i = read_operand(t, skip_blank(t, i + 1), m.right);
  if (i == npos) return std::nullopt;
  m.whole = {start, skip_blank(t, i)};
  return m;
}

std::optional<operation> find_operation(std::string_view t, char op1, char op2) {
  for (std::size_t s = 0; s < t.size(); ++s) {
    const char c = t[s];
    if (c != ' ' && c != '-' && !is_digit(c)) continue;
    // A start inside a run of digits reads to the same end of the run as the
    // start before it, and then meets the same bytes: it fails as that one did.
    if (is_digit(c) && s > 0 && is_digit(t[s - 1])) continue;
    if (auto m = operation_at(t, s, op1, op2)) return m;
  }
  return std::nullopt;
}

// `(up|down|nearest|to-zero)` at i: the offset behind the word, or npos.
std::size_t read_strategy(std::string_view t, std::size_t i) {
  for (const std::string_view word : {"up", "down", "nearest", "to-zero"}) {
    if (t.substr(i).starts_with(word)) return i + word.size();
  }
  return npos;
}

std::optional<round_call> round_call_at(std::string_view t, std::size_t start) {
  round_call m;
  std::size_t i = start + 6;  // behind "round("
  const std::size_t word = skip_blank(t, i);
  if (const std::size_t word_end = read_strategy(t, word); word_end != npos) {
    const std::size_t comma = skip_blank(t, word_end);
    // Without the strategy group the value would have to start at the word's
    // letters, so once the group fits it is the only way on.
    if (at(t, comma, ',')) {
      m.strategy = t.substr(word, word_end - word);
      i = comma + 1;
    }
  }
  i = read_operand(t, skip_blank(t, i), m.value);
  if (i == npos) return std::nullopt;
  i = skip_blank(t, i);
  if (!at(t, i, ',')) return std::nullopt;
  i = read_operand(t, skip_blank(t, i + 1), m.step);
  if (i == npos) return std::nullopt;
  i = skip_blank(t, i);
  if (!at(t, i, ')')) return std::nullopt;
  m.whole = {start, i + 1};
  return m;
}

bool ends_with_image_extension(std::string_view name) {
  if (name.size() < 5 || name[name.size() - 4] != '.') return false;
  const char ext[3] = {lower(name[name.size() - 3]), lower(name[name.size() - 2]),
                       lower(name[name.size() - 1])};
  const std::string_view e(ext, 3);
  return e == "jpg" || e == "png" || e == "gif";
}

// The image pattern at the '(' of a "url(" that starts at `start`. The name
// class holds neither quotes, white space nor ')', so the name is the whole
// run of name bytes: a shorter stem would leave a name byte where the pattern
// wants a quote, white space or ')'.
std::optional<image> image_at(std::string_view t, std::size_t start, std::size_t paren) {
  std::size_t i = skip_space(t, paren + 1);
  if (at(t, i, '\'') || at(t, i, '"')) ++i;
  const std::size_t name_begin = i;
  while (i < t.size() && kImageByte[static_cast<unsigned char>(t[i])]) ++i;
  const std::string_view name = t.substr(name_begin, i - name_begin);
  if (!ends_with_image_extension(name)) return std::nullopt;
  if (at(t, i, '\'') || at(t, i, '"')) ++i;
  i = skip_space(t, i);
  if (!at(t, i, ')')) return std::nullopt;
  return image{{start, i + 1}, name};
}

std::optional<group> group_at(std::string_view expr, std::size_t start) {
  if (!at(expr, start, '(')) return std::nullopt;
  const std::size_t inner = start + 1;
  const std::size_t number_end = read_number(expr, skip_blank(expr, inner));
  if (number_end == npos) return std::nullopt;
  const std::size_t close = skip_blank(expr, read_unit(expr, number_end));
  if (!at(expr, close, ')')) return std::nullopt;
  return group{{start, close + 1}, expr.substr(inner, close - inner)};
}

}  // namespace

std::optional<span> find_comment(std::string_view text, std::size_t from) {
  const std::size_t open = text.find("/*", from);
  if (open == npos) return std::nullopt;
  // Without a "*/" behind this opening there is none behind any later one.
  const std::size_t close = text.find("*/", open + 2);
  if (close == npos) return std::nullopt;
  return span{open, close + 2};
}

std::optional<root_block> find_root_block(std::string_view text) {
  for (std::size_t pos = 0;;) {
    const std::size_t start = text.find(":root", pos);
    if (start == npos) return std::nullopt;
    const std::size_t brace = skip_space(text, start + 5);
    if (at(text, brace, '{')) {
      // Without a '}' behind this brace there is none behind any later one.
      const std::size_t close = text.find('}', brace + 1);
      if (close == npos) return std::nullopt;
      return root_block{{start, close + 1}, {brace + 1, close}};
    }
    pos = start + 1;
  }
}

std::optional<definition> match_definition(std::string_view piece) {
  const std::size_t start = skip_space(piece, 0);
  if (!piece.substr(start).starts_with("--")) return std::nullopt;
  std::size_t i = start + 2;
  while (i < piece.size() && kNameByte[static_cast<unsigned char>(piece[i])]) ++i;
  if (i == start + 2) return std::nullopt;
  const std::size_t colon = skip_space(piece, i);
  if (!at(piece, colon, ':')) return std::nullopt;
  return definition{piece.substr(start, i - start), piece.substr(colon + 1)};
}

bool is_blank(std::string_view piece) { return skip_space(piece, 0) == piece.size(); }

std::optional<reference> find_reference(std::string_view text, std::size_t from) {
  const char* const data = text.data();
  const std::size_t size = text.size();
  for (std::size_t pos = from; pos + 4 <= size;) {
    const auto* v = static_cast<const char*>(std::memchr(data + pos, 'v', size - 3 - pos));
    if (v == nullptr) return std::nullopt;
    const auto start = static_cast<std::size_t>(v - data);
    if (v[1] != 'a' || v[2] != 'r' || v[3] != '(') {
      pos = start + 1;
      continue;
    }
    const std::size_t name_begin = skip_space(text, start + 4);
    std::size_t i = name_begin;
    while (i < size && data[i] != ')' && !is_space(data[i])) ++i;
    if (i == size) return std::nullopt;  // every later "var(" runs out too
    if (data[i] == ')') return reference{{start, i + 1}, text.substr(name_begin, i - name_begin)};
    // The name stopped at white space. A "var(" whose name would begin inside
    // this run of name bytes stops at the same white space; only one that
    // starts at most four bytes before it can reach further.
    pos = i - 4 > start ? i - 4 : start + 1;
  }
  return std::nullopt;
}

std::optional<group> find_group(std::string_view expr) {
  for (std::size_t open = expr.find('('); open != npos; open = expr.find('(', open + 1)) {
    if (auto g = group_at(expr, open)) return g;
  }
  return std::nullopt;
}

std::optional<operation> find_product(std::string_view expr) {
  return find_operation(expr, '*', '/');
}

std::optional<operation> find_sum(std::string_view expr) { return find_operation(expr, '-', '+'); }

bool is_value(std::string_view expr) {
  const std::size_t number_end = read_number(expr, skip_blank(expr, 0));
  return number_end != npos && skip_blank(expr, read_unit(expr, number_end)) == expr.size();
}

std::optional<round_call> find_round(std::string_view expr) {
  for (std::size_t s = expr.find("round("); s != npos; s = expr.find("round(", s + 1)) {
    if (auto m = round_call_at(expr, s)) return m;
  }
  return std::nullopt;
}

std::optional<image> find_image(std::string_view text, std::size_t from) {
  // The '(' of "url(" stands three bytes behind the match's start.
  for (std::size_t paren = text.find('(', from + 3); paren != npos;
       paren = text.find('(', paren + 1)) {
    if (lower(text[paren - 3]) == 'u' && lower(text[paren - 2]) == 'r' &&
        lower(text[paren - 1]) == 'l') {
      if (auto m = image_at(text, paren - 3, paren)) return m;
    }
  }
  return std::nullopt;
}

}  // namespace css_processor
