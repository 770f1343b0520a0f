#include <tvbase/json/object.h>

#include <climits>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include <fmt/xchar.h>

#include "value_access.h"

namespace json {

using detail::held;
using detail::held_if;
using detail::is_container;
using detail::same_key;
using detail::type_of;

constinit const object object::invalid_object{false};

// --- copying and destroying, without recursion ----------------------------

namespace {

using storage = std::variant<detail::invalid_value, std::nullptr_t, number, std::wstring, bool,
                             object::dictionary_type, object::array_type, detail::short_number>;

// An empty container of the same kind as `t`.
void make_empty(storage& value, object::type t) {
  if (t == object::type::array) {
    value.emplace<object::array_type>();
  } else {
    value.emplace<object::dictionary_type>();
  }
}

bool holds_full_container(const storage& value) noexcept {
  if (const auto* a = std::get_if<object::array_type>(&value)) return !a->empty();
  if (const auto* d = std::get_if<object::dictionary_type>(&value)) return !d->empty();
  return false;
}

}  // namespace

object::storage object::copy_value(const storage& value) {
  static_assert(std::is_same_v<storage, json::storage>, "the storage named twice");
  const type root_type = type_of(value);
  if (!is_container(root_type)) return value;

  // Each job copies the children of one source container into a destination
  // container that has been made empty; containers among the children are
  // made empty in place and queued. A destination is reserved at its final
  // size before its children are queued, so the queued addresses stay valid.
  struct job {
    const storage* from;
    storage* to;
  };
  storage result;
  make_empty(result, root_type);
  std::vector<job> jobs{{&value, &result}};
  while (!jobs.empty()) {
    const job j = jobs.back();
    jobs.pop_back();
    const auto copy_child = [&jobs](const object& from, object& to) {
      const type t = type_of(from.value_);
      if (is_container(t)) {
        make_empty(to.value_, t);
        jobs.push_back({&from.value_, &to.value_});
      } else {
        to.value_ = from.value_;
      }
    };
    if (const auto* elements = std::get_if<array_type>(j.from)) {
      array_type& to = held<array_type>(*j.to);
      to.reserve(elements->size());
      for (const object& element : *elements) copy_child(element, to.emplace_back());
    } else {
      const dictionary_type& entries = held<dictionary_type>(*j.from);
      dictionary_type& to = held<dictionary_type>(*j.to);
      to.reserve(entries.size());
      for (const auto& [key, element] : entries)
        copy_child(element, to.emplace_back(key, object()).second);
    }
  }
  return result;
}

// Each container's children are emptied before the container is
// destroyed: the full containers among them are moved onto a list to be
// emptied in turn, which leaves them empty where they stood. So no
// destructor meets a child that still holds anything, and the walk has no
// recursion. Scalars and empty containers go with their container.
void object::drop_value(storage& value) noexcept {
  if (!holds_full_container(value)) {
    value.emplace<0>();
    return;
  }
  std::vector<storage> pending;
  const auto empty_child = [&pending](storage& child) noexcept {
    if (!holds_full_container(child)) return;
    try {
      pending.push_back(std::move(child));
    } catch (...) {
      // Out of memory for the list: this child is destroyed by recursion.
    }
  };
  storage current = std::move(value);
  value.emplace<0>();
  for (;;) {
    if (auto* a = std::get_if<array_type>(&current)) {
      for (object& element : *a) empty_child(element.value_);
    } else {
      for (auto& entry : held<dictionary_type>(current)) empty_child(entry.second.value_);
    }
    current.emplace<0>();
    if (pending.empty()) break;
    current = std::move(pending.back());
    pending.pop_back();
  }
}

object::object(const object& other) : value_(copy_value(other.value_)) {}

object::object(object&& other) noexcept : value_(std::move(other.value_)) {
  other.value_.emplace<0>();
}

object::~object() {
  if (holds_full_container(value_)) drop_value(value_);
}

object& object::operator=(const object& other) {
  storage copy = copy_value(other.value_);
  drop_value(value_);
  value_ = std::move(copy);
  return *this;
}

object& object::operator=(object&& other) noexcept {
  storage taken = std::move(other.value_);
  other.value_.emplace<0>();
  drop_value(value_);
  value_ = std::move(taken);
  return *this;
}

object& object::operator=(const number& value) {
  storage copy;
  if (detail::fits_short(value.text)) {
    copy.emplace<detail::short_number>(detail::make_short(value.text));
  } else {
    copy.emplace<number>(value);
  }
  drop_value(value_);
  value_ = std::move(copy);
  return *this;
}

object& object::operator=(std::wstring_view text) {
  storage copy(std::in_place_type<std::wstring>, text);
  drop_value(value_);
  value_ = std::move(copy);
  return *this;
}

object& object::operator=(const bool& value) {
  drop_value(value_);
  value_.emplace<bool>(value);
  return *this;
}

// --- reading ----------------------------------------------------------------

object::type object::get_type() const noexcept { return type_of(value_); }

const object& object::get(unsigned int index) const noexcept {
  if (const auto* a = held_if<array_type>(value_); a && index < a->size()) {
    return (*a)[index];
  }
  return invalid_object;
}

const object& object::get(std::wstring_view key) const noexcept {
  if (const auto* d = held_if<dictionary_type>(value_)) {
    for (const auto& entry : *d) {
      if (same_key(entry.first, key)) return entry.second;
    }
  }
  return invalid_object;
}

bool object::as_bool(bool fallback) const noexcept {
  const bool* b = held_if<bool>(value_);
  return b ? *b : fallback;
}

namespace {

// Calls `read` with the number text in whichever form the value holds it
// (a std::wstring or, for the short form, a std::string of the same ASCII
// text), or gives `fallback` when it holds no number.
template <class Result, class Read>
Result read_number(const storage& value, Result fallback, Read read) {
  if (const number* n = std::get_if<number>(&value)) return read(n->text);
  if (const auto* n = std::get_if<detail::short_number>(&value)) {
    return read(std::string(detail::text_of(*n)));
  }
  return fallback;
}

}  // namespace

double object::as_double(double fallback) const {
  return read_number(value_, fallback, [](const auto& text) { return std::stod(text); });
}

int object::as_int(int fallback) const {
  return read_number(value_, fallback, [](const auto& text) { return std::stoi(text); });
}

unsigned int object::as_uint(unsigned int fallback) const {
  // std::stoul is 64 bits wide here; the magnitude must fit 32 bits, and a
  // leading minus negates it modulo 2^32, as a 32-bit stoul would.
  return read_number(value_, fallback, [](const auto& text) {
    const unsigned long wide = std::stoul(text);
    std::size_t sign = 0;
    while (sign < text.size() && (text[sign] == ' ' || (text[sign] >= '\t' && text[sign] <= '\r')))
      ++sign;
    const bool negative = sign < text.size() && text[sign] == '-';
    const unsigned long magnitude = negative ? 0ul - wide : wide;
    if (magnitude > std::numeric_limits<unsigned int>::max()) {
      throw std::out_of_range("stoul");
    }
    return static_cast<unsigned int>(wide);
  });
}

long long object::as_int64(long long fallback) const {
  return read_number(value_, fallback, [](const auto& text) { return std::stoll(text); });
}

unsigned long long object::as_uint64(unsigned long long fallback) const {
  return read_number(value_, fallback, [](const auto& text) { return std::stoull(text); });
}

std::wstring object::as_string(std::wstring_view fallback) const {
  const std::wstring* s = held_if<std::wstring>(value_);
  return s ? *s : std::wstring(fallback);
}

std::wstring object::as_number_string(std::wstring_view fallback) const {
  std::wstring wide;
  const std::wstring* text = detail::number_text(value_, wide);
  if (!text) return std::wstring(fallback);
  return text == &wide ? std::move(wide) : *text;
}

// --- writing ----------------------------------------------------------------

object& object::null() noexcept {
  drop_value(value_);
  value_.emplace<std::nullptr_t>(nullptr);
  return *this;
}

object& object::empty_array() {
  if (held_if<array_type>(value_)) return *this;
  drop_value(value_);
  value_.emplace<array_type>();
  return *this;
}

object& object::empty_object() {
  if (held_if<dictionary_type>(value_)) return *this;
  drop_value(value_);
  value_.emplace<dictionary_type>();
  return *this;
}

object& object::operator[](unsigned int index) {
  array_type& a = held<array_type>(empty_array().value_);
  a.resize(static_cast<std::size_t>(index) + 1);
  return a[index];
}

object& object::operator[](std::wstring_view key) {
  dictionary_type& d = held<dictionary_type>(empty_object().value_);
  for (auto& entry : d) {
    if (same_key(entry.first, key)) return entry.second;
  }
  return d.emplace_back(std::wstring(key), object()).second;
}

// --- walking ----------------------------------------------------------------

namespace {

// One walk for the four overloads. The array walk re-reads the length after
// each call; the dictionary walk takes its end once but still stops if the
// function object shrinks the dictionary or changes the value's type.
template <class Container, class Self, class Fn>
void walk(Self& self_value, Fn& fn) {
  auto* c = std::get_if<std::remove_const_t<Container>>(&self_value);
  if (!c) return;
  if constexpr (std::is_same_v<std::remove_const_t<Container>, object::array_type>) {
    for (std::size_t i = 0;
         (c = std::get_if<std::remove_const_t<Container>>(&self_value)) && i < c->size(); ++i) {
      if (!fn(static_cast<unsigned int>(i), (*c)[i])) return;
    }
  } else {
    const std::size_t end = c->size();
    for (std::size_t i = 0; i < end; ++i) {
      c = std::get_if<std::remove_const_t<Container>>(&self_value);
      if (!c || i >= c->size()) return;
      if (!fn((*c)[i].first, (*c)[i].second)) return;
    }
  }
}

}  // namespace

void object::foreach(std::function<bool(const std::wstring&, object&)> fn) {
  walk<dictionary_type>(value_, fn);
}

void object::foreach(std::function<bool(const std::wstring&, const object&)> fn) const {
  walk<const dictionary_type>(value_, fn);
}

void object::foreach(std::function<bool(unsigned int, object&)> fn) {
  walk<array_type>(value_, fn);
}

void object::foreach(std::function<bool(unsigned int, const object&)> fn) const {
  walk<const array_type>(value_, fn);
}

// --- number text --------------------------------------------------------------

std::wstring functions::double_to_number_wstring(double value) {
  return fmt::format(L"{:0.15g}", value);
}

}  // namespace json
