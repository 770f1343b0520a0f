#include <tvbase/json/object.h>

#include <cmath>
#include <functional>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "test_text.h"

namespace {

using json::object;
using type = json::object::type;

object read(std::wstring_view text) {
  object value;
  const auto error = value.parse(text);
  EXPECT_FALSE(error) << error->message << " at column " << error->column;
  return value;
}

using json::testing::shown;

TEST(JsonObject, TypesKeepTheirNumbers) {
  EXPECT_EQ(static_cast<int>(type::invalid), 0);
  EXPECT_EQ(static_cast<int>(type::null), 1);
  EXPECT_EQ(static_cast<int>(type::number), 2);
  EXPECT_EQ(static_cast<int>(type::string), 3);
  EXPECT_EQ(static_cast<int>(type::boolean), 4);
  EXPECT_EQ(static_cast<int>(type::dictionary), 5);
  EXPECT_EQ(static_cast<int>(type::array), 6);
}

TEST(JsonObject, EachWriteGivesItsType) {
  struct row {
    const char* what;
    std::function<void(object&)> write;
    type expected;
  };
  const row rows[] = {
      {"null()", [](object& o) { o.null(); }, type::null},
      {"number", [](object& o) { o = json::number(); }, type::number},
      {"string", [](object& o) { o = std::wstring_view(L"x"); }, type::string},
      {"empty string", [](object& o) { o = std::wstring_view(); }, type::string},
      {"bool", [](object& o) { o = true; }, type::boolean},
      {"empty_object()", [](object& o) { o.empty_object(); }, type::dictionary},
      {"key", [](object& o) { o[L"k"]; }, type::dictionary},
      {"empty_array()", [](object& o) { o.empty_array(); }, type::array},
      {"index", [](object& o) { o[0]; }, type::array},
      {"invalid_object", [](object& o) { o = object::invalid_object; }, type::invalid},
  };
  for (const row& r : rows) {
    SCOPED_TRACE(r.what);
    // From a fresh value and over a value of every other kind.
    for (const wchar_t* before : {L"null", L"5", L"\"s\"", L"true", L"{\"a\":[1]}", L"[[1],2]"}) {
      object value = read(before);
      r.write(value);
      EXPECT_EQ(value.get_type(), r.expected) << shown(before);
      EXPECT_EQ(value.is_invalid(), r.expected == type::invalid);
      EXPECT_EQ(value.is_null(), r.expected == type::null);
      EXPECT_EQ(value.is_number(), r.expected == type::number);
      EXPECT_EQ(value.is_string(), r.expected == type::string);
      EXPECT_EQ(value.is_boolean(), r.expected == type::boolean);
      EXPECT_EQ(value.is_dictionary(), r.expected == type::dictionary);
      EXPECT_EQ(value.is_array(), r.expected == type::array);
    }
  }
  EXPECT_TRUE(object::invalid_object.is_invalid());
  EXPECT_EQ(object().get_type(), type::null);
  object grown;
  grown[2];
  grown[L"k"];  // now a dictionary whose new entry is null
  EXPECT_TRUE(grown(L"k").is_null());
  grown[1];
  EXPECT_TRUE(grown(0).is_null());
}

TEST(JsonObject, ReadsNeverCreate) {
  const object doc = read(LR"({"a":[10,{"b":"x"}],"s":"str","n":5,"t":true})");
  struct row {
    const char* what;
    const object& got;
    type expected;
  };
  const row rows[] = {
      {"a", doc(L"a"), type::array},
      {"a.1.b", doc(L"a")(1)(L"b"), type::string},
      {"a.2 (one past the end)", doc(L"a")(2), type::invalid},
      {"missing key", doc(L"zz"), type::invalid},
      {"index on a dictionary", doc(0), type::invalid},
      {"key on an array", doc(L"a")(L"0"), type::invalid},
      {"index on a string", doc(L"s")(0), type::invalid},
      {"key on a number", doc(L"n")(L"x"), type::invalid},
      {"past a missing step", doc(L"q")(3)(L"r"), type::invalid},
      {"get by key", doc.get(L"t"), type::boolean},
      {"get by index", doc.get(L"a").get(0), type::number},
  };
  for (const row& r : rows) {
    SCOPED_TRACE(r.what);
    EXPECT_EQ(r.got.get_type(), r.expected);
    if (r.expected == type::invalid) {
      EXPECT_EQ(&r.got, &object::invalid_object);
    }
  }
  EXPECT_EQ(doc(L"q")(3)(L"r").as_int(7), 7);
  EXPECT_EQ(doc.to_string(), LR"({"a":[10,{"b":"x"}],"s":"str","n":5,"t":true})");
}

TEST(JsonObject, AsFallsBackOnAnyOtherType) {
  const object doc = read(LR"({"n":12.75,"s":"","d":"34","b":true,"z":null})");
  const object& n = doc(L"n");
  const object& s = doc(L"s");
  const object& b = doc(L"b");
  const object& z = doc(L"z");
  for (const object* other : {&s, &doc(L"d"), &b, &z, &doc, &doc(L"missing")}) {
    EXPECT_EQ(other->as_int(5), 5);
    EXPECT_EQ(other->as_uint(6u), 6u);
    EXPECT_EQ(other->as_int64(-7), -7);
    EXPECT_EQ(other->as_uint64(8u), 8u);
    EXPECT_EQ(other->as_double(9.5), 9.5);
    EXPECT_EQ(other->as_number_string(L"fb"), L"fb");
  }
  for (const object* other : {&n, &s, &z, &doc}) {
    EXPECT_EQ(other->as_bool(true), true);
    EXPECT_EQ(other->as_bool(false), false);
  }
  EXPECT_EQ(b.as_bool(false), true);
  EXPECT_EQ(n.as_bool(false), false);
  EXPECT_EQ(s.as_string(L"fb"), L"");  // empty text is a value, not the fallback
  EXPECT_EQ(n.as_string(L"fb"), L"fb");
  EXPECT_EQ(z.as_string(L"fb"), L"fb");
  EXPECT_EQ(doc(L"d").as_string(L"fb"), L"34");
  EXPECT_EQ(n.as_int(0), 12);
  EXPECT_EQ(n.as_double(0), 12.75);
  EXPECT_EQ(n.as_number_string(L""), L"12.75");
}

TEST(JsonObject, IntegerReadsTakeSignAndIntegerPart) {
  struct row {
    const wchar_t* text;
    long long as_int64;
    unsigned long long as_uint64;
  };
  const row rows[] = {
      {L"0", 0, 0},
      {L"-0", 0, 0},
      {L"1.9", 1, 1},
      {L"-1.9", -1, 18446744073709551615ull},
      {L"0.5", 0, 0},
      {L"1e3", 1, 1},
      {L"2.5e+3", 2, 2},
      {L"-1", -1, 18446744073709551615ull},
      {L"9223372036854775807", 9223372036854775807ll, 9223372036854775807ull},
      {L"-9223372036854775808", std::numeric_limits<long long>::min(), 9223372036854775808ull},
  };
  for (const row& r : rows) {
    SCOPED_TRACE(shown(r.text));
    object value;
    value = json::number(r.text);
    EXPECT_EQ(value.as_int64(42), r.as_int64);
    EXPECT_EQ(value.as_uint64(42), r.as_uint64);
  }
}

TEST(JsonObject, NumberReadsThrowWhenOutOfRange) {
  enum op { int32, uint32, int64, uint64, dbl };
  struct row {
    const wchar_t* text;
    op read;
    bool throws;
    double expected;
  };
  const row rows[] = {
      {L"2147483647", int32, false, 2147483647.0},
      {L"2147483648", int32, true, 0},
      {L"-2147483648", int32, false, -2147483648.0},
      {L"-2147483649", int32, true, 0},
      {L"4294967295", uint32, false, 4294967295.0},
      {L"4294967296", uint32, true, 0},
      {L"-1", uint32, false, 4294967295.0},
      {L"-4294967295", uint32, false, 1},
      {L"-4294967296", uint32, true, 0},
      {L"9223372036854775808", int64, true, 0},
      {L"18446744073709551615", uint64, false, 18446744073709551615.0},
      {L"18446744073709551616", uint64, true, 0},
      {L"1e999", dbl, true, 0},
      {L"-1e999", dbl, true, 0},
      {L"1e999", int32, false, 1},
      {L"1e+308", dbl, false, 1e308},
      {L"12.75", dbl, false, 12.75},
  };
  for (const row& r : rows) {
    SCOPED_TRACE(shown(r.text) + " op " + std::to_string(r.read));
    object value;
    value = json::number(r.text);
    const auto run = [&]() -> double {
      switch (r.read) {
        case int32: return value.as_int(0);
        case uint32: return value.as_uint(0);
        case int64: return static_cast<double>(value.as_int64(0));
        case uint64: return static_cast<double>(value.as_uint64(0));
        case dbl: return value.as_double(0);
      }
      return 0;
    };
    if (r.throws) {
      EXPECT_THROW(run(), std::out_of_range);
    } else {
      EXPECT_EQ(run(), r.expected);
    }
  }
  // 400 digits pass through unchanged; only the integer reads fail.
  const std::wstring digits(400, L'7');
  object big = read(digits);
  EXPECT_EQ(big.as_number_string(L""), digits);
  EXPECT_EQ(big.to_string(), digits);
  EXPECT_THROW(big.as_int(0), std::out_of_range);
  EXPECT_THROW(big.as_uint64(0), std::out_of_range);
  EXPECT_THROW(big.as_double(0), std::out_of_range);
}

TEST(JsonObject, NumberTextThatIsNoNumberThrowsInvalidArgument) {
  object value;
  value = json::number(L"abc");
  EXPECT_THROW(value.as_int(0), std::invalid_argument);
  EXPECT_THROW(value.as_double(0), std::invalid_argument);
  EXPECT_EQ(value.to_string(), L"abc");
}

TEST(JsonObject, DefaultNumberIsZero) {
  object value;
  value = json::number();
  EXPECT_EQ(value.to_string(), L"0");
  EXPECT_EQ(value.as_int(9), 0);
}

TEST(JsonObject, IndexResizesToExactlyIndexPlusOne) {
  struct row {
    const wchar_t* before;
    unsigned int index;
    const wchar_t* after;
  };
  const row rows[] = {
      {L"[]", 5, L"[null,null,null,null,null,true]"},
      {L"[0,1,2,3,4,5,6,7,8,9]", 2, L"[0,1,true]"},
      {L"[0,1,2]", 2, L"[0,1,true]"},
      {L"[0,1,2]", 3, L"[0,1,2,true]"},
      {L"[[1],[2],[3]]", 0, L"[true]"},
      {L"{\"a\":1}", 0, L"[true]"},
      {L"7", 1, L"[null,true]"},
      {L"\"s\"", 0, L"[true]"},
  };
  for (const row& r : rows) {
    SCOPED_TRACE(shown(r.before) + " [" + std::to_string(r.index) + "]");
    object value = read(r.before);
    value[r.index] = true;
    EXPECT_EQ(value.to_string(), r.after);
  }
  // get() never resizes.
  object ten = read(L"[0,1,2,3,4,5,6,7,8,9]");
  EXPECT_EQ(ten.get(2).as_int(-1), 2);
  EXPECT_EQ(ten.get(9).as_int(-1), 9);
}

TEST(JsonObject, KeyFindsOrAppendsInInsertionOrder) {
  object value = read(L"12");
  value[L"b"] = json::number(L"1");
  value[L"a"] = json::number(L"2");
  value[L"c"] = json::number(L"3");
  value[L"b"] = json::number(L"4");  // keeps its place
  value[L"a"];                       // found, not added
  value[std::wstring_view(L"", 0)] = true;
  value[std::wstring_view(L"a\0b", 3)] = false;  // differs from "a" by its length
  value[std::wstring_view(L"a\0c", 3)] = true;   // and from "a\0b" by a unit
  value[L"A"];                                   // no case folding
  EXPECT_EQ(
      value.to_string(),
      std::wstring(LR"({"b":4,"a":2,"c":3,"":true,"a\u0000b":false,"a\u0000c":true,"A":null})"));
  EXPECT_EQ(value(std::wstring_view(L"a\0c", 3)).as_bool(false), true);
  EXPECT_TRUE(value(L"A").is_null());
}

TEST(JsonObject, EmptyContainersKeepOnlyTheirOwnType) {
  struct row {
    const wchar_t* before;
    bool array;
    const wchar_t* after;
  };
  const row rows[] = {
      {L"[1,2]", true, L"[1,2]"},          {L"{\"a\":1}", true, L"[]"}, {L"5", true, L"[]"},
      {L"{\"a\":1}", false, L"{\"a\":1}"}, {L"[1,2]", false, L"{}"},    {L"null", false, L"{}"},
  };
  for (const row& r : rows) {
    SCOPED_TRACE(shown(r.before));
    object value = read(r.before);
    object& same = r.array ? value.empty_array() : value.empty_object();
    EXPECT_EQ(&same, &value);
    EXPECT_EQ(value.to_string(), r.after);
  }
  object value = read(L"[1,[2]]");
  EXPECT_TRUE(value.null().is_null());
}

TEST(JsonObject, AssignmentCopiesBeforeDropping) {
  object doc = read(LR"({"a":{"b":[1,{"c":2}]},"d":3})");
  doc = doc(L"a");  // the source lives inside the target
  EXPECT_EQ(doc.to_string(), LR"({"b":[1,{"c":2}]})");
  doc = doc(L"b")(1);
  EXPECT_EQ(doc.to_string(), LR"({"c":2})");

  object arr = read(L"[[1,[2,3]],4]");
  arr = std::move(arr[0]);  // moves first, then drops
  EXPECT_EQ(arr.to_string(), L"[1,[2,3]]");
  arr = arr;
  EXPECT_EQ(arr.to_string(), L"[1,[2,3]]");

  object copy = arr;
  copy[1][0] = true;
  EXPECT_EQ(arr.to_string(), L"[1,[2,3]]");    // deep, not shared
  EXPECT_EQ(copy.to_string(), L"[1,[true]]");  // [0] shrinks too

  object holder = read(L"[1,2,3]");
  holder[1] = object::invalid_object;
  EXPECT_TRUE(holder(1).is_invalid());
  EXPECT_EQ(holder.to_string(), L"[1,]");
  object invalid_copy = object::invalid_object;
  EXPECT_TRUE(invalid_copy.is_invalid());
  const std::wstring text(L"x\0y", 3);
  holder = std::wstring_view(text);
  EXPECT_EQ(holder.as_string(L""), text);
}

TEST(JsonObject, ForeachVisitsInOrderUntilFalse) {
  object dict = read(LR"({"b":1,"a":2,"c":3})");
  object arr = read(L"[10,20,30]");
  const object& cdict = dict;
  const object& carr = arr;

  std::wstring keys;
  dict.foreach([&](const std::wstring& k, object& v) {
    keys += k;
    v = json::number(L"0");
    return true;
  });
  EXPECT_EQ(keys, L"bac");
  EXPECT_EQ(dict.to_string(), LR"({"b":0,"a":0,"c":0})");

  int calls = 0;
  cdict.foreach([&](const std::wstring&, const object&) { return ++calls, false; });
  EXPECT_EQ(calls, 1);

  std::vector<unsigned int> seen;
  carr.foreach([&](unsigned int i, const object& v) {
    seen.push_back(i);
    return v.as_int(0) != 20;
  });
  EXPECT_EQ(seen, (std::vector<unsigned int>{0, 1}));

  // The dictionary walk leaves arrays alone and the other way round.
  calls = 0;
  arr.foreach([&](const std::wstring&, object&) { return ++calls, true; });
  cdict.foreach([&](unsigned int, const object&) { return ++calls, true; });
  object(read(L"5")).foreach([&](unsigned int, object&) { return ++calls, true; });
  EXPECT_EQ(calls, 0);

  // The array walk re-reads the length: appended elements are visited and a
  // shorter array ends it early.
  seen.clear();
  arr.foreach([&](unsigned int i, object& v) {
    seen.push_back(i);
    if (i == 0) arr[3] = json::number(L"40");
    (void)v;
    return true;
  });
  EXPECT_EQ(seen, (std::vector<unsigned int>{0, 1, 2, 3}));
  seen.clear();
  arr.foreach([&](unsigned int i, object&) {
    seen.push_back(i);
    arr[0];  // shrinks to one element
    return true;
  });
  EXPECT_EQ(seen, (std::vector<unsigned int>{0}));
}

TEST(JsonObject, ForeachWithEmptyFunctionThrowsOnlyWhenItCalls) {
  object arr = read(L"[1]");
  object empty = read(L"[]");
  std::function<bool(unsigned int, object&)> none;
  EXPECT_THROW(arr.foreach(none), std::bad_function_call);
  EXPECT_NO_THROW(empty.foreach(none));
  EXPECT_NO_THROW(read(L"{\"a\":1}").foreach(none));
}

TEST(JsonObject, DoubleToNumberTextKeepsFifteenDigits) {
  struct row {
    double value;
    const wchar_t* text;
  };
  const row rows[] = {
      {0.0, L"0"},
      {-0.0, L"-0"},
      {100, L"100"},
      {2.5, L"2.5"},
      {0.1 + 0.2, L"0.3"},
      {1.0 / 3, L"0.333333333333333"},
      {100000000000000.0, L"100000000000000"},
      {1e15, L"1e+15"},
      {1e-5, L"1e-05"},
      {0.0001, L"0.0001"},
      {1e21, L"1e+21"},
      {123456789012345678.0, L"1.23456789012346e+17"},
      {-1.5e-300, L"-1.5e-300"},
      {1e100, L"1e+100"},
  };
  for (const row& r : rows) {
    SCOPED_TRACE(shown(r.text));
    const std::wstring text = json::functions::double_to_number_wstring(r.value);
    EXPECT_EQ(text, r.text);
    // Number text as the reader would store it, so it round-trips.
    EXPECT_EQ(json::functions::wstring_to_number_wstring(text), text);
  }
  EXPECT_EQ(json::functions::double_to_number_wstring(std::numeric_limits<double>::infinity()),
            L"inf");
  EXPECT_EQ(json::functions::double_to_number_wstring(std::nan("")), L"nan");
}

// A chain of one million arrays built by hand: copying, writing and
// destroying it must not recurse. Arrays go through the copy constructor,
// dictionaries through copy assignment; 200,000 levels of those would
// already overflow a recursive walk's stack.
TEST(JsonObject, MillionDeepChainCopiesWritesAndDies) {
  for (const bool arrays : {true, false}) {
    SCOPED_TRACE(arrays ? "arrays" : "dictionaries");
    const std::size_t kDepth = arrays ? 1000000 : 200000;
    auto root = std::make_unique<object>();
    object* at = root.get();
    for (std::size_t i = 0; i < kDepth; ++i) at = arrays ? &(*at)[0] : &(*at)[L"k"];
    *at = json::number(L"1");

    std::unique_ptr<object> copy;
    if (arrays) {
      copy = std::make_unique<object>(*root);
    } else {
      copy = std::make_unique<object>();
      *copy = *root;
    }
    root.reset();  // the copy must not share anything with the original
    const std::wstring text = copy->to_string();
    const std::wstring open = arrays ? L"[" : L"{\"k\":";
    const std::wstring close = arrays ? L"]" : L"}";
    ASSERT_EQ(text.size(), kDepth * (open.size() + close.size()) + 1);
    EXPECT_EQ(text.substr(0, 2 * open.size()), open + open);
    EXPECT_EQ(text.substr(kDepth * open.size(), 1), L"1");
    EXPECT_EQ(text.substr(text.size() - 2 * close.size()), close + close);
  }
}

}  // namespace
