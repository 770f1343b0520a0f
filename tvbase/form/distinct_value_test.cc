#include <tvbase/form/distinct_value.h>

#include <chrono>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <tvbase/frame/shared_data.h>
#include <tvbase/testing/processes.h>

namespace {

TEST(DistinctValue, FormatsInFixedWidths) {
  struct row {
    unsigned long long value;
    const char* b36;
    const char* hex;
  };
  const row rows[] = {
      {0, "0000000000000", "0000000000000000"},
      {1, "0000000000001", "0000000000000001"},
      {35, "000000000000Z", "0000000000000023"},
      {36, "0000000000010", "0000000000000024"},
      {0xFFFFFFFFull, "0000001Z141Z3", "00000000FFFFFFFF"},
      {ULLONG_MAX, "3W5E11264SGSF", "FFFFFFFFFFFFFFFF"},
  };
  for (const row& r : rows) {
    SCOPED_TRACE(r.value);
    EXPECT_EQ(distinct_value::str_hex(r.value), r.hex);
    EXPECT_EQ(distinct_value::str_b36(r.value), r.b36);
  }
}

TEST(DistinctValue, CountsUpAndTheTextFormsTakeANumberEach) {
  const unsigned long long first = distinct_value::get();
  EXPECT_NE(first, 0u);
  EXPECT_EQ(distinct_value::get(), first + 1);
  EXPECT_EQ(distinct_value::str_hex(), distinct_value::str_hex(first + 2));
  EXPECT_EQ(distinct_value::str_b36(), distinct_value::str_b36(first + 3));
}

// Numbers a thread or process took, in the order it took them.
bool rising(const std::vector<unsigned long long>& taken) {
  for (std::size_t i = 1; i < taken.size(); ++i) {
    if (taken[i] <= taken[i - 1]) return false;
  }
  return true;
}

TEST(DistinctValue, TwoThreadsNeverGetTheSameNumber) {
  constexpr int kEach = 100000;
  std::vector<unsigned long long> a, b;
  a.reserve(kEach);
  b.reserve(kEach);
  std::thread one([&] {
    for (int i = 0; i < kEach; ++i) a.push_back(distinct_value::get());
  });
  std::thread two([&] {
    for (int i = 0; i < kEach; ++i) b.push_back(distinct_value::get());
  });
  one.join();
  two.join();
  EXPECT_TRUE(rising(a));
  EXPECT_TRUE(rising(b));
  std::set<unsigned long long> all(a.begin(), a.end());
  all.insert(b.begin(), b.end());
  EXPECT_EQ(all.size(), 2u * kEach);
}

// Forked children map the same block as this process: four of them take
// numbers at once and write them to files that the parent reads back.
TEST(DistinctValue, FourProcessesGetAMillionDistinctNumbers) {
  if (!testing_support::can_fork) GTEST_SKIP() << "needs fork(), which Windows lacks";
  constexpr int kProcesses = 4;
  constexpr int kEach = 250000;
  const std::string folder = testing::TempDir();
  std::vector<std::unique_ptr<testing_support::forked_child>> children;
  for (int p = 0; p < kProcesses; ++p) {
    children.push_back(std::make_unique<testing_support::forked_child>([&folder, p] {
      std::vector<unsigned long long> taken(kEach);
      for (auto& n : taken) n = distinct_value::get();
      std::FILE* out = std::fopen((folder + "distinct-" + std::to_string(p)).c_str(), "wb");
      const bool ok =
          out && std::fwrite(taken.data(), sizeof taken[0], taken.size(), out) == taken.size();
      return out && std::fclose(out) == 0 && ok ? 0 : 1;
    }));
    ASSERT_TRUE(children.back()->started());
  }
  for (const auto& child : children) {
    const testing_support::exit_status status = child->wait();
    ASSERT_TRUE(status.exited && status.code == 0);
  }
  std::set<unsigned long long> all;
  for (int p = 0; p < kProcesses; ++p) {
    const std::string path = folder + "distinct-" + std::to_string(p);
    std::ifstream in(path, std::ios::binary);
    std::vector<unsigned long long> taken(kEach);
    in.read(reinterpret_cast<char*>(taken.data()),
            static_cast<std::streamsize>(kEach * sizeof taken[0]));
    ASSERT_TRUE(in.good()) << path;
    EXPECT_TRUE(rising(taken)) << "process " << p;
    all.insert(taken.begin(), taken.end());
    std::remove(path.c_str());
  }
  EXPECT_EQ(all.size(), static_cast<std::size_t>(kProcesses * kEach));
  EXPECT_GT(distinct_value::get(), *all.rbegin()) << "the parent goes on behind them";
}

// Processes killed while they take numbers can't hurt the others: two
// children take numbers without end and are killed mid-run, two take a fixed
// count beside them. Every number any of them recorded is distinct, and the
// count goes on past all of them.
TEST(DistinctValue, ProcessesKilledWhileTakingNumbersLoseNothingForTheOthers) {
  if (!testing_support::can_fork) GTEST_SKIP() << "needs fork(), which Windows lacks";
  constexpr int kProcesses = 4;
  constexpr int kKilled = 2;
  constexpr int kBatch = 1024;
  constexpr long kSurvivorBatches = 100;
  const std::string folder = testing::TempDir();
  auto path_of = [&](int p) { return folder + "distinct-killed-" + std::to_string(p); };
  std::vector<std::unique_ptr<testing_support::forked_child>> children;
  for (int p = 0; p < kProcesses; ++p) {
    children.push_back(std::make_unique<testing_support::forked_child>([&path_of, p] {
      // Unbuffered whole batches: a kill leaves at most a cut last record.
      std::FILE* out = std::fopen(path_of(p).c_str(), "wb");
      if (out == nullptr || std::setvbuf(out, nullptr, _IONBF, 0) != 0) return 1;
      unsigned long long batch[kBatch];
      for (long round = 0; p < kKilled || round < kSurvivorBatches; ++round) {
        for (auto& n : batch) n = distinct_value::get();
        if (std::fwrite(batch, sizeof batch, 1, out) != 1) return 1;
      }
      return std::fclose(out) == 0 ? 0 : 1;
    }));
    ASSERT_TRUE(children.back()->started());
  }
  // Kill the endless ones once each has taken a good share.
  for (int p = 0; p < kKilled; ++p) {
    for (int waited = 0; waited < 30000; ++waited) {
      std::error_code error;
      const auto size = std::filesystem::file_size(path_of(p), error);
      if (!error && size >= 64 * kBatch * 8) break;
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    children[p]->kill();
  }
  for (int p = 0; p < kProcesses; ++p) {
    const testing_support::exit_status status = children[p]->wait();
    if (p < kKilled) {
      EXPECT_TRUE(!status.exited && status.signal == SIGKILL) << "process " << p;
    } else {
      EXPECT_TRUE(status.exited && status.code == 0) << "process " << p;
    }
  }
  std::set<unsigned long long> all;
  std::size_t recorded = 0;
  for (int p = 0; p < kProcesses; ++p) {
    std::ifstream in(path_of(p), std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    std::vector<unsigned long long> taken(bytes.size() / 8);
    std::memcpy(taken.data(), bytes.data(), taken.size() * 8);
    if (p >= kKilled) {
      EXPECT_EQ(taken.size(), static_cast<std::size_t>(kSurvivorBatches * kBatch));
    }
    EXPECT_TRUE(rising(taken)) << "process " << p;
    recorded += taken.size();
    all.insert(taken.begin(), taken.end());
    std::remove(path_of(p).c_str());
  }
  EXPECT_EQ(all.size(), recorded) << "a number was handed out twice";
  EXPECT_GT(distinct_value::get(), *all.rbegin()) << "the parent goes on behind them";
}

// Run as a separate program by the next test: takes one number and writes it
// to the file that the parent names; it joins the parent's block.
TEST(DistinctValueChild, TakesOneNumber) {
  const char* out = std::getenv("TVBASE_DISTINCT_CHILD_OUT");
  if (out == nullptr) GTEST_SKIP() << "only run by DistinctValue.ALaterProcessContinuesTheCount";
  std::ofstream(out) << distinct_value::get();
}

TEST(DistinctValue, ALaterProcessContinuesTheCount) {
  const unsigned long long before = distinct_value::get();
  const std::string out = testing::TempDir() + "distinct-child";
  testing_support::program child(
      {FORM_TEST_PROGRAM, "--gtest_filter=DistinctValueChild.TakesOneNumber"},
      {{"TVBASE_DISTINCT_CHILD_OUT", out}});
  ASSERT_EQ(child.finish(), 0) << child.out() << child.err();
  unsigned long long taken = 0;
  std::ifstream(out) >> taken;
  std::remove(out.c_str());
  EXPECT_EQ(taken, before + 1);
  EXPECT_EQ(distinct_value::get(), before + 2);
}

// How the abort signal ends a process: by the signal on POSIX; on Windows the
// run-time's default for it exits with 3.
#if defined(_WIN32)
const auto kEndedByAbort = testing::ExitedWithCode(3);
#else
const auto kEndedByAbort = testing::KilledBySignal(SIGABRT);
#endif

TEST(DistinctValueDeathTest, WrapEndsTheProcessWithTheAbortSignal) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        // Drive the counter to its last number through the shared block.
        frame::distinct_counter(*TvGetSharedData()).store(ULLONG_MAX - 1);
        if (distinct_value::get() != ULLONG_MAX) std::exit(5);
        distinct_value::get();
        std::exit(6);
      },
      kEndedByAbort, "");
}

// Where the host ignores the abort signal, the wrap still ends the process,
// with status 3, rather than handing out 0 and counting on.
TEST(DistinctValueDeathTest, WrapEndsTheProcessWithStatus3WhenAbortIsIgnored) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        std::signal(SIGABRT, SIG_IGN);
        frame::distinct_counter(*TvGetSharedData()).store(ULLONG_MAX);
        distinct_value::get();
        std::exit(6);
      },
      testing::ExitedWithCode(3), "");
}

}  // namespace
