// TvxIsValidUtf8 against the rule applied one byte at a time, at every offset
// of an eight-byte word, so that the word-wise reads meet every alignment.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include <tvbase/text/utf8.h>

namespace {

bool naive_valid(const unsigned char* p) {
  for (;;) {
    const unsigned char b = *p++;
    if (b == 0) return true;
    if ((b >= 0x80 && b <= 0xBF) || b >= 0xF8) return false;
    const int follow = b >= 0xF0 ? 3 : b >= 0xE0 ? 2 : b >= 0xC0 ? 1 : 0;
    for (int i = 0; i < follow; ++i) {
      if ((*p++ & 0xC0) != 0x80) return false;
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::vector<unsigned char> buffer(size + 9);
  for (std::size_t shift = 0; shift < 8; ++shift) {
    std::memset(buffer.data(), 0, buffer.size());
    std::memcpy(buffer.data() + shift, data, size);
    const auto* text = buffer.data() + shift;
    if (TvxIsValidUtf8(reinterpret_cast<const char*>(text)) != naive_valid(text)) std::abort();
  }
  return 0;
}
