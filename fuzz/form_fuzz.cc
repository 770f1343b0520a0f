// multipart_form_data on fields and files made of any bytes, against the
// rules written out plainly: each call is taken or refused as they say (a
// name byte of 0x80 or above, a line break in the content type, the form's
// delimiter in the data or "--" and the boundary at its start), and the
// finished body reads back, as a receiver cuts it, as exactly the parts that
// were taken, names escaped. The input is a series of calls: a byte picks
// field or file, then the texts follow, each a length byte and that many
// bytes. In the texts, byte 0x01 stands for the form's boundary and 0x02 for
// its delimiter, which the fuzzer cannot guess.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <tvbase/form/multipart_form_data.h>
#include <tvbase/form/test_support.h>

namespace {

// Takes texts off the front of the input.
class reader {
 public:
  reader(const std::uint8_t* data, std::size_t size, std::string boundary)
      : rest_(reinterpret_cast<const char*>(data), size), boundary_(std::move(boundary)) {}
  bool empty() const { return rest_.empty(); }
  std::uint8_t byte() {
    if (rest_.empty()) return 0;
    const auto b = static_cast<std::uint8_t>(rest_[0]);
    rest_.remove_prefix(1);
    return b;
  }
  std::string text() {
    const std::size_t n = std::min<std::size_t>(byte(), rest_.size());
    std::string out;
    for (const char c : rest_.substr(0, n)) {
      if (c == '\x01') {
        out += boundary_;
      } else if (c == '\x02') {
        out += "\r\n--" + boundary_;
      } else {
        out += c;
      }
    }
    rest_.remove_prefix(n);
    return out;
  }

 private:
  std::string_view rest_;
  std::string boundary_;
};

bool seven_bit(std::string_view text) {
  for (const char c : text)
    if (static_cast<unsigned char>(c) >= 0x80) return false;
  return true;
}

void check(bool ok) {
  if (!ok) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  multipart_form_data form;
  // The boundary this form will end with, from a copy that is finished.
  std::string boundary;
  {
    multipart_form_data copy = form;
    std::string content_type;
    std::vector<unsigned char> body;
    copy.finish(content_type, body);
    boundary = content_type.substr(content_type.find('=') + 1);
  }
  reader in(data, size, boundary);
  std::vector<form_test::part> expected;
  while (!in.empty()) {
    const bool is_file = in.byte() % 2 != 0;
    const std::string name = in.text();
    const std::string value = in.text();
    const bool delimited = ("\r\n" + value).find("\r\n--" + boundary) != std::string::npos;
    if (!is_file) {
      const bool taken = seven_bit(name) && !delimited;
      check(form.add_field(name, value) == taken);
      if (taken) expected.push_back({form_test::escaped(name), std::nullopt, std::nullopt, value});
      continue;
    }
    const std::string filename = in.text();
    const bool typed = in.byte() % 2 != 0;
    const std::string type = typed ? in.text() : "application/octet-stream";
    const bool taken = seven_bit(name) && seven_bit(filename) && !delimited &&
                       type.find_first_of("\r\n") == std::string::npos;
    check(form.add_file(name, filename, form_test::bytes(value),
                        static_cast<unsigned int>(value.size()),
                        typed ? std::optional<std::string_view>(type) : std::nullopt) == taken);
    if (taken) {
      expected.push_back({form_test::escaped(name), form_test::escaped(filename), type, value});
    }
  }
  std::string content_type;
  std::vector<unsigned char> body;
  form.finish(content_type, body);
  check(content_type == "multipart/form-data; boundary=" + boundary);
  const auto parts = form_test::receive(form_test::text_of(body), boundary);
  check(parts && *parts == expected);
  return 0;
}
