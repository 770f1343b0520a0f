#ifndef TVBASE_TEXT_STRING_STASH_H
#define TVBASE_TEXT_STRING_STASH_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string_view>
#include <tuple>

#include <tvbase/export.h>

namespace base {

// A view of a zero-ended text: a pointer and a length, with a zero character
// behind the last one that is not part of the length.
template <typename Char>
class basic_zstring_view {
 public:
  constexpr basic_zstring_view() noexcept = default;
  constexpr basic_zstring_view(const Char* data, std::size_t size) noexcept
      : data_(data), size_(size) {}

  constexpr const Char* data() const noexcept { return data_; }
  constexpr const Char* c_str() const noexcept { return data_; }
  constexpr std::size_t size() const noexcept { return size_; }
  constexpr operator std::basic_string_view<Char>() const noexcept { return {data_, size_}; }

 private:
  static constexpr Char kEmpty[1] = {};
  const Char* data_ = kEmpty;
  std::size_t size_ = 0;
};

namespace string_stash_helper {

// One page of a stash: the pointer to its successor, then the character area.
// While the page is on the free list, the first 32 bits of its area hold the
// number of characters still free; strings fill the area from its end, so the
// count stays intact while at least that much room is left.
struct linked_list_page_node {
  std::unique_ptr<linked_list_page_node> next;

  // Pages are allocated with their area behind them, so they are freed whole.
  static void* operator new(std::size_t, std::size_t bytes) { return ::operator new(bytes); }
  static void operator delete(void* page) { ::operator delete(page); }

  void* area() { return this + 1; }
};

}  // namespace string_stash_helper

// Keeps many small strings for as long as the stash lives. store() copies a
// text into a page and gives a zero-ended view of the copy, which never moves:
// views stay valid through later calls, until the stash is destroyed. There is
// no removal and no search for equal strings.
//
//   base::basic_string_stash<char> names;
//   base::basic_zstring_view<char> a = names.store("alpha");
//   std::puts(a.c_str());
//
// Memory policy. Strings go into large pages, from a page's end toward its
// start. The stash keeps a short free list of pages that still have room (at
// most max_free_pages, 8 at first), puts each string into the fitting page
// with the least room, and retires a page to the full list once less than
// min_free_size characters would stay free. A page for a capacity of n
// characters takes round-up-to-8(sizeof(void*) + max(n + 1, 128) *
// sizeof(Char)) bytes and offers (bytes - sizeof(void*)) / sizeof(Char)
// characters; on 64-bit Linux the first char page has 528 bytes and 520 free
// characters. Page capacities grow by a quarter from 512 (512, 640, 800, ...);
// a longer string gets a page of its own size plus a quarter. The free count is
// 32 bits, so min_free_size never goes below the characters those 32 bits
// need: 4 for char and char8_t, 1 for a 32-bit wchar_t.
//
// A store() that finds room allocates nothing. When memory runs out, store()
// throws std::bad_alloc and the stash stays usable with all earlier strings; a
// text longer than 2^31 - 1 characters throws std::length_error. One thread at
// a time; views may be read from any thread once handed over.
template <typename Char>
class TVBASE_EXPORT basic_string_stash {
 public:
  using page = string_stash_helper::linked_list_page_node;
  // Gives the capacity of the next page from the running size (which it may
  // advance) and the length that the page must hold.
  using page_size_policy = std::function<unsigned int(unsigned int&, unsigned int)>;

  static constexpr unsigned int kMinFreeFloor =
      static_cast<unsigned int>((sizeof(std::uint32_t) + sizeof(Char) - 1) / sizeof(Char));
  static constexpr std::size_t kMaxLength = 0x7FFFFFFF;

  basic_string_stash();
  ~basic_string_stash();
  basic_string_stash(const basic_string_stash&) = delete;
  basic_string_stash& operator=(const basic_string_stash&) = delete;

  // Copies `text` and gives a zero-ended view of the copy. An empty text takes
  // one character and gives a view of length 0.
  basic_zstring_view<Char> store(std::basic_string_view<Char> text);

  // Stores n, or 1 if n is 0, then retires the pages with the least room until
  // the free list is no longer than that.
  void set_max_free_pages(unsigned int n);
  // Stores n, or the floor above if n is below it. Pages already on the free
  // list stay there.
  void set_min_free_size(unsigned int n);

  unsigned int max_free_pages() const noexcept { return max_free_pages_; }
  unsigned int min_free_size() const noexcept { return min_free_size_; }
  unsigned int next_page_size() const noexcept { return next_page_size_; }

 private:
  template <typename Stash>
  friend struct stash_inspector;  // for tests

  basic_zstring_view<Char> store(const Char* text, unsigned int length);
  std::tuple<std::unique_ptr<page>&, unsigned int> find_free_node(unsigned int needed);
  static void insert_node(std::unique_ptr<page>& list, std::unique_ptr<page> node);
  void move_node_to_full_list(std::unique_ptr<page>& slot);
  void trim_free_list();

  std::unique_ptr<page> full_;
  std::unique_ptr<page> free_;
  page_size_policy page_size_;
  unsigned int max_free_pages_ = 8;
  unsigned int next_page_size_ = 512;
  unsigned int min_free_size_ = kMinFreeFloor;
};

extern template class TVBASE_EXPORT basic_string_stash<char>;
extern template class TVBASE_EXPORT basic_string_stash<char8_t>;
extern template class TVBASE_EXPORT basic_string_stash<wchar_t>;

using string_stash = basic_string_stash<char>;
using wstring_stash = basic_string_stash<wchar_t>;

}  // namespace base

#endif  // TVBASE_TEXT_STRING_STASH_H
