#ifndef TVBASE_TESTING_COLLIDING_KEYS_H
#define TVBASE_TESTING_COLLIDING_KEYS_H

// Keys that the standard library's std::hash<std::wstring_view> of libstdc++
// maps to one value, for the tests and benchmarks of the JSON reader's key
// index. That hash reads a key's 16 bytes (four 32-bit units) in two 8-byte
// blocks from a fixed seed, and each block's step can be undone: so for any
// first block there is a second that brings the state to one chosen value,
// and every key ends in the same hash. Units the reader would not take raw
// inside a string (below 0x20, the quote, the backslash) are left out.

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace testing_support {

inline std::vector<std::wstring> keys_colliding_in_the_standard_hash(std::size_t count) {
  constexpr std::uint64_t kMul = (std::uint64_t{0xC6A4A793} << 32) + 0x5BD1E995;
  const auto unshift = [](std::uint64_t v) { return v ^ (v >> 47); };  // its own inverse
  std::uint64_t inverse = kMul;  // Newton's steps for the inverse modulo 2^64
  for (int i = 0; i < 6; ++i) inverse *= 2 - kMul * inverse;
  const std::uint64_t start = 0xC70F6907ull ^ (16 * kMul);
  const auto raw = [](std::uint32_t u) { return u >= 0x20 && u != '"' && u != '\\'; };
  std::vector<std::wstring> keys;
  keys.reserve(count);
  for (std::uint32_t i = 0; keys.size() < count; ++i) {
    std::uint32_t units[4] = {0x100 + (i & 0xFFFF), 0x100 + (i >> 16), 0, 0};
    std::uint64_t first;
    std::memcpy(&first, units, 8);
    const std::uint64_t step = unshift(first * kMul) * kMul;
    const std::uint64_t second =
        unshift(((start ^ step) * kMul ^ 0x0123456789ABCDEFull) * inverse) * inverse;
    std::memcpy(units + 2, &second, 8);
    std::wstring key(4, L'\0');
    for (int k = 0; k < 4; ++k) key[static_cast<std::size_t>(k)] = static_cast<wchar_t>(units[k]);
    // Where wchar_t has 16 bits the units are cut to them (and the keys
    // collide in nothing): what is left must still be taken raw.
    bool takes = true;
    for (const wchar_t unit : key) takes = takes && raw(static_cast<std::uint32_t>(unit));
    if (!takes) continue;
    keys.push_back(std::move(key));
  }
  return keys;
}

}  // namespace testing_support

#endif  // TVBASE_TESTING_COLLIDING_KEYS_H
