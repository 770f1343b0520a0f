#include <tvbase/platform/memory_advice.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace platform {
namespace {

// The whole pages of `unit` bytes inside [buffer, buffer + size).
bool inner_pages(void* buffer, std::size_t size, std::uintptr_t unit, void*& start,
                 std::size_t& length) {
  const auto begin = reinterpret_cast<std::uintptr_t>(buffer);
  const std::uintptr_t first = (begin + unit - 1) & ~(unit - 1);
  const std::uintptr_t end = (begin + size) & ~(unit - 1);
  if (end <= first) return false;
  start = reinterpret_cast<void*>(first);
  length = end - first;
  return true;
}

std::uintptr_t page_size() {
  static const auto size = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
  return size;
}

struct mapping {
  std::uintptr_t begin = 0;
  std::uintptr_t end = 0;
  bool private_anonymous = false;  // and readable and writable
};

bool parse_hex(std::string_view& text, std::uintptr_t& value) {
  const auto [rest, error] = std::from_chars(text.data(), text.data() + text.size(), value, 16);
  if (error != std::errc()) return false;
  text.remove_prefix(static_cast<std::size_t>(rest - text.data()));
  return true;
}

std::string_view next_field(std::string_view& text) {
  const std::size_t start = text.find_first_not_of(' ');
  if (start == std::string_view::npos) return text = {};
  text.remove_prefix(start);
  const std::string_view field = text.substr(0, text.find(' '));
  text.remove_prefix(field.size());
  return field;
}

// One line of /proc/self/maps: "begin-end perms offset dev inode [name]".
bool parse_mapping(std::string_view line, mapping& m) {
  if (!parse_hex(line, m.begin) || line.empty() || line.front() != '-') return false;
  line.remove_prefix(1);
  if (!parse_hex(line, m.end)) return false;
  const std::string_view perms = next_field(line);
  next_field(line);  // offset
  const std::string_view device = next_field(line);
  const std::string_view inode = next_field(line);
  const std::size_t start = line.find_first_not_of(' ');
  const std::string_view name =
      start == std::string_view::npos ? std::string_view() : line.substr(start);
  m.private_anonymous = perms.size() == 4 && perms[0] == 'r' && perms[1] == 'w' &&
                        perms[3] == 'p' && device == "00:00" && inode == "0" &&
                        (name.empty() || name == "[heap]" || name.starts_with("[anon:"));
  return perms.size() == 4;
}

// The mappings that cover [begin, end) without a gap, as /proc/self/maps
// tells, into `pieces`. Gives their number, or 0 where a part of the range
// is not private anonymous memory that can be read and written, or where it
// takes more than `most` mappings.
std::size_t private_anonymous_pieces(std::uintptr_t begin, std::uintptr_t end, mapping* pieces,
                                     std::size_t most) {
  const int fd = ::open("/proc/self/maps", O_RDONLY | O_CLOEXEC);
  if (fd < 0) return 0;
  char buffer[8192];
  std::size_t held = 0;
  std::size_t count = 0;
  std::uintptr_t covered = begin;  // the range is covered up to here
  bool failed = false;
  while (covered < end && !failed) {
    const ssize_t got = ::read(fd, buffer + held, sizeof buffer - held);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    held += static_cast<std::size_t>(got);
    std::size_t used = 0;
    while (covered < end && !failed) {
      const auto* line_end =
          static_cast<const char*>(std::memchr(buffer + used, '\n', held - used));
      if (line_end == nullptr) break;
      mapping m;
      failed = !parse_mapping(std::string_view(buffer + used, line_end), m);
      used = static_cast<std::size_t>(line_end - buffer) + 1;
      if (failed || m.end <= covered) continue;  // the lines come in rising order
      failed = m.begin > covered || !m.private_anonymous || count == most;
      if (!failed) {
        pieces[count++] = m;
        covered = m.end;
      }
    }
    std::memmove(buffer, buffer + used, held - used);
    held -= used;
    failed = failed || held == sizeof buffer;  // a line longer than the buffer
  }
  ::close(fd);
  return failed || covered < end ? 0 : count;
}

}  // namespace

void prefer_large_pages(void* buffer, std::size_t size) noexcept {
#ifdef MADV_HUGEPAGE
  void* start;
  std::size_t length;
  if (inner_pages(buffer, size, page_size(), start, length)) madvise(start, length, MADV_HUGEPAGE);
#else
  static_cast<void>(buffer);
  static_cast<void>(size);
#endif
}

void populate_pages(void* buffer, std::size_t size) noexcept {
#ifdef MADV_POPULATE_WRITE
  void* start;
  std::size_t length;
  if (inner_pages(buffer, size, page_size(), start, length))
    madvise(start, length, MADV_POPULATE_WRITE);
#else
  static_cast<void>(buffer);
  static_cast<void>(size);
#endif
}

void release_pages(void* buffer, std::size_t size) noexcept {
  void* start;
  std::size_t length;
  if (inner_pages(buffer, size, page_size(), start, length)) madvise(start, length, MADV_DONTNEED);
}

bool move_pages(void* to, void* from, std::size_t size) noexcept {
#if defined(MREMAP_DONTUNMAP) && defined(MAP_FIXED_NOREPLACE)
  const std::uintptr_t unit = page_size();
  const auto source = reinterpret_cast<std::uintptr_t>(from);
  // Pages keep the offsets within them.
  if ((source - reinterpret_cast<std::uintptr_t>(to)) % unit != 0) return false;
  void* inner;
  std::size_t length;
  if (!inner_pages(from, size, unit, inner, length)) return false;
  // The kernel moves pages within one mapping at a time, and a buffer whose
  // pages were moved in before consists of several.
  constexpr std::size_t kMostPieces = 128;
  mapping pieces[kMostPieces];
  auto* const landing = static_cast<unsigned char*>(to);
  const auto first = reinterpret_cast<std::uintptr_t>(inner);
  const std::uintptr_t offset = reinterpret_cast<std::uintptr_t>(landing) - source;  // modulo 2^64
  if (private_anonymous_pieces(first + offset, first + length + offset, pieces, kMostPieces) == 0)
    return false;
  const std::size_t count = private_anonymous_pieces(first, first + length, pieces, kMostPieces);
  if (count == 0) return false;
  auto* const from_bytes = static_cast<unsigned char*>(from);
  std::uintptr_t moved = first;  // the source has left up to here
  for (std::size_t i = 0; i < count && moved < first + length; ++i) {
    const std::size_t part = std::min(pieces[i].end, first + length) - moved;
    void* const place = reinterpret_cast<void*>(moved + offset);
    if (mremap(reinterpret_cast<void*>(moved), part, part,
               MREMAP_MAYMOVE | MREMAP_FIXED | MREMAP_DONTUNMAP, place) == MAP_FAILED) {
      // The kernel may have taken the target's pages away before it failed:
      // put fresh ones back, and copy what is left. Where the target is
      // still mapped, the mapping finds it so and does nothing; a hole it
      // cannot fill leaves memory that is no longer ours to mend.
      if (mmap(place, part, PROT_READ | PROT_WRITE,
               MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0) == MAP_FAILED &&
          errno != EEXIST) {
        std::abort();
      }
      break;
    }
    moved += part;
  }
  // The partial pages at the ends, and whatever the kernel did not move.
  const std::size_t head = first - source;
  const std::size_t done = moved - source;
  std::memcpy(landing, from_bytes, head);
  std::memcpy(landing + done, from_bytes + done, size - done);
  return true;
#else
  static_cast<void>(to);
  static_cast<void>(from);
  static_cast<void>(size);
  return false;
#endif
}

}  // namespace platform
