#include <tvbase/platform/file.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
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
using platform::read_outcome;

std::string contents(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

std::vector<std::string> names_in(const std::string& folder) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(folder))
    names.push_back(entry.path().filename().string());
  std::sort(names.begin(), names.end());
  return names;
}

#if defined(_WIN32)
// A named pipe of this process with one instance, waiting for a client: a
// reader that took it for a file would wait on it for ever.
class pipe_server {
 public:
  explicit pipe_server(const std::string& name)
      : pipe_(::CreateNamedPipeA(name.c_str(), PIPE_ACCESS_DUPLEX, PIPE_TYPE_BYTE | PIPE_WAIT, 1,
                                 4096, 4096, 0, nullptr)) {}
  ~pipe_server() {
    if (pipe_ != INVALID_HANDLE_VALUE) ::CloseHandle(pipe_);
  }
  pipe_server(const pipe_server&) = delete;
  pipe_server& operator=(const pipe_server&) = delete;
  bool ok() const { return pipe_ != INVALID_HANDLE_VALUE; }

 private:
  HANDLE pipe_;
};

// Everything but a disk file of at most the limit is refused before a byte
// is read: a folder, the NUL device, and a named pipe (connected to, never
// read), with the same answers from the stream and the first-bytes forms.
TEST(ReadRegularFile, ReadsDiskFilesAndRefusesTheRest) {
  testing_support::temp_dir dir{"tvbase_file_"};
  const std::string folder = dir.path();
  std::ofstream(folder + "five") << "12345";
  std::ofstream(folder + "empty");
  const std::string pipe = "\\\\.\\pipe\\tvbase-test-" + std::to_string(::GetCurrentProcessId());
  pipe_server server(pipe);
  ASSERT_TRUE(server.ok());
  struct row {
    std::string path;
    std::size_t limit;
    read_outcome outcome;
    std::string bytes;
    std::uint32_t error;  // for cannot_open
  };
  const row rows[] = {
      {folder + "five", 5, read_outcome::done, "12345", 0},
      {folder + "five", 4, read_outcome::too_large, "", 0},
      {folder + "empty", 0, read_outcome::done, "", 0},
      {folder, 100, read_outcome::not_regular, "", 0},
      {"NUL", 100, read_outcome::not_regular, "", 0},
      {pipe, 100, read_outcome::not_regular, "", 0},
      {folder + "missing", 100, read_outcome::cannot_open, "", ERROR_FILE_NOT_FOUND},
      {folder + "five/x", 100, read_outcome::cannot_open, "", ERROR_PATH_NOT_FOUND},
  };
  for (const row& r : rows) {
    SCOPED_TRACE(r.path);
    std::vector<std::uint8_t> out;
    std::uint32_t error = 0;
    const read_outcome got = platform::read_regular_file(r.path.c_str(), r.limit, out, error);
    EXPECT_EQ(got, r.outcome);
    if (r.outcome == read_outcome::done) {
      EXPECT_EQ(std::string(out.begin(), out.end()), r.bytes);
    }
    if (r.outcome == read_outcome::cannot_open) {
      EXPECT_EQ(error, r.error);
    }
    EXPECT_EQ(platform::read_regular_file(r.path.c_str(), r.limit, out),
              r.outcome == read_outcome::done);
    std::FILE* stream = nullptr;
    const read_outcome opened = platform::open_regular_file(r.path.c_str(), stream, error);
    EXPECT_EQ(opened == read_outcome::done,
              r.outcome == read_outcome::done || r.outcome == read_outcome::too_large);
    EXPECT_EQ(stream != nullptr, opened == read_outcome::done);
    if (stream != nullptr) std::fclose(stream);
    char start[8];
    const long n = platform::read_file_start(r.path.c_str(), start, sizeof start);
    if (r.outcome == read_outcome::not_regular) {
      EXPECT_EQ(n, platform::kNotRegularFile);
    }
    if (r.outcome == read_outcome::cannot_open) {
      EXPECT_EQ(n, -1);
    }
  }
  std::vector<std::uint8_t> out;
  EXPECT_FALSE(platform::read_regular_file(nullptr, 100, out));
}
#else
// Everything but a regular file of at most the limit is refused before a
// byte is read; a FIFO without a writer among them, which must not wait.
TEST(ReadRegularFile, ReadsRegularFilesAndRefusesTheRest) {
  testing_support::temp_dir dir{"tvbase_file_"};
  const std::string folder = dir.path();
  std::ofstream(folder + "five") << "12345";
  std::ofstream(folder + "empty");
  ASSERT_TRUE(testing_support::make_fifo(folder + "fifo"));
  fs::create_symlink(folder + "five", folder + "link");
  struct row {
    std::string path;
    std::size_t limit;
    read_outcome outcome;
    std::string bytes;
    std::uint32_t error;  // for cannot_open
  };
  const row rows[] = {
      {folder + "five", 5, read_outcome::done, "12345", 0},
      {folder + "five", 4, read_outcome::too_large, "", 0},
      {folder + "empty", 0, read_outcome::done, "", 0},
      {folder + "link", 5, read_outcome::done, "12345", 0},  // the caller's own path
      {folder + "fifo", 100, read_outcome::not_regular, "", 0},
      {folder, 100, read_outcome::not_regular, "", 0},
      {"/dev/zero", 100, read_outcome::not_regular, "", 0},
      {"/dev/null", 100, read_outcome::not_regular, "", 0},
      {folder + "missing", 100, read_outcome::cannot_open, "", ENOENT},
      {folder + "five/x", 100, read_outcome::cannot_open, "", ENOTDIR},
  };
  for (const row& r : rows) {
    SCOPED_TRACE(r.path);
    const int result = testing_support::in_child_with_alarm(
        [&] {
          std::vector<std::uint8_t> out;
          std::uint32_t error = 0;
          const read_outcome got = platform::read_regular_file(r.path.c_str(), r.limit, out, error);
          if (got != r.outcome) return 1;
          if (got == read_outcome::done && std::string(out.begin(), out.end()) != r.bytes) return 2;
          if (got == read_outcome::cannot_open && error != r.error) return 3;
          return platform::read_regular_file(r.path.c_str(), r.limit, out) ==
                         (r.outcome == read_outcome::done)
                     ? 0
                     : 4;
        },
        60);
    EXPECT_EQ(result, 0) << "1 outcome, 2 bytes, 3 error code, 4 the short form, -1 hung";
  }
  std::vector<std::uint8_t> out;
  EXPECT_FALSE(platform::read_regular_file(nullptr, 100, out));
}
#endif

TEST(WriteWholeFile, ReplacesWholeOrNotAtAll) {
  testing_support::temp_dir dir{"tvbase_file_"};
  const std::string folder = dir.path();
  std::ofstream(folder + "victim") << "precious";
  std::ofstream(folder + "old") << "old text";
#if !defined(_WIN32)
  fs::create_symlink(folder + "victim", folder + "link");
#endif
  struct row {
    std::string path;
    std::string bytes;
    unsigned long error;
    std::string after;  // what `path` holds afterwards
  };
  const row rows[] = {
    {folder + "new", "fresh", 0, "fresh"},
    {folder + "old", "replaced", 0, "replaced"},
    {folder + "empty", "", 0, ""},
#if defined(_WIN32)
    {folder + "missing/file", "x", ERROR_PATH_NOT_FOUND, ""},
    {folder + "folder", "x", ERROR_ACCESS_DENIED, ""},
    {folder, "x", ERROR_ACCESS_DENIED, ""},
#else
    {folder + "link", "not through", 0, "not through"},  // the link itself is replaced
    {folder + "missing/file", "x", ENOENT, ""},
    {folder + "folder", "x", EISDIR, ""},
    {folder, "x", EISDIR, ""},
#endif
  };
  fs::create_directory(folder + "folder");
  for (const row& r : rows) {
    SCOPED_TRACE(r.path);
    EXPECT_EQ(platform::write_whole_file(r.path.c_str(), r.bytes.data(), r.bytes.size()), r.error);
    if (r.error == 0) {
      EXPECT_EQ(contents(r.path), r.after);
    }
  }
  EXPECT_EQ(contents(folder + "victim"), "precious");
  // No temporary file is left behind, after success or failure.
#if defined(_WIN32)
  EXPECT_EQ(names_in(folder),
            (std::vector<std::string>{"empty", "folder", "new", "old", "victim"}));
#else
  EXPECT_FALSE(fs::is_symlink(folder + "link"));
  EXPECT_EQ(names_in(folder),
            (std::vector<std::string>{"empty", "folder", "link", "new", "old", "victim"}));
#endif
}

}  // namespace
