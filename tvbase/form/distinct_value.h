#ifndef TVBASE_FORM_DISTINCT_VALUE_H
#define TVBASE_FORM_DISTINCT_VALUE_H

#include <string>

#include <tvbase/export.h>

// Numbers that no other caller receives, in any process of the same user
// that has the library loaded, and their fixed-width texts. The counter
// lives in the block shared by that user's processes and is changed only by
// a 64-bit lock-free compare-and-exchange, so get() is safe on any thread of
// any of them; the numbers one caller sees rise strictly, with gaps. The
// counter starts from 0 when the user's first process loads the library and
// is lost when the last one lets go: numbers are distinct within that life
// only. Processes of different users count apart (one block per user, which
// no other user can write), and so may get the same numbers; so may a
// process that could not have its user's block and counts in a block of its
// own.
//
//   unsigned long long n = distinct_value::get();   // 1, 2, 3, ...
//   std::string id = distinct_value::str_b36();     // "000000000000A" style
//
// The counter wraps after 2^64 numbers; the process that would receive 0
// ends with the abort signal (and with _exit(3) if that returns), so no
// number is ever handed out twice.
class TVBASE_EXPORT distinct_value {
 public:
  distinct_value& operator=(const distinct_value&) { return *this; }
  distinct_value& operator=(distinct_value&&) { return *this; }

  // The next number, from 1 upward; never 0.
  static unsigned long long get();

  // Base 36 in 13 characters ("0"-"9", "A"-"Z"), padded with "0": the text of
  // a new get(), or of `value`.
  static std::string str_b36();
  static std::string str_b36(unsigned long long value);

  // Base 16 in 16 upper-case characters, padded with "0".
  static std::string str_hex();
  static std::string str_hex(unsigned long long value);
};

#endif  // TVBASE_FORM_DISTINCT_VALUE_H
