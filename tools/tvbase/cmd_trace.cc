// tvbase trace
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include <tvbase/platform/file.h>

#include "commands.h"
#include "trace_outputs.h"

namespace {

using clock_type = std::chrono::steady_clock;

// A line on standard error, rewritten in place, once reading has taken more
// than a second; ended with a line feed when done.
class progress_line {
 public:
  void operator()(const std::string& log, std::uint64_t done, std::uint64_t size) {
    const clock_type::time_point now = clock_type::now();
    if (now - start_ < std::chrono::seconds(1) || now - shown_ < std::chrono::milliseconds(250))
      return;
    shown_ = now;
    constexpr double kMB = 1024.0 * 1024.0;
    if (size > 0) {
      std::fprintf(stderr, "\rtvbase trace: reading %s: %3.0f%% (%.0f of %.0f MB)   ", log.c_str(),
                   100.0 * static_cast<double>(done) / static_cast<double>(size),
                   static_cast<double>(done) / kMB, static_cast<double>(size) / kMB);
    } else {
      std::fprintf(stderr, "\rtvbase trace: reading %s: %.0f MB   ", log.c_str(),
                   static_cast<double>(done) / kMB);
    }
    std::fflush(stderr);
    shown_any_ = true;
  }
  ~progress_line() {
    if (shown_any_) std::fputs(" done\n", stderr);
  }

 private:
  clock_type::time_point start_ = clock_type::now();
  clock_type::time_point shown_{};
  bool shown_any_ = false;
};

// Takes "-o PATH" out of the words.
std::optional<std::string> take_output(std::vector<std::string>& words) {
  std::optional<std::string> path;
  for (std::size_t i = 0; i < words.size(); ++i) {
    if (words[i] != "-o") continue;
    if (i + 1 >= words.size()) throw cli::usage_error("-o needs a file name");
    path = words[i + 1];
    words.erase(words.begin() + static_cast<std::ptrdiff_t>(i),
                words.begin() + static_cast<std::ptrdiff_t>(i) + 2);
    --i;
  }
  return path;
}

trace_tools::flame_widths parse_widths(const std::optional<std::string>& name) {
  if (!name || *name == "auto") return trace_tools::flame_widths::automatic;
  if (*name == "time") return trace_tools::flame_widths::time;
  if (*name == "calls") return trace_tools::flame_widths::calls;
  throw cli::usage_error("--widths takes auto, time or calls, not '" + *name + "'");
}

int run_trace(cli::args& args) {
  const std::optional<std::string> widths = args.option("widths");
  std::vector<std::string> words = args.positional(static_cast<std::size_t>(-1));
  if (words.empty()) throw cli::usage_error("a subcommand is needed: summary, timeline or flame");
  const std::string what = words.front();
  words.erase(words.begin());
  if (what != "summary" && what != "timeline" && what != "flame")
    throw cli::usage_error("unknown subcommand '" + what + "'");
  const std::optional<std::string> output_path = take_output(words);
  if (words.empty()) throw cli::usage_error("no log given");
  if (what == "summary" && output_path) throw cli::usage_error("summary writes to standard output");
  if (what != "flame" && widths) throw cli::usage_error("--widths is an option of flame");
  if (what != "summary" && !output_path)
    throw cli::usage_error("the output file is needed: -o " +
                           std::string(what == "timeline" ? "OUT.json" : "OUT.svg"));
  // Logs are checked before an output is made, so that a misspelt name
  // costs no half-written file.
  // A FIFO or a device is refused here, never waited on.
  for (const std::string& log : words) {
    std::FILE* file = nullptr;
    std::uint32_t error = 0;
    switch (platform::open_regular_file(log.c_str(), file, error)) {
      case platform::read_outcome::done: std::fclose(file); break;
      case platform::read_outcome::not_regular: throw cli::failure(log + " is not a regular file");
      default:
        throw cli::failure("cannot open " + log + ": " + std::strerror(static_cast<int>(error)));
    }
  }

  progress_line progress;
  trace_tools::run_options options;
  options.widths = parse_widths(widths);
  options.progress = [&progress](const std::string& log, std::uint64_t done, std::uint64_t size) {
    progress(log, done, size);
  };
  std::cout.flush();
  std::FILE* file = stdout;
  const bool to_file = output_path && *output_path != "-";
  if (to_file) {
    file = std::fopen(output_path->c_str(), "wb");
    if (file == nullptr)
      throw cli::failure("cannot create " + *output_path + ": " + std::strerror(errno));
  }
  std::vector<std::string> failures;
  bool written = false;
  {
    trace_tools::output out(file);
    if (what == "summary") {
      failures = trace_tools::write_summary(words, out, options);
    } else if (what == "timeline") {
      failures = trace_tools::write_timeline(words, out, options);
    } else {
      failures = trace_tools::write_flame(words, out, options);
    }
    written = out.flush();
  }
  if (to_file) written = std::fclose(file) == 0 && written;
  for (const std::string& failure : failures) std::cerr << "tvbase trace: " << failure << '\n';
  if (!written) {
    if (to_file) std::remove(output_path->c_str());
    throw cli::failure("cannot write " + (to_file ? *output_path : std::string("the output")));
  }
  if (to_file) std::cout << "wrote " << *output_path << '\n';
  return failures.empty() ? cli::kOk : cli::kFailed;
}

}  // namespace

const command trace_command{
    "trace", "read call-trace logs: a summary table, a timeline, a flame graph",
    "usage: tvbase trace summary LOG...\n"
    "       tvbase trace timeline LOG... -o OUT.json\n"
    "       tvbase trace flame [--widths auto|time|calls] LOG... -o OUT.svg\n\n"
    "Reads logs of the call trace as the library writes them (CR LF or LF lines,\n"
    "threads interleaved, lines cut at 8,191 characters), each in one pass and in\n"
    "memory that doesn't grow with its size. Lines that can't be read back are\n"
    "counted, never fatal. Times have the log's resolution: milliseconds.\n\n"
    "  summary   a table per log: per function the calls, total and self time,\n"
    "            deepest call depth, returns marked \"!\" (left by an exception)\n"
    "            and calls without a return line\n"
    "  timeline  the Trace Event Format that the about:tracing and Perfetto\n"
    "            viewers open: a track per process and thread, a slice per call\n"
    "            with its parameters, an instant event per text line\n"
    "  flame     a flame graph as an SVG picture, calls merged by call path,\n"
    "            widths from call time, or from numbers of calls (--widths calls;\n"
    "            by default when every call took the same time, as all 0 ms);\n"
    "            hovering a frame shows its numbers\n\n"
    "The process number comes from the log's name where it has the trace's\n"
    "shape, '<program>.<pid> dd-mm-yyyy hh.mm.ss.mmm.log'. '-o -' writes to\n"
    "standard output. A progress line goes to standard error when reading takes\n"
    "longer than a second.\n\n"
    "Exit status 1, with nothing written, if a log can't be opened; 1 also if a\n"
    "log fails while it is read (the others are still written) or the output\n"
    "can't be written.\n",
    run_trace};
