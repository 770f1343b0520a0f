#include <tvbase/frame/shared_data.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include <tvbase/platform/process.h>
#include <tvbase/platform/shared_memory.h>
#include <tvbase/testing/processes.h>

namespace {

// A block name of this test process's own, apart from the library's block.
std::string scratch_name(const char* what) {
  return "/tvbase-scratch-" + std::to_string(platform::process_id()) + "-" + what;
}

bool object_exists(const std::string& name) { return std::filesystem::exists("/dev/shm" + name); }

using testing_support::in_child;

struct mapping {
  explicit mapping(const std::string& name, std::size_t size = 4096)
      : name_(name), block_(platform::map_shared_memory(name.c_str(), size)) {}
  ~mapping() { platform::unmap_shared_memory(block_, name_.c_str()); }
  unsigned char* bytes() const { return static_cast<unsigned char*>(block_.data); }
  std::string name_;
  platform::shared_memory block_;
};

TEST(SharedData, LibraryMapsTheTestBlock) {
  if (!testing_support::can_fork)
    GTEST_SKIP() << "the POSIX shared-memory object under /dev/shm; Windows maps a named section";
  TvSharedData* data = TvGetSharedData();
  ASSERT_NE(data, nullptr);
  const std::string name = frame::shared_block_name();
  EXPECT_NE(name, "/tvbase-shared-1");
  ASSERT_TRUE(object_exists(name)) << name;
  // The library's block is the object: a second mapping sees its writes.
  mapping second(name, sizeof(TvSharedData));
  ASSERT_NE(second.bytes(), nullptr);
  data->cfgSet = 0x5A5A;
  std::uint32_t seen = 0;
  std::memcpy(&seen, second.bytes() + offsetof(TvSharedData, cfgSet), sizeof seen);
  EXPECT_EQ(seen, 0x5A5Au);
  data->cfgSet = 0;
}

TEST(SharedData, FallsBackToAPrivateBlockOutsideLoad) {
  TvSharedData* mapped = TvGetSharedData();
  frame::detach_shared_data();
  TvSharedData* fallback = TvGetSharedData();
  EXPECT_NE(fallback, nullptr);
  EXPECT_NE(fallback, mapped);
  frame::attach_shared_data();
  EXPECT_NE(TvGetSharedData(), fallback);
}

TEST(SharedMemory, IsCreatedZeroFilledForEveryUser) {
  if (!testing_support::can_fork)
    GTEST_SKIP() << "the POSIX shared-memory object under /dev/shm; Windows maps a named section";
  const std::string name = scratch_name("mode");
  const unsigned old_mask = testing_support::set_umask(077);
  mapping block(name);
  testing_support::set_umask(old_mask);
  ASSERT_NE(block.bytes(), nullptr);
  for (std::size_t i = 0; i < 4096; ++i) ASSERT_EQ(block.bytes()[i], 0) << i;
  EXPECT_EQ(testing_support::file_mode("/dev/shm" + name), 0666);
}

TEST(SharedMemory, LastHolderRemovesTheObject) {
  if (!testing_support::can_fork)
    GTEST_SKIP() << "the POSIX shared-memory object under /dev/shm; Windows maps a named section";
  const std::string name = scratch_name("last");
  {
    mapping first(name);
    ASSERT_NE(first.bytes(), nullptr);
    {
      mapping second(name);
      ASSERT_NE(second.bytes(), nullptr);
      second.bytes()[7] = 42;
    }
    EXPECT_TRUE(object_exists(name)) << "removed while still held";
    EXPECT_EQ(first.bytes()[7], 42);
  }
  EXPECT_FALSE(object_exists(name));
  mapping again(name);
  ASSERT_NE(again.bytes(), nullptr);
  EXPECT_EQ(again.bytes()[7], 0);
}

TEST(SharedMemory, AnotherProcessSeesTheSameContent) {
  if (!testing_support::can_fork) GTEST_SKIP() << "needs fork(), which Windows lacks";
  const std::string name = scratch_name("peer");
  mapping mine(name);
  ASSERT_NE(mine.bytes(), nullptr);
  mine.bytes()[100] = 9;
  const int status = in_child([&] {
    mapping theirs(name);
    if (theirs.bytes() == nullptr || theirs.bytes()[100] != 9) return 1;
    theirs.bytes()[101] = 17;
    return 0;
  });
  EXPECT_EQ(status, 0);
  EXPECT_EQ(mine.bytes()[101], 17);
  EXPECT_TRUE(object_exists(name));
}

TEST(SharedMemory, ContentLeftByACrashedProcessIsGone) {
  if (!testing_support::can_fork) GTEST_SKIP() << "needs fork(), which Windows lacks";
  const std::string name = scratch_name("crash");
  const int status = in_child([&] {
    platform::shared_memory block = platform::map_shared_memory(name.c_str(), 4096);
    if (block.data == nullptr) return 1;
    static_cast<unsigned char*>(block.data)[0] = 99;
    return 0;  // ends without unmapping, as a crash would
  });
  ASSERT_EQ(status, 0);
  ASSERT_TRUE(object_exists(name));
  mapping block(name);
  ASSERT_NE(block.bytes(), nullptr);
  EXPECT_EQ(block.bytes()[0], 0);
}

TEST(SharedMemory, ForkedChildDoesNotCountItsParentOut) {
  if (!testing_support::can_fork) GTEST_SKIP() << "needs fork(), which Windows lacks";
  const std::string name = scratch_name("fork");
  mapping mine(name);
  ASSERT_NE(mine.bytes(), nullptr);
  mine.bytes()[5] = 3;
  const int status = in_child([&] {
    platform::shared_memory inherited = mine.block_;
    platform::rejoin_shared_memory(inherited, name.c_str());
    platform::unmap_shared_memory(inherited, name.c_str());
    return 0;
  });
  ASSERT_EQ(status, 0);
  EXPECT_TRUE(object_exists(name));
  mapping second(name);
  ASSERT_NE(second.bytes(), nullptr);
  EXPECT_EQ(second.bytes()[5], 3);
}

TEST(SharedMemory, RefusesWhatCannotBeMapped) {
  if (!testing_support::can_fork)
    GTEST_SKIP() << "the POSIX shared-memory object under /dev/shm; Windows maps a named section";
  const std::string name = scratch_name("size");
  mapping small(name, 4096);
  ASSERT_NE(small.bytes(), nullptr);
  const struct {
    std::string name;
    std::size_t size;
  } rows[] = {
      {name, 8192},                         // held by this process at another size
      {"/no/such/folder", 4096},            // not a valid object name
      {"/" + std::string(300, 'x'), 4096},  // too long for a name
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name.substr(0, 40));
    mapping block(row.name, row.size);
    EXPECT_EQ(block.bytes(), nullptr);
  }
}

unsigned g_attempts = 0;

TEST(SharedLock, TryAcquireTakesOnlyAFreeWord) {
  TvSharedData data{};
  EXPECT_TRUE(frame::try_acquire_lock(data));
  EXPECT_EQ(data.lock, 1u);
  EXPECT_FALSE(frame::try_acquire_lock(data));
  EXPECT_EQ(data.lock, 1u);
  frame::release_lock(data);
  EXPECT_EQ(data.lock, 0u);
  EXPECT_TRUE(frame::try_acquire_lock(data));
}

TEST(SharedLock, BlockingAcquireRetriesUntilReleased) {
  static TvSharedData data{};
  data.lock = 1;
  g_attempts = 0;
  frame::acquire_lock(data, [](unsigned attempts) {
    g_attempts = attempts;
    if (attempts == 2) frame::force_unlock(data);
  });
  EXPECT_EQ(g_attempts, 2u);
  EXPECT_EQ(data.lock, 1u);  // held by the caller now
  frame::release_lock(data);
  frame::acquire_lock(data, [](unsigned) { ++g_attempts; });
  EXPECT_EQ(g_attempts, 2u) << "a free word is taken at the first attempt";
}

TEST(SharedLock, HeldWordIsSeenByAnotherProcess) {
  if (!testing_support::can_fork) GTEST_SKIP() << "needs fork(), which Windows lacks";
  TvSharedData& data = *TvGetSharedData();
  ASSERT_TRUE(frame::try_acquire_lock(data));
  EXPECT_EQ(in_child([] { return frame::try_acquire_lock(*TvGetSharedData()) ? 0 : 7; }), 7);
  frame::release_lock(data);
  EXPECT_EQ(in_child([] {
              TvSharedData& shared = *TvGetSharedData();
              if (!frame::try_acquire_lock(shared)) return 7;
              frame::release_lock(shared);
              return 0;
            }),
            0);
}

TEST(SharedCounter, CountsAcrossProcesses) {
  if (!testing_support::can_fork) GTEST_SKIP() << "needs fork(), which Windows lacks";
  TvSharedData& data = *TvGetSharedData();
  constexpr int kEach = 20000;
  const auto count = [] {
    auto counter = frame::distinct_counter(*TvGetSharedData());
    for (int i = 0; i < kEach; ++i) {
      std::uint64_t seen = counter.load();
      while (!counter.compare_exchange_weak(seen, seen + 1)) {
      }
    }
    return 0;
  };
  const std::uint64_t start = frame::distinct_counter(data).load();
  testing_support::forked_child child(count);
  ASSERT_TRUE(child.started());
  count();
  EXPECT_EQ(child.wait().code, 0);
  EXPECT_EQ(frame::distinct_counter(data).load(), start + 2 * kEach);
}

}  // namespace
