#ifndef TVBASE_JSON_PARSER_H
#define TVBASE_JSON_PARSER_H

// Internal: the reading state of json::object::parse(). Not installed.

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <tvbase/json/object.h>

namespace json {

// The reader of JSON text into a json::object: one pass, one unit of
// lookahead, recursion bounded by max_depth. Internal to the library; its
// failures travel as a thrown `exception` and never leave the library.
class parser {
 public:
  enum class exception : int {
    no_error = 0,
    expected_colon = 1,
    expected_closing_brace = 2,
    expected_closing_bracket = 3,
    expected_hex = 4,
    expected_quote = 5,
    expected_digit = 6,
    expected_end_of_file = 7,
    control_character = 8,
    invalid_escape = 9,
    unescaped_quote = 10,
    unexpected_character = 11,
    unexpected_end_of_file = 12,
    too_deep = 13,
  };

  static const char* message_of(exception e) noexcept;

  // The storage of a value, for the reader's writes in place.
  static auto& storage_of(object& value) noexcept { return value.value_; }

  explicit parser(std::wstring_view text) noexcept
      : cursor(text.data()), limit(text.data() + text.size()) {}

  wchar_t peek() const;
  void advance();
  void skip_whitespace();
  void parse_value(object& target);
  void parse_array(object& target);
  void parse_dictionary(object& target);
  void parse_string(std::wstring& out, bool quoted);
  std::wstring parse_number();
  void parse_number_value(object& target);
  void parse_literal(std::wstring_view word);

  std::uint32_t max_depth = 512;
  const wchar_t* cursor;
  const wchar_t* limit;
  std::uint32_t line = 1;
  std::uint32_t column = 1;
  std::uint32_t depth = 0;

 private:
  // Appends the string at the cursor to `out`; the fast inner loop of
  // parse_string.
  void read_string_body(std::wstring& out, bool quoted);
  // Inline: defined in parser.cc, the only place that calls it.
  inline void read_escape(std::wstring& out);
  wchar_t hex_digit();
  // Appends number text to `out`, as parse_number gives it.
  void read_number(std::wstring& out);
  [[noreturn]] static void raise(exception e);
  // After a value in a container: steps over a ',' and the white space
  // behind it and gives false, or over `close` and gives true; anything
  // else raises `otherwise`.
  bool next_or_close(wchar_t close, exception otherwise);

  // Finds a key among the entries of one dictionary being read: linearly in
  // a short one, through a hash table of their positions from kIndexedFrom
  // entries on, so that a dictionary of n keys costs O(n) comparisons rather
  // than O(n^2). One per nesting level, reused by the dictionaries read there.
  //
  // Keys come from the text, so they may be chosen to collide. The hash is
  // seeded once per process from the system's random source, so that keys
  // cannot be chosen against it from outside; should a search still run
  // longer than kLongSearch cells (keys that collide whatever the seed), the
  // table of that dictionary is refilled with SipHash-1-3 under a secret
  // key of the process, made for such inputs. Either way a dictionary of n
  // keys costs O(n) expected probes.
  class key_index {
   public:
    // Below this many entries a linear search costs less than hashing.
    static constexpr std::size_t kIndexedFrom = 1024;
    // A search this long means keys that collide on purpose.
    static constexpr std::size_t kLongSearch = 64;

    // Forgets the entries at once, whatever the table's size; keeps its storage.
    void clear() noexcept;
    // The value of `key` among entries[first, end), the earliest if it is
    // there more than once; else a null value appended with the key. The
    // entries must not change between calls but by the appends of this one.
    template <class Entries>
    object& slot(Entries& entries, std::size_t first, const std::wstring& key);
    // Cells looked at by searches and insertions so far, for tests.
    std::size_t probes() const noexcept { return probes_; }

   private:
    // A cell is in use when its stamp is the table's: clear() only moves on
    // the table's stamp.
    struct cell {
      std::size_t offset = 0;  // of the entry from first
      std::uint32_t hash = 0;  // of the key, as hash() gives it
      std::uint32_t stamp = 0;
    };
    bool used(const cell& c) const noexcept { return c.stamp == stamp_; }
    std::uint32_t hash(std::wstring_view key) const noexcept;
    template <class Entries>
    cell& find(Entries& entries, std::size_t first, std::wstring_view key, std::uint32_t hash);
    void add(std::uint32_t hash, std::size_t offset);
    template <class Entries>
    void refill_with_siphash(Entries& entries, std::size_t first);

    std::vector<cell> cells_;  // open addressing, a power of two, at most half full
    std::size_t indexed_ = 0;  // entries [first, first + indexed_) are in the table
    std::uint32_t stamp_ = 1;
    bool siphash_ = false;      // the table of this dictionary was refilled
    bool long_search_ = false;  // a search ran past kLongSearch
    std::size_t probes_ = 0;
  };

 public:
  // Cells that the key indices have looked at, for tests.
  std::size_t key_probes() const noexcept;
  // Replaces the seeded hash of every reader by `hash` (null: back to the
  // seeded one), for tests that need keys to collide. Not thread-safe.
  static void set_hash_for_testing(std::uint64_t (*hash)(std::wstring_view)) noexcept;

 private:
  // Reused for keys and string values, so a string costs one exact allocation.
  std::wstring scratch_;
  // key_indices_[d] serves the dictionaries read at depth d + 1.
  std::vector<key_index> key_indices_;
  // The elements and entries of the containers being read, one stretch per
  // open container. A container gets them, at their exact count, when it
  // closes or when reading fails inside it. Deques, so that a slot stays in
  // place while the values below it are read, and so that the stacks grow
  // in small blocks.
  std::deque<object> elements_;
  std::deque<std::pair<std::wstring, object>> entries_;
};

}  // namespace json

#endif  // TVBASE_JSON_PARSER_H
