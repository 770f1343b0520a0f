#ifndef TVBASE_JSON_VALUE_ACCESS_H
#define TVBASE_JSON_VALUE_ACCESS_H

// Internal: what a json::object's std::any holds, found with one call to the
// any's manager, and unchecked access once the type is known.

#include <any>
#include <cstddef>
#include <cstdint>
#include <cwchar>
#include <string>
#include <typeinfo>

#include <tvbase/json/object.h>

namespace json::detail {

inline object::type type_of(const std::any& value) noexcept {
  if (!value.has_value()) return object::type::invalid;
  const std::type_info& t = value.type();
  // Most frequent first; equal type_info objects are usually one object, so
  // these compare addresses before names.
  if (t == typeid(std::wstring)) return object::type::string;
  if (t == typeid(number)) return object::type::number;
  if (t == typeid(object::dictionary_type)) return object::type::dictionary;
  if (t == typeid(object::array_type)) return object::type::array;
  if (t == typeid(bool)) return object::type::boolean;
  if (t == typeid(std::nullptr_t)) return object::type::null;
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

// Keys are equal when they have the same length and the same units.
inline bool same_key(const std::wstring& stored, std::wstring_view key) noexcept {
  return stored.size() == key.size() &&
         (key.empty() || std::wmemcmp(stored.data(), key.data(), key.size()) == 0);
}

// A UTF-16 unit as an unsigned value, whatever the signedness of wchar_t.
inline constexpr std::uint32_t unit(wchar_t c) noexcept { return static_cast<std::uint32_t>(c); }

}  // namespace json::detail

#endif  // TVBASE_JSON_VALUE_ACCESS_H
