// Walks a generated tree of 100,000 files in 5,000 folders with actions that
// only count, beside `find DIR -printf ''` on the same tree in the same run.
// The tree is made once under /tmp and kept for later runs; the first
// iterations warm the cache for both.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include <tvbase/system/dir_walk.h>
#include <tvbase/testing/processes.h>

extern char** environ;

namespace {

namespace fs = std::filesystem;

constexpr int kTopFolders = 50;
constexpr int kSubFolders = 99;      // in each top folder: 50 + 50 * 99 = 5,000 folders
constexpr int kFilesPerFolder = 20;  // 5,000 * 20 = 100,000 files
constexpr long kFolders = kTopFolders + kTopFolders * kSubFolders;
constexpr long kFiles = kFolders * kFilesPerFolder;

const fs::path& tree() {
  static const fs::path root = [] {
    const fs::path dir = "/tmp/tvbase-walk-bench-tree";
    const fs::path done = dir / ".complete";
    if (fs::exists(done)) return dir;
    fs::remove_all(dir);
    const auto fill = [](const fs::path& folder) {
      fs::create_directories(folder);
      for (int f = 0; f < kFilesPerFolder; ++f) {
        std::ofstream(folder / ("file_" + std::to_string(f) + ".dat"));
      }
    };
    for (int t = 0; t < kTopFolders; ++t) {
      const fs::path top = dir / ("top_" + std::to_string(t));
      fill(top);
      for (int s = 0; s < kSubFolders; ++s) fill(top / ("sub_" + std::to_string(s)));
    }
    std::ofstream(done).put('\n');
    return dir;
  }();
  return root;
}

void walk(benchmark::State& state, os::dir_walk::walk_order order) {
  const std::wstring path = os::wide_path(tree().native());
  os::dir_walk walker;
  walker.set_order(order);
  long files = 0;
  long folders = 0;
  for (auto _ : state) {
    files = 0;
    folders = 0;
    const auto result = walker.walk(
        path,
        [&files](const os::dir_info&) {
          ++files;
          return os::dir_walk::file_action_result::go_on;
        },
        [&folders](const os::dir_info&) {
          ++folders;
          return os::dir_walk::directory_action_result::descend;
        });
    // The marker file of the tree counts as one more file.
    if (result != os::dir_walk::result::finished || files != kFiles + 1 || folders != kFolders) {
      state.SkipWithError("the walk did not see the whole tree");
      break;
    }
  }
  state.counters["files"] = static_cast<double>(files);
  state.counters["folders"] = static_cast<double>(folders);
}

void BM_DirWalkBreadthFirst(benchmark::State& state) {
  walk(state, os::dir_walk::walk_order::breadth_first);
}
void BM_DirWalkDepthFirst(benchmark::State& state) {
  walk(state, os::dir_walk::walk_order::depth_first);
}

// The peer: find(1), started and waited for in each iteration.
void BM_Find(benchmark::State& state) {
  const std::vector<std::string> words = {"find", tree().native(), "-printf", ""};
  for (auto _ : state) {
    if (!testing_support::run_quietly(words)) {
      state.SkipWithError("find could not be run, or failed");
      break;
    }
  }
}

}  // namespace

BENCHMARK(BM_DirWalkBreadthFirst)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_DirWalkDepthFirst)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Find)->Unit(benchmark::kMillisecond)->UseRealTime();

BENCHMARK_MAIN();
