// tvbase urlencode, tvbase utf8check
#include <cstring>
#include <iostream>
#include <string>

#include <tvbase/text/convert.h>
#include <tvbase/text/utf8.h>

#include "commands.h"

namespace {

int run_urlencode(cli::args& args) {
  const auto code_page = args.option("code-page");
  const auto words = args.positional(1);
  const unsigned long page = code_page ? cli::parse_unsigned(*code_page, "--code-page") : 0;
  if (page > 0xFFFFFFFFul) throw cli::usage_error("--code-page is too large");
  const std::string text = words.empty() || words[0] == "-" ? cli::read_input("-") : words[0];
  const std::string encoded = convert::url_encode(text, static_cast<unsigned int>(page));
  if (encoded.empty() && !text.empty()) {
    throw cli::failure("code page " + std::to_string(page) + " is not known");
  }
  std::cout << encoded << '\n';
  return cli::kOk;
}

// Offset of the first byte that breaks the shape, by the same rules as the
// library's check; only asked once that check has said no.
std::size_t first_fault(const std::string& text) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(text.c_str());
  std::size_t i = 0;
  for (;;) {
    const unsigned char b = bytes[i];
    const int follow = b < 0x80   ? 0
                       : b < 0xC0 ? -1
                       : b < 0xE0 ? 1
                       : b < 0xF0 ? 2
                       : b < 0xF8 ? 3
                                  : -1;
    if (follow < 0) return i;
    for (int k = 1; k <= follow; ++k) {
      if ((bytes[i + k] & 0xC0) != 0x80) return i + k;
    }
    i += static_cast<std::size_t>(follow) + 1;
  }
}

int run_utf8check(cli::args& args) {
  const auto words = args.positional(1);
  const std::string text = cli::read_input(words.empty() ? "-" : words[0]);
  const std::size_t zero = std::strlen(text.c_str());
  const char* note = zero < text.size() ? " (the check ends at the NUL byte at offset " : nullptr;
  if (TvxIsValidUtf8(text.c_str())) {
    std::cout << "valid UTF-8";
    if (note) std::cout << note << zero << ')';
    std::cout << '\n';
    return cli::kOk;
  }
  std::cout << "not valid UTF-8: first fault at byte offset " << first_fault(text) << '\n';
  return cli::kFailed;
}

}  // namespace

const command urlencode_command{
    "urlencode", "URL-encode a text, optionally recoded to a code page",
    "usage: tvbase urlencode [--code-page N] [TEXT|-]\n\n"
    "Encodes TEXT (or standard input, for '-' or no argument) for a URL query or\n"
    "form body and prints it. With --code-page 0 (the default) the bytes are\n"
    "encoded as they are; with another code page (65001 UTF-8, 1252, 28591,\n"
    "20127, ...) they are read as UTF-8 and recoded first, and characters the\n"
    "code page lacks become '?'.\n",
    run_urlencode};

const command utf8check_command{
    "utf8check", "tell whether a file has the shape of UTF-8",
    "usage: tvbase utf8check [FILE|-]\n\n"
    "Checks FILE (or standard input) for the shape of UTF-8. Exit status 0 if\n"
    "valid; 1 if not, with the byte offset of the first fault. A NUL byte ends\n"
    "the text that is checked.\n",
    run_utf8check};
