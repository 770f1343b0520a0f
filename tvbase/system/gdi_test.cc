#include <tvbase/system/gdi.h>

#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <tvbase/platform/icon.h>

namespace {

namespace fs = std::filesystem;
using buffer = std::vector<std::uint8_t>;

// Little-endian output.
struct writer {
  buffer b;
  void u8(unsigned v) { b.push_back(static_cast<std::uint8_t>(v)); }
  void u16(unsigned v) { u8(v & 0xFF), u8(v >> 8 & 0xFF); }
  void u32(std::uint32_t v) { u16(v & 0xFFFF), u16(v >> 16); }
  void put(const buffer& data) { b.insert(b.end(), data.begin(), data.end()); }
  void pad_to(std::size_t size) { b.resize(std::max(b.size(), size)); }
  void set32(std::size_t at, std::uint32_t v) {
    for (int i = 0; i < 4; ++i)
      b[at + static_cast<std::size_t>(i)] = static_cast<std::uint8_t>(v >> (8 * i));
  }
};

struct bgra {
  std::uint8_t b, g, r, a;
  bool operator==(const bgra&) const = default;
};

// The colour of pixel (x, y), top row first, for a test image.
bgra colour_at(int x, int y, int bits) {
  if (bits == 1) return (x + y) % 2 ? bgra{255, 255, 255, 255} : bgra{0, 0, 0, 255};
  if (bits <= 8) {
    const auto i = static_cast<std::uint8_t>((x * 3 + y) % (1 << bits));
    return {i, static_cast<std::uint8_t>(255 - i), 3, 255};
  }
  return {static_cast<std::uint8_t>(x), static_cast<std::uint8_t>(y), 9,
          static_cast<std::uint8_t>(bits == 32 ? 100 + x : 255)};
}

bool masked(int x, int y) { return x == 0 || y == 1; }

// A bitmap image as an icon stores it, bottom row first, with its mask.
buffer make_dib(int w, int h, int bits, bool with_mask = true) {
  writer out;
  out.u32(40), out.u32(static_cast<std::uint32_t>(w)), out.u32(static_cast<std::uint32_t>(h * 2));
  out.u16(1), out.u16(static_cast<unsigned>(bits));
  for (int i = 0; i < 6; ++i) out.u32(0);
  if (bits <= 8) {
    for (int i = 0; i < (1 << bits); ++i) {
      if (bits == 1) {
        const unsigned v = i ? 255 : 0;
        out.u8(v), out.u8(v), out.u8(v), out.u8(0);
      } else {
        out.u8(static_cast<unsigned>(i)), out.u8(255u - static_cast<unsigned>(i)), out.u8(3),
            out.u8(0);
      }
    }
  }
  const std::size_t stride = static_cast<std::size_t>((w * bits + 31) / 32 * 4);
  for (int y = h - 1; y >= 0; --y) {
    buffer row(stride);
    for (int x = 0; x < w; ++x) {
      const bgra c = colour_at(x, y, bits);
      if (bits == 32) {
        std::copy_n(&c.b, 4, &row[static_cast<std::size_t>(x) * 4]);
      } else if (bits == 24) {
        std::copy_n(&c.b, 3, &row[static_cast<std::size_t>(x) * 3]);
      } else {
        const unsigned index = bits == 1 ? c.b / 255u : c.b;
        const int bit = x * bits;
        row[static_cast<std::size_t>(bit / 8)] |=
            static_cast<std::uint8_t>(index << (8 - bits - bit % 8));
      }
    }
    out.put(row);
  }
  if (with_mask) {
    const std::size_t mask_stride = static_cast<std::size_t>((w + 31) / 32 * 4);
    for (int y = h - 1; y >= 0; --y) {
      buffer row(mask_stride);
      for (int x = 0; x < w; ++x) {
        if (masked(x, y))
          row[static_cast<std::size_t>(x / 8)] |= static_cast<std::uint8_t>(0x80 >> (x % 8));
      }
      out.put(row);
    }
  }
  return out.b;
}

// The head of a PNG image: the signature and the IHDR chunk, which is all the
// reader looks at.
buffer make_png(std::uint32_t w, std::uint32_t h) {
  buffer out = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n', 0, 0, 0, 13, 'I', 'H', 'D', 'R'};
  for (std::uint32_t v : {w, h}) {
    for (int shift = 24; shift >= 0; shift -= 8)
      out.push_back(static_cast<std::uint8_t>(v >> shift));
  }
  out.insert(out.end(), {8, 6, 0, 0, 0, 0, 0, 0, 0});
  return out;
}

struct image {
  unsigned dir_width, dir_height, bits;  // as the directory states them; 0 means 256
  buffer bytes;
};

buffer make_ico(const std::vector<image>& images) {
  writer out;
  out.u16(0), out.u16(1), out.u16(static_cast<unsigned>(images.size()));
  std::uint32_t offset = 6 + 16 * static_cast<std::uint32_t>(images.size());
  for (const image& i : images) {
    out.u8(i.dir_width), out.u8(i.dir_height), out.u8(0), out.u8(0), out.u16(1), out.u16(i.bits);
    out.u32(static_cast<std::uint32_t>(i.bytes.size())), out.u32(offset);
    offset += static_cast<std::uint32_t>(i.bytes.size());
  }
  for (const image& i : images) out.put(i.bytes);
  return out.b;
}

// One resource of a module: a numbered one when `name` is empty.
struct resource {
  std::uint16_t type;
  std::uint16_t id;
  std::string name;
  buffer data;
};

// The contents of an icon group whose images are resources `ids`.
buffer make_group(const std::vector<image>& images, const std::vector<std::uint16_t>& ids) {
  writer out;
  out.u16(0), out.u16(1), out.u16(static_cast<unsigned>(images.size()));
  for (std::size_t k = 0; k < images.size(); ++k) {
    const image& i = images[k];
    out.u8(i.dir_width), out.u8(i.dir_height), out.u8(0), out.u8(0), out.u16(1), out.u16(i.bits);
    out.u32(static_cast<std::uint32_t>(i.bytes.size())), out.u16(ids[k]);
  }
  return out.b;
}

// A module with one section holding the resources, three levels deep (type,
// name, language) as the resource compiler lays them out.
buffer make_pe(const std::vector<resource>& resources, bool pe32_plus = false) {
  constexpr std::uint32_t kSectionAt = 0x200;
  constexpr std::uint32_t kRva = 0x1000;
  std::vector<std::uint16_t> types;
  for (const resource& r : resources) {
    if (std::find(types.begin(), types.end(), r.type) == types.end()) types.push_back(r.type);
  }
  // Offsets within the section: root, one folder per type, one language
  // folder and one data entry per resource, names, data.
  writer rs;
  std::size_t at = 16 + 8 * types.size();
  std::vector<std::size_t> type_dir;
  for (std::uint16_t t : types) {
    type_dir.push_back(at);
    at += 16 + 8 * static_cast<std::size_t>(
                       std::count_if(resources.begin(), resources.end(),
                                     [&](const resource& r) { return r.type == t; }));
  }
  std::vector<std::size_t> lang_dir, data_entry, name_at, data_at;
  for (std::size_t i = 0; i < resources.size(); ++i) lang_dir.push_back(at), at += 24;
  for (std::size_t i = 0; i < resources.size(); ++i) data_entry.push_back(at), at += 16;
  for (const resource& r : resources)
    name_at.push_back(at), at += r.name.empty() ? 0 : 2 + 2 * r.name.size();
  for (const resource& r : resources)
    at = (at + 3) & ~std::size_t{3}, data_at.push_back(at), at += r.data.size();
  rs.b.resize(at);
  const auto dir_head = [&](std::size_t where, std::size_t named, std::size_t numbered) {
    rs.b[where + 12] = static_cast<std::uint8_t>(named);
    rs.b[where + 14] = static_cast<std::uint8_t>(numbered);
  };
  dir_head(0, 0, types.size());
  for (std::size_t t = 0; t < types.size(); ++t) {
    rs.set32(16 + 8 * t, types[t]);
    rs.set32(16 + 8 * t + 4, 0x80000000u | static_cast<std::uint32_t>(type_dir[t]));
    std::size_t named = 0, numbered = 0, slot = 0;
    for (std::size_t i = 0; i < resources.size(); ++i) {
      const resource& r = resources[i];
      if (r.type != types[t]) continue;
      (r.name.empty() ? numbered : named)++;
      const std::size_t e = type_dir[t] + 16 + 8 * slot++;
      rs.set32(e, r.name.empty() ? r.id : 0x80000000u | static_cast<std::uint32_t>(name_at[i]));
      rs.set32(e + 4, 0x80000000u | static_cast<std::uint32_t>(lang_dir[i]));
    }
    dir_head(type_dir[t], named, numbered);
  }
  for (std::size_t i = 0; i < resources.size(); ++i) {
    const resource& r = resources[i];
    dir_head(lang_dir[i], 0, 1);
    rs.set32(lang_dir[i] + 16, 1033);
    rs.set32(lang_dir[i] + 20, static_cast<std::uint32_t>(data_entry[i]));
    rs.set32(data_entry[i], kRva + static_cast<std::uint32_t>(data_at[i]));
    rs.set32(data_entry[i] + 4, static_cast<std::uint32_t>(r.data.size()));
    if (!r.name.empty()) {
      rs.b[name_at[i]] = static_cast<std::uint8_t>(r.name.size());
      for (std::size_t k = 0; k < r.name.size(); ++k)
        rs.b[name_at[i] + 2 + 2 * k] = static_cast<std::uint8_t>(r.name[k]);
    }
    std::copy(r.data.begin(), r.data.end(), rs.b.begin() + static_cast<long>(data_at[i]));
  }

  writer pe;
  pe.u16('M' | 'Z' << 8);
  pe.pad_to(0x3C);
  pe.u32(0x40);
  pe.u32(0x00004550);
  const unsigned optional_size = pe32_plus ? 240 : 224;
  pe.u16(pe32_plus ? 0x8664 : 0x14C), pe.u16(1), pe.u32(0), pe.u32(0), pe.u32(0);
  pe.u16(optional_size), pe.u16(0x2102);
  const std::size_t optional = pe.b.size();
  pe.u16(pe32_plus ? 0x20B : 0x10B);
  pe.pad_to(optional + optional_size);
  const std::size_t count_at = optional + (pe32_plus ? 108 : 92);
  pe.set32(count_at, 16);
  pe.set32(count_at + 4 + 2 * 8, kRva);
  pe.set32(count_at + 4 + 2 * 8 + 4, static_cast<std::uint32_t>(rs.b.size()));
  // The section header.
  pe.put({'.', 'r', 's', 'r', 'c', 0, 0, 0});
  pe.u32(static_cast<std::uint32_t>(rs.b.size())), pe.u32(kRva);
  pe.u32(static_cast<std::uint32_t>(rs.b.size())), pe.u32(kSectionAt);
  pe.pad_to(kSectionAt);
  pe.put(rs.b);
  return pe.b;
}

buffer head(const buffer& b, std::size_t n) {
  return buffer(b.begin(), b.begin() + static_cast<long>(n));
}

class temp_dir {
 public:
  temp_dir() {
    char name[] = "/tmp/tvbase_gdi_XXXXXX";
    if (mkdtemp(name) == nullptr) throw std::runtime_error("mkdtemp failed");
    root_ = name;
  }
  ~temp_dir() {
    std::error_code ec;
    fs::remove_all(root_, ec);
  }
  std::string write(const std::string& name, const buffer& bytes) const {
    const fs::path p = root_ / name;
    std::ofstream(p, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
    return p.string();
  }

 private:
  fs::path root_;
};

// The size an icon reports, "none" for a null icon and "mono" for an icon
// without a colour image.
std::string size_of(TvGdi::HICON icon) {
  if (icon == nullptr) return "none";
  TvGdi::SIZE size{-1, -1};
  if (!TvGdi::GetIconSize(icon, size))
    return size.cx == -1 && size.cy == -1 ? "mono" : "size changed";
  return std::to_string(size.cx) + "x" + std::to_string(size.cy);
}

TEST(ChooseIconEntry, TakesExactThenLargerThenLargest) {
  using platform::icon_entry_size;
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
    EXPECT_EQ(platform::choose_icon_entry(sizes, r.width, r.height), r.expected);
  }
  EXPECT_EQ(platform::choose_icon_entry({}, 16, 16), -1);
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
    const auto icon = platform::decode_icon_image(dib);
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
    EXPECT_EQ(platform::decode_icon_image(bytes), nullptr);
  }
}

TEST(TvGdi, LoadsEachSizeFromAnIconFile) {
  temp_dir dir;
  const std::string two = dir.write(
      "two.ico", make_ico({{16, 16, 32, make_dib(16, 16, 32)}, {32, 32, 8, make_dib(32, 32, 8)}}));
  // A directory byte of 0 is 256; the image's own header gives its size.
  const std::string png = dir.write(
      "png.ico", make_ico({{0, 0, 32, make_png(256, 256)}, {48, 48, 24, make_dib(48, 48, 24)}}));
  const std::string mono = dir.write("mono.ico", make_ico({{32, 32, 1, make_dib(32, 32, 1)}}));
  const std::string broken = dir.write("broken.ico", make_ico({{16, 16, 32, buffer(10, 7)}}));
  struct row {
    std::string source;
    std::vector<std::string> sizes;  // for requests of 16, 24, 48 and 300
  };
  const row rows[] = {
      {two, {"16x16", "32x32", "32x32", "32x32"}},
      {png, {"48x48", "48x48", "48x48", "256x256"}},
      {mono, {"mono", "mono", "mono", "mono"}},
      {broken, {"none", "none", "none", "none"}},
      {dir.write("empty.ico", {}), {"none", "none", "none", "none"}},
      {dir.write("module.ico", make_pe({})), {"none", "none", "none", "none"}},
      {"/nonexistent/x.ico", {"none", "none", "none", "none"}},
      {"/tmp", {"none", "none", "none", "none"}},
  };
  for (const row& r : rows) {
    SCOPED_TRACE(r.source);
    TvGdi::IconData icons[] = {
        {16, 16, nullptr}, {24, 24, nullptr}, {48, 48, nullptr}, {300, 300, nullptr}};
    TvGdi::LoadIcons(r.source.c_str(), icons, 4);
    std::vector<std::string> got;
    for (const auto& i : icons) got.push_back(size_of(i.icon));
    EXPECT_EQ(got, r.sizes);
    for (const auto& i : icons) TvGdi::DestroyIcon(i.icon);
  }

  const TvGdi::IconPtr icon(TvGdi::LoadIconA(png.c_str(), 256, 256));
  TvGdi::IconPixels pixels{};
  ASSERT_TRUE(TvGdi::GetIconPixels(icon.get(), pixels));
  EXPECT_EQ(pixels.Format, TvGdi::PixelFormat::Png);
  EXPECT_EQ(buffer(pixels.Data, pixels.Data + pixels.Size), make_png(256, 256));
  EXPECT_FALSE(TvGdi::GetIconPixels(nullptr, pixels));
}

TEST(TvGdi, ParsesTheSourceOfAModuleIcon) {
  // Each icon group holds one image, whose width tells which group was loaded.
  std::vector<resource> resources;
  const auto group = [&](std::uint16_t id, const std::string& name, int size) {
    const auto image_id = static_cast<std::uint16_t>(100 + resources.size());
    const image i{static_cast<unsigned>(size), static_cast<unsigned>(size), 32,
                  make_dib(size, size, 32)};
    resources.push_back({3, image_id, "", i.bytes});
    resources.push_back({14, id, name, make_group({i}, {image_id})});
  };
  group(5, "", 5);
  group(0, "MAIN", 6);
  group(0, "0", 7);
  group(0, "65536", 8);
  group(0, "5X", 9);
  group(65535, "", 10);
  group(0, "+5", 11);
  temp_dir dir;
  const std::string dll = dir.write("mod.dll", make_pe(resources));
  const std::string dll64 = dir.write("mod64.dll", make_pe(resources, true));
  const std::string ico = dir.write("plain.ico", make_ico({{16, 16, 32, make_dib(16, 16, 32)}}));
  struct row {
    std::string source;
    std::string size;
  };
  const row rows[] = {
      {dll + ";5", "5x5"},
      {dll64 + ";5", "5x5"},
      {dll + ";main", "6x6"},
      {dll + ";Main", "6x6"},
      {" \t" + dll + " \t; \tmain\t ", "6x6"},
      {dll + ";0", "7x7"},
      {dll + ";65536", "8x8"},
      {dll + ";5x", "9x9"},
      {dll + ";65535", "10x10"},
      {dll + ";005", "5x5"},
      {dll + ";+5", "11x11"},
      {dll + ";6", "none"},
      {dll + ";", "none"},
      {dll + "; \t", "none"},
      {dll + ";5;", "none"},  // all behind the first ";" is the resource
      {";", "none"},
      {";5", "none"},
      {dir.write("none.dll", make_pe({})) + ";5", "none"},
      {ico + ";5", "none"},  // not a module
      {"/nonexistent/mod.dll;5", "none"},
      {dll + ";" + std::string(259, 'a'), "none"},
      {dll + ";" + std::string(260, '5'), "none"},
      {std::string(250, ' ') + dll + ";5", "5x5"},  // blanks are stripped before the limit
      {std::string(259 - dll.size(), '/') + dll + ";5", "5x5"},
      {std::string(260 - dll.size(), '/') + dll + ";5", "none"},  // the same file, one '/' too long
  };
  for (const row& r : rows) {
    SCOPED_TRACE(r.source.substr(0, 80));
    const TvGdi::IconPtr icon(TvGdi::LoadIconA(r.source.c_str(), 16, 16));
    EXPECT_EQ(size_of(icon.get()), r.size);
  }
}

TEST(TvGdi, LeavesRecordsAndSizesAloneWhereItMust) {
  TvGdi::IconData none[] = {{16, 16, reinterpret_cast<TvGdi::HICON>(1)}};
  TvGdi::LoadIcons(nullptr, none, 1);
  EXPECT_EQ(none[0].icon, nullptr);
  TvGdi::LoadIcons("/nonexistent;5", nullptr, 3);
  TvGdi::LoadIcons("/nonexistent", none, 0);
  TvGdi::SIZE size{3, 4};
  EXPECT_FALSE(TvGdi::GetIconSize(nullptr, size));
  EXPECT_EQ(size.cx, 3);
  EXPECT_EQ(size.cy, 4);
  TvGdi::DestroyIcon(nullptr);
}

// Readers of untrusted bytes: every truncation and many corruptions of a good
// file give null or a consistent icon, never a bad read (the sanitizer build
// checks the reads).
TEST(IconReaders, SurviveMalformedInput) {
  const buffer ico = make_ico({{16, 16, 4, make_dib(16, 16, 4)}, {0, 0, 32, make_png(256, 256)}});
  const image i{16, 16, 8, make_dib(16, 16, 8)};
  const buffer pe = make_pe({{3, 1, "", i.bytes}, {14, 0, "APP", make_group({i}, {1})}});
  const auto consistent = [](const std::unique_ptr<platform::icon>& icon) {
    if (!icon) return true;
    if (icon->width <= 0 || icon->height <= 0) return false;
    return icon->format == platform::icon_format::png ||
           icon->pixels.size() == static_cast<std::size_t>(icon->width) * icon->height * 4;
  };
  const auto read_both = [&](const buffer& bytes) {
    EXPECT_TRUE(consistent(platform::read_ico_file(bytes, 16, 16)));
    EXPECT_TRUE(consistent(platform::read_ico_file(bytes, 300, 300)));
    EXPECT_TRUE(consistent(platform::read_pe_icon(bytes, {0, "app"}, 16, 16)));
    EXPECT_TRUE(consistent(platform::read_pe_icon(bytes, {1, {}}, 16, 16)));
  };
  ASSERT_NE(platform::read_ico_file(ico, 16, 16), nullptr);
  ASSERT_NE(platform::read_pe_icon(pe, {0, "app"}, 16, 16), nullptr);
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
