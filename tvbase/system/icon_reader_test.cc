#include <tvbase/system/icon_reader.h>

#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <tvbase/system/icon_test_files.h>

namespace {

using namespace icon_test;

TEST(ChooseIconEntry, TakesExactThenLargerThenLargest) {
  using gdi::icon_entry_size;
  const std::vector<icon_entry_size> sizes = {
      {32, 32, 8}, {16, 16, 32}, {48, 48, 32}, {32, 32, 32}, {64, 32, 32}};
  struct row {
    int width, height, expected;
  };
  const row rows[] = {
      {16, 16, 1},   {32, 32, 3},  // of two at 32x32, the one with more colours
      {17, 17, 3},   {24, 24, 3}, {33, 33, 2}, {48, 48, 2}, {49, 49, 2},  // none larger: largest
      {256, 256, 2}, {40, 20, 4},  // only 64x32 is at least 40 wide and 20 high
      {1, 1, 1},     {0, 0, 2},   {-5, 16, 2}, {16, 0, 2},
  };
  for (const row& r : rows) {
    SCOPED_TRACE(std::to_string(r.width) + "x" + std::to_string(r.height));
    EXPECT_EQ(gdi::choose_icon_entry(sizes, r.width, r.height), r.expected);
  }
  EXPECT_EQ(gdi::choose_icon_entry({}, 16, 16), -1);
}

TEST(DecodeIconImage, ReadsEveryBitDepthAndItsMask) {
  struct row {
    int w, h, bits;
    bool with_mask;
  };
  const row rows[] = {{3, 2, 1, true},  {17, 5, 1, true},  {3, 2, 4, true},   {9, 3, 4, true},
                      {5, 4, 8, true},  {33, 2, 8, true},  {3, 3, 24, true},  {5, 2, 24, false},
                      {4, 4, 32, true}, {1, 1, 32, false}, {40, 33, 4, true}, {7, 7, 8, false}};
  for (const row& r : rows) {
    SCOPED_TRACE(std::to_string(r.w) + "x" + std::to_string(r.h) + "@" + std::to_string(r.bits));
    const buffer dib = make_dib(r.w, r.h, r.bits, r.with_mask);
    const auto icon = gdi::decode_icon_image(dib);
    ASSERT_NE(icon, nullptr);
    EXPECT_EQ(icon->width, r.w);
    EXPECT_EQ(icon->height, r.h);
    EXPECT_EQ(icon->has_colour, r.bits != 1);
    ASSERT_EQ(icon->pixels.size(), static_cast<std::size_t>(r.w * r.h * 4));
    int wrong = 0;
    for (int y = 0; y < r.h; ++y) {
      for (int x = 0; x < r.w; ++x) {
        bgra want = colour_at(x, y, r.bits);
        // The mask counts only where the image has no alpha of its own.
        if (r.bits != 32 && r.with_mask && masked(x, y)) want.a = 0;
        bgra got;
        std::copy_n(&icon->pixels[static_cast<std::size_t>((y * r.w + x) * 4)], 4, &got.b);
        if (!(got == want) && wrong++ < 3) ADD_FAILURE() << "pixel " << x << "," << y;
      }
    }
  }
}

TEST(DecodeIconImage, RefusesWhatItCannotRead) {
  buffer rle = make_dib(4, 4, 8);
  rle[16] = 1;  // compressed
  buffer top_down = make_dib(4, 4, 8);
  top_down[8] = 0xF8, top_down[9] = top_down[10] = top_down[11] = 0xFF;  // height -8
  buffer wide = make_dib(4, 4, 32);
  wide[4] = 0x01, wide[5] = 0x04;  // 1025 wide
  buffer sixteen = make_dib(4, 4, 32);
  sixteen[14] = 16;
  buffer palette = make_dib(4, 4, 4);
  palette[32] = 17;  // more colours than 4 bits index
  buffer png = make_png(0, 16);
  const std::pair<const char*, buffer> rows[] = {
      {"empty", {}},
      {"short header", head(make_dib(4, 4, 32), 39)},
      {"short rows", head(make_dib(4, 4, 32), 40 + 63)},
      {"compressed", rle},
      {"top-down", top_down},
      {"too wide", wide},
      {"16 bits", sixteen},
      {"palette too long", palette},
      {"png of width 0", png},
      {"png cut short", head(make_png(16, 16), 23)},
  };
  for (const auto& [name, bytes] : rows) {
    SCOPED_TRACE(name);
    EXPECT_EQ(gdi::decode_icon_image(bytes), nullptr);
  }
}

// Readers of untrusted bytes: every truncation and many corruptions of a good
// file give null or a consistent icon, never a bad read (the sanitizer build
// checks the reads).
TEST(IconReaders, SurviveMalformedInput) {
  const buffer ico = make_ico({{16, 16, 4, make_dib(16, 16, 4)}, {0, 0, 32, make_png(256, 256)}});
  const image i{16, 16, 8, make_dib(16, 16, 8)};
  const buffer pe = make_pe({{3, 1, "", i.bytes}, {14, 0, "APP", make_group({i}, {1})}});
  const auto consistent = [](const std::unique_ptr<gdi::icon>& icon) {
    if (!icon) return true;
    if (icon->width <= 0 || icon->height <= 0) return false;
    return icon->format == gdi::icon_format::png ||
           icon->pixels.size() == static_cast<std::size_t>(icon->width) * icon->height * 4;
  };
  const auto read_both = [&](const buffer& bytes) {
    EXPECT_TRUE(consistent(gdi::read_ico_file(bytes, 16, 16)));
    EXPECT_TRUE(consistent(gdi::read_ico_file(bytes, 300, 300)));
    EXPECT_TRUE(consistent(gdi::read_pe_icon(bytes, {0, "app"}, 16, 16)));
    EXPECT_TRUE(consistent(gdi::read_pe_icon(bytes, {1, {}}, 16, 16)));
  };
  ASSERT_NE(gdi::read_ico_file(ico, 16, 16), nullptr);
  ASSERT_NE(gdi::read_pe_icon(pe, {0, "app"}, 16, 16), nullptr);
  std::mt19937 random(12345);
  for (const buffer* good : {&ico, &pe}) {
    for (std::size_t n = 0; n < good->size(); ++n) read_both(head(*good, n));
    for (int round = 0; round < 1500; ++round) {
      buffer bad = *good;
      for (int k = 0; k < 4; ++k) {
        const std::size_t at = random() % bad.size();
        bad[at] = round % 3 == 0 ? 0xFF : static_cast<std::uint8_t>(random());
      }
      read_both(bad);
    }
  }
}

}  // namespace
