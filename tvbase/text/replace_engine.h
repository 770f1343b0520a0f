#ifndef TVBASE_TEXT_REPLACE_ENGINE_H
#define TVBASE_TEXT_REPLACE_ENGINE_H

#include <cstddef>
#include <cstdint>
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
// grouped in chunks, that answers the collision question with three binary
// searches, and takes in an edit with a move of at most a block and a
// chunk. The index holds the edits in the order that a stable sort by
// position, then by length, gives: so at one position the insertions come
// first, in the order of recording, and apply() needs no sort of its own; it
// reserves once and copies in one pass. An edit takes 24 bytes in the index,
// up to twice that where blocks are left half full.
//
// Lengths and offsets count units of Char. A span or new content of more than
// 4,294,967,295 units, or contents adding up to more than that, is refused.
template <typename Char>
class TVBASE_EXPORT engine {
 public:
  using view = std::basic_string_view<Char>;

  explicit engine(view text = {}) : source_(text) {}

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
  using block = std::vector<replacement>;
  // Consecutive blocks, with the highest span end of each.
  struct chunk {
    std::vector<block> blocks;
    std::vector<std::size_t> ends;
  };

  void clear();
  block new_block();
  void new_chunk(std::size_t index);
  void split_block(std::size_t c, std::size_t b);
  void split_chunk(std::size_t c);

  view source_;
  // The index: chunks in order, blocks in order within each, each block
  // sorted, none empty. Splitting a block moves the blocks of one chunk, and
  // splitting a chunk the chunk headers, so that neither move grows with the
  // number of edits as a single list of blocks would.
  std::vector<chunk> chunks_;
  std::vector<std::size_t> chunk_ends_;  // the highest span end of each chunk
  std::vector<block> spare_;  // emptied blocks that keep their storage for the next batch
  std::size_t size_ = 0;
  std::vector<Char> text_pool_;
};

extern template class TVBASE_EXPORT engine<char>;
extern template class TVBASE_EXPORT engine<char8_t>;
extern template class TVBASE_EXPORT engine<wchar_t>;

}  // namespace replace_engine

#endif  // TVBASE_TEXT_REPLACE_ENGINE_H
