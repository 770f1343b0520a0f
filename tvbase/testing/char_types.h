#ifndef TVBASE_TESTING_CHAR_TYPES_H
#define TVBASE_TESTING_CHAR_TYPES_H

// The three character types that the text templates are instantiated for,
// for typed test suites, and the helpers that let one row of ASCII serve all
// three:
//
//   template <typename Char> class Stash : public ::testing::Test {};
//   TYPED_TEST_SUITE(Stash, testing_support::char_types, testing_support::char_type_names);
//   TYPED_TEST(Stash, KeepsText) {
//     const auto text = testing_support::widen<TypeParam>("abc");
//     EXPECT_EQ(testing_support::shown(text), "abc");
//   }

#include <cstdio>
#include <string>
#include <string_view>
#include <type_traits>

#include <gtest/gtest.h>

namespace testing_support {

using char_types = ::testing::Types<char, char8_t, wchar_t>;

// Names the typed tests Suite/char.Test, Suite/char8_t.Test, Suite/wchar_t.Test.
struct char_type_names {
  template <typename Char>
  static std::string GetName(int) {
    if constexpr (std::is_same_v<Char, char>) return "char";
    if constexpr (std::is_same_v<Char, char8_t>) return "char8_t";
    if constexpr (std::is_same_v<Char, wchar_t>) return "wchar_t";
  }
};

// Each byte of `bytes` as one unit of Char, with its value (0-255).
template <typename Char>
std::basic_string<Char> widen(std::string_view bytes) {
  std::basic_string<Char> out;
  out.reserve(bytes.size());
  for (const char c : bytes) out += static_cast<Char>(static_cast<unsigned char>(c));
  return out;
}

// Units as text that GoogleTest prints for every Char: a unit below 0x80 as
// that byte, any other as \x{HEX}.
template <typename Char>
std::string shown(std::basic_string_view<Char> text) {
  std::string out;
  for (const Char c : text) {
    const auto unit = static_cast<unsigned long>(static_cast<std::make_unsigned_t<Char>>(c));
    if (unit < 0x80) {
      out += static_cast<char>(unit);
    } else {
      char hex[16];
      std::snprintf(hex, sizeof hex, "\\x{%lX}", unit);
      out += hex;
    }
  }
  return out;
}
template <typename Char>
std::string shown(const std::basic_string<Char>& text) {
  return shown(std::basic_string_view<Char>(text));
}

// One character that takes two units of Char: U+00E9 in UTF-8 for the byte
// types, U+1F600 as a surrogate pair for wchar_t.
template <typename Char>
std::basic_string<Char> two_unit_character() {
  if constexpr (sizeof(Char) == 1) {
    return {static_cast<Char>(0xC3), static_cast<Char>(0xA9)};
  } else {
    return {static_cast<Char>(0xD83D), static_cast<Char>(0xDE00)};
  }
}

}  // namespace testing_support

#endif  // TVBASE_TESTING_CHAR_TYPES_H
