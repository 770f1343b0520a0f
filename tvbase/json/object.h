#ifndef TVBASE_JSON_OBJECT_H
#define TVBASE_JSON_OBJECT_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include <tvbase/export.h>

namespace json {

// A JSON number kept as its text, so that a value passes through reading and
// writing with no loss of range or precision. `text` is what the document
// had (with the exponent as `e`, a sign and digits), or what one of the two
// `json::functions` made; a default number is "0".
struct TVBASE_EXPORT number {
  number() : text(L"0") {}
  explicit number(std::wstring text) : text(std::move(text)) {}

  std::wstring text;
};

// Makes number text from outside a document.
class TVBASE_EXPORT functions {
 public:
  // `value` formatted as "{:0.15g}": 15 significant digits, fixed or
  // exponent form by size, e.g. 1e-05, 0.333333333333333, 1e+21. NaN and the
  // infinities give "nan" and "inf", which are no valid number text.
  static std::wstring double_to_number_wstring(double value);
  // `text` checked to be exactly one JSON number, with no white space
  // around it, and given back with its exponent in normal form ("1E5" gives
  // "1e+5"). Throws std::invalid_argument for anything else.
  static std::wstring wstring_to_number_wstring(std::wstring_view text);

  functions& operator=(const functions&) { return *this; }
  functions& operator=(functions&&) noexcept { return *this; }
};

namespace detail {

// What a value that holds nothing (the invalid value) holds.
struct invalid_value {};

// Number text of up to 31 ASCII units, held in the value itself: the
// numbers of a document cost no allocation. Longer number text, and number
// text with other units, is a json::number.
struct short_number {
  static constexpr std::size_t kMax = 31;
  std::uint8_t size = 0;
  char text[kMax];
};

}  // namespace detail

// One JSON value of any kind, owning its whole subtree; a document is a tree
// of these. Wide text holds one UTF-16 code unit per wchar_t.
//
// Reads never fail: get(), operator() and the as_* family change nothing,
// and whatever is missing or of another type reads as `invalid_object` or
// gives the caller's fallback, so a chain of reads needs no checks between
// its steps. Writes create what is missing: operator[], the assignments,
// null(), empty_array() and empty_object() force the value to the type they
// need and drop what was there. operator[](index) resizes the array to
// exactly index + 1 elements, shrinking it too. Dictionaries keep insertion
// order and look keys up linearly.
//
// parse() reads strict JSON (nesting limit 512) into this value, over what
// it already holds, and returns the line, column (in UTF-16 units) and
// message of a syntax error. Number texts that don't fit make the numeric
// as_* reads throw std::out_of_range. Copying, destroying and writing work
// without recursion, so values of any depth are safe.
//
//   json::object doc;
//   if (auto err = doc.parse(LR"({"a":[1,2.5,"x"]})")) { /* err->line ... */ }
//   int n = doc(L"a")(0).as_int(-1);          // 1
//   doc[L"b"][2] = true;                      // {"a":[...],"b":[null,null,true]}
//   std::wstring out = doc.to_string();
class TVBASE_EXPORT object {
 public:
  enum class type : int {
    invalid = 0,
    null = 1,
    number = 2,
    string = 3,
    boolean = 4,
    dictionary = 5,
    array = 6,
  };

  // Which units escape() writes as \uXXXX besides those JSON requires. Any
  // value other than these three acts as `minimal`.
  enum class escape_strategy : int {
    minimal = 0,     // none
    surrogates = 1,  // 0xD800-0xDFFF
    non_ascii = 2,   // 0x7F-0xFFFF
  };

  // Where and why parse() failed. `column` counts UTF-16 units from 1.
  struct error {
    std::uint32_t line = 0;
    std::uint32_t column = 0;
    std::string message;
  };

  using array_type = std::vector<object>;
  using dictionary_type = std::vector<std::pair<std::wstring, object>>;

  // The shared invalid value that reads give for whatever is missing.
  static const object invalid_object;

  // A null value (not an invalid one).
  object() noexcept : value_(std::in_place_index<1>, nullptr) {}
  object(const object& other);
  // Leaves `other` invalid.
  object(object&& other) noexcept;
  ~object();

  // Assignments copy the source first, so it may lie inside this value.
  object& operator=(const object& other);
  object& operator=(object&& other) noexcept;
  object& operator=(const number& value);
  object& operator=(std::wstring_view text);
  object& operator=(const bool& value);

  type get_type() const noexcept;
  bool is_invalid() const noexcept { return get_type() == type::invalid; }
  bool is_null() const noexcept { return get_type() == type::null; }
  bool is_number() const noexcept { return get_type() == type::number; }
  bool is_string() const noexcept { return get_type() == type::string; }
  bool is_boolean() const noexcept { return get_type() == type::boolean; }
  bool is_dictionary() const noexcept { return get_type() == type::dictionary; }
  bool is_array() const noexcept { return get_type() == type::array; }

  // The element or entry, or invalid_object if there is none.
  const object& get(unsigned int index) const noexcept;
  const object& get(std::wstring_view key) const noexcept;
  const object& operator()(unsigned int index) const noexcept { return get(index); }
  const object& operator()(std::wstring_view key) const noexcept { return get(key); }

  // The stored value if the type matches, else the fallback. The numeric
  // reads convert the number text as std::stod, std::stoi, std::stoul,
  // std::stoll and std::stoull do (integers stop at '.' or 'e') and throw
  // std::out_of_range when it does not fit the result type.
  bool as_bool(bool fallback) const noexcept;
  double as_double(double fallback) const;
  int as_int(int fallback) const;
  unsigned int as_uint(unsigned int fallback) const;
  long long as_int64(long long fallback) const;
  unsigned long long as_uint64(unsigned long long fallback) const;
  std::wstring as_string(std::wstring_view fallback) const;
  std::wstring as_number_string(std::wstring_view fallback) const;

  object& null() noexcept;
  // Keep an array (or dictionary) as it is; make anything else an empty one.
  object& empty_array();
  object& empty_object();
  // Makes this an array of exactly index + 1 elements (new ones null, those
  // above index destroyed) and returns element `index`. `index` must be
  // below the largest unsigned int.
  object& operator[](unsigned int index);
  // Makes this a dictionary and returns the value of `key`, appending the
  // entry with a null value if it is new.
  object& operator[](std::wstring_view key);

  // Calls `fn` per entry or element in order until it returns false. Does
  // nothing for a value of another type. The array walk re-reads the length
  // after each call; entries must not be added during a dictionary walk.
  void foreach(std::function<bool(const std::wstring&, object&)> fn);
  void foreach(std::function<bool(const std::wstring&, const object&)> fn) const;
  void foreach(std::function<bool(unsigned int, object&)> fn);
  void foreach(std::function<bool(unsigned int, const object&)> fn) const;

  // Reads `text` into this value: containers are read over what they
  // already hold (see the class comment). On a syntax error the value is
  // left as far as reading got, and the error is returned. A NUL unit acts
  // as the end of the input. The time is linear in the text, for texts
  // made to be slow too: unlike operator[], the reader finds a key among
  // many (from 1,024 in one dictionary) through a hash index, whose hash is
  // seeded once per process from the system's random source, so that keys
  // cannot be chosen from outside to collide; keys that collide whatever the
  // seed make the dictionary's index start again under SipHash with a
  // secret key. Which key a repeat reads over, and the order of entries, do
  // not depend on the hash.
  [[nodiscard]] std::optional<error> parse(std::wstring_view text);

  // The compact JSON text: no white space, entries in stored order, numbers
  // as their text. An invalid value writes nothing, inside a container too.
  void serialize(std::wostream& out, escape_strategy strategy = escape_strategy::minimal) const;
  std::wstring to_string(escape_strategy strategy = escape_strategy::minimal) const;

  // `text` as the inside of a JSON string. Upper-case hex digits; the slash
  // is never escaped.
  static std::wstring escape(std::wstring_view text,
                             escape_strategy strategy = escape_strategy::minimal);
  // The reverse of escape(); throws std::invalid_argument for text that is
  // no valid inside of a JSON string (raw quote, control unit, NUL, bad or
  // cut escape).
  static std::wstring unescape(std::wstring_view text);

 protected:
  // An invalid value, whatever the argument: the state of invalid_object.
  explicit constexpr object(bool) noexcept : value_() {}

 private:
  friend class parser;
  friend class writer;

  // The alternatives in the order of `type`, then the short number form.
  using storage = std::variant<detail::invalid_value, std::nullptr_t, number, std::wstring, bool,
                               dictionary_type, array_type, detail::short_number>;

  // A deep copy of `value`, made without recursion.
  static storage copy_value(const storage& value);
  // Destroys what `value` holds without recursion and leaves it invalid.
  static void drop_value(storage& value) noexcept;

  storage value_;
};

}  // namespace json

#endif  // TVBASE_JSON_OBJECT_H
