#include "resolve.h"

#include <algorithm>
#include <stdexcept>

#include <fmt/format.h>

#include <tvbase/text/replace_engine.h>

#include "calc.h"
#include "patterns.h"

namespace css_processor {

std::optional<std::string> resolve_values(std::optional<std::string_view> name,
                                          const variable_table& table, std::string& text,
                                          byte_budget budget) {
  const std::size_t limit = budget.limit;
  replace_engine::engine<char> edits{text};
  {
    const std::string_view source = text;
    std::size_t size = source.size();
    for (auto ref = find_reference(source, 0); ref; ref = find_reference(source, ref->whole.end)) {
      const auto entry = table.find(ref->name);
      if (entry == table.end()) return fmt::format("Variable {} is undefined.", ref->name);
      const std::size_t length = ref->whole.end - ref->whole.begin;
      size -= length;
      if (entry->second.size() > limit || size > limit - entry->second.size()) {
        throw std::length_error(
            fmt::format("css_processor: var() references grow the text past {} bytes", limit));
      }
      size += entry->second.size();
      static_cast<void>(edits.replace(source.substr(ref->whole.begin, length), entry->second));
    }
    // The new text fits the budget on its own; it must fit beside the rest.
    // The values recorded so far take no more than the budget.
    if (size > limit - std::min(limit, budget.held)) {
      throw std::length_error(fmt::format(
          "css_processor: var() references grow the style sheet and its variables past {} bytes",
          limit));
    }
    if (edits.size() != 0) {
      text = edits.apply();
      edits.reset(text);
    }
  }
  if (!name) return std::nullopt;

  const std::string_view source = text;
  for (std::size_t open = source.find("calc("); open != std::string_view::npos;) {
    std::size_t depth = 1;
    std::size_t close = open + 5;
    for (; close < source.size(); ++close) {
      if (source[close] == '(') {
        ++depth;
      } else if (source[close] == ')' && --depth == 0) {
        break;
      }
    }
    if (close == source.size()) {
      return fmt::format("Mismatched parentheses in calc() in definition for variable {}.", *name);
    }
    std::string expression(source.substr(open + 5, close - open - 5));
    if (auto message = evaluate_calc(*name, expression)) return message;
    static_cast<void>(edits.replace(source.substr(open, close + 1 - open), expression));
    open = source.find("calc(", close + 1);
  }
  if (edits.size() != 0) text = edits.apply();
  return std::nullopt;
}

}  // namespace css_processor
