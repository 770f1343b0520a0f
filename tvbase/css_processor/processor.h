#ifndef TVBASE_CSS_PROCESSOR_PROCESSOR_H
#define TVBASE_CSS_PROCESSOR_PROCESSOR_H

#include <optional>
#include <string>
#include <vector>

#include <tvbase/export.h>

namespace css_processor {

// Turns the source of a style sheet into plain CSS, and names the image files
// that it refers to. The object owns its text; process() rewrites it in place,
// css() hands it back. A failure is a message in the result of process(),
// never an exception (except exhausted memory, below); the object stays usable.
//
//   css_processor::processor sheet{std::move(source)};
//   if (auto error = sheet.process()) report(*error);
//   else std::string out = sheet.css();  // moves the text out of `sheet`
//
// process() is a text rewriter, not a parser. It knows three things, each by a
// fixed pattern, and passes every other byte through unchanged and in place:
//   1. Comments, "/*" to the first "*/" behind it, are erased everywhere, in
//      quoted strings too. A "/*" with no "*/" behind it is plain text.
//   2. The first `:root { ... }` block (up to its first '}') defines variables.
//      Its body is cut at every ';'. A piece `--name: value`, the name made of
//      "--" and at least one of `-a-zA-Z0-9`, is a definition: its value is
//      trimmed of white space, its references are replaced, each calc() in it
//      is evaluated, and it is erased with the ';' behind it. If only
//      definitions and blank pieces stand in the block, the whole block goes;
//      otherwise the block stays with the other pieces. A name may be defined
//      once, and used only in definitions behind its own.
//   3. Every `var(NAME)` reference in the rest of the text is replaced by the
//      value of NAME, with no arithmetic: a calc() in a rule stays calc().
// White space is blank, tab, carriage return and line feed.
//
// calc() works in hundredths (two fixed decimals, 32-bit, wrapping without
// notice) with the units px, em and % as labels that must fit together. It
// rewrites its text one piece per pass: the leftmost parenthesised value, else
// the leftmost product or quotient, else the leftmost sum or difference; a
// round([up|down|nearest|to-zero,] value, step) call is computed only when
// nothing else can be. So a sum to the left of a product whose factor is still
// in parentheses or a round() call is computed first: "1 + 2 * (3 + 4)" is 21
// and "round(1.5, 1) * 2 + 3" is 10. A product or quotient that is not exact
// in hundredths, and a division by zero, make the expression invalid.
//
// Messages, `{}` the variable's name as written:
//   "Variable name {} already defined."
//   "Variable {} is undefined."
//   "Mismatched parentheses in calc() in definition for variable {}."
//   "Error in calc() for variable {}: expression ({}) is invalid."
//   "Error in calc() for variable {}: cannot multiply 2 unit values."
//   "Error in calc() for variable {}: cannot divide by a unit value."
//   "Error in calc() for variable {}: cannot add/subtract different unit values."
//   "Error in calc() for variable {}: cannot add/subtract a value and a unit value."
//   "Error in round() for variable {}: cannot round different unit values."
//   "Error in round() for variable {}: cannot round a value and a unit value."
// After a failure in a definition the text is the source without comments;
// after an undefined reference in the rules it also has the `:root` edit made,
// with all references in place. Nothing is remembered between calls but the
// text, so process() on its own output treats a leftover `:root` block anew.
//
// Values may hold references to values that hold references, so a few bytes
// can stand for an enormous text. process() holds one budget of bytes for
// the whole call: 64 times the source's size, or 16 MiB if that is more. A
// reference that would grow one text (a value or the style sheet) past the
// budget throws std::length_error ("css_processor: var() references grow the
// text past N bytes"), and so does one that would take the style sheet, the
// values stored so far and the text being built together past it ("...
// grow the style sheet and its variables past N bytes"), both as exhausted
// memory would, before the text is built, the text left as after a failure
// at that point. So a sheet that doubles a value up to the budget and then
// refers to it a hundred times stops there, holding a few times the budget
// at most.
//
// Sizes and nesting are bounded by memory only; no pass recurses. process()
// rebuilds the text at most three times, and its cost is linear in the text
// and in the values it inserts, calc() included whatever the length of its
// numbers or the depth of its parentheses. So is that of images().
class TVBASE_EXPORT processor {
 public:
  processor();
  // Takes the text over; `text` is left empty.
  explicit processor(std::string&& text);
  processor(const processor&);
  processor(processor&&) noexcept;
  processor& operator=(const processor&);
  processor& operator=(processor&&) noexcept;
  ~processor();

  // Replaces the text by `text`, taken over. Passing the object's own text
  // (as css() gives it) changes nothing.
  void set(std::string&& text) noexcept;

  // The object's text itself, to read where it stands or to move out; after a
  // move the object's text is empty. The result is an rvalue reference, so a
  // new string made from it takes the text, while a const reference or a
  // comparison only reads it:
  //
  //   auto s = p.css();                // moves the text out: p's text is now empty
  //   const std::string& t = p.css();  // the text where it stands; nothing moves
  std::string&& css() noexcept;

  // Runs the passes above on the text. Empty on success, else the message of
  // the first failure.
  [[nodiscard]] std::optional<std::string> process();

  // The names of the image files that the text names in `url(NAME)`, each once
  // in the spelling first seen, in order of appearance. A name is bare: letters,
  // digits, '.', '-', '_', ending in .jpg, .png or .gif in any case, with
  // optional quotes and white space round it; a path, a query or another
  // extension is not reported. Names are equal when they differ only in the
  // case of ASCII letters. Reads the text as it is now, before or after
  // process(). Linear in the text; besides the list it returns, it holds
  // at most 72 bytes for each name it lists, and about 1 KB whatever the
  // text, while it runs.
  std::vector<std::string> images() const;

 private:
  std::string text_;
};

}  // namespace css_processor

#endif  // TVBASE_CSS_PROCESSOR_PROCESSOR_H
