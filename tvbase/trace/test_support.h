#ifndef TVBASE_TRACE_TEST_SUPPORT_H
#define TVBASE_TRACE_TEST_SUPPORT_H

// Helpers shared by the trace's tests: real temporary folders and files.

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace trace_test {

// A fresh folder under the system's temporary folder, removed with all it
// holds at the end of the scope. `path()` ends with a '/'.
class temp_dir {
 public:
  temp_dir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "tvbase-trace-XXXXXX").string();
    if (::mkdtemp(pattern.data()) != nullptr) path_ = pattern + "/";
  }
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

inline std::string read_file(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

inline void write_file(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

// The names of the files in `folder`, sorted.
inline std::vector<std::string> files_in(const std::string& folder) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

// Splits text at `end`; a last piece without `end` is kept as it is.
inline std::vector<std::string> split_lines(const std::string& text, const std::string& end) {
  std::vector<std::string> lines;
  std::size_t from = 0;
  while (from < text.size()) {
    const std::size_t at = text.find(end, from);
    if (at == std::string::npos) {
      lines.push_back(text.substr(from));
      break;
    }
    lines.push_back(text.substr(from, at - from));
    from = at + end.size();
  }
  return lines;
}

}  // namespace trace_test

#endif  // TVBASE_TRACE_TEST_SUPPORT_H
