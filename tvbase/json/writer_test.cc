#include <tvbase/json/object.h>

#include <random>
#include <sstream>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include <tvbase/testing/exact_buffer.h>

#include "test_text.h"

namespace {

using json::object;
using strategy = json::object::escape_strategy;
using namespace std::string_literals;

using json::testing::shown;
// Texts to read lie in blocks of exactly their size (see exact_buffer.h).
using testing_support::exact_buffer;

// One unit under the three strategies.
TEST(JsonEscape, WritesEachUnitByItsStrategy) {
  struct row {
    wchar_t unit;
    const wchar_t* minimal;
    const wchar_t* surrogates;
    const wchar_t* non_ascii;
  };
  const row rows[] = {
      {0x08, L"\\b", L"\\b", L"\\b"},
      {0x09, L"\\t", L"\\t", L"\\t"},
      {0x0A, L"\\n", L"\\n", L"\\n"},
      {0x0C, L"\\f", L"\\f", L"\\f"},
      {0x0D, L"\\r", L"\\r", L"\\r"},
      {L'"', L"\\\"", L"\\\"", L"\\\""},
      {L'\\', L"\\\\", L"\\\\", L"\\\\"},
      {L'/', L"/", L"/", L"/"},
      {0x00, L"\\u0000", L"\\u0000", L"\\u0000"},
      {0x0B, L"\\u000B", L"\\u000B", L"\\u000B"},
      {0x1F, L"\\u001F", L"\\u001F", L"\\u001F"},
      {0x20, L" ", L" ", L" "},
      {0x7E, L"~", L"~", L"~"},
      {0x7F, L"\x7F", L"\x7F", L"\\u007F"},
      {0xE9, L"\xE9", L"\xE9", L"\\u00E9"},
      {0xD7FF, L"\xD7FF", L"\xD7FF", L"\\uD7FF"},
      {0xD800, L"\xD800", L"\\uD800", L"\\uD800"},
      {0xDBFF, L"\xDBFF", L"\\uDBFF", L"\\uDBFF"},
      {0xDFFF, L"\xDFFF", L"\\uDFFF", L"\\uDFFF"},
      {0xE000, L"\xE000", L"\xE000", L"\\uE000"},
      {0xFEFF, L"\xFEFF", L"\xFEFF", L"\\uFEFF"},
      {0xFFFF, L"\xFFFF", L"\xFFFF", L"\\uFFFF"},
  };
  for (const row& r : rows) {
    SCOPED_TRACE(static_cast<int>(r.unit));
    const std::wstring text(1, r.unit);
    EXPECT_EQ(object::escape(text, strategy::minimal), r.minimal);
    EXPECT_EQ(object::escape(text, strategy::surrogates), r.surrogates);
    EXPECT_EQ(object::escape(text, strategy::non_ascii), r.non_ascii);
    EXPECT_EQ(object::escape(text, static_cast<strategy>(7)), r.minimal);
    EXPECT_EQ(object::escape(text, static_cast<strategy>(-1)), r.minimal);
    // Written inside a value and as a key, the same forms appear.
    for (const strategy s : {strategy::minimal, strategy::surrogates, strategy::non_ascii}) {
      const std::wstring expected = object::escape(text, s);
      object value;
      value = std::wstring_view(text);
      EXPECT_EQ(value.to_string(s), L"\"" + expected + L"\"");
      object dict;
      dict[text] = true;
      EXPECT_EQ(dict.to_string(s), L"{\"" + expected + L"\":true}");
    }
  }
}

TEST(JsonEscape, TreatsEachUnitAlone) {
  struct row {
    std::wstring text;
    strategy how;
    std::wstring expected;
  };
  const row rows[] = {
      {L"", strategy::non_ascii, L""},
      {L"\xD83D\xDE00", strategy::minimal, L"\xD83D\xDE00"},
      {L"\xD83D\xDE00", strategy::surrogates, L"\\uD83D\\uDE00"},
      {L"\xD83D\xDE00", strategy::non_ascii, L"\\uD83D\\uDE00"},
      {L"a\xDE00z", strategy::surrogates, L"a\\uDE00z"},
      {L"caf\xE9 \"x\"\n", strategy::non_ascii, L"caf\\u00E9 \\\"x\\\"\\n"},
      {L"a\0b"s, strategy::minimal, L"a\\u0000b"},
      {L"</script>", strategy::non_ascii, L"</script>"},
  };
  for (const row& r : rows) {
    SCOPED_TRACE(shown(r.text));
    EXPECT_EQ(object::escape(r.text, r.how), r.expected);
  }
}

TEST(JsonUnescape, ReadsTheInsideOfAString) {
  struct row {
    std::wstring text;
    std::wstring expected;  // empty with `refused` set: throws
    bool refused;
  };
  const row rows[] = {
      {L"", L"", false},
      {L"plain", L"plain", false},
      {L"a\\u0041b", L"aAb", false},
      {L"\\u00e9\\u00E9", L"\xE9\xE9", false},
      {L"\\/", L"/", false},
      {L"\\\"", L"\"", false},
      {L"\\b\\f\\n\\r\\t\\\\", L"\b\f\n\r\t\\", false},
      {L"\\uD83D", L"\xD83D", false},
      {L"\\u0000", L"\0"s, false},
      {L"\x7F\xE9\xD83D\xDE00", L"\x7F\xE9\xD83D\xDE00", false},
      {L"x\\n", L"x\n", false},
      {L"a\"b", L"", true},
      {L"\"quoted\"", L"", true},
      {L"a\\", L"", true},
      {L"a\\q", L"", true},
      {L"\\u12G4", L"", true},
      {L"\\u12", L"", true},
      {L"\\U0041", L"", true},
      {L"tab\there", L"", true},
      {L"nul\0here"s, L"", true},
  };
  for (const row& r : rows) {
    SCOPED_TRACE(shown(r.text));
    const exact_buffer text{r.text};
    if (r.refused) {
      try {
        object::unescape(text.view());
        ADD_FAILURE() << "accepted";
      } catch (const std::invalid_argument& e) {
        EXPECT_STREQ(e.what(), "json::object::unescape() invalid string argument");
      }
    } else {
      EXPECT_EQ(object::unescape(text.view()), r.expected);
    }
  }
}

// Every text comes back from unescape(escape()), NUL units and lone
// surrogates included.
TEST(JsonUnescape, UndoesEscapeForAnyText) {
  std::mt19937 random(12345);
  const wchar_t alphabet[] = {0,      1,      0x08,   0x0A,   0x1F,   L' ',   L'"',
                              L'\\',  L'/',   L'a',   L'u',   0x7F,   0xE9,   0x2028,
                              0xD800, 0xD83D, 0xDBFF, 0xDC00, 0xDE00, 0xDFFF, 0xFFFF};
  std::uniform_int_distribution<std::size_t> pick(0, std::size(alphabet) - 1);
  std::uniform_int_distribution<std::size_t> length(0, 24);
  for (int round = 0; round < 2000; ++round) {
    std::wstring text(length(random), L' ');
    for (wchar_t& c : text) c = alphabet[pick(random)];
    for (const strategy s : {strategy::minimal, strategy::surrogates, strategy::non_ascii}) {
      const exact_buffer escaped{object::escape(text, s)};
      ASSERT_EQ(object::unescape(escaped.view()), text) << shown(text) << " strategy " << int(s);
      // And a string value written under any strategy reads back the same.
      object value;
      value = std::wstring_view(text);
      object again;
      ASSERT_FALSE(again.parse(value.to_string(s))) << shown(text);
      ASSERT_EQ(again.as_string(L"?"), text);
    }
  }
}

TEST(JsonSerialize, WritesTheCompactForm) {
  struct row {
    const char* what;
    object value;
    const wchar_t* expected;
  };
  object invalid_in_array;
  invalid_in_array[0] = json::number(L"1");
  invalid_in_array[1] = object::invalid_object;
  invalid_in_array[2] = json::number(L"2");
  object invalid_in_dict;
  invalid_in_dict[L"a"] = object::invalid_object;
  invalid_in_dict[L"b"] = true;
  object ordered;
  ordered[L"b"] = json::number(L"1");
  ordered[L"a"] = json::number(L"2");
  ordered[L"c"] = json::number(L"3");
  object one_null;
  one_null[0];
  object nested;
  nested[L"x"][2][L"y"] = std::wstring_view(L"z");
  const row rows[] = {
      {"invalid", object::invalid_object, L""},
      {"null", object(), L"null"},
      {"array with one null", one_null, L"[null]"},
      {"invalid inside an array", invalid_in_array, L"[1,,2]"},
      {"invalid inside a dictionary", invalid_in_dict, L"{\"a\":,\"b\":true}"},
      {"insertion order", ordered, L"{\"b\":1,\"a\":2,\"c\":3}"},
      {"made by writes", nested, L"{\"x\":[null,null,{\"y\":\"z\"}]}"},
  };
  for (const row& r : rows) {
    SCOPED_TRACE(r.what);
    EXPECT_EQ(r.value.to_string(), r.expected);
    std::wostringstream stream;
    r.value.serialize(stream, strategy::minimal);
    EXPECT_EQ(stream.str(), r.expected);
  }
}

// The stream form hands its text over in pieces; a large document must
// come out whole and equal to to_string().
TEST(JsonSerialize, StreamAndStringAgreeOnLargeDocuments) {
  object doc;
  for (unsigned int i = 0; i < 5000; ++i) {
    object& entry = doc[L"items"][i];
    entry[L"id"] = json::number(std::to_wstring(i));
    entry[L"name"] = std::wstring_view(L"n\xE9\"me\xD83D\xDE00");
    entry[L"tags"][1] = false;
  }
  // Runs longer than the writer's buffer, plain and escaped.
  // (Built by appending: GCC 12's fortified wmemcpy warns, wrongly, about
  // operator+ on a temporary here.)
  std::wstring long_run(9000, L'x');
  long_run += L'\n';
  long_run.append(5000, L'\xE9');
  doc[L"long"] = std::wstring_view(long_run);
  for (const strategy s : {strategy::minimal, strategy::surrogates, strategy::non_ascii}) {
    std::wostringstream stream;
    doc.serialize(stream, s);
    const std::wstring text = doc.to_string(s);
    EXPECT_EQ(stream.str(), text);
    object again;
    ASSERT_FALSE(again.parse(text));
    EXPECT_EQ(again.to_string(s), text);
    EXPECT_EQ(again(L"long").as_string(L""), long_run);
    EXPECT_EQ(again(L"items")(4999)(L"name").as_string(L""), L"n\xE9\"me\xD83D\xDE00");
  }
}

}  // namespace
