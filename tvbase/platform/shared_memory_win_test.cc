// The per-user block on Windows: a named file mapping that only its user's
// own mapping of the right size is trusted. (The POSIX object has its own
// tests with the frame, tvbase/frame/shared_data_test.cc.)
#include <tvbase/platform/shared_memory.h>

#include <windows.h>

#include <sddl.h>

#include <cstring>
#include <string>

#include <gtest/gtest.h>

namespace {

platform::user_account me() {
  platform::user_account account;
  EXPECT_TRUE(platform::effective_user(account));
  return account;
}

// A name of this test's own, ending in the user's SID as the library's does.
std::string block_name(const char* what) {
  return "/tvbase-test-" + std::to_string(::GetCurrentProcessId()) + "-" + what + "-" + me().id;
}

std::wstring local_name(const std::string& name) {
  std::wstring out = L"Local\\";
  for (char c : name.substr(1)) out += static_cast<wchar_t>(c);
  return out;
}

TEST(SharedMemoryWin, MapsOneZeroFilledBlockAndCountsItsHolders) {
  const std::string name = block_name("holders");
  platform::shared_memory first = platform::map_shared_memory(name.c_str(), 4096, me(), {});
  ASSERT_NE(first.data, nullptr);
  const auto* bytes = static_cast<const unsigned char*>(first.data);
  for (std::size_t i = 0; i < 4096; ++i) ASSERT_EQ(bytes[i], 0) << i;
  EXPECT_EQ(platform::shared_memory_holders(first), 1);
  platform::shared_memory second = platform::map_shared_memory(name.c_str(), 4096, me(), {});
  ASSERT_NE(second.data, nullptr);
  static_cast<unsigned char*>(second.data)[100] = 42;
  EXPECT_EQ(bytes[100], 42);
  EXPECT_EQ(platform::shared_memory_holders(first), 2);
  platform::unmap_shared_memory(second, name.c_str(), {});
  EXPECT_EQ(second.data, nullptr);
  EXPECT_EQ(platform::shared_memory_holders(first), 1);
  platform::unmap_shared_memory(first, name.c_str(), {});
  // Gone with its last handle: the next one starts from zero.
  platform::shared_memory again = platform::map_shared_memory(name.c_str(), 4096, me(), {});
  ASSERT_NE(again.data, nullptr);
  EXPECT_EQ(static_cast<const unsigned char*>(again.data)[100], 0);
  platform::unmap_shared_memory(again, name.c_str(), {});
  EXPECT_EQ(platform::shared_memory_holders(again), -1);
}

// Found at the name: a mapping of another size, or asked for on behalf of
// another user, or a name that would leave the Local namespace: no block.
TEST(SharedMemoryWin, RefusesWhatItCannotTrust) {
  const std::string name = block_name("size");
  const HANDLE other_size = ::CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0,
                                                 8192, local_name(name).c_str());
  ASSERT_NE(other_size, nullptr);
  platform::shared_memory sized = platform::map_shared_memory(name.c_str(), 4096, me(), {});
  EXPECT_EQ(sized.data, nullptr);
  ::CloseHandle(other_size);

  platform::user_account someone_else{};
  std::strcpy(someone_else.id, "S-1-5-21-1-2-3-4242");
  const std::string theirs = block_name("theirs");
  platform::shared_memory for_them =
      platform::map_shared_memory(theirs.c_str(), 4096, someone_else, {});
  EXPECT_EQ(for_them.data, nullptr);

  const std::string escaping = "/tvbase-test\\Global\\x";
  EXPECT_EQ(platform::map_shared_memory(escaping.c_str(), 4096, me(), {}).data, nullptr);
}

// A mapping that another account made first at the block's name (here the
// Administrators group, where the token may own objects as it) is not used.
TEST(SharedMemoryWin, RefusesAMappingOwnedByAnother) {
  const std::string name = block_name("squat");
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  // Owner Administrators, everyone may do anything.
  ASSERT_TRUE(::ConvertStringSecurityDescriptorToSecurityDescriptorW(
      L"O:BAD:(A;;GA;;;WD)", SDDL_REVISION_1, &descriptor, nullptr));
  SECURITY_ATTRIBUTES attributes{sizeof attributes, descriptor, FALSE};
  const HANDLE squatter = ::CreateFileMappingW(INVALID_HANDLE_VALUE, &attributes, PAGE_READWRITE, 0,
                                               4096, local_name(name).c_str());
  const DWORD error = ::GetLastError();
  ::LocalFree(descriptor);
  if (squatter == nullptr)
    GTEST_SKIP() << "this token may not own objects as another account (error " << error << ")";
  platform::shared_memory block = platform::map_shared_memory(name.c_str(), 4096, me(), {});
  EXPECT_EQ(block.data, nullptr);
  ::CloseHandle(squatter);
}

}  // namespace
