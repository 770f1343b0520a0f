// json::object::unescape and escape on any UTF-16 units: the first byte
// chooses bytes or little-endian byte pairs as units, the second the escape
// strategy as a raw value. unescape() refuses or decodes exactly as a naive
// decoder of the inside of a JSON string does; escape() writes exactly the
// units that a naive encoder writes for the strategy (any value besides the
// three acting as minimal), and what it writes unescapes, and reads as a
// quoted string, back to the text.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include <tvbase/json/object.h>

namespace {

using json::object;
using strategy = object::escape_strategy;

int hex_value(wchar_t c) {
  if (c >= L'0' && c <= L'9') return c - L'0';
  if (c >= L'a' && c <= L'f') return c - L'a' + 10;
  if (c >= L'A' && c <= L'F') return c - L'A' + 10;
  return -1;
}

// The inside of a JSON string decoded, or nothing for a raw quote, a unit
// below 0x20 (NUL included) or a bad or cut escape.
std::optional<std::wstring> naive_unescape(std::wstring_view text) {
  std::wstring out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const wchar_t c = text[i];
    if (c == L'"' || static_cast<std::uint32_t>(c) < 0x20) return std::nullopt;
    if (c != L'\\') {
      out.push_back(c);
      continue;
    }
    if (++i == text.size()) return std::nullopt;
    switch (text[i]) {
      case L'"': out.push_back(L'"'); break;
      case L'\\': out.push_back(L'\\'); break;
      case L'/': out.push_back(L'/'); break;
      case L'b': out.push_back(L'\b'); break;
      case L'f': out.push_back(L'\f'); break;
      case L'n': out.push_back(L'\n'); break;
      case L'r': out.push_back(L'\r'); break;
      case L't': out.push_back(L'\t'); break;
      case L'u': {
        if (text.size() - i < 5) return std::nullopt;
        int value = 0;
        for (std::size_t k = 1; k <= 4; ++k) {
          const int digit = hex_value(text[i + k]);
          if (digit < 0) return std::nullopt;
          value = value * 16 + digit;
        }
        out.push_back(static_cast<wchar_t>(value));
        i += 4;
        break;
      }
      default: return std::nullopt;
    }
  }
  return out;
}

// The escaped form by the rules of the header: the two-unit forms where JSON
// has them, \uXXXX with upper-case digits for the other units below 0x20 and
// for those the strategy names, every other unit raw.
std::wstring naive_escape(std::wstring_view text, strategy how) {
  static constexpr wchar_t kHex[] = L"0123456789ABCDEF";
  std::wstring out;
  for (const wchar_t c : text) {
    const auto u = static_cast<std::uint32_t>(c);
    const wchar_t* pair = nullptr;
    switch (u) {
      case 0x08: pair = L"\\b"; break;
      case 0x09: pair = L"\\t"; break;
      case 0x0A: pair = L"\\n"; break;
      case 0x0C: pair = L"\\f"; break;
      case 0x0D: pair = L"\\r"; break;
      case 0x22: pair = L"\\\""; break;
      case 0x5C: pair = L"\\\\"; break;
      default: break;
    }
    if (pair) {
      out += pair;
      continue;
    }
    const bool named = (how == strategy::surrogates && u >= 0xD800 && u <= 0xDFFF) ||
                       (how == strategy::non_ascii && u >= 0x7F && u <= 0xFFFF);
    if (u < 0x20 || named) {
      out += L"\\u";
      for (int shift = 12; shift >= 0; shift -= 4) out.push_back(kHex[(u >> shift) & 0xF]);
    } else {
      out.push_back(c);
    }
  }
  return out;
}

std::optional<std::wstring> unescaped(std::wstring_view text) {
  try {
    return object::unescape(text);
  } catch (const std::invalid_argument& e) {
    if (std::strcmp(e.what(), "json::object::unescape() invalid string argument") != 0) {
      std::abort();
    }
    return std::nullopt;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2) return 0;
  const bool pairs = data[0] & 1;
  const auto how = static_cast<strategy>(data[1]);
  std::wstring text;
  if (pairs) {
    for (std::size_t i = 2; i + 1 < size; i += 2) {
      text.push_back(static_cast<wchar_t>(data[i] | data[i + 1] << 8));
    }
  } else {
    for (std::size_t i = 2; i < size; ++i) text.push_back(static_cast<wchar_t>(data[i]));
  }

  if (unescaped(text) != naive_unescape(text)) std::abort();

  const bool known = how == strategy::surrogates || how == strategy::non_ascii;
  const std::wstring escaped = object::escape(text, how);
  if (escaped != naive_escape(text, known ? how : strategy::minimal)) std::abort();
  if (unescaped(escaped) != text) std::abort();
  object value;
  if (value.parse(L"\"" + escaped + L"\"") || value.as_string(L"?") != text) std::abort();
  value = std::wstring_view(text);
  if (value.to_string(how) != L"\"" + escaped + L"\"") std::abort();
  return 0;
}
