#include <tvbase/json/object.h>

#include <climits>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <type_traits>
#include <utility>

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

// An empty container of the same kind as `t`.
std::any empty_container(object::type t) {
  if (t == object::type::array) return std::any(std::in_place_type<object::array_type>);
  return std::any(std::in_place_type<object::dictionary_type>);
}

}  // namespace

std::any object::copy_value(const std::any& value) {
  const type root_type = type_of(value);
  if (!is_container(root_type)) return value;

  // Each job copies the children of one source container into a destination
  // container that has been made empty; containers among the children are
  // made empty in place and queued. A destination is reserved at its final
  // size before its children are queued, so the queued addresses stay valid.
  struct job {
    const std::any* from;
    std::any* to;
  };
  std::any result = empty_container(root_type);
  std::vector<job> jobs{{&value, &result}};
  while (!jobs.empty()) {
    const job j = jobs.back();
    jobs.pop_back();
    if (type_of(*j.from) == type::array) {
      const array_type& from = held<array_type>(*j.from);
      array_type& to = held<array_type>(*j.to);
      to.reserve(from.size());
      for (const object& element : from) {
        const type t = type_of(element.value_);
        object& copy = to.emplace_back();
        if (is_container(t)) {
          copy.value_ = empty_container(t);
          jobs.push_back({&element.value_, &copy.value_});
        } else {
          copy.value_ = element.value_;
        }
      }
    } else {
      const dictionary_type& from = held<dictionary_type>(*j.from);
      dictionary_type& to = held<dictionary_type>(*j.to);
      to.reserve(from.size());
      for (const auto& [key, element] : from) {
        const type t = type_of(element.value_);
        object& copy = to.emplace_back(key, object()).second;
        if (is_container(t)) {
          copy.value_ = empty_container(t);
          jobs.push_back({&element.value_, &copy.value_});
        } else {
          copy.value_ = element.value_;
        }
      }
    }
  }
  return result;
}

void object::drop_value(std::any& value) noexcept {
  if (!value.has_value()) return;
  if (!is_container(type_of(value))) {
    value.reset();
    return;
  }
  // Each container's children are emptied before the container is
  // destroyed: scalars and empty containers at once, and the others moved
  // onto a list to be emptied in turn. So no destructor meets a child that
  // still holds anything, and the walk has no recursion.
  std::vector<std::any> pending;
  const auto empty_child = [&pending](std::any& child) noexcept {
    if (!child.has_value()) return;
    const type t = type_of(child);
    const bool full = (t == type::array && !held<array_type>(child).empty()) ||
                      (t == type::dictionary && !held<dictionary_type>(child).empty());
    if (!full) {
      child.reset();
      return;
    }
    try {
      pending.push_back(std::move(child));
    } catch (...) {
      // Out of memory for the list: this child is destroyed by recursion.
    }
  };
  std::any current = std::move(value);
  for (;;) {
    if (type_of(current) == type::array) {
      for (object& element : held<array_type>(current)) empty_child(element.value_);
    } else {
      for (auto& entry : held<dictionary_type>(current)) empty_child(entry.second.value_);
    }
    current.reset();
    if (pending.empty()) break;
    current = std::move(pending.back());
    pending.pop_back();
  }
}

object::object(const object& other) : value_(copy_value(other.value_)) {}

object::object(object&& other) noexcept : value_(std::move(other.value_)) {}

object::~object() {
  if (value_.has_value()) drop_value(value_);
}

object& object::operator=(const object& other) {
  std::any copy = copy_value(other.value_);
  drop_value(value_);
  value_ = std::move(copy);
  return *this;
}

object& object::operator=(object&& other) noexcept {
  std::any taken = std::move(other.value_);
  drop_value(value_);
  value_ = std::move(taken);
  return *this;
}

object& object::operator=(const number& value) {
  std::any copy(value);
  drop_value(value_);
  value_ = std::move(copy);
  return *this;
}

object& object::operator=(std::wstring_view text) {
  std::any copy(std::in_place_type<std::wstring>, text);
  drop_value(value_);
  value_ = std::move(copy);
  return *this;
}

object& object::operator=(const bool& value) {
  drop_value(value_);
  value_ = value;
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

double object::as_double(double fallback) const {
  const number* n = held_if<number>(value_);
  return n ? std::stod(n->text) : fallback;
}

int object::as_int(int fallback) const {
  const number* n = held_if<number>(value_);
  return n ? std::stoi(n->text) : fallback;
}

unsigned int object::as_uint(unsigned int fallback) const {
  const number* n = held_if<number>(value_);
  if (!n) return fallback;
  // std::stoul is 64 bits wide here; the magnitude must fit 32 bits, and a
  // leading minus negates it modulo 2^32, as a 32-bit stoul would.
  const unsigned long wide = std::stoul(n->text);
  const std::size_t sign = n->text.find_first_not_of(L" \t\n\v\f\r");
  const bool negative = sign != std::wstring::npos && n->text[sign] == L'-';
  const unsigned long magnitude = negative ? 0ul - wide : wide;
  if (magnitude > std::numeric_limits<unsigned int>::max()) {
    throw std::out_of_range("stoul");
  }
  return static_cast<unsigned int>(wide);
}

long long object::as_int64(long long fallback) const {
  const number* n = held_if<number>(value_);
  return n ? std::stoll(n->text) : fallback;
}

unsigned long long object::as_uint64(unsigned long long fallback) const {
  const number* n = held_if<number>(value_);
  return n ? std::stoull(n->text) : fallback;
}

std::wstring object::as_string(std::wstring_view fallback) const {
  const std::wstring* s = held_if<std::wstring>(value_);
  return s ? *s : std::wstring(fallback);
}

std::wstring object::as_number_string(std::wstring_view fallback) const {
  const number* n = held_if<number>(value_);
  return n ? n->text : std::wstring(fallback);
}

// --- writing ----------------------------------------------------------------

object& object::null() noexcept {
  drop_value(value_);
  value_ = nullptr;
  return *this;
}

object& object::empty_array() {
  if (held_if<array_type>(value_)) return *this;
  std::any fresh(std::in_place_type<array_type>);
  drop_value(value_);
  value_ = std::move(fresh);
  return *this;
}

object& object::empty_object() {
  if (held_if<dictionary_type>(value_)) return *this;
  std::any fresh(std::in_place_type<dictionary_type>);
  drop_value(value_);
  value_ = std::move(fresh);
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
  auto* c = std::any_cast<Container>(&self_value);
  if (!c) return;
  if constexpr (std::is_same_v<std::remove_const_t<Container>, object::array_type>) {
    for (std::size_t i = 0; (c = std::any_cast<Container>(&self_value)) && i < c->size(); ++i) {
      if (!fn(static_cast<unsigned int>(i), (*c)[i])) return;
    }
  } else {
    const std::size_t end = c->size();
    for (std::size_t i = 0; i < end; ++i) {
      c = std::any_cast<Container>(&self_value);
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
