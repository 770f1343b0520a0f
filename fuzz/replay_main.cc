// Feeds every file of the folders (or files) named on the command line to the
// fuzz target linked with it, once each, in name order: the corpora replayed
// where no fuzzing engine is at hand (the Windows build under Wine). A fault
// crashes the program as the engine would; no input at all is an error too,
// so that a moved corpus can't pass unseen.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int argc, char** argv) {
  namespace fs = std::filesystem;
  std::vector<fs::path> inputs;
  for (int i = 1; i < argc; ++i) {
    std::error_code ec;
    if (fs::is_directory(argv[i], ec)) {
      for (const fs::directory_entry& e : fs::recursive_directory_iterator(argv[i], ec))
        if (e.is_regular_file()) inputs.push_back(e.path());
    } else if (fs::is_regular_file(argv[i], ec)) {
      inputs.emplace_back(argv[i]);
    } else {
      std::fprintf(stderr, "%s: no such file or folder\n", argv[i]);
      return 2;
    }
  }
  std::sort(inputs.begin(), inputs.end());
  for (const fs::path& path : inputs) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
      std::fprintf(stderr, "%s: unreadable\n", path.string().c_str());
      return 2;
    }
    const std::vector<char> bytes{std::istreambuf_iterator<char>(in),
                                  std::istreambuf_iterator<char>()};
    // A copy of exactly the input's size, as the engine hands it over.
    std::vector<std::uint8_t> data(bytes.begin(), bytes.end());
    LLVMFuzzerTestOneInput(data.empty() ? nullptr : data.data(), data.size());
  }
  std::printf("%zu inputs replayed\n", inputs.size());
  return inputs.empty() ? 1 : 0;
}
