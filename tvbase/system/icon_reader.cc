#include <tvbase/system/icon_reader.h>

#include <algorithm>
#include <optional>
#include <string>

#include <tvbase/platform/dir_list.h>

namespace gdi {
namespace {

using bytes = std::span<const std::uint8_t>;

constexpr int kMaxBitmapSide = 1024;
constexpr std::uint16_t kResourceIcon = 3;
constexpr std::uint16_t kResourceGroupIcon = 14;

// Little-endian reads that fail instead of leaving `b`.
std::optional<std::uint32_t> u16(bytes b, std::uint64_t at) {
  if (at > b.size() || b.size() - at < 2) return std::nullopt;
  return static_cast<std::uint32_t>(b[at] | b[at + 1] << 8);
}

std::optional<std::uint32_t> u32(bytes b, std::uint64_t at) {
  if (at > b.size() || b.size() - at < 4) return std::nullopt;
  return static_cast<std::uint32_t>(b[at]) | static_cast<std::uint32_t>(b[at + 1]) << 8 |
         static_cast<std::uint32_t>(b[at + 2]) << 16 | static_cast<std::uint32_t>(b[at + 3]) << 24;
}

std::uint32_t be32(const std::uint8_t* p) {
  return static_cast<std::uint32_t>(p[0]) << 24 | static_cast<std::uint32_t>(p[1]) << 16 |
         static_cast<std::uint32_t>(p[2]) << 8 | p[3];
}

std::optional<bytes> slice(bytes b, std::uint64_t at, std::uint64_t size) {
  if (at > b.size() || b.size() - at < size) return std::nullopt;
  return b.subspan(static_cast<std::size_t>(at), static_cast<std::size_t>(size));
}

std::unique_ptr<icon> decode_png(bytes image) {
  static constexpr std::uint8_t kSignature[] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
  // Signature, then the IHDR chunk: length 13, type, width, height.
  if (image.size() < 24 || !std::equal(std::begin(kSignature), std::end(kSignature), image.begin()))
    return nullptr;
  const std::uint8_t* p = image.data();
  if (be32(p + 8) != 13 || !std::equal(p + 12, p + 16, "IHDR")) return nullptr;
  const std::uint32_t width = be32(p + 16);
  const std::uint32_t height = be32(p + 20);
  if (width == 0 || height == 0 || width > 0x7FFFFFFF || height > 0x7FFFFFFF) return nullptr;
  auto out = std::make_unique<icon>();
  out->width = static_cast<int>(width);
  out->height = static_cast<int>(height);
  out->format = icon_format::png;
  out->pixels.assign(image.begin(), image.end());
  return out;
}

std::unique_ptr<icon> decode_dib(bytes image) {
  const auto header_size = u32(image, 0);
  const auto raw_width = u32(image, 4);
  const auto raw_height = u32(image, 8);
  const auto planes = u16(image, 12);
  const auto bit_count = u16(image, 14);
  const auto compression = u32(image, 16);
  const auto colours_used = u32(image, 32);
  if (!header_size || *header_size < 40 || !colours_used || *planes != 1 || *compression != 0)
    return nullptr;
  // Signed fields: the height covers the colour rows and the mask rows.
  const auto width = static_cast<std::int32_t>(*raw_width);
  const auto height = static_cast<std::int32_t>(*raw_height) / 2;
  if (width <= 0 || height <= 0 || width > kMaxBitmapSide || height > kMaxBitmapSide)
    return nullptr;
  const unsigned bits = *bit_count;
  if (bits != 1 && bits != 4 && bits != 8 && bits != 24 && bits != 32) return nullptr;
  std::uint64_t palette_size = 0;
  if (bits <= 8) {
    palette_size = *colours_used == 0 ? 1u << bits : *colours_used;
    if (palette_size > (1u << bits)) return nullptr;
  }
  const auto w = static_cast<std::uint64_t>(width);
  const auto h = static_cast<std::uint64_t>(height);
  const std::uint64_t colour_stride = (w * bits + 31) / 32 * 4;
  const std::uint64_t mask_stride = (w + 31) / 32 * 4;
  const std::uint64_t palette_at = *header_size;
  const std::uint64_t colour_at = palette_at + palette_size * 4;
  const std::uint64_t mask_at = colour_at + colour_stride * h;
  const auto palette = slice(image, palette_at, palette_size * 4);
  const auto colour = slice(image, colour_at, colour_stride * h);
  if (!palette || !colour) return nullptr;
  // A missing mask leaves every pixel opaque.
  const auto mask = slice(image, mask_at, mask_stride * h);

  auto out = std::make_unique<icon>();
  out->width = width;
  out->height = height;
  out->has_colour = bits != 1;
  out->pixels.resize(static_cast<std::size_t>(w * h * 4));
  bool any_alpha = false;
  for (std::uint64_t y = 0; y < h; ++y) {
    // Rows are stored bottom-up.
    const std::uint8_t* row = colour->data() + (h - 1 - y) * colour_stride;
    std::uint8_t* px = out->pixels.data() + y * w * 4;
    for (std::uint64_t x = 0; x < w; ++x, px += 4) {
      if (bits >= 24) {
        const std::uint8_t* src = row + x * (bits / 8);
        px[0] = src[0];
        px[1] = src[1];
        px[2] = src[2];
        px[3] = bits == 32 ? src[3] : 0xFF;
        any_alpha = any_alpha || (bits == 32 && src[3] != 0);
      } else {
        const std::uint64_t bit = x * bits;
        const unsigned index = (row[bit / 8] >> (8 - bits - bit % 8)) & ((1u << bits) - 1);
        if (index < palette_size) std::copy_n(palette->data() + index * 4, 3, px);
        px[3] = 0xFF;
      }
    }
  }
  // With no alpha of its own, the mask says which pixels are transparent.
  if (!any_alpha && mask) {
    for (std::uint64_t y = 0; y < h; ++y) {
      const std::uint8_t* row = mask->data() + (h - 1 - y) * mask_stride;
      for (std::uint64_t x = 0; x < w; ++x) {
        const bool transparent = (row[x / 8] >> (7 - x % 8)) & 1;
        out->pixels[static_cast<std::size_t>((y * w + x) * 4 + 3)] = transparent ? 0 : 0xFF;
      }
    }
  }
  return out;
}

// The size of a directory entry whose byte says 0 for 256.
int entry_side(std::uint32_t byte) { return byte == 0 ? 256 : static_cast<int>(byte); }

// Reads the entries of an icon directory (.ico file or icon group): a 6-byte
// head (0, 1, count) and `count` entries of `entry_size` bytes each.
std::optional<std::vector<icon_entry_size>> read_directory(bytes b, std::size_t entry_size) {
  const auto reserved = u16(b, 0);
  const auto type = u16(b, 2);
  const auto count = u16(b, 4);
  if (!count || *reserved != 0 || *type != 1 || *count == 0) return std::nullopt;
  if (!slice(b, 6, static_cast<std::uint64_t>(*count) * entry_size)) return std::nullopt;
  std::vector<icon_entry_size> sizes;
  sizes.reserve(*count);
  for (std::size_t i = 0; i < *count; ++i) {
    const std::size_t at = 6 + i * entry_size;
    sizes.push_back({entry_side(b[at]), entry_side(b[at + 1]), static_cast<int>(*u16(b, at + 6))});
  }
  return sizes;
}

// The resources of a module: its bytes and the place of its section table.
class pe_reader {
 public:
  static std::optional<pe_reader> open(bytes file) {
    pe_reader pe(file);
    if (!pe.read_headers()) return std::nullopt;
    return pe;
  }

  bool has_resources() const { return resource_rva_ != 0; }

  // The data of the first language of resource (`type`, `name`).
  std::optional<bytes> find(std::uint16_t type, resource_ref name) const {
    const auto root = resolve(resource_rva_, 16);
    if (!root) return std::nullopt;
    const auto rsrc = file_.subspan(static_cast<std::size_t>(root->data() - file_.data()));
    const auto by_type = find_entry(rsrc, 0, resource_ref{type, {}});
    if (!by_type || !(*by_type & 0x80000000u)) return std::nullopt;
    const auto by_name = find_entry(rsrc, *by_type & 0x7FFFFFFFu, name);
    if (!by_name || !(*by_name & 0x80000000u)) return std::nullopt;
    // Any language: the first entry.
    const std::uint64_t languages = *by_name & 0x7FFFFFFFu;
    const auto named = u16(rsrc, languages + 12);
    const auto numbered = u16(rsrc, languages + 14);
    if (!named || !numbered || *named + *numbered == 0) return std::nullopt;
    const auto leaf = u32(rsrc, languages + 16 + 4);
    if (!leaf || (*leaf & 0x80000000u)) return std::nullopt;
    const auto data_rva = u32(rsrc, *leaf);
    const auto data_size = u32(rsrc, *leaf + 4);
    if (!data_size) return std::nullopt;
    return resolve(*data_rva, *data_size);
  }

 private:
  explicit pe_reader(bytes file) : file_(file) {}

  bool read_headers() {
    if (file_.size() < 64 || file_[0] != 'M' || file_[1] != 'Z') return false;
    const std::uint64_t pe = *u32(file_, 0x3C);
    const auto signature = u32(file_, pe);
    if (!signature || *signature != 0x00004550) return false;  // "PE\0\0"
    const auto sections = u16(file_, pe + 6);
    const auto optional_size = u16(file_, pe + 20);
    const std::uint64_t optional = pe + 24;
    const auto magic = u16(file_, optional);
    if (!sections || !optional_size || !magic) return false;
    std::uint64_t count_at;
    if (*magic == 0x10B) {
      count_at = 92;
    } else if (*magic == 0x20B) {
      count_at = 108;
    } else {
      return false;
    }
    section_count_ = *sections;
    section_table_ = optional + *optional_size;
    if (!slice(file_, section_table_, static_cast<std::uint64_t>(section_count_) * 40))
      return false;
    const auto directories = u32(file_, optional + count_at);
    // The resource table is data directory 2, inside the optional header.
    if (directories && *directories > 2 && count_at + 4 + 3 * 8 <= *optional_size) {
      resource_rva_ = *u32(file_, optional + count_at + 4 + 2 * 8);
    }
    return true;
  }

  // The file bytes of `size` bytes at virtual address `rva`, all inside the
  // stored data of one section.
  std::optional<bytes> resolve(std::uint64_t rva, std::uint64_t size) const {
    for (std::uint32_t i = 0; i < section_count_; ++i) {
      const std::uint64_t at = section_table_ + i * 40ull;
      const std::uint64_t address = *u32(file_, at + 12);
      const std::uint64_t raw_size = *u32(file_, at + 16);
      const std::uint64_t raw_at = *u32(file_, at + 20);
      if (rva < address || rva - address >= raw_size) continue;
      const std::uint64_t offset = rva - address;
      if (raw_size - offset < size) return std::nullopt;
      return slice(file_, raw_at + offset, size);
    }
    return std::nullopt;
  }

  // The offset word of the entry named `name` in the directory at `at`.
  static std::optional<std::uint32_t> find_entry(bytes rsrc, std::uint64_t at, resource_ref name) {
    const auto named = u16(rsrc, at + 12);
    const auto numbered = u16(rsrc, at + 14);
    if (!named || !numbered) return std::nullopt;
    const std::wstring wanted = name.id == 0 ? platform::path_to_wide(name.name) : std::wstring();
    const std::uint64_t count = static_cast<std::uint64_t>(*named) + *numbered;
    for (std::uint64_t i = 0; i < count; ++i) {
      const auto key = u32(rsrc, at + 16 + i * 8);
      const auto value = u32(rsrc, at + 16 + i * 8 + 4);
      if (!key || !value) return std::nullopt;
      const bool is_name = (*key & 0x80000000u) != 0;
      if (name.id != 0 ? !is_name && *key == name.id
                       : is_name && name_matches(rsrc, *key & 0x7FFFFFFFu, wanted)) {
        return value;
      }
    }
    return std::nullopt;
  }

  static wchar_t fold(std::uint32_t c) {
    return static_cast<wchar_t>(c >= 'a' && c <= 'z' ? c - 32 : c);
  }

  static bool name_matches(bytes rsrc, std::uint64_t at, const std::wstring& wanted) {
    const auto length = u16(rsrc, at);
    if (!length || *length != wanted.size() || !slice(rsrc, at + 2, *length * 2ull)) return false;
    for (std::size_t i = 0; i < wanted.size(); ++i) {
      if (fold(*u16(rsrc, at + 2 + i * 2)) != fold(static_cast<std::uint32_t>(wanted[i])))
        return false;
    }
    return true;
  }

  bytes file_;
  std::uint64_t section_table_ = 0;
  std::uint32_t section_count_ = 0;
  std::uint32_t resource_rva_ = 0;
};

}  // namespace

int choose_icon_entry(std::span<const icon_entry_size> entries, int width, int height) {
  const auto area = [](const icon_entry_size& e) {
    return static_cast<std::int64_t>(e.width) * e.height;
  };
  // Lower ranks win: exact size first, then larger ones by closeness, then
  // smaller ones by size.
  const bool any_size = width <= 0 || height <= 0;
  const auto rank = [&](const icon_entry_size& e) -> std::pair<int, std::int64_t> {
    if (!any_size && e.width == width && e.height == height) return {0, 0};
    if (!any_size && e.width >= width && e.height >= height) return {1, area(e)};
    return {2, -area(e)};
  };
  int best = -1;
  for (std::size_t i = 0; i < entries.size(); ++i) {
    const auto& e = entries[i];
    if (best < 0) {
      best = static_cast<int>(i);
      continue;
    }
    const auto& b = entries[static_cast<std::size_t>(best)];
    const auto re = rank(e);
    const auto rb = rank(b);
    if (re < rb || (re == rb && e.bit_count > b.bit_count)) best = static_cast<int>(i);
  }
  return best;
}

std::unique_ptr<icon> decode_icon_image(std::span<const std::uint8_t> image) {
  if (image.size() >= 8 && image[0] == 0x89 && image[1] == 'P') return decode_png(image);
  return decode_dib(image);
}

std::unique_ptr<icon> read_ico_file(std::span<const std::uint8_t> file, int width, int height) {
  constexpr std::size_t kEntrySize = 16;
  const auto sizes = read_directory(file, kEntrySize);
  if (!sizes) return nullptr;
  const int chosen = choose_icon_entry(*sizes, width, height);
  const std::size_t at = 6 + static_cast<std::size_t>(chosen) * kEntrySize;
  const auto image = slice(file, *u32(file, at + 12), *u32(file, at + 8));
  return image ? decode_icon_image(*image) : nullptr;
}

bool is_pe_module(std::span<const std::uint8_t> file) { return pe_reader::open(file).has_value(); }

std::unique_ptr<icon> read_pe_icon(std::span<const std::uint8_t> file, resource_ref group,
                                   int width, int height) {
  constexpr std::size_t kEntrySize = 14;
  const auto pe = pe_reader::open(file);
  if (!pe || !pe->has_resources()) return nullptr;
  const auto directory = pe->find(kResourceGroupIcon, group);
  if (!directory) return nullptr;
  const auto sizes = read_directory(*directory, kEntrySize);
  if (!sizes) return nullptr;
  const int chosen = choose_icon_entry(*sizes, width, height);
  const auto id = u16(*directory, 6 + static_cast<std::size_t>(chosen) * kEntrySize + 12);
  if (*id == 0) return nullptr;
  const auto image = pe->find(kResourceIcon, resource_ref{static_cast<std::uint16_t>(*id), {}});
  return image ? decode_icon_image(*image) : nullptr;
}

}  // namespace gdi
