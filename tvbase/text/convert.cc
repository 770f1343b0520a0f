#include <tvbase/text/convert.h>

#include <array>

#include <tvbase/platform/code_page.h>

namespace convert {
namespace {

// Bytes written as themselves; a space becomes '+', all others "%XX".
constexpr std::array<bool, 256> kKept = [] {
  std::array<bool, 256> kept{};
  for (int c = 'A'; c <= 'Z'; ++c) kept[c] = true;
  for (int c = 'a'; c <= 'z'; ++c) kept[c] = true;
  for (int c = '0'; c <= '9'; ++c) kept[c] = true;
  for (const unsigned char c : std::string_view("!$'()*,-._")) kept[c] = true;
  return kept;
}();

std::string encode_bytes(std::string_view bytes) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string out(bytes.size() * 3, '\0');
  char* to = out.data();
  for (const char c : bytes) {
    const auto b = static_cast<unsigned char>(c);
    if (kKept[b]) {
      *to++ = c;
    } else if (b == ' ') {
      *to++ = '+';
    } else {
      to[0] = '%';
      to[1] = kHex[b >> 4];
      to[2] = kHex[b & 0x0F];
      to += 3;
    }
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
