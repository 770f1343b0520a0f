// Writing a json::object as compact JSON text, and the string encoding.
#include <tvbase/json/object.h>

#include <ostream>
#include <stdexcept>
#include <vector>

#include "value_access.h"

namespace json {

using detail::held;
using detail::type_of;
using detail::unit;

namespace {

using strategy_t = object::escape_strategy;

constexpr wchar_t kHex[] = L"0123456789ABCDEF";

// How many units a unit adds when escaped: 0 (written raw), 1 (a two-unit
// form such as \n) or 5 (\uXXXX). Only values 1 and 2 of the strategy mean
// anything; every other value acts as minimal.
int extra_units(std::uint32_t u, strategy_t strategy) noexcept {
  switch (u) {
    case 0x08: case 0x09: case 0x0A: case 0x0C: case 0x0D: case 0x22: case 0x5C:
      return 1;
    default:
      break;
  }
  if (u < 0x20) return 5;
  if (strategy == strategy_t::surrogates) return u >= 0xD800 && u <= 0xDFFF ? 5 : 0;
  if (strategy == strategy_t::non_ascii) return u >= 0x7F && u <= 0xFFFF ? 5 : 0;
  return 0;
}

// Writes the escaped form of a unit whose extra_units() is not 0 at `to`,
// and returns the position after it.
wchar_t* write_escape(wchar_t* to, std::uint32_t u, int extra) noexcept {
  *to++ = L'\\';
  if (extra == 1) {
    switch (u) {
      case 0x08: *to++ = L'b'; break;
      case 0x09: *to++ = L't'; break;
      case 0x0A: *to++ = L'n'; break;
      case 0x0C: *to++ = L'f'; break;
      case 0x0D: *to++ = L'r'; break;
      default: *to++ = static_cast<wchar_t>(u); break;  // the quote and the backslash
    }
    return to;
  }
  *to++ = L'u';
  *to++ = kHex[(u >> 12) & 0xF];
  *to++ = kHex[(u >> 8) & 0xF];
  *to++ = kHex[(u >> 4) & 0xF];
  *to++ = kHex[u & 0xF];
  return to;
}

// Whether `strategy` writes the unit as it is; the opposite of extra_units()
// giving more than 0.
bool plain(std::uint32_t u, strategy_t strategy) noexcept {
  if (u < 0x20 || u == 0x22 || u == 0x5C) return false;
  if (u < 0x7F) return true;
  if (strategy == strategy_t::surrogates) return u < 0xD800 || u > 0xDFFF;
  if (strategy == strategy_t::non_ascii) return u > 0xFFFF;
  return true;
}

}  // namespace

// Writes values into a wide string, which is handed to a stream in pieces
// when there is one.
class writer {
 public:
  writer(std::wstring& out, strategy_t strategy, std::wostream* sink)
      : out_(out), strategy_(strategy), sink_(sink) {}

  // The tree below `root`, walked with an explicit stack.
  void write(const object& root) {
    struct frame {
      const std::any* container;
      std::size_t next;
      bool dictionary;
    };
    std::vector<frame> stack;
    const auto open = [&](const object& value) {
      const object::type t = type_of(value.value_);
      if (t == object::type::array || t == object::type::dictionary) {
        const bool dictionary = t == object::type::dictionary;
        out_.push_back(dictionary ? L'{' : L'[');
        stack.push_back({&value.value_, 0, dictionary});
      } else {
        write_scalar(value.value_, t);
      }
    };
    open(root);
    while (!stack.empty()) {
      frame& top = stack.back();
      const std::size_t index = top.next++;
      const object* child;
      if (top.dictionary) {
        const auto& entries = held<object::dictionary_type>(*top.container);
        if (index == entries.size()) {
          out_.push_back(L'}');
          stack.pop_back();
          continue;
        }
        if (index) out_.push_back(L',');
        out_.push_back(L'"');
        append_escaped(entries[index].first);
        out_.append(L"\":", 2);
        child = &entries[index].second;
      } else {
        const auto& elements = held<object::array_type>(*top.container);
        if (index == elements.size()) {
          out_.push_back(L']');
          stack.pop_back();
          continue;
        }
        if (index) out_.push_back(L',');
        child = &elements[index];
      }
      open(*child);
      flush_if_full();
    }
    flush();
  }

  void append_escaped(std::wstring_view text) {
    const wchar_t* p = text.data();
    const wchar_t* const end = p + text.size();
    while (p != end) {
      const wchar_t* run = p;
      while (p != end && plain(unit(*p), strategy_)) ++p;
      out_.append(run, p);
      if (p == end) break;
      const std::uint32_t u = unit(*p++);
      wchar_t buffer[6];
      out_.append(buffer, write_escape(buffer, u, extra_units(u, strategy_)));
    }
  }

 private:
  void write_scalar(const std::any& value, object::type t) {
    switch (t) {
      case object::type::invalid: break;
      case object::type::null: out_.append(L"null", 4); break;
      case object::type::number: out_.append(held<number>(value).text); break;
      case object::type::string:
        out_.push_back(L'"');
        append_escaped(held<std::wstring>(value));
        out_.push_back(L'"');
        break;
      case object::type::boolean:
        if (held<bool>(value)) {
          out_.append(L"true", 4);
        } else {
          out_.append(L"false", 5);
        }
        break;
      default: break;
    }
  }

  void flush_if_full() {
    if (sink_ && out_.size() >= kChunk) flush();
  }
  void flush() {
    if (!sink_) return;
    sink_->write(out_.data(), static_cast<std::streamsize>(out_.size()));
    out_.clear();
  }

  static constexpr std::size_t kChunk = 16384;
  std::wstring& out_;
  strategy_t strategy_;
  std::wostream* sink_;
};

void object::serialize(std::wostream& out, escape_strategy strategy) const {
  std::wstring buffer;
  writer(buffer, strategy, &out).write(*this);
}

std::wstring object::to_string(escape_strategy strategy) const {
  std::wstring text;
  writer(text, strategy, nullptr).write(*this);
  return text;
}

std::wstring object::escape(std::wstring_view text, escape_strategy strategy) {
  std::size_t extra = 0;
  for (const wchar_t c : text) extra += static_cast<std::size_t>(extra_units(unit(c), strategy));
  std::wstring result(text.size() + extra, L'\0');
  wchar_t* to = result.data();
  for (const wchar_t c : text) {
    const std::uint32_t u = unit(c);
    const int n = extra_units(u, strategy);
    if (n == 0) {
      *to++ = c;
    } else {
      to = write_escape(to, u, n);
    }
  }
  if (to != result.data() + result.size()) throw std::logic_error("error in escape()");
  return result;
}

}  // namespace json
