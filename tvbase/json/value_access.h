#ifndef TVBASE_JSON_VALUE_ACCESS_H
#define TVBASE_JSON_VALUE_ACCESS_H

// Internal: what a json::object's std::any holds, found with one call to the
// any's manager, and unchecked access once the type is known.

#include <any>
#include <cstddef>
#include <cstdint>
#include <cwchar>
#include <string>
#include <type_traits>
#include <typeinfo>

#include <tvbase/json/object.h>

namespace json::detail {

inline object::type type_of(const std::any& value) noexcept {
  if (!value.has_value()) return object::type::invalid;
  const std::type_info& t = value.type();
  // Addresses first, most frequent first: within one program each type has
  // one type_info object. Names are compared only when none of them match.
  if (&t == &typeid(std::wstring)) return object::type::string;
  if (&t == &typeid(number)) return object::type::number;
  if (&t == &typeid(std::nullptr_t)) return object::type::null;
  if (&t == &typeid(object::dictionary_type)) return object::type::dictionary;
  if (&t == &typeid(object::array_type)) return object::type::array;
  if (&t == &typeid(bool)) return object::type::boolean;
  if (t == typeid(std::wstring)) return object::type::string;
  if (t == typeid(number)) return object::type::number;
  if (t == typeid(std::nullptr_t)) return object::type::null;
  if (t == typeid(object::dictionary_type)) return object::type::dictionary;
  if (t == typeid(object::array_type)) return object::type::array;
  if (t == typeid(bool)) return object::type::boolean;
  return object::type::invalid;
}

inline bool is_container(object::type t) noexcept {
  return t == object::type::array || t == object::type::dictionary;
}

// The held value; `value` must hold a T.
template <class T>
T& held(std::any& value) noexcept {
  return *std::any_cast<T>(&value);
}
template <class T>
const T& held(const std::any& value) noexcept {
  return *std::any_cast<T>(&value);
}

// The held value if `value` holds a T, else null. Unlike std::any_cast, a
// miss costs no comparison of type names.
template <class T>
constexpr object::type type_for() noexcept {
  if constexpr (std::is_same_v<T, std::wstring>) return object::type::string;
  if constexpr (std::is_same_v<T, number>) return object::type::number;
  if constexpr (std::is_same_v<T, bool>) return object::type::boolean;
  if constexpr (std::is_same_v<T, object::dictionary_type>) return object::type::dictionary;
  if constexpr (std::is_same_v<T, object::array_type>) return object::type::array;
  return object::type::invalid;
}
template <class T>
T* held_if(std::any& value) noexcept {
  return type_of(value) == type_for<T>() ? &held<T>(value) : nullptr;
}
template <class T>
const T* held_if(const std::any& value) noexcept {
  return type_of(value) == type_for<T>() ? &held<T>(value) : nullptr;
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
