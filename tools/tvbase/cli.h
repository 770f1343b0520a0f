#ifndef TVBASE_TOOLS_TVBASE_CLI_H
#define TVBASE_TOOLS_TVBASE_CLI_H

#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace cli {

// Exit statuses of every subcommand.
inline constexpr int kOk = 0;
inline constexpr int kFailed = 1;
inline constexpr int kUsage = 2;

// Thrown for a command line that doesn't fit the subcommand's usage; main
// prints it with the usage text and exits with kUsage.
struct usage_error : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Thrown for a failure that is not the user's wording, such as a file that
// can't be read; main prints it and exits with kFailed.
struct failure : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// The arguments of one subcommand, taken apart as options are asked for.
// Options are "--name" flags and "--name VALUE" or "--name=VALUE" pairs;
// "-" alone and anything not starting with "--" is positional, and "--" ends
// the options.
class args {
 public:
  explicit args(std::span<char* const> words);

  // True if the flag was given; removes it.
  bool flag(std::string_view name);
  // The value of the last occurrence of an option, removing all occurrences.
  std::optional<std::string> option(std::string_view name);
  // Every value of a repeatable option, in order, removing them.
  std::vector<std::string> options(std::string_view name);
  // The remaining positional words. Throws usage_error for an unknown option
  // left over, or for more than `most` positional words.
  std::vector<std::string> positional(std::size_t most);

  bool help() const { return help_; }

 private:
  std::vector<std::string> words_;
  std::vector<bool> positional_;
  bool help_ = false;
};

// The bytes of FILE, or of standard input for "-". Throws failure, at once,
// for anything but a regular file (a FIFO, a folder, a device) or a file of
// more than 4 GiB.
std::string read_input(const std::string& path);

// Puts `bytes` at `path` whole or not at all: through a temporary file of a
// new name beside it, renamed into place. Throws failure, leaving `path` as
// it was.
void write_file(const std::string& path, std::string_view bytes);

// Writes bytes to standard output exactly, in binary.
void write_output(std::string_view bytes);

// An unsigned decimal, or usage_error naming the option.
unsigned long parse_unsigned(std::string_view text, std::string_view what);

}  // namespace cli

#endif  // TVBASE_TOOLS_TVBASE_CLI_H
