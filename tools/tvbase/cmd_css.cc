// tvbase css
#include <iostream>
#include <string>
#include <vector>

#include <tvbase/css_processor/processor.h>

#include "commands.h"

namespace {

void print_lines(const std::vector<std::string>& lines) {
  std::string out;
  for (const std::string& line : lines) out.append(line).push_back('\n');
  cli::write_output(out);
}

int run_css(cli::args& args) {
  const bool images_after = args.flag("images");
  const bool images_before = args.flag("images-before");
  const auto words = args.positional(1);
  if (images_after && images_before)
    throw cli::usage_error("--images and --images-before exclude each other");
  css_processor::processor sheet{cli::read_input(words.empty() ? "-" : words[0])};
  if (images_before) {
    print_lines(sheet.images());
    return cli::kOk;
  }
  if (auto error = sheet.process()) throw cli::failure(*error);
  if (images_after) {
    print_lines(sheet.images());
  } else {
    cli::write_output(sheet.css());
  }
  return cli::kOk;
}

}  // namespace

const command css_command{
    "css", "process a style sheet: comments, :root variables, var(), calc()",
    "usage: tvbase css [--images | --images-before] [FILE|-]\n\n"
    "Processes the style sheet FILE (or standard input, for '-' or no argument)\n"
    "and writes the result to standard output: comments go, the variables of the\n"
    "first :root block are collected (calc() and round() in them evaluated) and\n"
    "the block goes, and every var() reference is replaced by its value. On a\n"
    "failure the message goes to standard error, nothing to standard output, and\n"
    "the exit status is 1.\n\n"
    "  --images         print the image files that the processed text names\n"
    "  --images-before  print those that the source names, without processing\n",
    run_css};
