// tvbase json
#include <cstdint>
#include <iostream>
#include <optional>
#include <string>

#include <tvbase/json/object.h>

#include "commands.h"
#include "utf8_sequence.h"

namespace {

using strategy = json::object::escape_strategy;

// Strict UTF-8 to UTF-16 units: overlong forms, surrogates, code points above
// U+10FFFF and cut sequences are refused. Gives the byte offset of the first
// bad sequence through `bad_at`.
std::optional<std::wstring> utf8_to_units(const std::string& bytes, std::size_t& bad_at) {
  std::wstring units;
  units.reserve(bytes.size());
  const auto* b = reinterpret_cast<const unsigned char*>(bytes.data());
  const std::size_t n = bytes.size();
  std::size_t i = 0;
  while (i < n) {
    std::uint32_t cp = 0;
    const std::size_t length = cli::utf8_sequence(b + i, n - i, cp);
    if (length == 0) {
      bad_at = i;
      return std::nullopt;
    }
    if (cp >= 0x10000) {
      cp -= 0x10000;
      units.push_back(static_cast<wchar_t>(0xD800 + (cp >> 10)));
      units.push_back(static_cast<wchar_t>(0xDC00 + (cp & 0x3FF)));
    } else {
      units.push_back(static_cast<wchar_t>(cp));
    }
    i += length;
  }
  return units;
}

// UTF-16 units to UTF-8. A surrogate without its partner has no UTF-8 form;
// gives its index through `lone_at` instead.
std::optional<std::string> units_to_utf8(const std::wstring& units, std::size_t& lone_at) {
  std::string out;
  out.reserve(units.size());
  for (std::size_t i = 0; i < units.size(); ++i) {
    std::uint32_t cp = static_cast<std::uint32_t>(units[i]) & 0xFFFF;
    if (cp >= 0xD800 && cp <= 0xDBFF && i + 1 < units.size()) {
      const std::uint32_t low = static_cast<std::uint32_t>(units[i + 1]) & 0xFFFF;
      if (low >= 0xDC00 && low <= 0xDFFF) {
        cp = 0x10000 + ((cp - 0xD800) << 10) + (low - 0xDC00);
        ++i;
      }
    }
    if (cp >= 0xD800 && cp <= 0xDFFF) {
      lone_at = i;
      return std::nullopt;
    }
    if (cp < 0x80) {
      out.push_back(static_cast<char>(cp));
    } else if (cp < 0x800) {
      out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
      out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else if (cp < 0x10000) {
      out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
      out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
      out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else {
      out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
      out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
      out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
      out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    }
  }
  return out;
}

strategy parse_strategy(const std::optional<std::string>& name) {
  if (!name || *name == "minimal") return strategy::minimal;
  if (*name == "surrogates") return strategy::surrogates;
  if (*name == "non-ascii") return strategy::non_ascii;
  throw cli::usage_error("--escape takes minimal, surrogates or non-ascii, not '" + *name + "'");
}

int run_json(cli::args& args) {
  const strategy how = parse_strategy(args.option("escape"));
  const auto words = args.positional(1);
  const std::string bytes = cli::read_input(words.empty() ? "-" : words[0]);

  std::size_t bad_at = 0;
  const std::optional<std::wstring> text = utf8_to_units(bytes, bad_at);
  if (!text)
    throw cli::failure("not valid UTF-8: bad sequence at byte offset " + std::to_string(bad_at));

  json::object doc;
  if (const auto error = doc.parse(*text)) {
    std::cerr << "line " << error->line << ", column " << error->column << ": " << error->message
              << '\n';
    return cli::kFailed;
  }

  std::size_t lone_at = 0;
  const std::optional<std::string> out = units_to_utf8(doc.to_string(how), lone_at);
  if (!out) {
    throw cli::failure("the output holds a lone surrogate at unit " + std::to_string(lone_at) +
                       ", which UTF-8 cannot carry; use --escape surrogates or non-ascii");
  }
  cli::write_output(*out);
  cli::write_output("\n");
  return cli::kOk;
}

}  // namespace

const command json_command{
    "json", "read a JSON document and write it in compact form",
    "usage: tvbase json [--escape minimal|surrogates|non-ascii] [FILE|-]\n\n"
    "Reads FILE (or standard input, for '-' or no argument) as UTF-8, parses it\n"
    "as strict JSON (nesting limit 512) and writes it back in compact form, as\n"
    "UTF-8, followed by a line feed. --escape chooses which characters become\n"
    "\\uXXXX escapes besides those JSON requires: none (minimal, the default),\n"
    "UTF-16 surrogates (surrogates), or everything outside ASCII (non-ascii).\n\n"
    "Exit status 1 for text that is not UTF-8, and for a syntax error, which is\n"
    "reported as 'line L, column C: message', the column counted in UTF-16\n"
    "units.\n",
    run_json};
