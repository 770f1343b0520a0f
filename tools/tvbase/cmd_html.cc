// tvbase html
#include <fmt/format.h>
#include <tvbase/html_parser/parser.h>

#include <cstdio>
#include <iostream>
#include <string>
#include <string_view>

#include "commands.h"

namespace {

using html_parser::tag_type;

std::string_view type_name(tag_type type) {
  switch (type) {
    case tag_type::text: return "text";
    case tag_type::doctype: return "doctype";
    case tag_type::comment: return "comment";
    case tag_type::script: return "script";
    case tag_type::style: return "style";
    case tag_type::start_tag: return "start_tag";
    case tag_type::end_tag: return "end_tag";
    case tag_type::selfclosing_tag: return "selfclosing_tag";
  }
  return "?";
}

// The first bytes of a text, in double quotes, with controls escaped.
std::string excerpt(std::string_view text) {
  constexpr std::size_t kMost = 40;
  std::string out = "\"";
  for (const char c : text.substr(0, kMost)) {
    switch (c) {
      case '\n': out += "\\n"; break;
      case '\r': out += "\\r"; break;
      case '\t': out += "\\t"; break;
      case '"': out += "\\\""; break;
      case '\\': out += "\\\\"; break;
      default:
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) {
          out += fmt::format("\\x{:02X}", static_cast<unsigned char>(c));
        } else {
          out += c;
        }
    }
  }
  out += text.size() > kMost ? "\"..." : "\"";
  return out;
}

// One line per element: row, depth of the open tags (or "-" once they are no
// longer tracked), type, then the name and attributes or an excerpt.
void print_event(const html_parser::tag& t,
                 const std::optional<std::vector<html_parser::tag>>& open) {
  std::string line =
      fmt::format("{:>5} {:>3} {:<15}", t.row,
                  open ? std::to_string(open->size()) : std::string("-"), type_name(t.type));
  if (t.name.empty()) {
    line += ' ';
    line += excerpt(t.raw);
  }
  line += fmt::format(" {}", t.name);
  for (const html_parser::attribute& a : t.attributes) {
    if (a.name.empty()) {
      line += fmt::format(" {}", a.raw_value);  // a quoted doctype item
    } else if (a.raw_value.empty()) {
      line += fmt::format(" {}", a.name);
    } else {
      line += fmt::format(" {}={}", a.name, excerpt(a.value));
    }
  }
  while (!line.empty() && line.back() == ' ') line.pop_back();
  std::cout << line << '\n';
}

int run_html(cli::args& args) {
  const bool strict = args.flag("strict");
  const bool events = args.flag("events");
  const auto words = args.positional(1);
  const std::string text = cli::read_input(words.empty() ? "-" : words[0]);
  std::size_t elements = 0;
  const auto error = html_parser::parser::parse(
      text, strict,
      [&](const html_parser::tag& t, const std::optional<std::vector<html_parser::tag>>& open) {
        ++elements;
        if (events) print_event(t, open);
        return true;
      });
  if (error) {
    std::cout.flush();
    std::cerr << error->get_message() << '\n';
    return cli::kFailed;
  }
  if (!events) std::cout << "ok: " << elements << " elements\n";
  return cli::kOk;
}

}  // namespace

const command html_command{
    "html", "check an HTML text and list its elements",
    "usage: tvbase html [--strict] [--events] [FILE|-]\n\n"
    "Scans FILE (or standard input) element by element. On the first fault it\n"
    "prints the error with its row to standard error and exits with status 1;\n"
    "otherwise it prints the number of elements. --strict also requires every\n"
    "end tag to close the innermost open tag and nothing to be left open.\n"
    "--events prints one line per element instead: row, depth of the open tags\n"
    "before it ('-' once a misfit end tag has stopped their tracking), type,\n"
    "and the name with its attributes as name=\"value\", or the start of the\n"
    "text for text, comments, script and style.\n",
    run_html};
