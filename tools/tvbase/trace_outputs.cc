#include "trace_outputs.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <optional>
#include <unordered_map>
#include <unordered_set>

#include <fmt/format.h>

#include <tvbase/platform/file.h>

#include "utf8_sequence.h"

namespace trace_tools {

namespace {

// "\uXXXX" of one UTF-16 unit.
void append_unit(std::string& out, std::uint32_t unit) {
  static constexpr char kHex[] = "0123456789abcdef";
  out += "\\u";
  for (int shift = 12; shift >= 0; shift -= 4) out += kHex[unit >> shift & 15];
}

// `text` cut to at most `bytes`, not inside a UTF-8 sequence.
std::string_view head_of(std::string_view text, std::size_t bytes) {
  if (text.size() <= bytes) return text;
  while (bytes > 0 && (static_cast<unsigned char>(text[bytes]) & 0xC0) == 0x80) --bytes;
  return text.substr(0, bytes);
}

std::string base_name(const std::string& path) {
  const std::size_t slash = path.find_last_of("/\\");
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

// Reads one log into `calls`, with the visitor; a failure becomes a message.
template <class Visitor>
bool run_log(const std::string& path, call_reader& calls, Visitor& visitor,
             const run_options& options, std::vector<std::string>& failures,
             line_reader::counts* reading = nullptr) {
  std::FILE* file = nullptr;
  std::uint32_t open_error = 0;
  switch (platform::open_regular_file(path.c_str(), file, open_error)) {
    case platform::read_outcome::done: break;
    case platform::read_outcome::not_regular:
      failures.push_back(fmt::format("{} is not a regular file", path));
      return false;
    default:
      failures.push_back(
          fmt::format("cannot open {}: {}", path, std::strerror(static_cast<int>(open_error))));
      return false;
  }
  std::error_code error;
  std::uint64_t size = std::filesystem::file_size(path, error);
  if (error) size = 0;
  std::function<void(std::uint64_t)> progress;
  if (options.progress) {
    progress = [&options, &path, size](std::uint64_t done) { options.progress(path, done, size); };
  }
  errno = 0;
  const bool read = read_log(file, calls, visitor, std::move(progress), reading);
  const int reason = errno;
  std::fclose(file);
  if (!read) {
    failures.push_back(
        fmt::format("cannot read {}: {}", path, std::strerror(reason != 0 ? reason : EIO)));
  }
  return read;
}

// --- summary ---------------------------------------------------------------------

struct function_stats {
  std::uint64_t calls = 0;
  std::int64_t total_ms = 0;
  std::int64_t self_ms = 0;
  int deepest = 0;
  std::uint64_t exceptions = 0;
  std::uint64_t unreturned = 0;
};

struct summary_visitor {
  std::vector<function_stats> stats;  // by function number

  function_stats& of(std::uint32_t function) {
    if (function >= stats.size()) stats.resize(function + 1);
    return stats[function];
  }
  void on_thread(std::uint32_t) {}
  std::int64_t on_enter(const call& c, std::int64_t) {
    function_stats& s = of(c.function);
    ++s.calls;
    s.deepest = std::max(s.deepest, c.depth);
    return -1;
  }
  void on_call(const call& c) {
    function_stats& s = of(c.function);
    if (!c.recursive) s.total_ms += c.duration();
    s.self_ms += c.self();
    if (c.exception) ++s.exceptions;
    if (!c.returned) ++s.unreturned;
  }
  void on_note(const note&) {}
};

std::string plural(std::uint64_t n, std::string_view one, std::string_view many) {
  return fmt::format("{} {}", n, n == 1 ? one : many);
}

void print_summary(const std::string& path, const call_reader& calls,
                   const line_reader::counts& reading, const summary_visitor& visitor,
                   output& out) {
  const call_reader::counts& n = calls.totals();
  std::string text = fmt::format("== {}\n", path);
  if (const std::optional<log_name> name = parse_log_name(path))
    text += fmt::format("process {} ({}): ", name->pid, name->program);
  text += plural(calls.thread_count(), "thread", "threads") + ", " +
          plural(n.lines + reading.overlong, "line", "lines");
  if (n.any_time) {
    const std::string first = format_time(n.first_ms), last = format_time(n.last_ms);
    text += fmt::format(", {} to {}", first,
                        first.compare(0, 10, last, 0, 10) == 0 ? last.substr(11) : last);
  }
  text +=
      "\ntimes in milliseconds, the log's resolution: a call shorter than 1 ms shows 0 or 1\n\n";

  std::vector<std::uint32_t> order;
  for (std::uint32_t f = 0; f < visitor.stats.size(); ++f) {
    if (visitor.stats[f].calls > 0) order.push_back(f);
  }
  std::sort(order.begin(), order.end(), [&](std::uint32_t a, std::uint32_t b) {
    const function_stats &x = visitor.stats[a], &y = visitor.stats[b];
    if (x.total_ms != y.total_ms) return x.total_ms > y.total_ms;
    if (x.calls != y.calls) return x.calls > y.calls;
    return calls.name(a) < calls.name(b);
  });
  if (order.empty()) {
    text += "no calls\n";
  } else {
    // Column widths: the header's, or the widest number's.
    std::size_t w[6] = {5, 8, 7, 7, 3, 9};
    for (const std::uint32_t f : order) {
      const function_stats& s = visitor.stats[f];
      const std::uint64_t values[6] = {s.calls,
                                       static_cast<std::uint64_t>(s.total_ms),
                                       static_cast<std::uint64_t>(s.self_ms),
                                       static_cast<std::uint64_t>(s.deepest),
                                       s.exceptions,
                                       s.unreturned};
      for (int i = 0; i < 6; ++i) w[i] = std::max(w[i], fmt::formatted_size("{}", values[i]));
    }
    text += fmt::format("{:>{}}  {:>{}}  {:>{}}  {:>{}}  {:>{}}  {:>{}}  function\n", "calls", w[0],
                        "total ms", w[1], "self ms", w[2], "deepest", w[3], "\"!\"", w[4],
                        "no return", w[5]);
    for (const std::uint32_t f : order) {
      const function_stats& s = visitor.stats[f];
      std::string_view name = calls.name(f);
      text += fmt::format("{:>{}}  {:>{}}  {:>{}}  {:>{}}  {:>{}}  {:>{}}  ", s.calls, w[0],
                          s.total_ms, w[1], s.self_ms, w[2], s.deepest, w[3], s.exceptions, w[4],
                          s.unreturned, w[5]);
      text += name.empty() ? "(no name)" : name;
      text += '\n';
      if (text.size() > (1 << 16)) {
        out.put(text);
        text.clear();
      }
    }
    text +=
        "\n\"!\": returns left by an exception; no return: calls without a return line, "
        "ended at their thread's last line\n";
  }
  text += fmt::format("lines that could not be read back: {}\n", n.unreadable + reading.overlong);
  if (n.cut > 0)
    text += fmt::format("lines cut at 8,191 characters, read as far as they go: {}\n", n.cut);
  if (reading.separated > 0)
    text += fmt::format("lines of two threads run together, read apart: {}\n", reading.separated);
  if (n.unmatched_returns > 0)
    text += fmt::format("return lines without a call to end: {}\n", n.unmatched_returns);
  if (n.dropped_lines > 0)
    text +=
        fmt::format("lines of threads past the reader's limit, left out: {}\n", n.dropped_lines);
  if (n.dropped_calls > 0)
    text += fmt::format("calls past the reader's limits on open calls, left out: {}\n",
                        n.dropped_calls);
  if (n.pooled_calls > 0) {
    text += fmt::format("calls of functions past the reader's limit on names, counted as {}: {}\n",
                        call_reader::kPooledName, n.pooled_calls);
  }
  out.put(text);
}

// --- timeline ----------------------------------------------------------------------

// The time of the first line that reads back, looking no further than a
// megabyte into the log.
std::optional<std::int64_t> first_time(const std::string& path) {
  std::FILE* file = nullptr;
  std::uint32_t error = 0;
  if (platform::open_regular_file(path.c_str(), file, error) != platform::read_outcome::done)
    return std::nullopt;
  std::optional<std::int64_t> found;
  line_reader lines(file, nullptr, 1 << 16);
  std::string_view text;
  while (!found && lines.bytes_read() <= (1u << 20) && lines.next(text)) {
    const log_line line = parse_line(text);
    if (line.kind != line_kind::unreadable) found = line.time_ms;
  }
  std::fclose(file);
  return found;
}

struct timeline_visitor {
  output& out;
  std::int64_t base_ms;
  unsigned long pid;
  std::string event;
  bool first_event = true;
  std::size_t threads = 0;

  void begin() {
    if (!first_event) event += ',';
    first_event = false;
    event += '\n';
  }
  void flush() {
    out.put(event);
    event.clear();
  }
  void metadata(std::uint32_t tid, std::string_view what, std::string_view key,
                std::string_view value_json) {
    begin();
    fmt::format_to(std::back_inserter(event),
                   R"({{"name":"{}","ph":"M","pid":{},"tid":{},"args":{{"{}":{}}}}})", what, pid,
                   tid, key, value_json);
  }
  void on_thread(std::uint32_t thread) {
    metadata(thread, "thread_name", "name", fmt::format("\"thread {:08x}\"", thread));
    metadata(thread, "thread_sort_index", "sort_index", std::to_string(threads++));
    flush();
  }
  std::int64_t on_enter(const call&, std::int64_t) { return -1; }
  void on_call(const call& c) {
    begin();
    event += R"({"name":)";
    append_json_string(event, c.name);
    fmt::format_to(std::back_inserter(event),
                   R"(,"cat":"call","ph":"X","ts":{},"dur":{},"pid":{},"tid":{},)",
                   (c.start_ms - base_ms) * 1000, c.duration() * 1000, pid, c.thread);
    event += R"("args":{"parameters":)";
    append_json_string(event, c.parameters);
    fmt::format_to(std::back_inserter(event), R"(,"depth":{})", c.depth);
    if (c.exception) event += R"(,"exception":true)";
    if (!c.returned) event += R"(,"no_return":true)";
    if (c.parameters_cut) event += R"(,"cut":true)";
    if (c.has_context)
      fmt::format_to(std::back_inserter(event), R"(,"context":"{:08x}")", c.context);
    if (c.context_changed) event += R"(,"context_changed":true)";
    event += "}}";
    flush();
  }
  void on_note(const note& n) {
    begin();
    event += R"({"name":)";
    append_json_string(event, head_of(n.text, 64));
    fmt::format_to(std::back_inserter(event),
                   R"(,"cat":"text","ph":"i","s":"t","ts":{},"pid":{},"tid":{},)",
                   (n.time_ms - base_ms) * 1000, pid, n.thread);
    event += R"("args":{"function":)";
    append_json_string(event, n.name);
    event += R"(,"text":)";
    append_json_string(event, n.text);
    if (n.cut) event += R"(,"cut":true)";
    if (n.marked) event += R"(,"exception":true)";
    event += "}}";
    flush();
  }
};

// --- flame graph -------------------------------------------------------------------

constexpr std::int64_t kDropped = -2;

struct flame_node {
  std::uint32_t function = 0;
  std::int32_t label = -1;  // a log's node: its number in flame_visitor::labels
  std::int32_t parent = -1;
  std::uint64_t calls = 0;
  std::int64_t time_ms = 0;
};

struct flame_visitor {
  std::size_t limit;
  std::vector<flame_node> nodes;
  std::unordered_map<std::uint64_t, std::int32_t> children;
  std::vector<std::string> labels;
  std::int32_t log_root = 0;
  std::uint64_t calls = 0, dropped_calls = 0, instant_calls = 0;
  std::optional<std::int64_t> shortest, longest;

  explicit flame_visitor(std::size_t limit) : limit(std::max<std::size_t>(limit, 2)) {
    nodes.emplace_back();  // the root
  }
  void start_log(std::string label) {
    labels.push_back(std::move(label));
    flame_node node;
    node.label = static_cast<std::int32_t>(labels.size() - 1);
    node.parent = 0;
    log_root = static_cast<std::int32_t>(nodes.size());
    nodes.push_back(node);
  }
  void on_thread(std::uint32_t) {}
  std::int64_t on_enter(const call& c, std::int64_t parent_tag) {
    if (parent_tag == kDropped) return kDropped;
    const std::int32_t parent = parent_tag >= 0 ? static_cast<std::int32_t>(parent_tag) : log_root;
    const std::uint64_t key = static_cast<std::uint64_t>(parent) << 32 | c.function;
    const auto found = children.find(key);
    if (found != children.end()) return found->second;
    if (nodes.size() >= limit) return kDropped;
    flame_node node;
    node.function = c.function;
    node.parent = parent;
    const auto index = static_cast<std::int32_t>(nodes.size());
    nodes.push_back(node);
    children.emplace(key, index);
    return index;
  }
  void on_call(const call& c) {
    ++calls;
    const std::int64_t d = c.duration();
    if (d == 0) ++instant_calls;
    shortest = std::min(shortest.value_or(d), d);
    longest = std::max(longest.value_or(d), d);
    if (c.tag < 0) {
      ++dropped_calls;
      return;
    }
    flame_node& node = nodes[static_cast<std::size_t>(c.tag)];
    ++node.calls;
    node.time_ms += d;
  }
  void on_note(const note&) {}
};

// A colour from the name: warm tones, the same for a name wherever it is.
std::string colour_of(std::string_view name) {
  std::uint32_t h = 2166136261u;
  for (const char c : name) h = (h ^ static_cast<unsigned char>(c)) * 16777619u;
  return fmt::format("rgb({},{},{})", 205 + h % 50, 90 + (h >> 8) % 140, (h >> 16) % 60);
}

struct drawn {
  std::int32_t node;
  double x, width;
  int level;
};

void write_svg(const flame_visitor& flame, const call_reader& calls,
               const std::vector<std::string>& logs, std::uint64_t unreadable,
               const run_options& options, output& out) {
  const std::vector<flame_node>& nodes = flame.nodes;
  const bool by_time =
      options.widths == flame_widths::time || (options.widths == flame_widths::automatic &&
                                               flame.shortest && *flame.longest != *flame.shortest);
  // Width values: a node's own measure, at least that of its children.
  std::vector<double> value(nodes.size(), 0), inner(nodes.size(), 0);
  for (std::size_t i = nodes.size(); i-- > 0;) {
    const flame_node& n = nodes[i];
    if (n.label < 0 && i > 0) {
      value[i] = by_time ? std::max(static_cast<double>(n.time_ms), inner[i])
                         : static_cast<double>(n.calls) + inner[i];
    } else {
      value[i] = inner[i];
    }
    if (i > 0) inner[static_cast<std::size_t>(n.parent)] += value[i];
  }
  std::vector<std::int32_t> first_child(nodes.size(), -1), next_sibling(nodes.size(), -1);
  for (std::size_t i = nodes.size(); i-- > 1;) {
    const auto parent = static_cast<std::size_t>(nodes[i].parent);
    next_sibling[i] = first_child[parent];
    first_child[parent] = static_cast<std::int32_t>(i);
  }
  const auto name_of = [&](std::int32_t i) -> std::string_view {
    const flame_node& n = nodes[static_cast<std::size_t>(i)];
    if (i == 0) return "all";
    if (n.label >= 0) return flame.labels[static_cast<std::size_t>(n.label)];
    return calls.name(n.function);
  };

  constexpr double kMargin = 10, kRow = 18, kChar = 7.2, kNarrowest = 1.0 / 3;
  const double width = std::max(options.flame_width, 300);
  std::vector<drawn> frames;
  int levels = 0;
  if (value[0] > 0) {
    const double scale = (width - 2 * kMargin) / value[0];
    std::vector<drawn> stack{{0, kMargin, width - 2 * kMargin, 0}};
    std::vector<std::int32_t> kids;
    while (!stack.empty()) {
      const drawn d = stack.back();
      stack.pop_back();
      frames.push_back(d);
      levels = std::max(levels, d.level + 1);
      kids.clear();
      for (std::int32_t k = first_child[static_cast<std::size_t>(d.node)]; k >= 0;
           k = next_sibling[static_cast<std::size_t>(k)]) {
        kids.push_back(k);
      }
      std::sort(kids.begin(), kids.end(),
                [&](std::int32_t a, std::int32_t b) { return name_of(a) < name_of(b); });
      double x = d.x;
      for (const std::int32_t k : kids) {
        const double w = value[static_cast<std::size_t>(k)] * scale;
        if (w >= kNarrowest) stack.push_back({k, x, w, d.level + 1});
        x += w;
      }
    }
  }

  std::vector<std::string> notes;
  std::string what = logs.size() == 1 ? base_name(logs[0]) : fmt::format("{} logs", logs.size());
  std::string measure;
  if (flame.calls == 0) {
    measure = "no calls in the log";
  } else if (by_time && value[0] == 0) {
    measure = fmt::format("widths: time in the calls, but all {} took 0 ms", flame.calls);
  } else if (by_time) {
    measure = fmt::format(
        "widths: time in the calls, in milliseconds as the log has it ({}, {} ms in all)",
        plural(flame.calls, "call", "calls"), static_cast<std::int64_t>(value[0]));
  } else {
    measure = fmt::format("widths: numbers of calls, each with those of its callees ({})",
                          plural(flame.calls, "call", "calls"));
    if (*flame.shortest == *flame.longest) {
      measure += fmt::format(", as every call took {} ms at the log's resolution of 1 ms",
                             *flame.shortest);
    }
  }
  if (by_time && value[0] > 0 && flame.instant_calls > 0) {
    notes.push_back(fmt::format(
        "{} of the {} took 0 ms at the log's resolution and have no width: --widths calls "
        "shows them",
        flame.instant_calls, plural(flame.calls, "call", "calls")));
  }
  if (flame.dropped_calls > 0) {
    notes.push_back(fmt::format("left out: {} on call paths past the limit of {}",
                                plural(flame.dropped_calls, "call", "calls"), flame.limit));
  }
  if (unreadable > 0) {
    notes.push_back(fmt::format("lines that could not be read back: {}", unreadable));
  }

  const double top = 54 + 16 * static_cast<double>(notes.size());
  const double height = top + kRow * levels + kMargin;
  std::string svg = fmt::format(
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
      "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"{0}\" height=\"{1}\" "
      "viewBox=\"0 0 {0} {1}\" font-family=\"monospace\" font-size=\"12\">\n"
      "<rect x=\"0\" y=\"0\" width=\"{0}\" height=\"{1}\" fill=\"#fbfbf8\"/>\n"
      "<text x=\"{2}\" y=\"22\" text-anchor=\"middle\" font-size=\"16\">Flame graph of ",
      width, height, width / 2);
  append_xml_text(svg, what);
  svg += fmt::format("</text>\n<text x=\"{}\" y=\"42\">", kMargin);
  append_xml_text(svg, measure);
  svg += "</text>\n";
  for (std::size_t i = 0; i < notes.size(); ++i) {
    svg += fmt::format("<text x=\"{}\" y=\"{}\">", kMargin, 58 + 16 * static_cast<double>(i));
    append_xml_text(svg, notes[i]);
    svg += "</text>\n";
  }
  const double all_time = std::max<double>(value[0], 1);
  for (const drawn& d : frames) {
    const flame_node& n = nodes[static_cast<std::size_t>(d.node)];
    const std::string_view name = name_of(d.node);
    const double y = top + kRow * (levels - 1 - d.level);
    svg += "<g><title>";
    append_xml_text(svg, name.empty() ? "(no name)" : name);
    if (d.node == 0 || n.label >= 0) {
      svg += by_time ? fmt::format(": {} ms", static_cast<std::int64_t>(value[d.node]))
                     : fmt::format(": {}", plural(static_cast<std::uint64_t>(value[d.node]), "call",
                                                  "calls"));
    } else {
      std::int64_t children_ms = 0;
      for (std::int32_t k = first_child[static_cast<std::size_t>(d.node)]; k >= 0;
           k = next_sibling[static_cast<std::size_t>(k)]) {
        children_ms += nodes[static_cast<std::size_t>(k)].time_ms;
      }
      svg += fmt::format(": {}, {} ms", plural(n.calls, "call", "calls"), n.time_ms);
      svg += by_time ? fmt::format(" ({:.1f}%), self {} ms", 100.0 * n.time_ms / all_time,
                                   std::max<std::int64_t>(0, n.time_ms - children_ms))
                     : fmt::format(" ({:.1f}% of the calls)", 100.0 * value[d.node] / value[0]);
    }
    svg += fmt::format(
        "</title><rect x=\"{:.2f}\" y=\"{:.1f}\" width=\"{:.2f}\" height=\"{}\" rx=\"2\" "
        "fill=\"{}\"/>",
        d.x, y, std::max(d.width - 0.5, 0.1), kRow - 1,
        d.node == 0    ? std::string("rgb(200,200,200)")
        : n.label >= 0 ? std::string("rgb(160,190,225)")
                       : colour_of(name));
    const auto room = static_cast<std::size_t>(std::max(0.0, (d.width - 6) / kChar));
    if (room >= 3) {
      svg += fmt::format("<text x=\"{:.2f}\" y=\"{:.1f}\">", d.x + 3, y + 13);
      append_xml_text(svg, name.empty() ? "(no name)" : name, room);
      svg += "</text>";
    }
    svg += "</g>\n";
    if (svg.size() > (1 << 16)) {
      out.put(svg);
      svg.clear();
    }
  }
  svg += "</svg>\n";
  out.put(svg);
}

}  // namespace

bool output::flush() {
  if (text_ != nullptr) {
    text_->append(buffer_);
  } else if (!buffer_.empty() && !failed_) {
    failed_ = std::fwrite(buffer_.data(), 1, buffer_.size(), file_) != buffer_.size();
  }
  buffer_.clear();
  if (file_ != nullptr && !failed_) failed_ = std::fflush(file_) != 0;
  return !failed_;
}

void append_json_string(std::string& out, std::string_view bytes) {
  out += '"';
  const auto* p = reinterpret_cast<const unsigned char*>(bytes.data());
  const std::size_t n = bytes.size();
  std::size_t i = 0;
  while (i < n) {
    std::size_t run = i;
    while (run < n && p[run] >= 0x20 && p[run] < 0x7F && p[run] != '"' && p[run] != '\\') ++run;
    out.append(bytes.data() + i, run - i);
    i = run;
    if (i == n) break;
    const unsigned char b = p[i];
    if (b == '"' || b == '\\') {
      out += '\\';
      out += static_cast<char>(b);
      ++i;
      continue;
    }
    if (b == '\n') {
      out += "\\n";
      ++i;
      continue;
    }
    if (b == '\t') {
      out += "\\t";
      ++i;
      continue;
    }
    std::uint32_t cp = 0;
    const std::size_t length = cli::utf8_sequence(p + i, n - i, cp);
    if (length == 0) {
      append_unit(out, 0xFFFD);
      ++i;
      continue;
    }
    if (cp >= 0x10000) {
      cp -= 0x10000;
      append_unit(out, 0xD800 + (cp >> 10));
      append_unit(out, 0xDC00 + (cp & 0x3FF));
    } else {
      append_unit(out, cp);
    }
    i += length;
  }
  out += '"';
}

void append_xml_text(std::string& out, std::string_view bytes, std::size_t characters) {
  const auto* p = reinterpret_cast<const unsigned char*>(bytes.data());
  const std::size_t n = bytes.size();
  // Count first, so that a text that doesn't fit can end in "..".
  std::size_t total = 0;
  for (std::size_t i = 0; i < n; ++total) {
    std::uint32_t cp = 0;
    i += std::max<std::size_t>(cli::utf8_sequence(p + i, n - i, cp), 1);
  }
  std::size_t keep = total;
  if (total > characters) keep = characters >= 2 ? characters - 2 : 0;
  std::size_t i = 0;
  for (std::size_t written = 0; written < keep; ++written) {
    std::uint32_t cp = 0;
    const std::size_t length = cli::utf8_sequence(p + i, n - i, cp);
    if (length == 0 || (cp < 0x20 && cp != '\t') || cp == 0x7F || cp == 0xFFFE || cp == 0xFFFF) {
      out += "\xEF\xBF\xBD";
    } else {
      switch (cp) {
        case '&': out += "&amp;"; break;
        case '<': out += "&lt;"; break;
        case '>': out += "&gt;"; break;
        case '"': out += "&quot;"; break;
        case '\'': out += "&apos;"; break;
        default: out.append(bytes.data() + i, length);
      }
    }
    i += std::max<std::size_t>(length, 1);
  }
  if (keep < total) out += "..";
}

std::vector<std::string> write_summary(const std::vector<std::string>& logs, output& out,
                                       const run_options& options) {
  std::vector<std::string> failures;
  for (std::size_t i = 0; i < logs.size(); ++i) {
    call_reader calls(options.limits);
    summary_visitor visitor;
    line_reader::counts reading;
    if (!run_log(logs[i], calls, visitor, options, failures, &reading)) continue;
    if (i > 0) out.put("\n");
    print_summary(logs[i], calls, reading, visitor, out);
  }
  out.flush();
  return failures;
}

std::vector<std::string> write_timeline(const std::vector<std::string>& logs, output& out,
                                        const run_options& options) {
  std::vector<std::string> failures;
  std::optional<std::int64_t> base;
  for (const std::string& log : logs) {
    if (const auto t = first_time(log)) base = std::min(base.value_or(*t), *t);
  }
  // A process per log: the number in its name, unless another log has it.
  std::vector<unsigned long> pids(logs.size(), 0);
  std::unordered_set<unsigned long> taken;
  for (std::size_t i = 0; i < logs.size(); ++i) {
    if (const auto name = parse_log_name(logs[i]); name && taken.insert(name->pid).second)
      pids[i] = name->pid;
  }
  unsigned long next = 1;
  for (std::size_t i = 0; i < logs.size(); ++i) {
    if (pids[i] != 0) continue;
    while (taken.count(next) > 0) ++next;
    pids[i] = next;
    taken.insert(next);
  }

  out.put(R"({"traceEvents":[)");
  timeline_visitor visitor{out, base.value_or(0), 0, {}, true, 0};
  for (std::size_t i = 0; i < logs.size(); ++i) {
    visitor.pid = pids[i];
    visitor.threads = 0;
    const auto name = parse_log_name(logs[i]);
    std::string label;
    append_json_string(label,
                       name ? fmt::format("{} {}", name->program, name->pid) : base_name(logs[i]));
    visitor.metadata(0, "process_name", "name", label);
    visitor.metadata(0, "process_sort_index", "sort_index", std::to_string(i));
    visitor.flush();
    call_reader calls(options.limits);
    run_log(logs[i], calls, visitor, options, failures);
  }
  std::string tail = "\n],\"displayTimeUnit\":\"ms\",\"otherData\":{\"start\":";
  append_json_string(tail, base ? format_time(*base) : "");
  tail += ",\"resolution\":\"1 ms\"}}\n";
  out.put(tail);
  out.flush();
  return failures;
}

std::vector<std::string> write_flame(const std::vector<std::string>& logs, output& out,
                                     const run_options& options) {
  std::vector<std::string> failures;
  flame_visitor flame(options.flame_paths);
  call_reader calls(options.limits);
  std::uint64_t unreadable = 0;
  for (const std::string& log : logs) {
    if (logs.size() > 1) {
      const auto name = parse_log_name(log);
      flame.start_log(name ? fmt::format("{} {}", name->program, name->pid) : base_name(log));
    }
    line_reader::counts reading;
    run_log(log, calls, flame, options, failures, &reading);
    unreadable += calls.totals().unreadable + reading.overlong;
  }
  write_svg(flame, calls, logs, unreadable, options, out);
  out.flush();
  return failures;
}

}  // namespace trace_tools
