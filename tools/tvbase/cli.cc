#include "cli.h"

#include <charconv>
#include <cstdint>
#include <cstring>
#include <iostream>
#include <sstream>
#include <vector>

#include <tvbase/platform/file.h>

namespace cli {
namespace {

// The largest file that a command reads.
constexpr std::size_t kMaxInput = std::size_t{4} << 30;

}  // namespace

args::args(std::span<char* const> words) {
  bool options_done = false;
  for (const char* word : words) {
    std::string text = word;
    if (!options_done && text == "--") {
      options_done = true;
      continue;
    }
    if (!options_done && (text == "--help" || text == "-h")) {
      help_ = true;
      continue;
    }
    positional_.push_back(options_done || !text.starts_with("--"));
    words_.push_back(std::move(text));
  }
}

bool args::flag(std::string_view name) {
  bool found = false;
  for (std::size_t i = 0; i < words_.size(); ++i) {
    if (!positional_[i] && words_[i].substr(2) == name) {
      words_.erase(words_.begin() + static_cast<std::ptrdiff_t>(i));
      positional_.erase(positional_.begin() + static_cast<std::ptrdiff_t>(i));
      --i;
      found = true;
    }
  }
  return found;
}

std::vector<std::string> args::options(std::string_view name) {
  std::vector<std::string> values;
  for (std::size_t i = 0; i < words_.size(); ++i) {
    if (positional_[i]) continue;
    const std::string_view word = std::string_view(words_[i]).substr(2);
    std::size_t taken = 0;
    if (word == name) {
      if (i + 1 >= words_.size())
        throw usage_error("option --" + std::string(name) + " needs a value");
      values.push_back(words_[i + 1]);
      taken = 2;
    } else if (word.size() > name.size() && word.starts_with(name) && word[name.size()] == '=') {
      values.emplace_back(word.substr(name.size() + 1));
      taken = 1;
    } else {
      continue;
    }
    const auto at = static_cast<std::ptrdiff_t>(i);
    words_.erase(words_.begin() + at, words_.begin() + at + static_cast<std::ptrdiff_t>(taken));
    positional_.erase(positional_.begin() + at,
                      positional_.begin() + at + static_cast<std::ptrdiff_t>(taken));
    --i;
  }
  return values;
}

std::optional<std::string> args::option(std::string_view name) {
  std::vector<std::string> values = options(name);
  if (values.empty()) return std::nullopt;
  return std::move(values.back());
}

std::vector<std::string> args::positional(std::size_t most) {
  for (std::size_t i = 0; i < words_.size(); ++i) {
    if (!positional_[i]) throw usage_error("unknown option " + words_[i]);
  }
  if (words_.size() > most) throw usage_error("unexpected argument " + words_[most]);
  return words_;
}

std::string read_input(const std::string& path) {
  if (path == "-") {
    std::ostringstream all;
    all << std::cin.rdbuf();
    if (std::cin.bad()) throw failure("cannot read standard input");
    return std::move(all).str();
  }
  // Opened without waiting and read only if it is a regular file, so that a
  // FIFO or a device named here is an error at once and never a hang.
  std::vector<std::uint8_t> bytes;
  std::uint32_t error = 0;
  switch (platform::read_regular_file(path.c_str(), kMaxInput, bytes, error)) {
    case platform::read_outcome::done: break;
    case platform::read_outcome::cannot_open:
      throw failure("cannot open " + path + ": " + std::strerror(static_cast<int>(error)));
    case platform::read_outcome::not_regular: throw failure(path + " is not a regular file");
    case platform::read_outcome::too_large:
      throw failure(path + " is larger than " + std::to_string(kMaxInput >> 30) + " GiB");
    case platform::read_outcome::read_failed:
      throw failure("cannot read " + path + ": " + std::strerror(static_cast<int>(error)));
  }
  return std::string(bytes.begin(), bytes.end());
}

void write_file(const std::string& path, std::string_view bytes) {
  const unsigned long error = platform::write_whole_file(path.c_str(), bytes.data(), bytes.size());
  if (error != 0)
    throw failure("cannot write " + path + ": " + std::strerror(static_cast<int>(error)));
}

void write_output(std::string_view bytes) {
  std::cout.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

unsigned long parse_unsigned(std::string_view text, std::string_view what) {
  unsigned long value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size() || text.empty()) {
    throw usage_error(std::string(what) + " must be an unsigned number, not '" + std::string(text) +
                      "'");
  }
  return value;
}

}  // namespace cli
