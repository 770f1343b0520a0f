#include <tvbase/text/replace_engine.h>

#include <algorithm>
#include <limits>
#include <utility>

namespace replace_engine {
namespace {

// Edits per block of the index, and blocks per chunk. Large enough that the
// list of chunks stays small, small enough that an insertion's move within a
// block, or a block's within a chunk, stays cheap.
constexpr std::size_t kBlockSplit = 128;
constexpr std::size_t kChunkSplit = 64;
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
  const auto above_begin = [begin](std::size_t e) { return e <= begin; };
  std::size_t c = static_cast<std::size_t>(
      std::partition_point(chunk_ends_.begin(), chunk_ends_.end(), above_begin) -
      chunk_ends_.begin());
  std::size_t b;
  typename block::iterator at;
  if (c < chunks_.size()) {
    chunk& in = chunks_[c];
    b = static_cast<std::size_t>(std::partition_point(in.ends.begin(), in.ends.end(), above_begin) -
                                 in.ends.begin());
    block& target = in.blocks[b];
    at = std::partition_point(target.begin(), target.end(), [begin](const replacement& r) {
      return r.position + r.length <= begin;
    });
    if (at->position < end) return false;
  } else {
    // Behind every recorded span: the common case of edits recorded in text
    // order. A full last block is left full and a new one started, so that
    // such a batch fills its blocks instead of leaving each half empty; so
    // is a full last chunk.
    if (chunks_.empty() || chunks_.back().blocks.back().size() >= 2 * kBlockSplit - 1) {
      if (chunks_.empty() || chunks_.back().blocks.size() >= 2 * kChunkSplit - 1)
        new_chunk(chunks_.size());
      chunks_.back().blocks.push_back(new_block());
      chunks_.back().ends.push_back(0);
    }
    c = chunks_.size() - 1;
    b = chunks_.back().blocks.size() - 1;
    at = chunks_.back().blocks.back().end();
  }

  chunk& in = chunks_[c];
  in.blocks[b].insert(at, replacement{begin, static_cast<std::uint32_t>(what.size()),
                                      static_cast<std::uint32_t>(text_pool_.size()),
                                      static_cast<std::uint32_t>(with.size())});
  text_pool_.insert(text_pool_.end(), with.begin(), with.end());
  ++size_;
  in.ends[b] = std::max(in.ends[b], end);
  chunk_ends_[c] = std::max(chunk_ends_[c], end);
  if (in.blocks[b].size() >= 2 * kBlockSplit) split_block(c, b);
  return true;
}

template <typename Char>
typename engine<Char>::block engine<Char>::new_block() {
  block fresh;
  if (!spare_.empty()) {
    fresh = std::move(spare_.back());
    spare_.pop_back();
  } else {
    fresh.reserve(2 * kBlockSplit);
  }
  return fresh;
}

template <typename Char>
void engine<Char>::new_chunk(std::size_t index) {
  chunks_.insert(chunks_.begin() + static_cast<std::ptrdiff_t>(index), chunk{});
  chunk_ends_.insert(chunk_ends_.begin() + static_cast<std::ptrdiff_t>(index), 0);
}

template <typename Char>
void engine<Char>::split_block(std::size_t c, std::size_t b) {
  chunk& in = chunks_[c];
  const auto after = static_cast<std::ptrdiff_t>(b + 1);
  in.blocks.insert(in.blocks.begin() + after, new_block());
  in.ends.insert(in.ends.begin() + after, 0);
  block& lower = in.blocks[b];
  block& upper = in.blocks[b + 1];
  const auto middle = lower.begin() + static_cast<std::ptrdiff_t>(lower.size() / 2);
  upper.assign(middle, lower.end());
  lower.erase(middle, lower.end());
  in.ends[b + 1] = in.ends[b];
  in.ends[b] = lower.back().position + lower.back().length;
  if (in.blocks.size() >= 2 * kChunkSplit) split_chunk(c);
}

template <typename Char>
void engine<Char>::split_chunk(std::size_t c) {
  new_chunk(c + 1);
  chunk& lower = chunks_[c];
  chunk& upper = chunks_[c + 1];
  const std::size_t half = lower.blocks.size() / 2;
  const auto middle = static_cast<std::ptrdiff_t>(half);
  upper.blocks.assign(std::make_move_iterator(lower.blocks.begin() + middle),
                      std::make_move_iterator(lower.blocks.end()));
  upper.ends.assign(lower.ends.begin() + middle, lower.ends.end());
  lower.blocks.resize(half);
  lower.ends.resize(half);
  chunk_ends_[c + 1] = chunk_ends_[c];
  chunk_ends_[c] = lower.ends.back();
}

template <typename Char>
void engine<Char>::clear() {
  for (chunk& in : chunks_) {
    for (block& b : in.blocks) {
      b.clear();
      spare_.push_back(std::move(b));
    }
  }
  chunks_.clear();
  chunk_ends_.clear();
  text_pool_.clear();
  size_ = 0;
}

template <typename Char>
std::basic_string<Char> engine<Char>::apply() {
  std::size_t total = source_.size();
  for (const chunk& in : chunks_) {
    for (const block& b : in.blocks) {
      for (const replacement& r : b) total = total + r.text_length - r.length;
    }
  }
  std::basic_string<Char> result;
  result.reserve(total);
  const Char* read = source_.data();
  const Char* pool = text_pool_.data();
  for (const chunk& in : chunks_) {
    for (const block& b : in.blocks) {
      for (const replacement& r : b) {
        const Char* at = source_.data() + r.position;
        result.append(read, static_cast<std::size_t>(at - read))
            .append(pool + r.text_offset, r.text_length);
        read = at + r.length;
      }
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
