#include <tvbase/trace/crc.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <string>

#include <gtest/gtest.h>

namespace {

// Bit by bit, as the polynomial says, with no table.
std::uint32_t naive_crc(std::uint32_t value, const std::string& bytes) {
  for (const unsigned char byte : bytes) {
    value ^= byte;
    for (int bit = 0; bit < 8; ++bit) value = (value >> 1) ^ ((value & 1) ? 0xEDB88320u : 0);
  }
  return value;
}

TEST(TvCrc, KnownValues) {
  const struct {
    unsigned long long start;  // unsigned long has 32 bits on Windows
    bool default_start;
    const char* text;
    std::uint32_t expected;
  } rows[] = {
      {0, true, "", 0x827C7885},
      {0, true, "abc", 0x93CE8FD0},
      {0xFFFFFFFF, false, "abc", 0xCADBBE3D},
      // The familiar check value 0xCBF43926, not inverted at the end.
      {0xFFFFFFFF, false, "123456789", ~0xCBF43926u},
      {0, false, "", 0},
      // Only the low 32 bits of the start value count.
      {0x1FFFFFFFFull, false, "abc", 0xCADBBE3D},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    TvCrc crc = row.default_start ? TvCrc() : TvCrc(static_cast<unsigned long>(row.start));
    EXPECT_EQ(crc.Add(row.text).GetCrc(), row.expected);
    crc.Reset();
    EXPECT_EQ(crc.Add(row.text, static_cast<unsigned>(std::strlen(row.text))).GetCrc(),
              row.expected);
  }
}

TEST(TvCrc, MatchesBitwiseReferenceOnRandomBytes) {
  std::mt19937 random(7);
  for (int round = 0; round < 50; ++round) {
    std::string bytes(random() % 300, '\0');
    for (char& c : bytes) c = static_cast<char>(random());
    const std::uint32_t start = static_cast<std::uint32_t>(random());
    SCOPED_TRACE(round);
    EXPECT_EQ(TvCrc(start).Add(bytes.data(), static_cast<unsigned>(bytes.size())).GetCrc(),
              naive_crc(start, bytes));
    // Added in two pieces, the same.
    const std::size_t cut = bytes.empty() ? 0 : random() % bytes.size();
    TvCrc pieces(start);
    pieces.Add(bytes.data(), static_cast<unsigned>(cut));
    pieces.Add(bytes.data() + cut, static_cast<unsigned>(bytes.size() - cut));
    EXPECT_EQ(pieces.GetCrc(), naive_crc(start, bytes));
  }
}

TEST(TvCrc, TextStopsAtItsZero) {
  TvCrc crc;
  crc.Add("ab\0cd");
  EXPECT_EQ(crc.GetCrc(), TvCrc().Add("ab").GetCrc());
  EXPECT_EQ(TvCrc().Add("").GetCrc(), TvCrc::kDefaultStart);
}

TEST(TvCrc, ResetGoesBackToTheLastStart) {
  TvCrc crc;
  crc.Add("abc");
  EXPECT_EQ(crc.Reset().GetCrc(), 0x827C7885u);
  crc.Reset(0xFFFFFFFF).Add("abc");
  EXPECT_EQ(crc.GetCrc(), 0xCADBBE3Du);
  EXPECT_EQ(crc.Reset().GetCrc(), 0xFFFFFFFFu) << "not back to the default";
  TvCrc copy;
  copy = crc;
  EXPECT_EQ(copy.Add("abc").GetCrc(), 0xCADBBE3Du);
  EXPECT_EQ(copy.Reset().GetCrc(), 0xFFFFFFFFu);
}

}  // namespace
