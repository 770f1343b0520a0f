#ifndef TVBASE_TESTING_TEMP_DIR_H
#define TVBASE_TESTING_TEMP_DIR_H

// A fresh folder under the system's temporary folder for one test, removed
// with all it holds at the end of the scope. path() ends with a '/', and is
// empty if no folder could be made.
//
//   testing_support::temp_dir dir;
//   std::ofstream(dir.path() + "TvLog.cfg") << bytes;

#include <filesystem>
#include <random>
#include <string>
#include <string_view>
#include <system_error>

namespace testing_support {

// Makes a folder of a new name that starts with `prefix` under the system's
// temporary folder; gives its path with a trailing '/', or an empty text.
inline std::string make_temp_dir(std::string_view prefix) {
  std::error_code error;
  const std::filesystem::path base = std::filesystem::temp_directory_path(error);
  if (error) return {};
  std::random_device random;
  for (int attempt = 0; attempt < 100; ++attempt) {
    const std::filesystem::path path = base / (std::string(prefix) + std::to_string(random()));
    if (std::filesystem::create_directory(path, error)) return path.string() + "/";
  }
  return {};
}

class temp_dir {
 public:
  explicit temp_dir(std::string_view prefix = "tvbase-test-") : path_(make_temp_dir(prefix)) {}
  ~temp_dir() {
    std::error_code ignored;
    if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
  }
  temp_dir(const temp_dir&) = delete;
  temp_dir& operator=(const temp_dir&) = delete;
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

}  // namespace testing_support

#endif  // TVBASE_TESTING_TEMP_DIR_H
