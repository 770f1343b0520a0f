#include <tvbase/css_processor/processor.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
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
// The budget's held bytes grow by each definition stored.
std::optional<std::string> collect_variables(std::string_view text,
                                             replace_engine::engine<char>& edits,
                                             variable_table& table, byte_budget& budget) {
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
      if (auto message = resolve_values(definition->name, table, value, budget)) return message;
      budget.held += definition->name.size() + value.size();
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

// The names that images() has listed, as views into the text, found again
// by their folded text without a node or a copy per name: an
// open-addressing table of 64-bit slots, each the number of a listed name
// (plus one; 0 is free) under 24 bits of its hash, so that a probe reads
// one slot, and a listed name only when those bits agree. The table starts
// small and doubles once it is two thirds full, filled again from the names
// in their order, which reads them as they stand in the text: a sheet that
// names few images many times keeps a table of its size, and one that
// names many hashes each name about twice.
//
// Over a big sheet the table is far larger than the caches, and a probe
// would wait for memory each time; so the slots of the names ahead are
// asked for early, kAhead of them, and the waits overlap, here and when
// the table is filled again. The names are copied out once, at the end,
// into a list of their exact length.
class image_names {
 public:
  static constexpr std::size_t kAhead = 16;

  // Bytes of a name fold to lower case with bit 0x20: it lowers the ASCII
  // letters and keeps every other byte of a name apart ('_' becomes 0x7F,
  // which no name holds).
  static std::uint64_t hash(std::string_view name) {
    std::uint64_t h = 0x9E3779B97F4A7C15ull ^ name.size();
    std::size_t i = 0;
    for (; i + 8 <= name.size(); i += 8) {
      std::uint64_t word;
      std::memcpy(&word, name.data() + i, 8);
      h = mix(h ^ (word | 0x2020202020202020ull));
    }
    std::uint64_t tail = 0;
    for (std::size_t k = 0; i + k < name.size(); ++k) {
      tail |= std::uint64_t{static_cast<unsigned char>(name[i + k]) | 0x20u} << (8 * k);
    }
    return mix(h ^ tail);
  }

  image_names() : slots_(64) {}

  void prefetch(std::uint64_t h) const { ask_for(&slots_[h & (slots_.size() - 1)]); }

  // Lists `name` unless a name equal to it is listed.
  void add(std::string_view name, std::uint64_t h) {
    const std::uint64_t tag = h >> 40;
    const std::size_t mask = slots_.size() - 1;
    std::size_t i = h & mask;
    for (; slots_[i] != 0; i = (i + 1) & mask) {
      if (slots_[i] >> 40 == tag && same(names_[(slots_[i] & kIndex) - 1], name)) return;
    }
    names_.push_back(name);
    slots_[i] = tag << 40 | names_.size();
    if (3 * names_.size() > 2 * slots_.size()) grow();
  }

  std::vector<std::string> take() const {
    std::vector<std::string> out;
    out.reserve(names_.size());
    for (const std::string_view name : names_) out.emplace_back(name);
    return out;
  }

 private:
  static constexpr std::uint64_t kIndex = (std::uint64_t{1} << 40) - 1;

  // A table twice the size, holding every listed name.
  void grow() {
    std::vector<std::uint64_t> bigger(2 * slots_.size());
    const std::size_t mask = bigger.size() - 1;
    for (std::size_t n = 0; n < names_.size(); ++n) {
      if (n + kAhead < names_.size()) ask_for(&bigger[hash(names_[n + kAhead]) & mask]);
      const std::uint64_t h = hash(names_[n]);
      std::size_t i = h & mask;
      while (bigger[i] != 0) i = (i + 1) & mask;
      bigger[i] = (h >> 40) << 40 | (n + 1);
    }
    slots_.swap(bigger);
  }

  static void ask_for([[maybe_unused]] const void* address) {
#if defined(__GNUC__)
    __builtin_prefetch(address);
#endif
  }

  static std::uint64_t mix(std::uint64_t h) {
    h *= 0xFF51AFD7ED558CCDull;
    return h ^ (h >> 32);
  }

  static bool same(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
      if ((static_cast<unsigned char>(a[i]) | 0x20u) != (static_cast<unsigned char>(b[i]) | 0x20u))
        return false;
    }
    return true;
  }

  std::vector<std::string_view> names_;  // into the text, in order of appearance
  std::vector<std::uint64_t> slots_;     // a power of two
};

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
  byte_budget budget{limit, text_.size()};
  if (auto message = collect_variables(text_, edits, table, budget)) return message;
  const std::size_t stored = budget.held - text_.size();
  rebuild(edits, text_);

  return resolve_values(std::nullopt, table, text_, {limit, stored + text_.size()});
}

// Matches are found kAhead in front of the one being listed, so that the
// table's slot for each is on its way from memory when it is needed.
std::vector<std::string> processor::images() const {
  constexpr std::size_t kAhead = image_names::kAhead;
  struct pending {
    std::string_view name;
    std::uint64_t hash;
  };
  image_names listed;
  pending ahead[kAhead];
  std::size_t first = 0;
  std::size_t count = 0;
  const std::string_view text = text_;
  std::optional<image> next = find_image(text, 0);
  for (;;) {
    while (count < kAhead && next) {
      const std::uint64_t h = image_names::hash(next->name);
      listed.prefetch(h);
      ahead[(first + count++) % kAhead] = {next->name, h};
      next = find_image(text, next->whole.end);
    }
    if (count == 0) break;
    listed.add(ahead[first].name, ahead[first].hash);
    first = (first + 1) % kAhead;
    --count;
  }
  return listed.take();
}

}  // namespace css_processor
