// Writing a json::object as compact JSON text, and the string encoding.
#include <tvbase/json/object.h>

#include <cwchar>
#include <ostream>
#include <stdexcept>
#include <vector>

#include <tvbase/platform/memory_advice.h>

#include "value_access.h"

namespace json {

using detail::held;
using detail::type_of;
using detail::unit;

namespace {

using strategy_t = object::escape_strategy;

constexpr wchar_t kHex[] = L"0123456789ABCDEF";
constexpr std::size_t kPopulateBytes = std::size_t{1} << 20;

// How many units a unit adds when escaped: 0 (written raw), 1 (a two-unit
// form such as \n) or 5 (\uXXXX). Only values 1 and 2 of the strategy mean
// anything; every other value acts as minimal.
int extra_units(std::uint32_t u, strategy_t strategy) noexcept {
  switch (u) {
    case 0x08:
    case 0x09:
    case 0x0A:
    case 0x0C:
    case 0x0D:
    case 0x22:
    case 0x5C: return 1;
    default: break;
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

// Writes `text` through `sink`: runs of plain units as they are, the others
// escaped.
template <class Sink>
void put_escaped_text(Sink& sink, std::wstring_view text, strategy_t strategy) {
  const wchar_t* p = text.data();
  const wchar_t* const end = p + text.size();
  while (p != end) {
    const wchar_t* run = p;
    while (p != end && plain(unit(*p), strategy)) ++p;
    sink.put(run, static_cast<std::size_t>(p - run));
    if (p == end) break;
    const std::uint32_t u = unit(*p++);
    // Unit by unit: an escape is 2 or 6 units, which the compiler can't
    // tell from the returned end, and would warn of the block copy that the
    // sink makes of long runs.
    wchar_t escaped[6];
    const wchar_t* const escaped_end = write_escape(escaped, u, extra_units(u, strategy));
    for (const wchar_t* e = escaped; e != escaped_end; ++e) sink.put(*e);
  }
}

}  // namespace

// Counts the units that a walk would write, so that to_string() can make its
// result at the final length and write it without a copy.
class size_counter {
 public:
  explicit size_counter(strategy_t strategy) : strategy_(strategy) {}
  void put(wchar_t) { ++size_; }
  void put(const wchar_t*, std::size_t n) { size_ += n; }
  void put_escaped(std::wstring_view text) {
    size_ += text.size();
    for (const wchar_t c : text) {
      if (!plain(unit(c), strategy_))
        size_ += static_cast<std::size_t>(extra_units(unit(c), strategy_));
    }
  }
  std::size_t size() const { return size_; }

 private:
  strategy_t strategy_;
  std::size_t size_ = 0;
};

// Gathers units in a buffer of its own and hands them on to a stream in
// blocks, so that a unit costs a store and not a call.
class stream_sink {
 public:
  stream_sink(std::wostream& stream, strategy_t strategy) : stream_(stream), strategy_(strategy) {}
  stream_sink(const stream_sink&) = delete;
  stream_sink& operator=(const stream_sink&) = delete;

  void put(wchar_t c) {
    if (used_ == kBuffer) drain();
    buffer_[used_++] = c;
  }
  void put(const wchar_t* p, std::size_t n) {
    if (n > kBuffer - used_) {
      drain();
      if (n > kBuffer) {
        stream_.write(p, static_cast<std::streamsize>(n));
        return;
      }
    }
    std::wmemcpy(buffer_ + used_, p, n);
    used_ += n;
  }
  void put_escaped(std::wstring_view text) { put_escaped_text(*this, text, strategy_); }
  // Hands on what is still buffered.
  void drain() {
    stream_.write(buffer_, static_cast<std::streamsize>(used_));
    used_ = 0;
  }

 private:
  static constexpr std::size_t kBuffer = 4096;
  std::wostream& stream_;
  strategy_t strategy_;
  std::size_t used_ = 0;
  wchar_t buffer_[kBuffer];
};

// Writes into a string already made at the length that size_counter found:
// no checks, no buffer in between. Short runs (numbers, keys) are copied in
// line rather than by a call.
class fill_sink {
 public:
  fill_sink(wchar_t* to, strategy_t strategy) : at_(to), strategy_(strategy) {}
  void put(wchar_t c) { *at_++ = c; }
  void put(const wchar_t* p, std::size_t n) {
    if (n <= kShort) {
      for (std::size_t i = 0; i < n; ++i) at_[i] = p[i];
    } else {
      std::wmemcpy(at_, p, n);
    }
    at_ += n;
  }
  void put_escaped(std::wstring_view text) { put_escaped_text(*this, text, strategy_); }
  const wchar_t* end() const { return at_; }

 private:
  static constexpr std::size_t kShort = 16;
  wchar_t* at_;
  strategy_t strategy_;
};

// The walk over a tree, with an explicit stack, feeding one of the two
// sinks above.
class writer {
 public:
  template <class Sink>
  static void walk(const object& root, Sink& sink) {
    struct frame {
      const object::storage* container;
      std::size_t next;
      bool dictionary;
    };
    std::vector<frame> stack;
    const auto open = [&](const object& value) {
      const object::type t = type_of(value.value_);
      if (t == object::type::array || t == object::type::dictionary) {
        const bool dictionary = t == object::type::dictionary;
        sink.put(dictionary ? L'{' : L'[');
        stack.push_back({&value.value_, 0, dictionary});
      } else {
        put_scalar(value.value_, t, sink);
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
          sink.put(L'}');
          stack.pop_back();
          continue;
        }
        if (index) sink.put(L',');
        sink.put(L'"');
        sink.put_escaped(entries[index].first);
        sink.put(L"\":", 2);
        child = &entries[index].second;
      } else {
        const auto& elements = held<object::array_type>(*top.container);
        if (index == elements.size()) {
          sink.put(L']');
          stack.pop_back();
          continue;
        }
        if (index) sink.put(L',');
        child = &elements[index];
      }
      open(*child);
    }
  }

 private:
  template <class Sink>
  static void put_scalar(const object::storage& value, object::type t, Sink& sink) {
    switch (t) {
      case object::type::null: sink.put(L"null", 4); break;
      case object::type::number: {
        if (const auto* n = detail::held_if<detail::short_number>(value)) {
          wchar_t wide[detail::short_number::kMax];
          for (std::size_t i = 0; i < n->size; ++i) wide[i] = static_cast<wchar_t>(n->text[i]);
          sink.put(wide, n->size);
        } else {
          const std::wstring& text = held<number>(value).text;
          sink.put(text.data(), text.size());
        }
        break;
      }
      case object::type::string:
        sink.put(L'"');
        sink.put_escaped(held<std::wstring>(value));
        sink.put(L'"');
        break;
      case object::type::boolean:
        if (held<bool>(value)) {
          sink.put(L"true", 4);
        } else {
          sink.put(L"false", 5);
        }
        break;
      default: break;  // an invalid value writes nothing
    }
  }
};

void object::serialize(std::wostream& out, escape_strategy strategy) const {
  stream_sink sink(out, strategy);
  writer::walk(*this, sink);
  sink.drain();
}

std::wstring object::to_string(escape_strategy strategy) const {
  size_counter counter(strategy);
  writer::walk(*this, counter);
  std::wstring text;
  text.reserve(counter.size());
  // A large result is often memory the system has yet to hand over: taken
  // in one call, not a page fault per page.
  const std::size_t bytes = counter.size() * sizeof(wchar_t);
  if (bytes >= kPopulateBytes) platform::populate_pages(text.data(), bytes);
  text.resize(counter.size());
  fill_sink sink(text.data(), strategy);
  writer::walk(*this, sink);
  if (sink.end() != text.data() + text.size()) throw std::logic_error("error in to_string()");
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
