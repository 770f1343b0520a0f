#ifndef TVBASE_TESTING_EXACT_BUFFER_H
#define TVBASE_TESTING_EXACT_BUFFER_H

// A copy of a test input in a heap block of exactly its size. A literal or a
// std::string has a zero, and often spare capacity, behind its last
// character, so code that reads one unit past the end of a view goes
// unnoticed; here that unit lies outside the block, and AddressSanitizer
// reports the read (tests run under the asan preset too).
//
//   const testing_support::exact_buffer input{"a b"};
//   EXPECT_EQ(convert::url_encode(input.view(), 0), "a+b");
//
// For a function that takes zero-ended text, ending::zero puts the zero into
// the block as its last unit, with nothing behind it:
//
//   const testing_support::exact_buffer text{"12.41b", testing_support::ending::zero};
//   EXPECT_EQ(TvVersion::Parse(text.c_str()), 0x0C040102u);
//
// An empty input gets a block of its own too, and any read of it is
// reported.

#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <string_view>

namespace testing_support {

enum class ending { none, zero };

template <typename Char>
class exact_buffer {
 public:
  explicit exact_buffer(std::basic_string_view<Char> text, ending end = ending::none)
      : size_(text.size()), zero_(end == ending::zero) {
    // malloc, not new: the blocks stay out of the tests' allocation counts.
    // The sanitizer lets a block of no bytes be read, so an empty text is the
    // end of a block of one unit instead.
    const std::size_t units = size_ + (zero_ ? 1 : 0);
    block_ = static_cast<Char*>(std::malloc((units == 0 ? 1 : units) * sizeof(Char)));
    if (block_ == nullptr) throw std::bad_alloc();
    data_ = units == 0 ? block_ + 1 : block_;
    if (size_ != 0) std::memcpy(data_, text.data(), size_ * sizeof(Char));
    if (zero_) data_[size_] = Char{};
  }
  ~exact_buffer() { std::free(block_); }
  exact_buffer(const exact_buffer&) = delete;
  exact_buffer& operator=(const exact_buffer&) = delete;

  // The copy, without the zero of ending::zero.
  std::basic_string_view<Char> view() const { return {data_, size_}; }
  const Char* data() const { return data_; }
  std::size_t size() const { return size_; }
  // Only for ending::zero: the copy as a zero-ended text.
  const Char* c_str() const { return zero_ ? data_ : nullptr; }

 private:
  std::size_t size_;
  bool zero_;
  Char* block_ = nullptr;
  Char* data_ = nullptr;
};

template <typename Char>
exact_buffer(const Char*) -> exact_buffer<Char>;
template <typename Char>
exact_buffer(const Char*, ending) -> exact_buffer<Char>;
template <typename Char, typename Traits, typename Allocator>
exact_buffer(const std::basic_string<Char, Traits, Allocator>&) -> exact_buffer<Char>;
template <typename Char, typename Traits, typename Allocator>
exact_buffer(const std::basic_string<Char, Traits, Allocator>&, ending) -> exact_buffer<Char>;
template <typename Char, typename Traits>
exact_buffer(std::basic_string_view<Char, Traits>) -> exact_buffer<Char>;
template <typename Char, typename Traits>
exact_buffer(std::basic_string_view<Char, Traits>, ending) -> exact_buffer<Char>;

}  // namespace testing_support

#endif  // TVBASE_TESTING_EXACT_BUFFER_H
