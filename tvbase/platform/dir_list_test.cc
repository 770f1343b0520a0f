#include <tvbase/platform/dir_list.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#if defined(_WIN32)
#include <windows.h>
#else
#include <tvbase/testing/hostile_files.h>
#endif
#include <tvbase/testing/processes.h>
#include <tvbase/testing/temp_dir.h>

namespace {

namespace fs = std::filesystem;

// The names in an open folder, "." and ".." left out, sorted; a listing
// that can't be opened or read gives "<failed>".
std::vector<std::string> names_in(const platform::dir_handle* folder) {
  std::uint32_t error = 0;
  platform::dir_listing* listing = platform::open_dir(folder, error);
  if (listing == nullptr) return {"<failed>"};
  std::vector<std::string> names;
  wchar_t name[260];
  std::uint32_t attributes = 0;
  platform::read_status status;
  while ((status = platform::read_dir(listing, name, attributes, error)) ==
         platform::read_status::item) {
    const std::string bytes = platform::wide_to_path(name);
    if (bytes != "." && bytes != "..") names.push_back(bytes);
  }
  platform::close_dir(listing);
  if (status == platform::read_status::failed) return {"<failed>"};
  std::sort(names.begin(), names.end());
  return names;
}

#if defined(_WIN32)
// Opens `relative` below the folder `root` (0 if it opened and holds
// `holds`, 1 if it opened without it, 2 if `root` didn't open), or gives the
// system's error code + 10.
int open_below(const fs::path& root, const std::wstring& relative, const std::string& holds) {
  std::uint32_t error = 0;
  platform::dir_handle* top = platform::open_folder(root.wstring(), error);
  if (top == nullptr) return 2;
  platform::dir_handle* folder = platform::open_subfolder(top, relative, error);
  const std::vector<std::string> names = folder ? names_in(folder) : std::vector<std::string>{};
  platform::close_folder(folder);
  platform::close_folder(top);
  if (folder == nullptr) return 10 + static_cast<int>(error);
  return std::count(names.begin(), names.end(), holds) == 1 ? 0 : 1;
}

// Subfolders are opened from the handle of the folder they lie in, name by
// name, with either separator; a file or a missing name on the way fails.
TEST(OpenSubfolder, OpensRealFoldersByEitherSeparator) {
  testing_support::temp_dir dir{"tvbase_dir_list_"};
  const fs::path root = dir.path();
  fs::create_directories(root / "a/b/c");
  std::ofstream(root / "a/b/c/in-c").put('x');
  std::ofstream(root / "a/b/in-b").put('x');
  std::ofstream(root / "a/file").put('x');
  struct row {
    std::wstring relative;
    std::string holds;
    int expected;  // as open_below gives it
  };
  const row rows[] = {
      {L"a", "file", 0},
      {L"a/b", "in-b", 0},
      {L"a\\b", "in-b", 0},
      {L"a/b/c", "in-c", 0},
      {L"a/b/c", "in-b", 1},
      {L"a/file", "", 10 + ERROR_DIRECTORY},
      {L"a/file/x", "", 10 + ERROR_DIRECTORY},
      {L"a/missing", "", 10 + ERROR_FILE_NOT_FOUND},
      {L"a/missing/c", "", 10 + ERROR_FILE_NOT_FOUND},
      {L"a/../a", "", 10 + ERROR_INVALID_NAME},
      {L"a//b", "", 10 + ERROR_INVALID_NAME},
  };
  for (const row& r : rows) {
    SCOPED_TRACE(platform::wide_to_path(r.relative));
    EXPECT_EQ(open_below(root, r.relative, r.holds), r.expected);
  }
}

// A symbolic link to a folder, last or on the way, is never entered; the
// start folder may be named through one.
TEST(OpenSubfolder, FollowsNoLinkAtAnyStep) {
  testing_support::temp_dir dir{"tvbase_dir_list_"};
  const fs::path root = dir.path();
  fs::create_directories(root / "a/b/c");
  std::ofstream(root / "a/b/in-b").put('x');
  std::error_code made;
  fs::create_directory_symlink(root / "a/b", root / "a/link", made);
  if (made) GTEST_SKIP() << "this system makes no symbolic link to a folder: " << made.message();
  struct row {
    std::wstring relative;
    int expected;
  };
  const row rows[] = {
      {L"a/b", 0},
      {L"a/link", 10 + ERROR_CANT_RESOLVE_FILENAME},
      {L"a/link/c", 10 + ERROR_CANT_RESOLVE_FILENAME},
  };
  for (const row& r : rows) {
    SCOPED_TRACE(platform::wide_to_path(r.relative));
    EXPECT_EQ(open_below(root, r.relative, "in-b"), r.expected);
  }
  EXPECT_EQ(open_below(root / "a/link", L"c", "none"), 1);
}

// The start folder is opened as named; anything but a folder fails at once,
// a named pipe without a waiting server and the NUL device included.
TEST(OpenFolder, RefusesNonFolders) {
  testing_support::temp_dir dir{"tvbase_dir_list_"};
  const fs::path root = dir.path();
  fs::create_directories(root / "real");
  std::ofstream(root / "real/inside").put('x');
  std::ofstream(root / "file").put('x');
  struct row {
    std::wstring path;
    std::uint32_t error;
  };
  const row rows[] = {
      {(root / "real").wstring(), 0},
      {(root / "real").wstring() + L"\\", 0},
      {(root / "file").wstring(), ERROR_DIRECTORY},
      {(root / "missing").wstring(), ERROR_FILE_NOT_FOUND},
      {L"\\\\.\\pipe\\tvbase-test-no-such-pipe", ERROR_FILE_NOT_FOUND},
  };
  for (const row& r : rows) {
    SCOPED_TRACE(platform::wide_to_path(r.path));
    std::uint32_t error = 0;
    platform::dir_handle* folder = platform::open_folder(r.path, error);
    EXPECT_EQ(folder != nullptr, r.error == 0);
    if (folder == nullptr) {
      EXPECT_EQ(error, r.error);
    } else {
      EXPECT_EQ(names_in(folder), std::vector<std::string>{"inside"});
    }
    platform::close_folder(folder);
  }
}
#else
// Subfolders are opened from an open folder by real folders alone: a link at
// any step fails, whether it is the last name or one on the way, and so do
// a file, a FIFO (without waiting) and a missing name. A folder that opens
// is the one named, seen by what it holds.
TEST(OpenSubfolder, FollowsNoLinkAtAnyStep) {
  testing_support::temp_dir dir{"tvbase_dir_list_"};
  const fs::path root = dir.path();
  fs::create_directories(root / "a/b/c");
  std::ofstream(root / "a/b/c/in-c").put('x');
  std::ofstream(root / "a/b/in-b").put('x');
  std::ofstream(root / "a/file").put('x');
  ASSERT_TRUE(testing_support::make_fifo(root / "a/fifo"));
  fs::create_directory_symlink("b", root / "a/linkdir");
  fs::create_directory_symlink("c", root / "a/b/linkc");
  fs::create_directory_symlink("..", root / "a/up");
  fs::create_directory_symlink(root / "a/b", root / "a/absolute");
  // A chain whose path is longer than the system takes as one path.
  const std::string long_name(120, 'n');
  ASSERT_TRUE(testing_support::make_folder_chain(root / "a", long_name, 40, "deep-leaf"));
  std::string chain = "a";
  for (int i = 0; i < 40; ++i) chain += "/" + long_name;

  const std::set<int> link_refused = {ELOOP, ENOTDIR};  // ELOOP by openat2, ENOTDIR by O_NOFOLLOW
  struct row {
    std::string relative;
    std::set<int> errors;  // empty: opens
    std::string holds;     // a name the opened folder holds
  };
  const row rows[] = {
      {"a", {}, "file"},
      {"a/b", {}, "in-b"},
      {"a/b/c", {}, "in-c"},
      {chain, {}, "deep-leaf"},
      {"a/linkdir", link_refused, ""},
      {"a/linkdir/c", link_refused, ""},  // the link on the way
      {"a/b/linkc", link_refused, ""},
      {"a/up", link_refused, ""},
      {"a/up/a", link_refused, ""},
      {"a/absolute", link_refused, ""},
      {"a/file", {ENOTDIR}, ""},
      {"a/file/x", {ENOTDIR}, ""},
      {"a/fifo", {ENOTDIR}, ""},
      {"a/missing", {ENOENT}, ""},
      {"a/missing/c", {ENOENT}, ""},
  };
  // Without openat2, names are opened one by one.
  using testing_support::openat2;
  for (const openat2 calls : {openat2::available, openat2::refused}) {
    for (const row& r : rows) {
      SCOPED_TRACE((calls == openat2::available ? "openat2: " : "one by one: ") +
                   r.relative.substr(0, 40));
      // 0 opened and holds the name, 1 opened without it, 2 the start
      // failed, else the error code + 10.
      const int got = testing_support::in_child_with_alarm(
          [&] {
            std::uint32_t error = 0;
            platform::dir_handle* top =
                platform::open_folder(platform::path_to_wide(dir.path()), error);
            if (top == nullptr) return 2;
            platform::dir_handle* folder =
                platform::open_subfolder(top, platform::path_to_wide(r.relative), error);
            const std::vector<std::string> names =
                folder ? names_in(folder) : std::vector<std::string>{};
            platform::close_folder(folder);
            platform::close_folder(top);
            if (folder == nullptr) return 10 + static_cast<int>(error);
            return std::count(names.begin(), names.end(), r.holds) == 1 ? 0 : 1;
          },
          60, calls);
      if (r.errors.empty()) {
        EXPECT_EQ(got, 0);
      } else {
        EXPECT_TRUE(got >= 10 && r.errors.count(got - 10) == 1) << "got " << got;
      }
    }
  }
  EXPECT_TRUE(testing_support::remove_folder_chain(root / "a", long_name, "deep-leaf"));
}

// The start folder is opened as named, links followed; anything but a
// folder fails at once, a FIFO without a writer included.
TEST(OpenFolder, FollowsTheCallersPathAndRefusesNonFolders) {
  testing_support::temp_dir dir{"tvbase_dir_list_"};
  const fs::path root = dir.path();
  fs::create_directories(root / "real");
  std::ofstream(root / "real/inside").put('x');
  std::ofstream(root / "file").put('x');
  ASSERT_TRUE(testing_support::make_fifo(root / "fifo"));
  fs::create_directory_symlink(root / "real", root / "link");
  struct row {
    std::string path;
    int error;
  };
  const row rows[] = {
      {"real", 0}, {"link", 0}, {"file", ENOTDIR}, {"fifo", ENOTDIR}, {"missing", ENOENT},
  };
  for (const row& r : rows) {
    SCOPED_TRACE(r.path);
    const int got = testing_support::in_child_with_alarm(
        [&] {
          std::uint32_t error = 0;
          platform::dir_handle* folder =
              platform::open_folder(platform::path_to_wide((root / r.path).native()), error);
          if (folder == nullptr) return static_cast<int>(error);
          const bool holds = names_in(folder) == std::vector<std::string>{"inside"};
          platform::close_folder(folder);
          return holds ? 0 : 255;
        },
        60);
    EXPECT_EQ(got, r.error);
  }
}
#endif

// A listing reads the folder from its start however often the folder is
// listed, and the folder stays open, for subfolders, after its listing ends.
TEST(OpenDir, ListsAnOpenFolderFromTheStartEachTime) {
  testing_support::temp_dir dir{"tvbase_dir_list_"};
  const fs::path root = dir.path();
  std::vector<std::string> expected;
  for (int i = 0; i < 300; ++i) {
    expected.push_back(std::to_string(i).insert(0, 1, 'f'));
    std::ofstream(root / expected.back()).put('x');
  }
  fs::create_directory(root / "sub");
  expected.push_back("sub");
  std::sort(expected.begin(), expected.end());
  std::uint32_t error = 0;
  platform::dir_handle* folder = platform::open_folder(platform::path_to_wide(dir.path()), error);
  ASSERT_NE(folder, nullptr);
  EXPECT_EQ(names_in(folder), expected);
  EXPECT_EQ(names_in(folder), expected);
  platform::dir_handle* sub = platform::open_subfolder(folder, L"sub", error);
  EXPECT_NE(sub, nullptr);
  platform::close_folder(sub);
  platform::close_folder(folder);
  platform::close_folder(nullptr);
}

}  // namespace
