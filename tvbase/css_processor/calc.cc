#include "calc.h"

#include <algorithm>
#include <cstring>
#include <type_traits>
#include <utility>

#include <fmt/format.h>

#include <tvbase/text/replace_engine.h>

#include "patterns.h"

namespace css_processor {
namespace {

// 32-bit two's complement arithmetic, without the undefined behaviour of
// signed overflow.
hundredths wrap(std::uint32_t v) { return static_cast<hundredths>(v); }
hundredths add(hundredths a, hundredths b) {
  return wrap(static_cast<std::uint32_t>(a) + static_cast<std::uint32_t>(b));
}
hundredths sub(hundredths a, hundredths b) {
  return wrap(static_cast<std::uint32_t>(a) - static_cast<std::uint32_t>(b));
}
hundredths mul(hundredths a, hundredths b) {
  return wrap(static_cast<std::uint32_t>(a) * static_cast<std::uint32_t>(b));
}
hundredths neg(hundredths a) { return wrap(0u - static_cast<std::uint32_t>(a)); }

constexpr std::string_view kBadValue = "error_bad_value";
constexpr std::string_view kMul = "error_mul";
constexpr std::string_view kDivByZero = "error_div_by_0";
constexpr std::string_view kDiv = "error_div";

std::string invalid(std::string_view name, std::string_view expression) {
  return fmt::format("Error in calc() for variable {}: expression ({}) is invalid.", name,
                     expression);
}

// The unit of the result of `left op right`, or the message of a failed check.
struct unit_outcome {
  std::string_view unit;
  std::optional<std::string> message;
};

unit_outcome operation_unit(std::string_view name, const operation& m) {
  const std::string_view l = m.left.unit;
  const std::string_view r = m.right.unit;
  if (m.op == '*') {
    if (!l.empty() && !r.empty()) {
      return {{},
              fmt::format("Error in calc() for variable {}: cannot multiply 2 unit values.", name)};
    }
    return {l.empty() ? r : l, {}};
  }
  if (m.op == '/') {
    if (!r.empty()) {
      return {{},
              fmt::format("Error in calc() for variable {}: cannot divide by a unit value.", name)};
    }
    return {l, {}};
  }
  if (l == r) return {l, {}};
  if (!l.empty() && !r.empty()) {
    return {
        {},
        fmt::format("Error in calc() for variable {}: cannot add/subtract different unit values.",
                    name)};
  }
  return {
      {},
      fmt::format("Error in calc() for variable {}: cannot add/subtract a value and a unit value.",
                  name)};
}

unit_outcome round_unit(std::string_view name, const round_call& m) {
  const std::string_view v = m.value.unit;
  const std::string_view s = m.step.unit;
  if (v == s) return {v, {}};
  if (!v.empty() && !s.empty()) {
    return {
        {},
        fmt::format("Error in round() for variable {}: cannot round different unit values.", name)};
  }
  return {{},
          fmt::format("Error in round() for variable {}: cannot round a value and a unit value.",
                      name)};
}

round_strategy strategy_of(std::string_view word) {
  if (word == "up") return round_strategy::up;
  if (word == "down") return round_strategy::down;
  if (word == "to-zero") return round_strategy::to_zero;
  return round_strategy::nearest;
}

// Turns tabs, carriage returns and line feeds into blanks and every run of
// blanks into one, through one batch of edits.
void normalise_space(replace_engine::engine<char>& edits, std::string& expression) {
  const std::string_view text = expression;
  for (std::size_t i = 0; i < text.size();) {
    if (!is_space(text[i])) {
      ++i;
      continue;
    }
    std::size_t end = i + 1;
    while (end < text.size() && is_space(text[end])) ++end;
    if (end - i > 1 || text[i] != ' ')
      static_cast<void>(edits.replace(text.substr(i, end - i), " "));
    i = end;
  }
  if (edits.size() != 0) {
    expression = edits.apply();
    edits.reset(expression);
  }
}

// The expression being reduced, held with a gap where the last edit was, so
// that an edit costs its distance from the one before rather than a rebuild
// of the whole text. Positions count the text without the gap.
class gap_text {
 public:
  explicit gap_text(std::string text)
      : buffer_(std::move(text)), gap_(buffer_.size()), rest_(buffer_.size()) {}

  std::size_t size() const { return gap_ + (buffer_.size() - rest_); }
  char at(std::size_t i) const { return i < gap_ ? buffer_[i] : buffer_[rest_ + (i - gap_)]; }

  // The text from `from` to its end, in one piece; the gap moves to `from`
  // if it lies behind it. The view lasts until the next call of tail() or
  // replace().
  std::string_view tail(std::size_t from) {
    if (from < gap_) move_gap(from);
    return std::string_view(buffer_).substr(rest_ + (from - gap_));
  }

  // Replaces [begin, end) by `with`, which must not point into this text;
  // the gap stays in front of the new piece.
  void replace(std::size_t begin, std::size_t end, std::string_view with) {
    move_gap(begin);
    rest_ += end - begin;
    if (rest_ - gap_ < with.size()) widen(with.size());
    rest_ -= with.size();
    std::copy(with.begin(), with.end(), buffer_.begin() + static_cast<std::ptrdiff_t>(rest_));
  }

  // The text, taken out without a copy; this object is empty afterwards.
  std::string take() {
    move_gap(size());
    buffer_.resize(gap_);
    gap_ = rest_ = 0;
    return std::move(buffer_);
  }

 private:
  void move_gap(std::size_t to) {
    char* const data = buffer_.data();
    if (to < gap_) {
      const std::size_t n = gap_ - to;
      std::memmove(data + rest_ - n, data + to, n);
      rest_ -= n;
    } else {
      const std::size_t n = to - gap_;
      std::memmove(data + gap_, data + rest_, n);
      rest_ += n;
    }
    gap_ = to;
  }

  // Makes room for `needed` more bytes, and as much again as the text.
  void widen(std::size_t needed) {
    const std::size_t behind = buffer_.size() - rest_;
    std::string grown(2 * (size() + needed), '\0');
    std::copy_n(buffer_.begin(), gap_, grown.begin());
    std::copy_n(buffer_.begin() + static_cast<std::ptrdiff_t>(rest_), behind,
                grown.end() - static_cast<std::ptrdiff_t>(behind));
    rest_ = grown.size() - behind;
    buffer_ = std::move(grown);
  }

  std::string buffer_;
  std::size_t gap_;  // the gap is buffer_[gap_, rest_)
  std::size_t rest_;
};

// The kinds of piece, in the order in which a pass looks for them.
enum kind : std::size_t { kGroup, kProduct, kSum, kRound, kKinds };

// Where a piece of one kind may still start: at `frontier` and behind it,
// where no search has looked yet, and in [low, high), round earlier edits.
// At every other place a search has found no piece in the text as it is.
struct unsettled {
  std::size_t low = 0;
  std::size_t high = 0;  // low >= high: no such stretch
  std::size_t frontier = 0;

  // Carries the places over an edit that made [begin, end) [begin, new_end).
  // A place inside the edited piece goes to its start, or for `high` to
  // its new end.
  void carry(std::size_t begin, std::size_t end, std::size_t new_end) {
    const auto moved = [&](std::size_t at, std::size_t inside) {
      if (at <= begin) return at;
      return at >= end ? at - end + new_end : inside;
    };
    low = moved(low, begin);
    high = moved(high, new_end);
    frontier = moved(frontier, begin);
  }

  // Adds [from, to). Stretches are joined with what lies between them; the
  // edits that add them follow one another closely, so little lies there.
  void add(std::size_t from, std::size_t to) {
    if (low >= high) {
      low = from;
      high = to;
    } else {
      low = std::min(low, from);
      high = std::max(high, to);
    }
  }
};

// Bytes other than digits that may stand in a piece between its start and
// any later byte, past the "(" of a group or the "round(" of a call: at most
// those of "up, -1.25px , -1.25px" with blanks round each comma.
constexpr std::size_t kMostOthers = 24;

// A byte that may stand inside a piece, past its "(" or "round(".
bool piece_byte(char c) {
  return (c >= '0' && c <= '9') || c == '.' || c == ' ' || c == '-' || c == '+' || c == '*' ||
         c == '/' || c == '%' || c == ',' || (c >= 'a' && c <= 'z');
}

// The passes of evaluate_calc, each done where it can have changed
// anything. A pass looks for the leftmost piece of the first kind that has
// one, as the searches of patterns.h do on the whole text, but tries only
// the places that `unsettled_` holds for that kind; an edit unsettles, for
// every kind, only the places from which a piece could read what it
// changed. So a pass costs what it tries, and each place is tried again
// only when an edit comes near it: a deep nest or a long chain of
// operations takes time linear in its length, and only a number of very
// many digits, which an edit next to it has each piece read again, costs
// more.
class reducer {
 public:
  reducer(std::string_view name, std::string expression)
      : name_(name), text_(std::move(expression)) {}

  // Reduces the text; leaves it in `expression` and gives the message of a
  // failure, as evaluate_calc.
  std::optional<std::string> run(std::string& expression) {
    bool invalid_text = false;
    auto message = reduce(invalid_text);
    expression = text_.take();
    if (invalid_text) message = invalid(name_, expression);
    return message;
  }

 private:
  // The message of the first failure of a piece; or none, with
  // `invalid_text` set when the text is left with no piece to compute.
  std::optional<std::string> reduce(bool& invalid_text) {
    for (;;) {
      if (const auto g = search<group>(kGroup)) {
        rewrite(g->whole, std::string(g->inner));
        continue;
      }
      auto m = search<operation>(kProduct);
      if (!m) m = search<operation>(kSum);
      if (m) {
        const unit_outcome unit = operation_unit(name_, *m);
        if (unit.message) return unit.message;
        std::string with = apply_operator(m->left.number, m->right.number, m->op);
        with += unit.unit;
        rewrite(m->whole, with);
        continue;
      }
      if (whole_is_value()) return std::nullopt;
      if (const auto r = search<round_call>(kRound)) {
        const unit_outcome unit = round_unit(name_, *r);
        if (unit.message) return unit.message;
        std::string with = round_to_step(r->value.number, r->step.number, strategy_of(r->strategy));
        with += unit.unit;
        rewrite(r->whole, with);
        continue;
      }
      invalid_text = true;
      return std::nullopt;
    }
  }

  // The leftmost piece of kind `k` among its unsettled places, with its
  // spans turned into places of the whole text; then the places in front of
  // it are settled. Its views last until the next search or rewrite.
  template <class Piece>
  std::optional<Piece> search(kind k) {
    unsettled& u = unsettled_[k];
    if (u.low < u.high && u.low < u.frontier) {
      if (auto found = search_in<Piece>(k, u.low, std::min(u.high, u.frontier))) {
        u.low = found->whole.begin;
        return found;
      }
    }
    u.low = u.high = 0;
    if (auto found = search_in<Piece>(k, u.frontier, text_.size())) {
      u.frontier = found->whole.begin;
      return found;
    }
    u.frontier = text_.size();
    return std::nullopt;
  }

  template <class Piece>
  std::optional<Piece> search_in(kind k, std::size_t from, std::size_t to) {
    const std::string_view tail = text_.tail(from);
    const std::size_t end = to - from;
    std::optional<Piece> found;
    if constexpr (std::is_same_v<Piece, group> || std::is_same_v<Piece, round_call>) {
      // A piece may read past `to`, but starts before it.
      const std::string_view starts = tail.substr(0, end);
      const char first = k == kGroup ? '(' : 'r';
      for (std::size_t i = starts.find(first); i != std::string_view::npos && !found;
           i = starts.find(first, i + 1)) {
        if constexpr (std::is_same_v<Piece, group>) {
          found = group_at(tail, i);
        } else {
          found = round_at(tail, i);
        }
      }
    } else {
      // The byte in front of each start, for the skip inside runs of digits.
      char before = from == 0 ? '\0' : text_.at(from - 1);
      for (std::size_t i = 0; i < end && !found; ++i) {
        const char c = tail[i];
        const bool digit = c >= '0' && c <= '9';
        if ((c == ' ' || c == '-' || digit) && !(digit && before >= '0' && before <= '9')) {
          found = k == kProduct ? product_at(tail, i) : sum_at(tail, i);
        }
        before = c;
      }
    }
    if (found) shift(*found, from);
    return found;
  }

  static void shift(span& s, std::size_t by) {
    s.begin += by;
    s.end += by;
  }
  static void shift(group& g, std::size_t by) { shift(g.whole, by); }
  static void shift(operation& m, std::size_t by) { shift(m.whole, by); }
  static void shift(round_call& r, std::size_t by) { shift(r.whole, by); }

  // Replaces a piece and unsettles, for every kind, the places from which a
  // piece could read what changed: back from its start over the bytes that
  // a piece may hold, and up to one byte past its new end, where a search
  // looks at the byte in front.
  void rewrite(span whole, const std::string& with) {
    text_.replace(whole.begin, whole.end, with);
    const std::size_t new_end = whole.begin + with.size();
    const std::size_t from = reach_back(whole.begin);
    const std::size_t to = std::min(new_end + 1, text_.size());
    for (unsettled& u : unsettled_) {
      u.carry(whole.begin, whole.end, new_end);
      u.add(from, to);
    }
  }

  // The earliest start of a piece that could read the byte at `at`: behind
  // the bytes that may stand in a piece, any number of digits and at most
  // kMostOthers others, the six bytes of "round(", of which a group's "("
  // is the last.
  std::size_t reach_back(std::size_t at) const {
    std::size_t others = 0;
    while (at > 0) {
      const char c = text_.at(at - 1);
      if (!(c >= '0' && c <= '9') && (!piece_byte(c) || ++others > kMostOthers)) break;
      --at;
    }
    return at > 6 ? at - 6 : 0;
  }

  // is_value() on the whole text, read round the gap.
  bool whole_is_value() const {
    const std::size_t n = text_.size();
    const auto is = [&](std::size_t i, char c) { return i < n && text_.at(i) == c; };
    const auto digit = [&](std::size_t i) {
      return i < n && text_.at(i) >= '0' && text_.at(i) <= '9';
    };
    std::size_t i = is(0, ' ') ? 1 : 0;
    if (is(i, '-')) ++i;
    const std::size_t digits = i;
    while (digit(i)) ++i;
    if (i == digits) return false;
    if (is(i, '.') && digit(i + 1)) i += digit(i + 2) ? 3 : 2;
    if (is(i, '%')) {
      ++i;
    } else if ((is(i, 'p') && is(i + 1, 'x')) || (is(i, 'e') && is(i + 1, 'm'))) {
      i += 2;
    }
    if (is(i, ' ')) ++i;
    return i == n;
  }

  std::string_view name_;
  gap_text text_;
  unsettled unsettled_[kKinds];
};

}  // namespace

bool parse_hundredths(std::string_view text, hundredths& value) {
  std::uint32_t v = 0;
  bool negative = false;
  bool point = false;
  int decimals_left = 2;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (c >= '0' && c <= '9') {
      if (point) {
        if (decimals_left == 0) return false;
        --decimals_left;
      }
      v = v * 10u + static_cast<std::uint32_t>(c - '0');
    } else if (c == '-' && i == 0) {
      negative = true;
    } else if (c == '.' && !point) {
      point = true;
    } else {
      return false;
    }
  }
  for (; decimals_left > 0; --decimals_left) v *= 10u;
  value = negative ? neg(wrap(v)) : wrap(v);
  return true;
}

std::string format_hundredths(hundredths value) {
  const std::uint32_t magnitude =
      value < 0 ? 0u - static_cast<std::uint32_t>(value) : static_cast<std::uint32_t>(value);
  const std::uint32_t whole = magnitude / 100u;
  const std::uint32_t fraction = magnitude % 100u;
  const std::string_view sign = value < 0 ? "-" : "";
  if (fraction == 0) return fmt::format("{}{}", sign, whole);
  if (fraction % 10 == 0) return fmt::format("{}{}.{}", sign, whole, fraction / 10);
  return fmt::format("{}{}.{:02}", sign, whole, fraction);
}

std::string apply_operator(std::string_view left, std::string_view right, char op) {
  hundredths l = 0;
  hundredths r = 0;
  if (!parse_hundredths(left, l) || !parse_hundredths(right, r)) return std::string(kBadValue);
  hundredths result = 0;
  switch (op) {
    case '*': {
      const hundredths p = mul(l, r);
      if (p % 100 != 0) return std::string(kMul);
      result = p / 100;
      break;
    }
    case '/': {
      if (r == 0) return std::string(kDivByZero);
      const std::int64_t n = mul(l, 100);
      if (n % r != 0) return std::string(kDiv);
      // Only the most negative n divided by -1 leaves the range; it wraps.
      result = wrap(static_cast<std::uint32_t>(n / r));
      break;
    }
    case '+': result = add(l, r); break;
    case '-': result = sub(l, r); break;
    default: return std::string(kBadValue);
  }
  return format_hundredths(result);
}

std::string round_to_step(std::string_view value, std::string_view step, round_strategy strategy) {
  hundredths v = 0;
  hundredths s = 0;
  if (!parse_hundredths(value, v) || !parse_hundredths(step, s)) return std::string(kBadValue);
  if (s < 0) s = neg(s);  // the most negative step stays negative, as it wraps
  if (s == 0) return std::string(kDivByZero);
  hundredths b = v;
  switch (strategy) {
    case round_strategy::up:
      if (v >= 0) b = add(sub(v, 1), s);
      break;
    case round_strategy::down:
      if (v < 0) b = add(sub(v, s), 1);
      break;
    case round_strategy::nearest: b = v >= 0 ? add(v, s / 2) : sub(v, s / 2); break;
    case round_strategy::to_zero: break;
  }
  // s is never -1, so the quotient fits.
  return format_hundredths(mul(b / s, s));
}

std::optional<std::string> evaluate_calc(std::string_view name, std::string& expression) {
  {
    replace_engine::engine<char> edits{expression};
    normalise_space(edits, expression);
  }
  return reducer(name, std::move(expression)).run(expression);
}

}  // namespace css_processor
