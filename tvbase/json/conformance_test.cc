// A corpus of JSON texts that a strict reader must accept or refuse. Accepted
// texts must also survive a write and a second read unchanged. Each text lies
// in a block of exactly its size, so a read past its end is reported under the
// address sanitizer.
#include <tvbase/json/object.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <tvbase/testing/exact_buffer.h>

#include "test_text.h"

namespace {

using json::object;
using namespace std::string_literals;

using json::testing::shown;

const std::vector<std::wstring>& accepted() {
  static const std::vector<std::wstring> texts = {
      L"[]",
      L"{}",
      L"[[]]",
      L"[{}]",
      L"{\"a\":[]}",
      L"[null]",
      L"[true]",
      L"[false]",
      L"0",
      L"-0",
      L"1",
      L"-1",
      L"123",
      L"0.0",
      L"-0.0",
      L"1.5",
      L"1e1",
      L"1E1",
      L"1e+1",
      L"1e-1",
      L"1E+1",
      L"1E-1",
      L"0e0",
      L"-0E-0",
      L"1.0e10",
      L"123456789012345678901234567890",
      L"1e-999999",
      L"0.000000000000000000000000001",
      L"[-1,2.5,3e3]",
      L"\"\"",
      L"\" \"",
      L"\"\\u0000\"",
      L"\"\\uFFFF\"",
      L"\"\\uD834\\uDD1E\"",
      L"\"\\uDD1E\\uD834\"",
      L"\"\\uD800\"",
      L"\"\\u00Ff\"",
      L"\"\\\\u0041\"",
      L"\"\\/\\\\\\\"\"",
      L"\"\x7F\x80\xFFFF\"",
      L"\"\x2028\x2029\"",
      L"\"\xD83D\"",
      L"\"\xDE00\xD83D\"",
      L"\"a/*b*/c\"",
      L"\"[\"",
      L"\"{\"",
      L"{\"a\":1,\"b\":2}",
      L"{\"a\":{\"a\":{\"a\":{}}}}",
      L"{\"\":\"\"}",
      L"{\"\\u0000\":1}",
      L"{\"a\":1,\"a\":1}",
      L"{\"x\":[1,{\"y\":[true,false,null]}]}",
      L" [ 1 , 2 ] ",
      L"\t\n\r [\t\n\r 1\t\n\r ]\t\n\r ",
      L"\n{\n\"a\"\n:\n1\n}\n",
      L"[1,[2,[3,[4,[5]]]]]",
      L"[\"a\",\"b\",\"c\"]",
      L"{\"k\":\"\\b\\f\\n\\r\\t\"}",
      L"[0,-0,0.5,-0.5,5e5,-5E-5]",
      L"true",
      L"false",
      L"null",
      L"\"x\"",
  };
  return texts;
}

const std::vector<std::wstring>& refused() {
  static const std::vector<std::wstring> texts = {
      // structure
      L"",
      L" ",
      L"[",
      L"]",
      L"{",
      L"}",
      L"[}",
      L"{]",
      L"[1",
      L"[1,",
      L"[1,]",
      L"[,1]",
      L"[,]",
      L"[1,,2]",
      L"[1 2]",
      L"[1:2]",
      L"[][]",
      L"[]x",
      L"{}{}",
      L"{\"a\"}",
      L"{\"a\":}",
      L"{\"a\":1,}",
      L"{,\"a\":1}",
      L"{\"a\" \"b\"}",
      L"{\"a\"::1}",
      L"{\"a\":1 \"b\":2}",
      L"{1:1}",
      L"{null:1}",
      L"{'a':1}",
      L"{a:1}",
      L"[1]]",
      L"{\"a\":1}}",
      L"[\"a\" \"b\"]",
      L"[\"a\":1]",
      L"{\"a\",1}",
      L"[1;2]",
      // literals
      L"nul",
      L"nulll",
      L"NULL",
      L"True",
      L"tRue",
      L"fals",
      L"falsee",
      L"[truth]",
      L"undefined",
      L"nil",
      L"None",
      // numbers
      L"+1",
      L"01",
      L"-01",
      L"00",
      L"1.",
      L"-1.",
      L".1",
      L"-.1",
      L"1.e1",
      L"1e",
      L"1e+",
      L"1e-",
      L"1E",
      L"1ee1",
      L"1e1.5",
      L"- 1",
      L"--1",
      L"0x1",
      L"0X1",
      L"1_000",
      L"1,000",
      L"NaN",
      L"-NaN",
      L"Infinity",
      L"-Infinity",
      L"inf",
      L"1.5.2",
      L"\xFF11",
      L"[012]",
      L"[1e]",
      L"[-]",
      L"[.5]",
      L"[5.]",
      // strings
      L"\"",
      L"\"abc",
      L"'abc'",
      L"\"\\\"",
      L"\"\\a\"",
      L"\"\\x41\"",
      L"\"\\U0041\"",
      L"\"\\u41\"",
      L"\"\\u004\"",
      L"\"\\u004G\"",
      L"\"\\uZZZZ\"",
      L"\"\\\"",
      L"\"\\'\"",
      L"\"\\0\"",
      L"\"a\tb\"",
      L"\"a\nb\"",
      L"\"a\rb\"",
      L"\"\x01\"",
      L"\"\x1F\"",
      L"\"a\0b\""s,
      L"[\"a\"\0]"s,
      L"\"\\u00\0\""s,
      L"\"abc\"\"",
      L"\"a\" \"b\"",
      // white space that JSON does not have, and other noise
      L"\xFEFF[]",
      L"[\xA0]",
      L"[\x0B 1]",
      L"[\x0C 1]",
      L"[1]\x2028",
      L"// c\n[]",
      L"/* c */[]",
      L"[1]//",
      L"#[]",
      L"[1]\0"s,
      L"\0"s,
      L"[1] x",
  };
  return texts;
}

TEST(JsonConformance, AcceptsValidTexts) {
  for (const std::wstring& text : accepted()) {
    SCOPED_TRACE(shown(text));
    object value;
    const testing_support::exact_buffer exact{text};
    const auto error = value.parse(exact.view());
    ASSERT_FALSE(error) << error->message << " at " << error->column;
    const std::wstring written = value.to_string();
    object again;
    ASSERT_FALSE(again.parse(written));
    EXPECT_EQ(again.to_string(), written);
  }
}

TEST(JsonConformance, RefusesInvalidTexts) {
  for (const std::wstring& text : refused()) {
    SCOPED_TRACE(shown(text));
    object value;
    const testing_support::exact_buffer exact{text};
    const auto error = value.parse(exact.view());
    ASSERT_TRUE(error);
    EXPECT_GE(error->line, 1u);
    EXPECT_GE(error->column, 1u);
    // The position lies within the text or one past its end.
    EXPECT_LE(error->column, text.size() + 1);
    EXPECT_FALSE(error->message.empty());
    EXPECT_NE(error->message, "oops");
    // Whatever was read so far is a usable value.
    object again;
    EXPECT_FALSE(again.parse(value.to_string().empty() ? L"null" : value.to_string()));
  }
}

}  // namespace
