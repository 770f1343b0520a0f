#include <tvbase/platform/icon.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <memory>
#include <new>
#include <vector>

namespace platform {

struct module {
  std::vector<std::uint8_t> bytes;
};

namespace {

// Files larger than this are not read.
constexpr off_t kMaxFileSize = off_t{256} << 20;

bool read_file(const char* path, std::vector<std::uint8_t>& out) {
  if (path == nullptr) return false;
  const int fd = open(path, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  struct stat st;
  bool ok = fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && st.st_size <= kMaxFileSize;
  if (ok) {
    out.resize(static_cast<std::size_t>(st.st_size));
    std::size_t done = 0;
    while (done < out.size()) {
      const ssize_t n = read(fd, out.data() + done, out.size() - done);
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) break;
      done += static_cast<std::size_t>(n);
    }
    out.resize(done);  // a file that shrank meanwhile is read as it now is
  }
  close(fd);
  return ok;
}

}  // namespace

icon* load_icon_file(const char* path, int width, int height) noexcept {
  try {
    std::vector<std::uint8_t> bytes;
    if (!read_file(path, bytes)) return nullptr;
    return read_ico_file(bytes, width, height).release();
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

module* load_module_as_data(const char* path) noexcept {
  try {
    auto m = std::make_unique<module>();
    if (!read_file(path, m->bytes) || !is_pe_module(m->bytes)) return nullptr;
    return m.release();
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

icon* load_icon_resource(const module* from, resource_ref group, int width, int height) noexcept {
  if (from == nullptr) return nullptr;
  try {
    return read_pe_icon(from->bytes, group, width, height).release();
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

void free_module(module* m) noexcept { delete m; }

bool get_icon_info(const icon* of, bitmap*& colour, bitmap*& mask) noexcept {
  colour = nullptr;
  mask = nullptr;
  if (of == nullptr) return false;
  // A monochrome icon keeps its image and its mask in one bitmap of twice
  // the height.
  mask = new (std::nothrow) bitmap{of->width, of->has_colour ? of->height : 2 * of->height};
  if (mask == nullptr) return false;
  if (of->has_colour) {
    colour = new (std::nothrow) bitmap{of->width, of->height};
    if (colour == nullptr) {
      delete mask;
      mask = nullptr;
      return false;
    }
  }
  return true;
}

bool get_bitmap_size(const bitmap* of, int& width, int& height) noexcept {
  if (of == nullptr) return false;
  width = of->width;
  height = of->height;
  return true;
}

void delete_bitmap(bitmap* b) noexcept { delete b; }

void destroy_icon(icon* i) noexcept { delete i; }

}  // namespace platform
