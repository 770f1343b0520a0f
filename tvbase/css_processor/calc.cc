#include "calc.h"

#include <fmt/format.h>

#include <tvbase/text/replace_engine.h>

#include "patterns.h"

namespace css_processor {
namespace {

// 32-bit two's complement arithmetic, without the undefined behaviour of
// signed overflow.
hundredths wrap(std::uint32_t v) { return static_cast<hundredths>(v); }
hundredths add(hundredths a, hundredths b) { return wrap(static_cast<std::uint32_t>(a) + static_cast<std::uint32_t>(b)); }
hundredths sub(hundredths a, hundredths b) { return wrap(static_cast<std::uint32_t>(a) - static_cast<std::uint32_t>(b)); }
hundredths mul(hundredths a, hundredths b) { return wrap(static_cast<std::uint32_t>(a) * static_cast<std::uint32_t>(b)); }
hundredths neg(hundredths a) { return wrap(0u - static_cast<std::uint32_t>(a)); }

constexpr std::string_view kBadValue = "error_bad_value";
constexpr std::string_view kMul = "error_mul";
constexpr std::string_view kDivByZero = "error_div_by_0";
constexpr std::string_view kDiv = "error_div";

std::string invalid(std::string_view name, std::string_view expression) {
  return fmt::format("Error in calc() for variable {}: expression ({}) is invalid.", name, expression);
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
      return {{}, fmt::format("Error in calc() for variable {}: cannot multiply 2 unit values.", name)};
    }
    return {l.empty() ? r : l, {}};
  }
  if (m.op == '/') {
    if (!r.empty()) {
      return {{}, fmt::format("Error in calc() for variable {}: cannot divide by a unit value.", name)};
    }
    return {l, {}};
  }
  if (l == r) return {l, {}};
  if (!l.empty() && !r.empty()) {
    return {{}, fmt::format("Error in calc() for variable {}: cannot add/subtract different unit values.", name)};
  }
  return {{}, fmt::format("Error in calc() for variable {}: cannot add/subtract a value and a unit value.", name)};
}

unit_outcome round_unit(std::string_view name, const round_call& m) {
  const std::string_view v = m.value.unit;
  const std::string_view s = m.step.unit;
  if (v == s) return {v, {}};
  if (!v.empty() && !s.empty()) {
    return {{}, fmt::format("Error in round() for variable {}: cannot round different unit values.", name)};
  }
  return {{}, fmt::format("Error in round() for variable {}: cannot round a value and a unit value.", name)};
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
    if (end - i > 1 || text[i] != ' ') static_cast<void>(edits.replace(text.substr(i, end - i), " "));
    i = end;
  }
  if (edits.size() != 0) {
    expression = edits.apply();
    edits.reset(expression);
  }
}

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
  const std::uint32_t magnitude = value < 0 ? 0u - static_cast<std::uint32_t>(value) : static_cast<std::uint32_t>(value);
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
    case '+':
      result = add(l, r);
      break;
    case '-':
      result = sub(l, r);
      break;
    default:
      return std::string(kBadValue);
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
    case round_strategy::nearest:
      b = v >= 0 ? add(v, s / 2) : sub(v, s / 2);
      break;
    case round_strategy::to_zero:
      break;
  }
  // s is never -1, so the quotient fits.
  return format_hundredths(mul(b / s, s));
}

std::optional<std::string> evaluate_calc(std::string_view name, std::string& expression) {
  replace_engine::engine<char> edits{expression};
  normalise_space(edits, expression);
  for (;;) {
    const std::string_view text = expression;
    span whole;
    std::string with;
    if (const auto g = find_group(text)) {
      whole = g->whole;
      with = g->inner;
    } else if (auto m = find_product(text); m || (m = find_sum(text))) {
      const unit_outcome unit = operation_unit(name, *m);
      if (unit.message) return unit.message;
      whole = m->whole;
      with = apply_operator(m->left.number, m->right.number, m->op);
      with += unit.unit;
    } else if (is_value(text)) {
      return std::nullopt;
    } else if (const auto r = find_round(text)) {
      const unit_outcome unit = round_unit(name, *r);
      if (unit.message) return unit.message;
      whole = r->whole;
      with = round_to_step(r->value.number, r->step.number, strategy_of(r->strategy));
      with += unit.unit;
    } else {
      return invalid(name, expression);
    }
    static_cast<void>(edits.replace(text.substr(whole.begin, whole.end - whole.begin), with));
    expression = edits.apply();
    edits.reset(expression);
  }
}

}  // namespace css_processor
