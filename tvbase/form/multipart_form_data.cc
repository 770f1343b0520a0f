#include <tvbase/form/multipart_form_data.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <utility>

#include <tvbase/form/distinct_value.h>
#include <tvbase/platform/memory_advice.h>

namespace {

constexpr std::string_view kBoundaryPrefix = "Tarvelo-Client-App-";
constexpr std::size_t kPopulated = std::size_t{64} << 10;   // worth one call instead of faults
constexpr std::size_t kLargeBuffer = std::size_t{4} << 20;  // worth large pages

// Moves the body into a new buffer of `capacity` bytes: one copy, while both
// buffers are held. The new buffer's pages are made present in one call
// before the copy fills them, rather than a page fault at a time; both calls
// are hints about memory the new buffer owns, and change nothing else.
void regrow(std::vector<unsigned char>& body, std::size_t capacity) {
  std::vector<unsigned char> grown;
  grown.reserve(capacity);
  if (capacity >= kLargeBuffer) platform::prefer_large_pages(grown.data(), capacity);
  if (capacity >= kPopulated) platform::populate_pages(grown.data(), capacity);
  grown.assign(body.begin(), body.end());
  body.swap(grown);
}

// True if the part's blank line, CR LF, followed by `data` holds a delimiter:
// CR LF, "--" and the boundary, anywhere in `data`, or "--" and the boundary
// at its start.
//
// Two skips take turns, each a step that no delimiter can lie in: memchr to
// the next CR, where alone a delimiter can start (the boundary holds none),
// and Horspool's, by the byte under the end of a window of the delimiter's
// length (36 bytes), which passes a whole window for a byte that the
// delimiter doesn't hold, a CR included. Text without CR costs one memchr;
// bytes that are all CR, or all of one digit of the boundary, skip a window
// or find no CR. Where CR bytes stand a few apart with boundary digits
// between them, both skips are short; the next CR is then looked for byte by
// byte over the first 16 bytes, before memchr is called for the rest, so
// that no pattern makes a call for every few bytes.
bool holds_delimiter(const unsigned char* data, std::size_t size, std::string_view boundary) {
  constexpr std::string_view kLead = "\r\n--";
  constexpr std::size_t kNear = 16;
  const std::size_t length = kLead.size() + boundary.size();  // 36, as boundaries are made
  if (size >= length - 2 && data[0] == '-' && data[1] == '-' &&
      std::memcmp(data + 2, boundary.data(), boundary.size()) == 0)
    return true;
  if (size < length) return false;
  const auto byte = [&](std::size_t i) {
    return static_cast<unsigned char>(i < kLead.size() ? kLead[i] : boundary[i - kLead.size()]);
  };
  // Skips are held in a byte; a shorter skip than the longest possible one
  // is only slower, never wrong.
  const auto capped = [](std::size_t n) {
    return static_cast<std::uint8_t>(std::min<std::size_t>(n, 255));
  };
  std::array<std::uint8_t, 256> skip;
  skip.fill(capped(length));
  for (std::size_t i = 0; i + 1 < length; ++i) skip[byte(i)] = capped(length - 1 - i);
  const unsigned char* const last_start = data + (size - length);
  for (const unsigned char* window = data; window <= last_start;) {
    // The next CR: a CR close by is looked for in line, a call costs more.
    const unsigned char* const near =
        window + std::min<std::size_t>(kNear, last_start - window + 1);
    while (window != near && *window != '\r') ++window;
    if (window == near) {
      if (window > last_start) return false;
      window = static_cast<const unsigned char*>(
          std::memchr(window, '\r', static_cast<std::size_t>(last_start - window) + 1));
      if (window == nullptr) return false;
    }
    if (window[1] == '\n' && window[2] == '-' && window[3] == '-' &&
        std::memcmp(window + kLead.size(), boundary.data(), boundary.size()) == 0)
      return true;
    window += skip[window[length - 1]];
  }
  return false;
}

bool holds_line_break(std::string_view text) {
  return text.find_first_of("\r\n") != std::string_view::npos;
}

}  // namespace

multipart_form_data::multipart_form_data() { reset(); }

void multipart_form_data::reset() {
  boundary = std::string(kBoundaryPrefix) + distinct_value::str_b36();
}

bool multipart_form_data::is_7bit(std::string_view text) {
  return std::none_of(text.begin(), text.end(),
                      [](char c) { return static_cast<unsigned char>(c) >= 0x80; });
}

void multipart_form_data::append_data(const unsigned char* data, unsigned int size) {
  const std::size_t needed = body.size() + size;
  if (body.capacity() < needed) {
    const std::size_t grown = std::max(needed, body.capacity() + body.capacity() / 10);
    regrow(body, (grown + 1023) / 1024 * 1024);
  }
  body.insert(body.end(), data, data + size);
}

void multipart_form_data::append_data(std::string_view text) {
  // A value past 4 GiB goes in pieces that the byte form can count.
  constexpr std::size_t kPiece = std::size_t{1} << 30;
  const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
  for (std::size_t done = 0; done < text.size(); done += kPiece) {
    append_data(bytes + done, static_cast<unsigned int>(std::min(kPiece, text.size() - done)));
  }
}

// A name or file name between quotes, with each quote, CR and LF in it
// written as %22, %0D and %0A.
void multipart_form_data::append_quoted(std::string_view text) {
  append_data("\"");
  for (std::size_t at; (at = text.find_first_of("\"\r\n")) != std::string_view::npos;) {
    append_data(text.substr(0, at));
    append_data(text[at] == '"' ? "%22" : text[at] == '\r' ? "%0D" : "%0A");
    text.remove_prefix(at + 1);
  }
  append_data(text);
  append_data("\"");
}

// CR LF, "--", the boundary and the start of the disposition, up to the
// name's closing quote.
void multipart_form_data::append_head(std::string_view name) {
  append_data("\r\n--");
  append_data(boundary);
  append_data("\r\nContent-Disposition: form-data; name=");
  append_quoted(name);
}

bool multipart_form_data::add_field(std::string_view name, std::string_view value) {
  if (!is_7bit(name) ||
      holds_delimiter(reinterpret_cast<const unsigned char*>(value.data()), value.size(), boundary))
    return false;
  append_head(name);
  append_data("\r\n\r\n");
  append_data(value);
  return true;
}

bool multipart_form_data::add_file(std::string_view name, std::string_view filename,
                                   const unsigned char* data, unsigned int size,
                                   std::optional<std::string_view> content_type) {
  const std::string_view type = content_type.value_or("application/octet-stream");
  if (!is_7bit(name) || !is_7bit(filename) || holds_line_break(type) ||
      (size != 0 && holds_delimiter(data, size, boundary)))
    return false;
  append_head(name);
  append_data("; filename=");
  append_quoted(filename);
  append_data("\r\nContent-Type: ");
  append_data(type);
  append_data("\r\n\r\n");
  if (size != 0) append_data(data, size);
  return true;
}

void multipart_form_data::finish(std::string& content_type, std::vector<unsigned char>& out) {
  content_type = "multipart/form-data; boundary=" + boundary;
  append_data("\r\n--");
  append_data(boundary);
  append_data("--");
  out = std::move(body);
  body = {};
  reset();
}
