// tvbase version, tvbase walk, tvbase icon
#include <cstring>
#include <iostream>
#include <string>
#include <vector>

#include <fmt/format.h>

#include <tvbase/system/dir_walk.h>
#include <tvbase/system/gdi.h>
#include <tvbase/system/version.h>

#include "commands.h"

namespace {

TvVersion::CompareType parse_type(const std::optional<std::string>& text) {
  if (!text || *text == "full") return TvVersion::CompareFull;
  if (*text == "major") return TvVersion::CompareMajor;
  if (*text == "minor") return TvVersion::CompareMinor;
  if (*text == "sub") return TvVersion::CompareSub;
  throw cli::usage_error("--type must be major, minor, sub or full");
}

// A packed number in hexadecimal (0x...) or decimal.
unsigned long parse_number(const std::string& text) {
  const bool hex = text.starts_with("0x") || text.starts_with("0X");
  std::size_t used = 0;
  unsigned long value = 0;
  try {
    value = std::stoul(hex ? text.substr(2) : text, &used, hex ? 16 : 10);
  } catch (const std::exception&) {
    used = 0;
  }
  if (used == 0 || used != text.size() - (hex ? 2 : 0) || text[hex ? 2 : 0] == '-' ||
      text[hex ? 2 : 0] == '+' || value > 0xFFFFFFFFul) {
    throw cli::usage_error("'" + text + "' is not a 32-bit number");
  }
  return value;
}

// A version text, or a packed number written as 0x...
unsigned long parse_version(const std::string& text) {
  if (text.starts_with("0x") || text.starts_with("0X")) return parse_number(text);
  const unsigned long packed = TvVersion::Parse(text.c_str());
  if (packed == 0 && text != "0.00_") throw cli::failure("'" + text + "' is not a version");
  return packed;
}

int run_version(cli::args& args) {
  const TvVersion::CompareType type = parse_type(args.option("type"));
  const bool no_underscore = args.flag("no-underscore");
  const auto words = args.positional(1000);
  if (words.empty()) throw cli::usage_error("missing parse, format or compare");
  const std::string& action = words[0];
  const std::vector<std::string> operands(words.begin() + 1, words.end());
  if (operands.empty()) throw cli::usage_error("nothing to " + action);
  if (action == "parse") {
    int status = cli::kOk;
    for (const std::string& text : operands) {
      const unsigned long packed = TvVersion::Parse(text.c_str());
      if (packed == 0 && text != "0.00_") {
        std::cout << fmt::format("{}: not a version\n", text);
        status = cli::kFailed;
      } else {
        std::cout << fmt::format("{}: 0x{:08X}\n", text, packed);
      }
    }
    return status;
  }
  if (action == "format") {
    for (const std::string& text : operands) {
      const unsigned long packed = parse_number(text);
      std::cout << fmt::format("0x{:08X}: {}\n", packed,
                               TvVersion::ToString(packed, type, no_underscore));
    }
    return cli::kOk;
  }
  if (action == "compare") {
    if (operands.size() != 2) throw cli::usage_error("compare takes two versions");
    const int order =
        TvVersion::Compare(parse_version(operands[0]), parse_version(operands[1]), type);
    std::cout << fmt::format("{} {} {}\n", operands[0],
                             order < 0   ? "<"
                             : order > 0 ? ">"
                                         : "==",
                             operands[1]);
    return cli::kOk;
  }
  throw cli::usage_error("unknown action '" + action + "'");
}

int run_walk(cli::args& args) {
  using os::dir_walk;
  const bool breadth = args.flag("breadth-first");
  const bool depth = args.flag("depth-first");
  const bool flat = args.flag("no-descend");
  if (breadth + depth + flat > 1) {
    throw cli::usage_error("--breadth-first, --depth-first and --no-descend exclude each other");
  }
  dir_walk walker;
  walker.set_order(depth  ? dir_walk::walk_order::depth_first
                   : flat ? dir_walk::walk_order::no_descent
                          : dir_walk::walk_order::breadth_first);
  walker.set_sort_folders(args.flag("sort") ? dir_walk::folder_sort::by_folded_name
                                            : dir_walk::folder_sort::as_listed);
  walker.set_report_folders(args.flag("report-folders") ? dir_walk::folder_reports::entry_and_exit
                                                        : dir_walk::folder_reports::off);
  const auto words = args.positional(1);
  if (words.empty()) throw cli::usage_error("missing DIR");

  std::string out;
  const auto line = [&out](char action, const os::dir_info& info) {
    static constexpr const char* kStates[] = {"enter", "item", "leave"};
    out += action;
    out += ' ';
    out += kStates[static_cast<int>(info.state())];
    out.append(6 - std::strlen(kStates[static_cast<int>(info.state())]), ' ');
    std::string path = os::native_path(info.subfolder());
    if (info.state() == os::dir_info::item_state::item) {
      path += os::native_path(info.name());
      if (info.is_folder()) path += '/';
    }
    out += path.empty() ? "./" : path;
    out += '\n';
    if (out.size() > 1 << 16) {
      std::cout << out;
      out.clear();
    }
  };
  const auto result = walker.walk(
      os::wide_path(words[0]),
      [&](const os::dir_info& info) {
        line('F', info);
        return dir_walk::file_action_result::go_on;
      },
      [&](const os::dir_info& info) {
        line('D', info);
        return dir_walk::directory_action_result::descend;
      });
  std::cout << out;
  if (result == dir_walk::result::list_failed) {
    std::cout.flush();
    throw cli::failure(fmt::format("a folder could not be listed: {}",
                                   std::strerror(static_cast<int>(walker.last_error()))));
  }
  return cli::kOk;
}

int run_icon(cli::args& args) {
  const std::vector<std::string> sizes = args.options("size");
  const auto words = args.positional(1);
  if (words.empty()) throw cli::usage_error("missing SOURCE");
  if (sizes.empty()) throw cli::usage_error("missing --size");
  std::vector<TvGdi::IconData> icons;
  for (const std::string& size : sizes) {
    const auto x = size.find('x');
    const std::string w = size.substr(0, x);
    const std::string h = x == std::string::npos ? w : size.substr(x + 1);
    const unsigned long width = cli::parse_unsigned(w, "--size");
    const unsigned long height = cli::parse_unsigned(h, "--size");
    if (width > 65535 || height > 65535) throw cli::usage_error("--size is too large");
    icons.push_back({static_cast<int>(width), static_cast<int>(height), nullptr});
  }
  TvGdi::LoadIcons(words[0].c_str(), icons.data(), static_cast<int>(icons.size()));
  bool any = false;
  for (const TvGdi::IconData& request : icons) {
    const TvGdi::IconPtr icon(request.icon);
    std::cout << fmt::format("{}x{}: ", request.width, request.height);
    TvGdi::SIZE size{};
    TvGdi::IconPixels pixels{};
    if (!icon) {
      std::cout << "none\n";
    } else if (TvGdi::GetIconSize(icon.get(), size) && TvGdi::GetIconPixels(icon.get(), pixels)) {
      std::cout << fmt::format("{}x{} ({})\n", size.cx, size.cy,
                               pixels.Format == TvGdi::PixelFormat::Png ? "PNG" : "bitmap");
    } else {
      std::cout << "monochrome, no colour image\n";
    }
    any = any || icon;
  }
  return any ? cli::kOk : cli::kFailed;
}

}  // namespace

const command version_command{
    "version", "parse, format and compare packed version numbers",
    "usage: tvbase version parse VERSION...\n"
    "       tvbase version format [--type T] [--no-underscore] NUMBER...\n"
    "       tvbase version compare [--type T] A B\n\n"
    "A version is written like 12.40_ or 12.41b: a one- or two-digit major\n"
    "number, '.', a minor and a sub-level digit, and '_' or a letter a-z. parse\n"
    "prints its packed 32-bit form (exit status 1 if a text is no version);\n"
    "format writes a packed NUMBER (decimal or 0x...) back, 0xFFFFFFFF being\n"
    "the unknown version; compare tells how A and B (versions or 0x... numbers)\n"
    "order. T is major, minor, sub or full (the default): how far the written\n"
    "form or the comparison goes.\n",
    run_version};

const command walk_command{
    "walk", "walk a folder tree and show each call of the walk",
    "usage: tvbase walk [--breadth-first|--depth-first|--no-descend] [--sort]\n"
    "                   [--report-folders] DIR\n\n"
    "Walks DIR and prints one line per call of the walk's actions: the action\n"
    "(F file, D directory), the state (enter, item, leave) and the path relative\n"
    "to DIR, folders ending in '/'. Breadth-first by default; --no-descend lists\n"
    "DIR alone. --sort orders the subfolders of each folder, ignoring ASCII case;\n"
    "files come in the order the system lists them. --report-folders adds the\n"
    "calls at the entry and exit of each folder. Links to folders are shown but\n"
    "not followed. Exit status 1 if a folder can't be listed.\n",
    run_walk};

const command icon_command{
    "icon", "load an icon in several sizes and show what was loaded",
    "usage: tvbase icon SOURCE --size N[xM] [--size N[xM]]...\n\n"
    "SOURCE is an .ico file, or MODULE;RESOURCE: a Windows .dll or .exe (read as\n"
    "data, nothing is run) and one of its icon groups, by number (1-65535) or by\n"
    "name. For each --size (N alone means NxN) prints the size of the icon\n"
    "loaded, which is the image of that size, else the smallest larger one, else\n"
    "the largest (images are not scaled), or \"none\". Exit status 1 if no icon\n"
    "was loaded.\n",
    run_icon};
