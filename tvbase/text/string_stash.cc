#include <tvbase/text/string_stash.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace base {
namespace {

using page = string_stash_helper::linked_list_page_node;

std::uint32_t free_count(page& p) {
  std::uint32_t count;
  std::memcpy(&count, p.area(), sizeof count);
  return count;
}

void set_free_count(page& p, std::uint32_t count) { std::memcpy(p.area(), &count, sizeof count); }

// Grows the page size by a quarter each time, or jumps to a long text's size.
unsigned int default_page_size(unsigned int& next, unsigned int needed) {
  if (needed > next) {
    next = needed + needed / 4;
    return next;
  }
  const unsigned int result = next;
  next = next + next / 4;
  return result;
}

// Frees a list one page at a time, so that a long list cannot exhaust the
// stack through the pages' owning pointers.
void free_list(std::unique_ptr<page>& list) {
  while (list) list = std::move(list->next);
}

}  // namespace

template <typename Char>
basic_string_stash<Char>::basic_string_stash() : page_size_(default_page_size) {}

template <typename Char>
basic_string_stash<Char>::~basic_string_stash() {
  page_size_ = nullptr;
  free_list(free_);
  free_list(full_);
}

template <typename Char>
std::tuple<std::unique_ptr<page>&, unsigned int> basic_string_stash<Char>::find_free_node(
    unsigned int needed) {
  std::unique_ptr<page>* best = nullptr;
  std::uint32_t best_free = 0;
  unsigned int count = 0;
  std::unique_ptr<page>* slot = &free_;
  for (; *slot; slot = &(*slot)->next) {
    ++count;
    const std::uint32_t room = free_count(**slot);
    if (room >= needed && (best == nullptr || room < best_free)) {
      best = slot;
      best_free = room;
    }
  }
  return {best != nullptr ? *best : *slot, count};
}

template <typename Char>
void basic_string_stash<Char>::insert_node(std::unique_ptr<page>& list,
                                           std::unique_ptr<page> node) {
  node->next = std::move(list);
  list = std::move(node);
}

template <typename Char>
void basic_string_stash<Char>::move_node_to_full_list(std::unique_ptr<page>& slot) {
  std::unique_ptr<page> node = std::move(slot);
  slot = std::move(node->next);
  insert_node(full_, std::move(node));
}

template <typename Char>
void basic_string_stash<Char>::trim_free_list() {
  for (;;) {
    auto [slot, count] = find_free_node(0);
    if (count <= max_free_pages_) return;
    move_node_to_full_list(slot);
  }
}

template <typename Char>
void basic_string_stash<Char>::set_max_free_pages(unsigned int n) {
  max_free_pages_ = n == 0 ? 1 : n;
  trim_free_list();
}

template <typename Char>
void basic_string_stash<Char>::set_min_free_size(unsigned int n) {
  min_free_size_ = std::max(n, kMinFreeFloor);
}

template <typename Char>
basic_zstring_view<Char> basic_string_stash<Char>::store(std::basic_string_view<Char> text) {
  if (text.size() > kMaxLength) throw std::length_error("basic_string_stash: text too long");
  return store(text.data(), static_cast<unsigned int>(text.size()));
}

template <typename Char>
basic_zstring_view<Char> basic_string_stash<Char>::store(const Char* text, unsigned int length) {
  page* target = nullptr;
  std::uint32_t rest = 0;
  auto [slot, count] = find_free_node(length + 1);
  static_cast<void>(count);
  if (slot) {
    target = slot.get();
    rest = free_count(*target) - length - 1;
    if (rest >= min_free_size_) {
      set_free_count(*target, rest);
    } else {
      move_node_to_full_list(slot);
    }
  } else {
    const unsigned int capacity = std::max(page_size_(next_page_size_, length), length);
    const std::size_t wanted =
        sizeof(page) + std::max<std::size_t>(std::size_t{capacity} + 1, 128) * sizeof(Char);
    const std::size_t bytes = (wanted + 7) & ~std::size_t{7};
    std::unique_ptr<page> fresh(new (bytes) page);
    target = fresh.get();
    rest = static_cast<std::uint32_t>((bytes - sizeof(page)) / sizeof(Char) - length - 1);
    if (rest >= min_free_size_) {
      set_free_count(*target, rest);
      insert_node(free_, std::move(fresh));
      trim_free_list();
    } else {
      insert_node(full_, std::move(fresh));
    }
  }
  Char* copy = static_cast<Char*>(target->area()) + rest;
  std::copy_n(text, length, copy);
  copy[length] = Char{};
  return {copy, length};
}

template class basic_string_stash<char>;
template class basic_string_stash<char8_t>;
template class basic_string_stash<wchar_t>;

}  // namespace base
