// The replace engine on a 5 MB text with a million edits, recorded in text
// order, backwards and scattered. Backwards, each edit went in at the
// front of the index, and each split of its first block moved the whole
// list of blocks: 16 million edits took 18 s, three times what they take in
// text order. The index is now cut in chunks, so a split moves one chunk.
#include <tvbase/text/replace_engine.h>

#include <string>

#include <gtest/gtest.h>

#include <tvbase/testing/allocation_counter.h>

namespace {

using testing_support::peak_bytes_during;

constexpr std::size_t kEdits = 500000;
constexpr std::size_t kStride = 10;  // two edits per 10 bytes of a 5 MB text

TEST(ReplaceEngineLarge, MillionEditsInAnyOrder) {
  struct row {
    const char* name;
    std::size_t step;  // the i-th edit recorded is number (i * step) mod kEdits
    bool backwards;
  };
  const row rows[] = {
      {"in text order", 1, false},
      {"backwards", 1, true},
      {"scattered", 7919, false},
  };
  // Piece i is "<NNN>" and dots: NNN is i mod 1000 in three digits.
  std::string text;
  std::string expected;
  for (std::size_t i = 0; i < kEdits; ++i) {
    const std::string n = std::to_string(1000 + i % 1000).substr(1);
    text += "<" + n + ">" + std::string(kStride - 5, '.');
    // Edit i: the digits replaced by a word, and an insertion before them.
    expected += "<[" + std::string(i % 3 == 0 ? "" : "x") + ">" + std::string(kStride - 5, '.');
  }
  const std::string_view view = text;
  for (const row& r : rows) {
    SCOPED_TRACE(r.name);
    replace_engine::engine<char> edits{view};
    std::string out;
    const std::size_t held = peak_bytes_during([&] {
      for (std::size_t k = 0; k < kEdits; ++k) {
        const std::size_t i = ((r.backwards ? kEdits - 1 - k : k) * r.step) % kEdits;
        const std::size_t at = i * kStride + 1;
        ASSERT_TRUE(edits.replace(view.substr(at, 3), i % 3 == 0 ? "" : "x"));
        ASSERT_TRUE(edits.replace(view.substr(at, 0), "["));
        // A span over the recorded one, and an insertion inside it.
        ASSERT_FALSE(edits.replace(view.substr(at - 1, 2), "y"));
        ASSERT_FALSE(edits.replace(view.substr(at + 1, 0), "z"));
      }
      ASSERT_EQ(edits.size(), 2 * kEdits);
      out = edits.apply();
    });
    EXPECT_TRUE(out == expected) << "got " << out.size() << " bytes: " << out.substr(0, 40);
    // The index at up to 48 bytes an edit (24, in blocks at least half
    // full), the new contents, and the result.
    EXPECT_LE(held, 48 * 2 * kEdits + 2 * text.size());
  }
}

}  // namespace
