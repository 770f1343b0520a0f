// html_parser::parser::parse on any bytes, strict and not, with a handler
// that reads every byte of every view it is handed and checks that views lie
// inside the text, that the elements follow each other without gap from the
// start of the text (to its end when the parse completes), that rows count
// the line feeds before each element, and that the open tags are exactly the
// start tags handed so far and not yet closed, until non-strict tracking
// gives up at an end tag that doesn't fit. The strict parse hands a prefix of
// what the non-strict one hands, all of it when it succeeds. The first byte:
// bit 0 set makes the handler return false at call number (byte >> 1).
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <tvbase/html_parser/parser.h>

namespace {

using html_parser::attribute;
using html_parser::parse_error;
using html_parser::tag;
using html_parser::tag_type;

volatile unsigned sink;

bool same_view(std::string_view a, std::string_view b) {
  return a.data() == b.data() && a.size() == b.size();
}

bool same_tag(const tag& a, const tag& b) {
  if (a.type != b.type || a.row != b.row || !same_view(a.raw, b.raw) ||
      !same_view(a.name, b.name) || a.attributes.size() != b.attributes.size()) {
    return false;
  }
  for (std::size_t i = 0; i < a.attributes.size(); ++i) {
    const attribute& x = a.attributes[i];
    const attribute& y = b.attributes[i];
    if (!same_view(x.raw, y.raw) || !same_view(x.name, y.name) ||
        !same_view(x.raw_value, y.raw_value) || !same_view(x.value, y.value)) {
      return false;
    }
  }
  return true;
}

bool same_name(std::string_view a, std::string_view b) {
  const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c; };
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (lower(a[i]) != lower(b[i])) return false;
  }
  return true;
}

// One element as handed: its kind and where its text lies.
struct event {
  tag_type type;
  const char* raw;
  std::size_t size;
  bool operator==(const event&) const = default;
};

class checker {
 public:
  checker(std::string_view text, bool strict, int stop_at)
      : text_(text), strict_(strict), stop_at_(stop_at) {}

  bool operator()(const tag& t, const std::optional<std::vector<tag>>& open) {
    check_tag(t);
    check_open(t, open);
    events_.push_back({t.type, t.raw.data(), t.raw.size()});
    return static_cast<int>(events_.size()) != stop_at_;
  }

  // After parse() has returned `error`.
  void finish(const std::optional<parse_error>& error) const {
    if (!error || error->error == parse_error::errors::unclosed_elements) {
      if (next_ != text_.size()) std::abort();
    }
    if (error) {
      if (static_cast<unsigned>(error->error) > 14) std::abort();
      if (error->get_message().rfind("html parse error", 0) != 0) std::abort();
      if (error->tag) check_inside(error->tag->name);
    }
  }

  const std::vector<event>& events() const { return events_; }

 private:
  // Inside the text or empty, and read to the last byte.
  void check_inside(std::string_view v) const {
    if (v.empty()) return;
    if (v.data() < text_.data() || v.size() > text_.size() ||
        v.data() - text_.data() > static_cast<std::ptrdiff_t>(text_.size() - v.size())) {
      std::abort();
    }
    unsigned sum = 0;
    for (const char c : v) sum += static_cast<unsigned char>(c);
    sink = sink + sum;
  }

  static bool within(std::string_view inner, std::string_view outer) {
    return inner.empty() || (inner.data() >= outer.data() &&
                             inner.data() + inner.size() <= outer.data() + outer.size());
  }

  void check_tag(const tag& t) {
    if (static_cast<unsigned>(t.type) > 7) std::abort();
    check_inside(t.raw);
    check_inside(t.name);
    // Each element starts where the one before ended, on its own row.
    if (t.raw.data() != text_.data() + next_) std::abort();
    for (; counted_ < next_; ++counted_) rows_ += text_[counted_] == '\n';
    if (t.row != rows_) std::abort();
    next_ += t.raw.size();
    switch (t.type) {
      case tag_type::text:
        if (t.raw.empty() || t.raw[0] == '<' || !t.name.empty()) std::abort();
        break;
      case tag_type::comment:
        if (!t.raw.starts_with("<!--") || !t.raw.ends_with("-->") || !t.name.empty()) std::abort();
        break;
      case tag_type::script:
      case tag_type::style:
        if (!t.name.empty()) std::abort();
        break;
      case tag_type::doctype:
        if (!same_name(t.name, "!doctype") || t.name.data() != t.raw.data() + 1) std::abort();
        break;
      case tag_type::end_tag:
        if (!t.raw.starts_with("</") || t.name.data() != t.raw.data() + 2) std::abort();
        break;
      case tag_type::start_tag:
      case tag_type::selfclosing_tag:
        if (t.name.empty() || t.name.data() != t.raw.data() + 1) std::abort();
        break;
    }
    if (t.type != tag_type::text && t.type != tag_type::script && t.type != tag_type::style &&
        t.type != tag_type::comment && (t.raw.size() < 2 || t.raw.back() != '>')) {
      std::abort();
    }
    for (const attribute& a : t.attributes) {
      for (const std::string_view v : {a.raw, a.name, a.raw_value, a.value}) {
        check_inside(v);
        if (!within(v, t.raw)) std::abort();
      }
      if (!within(a.value, a.raw_value) || !within(a.raw_value, a.raw) || !within(a.name, a.raw))
        std::abort();
    }
  }

  void check_open(const tag& t, const std::optional<std::vector<tag>>& open) {
    if (!open) {
      // Only non-strict parsing gives up, and only at an end tag that
      // doesn't fit.
      if (strict_) std::abort();
      if (!given_up_) {
        if (t.type != tag_type::end_tag) std::abort();
        if (!shadow_.empty() && same_name(shadow_.back().name, t.name)) std::abort();
        given_up_ = true;
      }
      return;
    }
    if (given_up_ || open->size() != shadow_.size()) std::abort();
    for (std::size_t i = 0; i < shadow_.size(); ++i) {
      if (!same_tag((*open)[i], shadow_[i])) std::abort();
    }
    if (t.type == tag_type::start_tag) {
      shadow_.push_back(t);
    } else if (t.type == tag_type::end_tag) {
      if (shadow_.empty() || !same_name(shadow_.back().name, t.name)) std::abort();
      shadow_.pop_back();
    }
  }

  std::string_view text_;
  bool strict_;
  int stop_at_;
  std::size_t next_ = 0;  // where the next element must start
  std::size_t counted_ = 0;
  std::uint32_t rows_ = 1;
  bool given_up_ = false;
  std::vector<tag> shadow_;
  std::vector<event> events_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const int stop_at = data[0] & 1 ? data[0] >> 1 : -1;
  const std::string_view text(reinterpret_cast<const char*>(data + 1), size - 1);

  std::optional<parse_error> errors[2];
  std::vector<event> events[2];
  for (const bool strict : {false, true}) {
    checker check(text, strict, stop_at);
    errors[strict] = html_parser::parser::parse(
        text, strict, [&check](const tag& t, const std::optional<std::vector<tag>>& open) {
          return check(t, open);
        });
    if (!text.empty()) check.finish(errors[strict]);
    events[strict] = check.events();
  }
  // Strict parsing hands what non-strict parsing hands, up to its first fault.
  const std::vector<event>& loose = events[false];
  const std::vector<event>& strict = events[true];
  if (strict.size() > loose.size() || !std::equal(strict.begin(), strict.end(), loose.begin())) {
    std::abort();
  }
  if (!errors[true] && (errors[false] || strict.size() != loose.size())) std::abort();
  return 0;
}
