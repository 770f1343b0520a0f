// tvbase: shows what each part of the library does, on files or standard input.
#include <cstdio>
#include <exception>
#include <iostream>
#include <span>
#include <string_view>

#include "cli.h"
#include "commands.h"

namespace {

const command* const kCommands[] = {
    &urlencode_command, &utf8check_command, &css_command,  &version_command, &walk_command,
    &icon_command,      &html_command,      &form_command, &json_command,    &trace_command,
};

void print_overview(std::FILE* to) {
  std::fputs("usage: tvbase COMMAND [OPTIONS] [ARGS]\n\ncommands:\n", to);
  for (const command* c : kCommands) {
    std::fprintf(to, "  %-10.*s %.*s\n", static_cast<int>(c->name.size()), c->name.data(),
                 static_cast<int>(c->summary.size()), c->summary.data());
  }
  std::fputs("\n'tvbase COMMAND --help' tells more.\n", to);
}

}  // namespace

int main(int argc, char** argv) {
  std::ios::sync_with_stdio(false);
  if (argc < 2) {
    print_overview(stderr);
    return cli::kUsage;
  }
  const std::string_view name = argv[1];
  if (name == "--help" || name == "-h" || name == "help") {
    print_overview(stdout);
    return cli::kOk;
  }
  for (const command* c : kCommands) {
    if (c->name != name) continue;
    try {
      cli::args args(std::span<char* const>(argv + 2, static_cast<std::size_t>(argc - 2)));
      if (args.help()) {
        std::cout << c->usage;
        return cli::kOk;
      }
      const int status = c->run(args);
      std::cout.flush();
      return status;
    } catch (const cli::usage_error& e) {
      std::cerr << "tvbase " << name << ": " << e.what() << "\n\n" << c->usage;
      return cli::kUsage;
    } catch (const std::exception& e) {
      std::cout.flush();
      std::cerr << "tvbase " << name << ": " << e.what() << '\n';
      return cli::kFailed;
    }
  }
  std::cerr << "tvbase: unknown command '" << name << "'\n\n";
  print_overview(stderr);
  return cli::kUsage;
}
