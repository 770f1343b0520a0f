#include <tvbase/text/replace_engine.h>

#include <algorithm>
#include <limits>
#include <utility>

namespace replace_engine {
namespace {

// Edits per block of the index. Large enough that the block directory stays
// small, small enough that an insertion's move within a block stays cheap.
constexpr std::size_t kBlockSplit = 128;
constexpr std::size_t kMaxUnits = std::numeric_limits<std::uint32_t>::max();

}  // namespace

template <typename Char>
bool engine<Char>::replace(view what, view with) {
  // Addresses are compared as integers: a view into another object is a
  // normal input here and must not make the comparison undefined.
  const auto source_at = reinterpret_cast<std::uintptr_t>(source_.data());
  const auto what_at = reinterpret_cast<std::uintptr_t>(what.data());
  if (what_at < source_at || (what_at - source_at) % sizeof(Char) != 0) return false;
  const std::size_t begin = (what_at - source_at) / sizeof(Char);
  if (begin > source_.size() || what.size() > source_.size() - begin) return false;
  if (what.size() > kMaxUnits || with.size() > kMaxUnits - text_pool_.size()) return false;
  const std::size_t end = begin + what.size();

  // Recorded spans are disjoint, so in index order their ends rise with their
  // begins. The spans that end above `begin` are therefore a tail of the
  // index, and its first span has the lowest begin of them all: the new span
  // collides with something exactly when it collides with that one. An
  // accepted span belongs right in front of that first span, since everything
  // before it ends at or before `begin`; among equal positions that puts an
  // insertion before a replacement and after earlier insertions, as a stable
  // sort by position, then length, would.
  const auto block_at = static_cast<std::size_t>(
      std::partition_point(block_ends_.begin(), block_ends_.end(), [begin](std::size_t e) { return e <= begin; }) -
      block_ends_.begin());
  block* target = nullptr;
  typename block::iterator at;
  if (block_at < blocks_.size()) {
    target = &blocks_[block_at];
    at = std::partition_point(target->begin(), target->end(),
                              [begin](const replacement& r) { return r.position + r.length <= begin; });
    if (at->position < end) return false;
  } else {
    // Behind every recorded span: the common case of edits recorded in text
    // order. A full last block is left full and a new one started, so that
    // such a batch fills its blocks instead of leaving each half empty.
    if (blocks_.empty() || blocks_.back().size() >= 2 * kBlockSplit - 1) new_block(blocks_.size());
    target = &blocks_.back();
    at = target->end();
  }

  target->insert(at, replacement{begin, static_cast<std::uint32_t>(what.size()),
                                 static_cast<std::uint32_t>(text_pool_.size()),
                                 static_cast<std::uint32_t>(with.size())});
  text_pool_.insert(text_pool_.end(), with.begin(), with.end());
  ++size_;
  const std::size_t index = target == &blocks_.back() ? blocks_.size() - 1 : block_at;
  block_ends_[index] = std::max(block_ends_[index], end);
  if (target->size() >= 2 * kBlockSplit) split(index);
  return true;
}

template <typename Char>
void engine<Char>::new_block(std::size_t index) {
  block fresh;
  if (!spare_.empty()) {
    fresh = std::move(spare_.back());
    spare_.pop_back();
  } else {
    fresh.reserve(2 * kBlockSplit);
  }
  blocks_.insert(blocks_.begin() + static_cast<std::ptrdiff_t>(index), std::move(fresh));
  block_ends_.insert(block_ends_.begin() + static_cast<std::ptrdiff_t>(index), 0);
}

template <typename Char>
void engine<Char>::split(std::size_t index) {
  new_block(index + 1);
  block& lower = blocks_[index];
  block& upper = blocks_[index + 1];
  const auto middle = lower.begin() + static_cast<std::ptrdiff_t>(lower.size() / 2);
  upper.assign(middle, lower.end());
  lower.erase(middle, lower.end());
  block_ends_[index + 1] = block_ends_[index];
  block_ends_[index] = lower.back().position + lower.back().length;
}

template <typename Char>
void engine<Char>::clear() {
  for (block& b : blocks_) {
    b.clear();
    spare_.push_back(std::move(b));
  }
  blocks_.clear();
  block_ends_.clear();
  text_pool_.clear();
  size_ = 0;
}

template <typename Char>
std::basic_string<Char> engine<Char>::apply() {
  std::size_t total = source_.size();
  for (const block& b : blocks_) {
    for (const replacement& r : b) total = total + r.text_length - r.length;
  }
  std::basic_string<Char> result;
  result.reserve(total);
  const Char* read = source_.data();
  const Char* pool = text_pool_.data();
  for (const block& b : blocks_) {
    for (const replacement& r : b) {
      const Char* at = source_.data() + r.position;
      result.append(read, static_cast<std::size_t>(at - read)).append(pool + r.text_offset, r.text_length);
      read = at + r.length;
    }
  }
  result.append(read, static_cast<std::size_t>(source_.data() + source_.size() - read));
  clear();
  return result;
}

template class engine<char>;
template class engine<char8_t>;
template class engine<wchar_t>;

}  // namespace replace_engine
