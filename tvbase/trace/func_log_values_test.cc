#include <tvbase/trace/func_log.h>

#include <algorithm>
#include <cinttypes>
#include <climits>
#include <cmath>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <tvbase/platform/code_page.h>
#include <tvbase/platform/file.h>
#include <tvbase/testing/allocation_counter.h>
#include <tvbase/trace/log_sink.h>
#include <tvbase/trace/test_support.h>

namespace {

constexpr std::size_t kHead = 33;  // date, time, thread and the mark

// The forms as the lines show them: the pointer prefix in lower-case hex of
// at least eight digits, an address in upper-case hex of sixteen.
std::string ptr(const void* p) {
  char text[32];
  std::snprintf(text, sizeof text, "%08" PRIxPTR "->", reinterpret_cast<std::uintptr_t>(p));
  return text;
}
std::string addr(const void* p) {
  char text[32];
  std::snprintf(text, sizeof text, "%016" PRIXPTR, reinterpret_cast<std::uintptr_t>(p));
  return text;
}

// A readable page followed by one that can't be read.
using testing_support::guarded_page;

class TraceValues : public testing::Test {
 protected:
  void SetUp() override {
    path_ = dir_.path() + "values.log";
    sink_.file = platform::create_log_file(path_.c_str());
    ASSERT_GE(sink_.file, 0);
    sink_.enabled[0] = sink_.enabled[1] = true;
    before_ = trace::UseSink(&sink_);
  }
  void TearDown() override {
    trace::UseSink(before_);
    platform::close_file(sink_.file);
  }

  // The enter line written by `body`, without its head.
  std::string enter_line(const std::function<void()>& body) {
    const std::size_t start = trace_test::read_file(path_).size();
    body();
    const std::string all = trace_test::read_file(path_).substr(start);
    const auto lines = trace_test::split_lines(all, "\r\n");
    if (lines.empty() || lines[0].size() < kHead) return "<no line>";
    return lines[0].substr(kHead);
  }

  trace_test::temp_dir dir_;
  std::string path_;
  TvLogSink sink_;
  TvLogSink* before_ = nullptr;
};

// The narrow form of wide text in the system's default code page, as the
// wide forms show it: UTF-8 where that is the code page (Linux), else code
// page 1252 (Wine's and western Windows'), with "*" for each unit it lacks.
std::string narrow(std::wstring_view text) {
  std::string out;
  const bool utf8 = platform::default_code_page() == 65001;
  for (std::size_t i = 0; i < text.size(); ++i) {
    char32_t c = static_cast<char32_t>(text[i]);
    if (utf8 && c >= 0xD800 && c <= 0xDBFF && i + 1 < text.size())
      c = 0x10000 + ((c - 0xD800) << 10) + (static_cast<char32_t>(text[++i]) - 0xDC00);
    if (c < 0x80) {
      out += static_cast<char>(c);
    } else if (!utf8) {
      out += c <= 0xFF && c >= 0xA0 ? static_cast<char>(c) : c == 0x20AC ? '\x80' : '*';
    } else if (c < 0x800) {
      out += {static_cast<char>(0xC0 | c >> 6), static_cast<char>(0x80 | (c & 0x3F))};
    } else if (c < 0x10000) {
      out += {static_cast<char>(0xE0 | c >> 12), static_cast<char>(0x80 | (c >> 6 & 0x3F)),
              static_cast<char>(0x80 | (c & 0x3F))};
    } else {
      out += {static_cast<char>(0xF0 | c >> 18), static_cast<char>(0x80 | (c >> 12 & 0x3F)),
              static_cast<char>(0x80 | (c >> 6 & 0x3F)), static_cast<char>(0x80 | (c & 0x3F))};
    }
  }
  return out;
}

struct row {
  std::string what;
  std::function<void()> body;
  std::string expected;
};

template <typename... Args>
void traced(const Args&... args) {
  TvFuncLog log("F", TvFuncLog::eLogFilter0, args...);
}

void check_rows(TraceValues& fixture, const std::vector<row>& rows,
                const std::function<std::string(const std::function<void()>&)>& line) {
  static_cast<void>(fixture);
  for (const row& r : rows) {
    SCOPED_TRACE(r.what);
    EXPECT_EQ(line(r.body), "F( " + r.expected + " )");
  }
}

TEST_F(TraceValues, ValueForms) {
  const std::vector<row> rows = {
      {"char", [] { traced('x'); }, "'x'"},
      {"unsigned char", [] { traced(static_cast<unsigned char>(200)); }, "byte(200)"},
      {"short", [] { traced(static_cast<short>(-5)); }, "short(-5)"},
      {"unsigned short", [] { traced(static_cast<unsigned short>(65535)); }, "word(65535)"},
      {"int and dword", [] { traced(3, 7u); }, "int(3), dword(7)"},
      {"long", [] { traced(-7L, 7UL); }, "long(-7), ulong(7)"},
      {"64-bit", [] { traced(-1LL, ULLONG_MAX); }, "int64(-1), uint64(18446744073709551615)"},
      {"bool", [] { traced(true, false); }, "true, false"},
      {"float within", [] { traced(12.5f, -9999.5f); }, "float(12.50), float(-9999.50)"},
      {"float beyond", [] { traced(12345.5f, 10000.5f); }, "float(12345.5), float(10000.5)"},
      {"float not a number", [] { traced(std::nanf("")); }, "float(nan)"},
      {"double within", [] { traced(-2.5, 9999999999999.99); },
       "double(-2.50), double(9999999999999.99)"},
      {"double beyond", [] { traced(1e14, -1e13); }, "double(1e+14), double(-1e+13)"},
      {"wide character", [] { traced(L'\u00E9'); }, "L'" + narrow(L"\u00E9") + "'"},
      {"wide character that can't be shown", [] { traced(static_cast<wchar_t>(0xD800)); }, "L'*'"},
      {"flags", [] { traced(TvFuncLog::Flags(0), TvFuncLog::Flags(5)); }, "bits(0), bits(101)"},
      {"negative flags", [] { traced(TvFuncLog::Flags(static_cast<std::uint32_t>(-1))); },
       "bits(11111111111111111111111111111111)"},
      {"hex", [] { traced(TvFuncLog::Hex(42)); }, "hex(0000002a)"},
      {"date", [] { traced(TvFuncLog::OleDate(46056.3785069444)); }, "DATE(03/02/2026 09:05:03)"},
      {"date out of range", [] { traced(TvFuncLog::OleDate(1e7)); }, "DATE(?)"},
  };
  check_rows(*this, rows, [this](const std::function<void()>& body) { return enter_line(body); });
}

TEST_F(TraceValues, PointerForms) {
  guarded_page guard;
  static int five = 5, six = 6;
  static const double when = 36526.5;
  static const char letter = 'q';
  static const wchar_t wide = L'w';
  const int* bad = reinterpret_cast<const int*>(guard.end());
  const int* straddling = reinterpret_cast<const int*>(guard.end() - 2);  // runs past the mapping
  const std::vector<row> rows = {
      {"good int", [] { traced(&five); }, ptr(&five) + "int(5)"},
      {"bad int", [bad] { traced(bad); }, ptr(bad) + "int(?)"},
      {"int past the mapping", [straddling] { traced(straddling); }, ptr(straddling) + "int(?)"},
      {"two pointers", [] { traced(&five, &six); }, ptr(&five) + "int(5), " + ptr(&six) + "int(6)"},
      {"pointer after a value", [] { traced(1, &five); }, "int(1), " + ptr(&five) + "int(5)"},
      {"null", [] { traced(static_cast<const double*>(nullptr)); }, ptr(nullptr) + "double(?)"},
      {"each type unreadable",
       [&guard] {
         const char* e = guard.end();
         traced(reinterpret_cast<const unsigned char*>(e), reinterpret_cast<const short*>(e),
                reinterpret_cast<const unsigned short*>(e), reinterpret_cast<const unsigned*>(e),
                reinterpret_cast<const long*>(e), reinterpret_cast<const unsigned long*>(e),
                reinterpret_cast<const long long*>(e),
                reinterpret_cast<const unsigned long long*>(e), reinterpret_cast<const float*>(e),
                reinterpret_cast<const bool*>(e));
       },
       [&guard] {
         std::string p = ptr(guard.end()), out;
         for (const char* t : {"byte", "short", "word", "dword", "long", "ulong", "int64", "uint64",
                               "float", "bool"}) {
           out += (out.empty() ? "" : ", ") + p + t + "(?)";
         }
         return out;
       }()},
      {"void", [] { traced(static_cast<const void*>(&five)); }, ptr(&five) + "void"},
      {"character", [] { traced(TvFuncLog::CharPtr(&letter)); }, ptr(&letter) + "'q'"},
      {"bad character", [&guard] { traced(TvFuncLog::CharPtr(guard.end())); },
       ptr(guard.end()) + "'?'"},
      {"wide character", [] { traced(TvFuncLog::WCharPtr(&wide)); }, ptr(&wide) + "L'w'"},
      {"bad wide character",
       [bad] { traced(TvFuncLog::WCharPtr(reinterpret_cast<const wchar_t*>(bad))); },
       ptr(bad) + "L'?'"},
      {"date", [] { traced(TvFuncLog::OleDatePtr(&when)); },
       ptr(&when) + "DATE(01/01/2000 12:00:00)"},
      {"bad date", [bad] { traced(TvFuncLog::OleDatePtr(reinterpret_cast<const double*>(bad))); },
       ptr(bad) + "DATE(?)"},
  };
  check_rows(*this, rows, [this](const std::function<void()>& body) { return enter_line(body); });
}

TEST_F(TraceValues, TextForms) {
  guarded_page guard;
  static const std::string t150(150, 'a');
  static const std::string t151 = std::string(100, 'h') + "X" + std::string(50, 't');
  static const std::wstring w150(150, L'\u00E9');
  static const std::wstring w151 = std::wstring(100, L'h') + L"X" + std::wstring(50, L'\u20AC');
  static wchar_t bstr_text[] = L"abc";
  static wchar_t* bstr = bstr_text;
  static wchar_t* null_bstr = nullptr;
  char* unended = guard.end() - 3;  // no zero before the page that can't be read
  unended[0] = unended[1] = unended[2] = 'z';
  std::string e150;
  for (int i = 0; i < 150; ++i) e150 += narrow(L"\u00E9");
  std::string euros;
  for (int i = 0; i < 50; ++i) euros += narrow(L"\u20AC");
  const std::vector<row> rows = {
      {"text", [] { traced("hello"); }, "\"hello\""},
      {"null text", [] { traced(static_cast<const char*>(nullptr)); }, "0000000000000000->\"?\""},
      {"unended text", [unended] { traced(static_cast<const char*>(unended)); },
       addr(unended) + "->\"?\""},
      {"150 characters whole", [] { traced(t150.c_str()); }, "\"" + t150 + "\""},
      {"151 lose the 101st", [] { traced(t151.c_str()); },
       "\"" + std::string(100, 'h') + "..." + std::string(50, 't') + "\""},
      {"wide text", [] { traced(L"h\u00E9\xD83D\xDE00"); },
       "L\"h" + narrow(L"\u00E9\xD83D\xDE00") + "\""},
      {"wide text with a lone surrogate",
       [] {
         traced(
             L"a\xDC00"
             L"b");
       },
       "L\"a*b\""},
      {"null wide text", [] { traced(static_cast<const wchar_t*>(nullptr)); },
       "0000000000000000->L\"?\""},
      {"150 wide characters", [] { traced(w150.c_str()); }, "L\"" + e150 + "\""},
      {"151 wide characters", [] { traced(w151.c_str()); },
       "L\"" + std::string(100, 'h') + "..." + euros + "\""},
      {"BSTR", [] { traced(bstr); }, "BSTR(\"abc\")"},
      {"null BSTR", [] { traced(null_bstr); }, "BSTR(null)"},
      {"pointer to a BSTR", [] { traced(&bstr); }, ptr(&bstr) + "BSTR(\"abc\")"},
      {"bad pointer to a BSTR",
       [&guard] { traced(reinterpret_cast<wchar_t* const*>(guard.end())); },
       ptr(guard.end()) + "BSTR(?)"},
  };
  check_rows(*this, rows, [this](const std::function<void()>& body) { return enter_line(body); });
  // A BSTR whose text can't be read shows the reference's address.
  wchar_t* unreadable = reinterpret_cast<wchar_t*>(guard.end());
  EXPECT_EQ(enter_line([&] { traced(unreadable); }), "F( R" + addr(&unreadable) + "->BSTR(?) )");
}

win::VARIANT variant(unsigned vt) {
  win::VARIANT v{};
  v.vt = static_cast<win::VARTYPE>(vt);
  return v;
}

TEST_F(TraceValues, StructureForms) {
  guarded_page guard;
  static const win::GUID id{
      0x00112233, 0x4455, 0x6677, {0x88, 0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF}};
  static const win::CREATESTRUCTA create{};
  const auto* bad_guid = reinterpret_cast<const win::GUID*>(guard.end() - 8);
  const auto* bad_create = reinterpret_cast<const win::CREATESTRUCTA*>(guard.end());
  const auto* bad_variant = reinterpret_cast<const win::VARIANT*>(guard.end() - 16);
  const std::vector<row> rows = {
      {"GUID", [] { traced(id); }, "{00112233-4455-6677-8899-AABBCCDDEEFF}"},
      {"GUID pointer", [] { traced(&id); }, ptr(&id) + "{00112233-4455-6677-8899-AABBCCDDEEFF}"},
      {"bad GUID pointer", [bad_guid] { traced(bad_guid); }, ptr(bad_guid) + "{?}"},
      {"bad GUID reference", [bad_guid] { traced(*bad_guid); }, "R" + addr(bad_guid) + "->{?}"},
      {"CREATESTRUCT", [] { traced(create); }, "CREATESTRUCT()"},
      {"bad CREATESTRUCT reference", [bad_create] { traced(*bad_create); },
       "R" + addr(bad_create) + "->CREATESTRUCT(?)"},
      {"bad CREATESTRUCT pointer", [bad_create] { traced(bad_create); },
       ptr(bad_create) + "CREATESTRUCT(?)"},
      {"bad VARIANT reference", [bad_variant] { traced(*bad_variant); },
       "R" + addr(bad_variant) + "->VT_?)"},
      {"bad VARIANT pointer", [bad_variant] { traced(bad_variant); }, ptr(bad_variant) + "VT_?"},
  };
  check_rows(*this, rows, [this](const std::function<void()>& body) { return enter_line(body); });
}

// Several parameters that read memory are asked about together before the
// line is built: each item still shows the form it shows on its own, with
// bad ones before, between and after good ones, texts whose zero lies beyond
// their first page, and more questions than are asked in advance.
TEST_F(TraceValues, ParametersAskedAboutTogether) {
  guarded_page guard;
  static int five = 5;
  static const win::GUID id{
      0x00112233, 0x4455, 0x6677, {0x88, 0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF}};
  static const std::string guid_form = "{00112233-4455-6677-8899-AABBCCDDEEFF}";
  const int* bad = reinterpret_cast<const int*>(guard.end());
  const auto* bad_guid = reinterpret_cast<const win::GUID*>(guard.end() - 8);
  char* unended = guard.end() - 3;
  unended[0] = unended[1] = unended[2] = 'z';
  // A zero in the last readable byte, the text starting a page before.
  guarded_page full;
  char* page_long = full.base();
  std::fill(page_long, full.end() - 1, 'p');
  full.end()[-1] = '\0';
  static const std::string long_text =
      std::string(100, 'h') + std::string(6000, 'm') + std::string(50, 't');
  static const std::wstring long_wide(5000, L'w');
  const std::string shortened = "\"" + std::string(100, 'h') + "..." + std::string(50, 't') + "\"";
  const std::string wide_shortened =
      "L\"" + std::string(100, 'w') + "..." + std::string(50, 'w') + "\"";
  const std::string page_form = "\"" + std::string(100, 'p') + "..." + std::string(50, 'p') + "\"";
  const std::string good_int = ptr(&five) + "int(5)";
  const std::string bad_int = ptr(bad) + "int(?)";
  const std::vector<row> rows = {
      {"bad before good", [bad] { traced(bad, &five); }, bad_int + ", " + good_int},
      {"bad between good", [bad] { traced(&five, bad, &five); },
       good_int + ", " + bad_int + ", " + good_int},
      {"bad after good", [bad] { traced(&five, 7, bad); }, good_int + ", int(7), " + bad_int},
      {"all bad", [bad, bad_guid] { traced(bad, *bad_guid, bad); },
       bad_int + ", R" + addr(bad_guid) + "->{?}, " + bad_int},
      {"texts and structures",
       [bad_guid] { traced("abc", L"d\u00E9", id, &id, bad_guid, TvFuncLog::CharPtr("q")); },
       "\"abc\", L\"d" + narrow(L"\u00E9") + "\", " + guid_form + ", " + ptr(&id) + guid_form +
           ", " + ptr(bad_guid) + "{?}, " + ptr("q") + "'q'"},
      {"text that runs into the guard",
       [unended] { traced(&five, static_cast<const char*>(unended)); },
       good_int + ", " + addr(unended) + "->\"?\""},
      {"text that ends on its page's last byte",
       [page_long] { traced(&five, static_cast<const char*>(page_long)); },
       good_int + ", " + page_form},
      {"texts longer than a page", [] { traced(long_text.c_str(), long_wide.c_str()); },
       shortened + ", " + wide_shortened},
      {"the same pointer twice", [] { traced(&five, &five); }, good_int + ", " + good_int},
      {"more than are asked in advance",
       [bad] { traced(&five, bad, &five, bad, &five, bad, &five, bad, &five, bad); },
       [&] {
         std::string out;
         for (int i = 0; i < 5; ++i) out += (i ? ", " : "") + good_int + ", " + bad_int;
         return out;
       }()},
  };
  check_rows(*this, rows, [this](const std::function<void()>& body) { return enter_line(body); });
}

TEST_F(TraceValues, VariantForms) {
  static wchar_t text[] = L"v\u00E9";
  static const std::wstring long_text = std::wstring(120, L'a') + std::wstring(40, L'b');
  static wchar_t* long_bstr = const_cast<wchar_t*>(long_text.c_str());
  auto with = [](unsigned vt, auto set) {
    win::VARIANT v = variant(vt);
    set(v);
    return v;
  };
  struct variant_row {
    win::VARIANT v;
    std::string expected;
  };
  const variant_row rows[] = {
      {variant(0), "VT_EMPTY()"},
      {variant(1), "VT_NULL()"},
      {with(2, [](win::VARIANT& v) { v.iVal = -2; }), "VT_I2(-2)"},
      {with(3, [](win::VARIANT& v) { v.lVal = 123456; }), "VT_I4(123456)"},
      {with(4, [](win::VARIANT& v) { v.fltVal = 1.5f; }), "VT_R4(1.50)"},
      {with(4, [](win::VARIANT& v) { v.fltVal = 12345.5f; }), "VT_R4(12345.5)"},
      {with(5, [](win::VARIANT& v) { v.dblVal = 1e14; }), "VT_R8(1e+14)"},
      {with(6, [](win::VARIANT& v) { v.cyVal.int64 = -15000; }), "VT_CY(-1.5000)"},
      {with(6, [](win::VARIANT& v) { v.cyVal.int64 = 1234567; }), "VT_CY(123.4567)"},
      {with(7, [](win::VARIANT& v) { v.date = 2.0; }), "VT_DATE(01/01/1900 00:00:00)"},
      {with(7, [](win::VARIANT& v) { v.date = -1e7; }), "VT_DATE(?)"},
      {with(8, [](win::VARIANT& v) { v.bstrVal = text; }),
       "V_BSTR(\"v" + narrow(L"\u00E9") + "\")"},
      {with(8, [](win::VARIANT& v) { v.bstrVal = nullptr; }), "V_BSTR(null)"},
      {with(8, [](win::VARIANT& v) { v.bstrVal = long_bstr; }),
       "V_BSTR(\"" + std::string(100, 'a') + "..." + std::string(10, 'a') + std::string(40, 'b') +
           "\")"},
      {with(9,
            [](win::VARIANT& v) { v.pdispVal = reinterpret_cast<decltype(v.pdispVal)>(0x1234); }),
       "VT_DISPATCH(p" + std::string(2 * sizeof(void*) - 4, '0') + "1234)"},
      {with(10, [](win::VARIANT& v) { v.scode = -2147467259; }), "VT_ERROR(-2147467259)"},
      {with(11, [](win::VARIANT& v) { v.boolVal = -1; }), "VT_BOOL(true)"},
      {with(11, [](win::VARIANT& v) { v.boolVal = 0; }), "VT_BOOL(false)"},
      {with(13, [](win::VARIANT& v) { v.punkVal = reinterpret_cast<decltype(v.punkVal)>(4096); }),
       "VT_UNKNOWN(4096)"},
      {with(16, [](win::VARIANT& v) { v.cVal = static_cast<char>(-3); }), "VT_I1(-3)"},
      {with(17, [](win::VARIANT& v) { v.bVal = 250; }), "VT_UI1(250)"},
      {with(18, [](win::VARIANT& v) { v.uiVal = 65000; }), "VT_UI2(65000)"},
      {with(19, [](win::VARIANT& v) { v.ulVal = 4000000000u; }), "VT_UI4(4000000000)"},
      {with(20, [](win::VARIANT& v) { v.llVal = LLONG_MIN; }), "VT_I8(-9223372036854775808)"},
      {with(21, [](win::VARIANT& v) { v.ullVal = ULLONG_MAX; }), "VT_UI8(18446744073709551615)"},
      {variant(12), "VT_?12?"},
      {variant(14), "VT_?14?"},
      {variant(0x2003), "VT_ARRAY(?)"},
      {variant(0x6003), "VT_ARRAY(?)"},
      {variant(0x4003), "VT_BYREF(?)"},
  };
  for (const variant_row& r : rows) {
    SCOPED_TRACE(r.expected);
    EXPECT_EQ(enter_line([&] { traced(r.v); }), "F( " + r.expected + " )");
  }
  const win::VARIANT four = with(3, [](win::VARIANT& v) { v.lVal = 4; });
  EXPECT_EQ(enter_line([&] { traced(&four); }), "F( " + ptr(&four) + "VT_I4(4) )");
}

TEST_F(TraceValues, AnEnterLineWithTypedParametersAllocatesNothing) {
  if (!testing_support::allocations_counted())
    GTEST_SKIP() << "operator new is not ours to count here";
  static const int number = 7;
  static const win::GUID id{1, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}};
  const std::string narrow(40, 'n');
  const std::wstring wide(40, L'w');
  traced(1);  // the thread's state exists from here on
  const long before = testing_support::allocations();
  traced(42, 2.5, narrow.c_str(), wide.c_str(), &number, id);
  EXPECT_EQ(testing_support::allocations(), before);
}

TEST(TraceValuesInert, PointerQuestionsAreAskedAlsoOnAnInertObject) {
  TvFuncLog inert;
  static const int value = 1;
  guarded_page guard;
  EXPECT_TRUE(inert.WriteAppendPtr(&value, sizeof value));
  EXPECT_FALSE(inert.WriteAppendPtr(guard.end(), 1));
  EXPECT_TRUE(inert.WriteAppendPtr(guard.end(), 0)) << "a size of 0 is always readable";
}

}  // namespace
