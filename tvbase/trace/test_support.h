#ifndef TVBASE_TRACE_TEST_SUPPORT_H
#define TVBASE_TRACE_TEST_SUPPORT_H

// Helpers shared by the trace's tests: real temporary folders and files, and
// programs started as processes of their own.

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <tvbase/testing/processes.h>
#include <tvbase/testing/temp_dir.h>

namespace trace_test {

// A fresh folder, removed with all it holds at the end of the scope; its
// path() ends with a '/'.
using temp_dir = testing_support::temp_dir;

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

// A started program with its standard output and error.
using child = testing_support::program;

}  // namespace trace_test

#endif  // TVBASE_TRACE_TEST_SUPPORT_H
