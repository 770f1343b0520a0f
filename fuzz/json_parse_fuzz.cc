// json::object::parse on UTF-16 text made from the input: the first byte
// chooses between bytes as units and little-endian byte pairs as units, and a
// 0x1E byte splits the rest into two texts, the second of which is read both
// into a fresh value and over what the first left. Checked: the reader
// accepts exactly what a naive strict reader accepts and reports its error at
// the same line and column with one of its own messages, whatever the target
// held; every value it leaves writes text that reads back to the same text
// under each escape strategy, by string and by stream alike; and reading a
// value's own text over it changes nothing.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>

#include <tvbase/json/object.h>
#include <tvbase/json/parser.h>

namespace {

using json::object;

constexpr std::size_t kNone = std::string_view::npos;

// The strict grammar, one unit at a time: a NUL unit ends the input, and no
// more than 512 containers nest. Gives the offset of the first unit that
// can't continue a valid text (the length for a text cut short), or kNone.
class naive_reader {
 public:
  explicit naive_reader(std::wstring_view text) : text_(text) {}

  std::size_t failure() {
    if (!value(0)) return at_;
    blanks();
    return at_ == text_.size() ? kNone : at_;
  }

 private:
  // The unit at the cursor; 0 at the end.
  wchar_t peek() const { return at_ < text_.size() ? text_[at_] : 0; }

  void blanks() {
    while (peek() == L' ' || peek() == L'\t' || peek() == L'\r' || peek() == L'\n') ++at_;
  }

  bool word(std::wstring_view w) {
    for (const wchar_t c : w) {
      if (peek() != c) return false;
      ++at_;
    }
    return true;
  }

  bool digits() {
    if (peek() < L'0' || peek() > L'9') return false;
    while (peek() >= L'0' && peek() <= L'9') ++at_;
    return true;
  }

  bool number() {
    if (peek() == L'-') ++at_;
    if (peek() == L'0') {
      ++at_;
    } else if (!digits()) {
      return false;
    }
    if (peek() == L'.') {
      ++at_;
      if (!digits()) return false;
    }
    if (peek() == L'e' || peek() == L'E') {
      ++at_;
      if (peek() == L'+' || peek() == L'-') ++at_;
      if (!digits()) return false;
    }
    return true;
  }

  bool string() {
    if (peek() != L'"') return false;
    ++at_;
    for (;;) {
      const wchar_t c = peek();
      if (c == L'"') {
        ++at_;
        return true;
      }
      if (static_cast<std::uint32_t>(c) < 0x20) return false;
      if (c != L'\\') {
        ++at_;
        continue;
      }
      ++at_;
      const wchar_t e = peek();
      if (e == L'u') {
        for (int i = 0; i < 4; ++i) {
          ++at_;
          const wchar_t h = peek();
          if (!((h >= L'0' && h <= L'9') || (h >= L'a' && h <= L'f') || (h >= L'A' && h <= L'F')))
            return false;
        }
      } else if (std::wstring_view(L"\"\\/bfnrt").find(e) == kNone) {
        return false;
      }
      ++at_;
    }
  }

  bool container(int depth, wchar_t close, bool dictionary) {
    if (depth == 512) return false;  // the bracket itself is refused
    ++at_;
    blanks();
    if (peek() == close) {
      ++at_;
      return true;
    }
    for (;;) {
      if (dictionary) {
        if (!string()) return false;
        blanks();
        if (peek() != L':') return false;
        ++at_;
      }
      if (!value(depth + 1)) return false;
      if (peek() == close) {
        ++at_;
        return true;
      }
      if (peek() != L',') return false;
      ++at_;
      blanks();
    }
  }

  // A value with the blanks around it.
  bool value(int depth) {
    blanks();
    bool ok;
    switch (peek()) {
      case L'"': ok = string(); break;
      case L'[': ok = container(depth, L']', false); break;
      case L'{': ok = container(depth, L'}', true); break;
      case L't': ok = word(L"true"); break;
      case L'f': ok = word(L"false"); break;
      case L'n': ok = word(L"null"); break;
      default: ok = number(); break;
    }
    if (ok) blanks();
    return ok;
  }

  std::wstring_view text_;
  std::size_t at_ = 0;
};

bool known_message(const std::string& message) {
  using e = json::parser::exception;
  for (int i = static_cast<int>(e::expected_colon); i <= static_cast<int>(e::too_deep); ++i) {
    if (message == json::parser::message_of(static_cast<e>(i))) return true;
  }
  return false;
}

// Checks the answer of parse() against the naive reader.
void check_answer(std::wstring_view text, const std::optional<object::error>& error) {
  const std::size_t failure = naive_reader(text).failure();
  if (failure == kNone) {
    if (error) std::abort();
    return;
  }
  if (!error || error->line < 1 || error->column < 1 || !known_message(error->message))
    std::abort();
  std::uint32_t line = 1;
  std::size_t line_start = 0;
  for (std::size_t i = 0; i < failure; ++i) {
    if (text[i] == L'\n') {
      ++line;
      line_start = i + 1;
    }
  }
  if (error->line != line || error->column != failure - line_start + 1) std::abort();
}

// Whatever a value holds, its text reads back to the same text under every
// strategy, and the stream gets the same units as the string.
void check_written(const object& value) {
  using strategy = object::escape_strategy;
  for (const strategy s : {strategy::minimal, strategy::surrogates, strategy::non_ascii}) {
    const std::wstring text = value.to_string(s);
    std::wostringstream stream;
    value.serialize(stream, s);
    if (stream.str() != text) std::abort();
    object again;
    if (again.parse(text) || again.to_string(s) != text) std::abort();
  }
}

std::wstring units_of(const std::uint8_t* data, std::size_t size, bool pairs) {
  std::wstring text;
  if (pairs) {
    for (std::size_t i = 0; i + 1 < size; i += 2) {
      text.push_back(static_cast<wchar_t>(data[i] | data[i + 1] << 8));
    }
  } else {
    for (std::size_t i = 0; i < size; ++i) text.push_back(static_cast<wchar_t>(data[i]));
  }
  return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const bool pairs = data[0] & 1;
  ++data, --size;
  const auto* split = static_cast<const std::uint8_t*>(std::memchr(data, 0x1E, size));
  const std::size_t first_size = split ? static_cast<std::size_t>(split - data) : size;
  const std::wstring first = units_of(data, first_size, pairs);

  object value;
  const auto first_error = value.parse(first);
  check_answer(first, first_error);
  check_written(value);
  if (!first_error) {
    // Its own text read over it changes nothing.
    const std::wstring text = value.to_string();
    object over = value;
    if (over.parse(text) || over.to_string() != text) std::abort();
  }
  if (!split) return 0;

  const std::wstring second = units_of(split + 1, size - first_size - 1, pairs);
  object fresh;
  const auto fresh_error = fresh.parse(second);
  check_answer(second, fresh_error);
  check_written(fresh);
  // Over a filled value: the same answer, and a value that still writes.
  const auto over_error = value.parse(second);
  if (over_error.has_value() != fresh_error.has_value()) std::abort();
  if (over_error &&
      (over_error->line != fresh_error->line || over_error->column != fresh_error->column ||
       over_error->message != fresh_error->message)) {
    std::abort();
  }
  check_written(value);
  if (!over_error && value.get_type() != fresh.get_type()) std::abort();
  return 0;
}
