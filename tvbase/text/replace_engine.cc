#include <tvbase/text/replace_engine.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <utility>

namespace replace_engine {
namespace {

// Blocks per chunk: large enough that the list of chunks stays small, small
// enough that a block's split, which moves the entries of its chunk, stays
// cheap.
constexpr std::size_t kChunkSplit = 64;
constexpr std::size_t kMaxUnits = std::numeric_limits<std::uint32_t>::max();

}  // namespace

template <typename Char>
engine<Char>::engine(const engine& other)
    : source_(other.source_),
      run_(other.run_),
      chunks_(other.chunks_),
      chunk_ends_(other.chunk_ends_),
      size_(other.size_),
      text_pool_(other.text_pool_) {
  for (std::vector<entry>& in : chunks_) {
    for (entry& e : in) {
      blocks_.push_back(std::make_unique<block>(*e.spans));
      e.spans = blocks_.back().get();
    }
  }
}

// Blocks stay where they are, so the index's pointers stay valid in the new
// owner.
template <typename Char>
engine<Char>::engine(engine&& other) noexcept = default;

template <typename Char>
engine<Char>& engine<Char>::operator=(engine other) noexcept {
  std::swap(source_, other.source_);
  std::swap(run_, other.run_);
  std::swap(chunks_, other.chunks_);
  std::swap(chunk_ends_, other.chunk_ends_);
  std::swap(blocks_, other.blocks_);
  std::swap(spare_, other.spare_);
  std::swap(size_, other.size_);
  std::swap(text_pool_, other.text_pool_);
  return *this;
}

template <typename Char>
engine<Char>::~engine() = default;

namespace {

// The spans of `from`, in order, into `to`.
template <class Block, class Span>
std::size_t gather(const Block& from, std::size_t slabs, Span* to) {
  std::size_t n = 0;
  for (std::size_t s = 0; s < slabs; ++s) {
    std::memcpy(to + n, from.slots[s], from.used[s] * sizeof(Span));
    n += from.used[s];
  }
  return n;
}

// `count` spans, in order, spread over the slabs of `to` as evenly as they
// go, so that each slab has room again.
template <class Block, class Span>
void spread(const Span* from, std::size_t count, std::size_t slabs, Block& to) {
  std::size_t taken = 0;
  std::size_t end = 0;
  for (std::size_t s = 0; s < slabs; ++s) {
    const std::size_t n = (count - taken + (slabs - s - 1)) / (slabs - s);
    std::memcpy(to.slots[s], from + taken, n * sizeof(Span));
    to.used[s] = static_cast<std::uint8_t>(n);
    taken += n;
    if (n != 0) end = std::max(end, to.slots[s][n - 1].position + to.slots[s][n - 1].length);
    to.ends[s] = end;
    if (n != 0) to.last = static_cast<std::uint8_t>(s);
  }
  to.count = count;
}

}  // namespace

// Recorded spans are disjoint, so in index order their ends rise with their
// begins. The spans that end above `begin` are therefore a tail of the index,
// and its first span has the lowest begin of them all: a new span collides
// with something exactly when it collides with that one. An accepted span
// belongs right in front of that first span, since everything before it ends
// at or before `begin`; among equal positions that puts an insertion before
// a replacement and after earlier insertions, as a stable sort by position,
// then length, would. There must be such a span.
template <typename Char>
typename engine<Char>::place engine<Char>::locate(std::size_t begin) const {
  const auto above = [begin](std::size_t e) { return e <= begin; };
  const std::size_t c = static_cast<std::size_t>(
      std::partition_point(chunk_ends_.begin(), chunk_ends_.end(), above) - chunk_ends_.begin());
  const std::vector<entry>& in = chunks_[c];
  const std::size_t b = static_cast<std::size_t>(
      std::partition_point(in.begin(), in.end(),
                           [begin](const entry& e) { return e.end <= begin; }) -
      in.begin());
  const block& k = *in[b].spans;
  const std::size_t s =
      static_cast<std::size_t>(std::partition_point(k.ends, k.ends + k.last + 1, above) - k.ends);
  const replacement* const slab = k.slots[s];
  // Once the index outgrows the caches, the slab is a few lines of memory
  // that the search below would fetch one after another: ask for all of
  // them at once.
  const auto* const bytes = reinterpret_cast<const char*>(slab);
#if defined(__GNUC__)
  for (std::size_t line = 0; line < k.used[s] * sizeof(replacement); line += 64) {
    __builtin_prefetch(bytes + line);
  }
#else
  static_cast<void>(bytes);
#endif
  const std::size_t at =
      static_cast<std::size_t>(std::partition_point(slab, slab + k.used[s],
                                                    [begin](const replacement& r) {
                                                      return r.position + r.length <= begin;
                                                    }) -
                               slab);
  return {c, b, s, at};
}

// The place behind every recorded span, in the last slab that has spans or
// the next one; a full last block is left full and a new one started, so
// that a batch recorded in text order fills its blocks, and so is a full last
// chunk.
template <typename Char>
typename engine<Char>::place engine<Char>::behind_all() {
  if (!chunks_.empty()) {
    const block& last = *chunks_.back().back().spans;
    const std::size_t s = last.last;
    const place p{chunks_.size() - 1, chunks_.back().size() - 1, s, last.used[s]};
    if (last.used[s] < kSlab) return p;
    if (s + 1 < kSlabs) return {p.c, p.b, s + 1, 0};
  }
  if (chunks_.empty() || chunks_.back().size() >= 2 * kChunkSplit - 1) new_chunk(chunks_.size());
  chunks_.back().push_back({0, new_block()});
  return {chunks_.size() - 1, chunks_.back().size() - 1, 0, 0};
}

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
  const replacement r{begin, static_cast<std::uint32_t>(what.size()),
                      static_cast<std::uint32_t>(text_pool_.size()),
                      static_cast<std::uint32_t>(with.size())};

  if (chunks_.empty()) {
    if (run_.empty() || run_.back().position + run_.back().length <= begin) {
      run_.push_back(r);
      text_pool_.insert(text_pool_.end(), with.begin(), with.end());
      ++size_;
      return true;
    }
    index_run();
  }
  place p{};
  if (chunk_ends_.back() <= begin) {
    p = behind_all();
  } else {
    p = locate(begin);
    const block* k = chunks_[p.c][p.b].spans;
    if (k->slots[p.s][p.at].position < begin + what.size()) return false;
    if (k->used[p.s] == kSlab) {
      if (p.at == 0 && p.s > 0 && k->used[p.s - 1] < kSlab) {
        // In front of a full slab is behind the one before it.
        p = {p.c, p.b, p.s - 1, k->used[p.s - 1]};
      } else if (p.at == 0 && p.s == 0 && p.c == 0 && p.b == 0) {
        // In front of every recorded span, as a batch recorded backwards
        // comes: a block of its own, filled from its last slab down.
        chunks_[0].insert(chunks_[0].begin(), entry{0, new_block()});
        if (chunks_[0].size() >= 2 * kChunkSplit) split_chunk(0);
        p = {0, 0, kSlabs - 1, 0};
      } else {
        block& full = *chunks_[p.c][p.b].spans;
        if (full.count < kSlabs * kSlab * 3 / 4) {
          replacement all[kSlabs * kSlab];
          spread(all, gather(full, kSlabs, all), kSlabs, full);
        } else {
          split_block(p.c, p.b);
        }
        p = locate(begin);
      }
    }
  }
  insert(p, r);
  text_pool_.insert(text_pool_.end(), with.begin(), with.end());
  ++size_;
  return true;
}

// Moves the edits recorded in text order into the index, as full blocks.
template <typename Char>
void engine<Char>::index_run() {
  for (const replacement& r : run_) insert(behind_all(), r);
  run_.clear();
}

// Makes `r` the span at place `p`, whose slab has room.
template <typename Char>
void engine<Char>::insert(const place& p, const replacement& r) {
  entry& in = chunks_[p.c][p.b];
  block& k = *in.spans;
  replacement* const slab = k.slots[p.s];
  if (p.at < k.used[p.s]) {
    std::memmove(slab + p.at + 1, slab + p.at, (k.used[p.s] - p.at) * sizeof(replacement));
  }
  slab[p.at] = r;
  ++k.used[p.s];
  ++k.count;
  k.last = static_cast<std::uint8_t>(std::max<std::size_t>(k.last, p.s));
  const std::size_t end = r.position + r.length;
  for (std::size_t s = p.s; s <= k.last; ++s) k.ends[s] = std::max(k.ends[s], end);
  in.end = std::max(in.end, end);
  chunk_ends_[p.c] = std::max(chunk_ends_[p.c], end);
}

template <typename Char>
typename engine<Char>::block* engine<Char>::new_block() {
  block* fresh;
  if (spare_.empty()) {
    blocks_.push_back(std::make_unique<block>());
    fresh = blocks_.back().get();
  } else {
    fresh = spare_.back();
    spare_.pop_back();
  }
  fresh->count = 0;
  fresh->last = 0;
  std::fill(std::begin(fresh->ends), std::end(fresh->ends), 0);
  std::fill(std::begin(fresh->used), std::end(fresh->used), 0);
  return fresh;
}

template <typename Char>
void engine<Char>::new_chunk(std::size_t index) {
  chunks_.insert(chunks_.begin() + static_cast<std::ptrdiff_t>(index), std::vector<entry>{});
  chunk_ends_.insert(chunk_ends_.begin() + static_cast<std::ptrdiff_t>(index), 0);
}

// Halves a block: the upper half goes to a new block behind it, and both
// spread their spans over their slabs.
template <typename Char>
void engine<Char>::split_block(std::size_t c, std::size_t b) {
  block* const upper = new_block();
  std::vector<entry>& in = chunks_[c];
  block& lower = *in[b].spans;
  replacement all[kSlabs * kSlab];
  const std::size_t count = gather(lower, kSlabs, all);
  const std::size_t half = count / 2;
  spread(all, half, kSlabs, lower);
  spread(all + half, count - half, kSlabs, *upper);
  in.insert(in.begin() + static_cast<std::ptrdiff_t>(b + 1), entry{in[b].end, upper});
  in[b].end = lower.ends[kSlabs - 1];
  if (in.size() >= 2 * kChunkSplit) split_chunk(c);
}

template <typename Char>
void engine<Char>::split_chunk(std::size_t c) {
  new_chunk(c + 1);
  std::vector<entry>& lower = chunks_[c];
  std::vector<entry>& upper = chunks_[c + 1];
  const auto middle = lower.begin() + static_cast<std::ptrdiff_t>(lower.size() / 2);
  upper.assign(middle, lower.end());
  lower.erase(middle, lower.end());
  chunk_ends_[c + 1] = chunk_ends_[c];
  chunk_ends_[c] = lower.back().end;
}

template <typename Char>
void engine<Char>::clear() {
  for (const std::vector<entry>& in : chunks_) {
    for (const entry& e : in) spare_.push_back(e.spans);
  }
  run_.clear();
  chunks_.clear();
  chunk_ends_.clear();
  text_pool_.clear();
  size_ = 0;
}

template <typename Char>
std::basic_string<Char> engine<Char>::apply() {
  // Every span, in index order.
  const auto for_each = [this](auto&& fn) {
    for (const replacement& r : run_) fn(r);
    for (const std::vector<entry>& in : chunks_) {
      for (const entry& e : in) {
        for (std::size_t s = 0; s < kSlabs; ++s) {
          const replacement* const slab = e.spans->slots[s];
          for (std::size_t i = 0; i < e.spans->used[s]; ++i) fn(slab[i]);
        }
      }
    }
  };
  std::size_t total = source_.size();
  for_each([&total](const replacement& r) { total = total + r.text_length - r.length; });
  std::basic_string<Char> result;
  result.reserve(total);
  const Char* read = source_.data();
  const Char* const pool = text_pool_.data();
  for_each([&](const replacement& r) {
    const Char* at = source_.data() + r.position;
    result.append(read, static_cast<std::size_t>(at - read))
        .append(pool + r.text_offset, r.text_length);
    read = at + r.length;
  });
  result.append(read, static_cast<std::size_t>(source_.data() + source_.size() - read));
  clear();
  return result;
}

template class engine<char>;
template class engine<char8_t>;
template class engine<wchar_t>;

}  // namespace replace_engine
