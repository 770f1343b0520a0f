#include <tvbase/system/dir_walk.h>

#include <cstring>
#include <cwchar>
#include <memory>
#include <stdexcept>

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

dir_walk::result dir_walk::walk(std::wstring_view path, file_action on_file,
                                directory_action on_directory) {
  file_action_.swap(on_file);
  directory_action_.swap(on_directory);
  dir_info info(path);
  std::list<std::wstring> queue(1);
  while (!queue.empty()) {
    info.subfolder_ = std::move(queue.front());
    queue.pop_front();
    std::list<std::wstring> subfolders;
    const result r = list_folder(info, subfolders);
    if (r != result::finished) return r;
    if (sort_folders_) subfolders.sort(folded_less);
    switch (order_) {
      case walk_order::breadth_first: queue.splice(queue.end(), subfolders); break;
      case walk_order::depth_first: queue.splice(queue.begin(), subfolders); break;
      default: break;
    }
  }
  return result::finished;
}

dir_walk::result dir_walk::list_folder(dir_info& info, std::list<std::wstring>& subfolders) {
  if (report_folders_) {
    info.clear(dir_info::item_state::entering);
    if (directory_action_(info) != directory_action_result::descend) return result::stopped;
    if (file_action_(info) != file_action_result::go_on) return result::stopped;
  }
  info.clear(dir_info::item_state::item);
  std::uint32_t error = 0;
  const std::unique_ptr<platform::dir_listing, listing_closer> listing(
      platform::open_dir(info.path_ + info.subfolder_, error));
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
        subfolders.push_back(std::move(sub));
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
