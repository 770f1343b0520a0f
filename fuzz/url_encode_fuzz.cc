// url_encode on any bytes, narrow and wide, under several code pages: the
// result is plain ASCII, decodes back to the converted bytes, and code page 0
// keeps the bytes as they are.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include <tvbase/text/convert.h>

namespace {

int hex(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  std::abort();  // lower-case or no hex digit
}

std::string decode(const std::string& encoded) {
  std::string bytes;
  for (std::size_t i = 0; i < encoded.size(); ++i) {
    const char c = encoded[i];
    if (static_cast<unsigned char>(c) >= 0x80) std::abort();
    if (c == '+') {
      bytes.push_back(' ');
    } else if (c == '%') {
      if (i + 2 >= encoded.size()) std::abort();
      bytes.push_back(static_cast<char>(hex(encoded[i + 1]) * 16 + hex(encoded[i + 2])));
      i += 2;
    } else {
      bytes.push_back(c);
    }
  }
  return bytes;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const unsigned int pages[] = {0, 65001, 1252, 28591, 20127, 932, 1251, 99999};
  if (size == 0) return 0;
  const unsigned int page = pages[data[0] % 8];
  const std::string text(reinterpret_cast<const char*>(data + 1), size - 1);

  const std::string narrow = convert::url_encode(text, page);
  if (page == 0 && decode(narrow) != text) std::abort();
  if (page == 99999 && !narrow.empty()) std::abort();
  decode(narrow);

  std::wstring wide;
  for (std::size_t i = 0; i + 1 < text.size(); i += 2) {
    wide.push_back(static_cast<wchar_t>(static_cast<unsigned char>(text[i]) |
                                        static_cast<unsigned char>(text[i + 1]) << 8));
  }
  const std::string encoded = convert::url_encode(wide, page);
  if (page == 99999 && !encoded.empty()) std::abort();
  decode(encoded);
  return 0;
}
