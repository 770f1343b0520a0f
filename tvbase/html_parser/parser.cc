#include <fmt/format.h>
#include <tvbase/html_parser/parser.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <iterator>

namespace html_parser {

template class strict_function<bool(const tag&, const std::optional<std::vector<tag>>&)>;

namespace {

using errors = parse_error::errors;

// Not an error: what the readers below give back when all went well.
constexpr auto kOk = static_cast<errors>(0xFF);

// The message of each code. The two that name the innermost open tag give
// the words in front of it. No default: the compiler names a code left out.
std::string_view message_of(errors e) {
  switch (e) {
    case errors::handler_returned_false: return "parse incomplete, element_handler returned false.";
    case errors::bad_start_of_tag: return "unexpected character following '<'.";
    case errors::bad_data_in_start_tag: return "invalid extra data inside start tag.";
    case errors::comment_not_closed: return "comment not closed.";
    case errors::bad_start_of_end_tag: return "unexpected character following '</'.";
    case errors::bad_data_in_end_tag: return "invalid extra data inside end tag.";
    case errors::mismatched_end_tag: return "mismatched end tag, ";
    case errors::no_open_tags: return "mismatched end tag, no (more) open tags.";
    case errors::end_tag_on_selfclosing: return "invalid explicit end tag, tag is selfclosing.";
    case errors::missing_closing_quote: return "missing closing single/double quote.";
    case errors::bad_attribute_name: return "invalid attribute name.";
    case errors::missing_attribute_value: return "missing attribute value.";
    case errors::missing_closing_script: return "missing closing </script>.";
    case errors::missing_closing_style: return "missing closing </style>.";
    case errors::unclosed_elements: return "unclosed elements at end of html, ";
  }
  return "unknown error number.";  // a code from 15 up, made by a cast
}

// Elements whose start tag opens nothing and which may have no end tag.
constexpr std::string_view kVoidElements[] = {
    "br",   "img",   "hr",     "area",  "base", "col",     "embed",  "input",    "link",
    "meta", "param", "source", "track", "wbr",  "command", "keygen", "menuitem", "frame",
};

constexpr bool is_space(unsigned char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }
constexpr bool is_letter(unsigned char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
constexpr bool is_name_char(unsigned char c) {
  return is_letter(c) || (c >= '0' && c <= '9') || c == '-' || c == '_';
}
constexpr unsigned char to_lower(unsigned char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<unsigned char>(c | 0x20) : c;
}

// Bytes that end a word: controls and blank, "/", ">", "=" and both quotes;
// in a value also "<" and the backquote.
enum word_option : std::uint8_t { kName = 1, kValue = 2 };
constexpr std::array<std::uint8_t, 256> kWordStop = [] {
  std::array<std::uint8_t, 256> table{};
  for (int c = 0; c <= 32; ++c) table[c] = kName | kValue;
  for (unsigned char c : std::string_view("/>=\"'")) table[c] = kName | kValue;
  table['<'] = kValue;
  table['`'] = kValue;
  return table;
}();

// Case-blind equality of two names; only ASCII letters fold.
bool same_name(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (to_lower(static_cast<unsigned char>(a[i])) != to_lower(static_cast<unsigned char>(b[i]))) {
      return false;
    }
  }
  return true;
}

bool is_void_element(std::string_view name) {
  if (name.size() < 2 || name.size() > 8) return false;
  return std::any_of(std::begin(kVoidElements), std::end(kVoidElements),
                     [name](std::string_view v) { return same_name(name, v); });
}

// The cursor over the text, with the row it stands on. Every move counts the
// line feeds it passes.
class scanner {
 public:
  explicit scanner(std::string_view text) : text_(text) {}

  std::size_t pos() const { return pos_; }
  std::uint32_t row() const { return row_; }
  bool at_end() const { return pos_ == text_.size(); }
  bool at(char c) const { return pos_ < text_.size() && text_[pos_] == c; }
  std::string_view since(std::size_t begin) const { return text_.substr(begin, pos_ - begin); }
  void back(std::size_t n) { pos_ -= n; }  // only over bytes without a line feed

  void skip_space() {
    while (pos_ < text_.size() && is_space(static_cast<unsigned char>(text_[pos_]))) {
      if (text_[pos_] == '\n') ++row_;
      ++pos_;
    }
  }

  bool accept(char c) {
    if (!at(c)) return false;
    ++pos_;
    return true;
  }

  bool accept_exact(std::string_view s) {
    if (text_.substr(pos_, s.size()) != s) return false;
    pos_ += s.size();
    return true;
  }

  // `lower` is a lower-case pattern without line feeds. With `boundary`, no
  // name character may follow the match.
  bool accept_folded(std::string_view lower, bool boundary) {
    if (!matches_folded(pos_, lower, boundary)) return false;
    pos_ += lower.size();
    return true;
  }

  // Stops on `c`, or at the end with false.
  bool scan_to(char c) {
    const std::size_t found = text_.find(c, pos_);
    move_to(found == std::string_view::npos ? text_.size() : found);
    return found != std::string_view::npos;
  }

  // Moves past the first occurrence of `s`, or to the end with false.
  bool find_exact(std::string_view s) {
    const std::size_t found = text_.find(s, pos_);
    if (found == std::string_view::npos) {
      move_to(text_.size());
      return false;
    }
    move_to(found + s.size());
    return true;
  }

  // Moves past the first case-blind occurrence of `lower`, which starts with
  // "<", or to the end with false.
  bool find_folded(std::string_view lower, bool boundary) {
    for (std::size_t from = pos_;;) {
      const std::size_t found = text_.find(lower[0], from);
      if (found == std::string_view::npos) break;
      if (matches_folded(found, lower, boundary)) {
        move_to(found + lower.size());
        return true;
      }
      from = found + 1;
    }
    move_to(text_.size());
    return false;
  }

  // A letter followed by name characters.
  bool read_name(std::string_view& name) {
    if (pos_ == text_.size() || !is_letter(static_cast<unsigned char>(text_[pos_]))) return false;
    const std::size_t begin = pos_++;
    while (pos_ < text_.size() && is_name_char(static_cast<unsigned char>(text_[pos_]))) ++pos_;
    name = since(begin);
    return true;
  }

  // Bytes up to a stop byte of `option`; false if there are none.
  bool read_word(word_option option, std::string_view& word) {
    const std::size_t begin = pos_;
    while (pos_ < text_.size() && !(kWordStop[static_cast<unsigned char>(text_[pos_])] & option)) {
      ++pos_;
    }
    word = since(begin);
    return pos_ != begin;
  }

  // No value unless a quote is at the cursor. Then the text up to the same
  // quote, both quotes included; or, with no closing quote, an empty view and
  // the cursor at the end.
  std::optional<std::string_view> read_quoted() {
    if (!at('"') && !at('\'')) return std::nullopt;
    const std::size_t begin = pos_++;
    if (!scan_to(text_[begin])) return std::string_view();
    ++pos_;
    return since(begin);
  }

 private:
  bool matches_folded(std::size_t at, std::string_view lower, bool boundary) const {
    if (text_.size() - at < lower.size()) return false;
    for (std::size_t i = 0; i < lower.size(); ++i) {
      if (to_lower(static_cast<unsigned char>(text_[at + i])) !=
          static_cast<unsigned char>(lower[i])) {
        return false;
      }
    }
    const std::size_t next = at + lower.size();
    return !boundary || next == text_.size() ||
           !is_name_char(static_cast<unsigned char>(text_[next]));
  }

  void move_to(std::size_t to) {
    row_ += static_cast<std::uint32_t>(std::count(text_.data() + pos_, text_.data() + to, '\n'));
    pos_ = to;
  }

  std::string_view text_;
  std::size_t pos_ = 0;
  std::uint32_t row_ = 1;
};

// One call of parse(): the scanner, the mode, the element being read and the
// list of open tags.
class run {
 public:
  run(std::string_view text, bool strict, const element_handler& handler)
      : text_(text), scan_(text), strict_(strict), handler_(handler) {}

  std::optional<parse_error> parse() {
    do {
      tag_.type = tag_type::text;
      tag_.raw = {};
      tag_.name = {};
      tag_.attributes.clear();
      tag_.row = scan_.row();
      start_ = scan_.pos();

      if (const errors e = read_element(); e != kOk) return fail(e);
      if (tag_.type != tag_type::end_tag) tag_.raw = scan_.since(start_);

      if (open_ && tag_.type == tag_type::end_tag) {
        if (open_->empty()) {
          if (strict_) return fail(errors::no_open_tags);
          open_.reset();
        } else if (!same_name(tag_.name, open_->back().name)) {
          if (strict_) return fail(errors::mismatched_end_tag);
          open_.reset();
        }
      }

      if (!handler_(tag_, open_))
        return parse_error(errors::handler_returned_false, std::nullopt, std::nullopt);

      if (open_) {
        if (tag_.type == tag_type::start_tag) {
          open_->push_back(tag_);
        } else if (tag_.type == tag_type::end_tag) {
          open_->pop_back();
        }
      }
    } while (!scan_.at_end());

    if (strict_ && !open_->empty())
      return parse_error(errors::unclosed_elements, std::nullopt, open_);
    return std::nullopt;
  }

 private:
  enum class mode : std::uint8_t { normal, in_script, in_style };

  parse_error fail(errors e) const { return parse_error(e, tag_, open_); }

  errors read_element() {
    switch (mode_) {
      case mode::in_script:
        return read_content("</script", tag_type::script, errors::missing_closing_script);
      case mode::in_style:
        return read_content("</style", tag_type::style, errors::missing_closing_style);
      case mode::normal: break;
    }
    if (!scan_.accept('<')) {
      scan_.scan_to('<');
      return kOk;
    }
    if (scan_.accept_folded("!doctype", false)) return read_doctype();
    if (scan_.accept_exact("!--")) {
      if (!scan_.find_exact("-->")) return errors::comment_not_closed;
      tag_.type = tag_type::comment;
      return kOk;
    }
    if (scan_.accept('/')) return read_end_tag();
    return read_start_tag();
  }

  // Content up to the closing text, which the next element reads as an end tag.
  errors read_content(std::string_view closing, tag_type type, errors missing) {
    if (!scan_.find_folded(closing, true)) return missing;
    scan_.back(closing.size());
    mode_ = mode::normal;
    tag_.type = type;
    return kOk;
  }

  errors read_doctype() {
    tag_.type = tag_type::doctype;
    tag_.name = text_.substr(start_ + 1, scan_.pos() - start_ - 1);
    for (;;) {
      scan_.skip_space();
      if (scan_.accept('>') || scan_.accept_exact("/>")) return kOk;
      std::string_view word;
      if (scan_.read_name(word)) {
        tag_.attributes.push_back({word, word, {}, {}});
        continue;
      }
      const std::optional<std::string_view> quoted = scan_.read_quoted();
      if (!quoted) return errors::bad_data_in_start_tag;
      if (quoted->empty()) return errors::missing_closing_quote;
      tag_.attributes.push_back({*quoted, {}, *quoted, quoted->substr(1, quoted->size() - 2)});
    }
  }

  errors read_end_tag() {
    if (!scan_.read_name(tag_.name)) return errors::bad_start_of_end_tag;
    scan_.skip_space();
    if (!scan_.accept('>')) return errors::bad_data_in_end_tag;
    tag_.type = tag_type::end_tag;
    tag_.raw = scan_.since(start_);
    if (is_void_element(tag_.name)) return errors::end_tag_on_selfclosing;
    return kOk;
  }

  errors read_start_tag() {
    if (!scan_.read_name(tag_.name)) return errors::bad_start_of_tag;
    tag_.type = tag_type::start_tag;
    scan_.skip_space();
    bool closed = scan_.accept('>');
    while (!closed) {
      if (scan_.accept_exact("/>")) {
        tag_.type = tag_type::selfclosing_tag;
        break;
      }
      if (const errors e = read_attribute(); e != kOk) return e;
      scan_.skip_space();
      closed = scan_.accept('>');
    }
    if (closed && is_void_element(tag_.name)) tag_.type = tag_type::selfclosing_tag;
    if (same_name(tag_.name, "script")) {
      mode_ = mode::in_script;
    } else if (same_name(tag_.name, "style")) {
      mode_ = mode::in_style;
    }
    return kOk;
  }

  errors read_attribute() {
    const std::size_t begin = scan_.pos();
    attribute a;
    if (!scan_.read_word(kName, a.name)) return errors::bad_attribute_name;
    scan_.skip_space();
    if (scan_.accept('=')) {
      scan_.skip_space();
      if (const std::optional<std::string_view> quoted = scan_.read_quoted()) {
        if (quoted->empty()) return errors::missing_closing_quote;
        a.raw_value = *quoted;
        a.value = quoted->substr(1, quoted->size() - 2);
      } else {
        if (!scan_.read_word(kValue, a.raw_value)) return errors::missing_attribute_value;
        a.value = a.raw_value;
      }
    }
    a.raw = scan_.since(begin);
    tag_.attributes.push_back(a);
    return kOk;
  }

  std::string_view text_;
  scanner scan_;
  bool strict_;
  const element_handler& handler_;
  mode mode_ = mode::normal;
  std::size_t start_ = 0;
  tag tag_;
  std::optional<std::vector<tag>> open_{std::in_place};
};

}  // namespace

parse_error::parse_error(errors code, const std::optional<html_parser::tag>& current,
                         const std::optional<std::vector<html_parser::tag>>& open_tags)
    : error(code), tag(current) {
  if (open_tags && !open_tags->empty()) last_start_tag = open_tags->back();
}

std::string parse_error::get_message() const {
  std::string out = "html parse error";
  if (tag && tag->row != 0) fmt::format_to(std::back_inserter(out), " on row {}", tag->row);
  out += ": ";
  out += message_of(error);
  if (error == errors::mismatched_end_tag || error == errors::unclosed_elements) {
    // Both always carry the open tag; without one, its name reads empty and
    // its row 0 rather than failing.
    const std::string_view name = last_start_tag ? last_start_tag->name : std::string_view();
    const std::uint32_t row = last_start_tag ? last_start_tag->row : 0;
    fmt::format_to(std::back_inserter(out), "last start tag={} on row {}.", name, row);
  }
  return out;
}

std::optional<parse_error> parser::parse(std::string_view text, bool strict,
                                         const element_handler& handler) {
  if (text.empty()) return std::nullopt;
  return run(text, strict, handler).parse();
}

}  // namespace html_parser
