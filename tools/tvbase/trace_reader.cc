#include "trace_reader.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace trace_tools {

namespace {

// "dd/mm/yyyy hh:mm:ss.mmm tttttttt" and the mark.
constexpr std::size_t kHeadSize = 33;
// "(%08x) "
constexpr std::size_t kPrefixSize = 11;

constexpr std::string_view kReturn = " return";
constexpr std::string_view kContextChanged = " return !!! Activation context has changed !!!";

unsigned digit(char c) { return static_cast<unsigned>(static_cast<unsigned char>(c) - '0'); }

// The number in `count` decimal digits at `p`, or -1.
int decimal(const char* p, int count) {
  int value = 0;
  for (int i = 0; i < count; ++i) {
    const unsigned d = digit(p[i]);
    if (d > 9) return -1;
    value = value * 10 + static_cast<int>(d);
  }
  return value;
}

bool hex8(const char* p, std::uint32_t& out) {
  std::uint32_t value = 0;
  for (int i = 0; i < 8; ++i) {
    const char c = p[i];
    std::uint32_t d;
    if (c >= '0' && c <= '9') {
      d = static_cast<std::uint32_t>(c - '0');
    } else if (c >= 'a' && c <= 'f') {
      d = static_cast<std::uint32_t>(c - 'a' + 10);
    } else if (c >= 'A' && c <= 'F') {
      d = static_cast<std::uint32_t>(c - 'A' + 10);
    } else {
      return false;
    }
    value = value << 4 | d;
  }
  out = value;
  return true;
}

// Days from 1 January 1970 to the given day of the proleptic Gregorian
// calendar.
std::int64_t days_from_civil(int year, int month, int day) {
  year -= month <= 2 ? 1 : 0;
  const int era = (year >= 0 ? year : year - 399) / 400;
  const int year_of_era = year - era * 400;
  const int day_of_year = (153 * (month > 2 ? month - 3 : month + 9) + 2) / 5 + day - 1;
  const int day_of_era = year_of_era * 365 + year_of_era / 4 - year_of_era / 100 + day_of_year;
  return static_cast<std::int64_t>(era) * 146097 + day_of_era - 719468;
}

// The head at the start of `s`: time, thread and mark. The lines of a log
// mostly share their second with the line before, so the milliseconds of
// the last "dd/mm/yyyy hh:mm:ss" seen are kept and only a new one is worked
// out.
bool read_head(std::string_view s, log_line& out) {
  constexpr std::size_t kSecond = 19;  // "dd/mm/yyyy hh:mm:ss"
  struct second_cache {
    char text[kSecond] = {};
    std::int64_t ms = 0;
    bool valid = false;
  };
  thread_local second_cache last;
  if (s.size() < kHeadSize) return false;
  const char* p = s.data();
  if (p[19] != '.' || p[23] != ' ') return false;
  if (!last.valid || std::memcmp(p, last.text, kSecond) != 0) {
    if (p[2] != '/' || p[5] != '/' || p[10] != ' ' || p[13] != ':' || p[16] != ':') return false;
    const int day = decimal(p, 2), month = decimal(p + 3, 2), year = decimal(p + 6, 4);
    const int hour = decimal(p + 11, 2), minute = decimal(p + 14, 2), second = decimal(p + 17, 2);
    if (day < 1 || day > 31 || month < 1 || month > 12 || year < 0 || hour < 0 || hour > 23 ||
        minute < 0 || minute > 59 || second < 0 || second > 60) {
      return false;
    }
    std::memcpy(last.text, p, kSecond);
    last.valid = true;
    last.ms =
        ((days_from_civil(year, month, day) * 24 + hour) * 60 + minute) * 60000 + second * 1000;
  }
  const int milli = decimal(p + 20, 3);
  if (milli < 0) return false;
  if (!hex8(p + 24, out.thread)) return false;
  if (p[32] != ' ' && p[32] != '!') return false;
  out.marked = p[32] == '!';
  out.time_ms = last.ms + milli;
  return true;
}

bool read_prefix(std::string_view s, std::uint32_t& context) {
  return s.size() >= kPrefixSize && s[0] == '(' && s[9] == ')' && s[10] == ' ' &&
         hex8(s.data() + 1, context);
}

}  // namespace

log_line parse_line(std::string_view s) noexcept {
  log_line out;
  out.length = s.size();
  std::size_t at = 0;
  if (!s.empty() && s[0] == '(') {
    if (!read_prefix(s, out.context)) return out;
    out.has_context = true;
    at = kPrefixSize;
  }
  if (!read_head(s.substr(at), out)) return out;
  at += kHeadSize;
  std::size_t blanks = 0;
  while (at + blanks < s.size() && s[at + blanks] == ' ') ++blanks;
  out.depth = static_cast<int>(std::min<std::size_t>(blanks / 4, 1 << 30));
  at += blanks / 4 * 4;
  const std::string_view rest = s.substr(at);

  for (std::size_t i = 0; i + 1 < rest.size(); ++i) {
    const char c = rest[i];
    if ((c != '(' && c != ':') || rest[i + 1] != ' ') continue;
    out.name = rest.substr(0, i);
    out.text = rest.substr(i + 2);
    if (c == ':') {
      out.kind = line_kind::text;
    } else {
      out.kind = line_kind::enter;
      if (out.text.ends_with(" )")) {
        out.closed = true;
        out.text.remove_suffix(2);
      }
    }
    return out;
  }
  if (rest.ends_with(kContextChanged)) {
    out.kind = line_kind::exit;
    out.context_changed = true;
    out.name = rest.substr(0, rest.size() - kContextChanged.size());
  } else if (rest.ends_with(kReturn)) {
    out.kind = line_kind::exit;
    out.name = rest.substr(0, rest.size() - kReturn.size());
  } else {
    out.depth = 0;
  }
  return out;
}

std::size_t embedded_line(std::string_view line) noexcept {
  std::uint32_t context = 0;
  const bool prefixed = read_prefix(line, context);
  log_line first;
  if (!read_head(line.substr(prefixed ? kPrefixSize : 0), first)) return std::string_view::npos;
  const std::size_t body = (prefixed ? kPrefixSize : 0) + kHeadSize;
  std::size_t from = body;
  while (from + 2 < line.size()) {
    const void* found = std::memchr(line.data() + from, '/', line.size() - from);
    if (found == nullptr) break;
    const std::size_t slash =
        static_cast<std::size_t>(static_cast<const char*>(found) - line.data());
    from = slash + 1;
    if (slash < body + 2) continue;
    std::size_t start = slash - 2;
    log_line head;
    if (!read_head(line.substr(start), head)) continue;
    if (prefixed) {
      if (start < body + kPrefixSize || !read_prefix(line.substr(start - kPrefixSize), context))
        continue;
      start -= kPrefixSize;
    }
    if (parse_line(line.substr(start)).kind != line_kind::unreadable) return start;
  }
  return std::string_view::npos;
}

std::string format_time(std::int64_t time_ms) {
  std::int64_t days = time_ms / 86400000;
  std::int64_t in_day = time_ms % 86400000;
  if (in_day < 0) {
    in_day += 86400000;
    --days;
  }
  // The reverse of days_from_civil.
  const std::int64_t z = days + 719468;
  const std::int64_t era = (z >= 0 ? z : z - 146096) / 146097;
  const std::int64_t day_of_era = z - era * 146097;
  const std::int64_t year_of_era =
      (day_of_era - day_of_era / 1460 + day_of_era / 36524 - day_of_era / 146096) / 365;
  const std::int64_t day_of_year =
      day_of_era - (365 * year_of_era + year_of_era / 4 - year_of_era / 100);
  const std::int64_t mp = (5 * day_of_year + 2) / 153;
  const std::int64_t day = day_of_year - (153 * mp + 2) / 5 + 1;
  const std::int64_t month = mp < 10 ? mp + 3 : mp - 9;
  const std::int64_t year = year_of_era + era * 400 + (month <= 2 ? 1 : 0);
  char text[48];
  std::snprintf(text, sizeof text, "%02d/%02d/%04d %02d:%02d:%02d.%03d", static_cast<int>(day),
                static_cast<int>(month), static_cast<int>(year), static_cast<int>(in_day / 3600000),
                static_cast<int>(in_day / 60000 % 60), static_cast<int>(in_day / 1000 % 60),
                static_cast<int>(in_day % 1000));
  return text;
}

// --- line_reader -----------------------------------------------------------------

line_reader::line_reader(std::FILE* file, std::function<void(std::uint64_t)> progress,
                         std::size_t block)
    : file_(file), progress_(std::move(progress)), block_(std::max<std::size_t>(block, 1)) {
  buffer_.resize(block_ + kReadLimit + 1);
}

bool line_reader::refill() {
  if (eof_) return false;
  if (begin_ > 0) {
    std::memmove(buffer_.data(), buffer_.data() + begin_, end_ - begin_);
    end_ -= begin_;
    begin_ = 0;
  }
  const std::size_t room = std::min(buffer_.size() - end_, block_);
  const std::size_t got = std::fread(buffer_.data() + end_, 1, room, file_);
  if (got == 0) {
    eof_ = true;
    failed_ = std::ferror(file_) != 0;
    return false;
  }
  end_ += got;
  bytes_read_ += got;
  if (progress_) progress_(bytes_read_);
  return true;
}

bool line_reader::next_raw(std::string_view& line) {
  std::size_t scanned = 0;  // of the bytes from begin_, known to hold no line end
  for (;;) {
    const char* from = buffer_.data() + begin_;
    const std::size_t size = end_ - begin_;
    const char* end = nullptr;
    for (std::size_t at = scanned; at < size;) {
      const void* lf = std::memchr(from + at, '\n', size - at);
      if (lf == nullptr) break;
      const char* p = static_cast<const char*>(lf);
      const bool after_cr = p > from && p[-1] == '\r';
      if (!mode_known_) {
        mode_known_ = true;
        crlf_ = after_cr;
      }
      if (after_cr || !crlf_) {
        end = p;
        break;
      }
      at = static_cast<std::size_t>(p - from) + 1;
    }
    if (end != nullptr) {
      std::size_t length = static_cast<std::size_t>(end - from);
      begin_ += length + 1;
      if (length > 0 && from[length - 1] == '\r') --length;
      if (skipping_ || length > kReadLimit) {
        if (!skipping_) ++counts_.overlong;
        skipping_ = false;
        scanned = 0;
        continue;
      }
      line = std::string_view(from, length);
      return true;
    }
    // No line end in what is held. Keep the last byte: it may be the CR of
    // a CR LF that the next block completes.
    scanned = size > 0 ? size - 1 : 0;
    if (size > kReadLimit + 1) {
      if (!skipping_) ++counts_.overlong;
      skipping_ = true;
      begin_ = end_ - 1;
      scanned = 0;
    }
    if (!refill()) {
      if (begin_ == end_) return false;
      std::size_t length = end_ - begin_;
      const char* last = buffer_.data() + begin_;
      begin_ = end_;
      if (skipping_) return false;
      if (last[length - 1] == '\r') --length;
      ++counts_.unterminated;
      line = std::string_view(last, length);
      return true;
    }
  }
}

std::string_view line_reader::take_apart(std::string_view line) {
  const std::size_t second = embedded_line(line);
  if (second == std::string_view::npos) return line;
  ++counts_.separated;
  ++stray_ends_due_;
  pending_ = line.substr(second);
  return line.substr(0, second);
}

bool line_reader::next(std::string_view& line) {
  if (!pending_.empty()) {
    const std::string_view rest = pending_;
    pending_ = {};
    line = take_apart(rest);
    ++counts_.lines;
    return true;
  }
  for (;;) {
    std::string_view raw;
    if (!next_raw(raw)) return false;
    if (raw.empty() && stray_ends_due_ > 0) {
      --stray_ends_due_;
      continue;
    }
    line = take_apart(raw);
    ++counts_.lines;
    return true;
  }
}

// --- call_reader -----------------------------------------------------------------

call_reader::call_reader() : call_reader(limits{}) {}

call_reader::call_reader(limits limits) : limits_(limits) {}

void call_reader::start_log() {
  counts_ = counts{};
  threads_.clear();
  thread_index_.clear();
  last_thread_ = static_cast<std::size_t>(-1);
  parameter_bytes_ = 0;
  open_calls_ = 0;
}

call_reader::thread_state* call_reader::thread_for(std::uint32_t id, bool& created) {
  created = false;
  if (last_thread_ < threads_.size() && threads_[last_thread_].id == id)
    return &threads_[last_thread_];
  const auto found = thread_index_.find(id);
  if (found != thread_index_.end()) {
    last_thread_ = found->second;
    return &threads_[last_thread_];
  }
  if (threads_.size() >= limits_.threads) return nullptr;
  created = true;
  last_thread_ = threads_.size();
  thread_index_.emplace(id, last_thread_);
  thread_state& t = threads_.emplace_back();
  t.id = id;
  t.last_ms = std::numeric_limits<std::int64_t>::min();
  return &threads_.back();
}

std::uint32_t call_reader::intern(std::string_view name) {
  name = name.substr(0, limits_.name_bytes);
  const auto found = ids_.find(name);
  if (found != ids_.end()) return found->second;
  if (ids_.size() >= limits_.functions) {
    ++counts_.pooled_calls;
    if (!pooled_) {
      pooled_ = static_cast<std::uint32_t>(names_.size());
      names_.emplace_back(kPooledName);
    }
    return *pooled_;
  }
  const auto id = static_cast<std::uint32_t>(names_.size());
  names_.emplace_back(name);
  ids_.emplace(names_.back(), id);
  return id;
}

std::optional<std::uint32_t> call_reader::lookup(std::string_view name) const {
  const auto found = ids_.find(name.substr(0, limits_.name_bytes));
  if (found != ids_.end()) return found->second;
  return pooled_;
}

bool call_reader::ends(const frame& f, std::string_view name) const {
  // Mostly the very name of the call on top, which saves the hashing.
  name = name.substr(0, limits_.name_bytes);
  if (names_[f.function] == name) return true;
  const std::optional<std::uint32_t> function = lookup(name);
  return function && *function == f.function;
}

void call_reader::note_time(thread_state& t, std::int64_t time_ms) {
  if (!counts_.any_time) {
    counts_.any_time = true;
    counts_.first_ms = counts_.last_ms = time_ms;
  }
  counts_.first_ms = std::min(counts_.first_ms, time_ms);
  counts_.last_ms = std::max(counts_.last_ms, time_ms);
  t.last_ms = std::max(t.last_ms, time_ms);
}

call_reader::frame& call_reader::push(thread_state& t, const log_line& line) {
  frame f{};
  f.function = intern(line.name);
  f.indent = line.depth;
  f.start_ms = line.time_ms;
  f.tag = -1;
  f.has_context = line.has_context;
  f.context = line.context;
  f.parameters_cut = !line.closed;
  for (const frame& below : t.stack) {
    if (below.function == f.function) {
      f.recursive = true;
      break;
    }
  }
  const std::size_t room = limits_.parameter_bytes - parameter_bytes_;
  f.parameters_at = t.parameters.size();
  f.parameters_size = std::min(line.text.size(), room);
  if (f.parameters_size < line.text.size()) {
    f.parameters_cut = true;
    ++counts_.cut_parameters;
  }
  t.parameters.append(line.text.substr(0, f.parameters_size));
  parameter_bytes_ += f.parameters_size;
  ++open_calls_;
  t.stack.push_back(f);
  return t.stack.back();
}

std::optional<log_name> parse_log_name(std::string_view path) {
  const std::size_t slash = path.find_last_of("/\\");
  const std::string_view base = slash == std::string_view::npos ? path : path.substr(slash + 1);
  // " dd-mm-yyyy hh.mm.ss.mmm.log"
  constexpr std::string_view kShape = " 00-00-0000 00.00.00.000.log";
  if (base.size() <= kShape.size()) return std::nullopt;
  const std::string_view tail = base.substr(base.size() - kShape.size());
  for (std::size_t i = 0; i < kShape.size(); ++i) {
    if (kShape[i] == '0' ? digit(tail[i]) > 9 : tail[i] != kShape[i]) return std::nullopt;
  }
  const std::string_view head = base.substr(0, base.size() - kShape.size());
  const std::size_t dot = head.rfind('.');
  if (dot == std::string_view::npos || dot == 0 || dot + 1 == head.size() || head.size() - dot > 11)
    return std::nullopt;
  unsigned long pid = 0;
  for (const char c : head.substr(dot + 1)) {
    if (digit(c) > 9) return std::nullopt;
    pid = pid * 10 + digit(c);
  }
  return log_name{std::string(head.substr(0, dot)), pid};
}

}  // namespace trace_tools
