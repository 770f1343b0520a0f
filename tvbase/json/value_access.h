#ifndef TVBASE_JSON_VALUE_ACCESS_H
#define TVBASE_JSON_VALUE_ACCESS_H

// Internal: what a json::object's storage holds, and access to it. The
// storage is a std::variant whose alternatives stand in the order of
// json::object::type, with the short number form after them; the helpers
// take it as a template parameter, since its name is private to the object.

#include <cstddef>
#include <cstdint>
#include <cwchar>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>

#include <tvbase/json/object.h>

namespace json::detail {

// The index of the short number form in the storage.
inline constexpr std::size_t kShortNumber = 7;

template <class Storage>
object::type type_of(const Storage& value) noexcept {
  const std::size_t index = value.index();
  return index == kShortNumber ? object::type::number : static_cast<object::type>(index);
}

inline bool is_container(object::type t) noexcept {
  return t == object::type::array || t == object::type::dictionary;
}

// The held value; `value` must hold a T.
template <class T, class Storage>
T& held(Storage& value) noexcept {
  return *std::get_if<T>(&value);
}
template <class T, class Storage>
const T& held(const Storage& value) noexcept {
  return *std::get_if<T>(&value);
}

// The held value if `value` holds a T, else null.
template <class T, class Storage>
T* held_if(Storage& value) noexcept {
  return std::get_if<T>(&value);
}
template <class T, class Storage>
const T* held_if(const Storage& value) noexcept {
  return std::get_if<T>(&value);
}

// The text of a short number.
inline std::string_view text_of(const short_number& n) noexcept { return {n.text, n.size}; }

// Number text in the short form when it fits: at most short_number::kMax
// units, all ASCII.
inline bool fits_short(std::wstring_view text) noexcept {
  if (text.size() > short_number::kMax) return false;
  for (const wchar_t c : text) {
    if (static_cast<std::uint32_t>(c) >= 0x80) return false;
  }
  return true;
}
inline short_number make_short(std::wstring_view text) noexcept {
  short_number n;
  n.size = static_cast<std::uint8_t>(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) n.text[i] = static_cast<char>(text[i]);
  return n;
}

// The number text a value holds in either form, or null when it holds no
// number; `wide` receives the short form's text.
template <class Storage>
const std::wstring* number_text(const Storage& value, std::wstring& wide) {
  if (const number* n = std::get_if<number>(&value)) return &n->text;
  if (const short_number* n = std::get_if<short_number>(&value)) {
    wide.assign(n->text, n->text + n->size);
    return &wide;
  }
  return nullptr;
}

// Keys are equal when they have the same length and the same units.
inline bool same_key(const std::wstring& stored, std::wstring_view key) noexcept {
  return stored.size() == key.size() &&
         (key.empty() || std::wmemcmp(stored.data(), key.data(), key.size()) == 0);
}

// A UTF-16 unit as an unsigned value, whatever the signedness of wchar_t.
inline constexpr std::uint32_t unit(wchar_t c) noexcept { return static_cast<std::uint32_t>(c); }

}  // namespace json::detail

#endif  // TVBASE_JSON_VALUE_ACCESS_H
