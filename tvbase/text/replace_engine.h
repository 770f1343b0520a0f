#ifndef TVBASE_TEXT_REPLACE_ENGINE_H
#define TVBASE_TEXT_REPLACE_ENGINE_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <tvbase/export.h>

namespace replace_engine {

// Applies a batch of edits to one text in one rebuild. Each edit names its
// place by a view into that text, which must stay in place and unchanged until
// apply(); an edit that leaves the text or overlaps one recorded before it is
// refused, and the first recorded of two colliding edits wins. New contents are
// copied at once, so the view passed as `with` may die after the call.
//
//   replace_engine::engine<char> edits{text};  // text: std::string_view
//   edits.replace(text.substr(4, 3), "red");
//   std::string out = edits.apply();
//
// Collision rules: spans that merely touch are compatible; an insertion (an
// empty span) is refused strictly inside a recorded span and accepted at its
// begin or just behind its end; several insertions may share one place. Places
// are compared by address, so a view into a copy of the text is refused.
//
// replace() costs O(log n) in the number of recorded edits, in any order of
// recording: they are kept in an ordered index, blocks of sorted spans
// grouped in chunks, that answers the collision question with four binary
// searches. A block keeps its spans in eight slabs of up to 32, so that an
// edit moves at most a slab's worth of the spans behind it, not half a
// block: at most 768 bytes, which matters once the index outgrows the
// caches and every byte moved is fetched from memory. A slab that fills up
// spreads the block's spans over its slabs again, and a block three
// quarters full splits in two. The index holds the edits in the order that a
// stable sort by position, then by length, gives: so at one position the
// insertions come first, in the order of recording, and apply() needs no
// sort of its own; it reserves once and copies in one pass. A batch recorded
// in text order needs no index at all: its edits take 24 bytes each in a
// plain list. In the index an edit takes 25 bytes in a full block, which a
// batch recorded backwards fills, and at most 65 in a block just split.
//
// Lengths and offsets count units of Char. A span or new content of more than
// 4,294,967,295 units, or contents adding up to more than that, is refused.
template <typename Char>
class TVBASE_EXPORT engine {
 public:
  using view = std::basic_string_view<Char>;

  explicit engine(view text = {}) : source_(text) {}
  // A copy records the same edits against the same text.
  engine(const engine& other);
  engine(engine&& other) noexcept;
  engine& operator=(engine other) noexcept;
  ~engine();

  // Binds the engine to `text` and forgets every recorded edit. Storage is
  // kept, so a caller who runs batch after batch does not allocate again.
  void reset(view text) {
    source_ = text;
    clear();
  }

  // Records the replacement of `what`, a view into the text, by `with`.
  // Returns false, changing nothing, if `what` lies outside the text or
  // collides with a recorded edit. A null view lies before any text that has
  // an address.
  [[nodiscard]] bool replace(view what, view with);

  void erase(view what) { static_cast<void>(replace(what, view{})); }

  // The edited text. The recorded edits are gone afterwards; the engine still
  // refers to the old text, so further edits apply to it and not to the result.
  // With no edits recorded, this is a copy of the text.
  std::basic_string<Char> apply();

  // The number of edits recorded since the last reset() or apply().
  std::size_t size() const noexcept { return size_; }

 private:
  struct replacement {
    std::size_t position;       // offset of the replaced span in source_
    std::uint32_t length;       // 0: an insertion before position
    std::uint32_t text_offset;  // where the new content begins in text_pool_
    std::uint32_t text_length;  // 0: a deletion
  };
  // Up to kSlabs * kSlab spans in sorted order, slab after slab; within a
  // slab they stand from its first slot on. ends[s] is the highest span end
  // in slabs 0 to s (so an empty one has that of those before it); the
  // slabs behind `last` hold nothing, and routing ignores them.
  static constexpr std::size_t kSlab = 32;
  static constexpr std::size_t kSlabs = 8;
  struct block {
    std::size_t count = 0;
    std::size_t ends[kSlabs] = {};
    std::uint8_t used[kSlabs] = {};
    std::uint8_t last = 0;  // the highest slab with spans, 0 if none
    replacement slots[kSlabs][kSlab];
  };
  // A block in a chunk, with the highest span end in it.
  struct entry {
    std::size_t end;
    block* spans;
  };
  // Where a span belongs: chunk, entry, slab and place in the slab.
  struct place {
    std::size_t c, b, s, at;
  };

  void clear();
  block* new_block();
  void new_chunk(std::size_t index);
  void split_block(std::size_t c, std::size_t b);
  void split_chunk(std::size_t c);
  place locate(std::size_t begin) const;
  place behind_all();
  void insert(const place& p, const replacement& r);
  void index_run();

  view source_;
  // Edits recorded in text order, each behind all before it, as long as no
  // other came: the common case needs no index. The first edit out of order
  // moves them into the index.
  std::vector<replacement> run_;
  // The index: chunks in order, the blocks of each in order, none empty.
  // Splitting a block moves the entries of one chunk, and splitting a chunk
  // the chunk list, so that neither move grows with the number of edits as
  // a single list of blocks would.
  std::vector<std::vector<entry>> chunks_;
  std::vector<std::size_t> chunk_ends_;  // the highest span end of each chunk
  // Every block made; those not in the index keep their storage for the
  // next batch.
  std::vector<std::unique_ptr<block>> blocks_;
  std::vector<block*> spare_;
  std::size_t size_ = 0;
  std::vector<Char> text_pool_;
};

extern template class TVBASE_EXPORT engine<char>;
extern template class TVBASE_EXPORT engine<char8_t>;
extern template class TVBASE_EXPORT engine<wchar_t>;

}  // namespace replace_engine

#endif  // TVBASE_TEXT_REPLACE_ENGINE_H
