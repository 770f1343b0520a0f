#ifndef TVBASE_SYSTEM_DIR_WALK_H
#define TVBASE_SYSTEM_DIR_WALK_H

#include <tvbase/export.h>
#include <tvbase/platform/win_types.h>

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace os {

// A time as the system's find data keeps it: 100-nanosecond ticks since
// 1 January 1601 (UTC), split into two 32-bit halves.
using file_time = win::FILETIME;

// Bits of find_data::dwFileAttributes, with their Windows values.
inline constexpr std::uint32_t file_attribute_directory = 0x10;       // a folder, or a link to one
inline constexpr std::uint32_t file_attribute_normal = 0x80;          // a plain item, no other bit
inline constexpr std::uint32_t file_attribute_reparse_point = 0x400;  // a symbolic link

// What a folder listing tells of one item: the system's WIN32_FIND_DATAW on
// Windows, and elsewhere a record of the library's own with its field names,
// types and order (<tvbase/platform/win_types.h>), so code that reads it is
// written once for every system:
//
//   const os::find_data& d = info.data();
//   if (d.dwFileAttributes & os::file_attribute_directory) { /* d.cFileName */ }
//
// The name is UTF-16 units, one per wchar_t, ended by a zero; a name of more
// than 259 units is cut there. A listing fills the attributes and the name;
// times, size and the alternate name stay zero, since on Linux they would
// cost a file-status call per item. On Linux names are UTF-8 on disk; each
// byte that starts no valid UTF-8 sequence is held as the unit 0xDC00 + byte
// (0xDC80 to 0xDCFF, which valid UTF-8 never gives), so native_path() turns
// every name back into the bytes it came from.
using find_data = win::WIN32_FIND_DATAW;

// What the actions of a walk see: the start folder, the current folder
// relative to it, where the walk is (entering a folder, at an item of it, or
// leaving it) and, at an item, its find data. Paths use the system's
// separator, '\\' on Windows and '/' elsewhere: the start path always ends in
// one, the subfolder is empty or ends in one.
class TVBASE_EXPORT dir_info {
 public:
  enum class item_state { entering = 0, item = 1, leaving = 2 };

  // Appends the separator to `path` unless it ends in one. Throws std::invalid_argument
  // with "dir_info: path cannot be empty" for an empty path.
  explicit dir_info(std::wstring_view path);

  const std::wstring& path() const noexcept { return path_; }
  const std::wstring& subfolder() const noexcept { return subfolder_; }
  item_state state() const noexcept { return state_; }
  // All zero while entering or leaving a folder.
  const find_data& data() const noexcept { return data_; }
  std::uint32_t attributes() const noexcept { return data_.dwFileAttributes; }
  // The item's name; empty while entering or leaving a folder.
  std::wstring_view name() const noexcept;

  // True if the item is a folder, or a link to one (attribute bit 0x10).
  // Throws std::invalid_argument with "dir_info: not an item" outside
  // item_state::item.
  [[nodiscard]] bool is_folder() const;
  // True if the item's name is "." or "..".
  [[nodiscard]] bool is_dots() const noexcept;

 private:
  friend class dir_walk;

  void clear(item_state state) noexcept;

  std::wstring path_;
  std::wstring subfolder_;
  item_state state_ = item_state::entering;
  find_data data_{};
};

// Walks a folder and, as asked, its subfolders, calling a file action for each
// file and a directory action for each folder. The walk keeps a queue of
// folders to list instead of recursing, so the call stack stays flat whatever
// the depth; where new subfolders join the queue picks breadth-first or
// depth-first (pre-order) order. Items of a folder come in the order the
// system lists them; only subfolders can be sorted.
//
// The walk never descends into a symbolic link to a folder, so it cannot
// loop, but reports it to the directory action like a folder. Each folder
// but the start is opened from the folder it lies in (or one above), by
// name and never through a link: a folder swapped for a link between its
// listing and its turn is not entered, and the walk ends there with
// list_failed, as for any folder that can't be listed. Paths are never
// handed to the system whole, so the depth of a tree has no limit. A walk
// holds at most 19 descriptors, whatever the width and depth of the tree:
// the start folder, the 16 folders last used among those whose subfolders
// still wait, the folder being listed and its listing; a folder whose own
// is closed is reached from the nearest open one above it.
//
// Failure: walk() gives list_failed, with the system's code in last_error(),
// as soon as one folder can't be listed or opened; an empty path throws
// std::invalid_argument; an empty action that is needed throws
// std::bad_function_call; an exception from an action leaves walk(). Open
// folders and listings are closed on every way out. One walk at a time per
// object.
//
//   os::dir_walk walker;
//   walker.set_order(os::dir_walk::walk_order::depth_first);
//   auto r = walker.walk(L"/srv/data",
//       [&](const os::dir_info& i) { ++files; return os::dir_walk::file_action_result::go_on; },
//       [](const os::dir_info&) { return os::dir_walk::directory_action_result::descend; });
class TVBASE_EXPORT dir_walk {
 public:
  enum class result { finished = 0, list_failed = 1, stopped = 2 };
  enum class file_action_result { go_on = 0, stop = 1 };
  enum class directory_action_result { skip = 0, descend = 1, stop = 2 };
  // Any value but 0 and 1 drops subfolders, so only the start folder is listed.
  enum class walk_order { breadth_first = 0, depth_first = 1, no_descent = 2 };
  // Whether each folder also gets a call as it is entered and left.
  enum class folder_reports { off = 0, entry_and_exit = 1 };
  // The order in which the subfolders found in one folder join the queue.
  enum class folder_sort { as_listed = 0, by_folded_name = 1 };

  using file_action = std::function<file_action_result(const dir_info&)>;
  using directory_action = std::function<directory_action_result(const dir_info&)>;
  using go_on_check = std::function<bool(const dir_info&)>;

  dir_walk() = default;

  // Asked before the action of each item; false stops the walk. Empty (the
  // default) means go on.
  void set_go_on_check(go_on_check check) { go_on_check_ = std::move(check); }
  // Makes two extra calls per folder, in states entering and leaving: on entry
  // the directory action and then the file action, on exit the file action
  // and then the directory action. Any answer there but descend and go_on
  // stops the walk, skip included. Off by default.
  void set_report_folders(folder_reports reports) noexcept {
    report_folders_ = reports == folder_reports::entry_and_exit;
  }
  // by_folded_name sorts the subfolders found in each folder, stably, by
  // their relative paths with A-Z folded to a-z, so "a", "B", "c" keep that
  // order. As listed by default.
  void set_sort_folders(folder_sort sort) noexcept {
    sort_folders_ = sort == folder_sort::by_folded_name;
  }
  // Breadth-first by default.
  void set_order(walk_order order) noexcept { order_ = order; }

  // The system's code (errno, or GetLastError() on Windows) of the last folder that couldn't be
  // listed; kept until the next such failure, 0 before any.
  std::uint32_t last_error() const noexcept { return last_error_; }

  // Walks `path`. The actions are taken over by the object and stay in it
  // after the walk.
  [[nodiscard]] result walk(std::wstring_view path, file_action on_file,
                            directory_action on_directory);

 private:
  struct walk_state;
  result list_folder(dir_info& info, walk_state& state);

  file_action file_action_;
  directory_action directory_action_;
  go_on_check go_on_check_;
  std::uint32_t last_error_ = 0;
  bool report_folders_ = false;
  bool sort_folders_ = false;
  walk_order order_ = walk_order::breadth_first;
};

// The system's bytes for a wide path such as the walk gives, and back. On
// Linux paths are UTF-8 on disk; a byte that starts no valid UTF-8 sequence is
// held as the unit 0xDC00 + byte, so any byte string survives the round trip.
// On Windows, whose paths are wide, the bytes are the path's UTF-8 form.
//
//   std::string file = os::native_path(info.path() + info.subfolder() +
//                                      std::wstring(info.name()));
TVBASE_EXPORT std::string native_path(std::wstring_view path);
TVBASE_EXPORT std::wstring wide_path(std::string_view path);

}  // namespace os

#endif  // TVBASE_SYSTEM_DIR_WALK_H
