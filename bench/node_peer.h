#ifndef TVBASE_BENCH_NODE_PEER_H
#define TVBASE_BENCH_NODE_PEER_H

// Peers that run in node: bench/peers/run.js times `runs` runs of one tool on
// a file after a warm-up and prints the mean seconds per run, which becomes
// the time of a benchmark with manual timing. The packages come from
// bench/peers/install.sh (which `make bench` runs).

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include <benchmark/benchmark.h>

namespace bench_support {

// Times `tool` on `file` once per iteration of `state`; skips the benchmark
// with a message when the package is not installed or node fails.
inline void run_node_peer(benchmark::State& state, const std::string& tool, const std::string& file,
                          int runs) {
  const std::string modules = TVBASE_NODE_PEER_MODULES;
  if (!std::filesystem::exists(modules + "/" + tool)) {
    state.SkipWithError("not installed: run bench/peers/install.sh");
    return;
  }
  const std::string command = "NODE_PATH='" + modules + "' node '" + TVBASE_NODE_PEER_SCRIPT +
                              "' " + tool + " '" + file + "' " + std::to_string(runs);
  for (auto _ : state) {
    double seconds = 0;
    if (FILE* pipe = popen(command.c_str(), "r")) {
      char line[64] = {};
      const bool read = std::fgets(line, sizeof line, pipe) != nullptr;
      if (pclose(pipe) == 0 && read) seconds = std::strtod(line, nullptr);
    }
    if (seconds <= 0) {
      state.SkipWithError("the node run failed");
      return;
    }
    state.SetIterationTime(seconds);
  }
}

}  // namespace bench_support

#endif  // TVBASE_BENCH_NODE_PEER_H
