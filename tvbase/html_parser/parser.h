#ifndef TVBASE_HTML_PARSER_PARSER_H
#define TVBASE_HTML_PARSER_PARSER_H

#include <tvbase/export.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace html_parser {

// The kind of one element that the parser hands to its handler.
enum class tag_type : std::uint8_t {
  text = 0,             // text between tags
  doctype = 1,          // "<!doctype ...>", angle brackets included in raw
  comment = 2,          // "<!-- ... -->", whole
  script = 3,           // content of a script element, without its end tag
  style = 4,            // content of a style element, without its end tag
  start_tag = 5,        // a tag that opens an element
  end_tag = 6,          // "</name>"
  selfclosing_tag = 7,  // "<name/>" or a void element such as <br>
};

// One attribute of a start tag, or one item of a doctype. All four are views
// into the parsed text.
//
// In a start tag: `raw` is the attribute as written up to the end of its
// value (for one without a value, with the white space behind the name);
// `raw_value` the value with its quotes, if any; `value` without them. Without
// a value both are empty; an empty quoted value has a `raw_value` of two quotes.
//
// In a doctype: a word has it as `raw` and `name`; a quoted item has it, quotes
// included, as `raw` and `raw_value`, its content as `value`, and no `name`.
struct attribute {
  std::string_view raw;
  std::string_view name;
  std::string_view raw_value;
  std::string_view value;
};

// One element. `row` counts line feeds from 1 and is where the element starts;
// `raw` is the element's whole text (for script and style content, up to but
// without the end tag); `name` is the tag name as written, or the text
// "!doctype" as written for a doctype, and empty for text, comments and
// script or style content. The views point into the parsed text and live no
// longer than it; the attributes are owned, in the order of the text.
struct tag {
  tag_type type = tag_type::text;
  std::uint32_t row = 0;
  std::string_view raw;
  std::string_view name;
  std::vector<attribute> attributes;
};

namespace detail {

// The call signature of a callable type whose signature can be read off it:
// a function, a pointer to one, or a class with exactly one, non-template
// operator(). `type` is absent for anything else (a generic lambda, a class
// with overloads).
template <class F, class = void>
struct signature_of {};

template <class R, class... A>
struct signature_of<R(A...)> {
  using type = R(A...);
};
template <class R, class... A>
struct signature_of<R(A...) noexcept> {
  using type = R(A...);
};
template <class R, class... A>
struct signature_of<R (*)(A...)> {
  using type = R(A...);
};
template <class R, class... A>
struct signature_of<R (*)(A...) noexcept> {
  using type = R(A...);
};

template <class M>
struct member_signature {};
#define TVBASE_HTML_MEMBER_SIGNATURE(QUALIFIERS)       \
  template <class C, class R, class... A>              \
  struct member_signature<R (C::*)(A...) QUALIFIERS> { \
    using type = R(A...);                              \
  };
TVBASE_HTML_MEMBER_SIGNATURE()
TVBASE_HTML_MEMBER_SIGNATURE(const)
TVBASE_HTML_MEMBER_SIGNATURE(&)
TVBASE_HTML_MEMBER_SIGNATURE(const&)
TVBASE_HTML_MEMBER_SIGNATURE(noexcept)
TVBASE_HTML_MEMBER_SIGNATURE(const noexcept)
TVBASE_HTML_MEMBER_SIGNATURE(&noexcept)
TVBASE_HTML_MEMBER_SIGNATURE(const& noexcept)
#undef TVBASE_HTML_MEMBER_SIGNATURE

template <class F>
struct signature_of<F, std::void_t<decltype(&F::operator())>>
    : member_signature<decltype(&F::operator())> {};

template <class F>
concept has_signature = requires {
  typename signature_of<F>::type;
};

// A callable fits Signature R(A...) when its own signature is exactly that,
// or, for a generic callable, when a call with A... gives exactly R.
template <class F, class Signature>
struct fits : std::false_type {};
template <class F, class R, class... A>
requires has_signature<F>
struct fits<F, R(A...)> : std::is_same<typename signature_of<F>::type, R(A...)> {
};
template <class F, class R, class... A>
requires(!has_signature<F> && std::is_class_v<F> &&
         std::is_invocable_v<const F&, A...>) struct fits<F, R(A...)>
    : std::is_same<std::invoke_result_t<const F&, A...>, R> {
};

}  // namespace detail

// A std::function that is choosy at compile time: it accepts only callables
// whose signature is exactly its own. A function, a function pointer or a
// class with one non-template operator() must have exactly these parameter
// and result types (noexcept and const are allowed), so a handler that takes
// `tag` by value, or returns int where bool is asked, doesn't compile; any
// other class (a generic lambda, an overload set) must give exactly the result
// type when called with these arguments. At run time it is a std::function: it holds the callable
// by value, copies and destroys it with itself, and an empty one throws std::bad_function_call when
// called.
//
//   strict_function<bool(int)> f = [](int n) { return n > 0; };   // fine
//   strict_function<bool(int)> g = [](int n) { return n; };       // error
//   strict_function<bool(int)> h = [](long n) { return n > 0; };  // error
template <class Signature>
class strict_function;

template <class R, class... A>
class strict_function<R(A...)> {
 public:
  using result_type = R;

  strict_function() noexcept = default;
  strict_function(std::nullptr_t) noexcept {}  // NOLINT: as std::function

  template <class F>
  requires(!std::is_same_v<std::remove_cvref_t<F>, strict_function> &&
           detail::fits<std::remove_cvref_t<F>, R(A...)>::value)
      strict_function(F&& f)  // NOLINT: implicit, as std::function
      : function_(std::forward<F>(f)) {}

  // Throws std::bad_function_call when empty.
  R operator()(A... args) const { return function_(std::forward<A>(args)...); }

  explicit operator bool() const noexcept { return static_cast<bool>(function_); }

 private:
  std::function<R(A...)> function_;
};

// What parse() reports when it stops early: why, the element it was reading,
// and the innermost open tag at that moment. The views point into the parsed
// text and live no longer than it.
//
//   if (auto error = html_parser::parser::parse(html, true, handler)) {
//     std::cerr << error->get_message() << '\n';
//   }
class TVBASE_EXPORT parse_error {
 public:
  enum class errors : std::uint8_t {
    handler_returned_false = 0,
    bad_start_of_tag = 1,
    bad_data_in_start_tag = 2,
    comment_not_closed = 3,
    bad_start_of_end_tag = 4,
    bad_data_in_end_tag = 5,
    mismatched_end_tag = 6,
    no_open_tags = 7,
    end_tag_on_selfclosing = 8,
    missing_closing_quote = 9,
    bad_attribute_name = 10,
    missing_attribute_value = 11,
    missing_closing_script = 12,
    missing_closing_style = 13,
    unclosed_elements = 14,
  };

  // Keeps a copy of `current` and of the last entry of `open_tags`, if there
  // are any; the rest of the list is not kept.
  parse_error(errors code, const std::optional<html_parser::tag>& current,
              const std::optional<std::vector<html_parser::tag>>& open_tags);

  // "html parse error on row 9: mismatched end tag, last start tag=div on row 3."
  // The row in the head is `tag`'s, left out when there is no tag or its row
  // is 0. mismatched_end_tag and unclosed_elements name `last_start_tag`,
  // which must then be set. A code from 15 up reads "unknown error number.".
  [[nodiscard]] std::string get_message() const;

  errors error;
  // The element being read, as far as it had been read. Its `raw` is empty
  // unless the element was complete (errors 6, 7 and 8).
  std::optional<html_parser::tag> tag;
  std::optional<html_parser::tag> last_start_tag;
};

// The handler that parse() calls once per element with the element and the
// open tags as they stand before it: a start tag isn't in the list yet, and a
// matching end tag's start tag is still its last entry. The list is empty
// (no value) once non-strict tracking has given up. Returning false stops the
// parse. References are valid during the call only; views, as long as the text.
using element_handler = strict_function<bool(const tag&, const std::optional<std::vector<tag>>&)>;

// A checking scanner for HTML: it walks the text once, hands each element to
// a handler with the list of open tags, and stops at the first fault with a
// parse_error that carries the row. It builds no tree, copies no text and
// takes no encoding for granted; the views it hands out point into `text`.
//
//   auto error = html_parser::parser::parse(html, /*strict=*/false,
//       [](const html_parser::tag& t, const auto& open) { return true; });
//
// Script and style content is opaque: it runs up to "</script" or "</style",
// in any case, followed by something that can't continue a name. Void
// elements (br, img, hr, ...) open nothing and may have no end tag. With
// `strict`, every end tag must close the innermost open tag and nothing may
// be left open at the end; without it, the first end tag that doesn't fit
// stops the tracking of open tags for the rest of the text and the scan goes
// on. There is no recursion: nesting depth costs only the list's memory.
class TVBASE_EXPORT parser {
 public:
  // Empty after a complete parse. An empty handler throws
  // std::bad_function_call at the first element; an empty text calls nothing.
  [[nodiscard]] static std::optional<parse_error> parse(std::string_view text, bool strict,
                                                        const element_handler& handler);
};

extern template class TVBASE_EXPORT
    strict_function<bool(const tag&, const std::optional<std::vector<tag>>&)>;

}  // namespace html_parser

#endif  // TVBASE_HTML_PARSER_PARSER_H
