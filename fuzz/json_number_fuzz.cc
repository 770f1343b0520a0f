// json::functions on any input. wstring_to_number_wstring, on UTF-16 units
// (bytes or little-endian byte pairs, as the first byte chooses), accepts
// exactly the texts that a naive JSON number grammar accepts and gives them
// back with the exponent as "e" and a sign; what it gives is a number again
// and comes back unchanged. The integer reads of such a number give its
// integer part or throw std::out_of_range as the std::sto* functions do.
// double_to_number_wstring, on the first eight bytes as a double, gives
// number text that comes back unchanged for a finite value, and text that is
// refused for the others.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include <tvbase/json/object.h>

namespace {

// Wide enough for any magnitude the checks build up (a GNU extension).
__extension__ typedef unsigned __int128 uint128;

using json::functions;

bool is_digit(wchar_t c) { return c >= L'0' && c <= L'9'; }

// -? (0 | [1-9][0-9]*) (.[0-9]+)? ([eE][+-]?[0-9]+)? and nothing else; the
// text with its exponent in normal form, or nothing.
std::optional<std::wstring> naive_number(std::wstring_view text) {
  std::wstring out;
  std::size_t i = 0;
  const auto digits = [&] {
    const std::size_t from = i;
    while (i < text.size() && is_digit(text[i])) out.push_back(text[i++]);
    return i > from;
  };
  if (i < text.size() && text[i] == L'-') out.push_back(text[i++]);
  if (i < text.size() && text[i] == L'0') {
    out.push_back(text[i++]);
  } else if (!digits()) {
    return std::nullopt;
  }
  if (i < text.size() && text[i] == L'.') {
    out.push_back(text[i++]);
    if (!digits()) return std::nullopt;
  }
  if (i < text.size() && (text[i] == L'e' || text[i] == L'E')) {
    out.push_back(L'e');
    ++i;
    out.push_back(i < text.size() && text[i] == L'-' ? L'-' : L'+');
    if (i < text.size() && (text[i] == L'+' || text[i] == L'-')) ++i;
    if (!digits()) return std::nullopt;
  }
  if (i != text.size()) return std::nullopt;
  return out;
}

std::optional<std::wstring> normalised(std::wstring_view text) {
  try {
    return functions::wstring_to_number_wstring(text);
  } catch (const std::invalid_argument&) {
    return std::nullopt;
  }
}

// A read that gives a value or throws std::out_of_range; any other way out
// is a fault.
template <class Read>
std::optional<unsigned long long> read_or_range(Read read) {
  try {
    return static_cast<unsigned long long>(read());
  } catch (const std::out_of_range&) {
    return std::nullopt;
  }
}

// The integer reads against the integer part of `text`, a valid number: its
// magnitude must fit (for the unsigned reads, a minus negates it modulo the
// width, as strtoul does).
void check_integer_reads(const std::wstring& text) {
  json::object value;
  value = json::number(text);
  const bool negative = text[0] == L'-';
  uint128 magnitude = 0;
  bool huge = false;
  for (std::size_t i = negative ? 1 : 0; i < text.size() && is_digit(text[i]); ++i) {
    magnitude = magnitude * 10 + static_cast<unsigned>(text[i] - L'0');
    if (magnitude > std::numeric_limits<std::uint64_t>::max()) huge = true;
    if (huge) magnitude = 0;  // stays beyond every range below
  }
  const auto expect = [&](std::optional<unsigned long long> got, bool fits, std::uint64_t bits) {
    if (!fits) {
      if (got) std::abort();
      return;
    }
    const uint128 mask = (static_cast<uint128>(1) << bits) - 1;
    const uint128 wanted = (negative ? 0 - magnitude : magnitude) & mask;
    if (!got || (static_cast<uint128>(*got) & mask) != wanted) std::abort();
  };
  const uint128 int64_limit = static_cast<uint128>(1) << 63;
  const uint128 int_limit = static_cast<uint128>(1) << 31;
  expect(read_or_range([&] { return value.as_int64(0); }),
         !huge && magnitude < int64_limit + negative, 64);
  expect(read_or_range([&] { return value.as_int(0); }), !huge && magnitude < int_limit + negative,
         32);
  expect(read_or_range([&] { return value.as_uint64(0); }), !huge, 64);
  expect(read_or_range([&] { return value.as_uint(0); }), !huge && magnitude <= 0xFFFFFFFFu, 32);
  try {
    static_cast<void>(value.as_double(0));
  } catch (const std::out_of_range&) {
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size >= 8) {
    double value;
    std::memcpy(&value, data, sizeof value);
    const std::wstring text = functions::double_to_number_wstring(value);
    if (normalised(text) != (std::isfinite(value) ? std::optional(text) : std::nullopt)) {
      std::abort();
    }
  }
  if (size == 0) return 0;
  const bool pairs = data[0] & 1;
  std::wstring text;
  if (pairs) {
    for (std::size_t i = 1; i + 1 < size; i += 2) {
      text.push_back(static_cast<wchar_t>(data[i] | data[i + 1] << 8));
    }
  } else {
    for (std::size_t i = 1; i < size; ++i) text.push_back(static_cast<wchar_t>(data[i]));
  }

  const std::optional<std::wstring> result = normalised(text);
  if (result != naive_number(text)) std::abort();
  if (!result) return 0;
  if (result->empty() || normalised(*result) != result) std::abort();
  check_integer_reads(*result);
  return 0;
}
