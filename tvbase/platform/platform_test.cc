#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <tvbase/platform/error_text.h>
#include <tvbase/platform/ole_time.h>
#include <tvbase/platform/readable_memory.h>
#include <tvbase/testing/processes.h>

namespace {

const char kPageProbe = 1;

// Two pages: the first readable, the second mapped without access.
class GuardedPage : public testing::Test {
 protected:
  char* end() const { return guard_.end(); }

  testing_support::guarded_page guard_;
  std::size_t page_ = guard_.size();
  char* base_ = guard_.base();
};

TEST_F(GuardedPage, AnswersForRangesAroundTheGuard) {
  EXPECT_TRUE(platform::is_readable(base_, page_));
  EXPECT_TRUE(platform::is_readable(end() - 4, 4));
  EXPECT_FALSE(platform::is_readable(end() - 4, 5)) << "one byte into the guard";
  EXPECT_FALSE(platform::is_readable(end(), 1));
  EXPECT_TRUE(platform::is_readable(end(), 0)) << "nothing asked, nothing read";
  EXPECT_FALSE(platform::is_readable(nullptr, 1));
  EXPECT_TRUE(platform::is_readable(nullptr, 0));
  EXPECT_FALSE(platform::is_readable(reinterpret_cast<void*>(~std::uintptr_t{0} - 2), 8))
      << "wraps";
}

// A batch gets the answers that one question at a time gets, whatever the
// order of good and bad ranges.
TEST_F(GuardedPage, AnswersABatchAsOneByOne) {
  const std::vector<std::pair<const void*, std::size_t>> questions = {
      {base_, 8},     {end(), 1},       {end() - 4, 4}, {end() - 4, 5},     {nullptr, 1},
      {nullptr, 0},   {end(), 0},       {base_, page_}, {base_, page_ + 1}, {base_ + 1, page_},
      {end() - 1, 1}, {&kPageProbe, 1}, {end(), 8},     {base_ + 100, 16},
  };
  // Every rotation, so that each range comes first, last and after a bad one.
  for (std::size_t shift = 0; shift < questions.size(); ++shift) {
    std::vector<platform::readable_range> batch;
    for (std::size_t i = 0; i < questions.size(); ++i) {
      const auto& [address, size] = questions[(i + shift) % questions.size()];
      batch.push_back({address, size, false});
    }
    platform::check_readable(batch.data(), batch.size());
    for (const platform::readable_range& r : batch) {
      EXPECT_EQ(r.readable, platform::is_readable(r.address, r.size))
          << "shift " << shift << ": " << r.address << " + " << r.size;
    }
  }
}

TEST_F(GuardedPage, ReadsTextsOnlyThroughToTheirZero) {
  std::size_t length = 99;
  std::memset(base_, 'a', page_);
  EXPECT_FALSE(platform::is_readable_text(end() - 10, length)) << "no zero before the guard";
  end()[-1] = '\0';
  EXPECT_TRUE(platform::is_readable_text(end() - 10, length));
  EXPECT_EQ(length, 9u);
  EXPECT_TRUE(platform::is_readable_text(base_, length)) << "a text of a whole page";
  EXPECT_EQ(length, page_ - 1);
  EXPECT_FALSE(platform::is_readable_text(static_cast<const char*>(nullptr), length));
  EXPECT_FALSE(platform::is_readable_text(end(), length));

  auto* wide_end = reinterpret_cast<wchar_t*>(end());
  std::fill(wide_end - 8, wide_end, L'w');
  EXPECT_FALSE(platform::is_readable_text(wide_end - 8, length));
  wide_end[-1] = L'\0';
  EXPECT_TRUE(platform::is_readable_text(wide_end - 8, length));
  EXPECT_EQ(length, 7u);
}

TEST(ReadableMemory, CrossesPagesForLongTexts) {
  const std::string text(3 * 4096 + 17, 'x');
  std::size_t length = 0;
  EXPECT_TRUE(platform::is_readable_text(text.c_str(), length));
  EXPECT_EQ(length, text.size());
  const std::wstring wide(5000, L'y');
  EXPECT_TRUE(platform::is_readable_text(wide.c_str(), length));
  EXPECT_EQ(length, wide.size());
}

struct date_row {
  double date;
  bool valid;
  platform::calendar_time expected;
};

// The answers are about the asking process's memory, also in a forked child
// that maps a page the parent never had.
TEST(ReadableMemory, AForkedChildAsksAboutItsOwnMemory) {
  if (!testing_support::can_fork) GTEST_SKIP() << "no fork() on this system";
  ASSERT_TRUE(platform::is_readable(&kPageProbe, 1)) << "the parent asked before the fork";
  EXPECT_EQ(testing_support::in_child([] {
              testing_support::guarded_page fresh;
              return platform::is_readable(fresh.base(), fresh.size()) &&
                             !platform::is_readable(fresh.end(), 1)
                         ? 0
                         : 1;
            }),
            0);
}

TEST(OleTime, ConvertsAutomationDates) {
  const date_row rows[] = {
      {0.0, true, {1899, 12, 30, 0, 0, 0}},
      {1.0, true, {1899, 12, 31, 0, 0, 0}},
      {2.0, true, {1900, 1, 1, 0, 0, 0}},
      {60.0, true, {1900, 2, 28, 0, 0, 0}},
      {61.0, true, {1900, 3, 1, 0, 0, 0}},
      {36526.5, true, {2000, 1, 1, 12, 0, 0}},
      {46056.3785069444, true, {2026, 2, 3, 9, 5, 3}},
      {-1.25, true, {1899, 12, 29, 6, 0, 0}},  // the fraction counts forward from the day
      {-0.25, true, {1899, 12, 30, 6, 0, 0}},
      {0.5 / 86400.0 + 1e-9, true, {1899, 12, 30, 0, 0, 1}},  // rounded to the second
      {1.0 - 0.1 / 86400.0, true, {1899, 12, 31, 0, 0, 0}},   // rounds up to the next day
      {-657434.0, true, {100, 1, 1, 0, 0, 0}},
      {2958465.0 + 86399.0 / 86400.0, true, {9999, 12, 31, 23, 59, 59}},
      {-657435.0, false, {}},
      {2958466.0, false, {}},
      {NAN, false, {}},
      {INFINITY, false, {}},
  };
  for (const date_row& r : rows) {
    SCOPED_TRACE(testing::Message() << std::to_string(r.date));
    platform::calendar_time t{};
    ASSERT_EQ(platform::variant_time_to_calendar(r.date, t), r.valid);
    if (!r.valid) continue;
    EXPECT_EQ(t.year, r.expected.year);
    EXPECT_EQ(t.month, r.expected.month);
    EXPECT_EQ(t.day, r.expected.day);
    EXPECT_EQ(t.hour, r.expected.hour);
    EXPECT_EQ(t.minute, r.expected.minute);
    EXPECT_EQ(t.second, r.expected.second);
  }
}

}  // namespace

// The system's words come without a line end, and a code it doesn't know
// still gives a text to show.
TEST(ErrorText, GivesTheSystemsWordsOnOneLine) {
#if defined(_WIN32)
  const std::uint32_t missing = 2;  // ERROR_FILE_NOT_FOUND
  // Windows' words, and Wine's.
  const std::vector<std::string> words = {"The system cannot find the file specified.",
                                          "File not found."};
#else
  const std::uint32_t missing = ENOENT;
  const std::vector<std::string> words = {"No such file or directory"};
#endif
  EXPECT_THAT(words, testing::Contains(platform::error_text(missing)));
  for (const std::uint32_t code : {0u, 5u, 0x7FFFFFFu, 0xFFFFFFFFu}) {
    SCOPED_TRACE(code);
    const std::string text = platform::error_text(code);
    EXPECT_FALSE(text.empty());
    EXPECT_EQ(text.find_first_of("\r\n"), std::string::npos) << text;
  }
}
