// tvbase form
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include <tvbase/form/multipart_form_data.h>

#include "commands.h"

namespace {

// "NAME=REST" split at the first '='.
std::pair<std::string, std::string> split_pair(const std::string& text, const char* option) {
  const std::size_t at = text.find('=');
  if (at == std::string::npos)
    throw cli::usage_error(std::string(option) + " needs NAME=..., not '" + text + "'");
  return {text.substr(0, at), text.substr(at + 1)};
}

int run_form(cli::args& args) {
  const std::vector<std::string> fields = args.options("field");
  const std::vector<std::string> files = args.options("file");
  std::vector<std::string> words = args.positional(2);
  if (words.size() != 2 || words[0] != "-o")
    throw cli::usage_error("the body's file is needed: -o BODY");
  const std::string output = words[1];

  multipart_form_data form;
  for (const std::string& field : fields) {
    const auto [name, value] = split_pair(field, "--field");
    if (!form.add_field(name, value))
      throw cli::failure("field '" + name +
                         "' is refused: a name byte of 0x80 or above, or the form's delimiter "
                         "in the value");
  }
  for (const std::string& file : files) {
    auto [name, path] = split_pair(file, "--file");
    std::optional<std::string> type;
    if (const std::size_t at = path.rfind(";type="); at != std::string::npos) {
      type = path.substr(at + 6);
      path.erase(at);
    }
    const std::string bytes = cli::read_input(path);
    if (bytes.size() > 0xFFFFFFFFu) throw cli::failure(path + " is larger than 4 GiB");
    const std::string filename = std::filesystem::path(path).filename().string();
    if (!form.add_file(name, filename, reinterpret_cast<const unsigned char*>(bytes.data()),
                       static_cast<unsigned int>(bytes.size()),
                       type ? std::optional<std::string_view>(*type) : std::nullopt)) {
      throw cli::failure("file part '" + name + "' (" + filename +
                         ") is refused: a name byte of 0x80 or above, a line break in the type, "
                         "or the form's delimiter in the file");
    }
  }
  std::string content_type;
  std::vector<unsigned char> body;
  form.finish(content_type, body);
  cli::write_file(output,
                  std::string_view(reinterpret_cast<const char*>(body.data()), body.size()));
  std::cout << content_type << '\n';
  return cli::kOk;
}

}  // namespace

const command form_command{
    "form", "build a multipart/form-data body",
    "usage: tvbase form [--field NAME=VALUE]... [--file NAME=PATH[;type=MIME]]... -o BODY\n\n"
    "Builds a multipart/form-data body from the fields and files in order, writes\n"
    "it to BODY and prints the Content-Type header value, so that both can be\n"
    "handed to any HTTP client. Files are sent under their base name, as\n"
    "application/octet-stream unless a type is given; a quote, CR or LF in a name\n"
    "goes out as %22, %0D or %0A. A name with bytes of 0x80 or above, a type with\n"
    "a line break, a value or file holding the form's delimiter, or a file that is\n"
    "no regular file or cannot be read, is an error (exit 1) and leaves no BODY\n"
    "behind. BODY is written whole through a temporary file beside it.\n",
    run_form};
