#include <tvbase/system/dir_walk.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <cwchar>
#include <list>
#include <memory>
#include <optional>
#include <stdexcept>
#include <utility>
#include <vector>

#include <tvbase/platform/dir_list.h>

namespace os {
namespace {

static_assert(file_attribute_directory == platform::kAttributeDirectory);
static_assert(file_attribute_normal == platform::kAttributeNormal);
static_assert(file_attribute_reparse_point == platform::kAttributeReparsePoint);

constexpr wchar_t kSeparator = platform::kPathSeparator;

wchar_t fold(wchar_t c) { return c >= L'A' && c <= L'Z' ? static_cast<wchar_t>(c + 32) : c; }

// Ascending by value with A-Z taken as a-z; a prefix sorts first.
bool folded_less(const std::wstring& a, const std::wstring& b) {
  const std::size_t n = std::min(a.size(), b.size());
  for (std::size_t i = 0; i < n; ++i) {
    const wchar_t x = fold(a[i]);
    const wchar_t y = fold(b[i]);
    if (x != y) return x < y;
  }
  return a.size() < b.size();
}

struct listing_closer {
  void operator()(platform::dir_listing* listing) const { platform::close_dir(listing); }
};

struct folder_closer {
  void operator()(platform::dir_handle* folder) const { platform::close_folder(folder); }
};

using open_folder = std::unique_ptr<platform::dir_handle, folder_closer>;

// The folders that subfolders waiting in the queue lie in, each known by its
// parent and by the length of its relative path, which is the start of the
// paths of all folders inside it, and a few of them open.
//
// A folder is opened from the nearest folder above it that is still open,
// by the part of its relative path below that one, never through a link
// (platform::open_subfolder). The start folder stays open for the whole
// walk; of the others at most kOpenFolders, the ones used last, stay open,
// so a walk holds at most kOpenFolders + 3 descriptors (these, the start
// folder, the folder being listed and its listing) whatever the width and
// depth of the tree. Depth-first, the parent of the next folder is nearly
// always open, so each folder costs one open by its own name; breadth-first
// in a tree wider than that, a folder is opened from the nearest open
// folder above it by a longer path, still one system call where the system
// resolves a whole path without links (openat2 on Linux).
//
// A folder's record lives while subfolders of it wait, or folders inside
// those: each holds a reference on its parent, and the last one to go frees
// its parent in a loop, never by recursion, so that the call stack stays
// flat at any depth.
class folder_tree {
 public:
  using id = std::size_t;
  static constexpr id kStart = 0;
  static constexpr std::size_t kOpenFolders = 16;

  explicit folder_tree(open_folder start) { nodes_.push_back({kStart, 1, 0, start.release(), 0}); }
  ~folder_tree() {
    for (const node& n : nodes_) platform::close_folder(n.folder);
  }
  folder_tree(const folder_tree&) = delete;
  folder_tree& operator=(const folder_tree&) = delete;

  const platform::dir_handle* start() const { return nodes_[kStart].folder; }

  // A record for the folder whose relative path is `path_length` units long
  // and lies in `parent`, holding `references` references, and keeping
  // `folder` open if there is room among the open ones.
  id add(id parent, std::size_t path_length, std::size_t references, open_folder folder) {
    id at;
    if (free_.empty()) {
      at = nodes_.size();
      nodes_.push_back({});
    } else {
      at = free_.back();
      free_.pop_back();
    }
    nodes_[at] = {parent, references, path_length, nullptr, 0};
    ++nodes_[parent].references;
    keep_open(at, std::move(folder));
    return at;
  }

  // Drops one reference to `n`; a record left without any is freed, and with
  // it the reference it held on its parent.
  void release(id n) {
    while (n != kStart && --nodes_[n].references == 0) {
      node& gone = nodes_[n];
      if (gone.folder != nullptr) {
        platform::close_folder(gone.folder);
        gone.folder = nullptr;
        std::erase(open_, n);
      }
      free_.push_back(n);
      n = gone.parent;
    }
  }

  // Opens the folder with relative path `path` that lies in `parent`.
  open_folder open_inside(id parent, std::wstring_view path, std::uint32_t& error) {
    id from = parent;
    while (nodes_[from].folder == nullptr) from = nodes_[from].parent;
    nodes_[from].last_use = ++clock_;
    // The path below `from`, without its trailing separator.
    const std::wstring_view below =
        path.substr(nodes_[from].path_length, path.size() - nodes_[from].path_length - 1);
    return open_folder(platform::open_subfolder(nodes_[from].folder, below, error));
  }

 private:
  struct node {
    id parent;
    std::size_t references;
    std::size_t path_length;
    platform::dir_handle* folder;  // null when closed
    std::uint64_t last_use;
  };

  void keep_open(id n, open_folder folder) {
    if (open_.size() == kOpenFolders) {
      const auto oldest = std::min_element(open_.begin(), open_.end(), [&](id a, id b) {
        return nodes_[a].last_use < nodes_[b].last_use;
      });
      platform::close_folder(nodes_[*oldest].folder);
      nodes_[*oldest].folder = nullptr;
      open_.erase(oldest);
    }
    nodes_[n].folder = folder.release();
    nodes_[n].last_use = ++clock_;
    open_.push_back(n);
  }

  std::vector<node> nodes_;
  std::vector<id> free_;
  std::vector<id> open_;  // the records with an open folder, the start's aside
  std::uint64_t clock_ = 0;
};

// A folder waiting in the queue: its relative path, and the record of the
// folder it lies in.
struct waiting {
  std::wstring subfolder;
  folder_tree::id parent;
};

bool folded_less_waiting(const waiting& a, const waiting& b) {
  return folded_less(a.subfolder, b.subfolder);
}

}  // namespace

dir_info::dir_info(std::wstring_view path) : path_(path) {
  if (path_.empty()) throw std::invalid_argument("dir_info: path cannot be empty");
  if (path_.back() != kSeparator) path_ += kSeparator;
}

std::wstring_view dir_info::name() const noexcept {
  return {data_.cFileName, wcsnlen(data_.cFileName, std::size(data_.cFileName))};
}

bool dir_info::is_folder() const {
  if (state_ != item_state::item) throw std::invalid_argument("dir_info: not an item");
  return (data_.dwFileAttributes & file_attribute_directory) != 0;
}

bool dir_info::is_dots() const noexcept {
  const std::wstring_view n = name();
  return n == L"." || n == L"..";
}

void dir_info::clear(item_state state) noexcept {
  state_ = state;
  std::memset(&data_, 0, sizeof data_);
}

// What one walk keeps between the folders it lists.
struct dir_walk::walk_state {
  std::optional<folder_tree> tree;               // once the start folder is open
  folder_tree::id parent = folder_tree::kStart;  // of the folder being listed
  open_folder listed;                            // the folder being listed, but the start
  std::list<waiting> subfolders;                 // found in it, to descend into
};

dir_walk::result dir_walk::walk(std::wstring_view path, file_action on_file,
                                directory_action on_directory) {
  file_action_.swap(on_file);
  directory_action_.swap(on_directory);
  dir_info info(path);
  walk_state state;
  std::list<waiting> queue(1, waiting{std::wstring(), folder_tree::kStart});
  while (!queue.empty()) {
    info.subfolder_ = std::move(queue.front().subfolder);
    state.parent = queue.front().parent;
    queue.pop_front();
    const bool is_start = !state.tree;
    const result r = list_folder(info, state);
    if (r != result::finished) return r;
    std::list<waiting> subfolders = std::move(state.subfolders);
    state.subfolders.clear();
    const bool descend = order_ == walk_order::breadth_first || order_ == walk_order::depth_first;
    if (descend && !subfolders.empty()) {
      const folder_tree::id self =
          is_start ? folder_tree::kStart
                   : state.tree->add(state.parent, info.subfolder_.size(), subfolders.size(),
                                     std::move(state.listed));
      for (waiting& w : subfolders) w.parent = self;
      if (sort_folders_) subfolders.sort(folded_less_waiting);
      queue.splice(order_ == walk_order::breadth_first ? queue.end() : queue.begin(), subfolders);
    }
    state.listed.reset();
    if (!is_start) state.tree->release(state.parent);
  }
  return result::finished;
}

dir_walk::result dir_walk::list_folder(dir_info& info, walk_state& state) {
  if (report_folders_) {
    info.clear(dir_info::item_state::entering);
    if (directory_action_(info) != directory_action_result::descend) return result::stopped;
    if (file_action_(info) != file_action_result::go_on) return result::stopped;
  }
  info.clear(dir_info::item_state::item);
  std::uint32_t error = 0;
  // The start folder by its path; every other one from the folders it lies
  // in, never through a link, even one put in place of a folder since it
  // was listed.
  const platform::dir_handle* folder = nullptr;
  if (!state.tree) {
    open_folder start(platform::open_folder(info.path_, error));
    if (start) folder = state.tree.emplace(std::move(start)).start();
  } else {
    state.listed = state.tree->open_inside(state.parent, info.subfolder_, error);
    folder = state.listed.get();
  }
  const std::unique_ptr<platform::dir_listing, listing_closer> listing(
      folder != nullptr ? platform::open_dir(folder, error) : nullptr);
  if (!listing) {
    last_error_ = error;
    return result::list_failed;
  }
  for (;;) {
    std::uint32_t attributes = 0;
    const platform::read_status status =
        platform::read_dir(listing.get(), info.data_.cFileName, attributes, error);
    info.data_.dwFileAttributes = attributes;
    if (status == platform::read_status::end) break;
    if (status == platform::read_status::failed) {
      last_error_ = error;
      return result::list_failed;
    }
    if ((attributes & file_attribute_directory) == 0) {
      if (go_on_check_ && !go_on_check_(info)) return result::stopped;
      if (file_action_(info) == file_action_result::stop) return result::stopped;
    } else if (!info.is_dots()) {
      if (go_on_check_ && !go_on_check_(info)) return result::stopped;
      const directory_action_result answer = directory_action_(info);
      if (answer == directory_action_result::stop) return result::stopped;
      if (answer == directory_action_result::descend &&
          (attributes & file_attribute_reparse_point) == 0) {
        std::wstring sub;
        const std::wstring_view name = info.name();
        sub.reserve(info.subfolder_.size() + name.size() + 1);
        sub.append(info.subfolder_).append(name) += kSeparator;
        state.subfolders.push_back({std::move(sub), folder_tree::kStart});
      }
    }
  }
  if (report_folders_) {
    info.clear(dir_info::item_state::leaving);
    if (file_action_(info) != file_action_result::go_on) return result::stopped;
    if (directory_action_(info) != directory_action_result::descend) return result::stopped;
  }
  return result::finished;
}

std::string native_path(std::wstring_view path) { return platform::wide_to_path(path); }

std::wstring wide_path(std::string_view path) { return platform::path_to_wide(path); }

}  // namespace os
