#include <tvbase/json/object.h>
#include <tvbase/json/parser.h>

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <tvbase/testing/exact_buffer.h>

#include "test_text.h"

namespace {

using json::object;

// Wide text for traces; units above 0x7E are shown as \x{...}.
using json::testing::shown;
// Texts that the reader sees lie in blocks of exactly their size, so a read
// past the end of the view is reported under the address sanitizer.
using testing_support::exact_buffer;

struct error_row {
  std::wstring text;
  std::uint32_t line;
  std::uint32_t column;
  const char* message;
  const wchar_t* left;  // the target afterwards, read into a fresh value
};

void check_errors(const std::vector<error_row>& rows) {
  for (const error_row& r : rows) {
    SCOPED_TRACE(shown(r.text));
    object target;
    const exact_buffer text{r.text};
    const auto error = target.parse(text.view());
    ASSERT_TRUE(error);
    EXPECT_EQ(error->message, r.message);
    EXPECT_EQ(error->line, r.line);
    EXPECT_EQ(error->column, r.column);
    EXPECT_EQ(target.to_string(), r.left);
  }
}

const char* const kEnd = "unexpected end of file";
const char* const kChar = "encountered unexpected character";
const char* const kDigit = "expected a digit";
const char* const kEof = "expected end of file";

TEST(JsonParse, ReportsWhereAndWhy) {
  check_errors({
      {L"", 1, 1, kEnd, L"null"},
      {L"   ", 1, 4, kEnd, L"null"},
      {L"[1 2]", 1, 4, "expected a ']'", L"[1]"},
      {L"{\"a\" 1}", 1, 6, "expected a ':'", L"{}"},
      {L"{a:1}", 1, 2, "expected a '\"'", L"{}"},
      {L"{\"a\":1 \"b\":2}", 1, 8, "expected a '}'", L"{\"a\":1}"},
      {L"[1,]", 1, 4, kChar, L"[1,null]"},
      {L"{\"a\":1,}", 1, 8, "expected a '\"'", L"{\"a\":1}"},
      {L"1 2", 1, 3, kEof, L"1"},
      {L"01", 1, 2, kEof, L"0"},
      {L"[]]", 1, 3, kEof, L"[]"},
      {L"tru", 1, 4, kEnd, L"null"},
      {L"trux", 1, 4, kChar, L"null"},
      {L"True", 1, 1, kChar, L"null"},
      {L"nul", 1, 4, kEnd, L"null"},
      {L"falsy", 1, 5, kChar, L"null"},
      {L"nullx", 1, 5, kEof, L"null"},
      {L"+1", 1, 1, kChar, L"null"},
      {L".5", 1, 1, kChar, L"null"},
      {L"NaN", 1, 1, kChar, L"null"},
      {L"Infinity", 1, 1, kChar, L"null"},
      {L"-", 1, 2, kEnd, L"null"},
      {L"-x", 1, 2, kDigit, L"null"},
      {L"1.", 1, 3, kEnd, L"null"},
      {L"1.x", 1, 3, kDigit, L"null"},
      {L"1e", 1, 3, kEnd, L"null"},
      {L"1e+", 1, 4, kEnd, L"null"},
      {L"1ex", 1, 3, kDigit, L"null"},
      {L"-01", 1, 3, kEof, L"-0"},
      {L"\uFEFF1", 1, 1, kChar, L"null"},
      {L"\n\n  x", 3, 3, kChar, L"null"},
      {L"\"a\tb\"", 1, 3, "encountered literal control character in string", L"null"},
      {L"\"a\nb\"", 1, 3, "encountered literal control character in string", L"null"},
      {L"\"abc", 1, 5, kEnd, L"null"},
      {L"\"a\\qb\"", 1, 4, "encountered invalid escaped character", L"null"},
      {L"\"\\u12G4\"", 1, 6, "expected a hex value", L"null"},
      {L"\"\\u12", 1, 6, kEnd, L"null"},
      {L"\"\\", 1, 3, kEnd, L"null"},
      {L"'a'", 1, 1, kChar, L"null"},
      {L"[1,2", 1, 5, kEnd, L"[1,2]"},
      {L"{\"a\":", 1, 6, kEnd, L"{\"a\":null}"},
      {L"{\"a\"", 1, 5, kEnd, L"{}"},
      {L"{\"a\":1", 1, 7, kEnd, L"{\"a\":1}"},
  });
}

TEST(JsonParse, CountsColumnsInUtf16Units) {
  check_errors({
      // A character outside the basic plane is two units, paired or not.
      {L"\"\xD83D\xDE00\" x", 1, 6, kEof, L"\"\xD83D\xDE00\""},
      {L"[\"\xD83D\", \"\xDE00\xD83D\xDE00\"]x", 1, 13, kEof,
       L"[\"\xD83D\",\"\xDE00\xD83D\xDE00\"]"},
      {L"\"\x00E9\"x", 1, 4, kEof, L"\"\x00E9\""},
      // A carriage return is a plain unit; only a line feed starts a line.
      {L"[1,\r\n 2,\r\n x]", 3, 2, kChar, L"[1,2,null]"},
      {L"\r\rx", 1, 3, kChar, L"null"},
      {L"\t\tx", 1, 3, kChar, L"null"},
      {L"{\n\"a\"\n:\n1\n,\n}", 6, 1, "expected a '\"'", L"{\"a\":1}"},
  });
  // Runs of blanks of every length around the eight taken at once, alone,
  // behind a line feed, and broken by a tab.
  std::vector<error_row> rows;
  for (std::uint32_t n = 0; n <= 26; ++n) {
    const std::wstring blanks(n, L' ');
    rows.push_back({L"[" + blanks + L"x", 1, n + 2, kChar, L"[null]"});
    rows.push_back({L"[\n" + blanks + L"x", 2, n + 1, kChar, L"[null]"});
    rows.push_back({L"[" + blanks + L"\t" + blanks + L"x", 1, 2 * n + 3, kChar, L"[null]"});
  }
  check_errors(rows);
}

TEST(JsonParse, NulEndsTheInputWhereverItStands) {
  using namespace std::string_literals;
  check_errors({
      {L"\"a\0b\""s, 1, 3, kEnd, L"null"},
      {L"[1,\0 2]"s, 1, 4, kEnd, L"[1]"},  // before the slot is made
      {L"[5\0]"s, 1, 3, kEnd, L"[null]"},
      {L"5\0"s, 1, 2, kEnd, L"null"},
      {L"1.5\0"s, 1, 4, kEnd, L"null"},
      {L"0\0"s, 1, 2, kEnd, L"null"},
      {L"1e5\0"s, 1, 4, kEnd, L"null"},
      {L"true \0"s, 1, 6, kEnd, L"true"},
      {L"\0"s, 1, 1, kEnd, L"null"},
      {L"tr\0ue"s, 1, 3, kEnd, L"null"},
      {L"\"\\\0\""s, 1, 3, kEnd, L"null"},
      {L"\"\\u0\0\""s, 1, 5, kEnd, L"null"},
  });
  // The escape \u0000 is a NUL inside the string, and fine.
  object value;
  ASSERT_FALSE(value.parse(L"\"a\\u0000b\""));
  EXPECT_EQ(value.as_string(L""), L"a\0b"s);
}

TEST(JsonParse, ErrorsInNestedContainersLeaveWhatWasRead) {
  check_errors({
      {L"{\"a\":[1,{\"b\":", 1, 14, kEnd, L"{\"a\":[1,{\"b\":null}]}"},
      {L"[[[1,2],[3,x", 1, 12, kChar, L"[[[1,2],[3,null]]]"},
      {L"{\"a\":{\"b\":1}\"c\"", 1, 13, "expected a '}'", L"{\"a\":{\"b\":1}}"},
      {L"[{\"a\":[true,fals]}]", 1, 17, kChar, L"[{\"a\":[true,null]}]"},
      {L"[\"ok\",\"bad\\x\"]", 1, 12, "encountered invalid escaped character", L"[\"ok\",null]"},
      {L"{\"k\":[1,2],\"k\":[3,", 1, 19, kEnd, L"{\"k\":[3,null]}"},
  });
}

TEST(JsonParse, StopsAt512Levels) {
  for (const bool arrays : {true, false}) {
    for (const int depth : {1, 511, 512, 513, 600}) {
      SCOPED_TRACE(std::to_string(depth) + (arrays ? " arrays" : " dictionaries"));
      std::wstring text;
      for (int i = 0; i < depth; ++i) text += arrays ? L"[" : L"{\"\":";
      text += L"7";
      for (int i = 0; i < depth; ++i) text += arrays ? L"]" : L"}";
      object value;
      const auto error = value.parse(text);
      if (depth <= 512) {
        ASSERT_FALSE(error) << error->message;
        EXPECT_EQ(value.to_string(), text);
      } else {
        ASSERT_TRUE(error);
        EXPECT_EQ(error->message, "too deeply nested");
        EXPECT_EQ(error->column, arrays ? 513u : 512u * 4 + 1);
      }
    }
  }
  // Mixed containers count alike.
  std::wstring mixed;
  for (int i = 0; i < 257; ++i) mixed += L"[{\"a\":";
  object value;
  const auto error = value.parse(mixed);
  ASSERT_TRUE(error);
  EXPECT_EQ(error->message, "too deeply nested");
  EXPECT_EQ(error->column, 256u * 6 + 1);
}

TEST(JsonParse, ReadsScalarsAndNormalisesExponents) {
  struct row {
    const wchar_t* text;
    const wchar_t* written;
  };
  const row rows[] = {
      {L"12", L"12"},
      {L"\"x\"", L"\"x\""},
      {L"true", L"true"},
      {L"false", L"false"},
      {L"null", L"null"},
      {L" \t\r\n 1 \n", L"1"},
      {L"-0", L"-0"},
      {L"0.10", L"0.10"},
      {L"1.50", L"1.50"},
      {L"1E5", L"1e+5"},
      {L"2.5E-3", L"2.5e-3"},
      {L"1e+05", L"1e+05"},
      {L"1e999", L"1e+999"},
      {L"-0.0e0", L"-0.0e+0"},
      {L"[1E2,{\"a\":2e-2}]", L"[1e+2,{\"a\":2e-2}]"},
      {L"\"\\\"\\\\\\/\\b\\f\\n\\r\\t\"", L"\"\\\"\\\\/\\b\\f\\n\\r\\t\""},
      {L"\"\\u0041\\u00e9\\u00E9\"", L"\"A\x00E9\x00E9\""},
      {L"\"\\uD83D\\uDE00\\uDE00\"", L"\"\xD83D\xDE00\xDE00\""},
      {L"\"\x7F\"", L"\"\x7F\""},
      {L"{\"\":0}", L"{\"\":0}"},
      {L"[ ]", L"[]"},
      {L"{ }", L"{}"},
      {L"[ 1 , [ ] , { } ]", L"[1,[],{}]"},
  };
  for (const row& r : rows) {
    SCOPED_TRACE(shown(r.text));
    object value;
    const exact_buffer text{r.text};
    const auto error = value.parse(text.view());
    ASSERT_FALSE(error) << error->message;
    EXPECT_EQ(value.to_string(), r.written);
    // What was written reads back to the same tree.
    object again;
    ASSERT_FALSE(again.parse(value.to_string()));
    EXPECT_EQ(again.to_string(), r.written);
  }
}

TEST(JsonParse, ReadsOverWhatTheTargetHolds) {
  struct row {
    const wchar_t* before;
    const wchar_t* text;
    const wchar_t* after;
  };
  const row rows[] = {
      {L"{\"a\":1}", L"{\"b\":2}", L"{\"a\":1,\"b\":2}"},
      {L"{\"a\":1,\"b\":2}", L"{\"b\":3}", L"{\"a\":1,\"b\":3}"},
      {L"[1,2,3]", L"[]", L"[1,2,3]"},
      {L"{\"a\":1}", L"{}", L"{\"a\":1}"},
      {L"[1,2,3]", L"5", L"5"},
      {L"{\"a\":1}", L"\"s\"", L"\"s\""},
      {L"[1,2,3]", L"[9]", L"[9]"},
      {L"[1]", L"[7,8,9]", L"[7,8,9]"},
      {L"[{\"x\":1},{\"y\":1}]", L"[{\"z\":1},{\"w\":1}]", L"[{\"x\":1,\"z\":1},{\"w\":1}]"},
      {L"[[1,2],3]", L"[[]]", L"[[1,2]]"},
      {L"[[1,2],3]", L"[[5]]", L"[[5]]"},
      {L"[1,[2,3]]", L"[[4]]", L"[[4]]"},
      {L"{\"a\":[1,2]}", L"{\"a\":[]}", L"{\"a\":[1,2]}"},
      {L"{\"a\":{\"p\":1}}", L"{\"a\":{\"q\":2}}", L"{\"a\":{\"p\":1,\"q\":2}}"},
      {L"\"s\"", L"[1]", L"[1]"},
      {L"5", L"{\"a\":1}", L"{\"a\":1}"},
      {L"[1]", L"{\"a\":1}", L"{\"a\":1}"},
      {L"{\"a\":1}", L"[1]", L"[1]"},
      {L"true", L"null", L"null"},
      // Repeated keys follow the same rules, at any depth.
      {L"null", L"{\"a\":1,\"a\":2}", L"{\"a\":2}"},
      {L"null", L"{\"a\":1,\"b\":2,\"a\":3}", L"{\"a\":3,\"b\":2}"},
      {L"null", L"{\"a\":{\"x\":1},\"a\":{\"y\":2}}", L"{\"a\":{\"x\":1,\"y\":2}}"},
      {L"null", L"{\"a\":[1,2,3],\"a\":[9]}", L"{\"a\":[9]}"},
      {L"null", L"{\"a\":[1,2],\"a\":[]}", L"{\"a\":[1,2]}"},
      {L"null", L"{\"x\":{\"a\":{\"p\":1},\"b\":0,\"a\":{\"q\":2}}}",
       L"{\"x\":{\"a\":{\"p\":1,\"q\":2},\"b\":0}}"},
      {L"null", L"[{\"a\":1,\"a\":[{\"b\":1,\"b\":2}]}]", L"[{\"a\":[{\"b\":2}]}]"},
  };
  for (const row& r : rows) {
    SCOPED_TRACE(shown(r.before) + " <- " + shown(r.text));
    object value;
    ASSERT_FALSE(value.parse(r.before));
    const exact_buffer text{r.text};
    const auto error = value.parse(text.view());
    ASSERT_FALSE(error) << error->message;
    EXPECT_EQ(value.to_string(), r.after);
  }
  // A failure while reading over keeps what was there and what was read.
  object value;
  ASSERT_FALSE(value.parse(L"{\"a\":1,\"b\":2}"));
  ASSERT_TRUE(value.parse(L"{\"b\":[1,"));
  EXPECT_EQ(value.to_string(), L"{\"a\":1,\"b\":[1,null]}");
  ASSERT_TRUE(value.parse(L"7x"));
  EXPECT_EQ(value.to_string(), L"7");
}

TEST(JsonParse, EveryExceptionHasItsMessage) {
  using e = json::parser::exception;
  const std::pair<e, const char*> rows[] = {
      {e::no_error, "valid json"},
      {e::expected_colon, "expected a ':'"},
      {e::expected_closing_brace, "expected a '}'"},
      {e::expected_closing_bracket, "expected a ']'"},
      {e::expected_hex, "expected a hex value"},
      {e::expected_quote, "expected a '\"'"},
      {e::expected_digit, "expected a digit"},
      {e::expected_end_of_file, "expected end of file"},
      {e::control_character, "encountered literal control character in string"},
      {e::invalid_escape, "encountered invalid escaped character"},
      {e::unescaped_quote, "encountered unescaped quote"},
      {e::unexpected_character, "encountered unexpected character"},
      {e::unexpected_end_of_file, "unexpected end of file"},
      {e::too_deep, "too deeply nested"},
      {static_cast<e>(14), "oops"},
      {static_cast<e>(-1), "oops"},
  };
  for (const auto& [value, message] : rows) {
    SCOPED_TRACE(static_cast<int>(value));
    EXPECT_STREQ(json::parser::message_of(value), message);
  }
}

TEST(JsonParse, UnquotedStringModeRefusesAQuote) {
  json::parser reader(L"ab\"c");
  std::wstring out;
  try {
    reader.parse_string(out, false);
    FAIL() << "no exception";
  } catch (json::parser::exception e) {
    EXPECT_EQ(e, json::parser::exception::unescaped_quote);
    EXPECT_EQ(reader.column, 3u);
  }
}

TEST(JsonNumberText, AcceptsExactlyOneNumber) {
  struct row {
    const wchar_t* text;
    const wchar_t* normal;  // nullptr: refused
  };
  const row rows[] = {
      {L"0", L"0"},        {L"-0.50", L"-0.50"},
      {L"1E5", L"1e+5"},   {L"1e5", L"1e+5"},
      {L"1E-5", L"1e-5"},  {L"12345678901234567890123", L"12345678901234567890123"},
      {L"", nullptr},      {L" 1", nullptr},
      {L"1 ", nullptr},    {L"+1", nullptr},
      {L".5", nullptr},    {L"1.", nullptr},
      {L"1e", nullptr},    {L"01", nullptr},
      {L"0x10", nullptr},  {L"inf", nullptr},
      {L"nan", nullptr},   {L"-", nullptr},
      {L"1.5.2", nullptr}, {L"\"1\"", nullptr},
  };
  for (const row& r : rows) {
    SCOPED_TRACE(shown(r.text));
    const exact_buffer text{r.text};
    if (r.normal) {
      EXPECT_EQ(json::functions::wstring_to_number_wstring(text.view()), r.normal);
    } else {
      try {
        json::functions::wstring_to_number_wstring(text.view());
        ADD_FAILURE() << "accepted";
      } catch (const std::invalid_argument& e) {
        EXPECT_STREQ(e.what(), "json::number= invalid string argument");
      }
    }
  }
  using namespace std::string_literals;
  EXPECT_THROW(json::functions::wstring_to_number_wstring(L"1\0"s), std::invalid_argument);
}

// ---------------------------------------------------------------------------
// Former bugs. Each test is named for a fault that the JSON model had, and
// says what broke.

// as_uint looked for the minus in the first unit only, so the number text
// " -1" threw out_of_range instead of wrapping as a 32-bit stoul does.
TEST(JsonFormerBugs, AsUintFindsTheSignBehindBlanks) {
  struct row {
    const wchar_t* text;
    std::optional<unsigned int> expected;  // empty: out_of_range
  };
  const row rows[] = {
      {L"-1", 4294967295u},           {L" -1", 4294967295u},
      {L"\t\n-5", 4294967291u},       {L" 7", 7u},
      {L" -4294967295", 1u},          {L" -4294967296", std::nullopt},
      {L" 4294967296", std::nullopt},
  };
  for (const row& r : rows) {
    SCOPED_TRACE(shown(r.text));
    object value;
    value = json::number(r.text);
    if (r.expected) {
      EXPECT_EQ(value.as_uint(0), *r.expected);
    } else {
      EXPECT_THROW(static_cast<void>(value.as_uint(0)), std::out_of_range);
    }
  }
}

// The reader searched a dictionary linearly for every key it read, so 100,000
// keys took 19 s. The key index that replaced the search must still send a
// repeated key to its earliest entry, also among entries that the dictionary
// held before the read.
TEST(JsonFormerBugs, KeyIndexSendsARepeatToItsEarliestEntry) {
  constexpr unsigned int kKeys = 5000;  // well past the size where the index starts
  const auto key = [](unsigned int i) { return L"\"k" + std::to_wstring(i) + L"\""; };
  std::wstring before = L"{";
  for (unsigned int i = 0; i < kKeys; ++i) before += key(i) + L":0,";
  before.back() = L'}';
  // The text repeats an old key twice, adds new keys and repeats one of them.
  std::wstring text = L"{" + key(7) + L":1," + key(kKeys) + L":2," + key(4321) + L":3,";
  for (unsigned int i = kKeys + 1; i < 2 * kKeys; ++i) text += key(i) + L":4,";
  text += key(7) + L":5," + key(kKeys) + L":6}";
  object value;
  ASSERT_FALSE(value.parse(before));
  const exact_buffer exact{text};
  ASSERT_FALSE(value.parse(exact.view()));
  std::vector<std::wstring> keys;
  value.foreach([&](const std::wstring& k, const object&) {
    keys.push_back(k);
    return true;
  });
  ASSERT_EQ(keys.size(), 2u * kKeys) << "a repeated key adds no entry";
  for (unsigned int i = 0; i < 2 * kKeys; ++i) ASSERT_EQ(L"\"" + keys[i] + L"\"", key(i)) << i;
  EXPECT_EQ(value(L"k7").as_int(0), 5);
  EXPECT_EQ(value(L"k4321").as_int(0), 3);
  EXPECT_EQ(value(std::to_wstring(kKeys).insert(0, L"k")).as_int(0), 6);
  EXPECT_EQ(value(L"k8").as_int(-1), 0);
}

}  // namespace
