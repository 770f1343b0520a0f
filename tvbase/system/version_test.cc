#include <tvbase/system/version.h>

#include <climits>
#include <string>
#include <type_traits>

#include <gtest/gtest.h>

#include <tvbase/testing/exact_buffer.h>

namespace {

// Texts lie in blocks that end with their zero (see exact_buffer.h).
using testing_support::ending;
using testing_support::exact_buffer;

TEST(TvVersion, ParsesAndWritesBack) {
  struct row {
    const char* text;
    unsigned long packed;
  };
  const row rows[] = {
      {"12.40_", 0x0C040000}, {"12.41b", 0x0C040102}, {"1.23a", 0x01020301},
      {"10.00_", 0x0A000000}, {"0.00_", 0},           {"99.99z", 0x6309091A},
      {"0.01a", 0x00000101},  {"5.90_", 0x05090000},  {"07.12c", 0x07010203},
  };
  for (const row& r : rows) {
    SCOPED_TRACE(r.text);
    const exact_buffer exact{r.text, ending::zero};
    EXPECT_EQ(TvVersion::Parse(exact.c_str()), r.packed);
    const std::string text = r.text;
    // A leading zero of the major number is not written back.
    const std::string expected =
        text.size() == 6 && text[0] == '0' && text[1] != '.' ? text.substr(1) : text;
    EXPECT_EQ(TvVersion::ToString(r.packed), expected);
  }
}

TEST(TvVersion, RefusesEveryOtherForm) {
  const char* const rows[] = {
      "",        "12.40",   "12.40A",   "12.40B",  "12.400_", "12.4_", "123.40_", "12.40_ ",
      " 12.40_", "12,40_",  "12.40__",  "12.40ab", "a.40_",   ".40_",  "12.4a_",  "12.40{",
      "12.40`",  "12..40_", "12.40_\t", "-1.40_",  "12.4x0",  "1240_",
  };
  for (const char* text : rows) {
    SCOPED_TRACE(text);
    const exact_buffer exact{text, ending::zero};
    EXPECT_EQ(TvVersion::Parse(exact.c_str()), 0u);
  }
  EXPECT_EQ(TvVersion::Parse(nullptr), 0u);
}

// Parse() reads no further than the longest form: a 10 MB token is refused
// at once, whatever follows its first seven bytes, and a form at the end of
// such a text is found where it starts.
TEST(TvVersion, RefusesTenMegabyteTokens) {
  const std::size_t size = std::size_t{10} << 20;
  struct row {
    const char* name;
    std::string text;
  };
  const row rows[] = {
      {"digits", std::string(size, '1')},
      {"a form and more", "12.41b" + std::string(size, 'c')},
      {"a long minor", "1." + std::string(size, '0') + "_"},
      {"letters", std::string(size, 'a')},
      {"a form behind blanks", std::string(size, ' ') + "12.41b"},
  };
  for (const row& r : rows) {
    SCOPED_TRACE(r.name);
    EXPECT_EQ(TvVersion::Parse(r.text.c_str()), 0u);
  }
  const std::string tail = std::string(size, 'x') + "12.41b";
  EXPECT_EQ(TvVersion::Parse(tail.c_str() + size), 0x0C040102u);
}

TEST(TvVersion, ComparesUnderEachMask) {
  struct row {
    const char* a;
    const char* b;
    int major, minor, sub, full;
  };
  const row rows[] = {
      {"12.40a", "12.40b", 0, 0, 0, -1},   {"12.40_", "11.99z", 1, 1, 1, 1},
      {"12.41_", "12.40z", 0, 0, 1, 1},    {"12.31_", "12.40_", 0, -1, -1, -1},
      {"3.00_", "12.00_", -1, -1, -1, -1}, {"12.40b", "12.40b", 0, 0, 0, 0},
  };
  for (const row& r : rows) {
    SCOPED_TRACE(std::string(r.a) + " vs " + r.b);
    const unsigned long a = TvVersion::Parse(r.a);
    const unsigned long b = TvVersion::Parse(r.b);
    EXPECT_EQ(TvVersion::Compare(a, b, TvVersion::CompareMajor), r.major);
    EXPECT_EQ(TvVersion::Compare(a, b, TvVersion::CompareMinor), r.minor);
    EXPECT_EQ(TvVersion::Compare(a, b, TvVersion::CompareSub), r.sub);
    EXPECT_EQ(TvVersion::Compare(a, b, TvVersion::CompareFull), r.full);
    EXPECT_EQ(TvVersion::Compare(b, a, TvVersion::CompareFull), -r.full);
    // Any other type takes the full mask.
    EXPECT_EQ(TvVersion::Compare(a, b, static_cast<TvVersion::CompareType>(7)), r.full);
    EXPECT_EQ(TvVersion::Compare(a, b, static_cast<TvVersion::CompareType>(-1)), r.full);
  }
  // Unsigned: the unknown version is above every other.
  EXPECT_EQ(TvVersion::Compare(TvVersion::Unknown, 0x63090919, TvVersion::CompareFull), 1);
}

TEST(TvVersion, WritesUpToTheType) {
  struct row {
    unsigned long long version;  // unsigned long has 32 bits on Windows
    int type;
    bool no_underscore;
    const char* expected;
  };
  const row rows[] = {
      {0x0C040000, 0, false, "12"},
      {0x0C040000, 1, false, "12.4"},
      {0x0C040000, 2, false, "12.40"},
      {0x0C040000, 3, false, "12.40_"},
      {0x0C040000, 3, true, "12.40"},
      {0x0C040102, 3, true, "12.41b"},
      {0x0C040102, 9, false, "12.41b"},
      {0x0C040102, -1, false, ""},
      {0x01020301, 3, false, "1.23a"},
      {0x0A000000, 0, false, "10"},
      {0x09000000, 0, false, "9"},
      {TvVersion::Unknown, 0, false, "?"},
      {TvVersion::Unknown, 1, false, "?.?"},
      {TvVersion::Unknown, 2, false, "?.??"},
      {TvVersion::Unknown, 3, false, "?.???"},
      {TvVersion::Unknown, 3, true, "?.???"},
      {TvVersion::Unknown, -2, false, ""},
      // Out of range parts are written unchecked.
      {0x0C0A0000, 1, false, "12.:"},
      {0x0C000B1B, 3, false, "12.0;{"},
      {0x64000000, 0, false, ":0"},
      // Bits above the low 32 are not read.
      {0x0C040000 | (1ull << 33 & ~0ul), 3, false, "12.40_"},
  };
  for (const row& r : rows) {
    SCOPED_TRACE(r.expected);
    EXPECT_EQ(TvVersion::ToString(static_cast<unsigned long>(r.version),
                                  static_cast<TvVersion::CompareType>(r.type), r.no_underscore),
              r.expected);
  }
}

// ---------------------------------------------------------------------------
// Former bugs

// The type had no fixed base, so its values were 0-3 only: the other types
// that Compare() and ToString() document were undefined behaviour, which
// UBSan reports where such a type is read from memory, as from these rows.
TEST(TvVersion, EveryIntIsAType) {
  static_assert(std::is_same_v<std::underlying_type_t<TvVersion::CompareType>, int>);
  const struct {
    TvVersion::CompareType type;
    const char* written;
  } rows[] = {
      {static_cast<TvVersion::CompareType>(-1), ""},
      {static_cast<TvVersion::CompareType>(INT_MIN), ""},
      {static_cast<TvVersion::CompareType>(4), "12.41b"},
      {static_cast<TvVersion::CompareType>(INT_MAX), "12.41b"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(static_cast<int>(row.type));
    EXPECT_EQ(TvVersion::ToString(0x0C040102, row.type), row.written);
    EXPECT_EQ(TvVersion::Compare(0x0C040102, 0x0C040101, row.type), 1) << "the full mask";
  }
}

}  // namespace
