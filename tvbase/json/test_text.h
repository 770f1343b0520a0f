#ifndef TVBASE_JSON_TEST_TEXT_H
#define TVBASE_JSON_TEST_TEXT_H

// For the tests: wide text made readable in a trace.

#include <cstdint>
#include <string>
#include <string_view>

namespace json::testing {

// Printable ASCII as it is; every other unit as \x{decimal value}.
inline std::string shown(std::wstring_view text) {
  std::string out;
  for (const wchar_t c : text) {
    const auto u = static_cast<std::uint32_t>(c);
    if (u >= 0x20 && u < 0x7F) {
      out.push_back(static_cast<char>(u));
    } else {
      out += "\\x{" + std::to_string(u) + "}";
    }
  }
  return out;
}

}  // namespace json::testing

#endif  // TVBASE_JSON_TEST_TEXT_H
