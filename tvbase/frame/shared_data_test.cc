#include <tvbase/frame/shared_data.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <tvbase/platform/process.h>
#include <tvbase/platform/shared_memory.h>
#include <tvbase/platform/user.h>
#include <tvbase/testing/processes.h>
#include <tvbase/testing/system_objects.h>

namespace {

using testing_support::shared_object;

// A hang guard for children and programs that must end on their own.
constexpr int kHang = 20;
constexpr platform::guard_patience kPatience{20, 5};

platform::user_account me() {
  platform::user_account account;
  EXPECT_TRUE(platform::effective_user(account));
  return account;
}

platform::user_account account_of(unsigned uid) {
  platform::user_account account;
  std::snprintf(account.id, sizeof account.id, "%u", uid);
  return account;
}

// A block name of this test process's own, apart from the library's block.
std::string scratch_name(const char* what) {
  return "/tvbase-scratch-" + std::to_string(platform::process_id()) + "-" + what;
}

bool object_exists(const std::string& name) { return std::filesystem::exists("/dev/shm" + name); }

using testing_support::in_child;

struct mapping {
  explicit mapping(const std::string& name, std::size_t size = 4096,
                   const platform::user_account& owner = me())
      : name_(name), block_(platform::map_shared_memory(name.c_str(), size, owner, kPatience)) {}
  ~mapping() { platform::unmap_shared_memory(block_, name_.c_str(), kPatience); }
  unsigned char* bytes() const { return static_cast<unsigned char*>(block_.data); }
  std::string name_;
  platform::shared_memory block_;
};

TEST(SharedData, LibraryMapsTheTestBlockOfItsUser) {
  TvSharedData* data = TvGetSharedData();
  ASSERT_NE(data, nullptr);
  ASSERT_TRUE(frame::shared_data_is_shared());
  const std::string name = frame::shared_block_object_name();
  EXPECT_EQ(name, std::string(frame::shared_block_name()) + "-" + me().id);
  EXPECT_EQ(name.rfind("/tvbase-test-", 0), 0u) << name;
  ASSERT_TRUE(object_exists(name)) << name;
  const testing_support::file_status object = testing_support::status_of("/dev/shm" + name);
  EXPECT_EQ(object.owner, testing_support::effective_uid());
  EXPECT_EQ(object.mode, 0600u);
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
  EXPECT_FALSE(frame::shared_data_is_shared());
  EXPECT_STREQ(frame::shared_block_object_name(), "");
  frame::attach_shared_data();
  EXPECT_NE(TvGetSharedData(), fallback);
  EXPECT_TRUE(frame::shared_data_is_shared());
}

TEST(SharedMemory, IsCreatedZeroFilledForItsUserAlone) {
  for (const unsigned mask : {0u, 077u}) {
    SCOPED_TRACE(mask);
    const std::string name = scratch_name("mode");
    const unsigned old_mask = testing_support::set_umask(mask);
    mapping block(name);
    testing_support::set_umask(old_mask);
    ASSERT_NE(block.bytes(), nullptr);
    for (std::size_t i = 0; i < 4096; ++i) ASSERT_EQ(block.bytes()[i], 0) << i;
    EXPECT_EQ(testing_support::file_mode("/dev/shm" + name), 0600);
  }
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
    platform::shared_memory block =
        platform::map_shared_memory(name.c_str(), 4096, me(), kPatience);
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
    platform::rejoin_shared_memory(inherited, name.c_str(), kPatience);
    platform::unmap_shared_memory(inherited, name.c_str(), kPatience);
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

// What stands at a block's name before the user's first process maps it,
// made by another user or open to others: none of it is mapped, so none of
// it can be changed under the process (a record that switches its trace on,
// a counter at its end, a size cut to 0 for a fault at the next touch), and
// none of it is changed by the attempt.
TEST(SharedMemory, UsesNoObjectThatOthersCouldHaveMadeOrOpened) {
  const unsigned mine = testing_support::effective_uid();
  const unsigned other = testing_support::kOtherUser;
  const struct {
    const char* what;
    unsigned owner;
    unsigned mode;
    std::size_t size;
    bool fifo;
  } rows[] = {
      {"another user's, open to all", other, 0666, 4096, false},
      {"another user's, theirs alone", other, 0600, 4096, false},
      {"another user's, of size 0", other, 0666, 0, false},
      {"another user's, of the wrong size", other, 0666, 100, false},
      {"mine, but open to all", mine, 0666, 4096, false},
      {"mine, but open to my group", mine, 0660, 4096, false},
      {"a pipe", mine, 0600, 0, true},
  };
  int i = 0;
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    const std::string name = scratch_name(("planted-" + std::to_string(i++)).c_str());
    const std::string path = "/dev/shm" + name;
    if (row.fifo) {
      ASSERT_TRUE(testing_support::make_fifo(path));
    } else {
      shared_object planted(name, testing_support::create, row.mode);
      ASSERT_TRUE(planted.is_open());
      ASSERT_TRUE(planted.resize(row.size));
    }
    ASSERT_TRUE(testing_support::set_owner(path, row.owner));
    ASSERT_TRUE(testing_support::set_mode(path, row.mode));
    {
      mapping block(name);
      EXPECT_EQ(block.bytes(), nullptr);
    }
    const testing_support::file_status after = testing_support::status_of(path);
    EXPECT_TRUE(after.exists);
    EXPECT_EQ(after.owner, row.owner);
    EXPECT_EQ(after.mode, row.mode);
    EXPECT_EQ(after.size, static_cast<long long>(row.size));
    EXPECT_TRUE(std::filesystem::remove(path));
  }
}

// An object of the user's own left at a wrong size by processes that are
// gone is made right: zero-filled at the expected size.
TEST(SharedMemory, OwnObjectThatNobodyHoldsStartsAfresh) {
  const std::string name = scratch_name("leftover");
  {
    shared_object left(name, testing_support::create, 0600);
    ASSERT_TRUE(left.resize(100));
    const unsigned char byte = 7;
    ASSERT_TRUE(left.write(50, &byte, 1));
  }
  mapping block(name);
  ASSERT_NE(block.bytes(), nullptr);
  EXPECT_EQ(block.bytes()[50], 0);
  EXPECT_EQ(testing_support::status_of("/dev/shm" + name).size, 4096);
}

// Another user can't open the block of this user's processes, so they can
// neither map it, nor write, resize or remove it.
TEST(SharedMemory, AnotherUserCanNeitherOpenNorMapIt) {
  const std::string scratch = scratch_name("victim");
  mapping victim(scratch, sizeof(TvSharedData));
  ASSERT_NE(victim.bytes(), nullptr);
  TvSharedData& library = *TvGetSharedData();
  ASSERT_TRUE(frame::shared_data_is_shared());
  library.cfgSet = 0;
  for (const std::string& name : {std::string(frame::shared_block_object_name()), scratch}) {
    SCOPED_TRACE(name);
    const platform::user_account owner = me();
    const auto seen = testing_support::as_other_user([&name, &owner] {
      shared_object object(name, testing_support::open_existing);
      platform::user_account theirs;
      if (!platform::effective_user(theirs)) return std::string("no account");
      std::string result = "open " + std::to_string(object.error());
      for (const platform::user_account& as : {theirs, owner}) {
        platform::shared_memory block =
            platform::map_shared_memory(name.c_str(), sizeof(TvSharedData), as, kPatience);
        result += block.data != nullptr ? ", mapped" : ", not mapped";
        if (block.data != nullptr) {
          static_cast<TvSharedData*>(block.data)->cfgSet = 1;
          platform::unmap_shared_memory(block, name.c_str(), kPatience);
        }
      }
      result += testing_support::remove_shared_object(name) ? ", removed" : ", not removed";
      return result;
    });
    if (!seen) GTEST_SKIP() << "needs root, to act as a second user";
    EXPECT_EQ(*seen, "open 13, not mapped, not mapped, not removed");
    EXPECT_TRUE(object_exists(name));
    EXPECT_EQ(testing_support::status_of("/dev/shm" + name).size,
              static_cast<long long>(sizeof(TvSharedData)));
  }
  EXPECT_EQ(library.cfgSet, 0u);
}

// Root acting for a user makes the block that user's: theirs alone, and
// what root put there is what the user's processes see.
TEST(SharedMemory, RootMakesTheBlockOfAnotherUserTheirs) {
  if (testing_support::effective_uid() != 0) GTEST_SKIP() << "needs root";
  const std::string name = scratch_name("for-other");
  mapping made(name, 4096, account_of(testing_support::kOtherUser));
  ASSERT_NE(made.bytes(), nullptr);
  made.bytes()[9] = 99;
  const testing_support::file_status object = testing_support::status_of("/dev/shm" + name);
  EXPECT_EQ(object.owner, testing_support::kOtherUser);
  EXPECT_EQ(object.mode, 0600u);
  const auto seen = testing_support::as_other_user([&name] {
    mapping theirs(name);
    return theirs.bytes() == nullptr ? std::string("not mapped")
                                     : std::to_string(theirs.bytes()[9]);
  });
  ASSERT_TRUE(seen);
  EXPECT_EQ(*seen, "99");
  mapping as_root(name);  // root's own account: not root's object
  EXPECT_EQ(as_root.bytes(), nullptr);
}

// Waits, at most kHang seconds, for a file that a child makes when ready.
bool appears(const std::string& path) {
  for (int waited = 0; waited < kHang * 100; ++waited) {
    if (std::filesystem::exists(path)) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return false;
}

// Makes the file at `path`, for a child to say that it is ready.
void say_ready(const std::string& path) {
  std::FILE* flag = std::fopen(path.c_str(), "w");
  if (flag != nullptr) std::fclose(flag);
}

// Another process of the user holds the guard of two blocks (the lock that
// mapping and unmapping take) for as long as it likes. Mapping gives no
// block; the last holder's unmapping lets go without removing the object; a
// child made by fork() rejoins without a lock of its own. None of them waits
// for the holder: each runs in a child that is killed after kHang seconds (a
// hang, never a time).
TEST(SharedMemory, HeldGuardNeverStopsMapUnmapOrFork) {
  const std::string name = scratch_name("held-guard");
  const std::string alone = scratch_name("held-guard-alone");
  const std::string flags =
      testing::TempDir() + "held-guard-" + std::to_string(platform::process_id());
  const std::string unmapper_ready = flags + "-unmapper", holder_ready = flags + "-holder",
                    go = flags + "-go";
  for (const std::string& flag : {unmapper_ready, holder_ready, go}) std::filesystem::remove(flag);
  mapping first(name);
  ASSERT_NE(first.bytes(), nullptr);
  // The only holder of `alone`, waiting to unmap it once the guard is held.
  testing_support::forked_child unmapper([&] {
    mapping only(alone);
    if (only.bytes() == nullptr) return 1;
    say_ready(unmapper_ready);
    if (!appears(go)) return 2;
    platform::unmap_shared_memory(only.block_, alone.c_str(), kPatience);
    return 0;
  });
  ASSERT_TRUE(appears(unmapper_ready));
  testing_support::forked_child holder([&] {
    shared_object one(name, testing_support::open_existing);
    shared_object other(alone, testing_support::open_existing);
    if (!one.hold_guard() || !other.hold_guard()) return 1;
    say_ready(holder_ready);
    for (;;) std::this_thread::sleep_for(std::chrono::seconds(1));
  });
  ASSERT_TRUE(appears(holder_ready));
  say_ready(go);
  testing_support::forked_child actor([&] {
    platform::shared_memory inherited = first.block_;
    platform::rejoin_shared_memory(inherited, name.c_str(), kPatience);
    if (inherited.data == nullptr || inherited.object != -1) return 3;
    platform::unmap_shared_memory(inherited, name.c_str(), kPatience);
    mapping again(name);
    return again.bytes() == nullptr ? 0 : 4;
  });
  for (testing_support::forked_child* child : {&unmapper, &actor}) {
    const testing_support::exit_status status = child->wait(kHang);
    EXPECT_TRUE(status.exited) << "killed: it waited for the holder";
    EXPECT_EQ(status.code, 0);
  }
  EXPECT_TRUE(object_exists(alone)) << "removed without the guard";
  holder.kill();
  holder.wait();
  testing_support::remove_shared_object(alone);
}

// Another process of the user takes an exclusive flock on the object while
// nobody maps it, and keeps it: a map gives no block, and doesn't wait.
TEST(SharedMemory, HeldFlockNeverStopsAMap) {
  const std::string name = scratch_name("held-flock");
  const std::string ready = testing::TempDir() + "held-flock-ready";
  std::filesystem::remove(ready);
  testing_support::forked_child holder([&] {
    shared_object object(name, testing_support::create);
    if (!object.resize(4096) || !object.hold_exclusive_flock()) return 1;
    say_ready(ready);
    for (;;) std::this_thread::sleep_for(std::chrono::seconds(1));
  });
  ASSERT_TRUE(appears(ready));
  testing_support::forked_child actor([&] {
    mapping again(name);
    return again.bytes() == nullptr ? 0 : 4;
  });
  const testing_support::exit_status status = actor.wait(kHang);
  EXPECT_TRUE(status.exited) << "killed: it waited for the holder";
  EXPECT_EQ(status.code, 0);
  holder.kill();
  holder.wait();
  testing_support::remove_shared_object(name);
}

// The processes that hold a block, as the kernel's lock table tells them:
// this one, children that map it (and a child made by fork() that rejoins
// it), less those that ended, however they ended; another block's holders
// never count.
TEST(SharedMemory, CountsTheProcessesThatHoldIt) {
  const std::string name = scratch_name("holders");
  const std::string flags =
      testing::TempDir() + "holders-" + std::to_string(platform::process_id()) + "-";
  mapping mine(name);
  mapping unrelated(scratch_name("holders-other"));
  ASSERT_NE(mine.bytes(), nullptr);
  ASSERT_NE(unrelated.bytes(), nullptr);
  ASSERT_EQ(platform::shared_memory_holders(mine.block_), 1);
  std::vector<std::unique_ptr<testing_support::forked_child>> children;
  for (int i = 0; i < 3; ++i) {
    const std::string ready = flags + std::to_string(i), go = flags + "go";
    std::filesystem::remove(ready);
    children.push_back(std::make_unique<testing_support::forked_child>([&, i, ready, go] {
      platform::shared_memory block = mine.block_;
      if (i == 0) {
        platform::rejoin_shared_memory(block, name.c_str(), kPatience);  // as after fork()
        if (block.object < 0) return 1;
      } else {
        block = platform::map_shared_memory(name.c_str(), 4096, me(), kPatience);
        if (block.data == nullptr) return 1;
      }
      say_ready(ready);
      if (!appears(go)) return 2;
      platform::unmap_shared_memory(block, name.c_str(), kPatience);
      return 0;
    }));
    ASSERT_TRUE(appears(ready));
  }
  EXPECT_EQ(platform::shared_memory_holders(mine.block_), 4);
  EXPECT_EQ(platform::shared_memory_holders(unrelated.block_), 1);
  children[2]->kill();  // ends without unmapping
  children[2]->wait();
  EXPECT_EQ(platform::shared_memory_holders(mine.block_), 3);
  say_ready(flags + "go");
  for (int i = 0; i < 2; ++i) EXPECT_EQ(children[i]->wait(kHang).code, 0);
  EXPECT_EQ(platform::shared_memory_holders(mine.block_), 1);
  EXPECT_EQ(platform::shared_memory_holders(platform::shared_memory{}), -1);
  std::filesystem::remove(flags + "go");
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
