#include <tvbase/css_processor/processor.h>

#include <algorithm>
#include <cstdint>
#include <unordered_set>
#include <utility>

#include <fmt/format.h>

#include <tvbase/text/replace_engine.h>

#include "patterns.h"
#include "resolve.h"

namespace css_processor {
namespace {

std::string_view slice(std::string_view text, span s) {
  return text.substr(s.begin, s.end - s.begin);
}

std::string_view trim(std::string_view value) {
  std::size_t begin = 0;
  std::size_t end = value.size();
  while (begin < end && is_space(value[begin])) ++begin;
  while (end > begin && is_space(value[end - 1])) --end;
  return value.substr(begin, end - begin);
}

// How far references may grow a text: a multiple of the source, and never
// less than a size no honest style sheet reaches.
constexpr std::size_t kGrowthLimit = 64;
constexpr std::size_t kLeastLimit = std::size_t{16} << 20;

// The variable block pass: collects the definitions of the first :root block
// of `text` into `table` and records the one edit of the block in `edits`.
std::optional<std::string> collect_variables(std::string_view text,
                                             replace_engine::engine<char>& edits,
                                             variable_table& table, std::size_t limit) {
  const auto block = find_root_block(text);
  if (!block) return std::nullopt;
  const std::string_view body = slice(text, block->body);
  replace_engine::engine<char> body_edits{body};
  bool other_content = false;
  for (std::size_t start = 0;;) {
    const std::size_t semicolon = body.find(';', start);
    const bool last = semicolon == std::string_view::npos;
    const std::string_view piece =
        body.substr(start, last ? std::string_view::npos : semicolon - start);
    if (const auto definition = match_definition(piece)) {
      if (table.contains(definition->name)) {
        return fmt::format("Variable name {} already defined.", definition->name);
      }
      std::string value(trim(definition->value));
      if (auto message = resolve_values(definition->name, table, value, limit)) return message;
      table.emplace(std::string(definition->name), std::move(value));
      body_edits.erase(body.substr(start, piece.size() + (last ? 0 : 1)));
    } else if (!is_blank(piece)) {
      other_content = true;
    }
    if (last) break;
    start = semicolon + 1;
  }
  if (other_content) {
    static_cast<void>(edits.replace(body, body_edits.apply()));
  } else {
    edits.erase(slice(text, block->block));
  }
  return std::nullopt;
}

// Rebuilds `text` from the edits recorded against it and binds them to the
// result. Without edits the text stays as it is.
void rebuild(replace_engine::engine<char>& edits, std::string& text) {
  if (edits.size() == 0) return;
  text = edits.apply();
  edits.reset(text);
}

// A name with its ASCII letters in lower case: names that differ only there
// fold to the same text.
std::string folded(std::string_view name) {
  std::string out(name);
  for (char& c : out) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return out;
}

}  // namespace

processor::processor() = default;
processor::processor(std::string&& text) : text_(std::move(text)) { text.clear(); }
processor::processor(const processor&) = default;
processor::processor(processor&&) noexcept = default;
processor& processor::operator=(const processor&) = default;
processor& processor::operator=(processor&&) noexcept = default;
processor::~processor() = default;

void processor::set(std::string&& text) noexcept {
  if (&text == &text_) return;
  text_ = std::move(text);
  text.clear();
}

std::string&& processor::css() noexcept { return std::move(text_); }

std::optional<std::string> processor::process() {
  const std::size_t limit = text_.size() > SIZE_MAX / kGrowthLimit
                                ? SIZE_MAX
                                : std::max(kLeastLimit, kGrowthLimit * text_.size());
  replace_engine::engine<char> edits{text_};
  {
    const std::string_view text = text_;
    for (auto comment = find_comment(text, 0); comment;
         comment = find_comment(text, comment->end)) {
      edits.erase(slice(text, *comment));
    }
  }
  rebuild(edits, text_);

  variable_table table;
  if (auto message = collect_variables(text_, edits, table, limit)) return message;
  rebuild(edits, text_);

  return resolve_values(std::nullopt, table, text_, limit);
}

// The names seen are kept folded in a hash set, so that a sheet naming many
// different images costs linear time.
std::vector<std::string> processor::images() const {
  std::vector<std::string> names;
  std::unordered_set<std::string> seen;
  const std::string_view text = text_;
  for (auto found = find_image(text, 0); found; found = find_image(text, found->whole.end)) {
    if (seen.insert(folded(found->name)).second) names.emplace_back(found->name);
  }
  return names;
}

}  // namespace css_processor
