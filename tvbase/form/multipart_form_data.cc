#include <tvbase/form/multipart_form_data.h>

#include <algorithm>
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

// CR LF, "--", the boundary and the start of the disposition, up to the
// name's closing quote.
void multipart_form_data::append_head(std::string_view name) {
  append_data("\r\n--");
  append_data(boundary);
  append_data("\r\nContent-Disposition: form-data; name=\"");
  append_data(name);
  append_data("\"");
}

bool multipart_form_data::add_field(std::string_view name, std::string_view value) {
  if (!is_7bit(name)) return false;
  append_head(name);
  append_data("\r\n\r\n");
  append_data(value);
  return true;
}

bool multipart_form_data::add_file(std::string_view name, std::string_view filename,
                                   const unsigned char* data, unsigned int size,
                                   std::optional<std::string_view> content_type) {
  if (!is_7bit(name) || !is_7bit(filename)) return false;
  append_head(name);
  append_data("; filename=\"");
  append_data(filename);
  append_data("\"\r\nContent-Type: ");
  append_data(content_type.value_or("application/octet-stream"));
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
