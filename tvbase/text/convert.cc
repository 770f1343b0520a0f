#include <tvbase/text/convert.h>

#include <array>
#include <cstdint>
#include <cstring>

#include <tvbase/platform/code_page.h>

namespace convert {
namespace {

// What each byte is written as: up to three characters and their count. A
// space becomes '+', the 72 bytes A-Z a-z 0-9 ! $ ' ( ) * , - . _ stay, and
// every other byte becomes "%XX".
struct encoding {
  char text[4];
  std::uint8_t length;
};

constexpr std::array<encoding, 256> kEncoding = [] {
  constexpr char hex[] = "0123456789ABCDEF";
  std::array<encoding, 256> table{};
  for (int b = 0; b < 256; ++b) {
    const bool kept =
        (b >= 'A' && b <= 'Z') || (b >= 'a' && b <= 'z') || (b >= '0' && b <= '9') ||
        std::string_view("!$'()*,-._").find(static_cast<char>(b)) != std::string_view::npos;
    if (kept)
      table[b] = {{static_cast<char>(b)}, 1};
    else if (b == ' ')
      table[b] = {{'+'}, 1};
    else
      table[b] = {{'%', hex[b >> 4], hex[b & 0x0F]}, 3};
  }
  return table;
}();

// Writes four bytes for every input byte and moves on by the encoding's
// length, so that no byte takes a branch of its own.
std::string encode_bytes(std::string_view bytes) {
  std::string out(bytes.size() * 3 + 1, '\0');
  char* to = out.data();
  for (const char c : bytes) {
    const encoding& e = kEncoding[static_cast<unsigned char>(c)];
    std::memcpy(to, e.text, 4);
    to += e.length;
  }
  out.resize(static_cast<std::size_t>(to - out.data()));
  return out;
}

}  // namespace

std::string url_encode(std::wstring_view text, unsigned int code_page) {
  if (text.empty()) return {};
  std::string bytes;
  if (!platform::wide_to_code_page(text, code_page, "?", bytes)) return {};
  return encode_bytes(bytes);
}

std::string url_encode(std::string_view text, unsigned int code_page) {
  if (code_page == 0) return encode_bytes(text);
  return url_encode(platform::default_to_wide(text), code_page);
}

}  // namespace convert
