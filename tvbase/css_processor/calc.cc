#include "calc.h"

#include <algorithm>
#include <cstring>
#include <type_traits>
#include <utility>
#include <vector>

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

// A cell of an expression: a byte other than a digit (below 256), or a whole
// run of digits. No two runs stand next to each other: digits that meet
// join into one run. A run of up to four digits is held in the cell itself
// (its length and value give 11,110 codes from kRun on); a longer one is a
// number in the table of digit_runs, from kTable on.
using cell = std::uint32_t;
constexpr cell kRun = 256;
constexpr std::size_t kInline = 4;
constexpr cell kInlineBase[kInline + 1] = {0, 0, 10, 110, 1110};  // codes below each length
constexpr cell kTable = kRun + 11110;

constexpr bool is_run(cell c) { return c >= kRun; }
constexpr cell byte_cell(char c) { return static_cast<unsigned char>(c); }

// The long runs of digits of an expression. A run is a list of chunks of
// digits in one arena, so that two runs that an edit brings together join
// in constant time, and a number that takes the first digits of a run
// leaves the rest in constant time: no digit is read again until the number
// it belongs to is computed, which removes it. Short runs stand in their
// cells and need no entry here.
class digit_runs {
 public:
  // The cell of a run of `digits`, at least one.
  cell make(std::string_view digits) {
    if (digits.size() <= kInline) {
      cell value = 0;
      for (const char d : digits) value = 10 * value + static_cast<cell>(d - '0');
      return kRun + kInlineBase[digits.size()] + value;
    }
    runs_.push_back({kNone, kNone, 0});
    const auto r = static_cast<std::uint32_t>(runs_.size() - 1);
    append(r, digits);
    return kTable + r;
  }

  std::size_t length(cell c) const {
    if (c >= kTable) return runs_[c - kTable].length;
    std::size_t n = kInline;
    while (c - kRun < kInlineBase[n]) --n;
    return n;
  }

  // The run of `left` followed by that of `right`; neither is used again.
  cell join(cell left, cell right) {
    if (left >= kTable && right >= kTable) {
      run& l = runs_[left - kTable];
      const run& r = runs_[right - kTable];
      chunks_[l.last].next = r.first;
      l.last = r.last;
      l.length += r.length;
      return left;
    }
    std::string digits;
    if (right < kTable) {
      if (left < kTable) {
        write(left, digits);
        write(right, digits);
        return make(digits);
      }
      write(right, digits);
      append(left - kTable, digits);
      return left;
    }
    // A short run in front of a long one: a chunk of its own, first.
    write(left, digits);
    run& r = runs_[right - kTable];
    chunks_.push_back({arena_.size(), static_cast<std::uint32_t>(digits.size()), r.first});
    arena_ += digits;
    r.first = static_cast<std::uint32_t>(chunks_.size() - 1);
    r.length += digits.size();
    return right;
  }

  // The run of `c` without its first `n` digits, of which it has more.
  cell drop_front(cell c, std::size_t n) {
    if (c < kTable) {
      std::string digits;
      write(c, digits);
      return make(std::string_view(digits).substr(n));
    }
    run& at = runs_[c - kTable];
    at.length -= n;
    while (n > 0) {
      chunk& k = chunks_[at.first];
      const std::size_t taken = std::min<std::size_t>(n, k.length);
      k.offset += taken;
      k.length -= static_cast<std::uint32_t>(taken);
      n -= taken;
      if (k.length == 0) at.first = k.next;
    }
    return c;
  }

  // Appends the first `n` digits of the run of `c` (all by default) to
  // `out`, counting them into `read` when given.
  void write(cell c, std::string& out, std::size_t* read = nullptr,
             std::size_t n = SIZE_MAX) const {
    if (c < kTable) {
      const std::size_t length = this->length(c);
      char digits[kInline];
      cell value = c - kRun - kInlineBase[length];
      for (std::size_t i = length; i-- > 0; value /= 10) {
        digits[i] = static_cast<char>('0' + value % 10);
      }
      const std::size_t taken = std::min(n, length);
      out.append(digits, taken);
      if (read) *read += taken;
      return;
    }
    for (std::uint32_t k = runs_[c - kTable].first; k != kNone && n > 0; k = chunks_[k].next) {
      const std::size_t taken = std::min<std::size_t>(n, chunks_[k].length);
      out.append(arena_, chunks_[k].offset, taken);
      if (read) *read += taken;
      n -= taken;
    }
  }

 private:
  static constexpr std::uint32_t kNone = 0xFFFFFFFF;
  static constexpr std::size_t kChunkMost = 0xFFFFFFFF;

  // Puts `digits` behind run `r`: into its last chunk where that ends the
  // arena, as when one run keeps growing, else into new chunks.
  void append(std::uint32_t r, std::string_view digits) {
    run& at = runs_[r];
    at.length += digits.size();
    if (at.last != kNone) {
      chunk& last = chunks_[at.last];
      if (last.offset + last.length == arena_.size() && digits.size() <= kChunkMost - last.length) {
        arena_ += digits;
        last.length += static_cast<std::uint32_t>(digits.size());
        return;
      }
    }
    for (std::size_t from = 0; from < digits.size(); from += kChunkMost) {
      const std::size_t n = std::min(kChunkMost, digits.size() - from);
      chunks_.push_back({arena_.size(), static_cast<std::uint32_t>(n), kNone});
      arena_.append(digits.substr(from, n));
      const auto k = static_cast<std::uint32_t>(chunks_.size() - 1);
      if (runs_[r].last == kNone) {
        runs_[r].first = k;
      } else {
        chunks_[runs_[r].last].next = k;
      }
      runs_[r].last = k;
    }
  }

  struct chunk {
    std::size_t offset;
    std::uint32_t length;
    std::uint32_t next;
  };
  struct run {
    std::uint32_t first;
    std::uint32_t last;
    std::size_t length;
  };
  std::string arena_;
  std::vector<chunk> chunks_;
  std::vector<run> runs_;
};

// The cells of an expression, held with a gap where the last edit was, so
// that an edit costs its distance from the one before rather than a rebuild
// of the whole text. Positions count cells, not counting the gap.
class cell_text {
 public:
  std::size_t size() const { return gap_ + (buffer_.size() - rest_); }
  cell at(std::size_t i) const { return i < gap_ ? buffer_[i] : buffer_[rest_ + (i - gap_)]; }

  void reserve(std::size_t cells) { buffer_.reserve(cells); }
  void push_back(cell c) {
    buffer_.push_back(c);
    gap_ = rest_ = buffer_.size();
  }

  // Replaces [begin, end) by `with`; the gap stays in front of the new cells.
  void replace(std::size_t begin, std::size_t end, const std::vector<cell>& with) {
    move_gap(begin);
    rest_ += end - begin;
    if (rest_ - gap_ < with.size()) widen(with.size());
    rest_ -= with.size();
    std::copy(with.begin(), with.end(), buffer_.begin() + static_cast<std::ptrdiff_t>(rest_));
  }

 private:
  void move_gap(std::size_t to) {
    cell* const data = buffer_.data();
    if (to < gap_) {
      const std::size_t n = gap_ - to;
      std::memmove(data + rest_ - n, data + to, n * sizeof(cell));
      rest_ -= n;
    } else {
      const std::size_t n = to - gap_;
      std::memmove(data + gap_, data + rest_, n * sizeof(cell));
      rest_ += n;
    }
    gap_ = to;
  }

  // Makes room for `needed` more cells, and as much again as the text.
  void widen(std::size_t needed) {
    const std::size_t behind = buffer_.size() - rest_;
    std::vector<cell> grown(2 * (size() + needed));
    std::copy_n(buffer_.begin(), gap_, grown.begin());
    std::copy_n(buffer_.begin() + static_cast<std::ptrdiff_t>(rest_), behind,
                grown.end() - static_cast<std::ptrdiff_t>(behind));
    rest_ = grown.size() - behind;
    buffer_ = std::move(grown);
  }

  std::vector<cell> buffer_;
  std::size_t gap_ = 0;  // the gap is buffer_[gap_, rest_)
  std::size_t rest_ = 0;
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

// Cells other than runs that may stand in a piece between its start and any
// later cell, past the "(" of a group or the "round(" of a call: at most
// those of "up, -1.25px , -1.25px" with blanks round each comma; and the
// runs, at most two numbers of two each.
constexpr std::size_t kMostOthers = 24;
constexpr std::size_t kMostRuns = 4;

// A byte that may stand inside a piece, past its "(" or "round(".
bool piece_byte(cell c) {
  return c == '.' || c == ' ' || c == '-' || c == '+' || c == '*' || c == '/' || c == '%' ||
         c == ',' || (c >= 'a' && c <= 'z');
}

// A number of a piece, in cells: an optional '-', a run, and optionally a
// point and a run of one or two digits. Only the right operand of a product
// or sum may also take the first two digits of a longer run behind the
// point, as the pattern does when nothing need follow it: `partial` says so,
// and the piece then ends inside that run.
struct cell_number {
  std::size_t begin = 0;
  std::size_t end = 0;  // behind the last whole cell
  bool partial = false;
};

struct cell_operand {
  cell_number number;
  std::string_view unit;  // "px", "em", "%", or empty
};

// A piece found in the cells: its span, and the parts each kind needs.
struct cell_piece {
  std::size_t begin = 0;
  std::size_t end = 0;   // behind the last whole cell
  bool partial = false;  // the piece also takes the first two digits of the run at `end`
  cell_operand left, right;
  char op = 0;
  std::size_t inner_begin = 0, inner_end = 0;  // a group's cells inside its parentheses
  std::string_view strategy;                   // a round() call's word, or empty
};

// The passes of evaluate_calc, on cells, each done where it can have changed
// anything. A pass looks for the leftmost piece of the first kind that has
// one, as the searches of patterns.h do on the whole text, but tries only
// the places that `unsettled_` holds for that kind; an edit unsettles, for
// every kind, only the places from which a piece could read what it
// changed. Since a run of digits is one cell, a piece spans a bounded
// number of cells, so each try costs a bounded amount however long its
// numbers; a pass costs what it tries, and each place is tried again only
// when an edit comes near it. The whole takes time linear in the
// expression, and nesting depth costs no stack.
class reducer {
 public:
  reducer(std::string_view name, std::string_view expression) : name_(name) {
    text_.reserve(expression.size());
    split_cells(expression, [this](cell c) { text_.push_back(c); });
  }

  // Reduces the text; leaves it in `expression` and gives the message of a
  // failure, as evaluate_calc.
  std::optional<std::string> run(std::string& expression, calc_work* work) {
    bool invalid_text = false;
    auto message = reduce(invalid_text);
    expression = written(0, text_.size());
    text_ = cell_text{};  // gone before a message quotes the expression
    if (invalid_text) message = invalid(name_, expression);
    if (work) *work = work_;
    return message;
  }

 private:
  // --- reading cells ---------------------------------------------------------

  cell at(std::size_t i) const { return i < text_.size() ? text_.at(i) : 0; }
  bool is(std::size_t i, char c) const { return i < text_.size() && text_.at(i) == byte_cell(c); }
  bool run_at(std::size_t i) const { return i < text_.size() && is_run(text_.at(i)); }
  std::size_t skip_blank(std::size_t i) const { return is(i, ' ') ? i + 1 : i; }

  // NUM at i, or nothing.
  std::optional<cell_number> number_at(std::size_t i) const {
    cell_number n{i, i, false};
    if (is(i, '-')) ++i;
    if (!run_at(i)) return std::nullopt;
    ++i;
    if (is(i, '.') && run_at(i + 1)) {
      if (runs_.length(at(i + 1)) <= 2) {
        i += 2;
      } else {
        ++i;
        n.partial = true;  // behind the point, in the run at i
      }
    }
    n.end = i;
    return n;
  }

  // (px|em|%)? at i: the unit and the cell behind it. Nothing follows a
  // number that took part of a run.
  std::string_view unit_at(const cell_number& n, std::size_t& i) const {
    i = n.end;
    if (n.partial) return {};
    if (is(i, '%')) {
      ++i;
      return "%";
    }
    if (is(i, 'p') && is(i + 1, 'x')) {
      i += 2;
      return "px";
    }
    if (is(i, 'e') && is(i + 1, 'm')) {
      i += 2;
      return "em";
    }
    return {};
  }

  // NUM UNIT? at i into `out`: the cell behind it, or nothing.
  std::optional<std::size_t> operand_at(std::size_t i, cell_operand& out) const {
    const auto n = number_at(i);
    if (!n) return std::nullopt;
    std::size_t behind = 0;
    out.unit = unit_at(*n, behind);
    out.number = *n;
    return behind;
  }

  // A number that took part of a run fits only where the piece ends there.
  std::optional<cell_piece> group_at(std::size_t start) const {
    if (!is(start, '(')) return std::nullopt;
    const std::size_t inner = start + 1;
    cell_operand value;
    const auto behind = operand_at(skip_blank(inner), value);
    if (!behind || value.number.partial) return std::nullopt;
    const std::size_t close = skip_blank(*behind);
    if (!is(close, ')')) return std::nullopt;
    cell_piece g;
    g.begin = start;
    g.end = close + 1;
    g.inner_begin = inner;
    g.inner_end = close;
    return g;
  }

  std::optional<cell_piece> operation_at(std::size_t start, char op1, char op2) const {
    cell_piece m;
    auto i = operand_at(skip_blank(start), m.left);
    if (!i || m.left.number.partial) return std::nullopt;
    const std::size_t o = skip_blank(*i);
    if (!is(o, op1) && !is(o, op2)) return std::nullopt;
    m.op = static_cast<char>(at(o));
    i = operand_at(skip_blank(o + 1), m.right);
    if (!i) return std::nullopt;
    m.begin = start;
    m.partial = m.right.number.partial;
    m.end = m.partial ? *i : skip_blank(*i);
    return m;
  }

  // (up|down|nearest|to-zero) at i: the cell behind the word, or nothing.
  std::optional<std::size_t> strategy_at(std::size_t i, std::string_view& word) const {
    for (const std::string_view w : {"up", "down", "nearest", "to-zero"}) {
      std::size_t k = 0;
      while (k < w.size() && is(i + k, w[k])) ++k;
      if (k == w.size()) {
        word = w;
        return i + k;
      }
    }
    return std::nullopt;
  }

  std::optional<cell_piece> round_at(std::size_t start) const {
    for (std::size_t k = 0; k < 6; ++k) {
      if (!is(start + k, "round("[k])) return std::nullopt;
    }
    cell_piece r;
    std::size_t i = start + 6;
    const std::size_t word = skip_blank(i);
    std::string_view strategy;
    if (const auto word_end = strategy_at(word, strategy)) {
      const std::size_t comma = skip_blank(*word_end);
      // Without the strategy group the value would have to start at the
      // word's letters, so once the group fits it is the only way on.
      if (is(comma, ',')) {
        r.strategy = strategy;
        i = comma + 1;
      }
    }
    auto behind = operand_at(skip_blank(i), r.left);
    if (!behind || r.left.number.partial) return std::nullopt;
    i = skip_blank(*behind);
    if (!is(i, ',')) return std::nullopt;
    behind = operand_at(skip_blank(i + 1), r.right);
    if (!behind || r.right.number.partial) return std::nullopt;
    i = skip_blank(*behind);
    if (!is(i, ')')) return std::nullopt;
    r.begin = start;
    r.end = i + 1;
    return r;
  }

  // is_value() on the whole text: a value is at most eight cells.
  bool whole_is_value() const {
    if (text_.size() > 8) return false;
    cell_operand value;
    const auto behind = operand_at(skip_blank(0), value);
    return behind && !value.number.partial && skip_blank(*behind) == text_.size();
  }

  // --- writing cells -----------------------------------------------------------

  // The text of cells [from, to).
  std::string written(std::size_t from, std::size_t to) const {
    std::string out;
    for (std::size_t i = from; i < to; ++i) {
      const cell c = text_.at(i);
      if (is_run(c)) {
        runs_.write(c, out, &work_.digits_read);
      } else {
        out += static_cast<char>(c);
      }
    }
    return out;
  }

  // The number text of a number, read when it is computed, which removes it.
  std::string number_text(const cell_number& n) const {
    std::string out = written(n.begin, n.end);
    if (n.partial) runs_.write(at(n.end), out, &work_.digits_read, 2);
    return out;
  }

  // --- the passes --------------------------------------------------------------

  // The message of the first failure of a piece; or none, with
  // `invalid_text` set when the text is left with no piece to compute.
  std::optional<std::string> reduce(bool& invalid_text) {
    std::vector<cell> with;
    for (;;) {
      if (const auto g = search(kGroup)) {
        with.clear();
        for (std::size_t i = g->inner_begin; i < g->inner_end; ++i) with.push_back(text_.at(i));
        rewrite(*g, with);
        continue;
      }
      auto m = search(kProduct);
      if (!m) m = search(kSum);
      if (m) {
        operation o;
        o.left.unit = m->left.unit;
        o.right.unit = m->right.unit;
        o.op = m->op;
        const unit_outcome unit = operation_unit(name_, o);
        if (unit.message) return unit.message;
        std::string result =
            apply_operator(number_text(m->left.number), number_text(m->right.number), m->op);
        result += unit.unit;
        rewrite(*m, cells_of(result, with));
        continue;
      }
      if (whole_is_value()) return std::nullopt;
      if (const auto r = search(kRound)) {
        round_call call;
        call.value.unit = r->left.unit;
        call.step.unit = r->right.unit;
        const unit_outcome unit = round_unit(name_, call);
        if (unit.message) return unit.message;
        std::string result = round_to_step(number_text(r->left.number),
                                           number_text(r->right.number), strategy_of(r->strategy));
        result += unit.unit;
        rewrite(*r, cells_of(result, with));
        continue;
      }
      invalid_text = true;
      return std::nullopt;
    }
  }

  // The cells of a new piece of text, its digits made into runs.
  std::vector<cell>& cells_of(std::string_view text, std::vector<cell>& out) {
    out.clear();
    split_cells(text, [&out](cell c) { out.push_back(c); });
    return out;
  }

  // Gives `put` the cells of `text` in order: a byte, or a whole run of
  // digits made into a run.
  template <class Put>
  void split_cells(std::string_view text, Put put) {
    for (std::size_t i = 0; i < text.size();) {
      if (text[i] < '0' || text[i] > '9') {
        put(byte_cell(text[i++]));
        continue;
      }
      std::size_t end = i;
      while (end < text.size() && text[end] >= '0' && text[end] <= '9') ++end;
      put(runs_.make(text.substr(i, end - i)));
      i = end;
    }
  }

  // The leftmost piece of kind `k` among its unsettled places; then the
  // places in front of it are settled.
  std::optional<cell_piece> search(kind k) {
    unsettled& u = unsettled_[k];
    if (u.low < u.high && u.low < u.frontier) {
      if (auto found = search_in(k, u.low, std::min(u.high, u.frontier))) {
        u.low = found->begin;
        return found;
      }
    }
    u.low = u.high = 0;
    if (auto found = search_in(k, u.frontier, text_.size())) {
      u.frontier = found->begin;
      return found;
    }
    u.frontier = text_.size();
    return std::nullopt;
  }

  // The leftmost piece of kind `k` starting in [from, to); it may read past `to`.
  // A group or a call is tried only where the cell behind its opening can
  // begin what must follow.
  std::optional<cell_piece> search_in(kind k, std::size_t from, std::size_t to) {
    for (std::size_t i = from; i < to; ++i) {
      ++work_.cells_looked_at;
      const cell c = text_.at(i);
      std::optional<cell_piece> found;
      switch (k) {
        case kGroup:
          if (c == byte_cell('(')) {
            const cell next = at(i + 1);
            if (next == byte_cell(' ') || next == byte_cell('-') || is_run(next)) {
              found = group_at(i);
            }
          }
          break;
        case kRound:
          if (c == byte_cell('r') && at(i + 1) == byte_cell('o')) found = round_at(i);
          break;
        case kProduct:
        case kSum:
          if (c == byte_cell(' ') || c == byte_cell('-') || is_run(c)) {
            found = k == kProduct ? operation_at(i, '*', '/') : operation_at(i, '-', '+');
          }
          break;
        default: break;
      }
      if (found) return found;
    }
    return std::nullopt;
  }

  // Replaces a piece by `with`, joining runs that meet at either end, and
  // unsettles, for every kind, the places from which a piece could read what
  // changed: back from its start over the cells that a piece may hold, and
  // up to one cell past its new end.
  void rewrite(const cell_piece& piece, std::vector<cell>& with) {
    std::size_t begin = piece.begin;
    std::size_t end = piece.end;
    if (piece.partial) {
      // The run behind the piece keeps its digits past the two taken.
      with.push_back(runs_.drop_front(text_.at(end), 2));
      ++end;
    }
    if (!with.empty() && is_run(with.front()) && begin > 0 && is_run(text_.at(begin - 1))) {
      with.front() = runs_.join(text_.at(begin - 1), with.front());
      --begin;
    }
    // The rest of a partial run follows the new text: join them if the new
    // text ends in digits.
    if (with.size() >= 2 && is_run(with[with.size() - 1]) && is_run(with[with.size() - 2])) {
      const cell joined = runs_.join(with[with.size() - 2], with.back());
      with.pop_back();
      with.back() = joined;
    }
    if (!with.empty() && is_run(with.back()) && end < text_.size() && is_run(text_.at(end))) {
      with.back() = runs_.join(with.back(), text_.at(end));
      ++end;
    }
    text_.replace(begin, end, with);
    const std::size_t new_end = begin + with.size();
    const std::size_t from = reach_back(begin);
    const std::size_t to = std::min(new_end + 1, text_.size());
    for (unsettled& u : unsettled_) {
      u.carry(begin, end, new_end);
      u.add(from, to);
    }
  }

  // The earliest start of a piece that could read the cell at `at`: behind
  // the cells that may stand in a piece, at most kMostRuns runs and
  // kMostOthers others, the six bytes of "round(", of which a group's "("
  // is the last.
  std::size_t reach_back(std::size_t at) {
    std::size_t others = 0;
    std::size_t runs = 0;
    while (at > 0) {
      ++work_.cells_looked_at;
      const cell c = text_.at(at - 1);
      if (is_run(c) ? ++runs > kMostRuns : !piece_byte(c) || ++others > kMostOthers) break;
      --at;
    }
    return at > 6 ? at - 6 : 0;
  }

  std::string_view name_;
  digit_runs runs_;
  cell_text text_;
  unsettled unsettled_[kKinds];
  mutable calc_work work_;
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

std::optional<std::string> evaluate_calc(std::string_view name, std::string& expression,
                                         calc_work* work) {
  {
    replace_engine::engine<char> edits{expression};
    normalise_space(edits, expression);
  }
  reducer reduce(name, expression);
  std::string().swap(expression);  // the cells hold it now
  return reduce.run(expression, work);
}

}  // namespace css_processor
