#ifndef TVBASE_TOOLS_TVBASE_COMMANDS_H
#define TVBASE_TOOLS_TVBASE_COMMANDS_H

#include <string_view>

#include "cli.h"

// One subcommand of the tvbase tool. Each lives in a cmd_*.cc file of its own
// and is listed once in main.cc.
struct command {
  std::string_view name;
  std::string_view summary;  // one line for the overview
  std::string_view usage;    // the full --help text
  int (*run)(cli::args& args);
};

extern const command css_command;
extern const command html_command;
extern const command urlencode_command;
extern const command utf8check_command;
extern const command version_command;
extern const command walk_command;
extern const command icon_command;
extern const command form_command;
extern const command json_command;
extern const command trace_command;

#endif  // TVBASE_TOOLS_TVBASE_COMMANDS_H
