#include <tvbase/form/distinct_value.h>

#include <cstdint>
#include <string_view>

#include <tvbase/frame/shared_data.h>
#include <tvbase/platform/process.h>

namespace {

// Digits from the last to the first, padded with '0': every value of a
// format has the same width.
std::string format(unsigned long long value, std::string_view alphabet, std::size_t width) {
  std::string text(width, '0');
  for (std::size_t i = width; i-- > 0;) {
    text[i] = alphabet[value % alphabet.size()];
    value /= alphabet.size();
  }
  return text;
}

constexpr std::string_view kBase36 = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ";
constexpr std::string_view kBase16 = "0123456789ABCDEF";

}  // namespace

unsigned long long distinct_value::get() {
  std::atomic_ref<std::uint64_t> counter = frame::distinct_counter(*TvGetSharedData());
  // A plain read is enough: a torn or stale value fails the exchange, which
  // then hands back the present one.
  std::uint64_t seen = counter.load(std::memory_order_relaxed);
  std::uint64_t next;
  do {
    next = seen + 1;
  } while (!counter.compare_exchange_weak(seen, next, std::memory_order_relaxed));
  if (next == 0) {
    // 2^64 numbers are gone: none may be handed out twice.
    platform::abort_then_exit(3);
  }
  return next;
}

std::string distinct_value::str_b36(unsigned long long value) { return format(value, kBase36, 13); }
std::string distinct_value::str_hex(unsigned long long value) { return format(value, kBase16, 16); }
std::string distinct_value::str_b36() { return str_b36(get()); }
std::string distinct_value::str_hex() { return str_hex(get()); }
