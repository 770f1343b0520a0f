// The reader of JSON text, and the two operations that use parts of it:
// wstring_to_number_wstring and unescape.
#include <tvbase/json/parser.h>

#include <algorithm>
#include <bit>
#include <chrono>
#include <cwchar>
#include <functional>
#include <iterator>
#include <random>
#include <stdexcept>
#include <type_traits>
#include <utility>
#include <variant>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "value_access.h"

namespace json {

using detail::held;
using detail::unit;

namespace {

bool is_digit(wchar_t c) noexcept { return c >= L'0' && c <= L'9'; }

// Makes `slot` hold a T. A null slot is built over in place when that
// cannot fail; any other value is replaced only once the new one exists, so
// that a failure leaves the slot as it was. A full container replaced here
// is freed by its children's own destructors, each without recursion.
template <class T, class... Args>
void store(object& slot, Args&&... args) {
  auto& place = parser::storage_of(slot);
  if constexpr (std::is_nothrow_constructible_v<T, Args...>) {
    if (std::holds_alternative<std::nullptr_t>(place)) {
      place.template emplace<T>(std::forward<Args>(args)...);
      return;
    }
  }
  std::remove_reference_t<decltype(place)> value(std::in_place_type<T>,
                                                 std::forward<Args>(args)...);
  place = std::move(value);
}

}  // namespace

const char* parser::message_of(exception e) noexcept {
  switch (e) {
    case exception::no_error: return "valid json";
    case exception::expected_colon: return "expected a ':'";
    case exception::expected_closing_brace: return "expected a '}'";
    case exception::expected_closing_bracket: return "expected a ']'";
    case exception::expected_hex: return "expected a hex value";
    case exception::expected_quote: return "expected a '\"'";
    case exception::expected_digit: return "expected a digit";
    case exception::expected_end_of_file: return "expected end of file";
    case exception::control_character: return "encountered literal control character in string";
    case exception::invalid_escape: return "encountered invalid escaped character";
    case exception::unescaped_quote: return "encountered unescaped quote";
    case exception::unexpected_character: return "encountered unexpected character";
    case exception::unexpected_end_of_file: return "unexpected end of file";
    case exception::too_deep: return "too deeply nested";
  }
  return "oops";
}

void parser::raise(exception e) { throw e; }

// A NUL unit is an end of the input wherever it stands, and is never
// stepped over.
wchar_t parser::peek() const {
  if (cursor == limit || *cursor == 0) raise(exception::unexpected_end_of_file);
  return *cursor;
}

void parser::advance() {
  if (peek() == L'\n') {
    ++line;
    column = 0;
  }
  ++cursor;
  ++column;
}

namespace {

// How many of the units at `p` (at least eight must be there) are blanks, up
// to eight.
inline int leading_blanks(const wchar_t* p) noexcept {
#if defined(__SSE2__) && WCHAR_MAX > 0xFFFF
  const __m128i blank = _mm_set1_epi32(L' ');
  const __m128i low = _mm_cmpeq_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)), blank);
  const __m128i high =
      _mm_cmpeq_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 4)), blank);
  // One byte per unit in the low eight bytes, zeros above.
  const __m128i bytes = _mm_packs_epi16(_mm_packs_epi32(low, high), _mm_setzero_si128());
  return std::countr_one(static_cast<unsigned int>(_mm_movemask_epi8(bytes)));
#else
  int n = 0;
  while (n < 8 && p[n] == L' ') ++n;
  return n;
#endif
}

}  // namespace

// Works on copies of the fields: the compiler must otherwise assume that
// reading a unit may change `column`, and store it at every step. Runs of
// blanks, as in indented text, are taken eight units at a time.
void parser::skip_whitespace() {
  const wchar_t* p = cursor;
  const wchar_t* const end = limit;
  if (p != end && unit(*p) > 0x20) return;
  std::uint32_t at_line = line;
  std::uint32_t at_column = column;
  for (;;) {
    while (end - p >= 8) {
      const int blanks = leading_blanks(p);
      p += blanks;
      at_column += static_cast<std::uint32_t>(blanks);
      if (blanks < 8) break;
    }
    if (p == end) break;
    const wchar_t c = *p;
    if (c == L' ' || c == L'\t' || c == L'\r') {
      ++at_column;
    } else if (c == L'\n') {
      ++at_line;
      at_column = 1;
    } else {
      break;
    }
    ++p;
  }
  cursor = p;
  line = at_line;
  column = at_column;
  if (p != end && *p == 0) raise(exception::unexpected_end_of_file);
}

void parser::parse_value(object& target) {
  skip_whitespace();
  switch (peek()) {
    case L'"': {
      scratch_.clear();
      parse_string(scratch_, true);
      store<std::wstring>(target, scratch_.data(), scratch_.size());
      break;
    }
    case L'-':
    case L'0':
    case L'1':
    case L'2':
    case L'3':
    case L'4':
    case L'5':
    case L'6':
    case L'7':
    case L'8':
    case L'9': parse_number_value(target); break;
    case L'[':
      if (++depth > max_depth) raise(exception::too_deep);
      parse_array(target);
      --depth;
      break;
    case L'{':
      if (++depth > max_depth) raise(exception::too_deep);
      parse_dictionary(target);
      --depth;
      break;
    case L't':
      parse_literal(L"true");
      target = true;
      break;
    case L'f':
      parse_literal(L"false");
      target = false;
      break;
    case L'n':
      parse_literal(L"null");
      target.null();
      break;
    default: raise(exception::unexpected_character);
  }
  skip_whitespace();
}

void parser::parse_literal(std::wstring_view word) {
  for (const wchar_t c : word) {
    if (peek() != c) raise(exception::unexpected_character);
    advance();
  }
}

namespace {

// Moves the stretch of `from` that starts at `base` to the end of `to`, and
// cuts it from `from`.
template <class Stack, class Vector>
void hand_over(Stack& from, std::size_t base, Vector& to) {
  const auto first = from.begin() + static_cast<std::ptrdiff_t>(base);
  to.insert(to.end(), std::make_move_iterator(first), std::make_move_iterator(from.end()));
  from.erase(first, from.end());
}

// --- the key index's hashes ----------------------------------------------------

std::uint64_t rotate(std::uint64_t x, int r) noexcept { return (x << r) | (x >> (64 - r)); }

std::uint64_t mix(std::uint64_t h) noexcept {
  h ^= h >> 32;
  h *= 0xD6E8FEB86659FD93ull;
  h ^= h >> 32;
  return h;
}

// The secrets of this process: a seed for the fast hash and a key for
// SipHash, from the system's random source, or where there is none from
// what only this process has (its addresses and the time).
struct secrets {
  std::uint64_t seed, k0, k1;
};

const secrets& process_secrets() {
  static const secrets kept = [] {
    secrets s{};
    try {
      std::random_device device;
      const auto word = [&device] { return std::uint64_t{device()} << 32 | device(); };
      s = {word(), word(), word()};
    } catch (...) {
      const auto now =
          static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count());
      const auto here = static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(&s));
      const auto code = static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(&mix));
      s = {mix(now ^ here), mix(here + code), mix(now * 0x9E3779B97F4A7C15ull ^ code)};
    }
    return s;
  }();
  return kept;
}

std::uint64_t (*hash_for_testing)(std::wstring_view) = nullptr;

// Two units a step, each step a multiply, under the process's seed.
std::uint64_t fast_hash(std::wstring_view key, std::uint64_t seed) noexcept {
  std::uint64_t h = seed ^ (key.size() * 0x9E3779B97F4A7C15ull);
  std::size_t i = 0;
  for (; i + 2 <= key.size(); i += 2) {
    const std::uint64_t pair = std::uint64_t{unit(key[i])} | std::uint64_t{unit(key[i + 1])} << 32;
    h = rotate((h ^ pair) * 0xFF51AFD7ED558CCDull, 29);
  }
  if (i < key.size()) h = rotate((h ^ unit(key[i])) * 0xFF51AFD7ED558CCDull, 29);
  return mix(h);
}

// SipHash-1-3 of the key's units, four bytes each.
std::uint64_t siphash(std::wstring_view key, std::uint64_t k0, std::uint64_t k1) noexcept {
  std::uint64_t v0 = k0 ^ 0x736F6D6570736575ull;
  std::uint64_t v1 = k1 ^ 0x646F72616E646F6Dull;
  std::uint64_t v2 = k0 ^ 0x6C7967656E657261ull;
  std::uint64_t v3 = k1 ^ 0x7465646279746573ull;
  const auto round = [&] {
    v0 += v1;
    v1 = rotate(v1, 13) ^ v0;
    v0 = rotate(v0, 32);
    v2 += v3;
    v3 = rotate(v3, 16) ^ v2;
    v0 += v3;
    v3 = rotate(v3, 21) ^ v0;
    v2 += v1;
    v1 = rotate(v1, 17) ^ v2;
    v2 = rotate(v2, 32);
  };
  const std::uint64_t bytes = 4 * key.size();
  std::size_t i = 0;
  for (; i + 2 <= key.size(); i += 2) {
    const std::uint64_t m = std::uint64_t{unit(key[i])} | std::uint64_t{unit(key[i + 1])} << 32;
    v3 ^= m;
    round();
    v0 ^= m;
  }
  const std::uint64_t last = (bytes << 56) | (i < key.size() ? std::uint64_t{unit(key[i])} : 0);
  v3 ^= last;
  round();
  v0 ^= last;
  v2 ^= 0xFF;
  round();
  round();
  round();
  return v0 ^ v1 ^ v2 ^ v3;
}

}  // namespace

void parser::set_hash_for_testing(std::uint64_t (*hash)(std::wstring_view)) noexcept {
  hash_for_testing = hash;
}

std::size_t parser::key_probes() const noexcept {
  std::size_t total = 0;
  for (const key_index& k : key_indices_) total += k.probes();
  return total;
}

std::uint32_t parser::key_index::hash(std::wstring_view key) const noexcept {
  const secrets& s = process_secrets();
  if (siphash_) return static_cast<std::uint32_t>(siphash(key, s.k0, s.k1));
  if (hash_for_testing) return static_cast<std::uint32_t>(hash_for_testing(key));
  return static_cast<std::uint32_t>(fast_hash(key, s.seed));
}

void parser::key_index::clear() noexcept {
  indexed_ = 0;
  siphash_ = false;
  long_search_ = false;
  if (++stamp_ == 0) {
    // After 2^32 - 1 dictionaries the stamps come round again.
    std::fill(cells_.begin(), cells_.end(), cell{});
    stamp_ = 1;
  }
}

template <class Entries>
parser::key_index::cell& parser::key_index::find(Entries& entries, std::size_t first,
                                                 std::wstring_view key, std::uint32_t hash) {
  const std::size_t mask = cells_.size() - 1;
  std::size_t looked = 0;
  for (std::size_t i = hash & mask;; i = (i + 1) & mask) {
    cell& c = cells_[i];
    ++looked;
    if (!used(c) || (c.hash == hash && detail::same_key(entries[first + c.offset].first, key))) {
      probes_ += looked;
      if (looked > kLongSearch) long_search_ = true;
      return c;
    }
  }
}

// Doubles the table before it is half full, so a probe stays short.
void parser::key_index::add(std::uint32_t hash, std::size_t offset) {
  if (2 * (offset + 1) > cells_.size()) {
    std::vector<cell> old(std::max<std::size_t>(64, 2 * cells_.size()));
    old.swap(cells_);
    const std::size_t mask = cells_.size() - 1;
    for (const cell& c : old) {
      if (!used(c)) continue;
      std::size_t i = c.hash & mask;
      while (used(cells_[i])) {
        i = (i + 1) & mask;
        ++probes_;
      }
      cells_[i] = c;
    }
  }
  const std::size_t mask = cells_.size() - 1;
  std::size_t i = hash & mask;
  std::size_t looked = 0;
  while (used(cells_[i])) {
    i = (i + 1) & mask;
    ++looked;
  }
  probes_ += looked;
  if (looked > kLongSearch) long_search_ = true;
  cells_[i] = {offset, hash, stamp_};
}

// Starts the table of this dictionary again under SipHash, with the entries
// indexed so far in their order, so that each key keeps its earliest place.
template <class Entries>
void parser::key_index::refill_with_siphash(Entries& entries, std::size_t first) {
  siphash_ = true;
  long_search_ = false;
  const std::size_t count = indexed_;
  if (++stamp_ == 0) {
    std::fill(cells_.begin(), cells_.end(), cell{});
    stamp_ = 1;
  }
  for (std::size_t n = 0; n < count; ++n) {
    const std::wstring& known = entries[first + n].first;
    const std::uint32_t h = hash(known);
    if (!used(find(entries, first, known, h))) add(h, n);
  }
}

// The search of operator[](key), with a table once the entries are many.
// Entries that came before the table (the first few, or those of a
// dictionary read over) join it on the first call that finds them outside;
// a key there twice keeps its earliest place.
template <class Entries>
object& parser::key_index::slot(Entries& entries, std::size_t first, const std::wstring& key) {
  const std::size_t count = entries.size() - first;
  if (count < kIndexedFrom) {
    for (auto it = entries.begin() + static_cast<std::ptrdiff_t>(first); it != entries.end();
         ++it) {
      if (detail::same_key(it->first, key)) return it->second;
    }
    return entries.emplace_back(key, object()).second;
  }
  while (indexed_ < count) {
    const std::wstring& known = entries[first + indexed_].first;
    const std::uint32_t h = hash(known);
    if (cells_.empty() || !used(find(entries, first, known, h))) add(h, indexed_);
    ++indexed_;
    if (long_search_ && !siphash_) refill_with_siphash(entries, first);
  }
  const std::uint32_t h = hash(key);
  if (const cell& c = find(entries, first, key, h); used(c)) {
    object& value = entries[first + c.offset].second;
    if (long_search_ && !siphash_) refill_with_siphash(entries, first);
    return value;
  }
  object& value = entries.emplace_back(key, object()).second;
  add(h, indexed_++);
  if (long_search_ && !siphash_) refill_with_siphash(entries, first);
  return value;
}

bool parser::next_or_close(wchar_t close, exception otherwise) {
  const wchar_t c = peek();
  if (c == L',') {
    advance();
    skip_whitespace();
    return false;
  }
  if (c != close) raise(otherwise);
  advance();
  return true;
}

// An array read into an empty one collects its elements on elements_ and
// gets them at their exact count at the end, or as far as reading got when
// it fails. An array that has elements is read over in place: element i is
// taken as target[i], which makes the array exactly i + 1 long, so element 0
// shrinks the old array to one element and is read over, and each later one
// is appended. Either way a slot is made before its value is read.
void parser::parse_array(object& target) {
  object::array_type& elements = held<object::array_type>(target.empty_array().value_);
  advance();
  skip_whitespace();
  if (peek() == L']') {
    advance();
    return;
  }
  const bool over = !elements.empty();
  const std::size_t base = elements_.size();
  try {
    for (std::size_t index = 0;; ++index) {
      object* slot;
      if (!over) {
        slot = &elements_.emplace_back();
      } else if (index == 0) {
        elements.resize(1);
        slot = &elements.front();
      } else {
        slot = &elements.emplace_back();
      }
      parse_value(*slot);
      if (next_or_close(L']', exception::expected_closing_bracket)) break;
    }
  } catch (...) {
    hand_over(elements_, base, elements);
    throw;
  }
  hand_over(elements_, base, elements);
}

// As parse_array: a fresh dictionary collects its entries on entries_, one
// that has entries is read over in place. Either way a key that is there
// already, from before or from earlier in the text, is read over its value;
// the key index of this depth finds it.
void parser::parse_dictionary(object& target) {
  object::dictionary_type& entries = held<object::dictionary_type>(target.empty_object().value_);
  advance();
  skip_whitespace();
  if (peek() == L'}') {
    advance();
    return;
  }
  const bool over = !entries.empty();
  const std::size_t base = entries_.size();
  // parse_value has counted this dictionary into depth.
  if (key_indices_.size() < depth) key_indices_.resize(depth);
  key_indices_[depth - 1].clear();
  try {
    for (;;) {
      scratch_.clear();
      parse_string(scratch_, true);
      skip_whitespace();
      if (peek() != L':') raise(exception::expected_colon);
      advance();
      key_index& keys = key_indices_[depth - 1];
      parse_value(over ? keys.slot(entries, 0, scratch_) : keys.slot(entries_, base, scratch_));
      if (next_or_close(L'}', exception::expected_closing_brace)) break;
    }
  } catch (...) {
    hand_over(entries_, base, entries);
    throw;
  }
  hand_over(entries_, base, entries);
}

void parser::parse_string(std::wstring& out, bool quoted) {
  if (quoted) {
    if (peek() != L'"') raise(exception::expected_quote);
    advance();
  }
  read_string_body(out, quoted);
}

// Runs of plain units are copied at once; no plain unit is a line feed, so
// the column moves by the run's length.
void parser::read_string_body(std::wstring& out, bool quoted) {
  for (;;) {
    const wchar_t* const run = cursor;
    const wchar_t* p = run;
    while (p != limit) {
      const wchar_t c = *p;
      if (c == L'"' || c == L'\\' || unit(c) < 0x20) break;
      ++p;
    }
    cursor = p;
    out.append(run, cursor);
    column += static_cast<std::uint32_t>(cursor - run);
    if (cursor == limit && !quoted) return;
    const wchar_t c = peek();
    if (c == L'"') {
      if (!quoted) raise(exception::unescaped_quote);
      advance();
      return;
    }
    if (c != L'\\') raise(exception::control_character);
    read_escape(out);
    advance();
    if (!quoted && cursor == limit) return;
  }
}

// At the backslash; leaves the cursor on the last unit of the escape. Made
// part of the string loop: a call for each escape cost that loop an eighth
// of its speed on text rich in escapes.
#if defined(__GNUC__)
#define TVBASE_STRING_LOOP inline __attribute__((always_inline))
#else
#define TVBASE_STRING_LOOP inline
#endif
TVBASE_STRING_LOOP void parser::read_escape(std::wstring& out) {
  advance();
  switch (peek()) {
    case L'"': out.push_back(L'"'); break;
    case L'\\': out.push_back(L'\\'); break;
    case L'/': out.push_back(L'/'); break;
    case L'b': out.push_back(L'\b'); break;
    case L'f': out.push_back(L'\f'); break;
    case L'n': out.push_back(L'\n'); break;
    case L'r': out.push_back(L'\r'); break;
    case L't': out.push_back(L'\t'); break;
    case L'u': {
      std::uint32_t value = 0;
      for (int i = 0; i < 4; ++i) value = value * 16 + hex_digit();
      out.push_back(static_cast<wchar_t>(value));
      break;
    }
    default: raise(exception::invalid_escape);
  }
}
#undef TVBASE_STRING_LOOP

wchar_t parser::hex_digit() {
  advance();
  const wchar_t c = peek();
  if (c >= L'0' && c <= L'9') return static_cast<wchar_t>(c - L'0');
  if (c >= L'A' && c <= L'F') return static_cast<wchar_t>(c - L'A' + 10);
  if (c >= L'a' && c <= L'f') return static_cast<wchar_t>(c - L'a' + 10);
  raise(exception::expected_hex);
}

std::wstring parser::parse_number() {
  std::wstring text;
  read_number(text);
  return text;
}

// Every look at the next unit goes through peek, so a NUL right behind the
// number raises "unexpected end of file". Runs of digits are taken at once.
// The number is measured first and then appended at its exact size, so that
// a long one is copied once and takes no more room than its text.
void parser::read_number(std::wstring& out) {
  const auto step = [this] {
    ++cursor;
    ++column;
  };
  const auto digits = [this] {
    const wchar_t* p = cursor;
    while (p != limit && is_digit(*p)) ++p;
    column += static_cast<std::uint32_t>(p - cursor);
    cursor = p;
    if (cursor != limit) peek();
  };
  const wchar_t* start = cursor;
  if (peek() == L'-') step();
  wchar_t c = peek();
  if (c == L'0') {
    step();
  } else if (c >= L'1' && c <= L'9') {
    digits();
  } else {
    raise(exception::expected_digit);
  }
  if (cursor != limit && peek() == L'.') {
    step();
    if (!is_digit(peek())) raise(exception::expected_digit);
    digits();
  }
  const wchar_t* const mantissa_end = cursor;
  if (cursor == limit || (*cursor != L'e' && *cursor != L'E')) {
    out.append(start, mantissa_end);
    return;
  }
  step();
  c = peek();
  const wchar_t sign = c == L'-' ? L'-' : L'+';
  if (c == L'+' || c == L'-') step();
  if (!is_digit(peek())) raise(exception::expected_digit);
  const wchar_t* const exponent = cursor;
  digits();
  const auto mantissa = static_cast<std::size_t>(mantissa_end - start);
  out.reserve(out.size() + mantissa + 2 + static_cast<std::size_t>(cursor - exponent));
  out.append(start, mantissa_end);
  out.push_back(L'e');
  out.push_back(sign);
  out.append(exponent, cursor);
}

// Number text is ASCII: the usual number is held in the value itself, and
// a longer one takes the buffer it was read into.
void parser::parse_number_value(object& target) {
  scratch_.clear();
  read_number(scratch_);
  if (scratch_.size() <= detail::short_number::kMax) {
    store<detail::short_number>(target, detail::make_short(scratch_));
  } else if (scratch_.capacity() > 2 * scratch_.size()) {
    store<number>(target, std::wstring(scratch_));
  } else {
    store<number>(target, std::move(scratch_));
    scratch_ = std::wstring();
  }
}

std::optional<object::error> object::parse(std::wstring_view text) {
  parser reader(text);
  try {
    reader.parse_value(*this);
    if (reader.cursor != reader.limit) throw parser::exception::expected_end_of_file;
    return std::nullopt;
  } catch (const parser::exception e) {
    return error{reader.line, reader.column, parser::message_of(e)};
  }
}

std::wstring functions::wstring_to_number_wstring(std::wstring_view text) {
  parser reader(text);
  try {
    std::wstring result = reader.parse_number();
    if (reader.cursor != reader.limit) throw parser::exception::expected_end_of_file;
    return result;
  } catch (const parser::exception) {
    throw std::invalid_argument("json::number= invalid string argument");
  }
}

std::wstring object::unescape(std::wstring_view text) {
  parser reader(text);
  std::wstring result;
  try {
    reader.parse_string(result, false);
  } catch (const parser::exception) {
    throw std::invalid_argument("json::object::unescape() invalid string argument");
  }
  return result;
}

}  // namespace json
