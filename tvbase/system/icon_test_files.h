#ifndef TVBASE_SYSTEM_ICON_TEST_FILES_H
#define TVBASE_SYSTEM_ICON_TEST_FILES_H

// Builders of icon files, icon images and Windows modules for the icon tests:
// small, valid files whose every pixel is known (colour_at, masked), to be
// read whole, cut short or corrupted.

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

namespace icon_test {

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
inline bgra colour_at(int x, int y, int bits) {
  if (bits == 1) return (x + y) % 2 ? bgra{255, 255, 255, 255} : bgra{0, 0, 0, 255};
  if (bits <= 8) {
    const auto i = static_cast<std::uint8_t>((x * 3 + y) % (1 << bits));
    return {i, static_cast<std::uint8_t>(255 - i), 3, 255};
  }
  return {static_cast<std::uint8_t>(x), static_cast<std::uint8_t>(y), 9,
          static_cast<std::uint8_t>(bits == 32 ? 100 + x : 255)};
}

inline bool masked(int x, int y) { return x == 0 || y == 1; }

// A bitmap image as an icon stores it, bottom row first, with its mask.
inline buffer make_dib(int w, int h, int bits, bool with_mask = true) {
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
inline buffer make_png(std::uint32_t w, std::uint32_t h) {
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

inline buffer make_ico(const std::vector<image>& images) {
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
inline buffer make_group(const std::vector<image>& images, const std::vector<std::uint16_t>& ids) {
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
inline buffer make_pe(const std::vector<resource>& resources, bool pe32_plus = false) {
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

inline buffer head(const buffer& b, std::size_t n) {
  return buffer(b.begin(), b.begin() + static_cast<long>(n));
}

}  // namespace icon_test

#endif  // TVBASE_SYSTEM_ICON_TEST_FILES_H
