#include <tvbase/system/dir_walk.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

#include <tvbase/platform/dir_list.h>
#include <tvbase/testing/exact_buffer.h>
#include <tvbase/testing/hostile_files.h>
#include <tvbase/testing/processes.h>
#include <tvbase/testing/temp_dir.h>

namespace {

namespace fs = std::filesystem;
using os::dir_info;
using os::dir_walk;
using file_result = dir_walk::file_action_result;
using dir_result = dir_walk::directory_action_result;
using state = dir_info::item_state;
// Paths and names given to the library lie in blocks of exactly their size,
// so a read past the end of a view is reported under the address sanitizer.
using testing_support::exact_buffer;

// A folder under the temporary folder, removed with all it holds at the end
// of the test.
class temp_tree {
 public:
  temp_tree() {
    const std::string name = testing_support::make_temp_dir("tvbase_walk_");
    if (name.empty()) throw std::runtime_error("no temporary folder");
    root_ = fs::path(name).parent_path();
    fs::permissions(root_, fs::perms::owner_all | fs::perms::group_read | fs::perms::group_exec |
                               fs::perms::others_read | fs::perms::others_exec);
  }
  ~temp_tree() {
    std::error_code ec;
    for (auto it = fs::recursive_directory_iterator(root_, ec); !ec && it != fs::end(it);
         it.increment(ec)) {
      if (it->is_directory() && !it->is_symlink())
        fs::permissions(it->path(), fs::perms::owner_all, ec);
    }
#if defined(_WIN32)
    // The run-time of Windows can't remove past MAX_PATH (the deep tree), so
    // folders below the first level move up to it first, with short paths.
    ec.clear();
    for (int moved = 1, next = 0; moved > 0 && !ec;) {
      moved = 0;
      std::vector<fs::path> deeper;
      for (const fs::directory_entry& child : fs::directory_iterator(root_, ec)) {
        if (!child.is_directory()) continue;
        for (const fs::directory_entry& grandchild : fs::directory_iterator(child.path(), ec))
          if (grandchild.is_directory()) deeper.push_back(grandchild.path());
      }
      for (const fs::path& folder : deeper) {
        fs::rename(folder, root_ / ("up" + std::to_string(next++)), ec);
        moved += !ec;
      }
    }
    ec.clear();
#endif
    fs::remove_all(root_, ec);
  }
  temp_tree(const temp_tree&) = delete;
  temp_tree& operator=(const temp_tree&) = delete;

  // Folders end in '/', anything else is an empty file; parents are made.
  void add(const std::vector<std::string>& items) const {
    for (const std::string& item : items) {
      const fs::path p = root_ / item;
      if (item.back() == '/') {
        fs::create_directories(p);
      } else {
        fs::create_directories(p.parent_path());
        std::ofstream(p).put('x');
      }
    }
  }
  const fs::path& root() const { return root_; }
  // The system's own wide form on Windows; the bytes' on POSIX.
  std::wstring wide() const {
    if constexpr (std::is_same_v<fs::path::value_type, wchar_t>) {
      return root_.wstring();
    } else {
      return platform::path_to_wide(root_.string());
    }
  }

 private:
  fs::path root_;
};

// A path as the rows write it: with '/' for the system's separator.
std::string narrow(std::wstring_view w) {
  std::string out = platform::wide_to_path(w);
  for (char& c : out)
    if (c == static_cast<char>(platform::kPathSeparator)) c = '/';
  return out;
}

// Records every call of a walk as one line: "f sub/name" for a file, "d sub/name"
// for a folder, and "D+ sub/", "F+ sub/", "F- sub/", "D- sub/" for the extra
// calls of the directory (D) and file (F) action at entry (+) and exit (-).
struct recorder {
  std::vector<std::string> calls;
  dir_result folder_answer = dir_result::descend;

  std::string line(char kind, const dir_info& info) const {
    const std::string sub = narrow(info.subfolder());
    switch (info.state()) {
      case state::entering: return std::string(1, kind) + "+ " + sub;
      case state::leaving: return std::string(1, kind) + "- " + sub;
      default:
        return std::string(1, static_cast<char>(kind + 32)) + " " + sub + narrow(info.name());
    }
  }
  dir_walk::file_action files() {
    return [this](const dir_info& i) {
      calls.push_back(line('F', i));
      return file_result::go_on;
    };
  }
  dir_walk::directory_action folders() {
    return [this](const dir_info& i) {
      calls.push_back(line('D', i));
      return i.state() == state::item ? folder_answer : dir_result::descend;
    };
  }
  // The folders in the order they were entered (needs report folders).
  std::vector<std::string> entered() const {
    std::vector<std::string> out;
    for (const std::string& c : calls) {
      if (c.rfind("D+ ", 0) == 0) out.push_back(c.substr(3));
    }
    return out;
  }
};

std::vector<std::string> sorted(std::vector<std::string> v) {
  std::sort(v.begin(), v.end());
  return v;
}

TEST(DirInfo, KeepsOneTrailingSeparator) {
  const std::pair<std::wstring, std::wstring> rows[] = {
      {L"/tmp", L"/tmp/"}, {L"/tmp/", L"/tmp/"}, {L"/", L"/"}, {L"a", L"a/"}, {L"a//", L"a//"}};
  for (const auto& [in, out] : rows) {
    SCOPED_TRACE(narrow(in));
    const exact_buffer path{in};
    const dir_info info(path.view());
    std::wstring expected = in;
    if (expected.back() != platform::kPathSeparator) expected += platform::kPathSeparator;
    EXPECT_EQ(info.path(), platform::kPathSeparator == L'/' ? out : expected);
    EXPECT_TRUE(info.subfolder().empty());
    EXPECT_EQ(info.state(), state::entering);
    EXPECT_TRUE(info.name().empty());
  }
}

TEST(DirInfo, RefusesEmptyPathAndItemQueriesOutsideItems) {
  try {
    (void)dir_info(L"");
    FAIL() << "no exception";
  } catch (const std::invalid_argument& e) {
    EXPECT_STREQ(e.what(), "dir_info: path cannot be empty");
  }
  try {
    (void)dir_info(L"/").is_folder();
    FAIL() << "no exception";
  } catch (const std::invalid_argument& e) {
    EXPECT_STREQ(e.what(), "dir_info: not an item");
  }
  dir_walk walker;
  EXPECT_THROW((void)walker.walk(L"", {}, {}), std::invalid_argument);
}

TEST(DirWalk, VisitsFoldersInTheAskedOrder) {
  temp_tree tree;
  tree.add({"a/a1/f", "a/a2/", "a/f1", "b/b1/b11/", "b/f2", "c", "A1/"});
  struct row {
    dir_walk::walk_order order;
    std::vector<std::string> entered;
  };
  // The sort compares relative paths, separator included: "a/" comes before
  // "A1/" as '/' is below '1', and after it where the separator is '\\'.
  const bool slash = platform::kPathSeparator == L'/';
  const row rows[] = {
      {dir_walk::walk_order::breadth_first,
       slash
           ? std::vector<std::string>{"", "a/", "A1/", "b/", "a/a1/", "a/a2/", "b/b1/", "b/b1/b11/"}
           : std::vector<std::string>{"", "A1/", "a/", "b/", "a/a1/", "a/a2/", "b/b1/",
                                      "b/b1/b11/"}},
      {dir_walk::walk_order::depth_first,
       slash
           ? std::vector<std::string>{"", "a/", "a/a1/", "a/a2/", "A1/", "b/", "b/b1/", "b/b1/b11/"}
           : std::vector<std::string>{"", "A1/", "a/", "a/a1/", "a/a2/", "b/", "b/b1/",
                                      "b/b1/b11/"}},
      {dir_walk::walk_order::no_descent, {""}},
      {static_cast<dir_walk::walk_order>(9), {""}},
  };
  for (const row& r : rows) {
    SCOPED_TRACE(static_cast<int>(r.order));
    recorder rec;
    dir_walk walker;
    walker.set_order(r.order);
    walker.set_sort_folders(dir_walk::folder_sort::by_folded_name);
    walker.set_report_folders(dir_walk::folder_reports::entry_and_exit);
    ASSERT_EQ(walker.walk(tree.wide(), rec.files(), rec.folders()), dir_walk::result::finished);
    EXPECT_EQ(rec.entered(), r.entered);
    // Each entered folder is left before the next is entered.
    for (std::size_t i = 0; i < rec.calls.size(); ++i) {
      if (rec.calls[i].rfind("D+ ", 0) != 0 || i == 0) continue;
      EXPECT_EQ(rec.calls[i - 1].substr(0, 2), "D-") << rec.calls[i];
    }
  }
}

TEST(DirWalk, UnsortedOrdersKeepTheirShape) {
  temp_tree tree;
  tree.add({"p/q/r/", "p/s/", "t/u/", "v/w/x/y/", "v/z/"});
  for (auto order : {dir_walk::walk_order::breadth_first, dir_walk::walk_order::depth_first}) {
    SCOPED_TRACE(static_cast<int>(order));
    recorder rec;
    dir_walk walker;
    walker.set_order(order);
    walker.set_report_folders(dir_walk::folder_reports::entry_and_exit);
    ASSERT_EQ(walker.walk(tree.wide(), rec.files(), rec.folders()), dir_walk::result::finished);
    const std::vector<std::string> entered = rec.entered();
    ASSERT_EQ(sorted(entered), sorted({"", "p/", "p/q/", "p/q/r/", "p/s/", "t/", "t/u/", "v/",
                                       "v/w/", "v/w/x/", "v/w/x/y/", "v/z/"}));
    const auto depth = [](const std::string& s) { return std::count(s.begin(), s.end(), '/'); };
    for (std::size_t i = 1; i < entered.size(); ++i) {
      if (order == dir_walk::walk_order::breadth_first) {
        // A level is done before the next one starts.
        EXPECT_LE(depth(entered[i - 1]), depth(entered[i])) << entered[i];
      } else {
        // Pre-order: a folder comes after its parent, and once a folder's
        // subtree is left it is never entered again.
        const std::string parent =
            entered[i].substr(0, entered[i].rfind('/', entered[i].size() - 2) + 1);
        const auto at = std::find(entered.begin(), entered.begin() + static_cast<long>(i), parent);
        ASSERT_NE(at, entered.begin() + static_cast<long>(i)) << entered[i];
        for (auto it = at + 1; it != entered.begin() + static_cast<long>(i); ++it) {
          EXPECT_EQ(it->rfind(parent, 0), 0u) << *it << " sits inside the subtree of " << parent;
        }
      }
    }
  }
}

TEST(DirWalk, SortFoldsCaseAndLeavesFilesAlone) {
  temp_tree tree;
  tree.add({"c/", "B/", "a/", "ab/", "a-/", "Z", "y", "X", "w"});
  recorder rec;
  dir_walk walker;
  walker.set_order(dir_walk::walk_order::depth_first);
  walker.set_sort_folders(dir_walk::folder_sort::by_folded_name);
  walker.set_report_folders(dir_walk::folder_reports::entry_and_exit);
  ASSERT_EQ(walker.walk(tree.wide(), rec.files(), rec.folders()), dir_walk::result::finished);
  // '-' (0x2D) is below 'b'; a plain sort by value would put "B/" first.
  EXPECT_EQ(rec.entered(), (std::vector<std::string>{"", "a-/", "a/", "ab/", "B/", "c/"}));

  // Files come in the order of the listing itself.
  std::vector<std::string> listed;
  std::uint32_t error = 0;
  platform::dir_handle* folder = platform::open_folder(tree.wide(), error);
  ASSERT_NE(folder, nullptr);
  platform::dir_listing* listing = platform::open_dir(folder, error);
  ASSERT_NE(listing, nullptr);
  wchar_t name[260];
  std::uint32_t attributes = 0;
  while (platform::read_dir(listing, name, attributes, error) == platform::read_status::item) {
    if (!(attributes & platform::kAttributeDirectory)) listed.push_back("f " + narrow(name));
  }
  platform::close_dir(listing);
  platform::close_folder(folder);
  std::vector<std::string> files;
  for (const std::string& c : rec.calls) {
    if (c[0] == 'f' && c.find('/') == std::string::npos) files.push_back(c);
  }
  EXPECT_EQ(files, listed);
}

TEST(DirWalk, ReportsEntryAndExitInOrder) {
  temp_tree tree;
  tree.add({"empty/"});
  recorder rec;
  dir_walk walker;
  walker.set_report_folders(dir_walk::folder_reports::entry_and_exit);
  std::vector<bool> zero_data;
  auto files = rec.files();
  ASSERT_EQ(walker.walk(
                tree.wide(),
                [&](const dir_info& i) {
                  if (i.state() != state::item) {
                    const os::find_data blank{};
                    zero_data.push_back(std::memcmp(&blank, &i.data(), sizeof blank) == 0);
                  }
                  return files(i);
                },
                rec.folders()),
            dir_walk::result::finished);
  EXPECT_EQ(rec.calls, (std::vector<std::string>{"D+ ", "F+ ", "d empty", "F- ", "D- ", "D+ empty/",
                                                 "F+ empty/", "F- empty/", "D- empty/"}));
  EXPECT_EQ(zero_data, std::vector<bool>(4, true));

  // Without the extra calls an empty folder gives nothing at all.
  recorder quiet;
  walker.set_report_folders(dir_walk::folder_reports::off);
  ASSERT_EQ(walker.walk(tree.wide(), quiet.files(), quiet.folders()), dir_walk::result::finished);
  EXPECT_EQ(quiet.calls, std::vector<std::string>{"d empty"});
}

TEST(DirWalk, StopsOnTheAnswersThatStop) {
  temp_tree tree;
  tree.add({"only/last"});
  // Answer `answer` at the call numbered `at` (0-based), go on elsewhere.
  struct row {
    const char* name;
    bool report;
    std::string at;  // the recorded line that gets the answer
    int answer;      // file_action_result or directory_action_result
    dir_walk::result expected;
    std::size_t calls;  // calls made in all
  };
  const row rows[] = {
      {"skip at entry", true, "D+ ", 0, dir_walk::result::stopped, 1},
      {"skip at exit", true, "D- ", 0, dir_walk::result::stopped, 5},
      {"stop from file action at entry", true, "F+ only/", 1, dir_walk::result::stopped, 7},
      {"stop from file action at exit", true, "F- only/", 1, dir_walk::result::stopped, 9},
      {"stop at a folder", false, "d only", 2, dir_walk::result::stopped, 1},
      {"skip at a folder", false, "d only", 0, dir_walk::result::finished, 1},
      {"stop at the last file", false, "f only/last", 1, dir_walk::result::stopped, 2},
      {"stop at the last file, with reports", true, "f only/last", 1, dir_walk::result::stopped, 8},
  };
  for (const row& r : rows) {
    SCOPED_TRACE(r.name);
    recorder rec;
    dir_walk walker;
    walker.set_report_folders(r.report ? dir_walk::folder_reports::entry_and_exit
                                       : dir_walk::folder_reports::off);
    const auto result = walker.walk(
        tree.wide(),
        [&](const dir_info& i) {
          rec.calls.push_back(rec.line('F', i));
          return rec.calls.back() == r.at ? static_cast<file_result>(r.answer) : file_result::go_on;
        },
        [&](const dir_info& i) {
          rec.calls.push_back(rec.line('D', i));
          return rec.calls.back() == r.at ? static_cast<dir_result>(r.answer) : dir_result::descend;
        });
    EXPECT_EQ(result, r.expected);
    EXPECT_EQ(rec.calls.size(), r.calls) << ::testing::PrintToString(rec.calls);
    EXPECT_EQ(rec.calls.back(), r.at);
  }
}

TEST(DirWalk, GoOnCheckComesBeforeEachItemAction) {
  temp_tree tree;
  tree.add({"d/x", "e", "f"});
  struct row {
    int allowed;  // items the check lets through
    dir_walk::result expected;
  };
  for (const row& r : {row{0, dir_walk::result::stopped}, row{2, dir_walk::result::stopped},
                       row{3, dir_walk::result::stopped}, row{4, dir_walk::result::finished}}) {
    SCOPED_TRACE(r.allowed);
    recorder rec;
    dir_walk walker;
    int asked = 0;
    walker.set_go_on_check([&](const dir_info& i) {
      EXPECT_EQ(i.state(), state::item);
      return asked++ < r.allowed;
    });
    EXPECT_EQ(walker.walk(tree.wide(), rec.files(), rec.folders()), r.expected);
    EXPECT_EQ(rec.calls.size(), static_cast<std::size_t>(r.allowed));
  }
}

TEST(DirWalk, UnlistableFolderEndsTheWalk) {
#if defined(_WIN32)
  const std::uint32_t no_such_folder = 3;  // ERROR_PATH_NOT_FOUND
#else
  const std::uint32_t no_such_folder = ENOENT;
#endif
  {
    dir_walk walker;
    recorder rec;
    EXPECT_EQ(walker.walk(L"/nonexistent/tvbase/folder", rec.files(), rec.folders()),
              dir_walk::result::list_failed);
    EXPECT_EQ(walker.last_error(), no_such_folder);
    EXPECT_TRUE(rec.calls.empty());
    // The code stays after a walk that works.
    temp_tree tree;
    EXPECT_EQ(walker.walk(tree.wide(), rec.files(), rec.folders()), dir_walk::result::finished);
    EXPECT_EQ(walker.last_error(), no_such_folder);
  }

  temp_tree tree;
  tree.add({"a/locked/inner", "a/file", "b/"});
  fs::permissions(tree.root() / "a/locked", fs::perms::none);
  // Root lists any folder, so the walk runs in a child that gave up root.
  const std::optional<std::string> got = testing_support::as_other_user([&] {
    recorder rec;
    dir_walk walker;
    walker.set_sort_folders(dir_walk::folder_sort::by_folded_name);
    const auto r = walker.walk(tree.wide(), rec.files(), rec.folders());
    std::string out =
        std::to_string(static_cast<int>(r)) + " " + std::to_string(walker.last_error());
    for (const std::string& c : sorted(rec.calls)) out += "|" + c;
    return out;
  });
  if (!got) GTEST_SKIP() << "no second user here to walk a folder that only root can list";
  // Breadth-first and sorted: "", a/, b/, a/locked/ - everything up to the
  // locked folder was reported, and nothing after it.
  EXPECT_EQ(*got, std::to_string(static_cast<int>(dir_walk::result::list_failed)) + " " +
                      std::to_string(EACCES) + "|d a|d a/locked|d b|f a/file");
}

TEST(DirWalk, NeverFollowsLinksToFolders) {
#if defined(_WIN32)
  GTEST_SKIP() << "Wine makes no symbolic links";
#endif
  temp_tree tree;
  tree.add({"real/inside"});
  fs::create_directory_symlink(tree.root(), tree.root() / "real/loop");
  fs::create_symlink(tree.root() / "real/inside", tree.root() / "to_file");
  fs::create_symlink(tree.root() / "missing", tree.root() / "dangling");
  recorder rec;
  std::map<std::string, bool> folder;
  dir_walk walker;
  auto files = rec.files();
  auto folders = rec.folders();
  ASSERT_EQ(walker.walk(
                tree.wide(),
                [&](const dir_info& i) {
                  folder[narrow(i.name())] = i.is_folder();
                  return files(i);
                },
                [&](const dir_info& i) {
                  folder[narrow(i.name())] = i.is_folder();
                  return folders(i);
                }),
            dir_walk::result::finished);
  EXPECT_EQ(sorted(rec.calls),
            sorted({"d real", "f real/inside", "d real/loop", "f to_file", "f dangling"}));
  EXPECT_EQ(folder, (std::map<std::string, bool>{{"real", true},
                                                 {"inside", false},
                                                 {"loop", true},
                                                 {"to_file", false},
                                                 {"dangling", false}}));
}

TEST(DirWalk, NamesThatAreNotUtf8SurviveTheRoundTrip) {
#if defined(_WIN32)
  GTEST_SKIP() << "names are UTF-16 on Windows: there are no byte names to keep";
#endif
  temp_tree tree;
  tree.add({"caf\xC3\xA9/\xF0\x9F\x98\x80", "bad\xFF/x\xE9y", "\xED\xB2\x80/"});
  recorder rec;
  dir_walk walker;
  std::vector<std::wstring> names;
  auto files = rec.files();
  const exact_buffer root{tree.wide()};
  ASSERT_EQ(walker.walk(
                root.view(),
                [&](const dir_info& i) {
                  names.emplace_back(i.name());
                  return files(i);
                },
                rec.folders()),
            dir_walk::result::finished);
  EXPECT_EQ(sorted(rec.calls), sorted({"d caf\xC3\xA9", "d bad\xFF", "d \xED\xB2\x80",
                                       "f caf\xC3\xA9/\xF0\x9F\x98\x80", "f bad\xFF/x\xE9y"}));
  std::sort(names.begin(), names.end());
  EXPECT_EQ(names, (std::vector<std::wstring>{{L'x', wchar_t{0xDCE9}, L'y'},
                                              {wchar_t{0xD83D}, wchar_t{0xDE00}}}));
  // Each name turns into the bytes on disk and back.
  for (const std::wstring& name : names) {
    SCOPED_TRACE(narrow(name));
    const exact_buffer wide{name};
    const exact_buffer bytes{os::native_path(wide.view())};
    EXPECT_EQ(os::wide_path(bytes.view()), name);
  }
}

TEST(DirWalk, ClosesListingsWhenAnActionThrows) {
  temp_tree tree;
  tree.add({"a/b/c/d/file"});
  dir_walk walker;
  walker.set_order(dir_walk::walk_order::depth_first);
  const auto walks = [&] {
    EXPECT_THROW(
        (void)walker.walk(
            tree.wide(), [](const dir_info&) -> file_result { throw std::runtime_error("no"); },
            [](const dir_info&) { return dir_result::descend; }),
        std::runtime_error);
    // An empty action is called only where it is needed.
    EXPECT_THROW(
        (void)walker.walk(tree.wide(), {}, [](const dir_info&) { return dir_result::descend; }),
        std::bad_function_call);
    EXPECT_EQ(walker.walk(tree.wide(), {}, [](const dir_info&) { return dir_result::skip; }),
              dir_walk::result::finished);
  };
  // The first round pays what the system keeps for the rest of the process
  // (Wine opens handles at the first exception); a listing left open by a
  // walk shows in the rounds after it.
  // (No SCOPED_TRACE in the loop: the test framework's first one makes a
  // lock, which holds a handle on Windows.)
  walks();
  const long before = testing_support::open_handle_count();
  ASSERT_GT(before, 0);
  for (int round = 0; round < 3; ++round) walks();
  EXPECT_EQ(testing_support::open_handle_count(), before);
}

TEST(DirWalk, DeepTreesKeepTheStackFlat) {
  temp_tree tree;
  std::string deep;
  for (int i = 0; i < 400; ++i) deep += "d/";
  tree.add({deep + "leaf"});
  for (auto order : {dir_walk::walk_order::breadth_first, dir_walk::walk_order::depth_first}) {
    SCOPED_TRACE(static_cast<int>(order));
    recorder rec;
    dir_walk walker;
    walker.set_order(order);
    ASSERT_EQ(walker.walk(tree.wide(), rec.files(), rec.folders()), dir_walk::result::finished);
    ASSERT_EQ(rec.calls.size(), 401u);
    EXPECT_EQ(rec.calls.back(), "f " + deep + "leaf");
  }
}

// Another user swaps a folder inside the walked tree with a symbolic link to
// a folder of theirs (here one of the test's own, full of marker files), over
// and over, while walks run. A walk must never list the link's target: it
// lists the real folder under either name, sees the link as a link, or ends
// with list_failed where the folder it was to enter became a link. A forked
// process swaps; the walks run in a child of their own, with and without
// openat2, until a good number of them have met the swap.
TEST(DirWalk, NeverEntersAFolderSwappedForALink) {
#if defined(_WIN32)
  GTEST_SKIP() << "swaps names with renameat2(RENAME_EXCHANGE) from a forked process; POSIX only";
#else
  temp_tree tree;
  temp_tree elsewhere;
  tree.add({"walked/dir/sub/inner", "walked/dir/plain"});
  for (int i = 0; i < 200; ++i) tree.add({"walked/file" + std::to_string(i)});
  elsewhere.add({"MARKER-top", "deeper/MARKER-deep"});
  const std::string dir = (tree.root() / "walked/dir").string();
  const std::string link = (tree.root() / "walked/link").string();
  fs::create_directory_symlink(elsewhere.root(), link);
  const std::wstring root = platform::path_to_wide((tree.root() / "walked").native());
  using testing_support::openat2;
  for (const openat2 calls : {openat2::available, openat2::refused}) {
    SCOPED_TRACE(calls == openat2::available ? "openat2" : "names one by one");
    testing_support::forked_child swapper([&] {
      for (;;) {
        if (!testing_support::exchange_names(dir, link)) return 1;
      }
    });
    ASSERT_TRUE(swapper.started());
    // 0 no leak and the swap met; 1 a leak; 2 the swap never met.
    const int code = testing_support::in_child_with_alarm(
        [&] {
          int walks = 0, met = 0;
          while (met < 1000 && walks < 20000) {
            for (auto order :
                 {dir_walk::walk_order::breadth_first, dir_walk::walk_order::depth_first}) {
              ++walks;
              dir_walk walker;
              walker.set_order(order);
              bool saw_link = false;
              std::string leak;
              const auto r = walker.walk(
                  root,
                  [&](const dir_info& i) {
                    if (narrow(i.name()).starts_with("MARKER"))
                      leak = narrow(i.subfolder()) + narrow(i.name());
                    return file_result::go_on;
                  },
                  [&](const dir_info& i) {
                    if (i.name() == L"dir" &&
                        (i.attributes() & os::file_attribute_reparse_point) != 0)
                      saw_link = true;
                    return dir_result::descend;
                  });
              if (!leak.empty()) {
                std::fprintf(stderr, "walk %d listed %s\n", walks, leak.c_str());
                return 1;
              }
              if (r == dir_walk::result::list_failed || saw_link) ++met;
            }
          }
          std::fprintf(stderr, "%d walks, %d met the swap\n", walks, met);
          return met > 0 ? 0 : 2;
        },
        240, calls);
    swapper.kill();
    EXPECT_EQ(code, 0) << "1 a walk listed the link's target, 2 no walk met the swap";
  }
#endif
}

// A chain of folders whose paths are far longer than the system takes as one
// path (200 names of 100 bytes: 20,200 bytes): the walk reaches its end in
// both orders, with and without openat2. It runs in a child whose
// descriptors are limited to a few more than it had, so a walk that kept one
// per level would fail.
TEST(DirWalk, ReachesTheEndOfAChainDeeperThanAPathCanName) {
#if defined(_WIN32)
  GTEST_SKIP() << "folder chains past PATH_MAX, descriptor limits and openat2 refusal in forked "
                  "children; POSIX only";
#else
  testing_support::temp_dir dir{"tvbase_walk_deep_"};
  constexpr int kDepth = 200;
  const std::string name(100, 'd');
  ASSERT_TRUE(testing_support::make_folder_chain(dir.path(), name, kDepth, "leaf"));
  const std::wstring root = platform::path_to_wide(dir.path());
  using testing_support::openat2;
  for (const openat2 calls : {openat2::available, openat2::refused}) {
    for (auto order : {dir_walk::walk_order::breadth_first, dir_walk::walk_order::depth_first}) {
      SCOPED_TRACE(std::to_string(static_cast<int>(order)) +
                   (calls == openat2::available ? " openat2" : " one by one"));
      const int code = testing_support::in_child_with_alarm(
          [&] {
            if (!testing_support::limit_open_descriptors(testing_support::open_descriptor_count() +
                                                         24))
              return 10;
            dir_walk walker;
            walker.set_order(order);
            int folders = 0;
            std::size_t leaf_depth = 0;
            const auto r = walker.walk(
                root,
                [&](const dir_info& i) {
                  if (i.name() == L"leaf") leaf_depth = i.subfolder().size();
                  return file_result::go_on;
                },
                [&](const dir_info&) {
                  ++folders;
                  return dir_result::descend;
                });
            if (r != dir_walk::result::finished) return 20 + static_cast<int>(r);
            if (folders != kDepth) return 30;
            return leaf_depth == kDepth * (name.size() + 1) ? 0 : 40;
          },
          120, calls);
      EXPECT_EQ(code, 0) << "10 no limit, 2x a result, 30 folders, 40 the leaf's path";
    }
  }
  EXPECT_TRUE(testing_support::remove_folder_chain(dir.path(), name, "leaf"));
#endif
}

// A tree wider than the folders a walk keeps open (40 branches, each a chain
// of 25), so that breadth-first most folders are opened from far above:
// every folder is reached once by its own path, and the walk never holds
// more than 19 descriptors, with or without openat2.
TEST(DirWalk, HoldsFewDescriptorsInWideDeepTrees) {
#if defined(_WIN32)
  GTEST_SKIP() << "counts descriptors under a limit (/proc/self/fd, RLIMIT_NOFILE) with and "
                  "without openat2; POSIX only";
#else
  temp_tree tree;
  std::vector<std::string> expected;
  for (int branch = 0; branch < 40; ++branch) {
    std::string path = "b" + std::to_string(branch) + "/";
    expected.push_back("d " + path.substr(0, path.size() - 1));
    for (int level = 0; level < 25; ++level) {
      path += "l" + std::to_string(level) + "/";
      expected.push_back("d " + path.substr(0, path.size() - 1));
    }
    tree.add({path + "f"});
    expected.push_back("f " + path + "f");
  }
  expected = sorted(expected);
  using testing_support::openat2;
  for (const openat2 calls : {openat2::available, openat2::refused}) {
    for (auto order : {dir_walk::walk_order::breadth_first, dir_walk::walk_order::depth_first}) {
      SCOPED_TRACE(std::to_string(static_cast<int>(order)) +
                   (calls == openat2::available ? " openat2" : " one by one"));
      // The most descriptors seen, or 100 + the result, or 200 for calls
      // other than the expected ones.
      const int code = testing_support::in_child_with_alarm(
          [&] {
            const int before = testing_support::open_descriptor_count();
            if (!testing_support::limit_open_descriptors(before + 20)) return 99;
            recorder rec;
            dir_walk walker;
            walker.set_order(order);
            int most = 0;
            auto files = rec.files();
            const auto r = walker.walk(
                tree.wide(),
                [&](const dir_info& i) {
                  most = std::max(most, testing_support::open_descriptor_count() - before);
                  return files(i);
                },
                rec.folders());
            if (r != dir_walk::result::finished) return 100 + static_cast<int>(r);
            return sorted(rec.calls) == expected ? most : 200;
          },
          120, calls);
      EXPECT_GE(code, 2);  // the start folder and the one being listed at least
      EXPECT_LE(code, 19) << "more than 19 descriptors, or 10x a result, or 200 wrong calls";
    }
  }
#endif
}

TEST(PathConversion, RoundTripsEveryByteString) {
#if defined(_WIN32)
  GTEST_SKIP() << "names are UTF-16 on Windows: there are no byte names to keep";
#endif
  struct row {
    std::string bytes;
    std::wstring wide;
  };
  const row rows[] = {
      {"", L""},
      {"abc", L"abc"},
      {"\xC3\xA9", L"\u00E9"},
      {"\xE2\x82\xAC", L"\u20AC"},
      {"\xF0\x9F\x98\x80", {wchar_t{0xD83D}, wchar_t{0xDE00}}},
      {"\xFF", {wchar_t{0xDCFF}}},
      {"\xC3", {wchar_t{0xDCC3}}},                                            // cut short
      {"\xC0\xAF", {wchar_t{0xDCC0}, wchar_t{0xDCAF}}},                       // overlong
      {"\xED\xA0\x80", {wchar_t{0xDCED}, wchar_t{0xDCA0}, wchar_t{0xDC80}}},  // surrogate
      {"\xF4\x90\x80\x80", {wchar_t{0xDCF4}, wchar_t{0xDC90}, wchar_t{0xDC80}, wchar_t{0xDC80}}},
      {"a\xE2\x82z", {L'a', wchar_t{0xDCE2}, wchar_t{0xDC82}, L'z'}},
  };
  for (const row& r : rows) {
    SCOPED_TRACE(r.bytes);
    EXPECT_EQ(platform::path_to_wide(r.bytes), r.wide);
    EXPECT_EQ(platform::wide_to_path(r.wide), r.bytes);
  }
  // A name that doesn't fit is cut at a whole character.
  wchar_t small[3];
  EXPECT_EQ(platform::path_to_wide("a\xF0\x9F\x98\x80", small, 3), 1u);
  EXPECT_EQ(small[1], L'\0');
}

}  // namespace
