#ifndef TVBASE_TEXT_UTF8_H
#define TVBASE_TEXT_UTF8_H

#include <tvbase/export.h>

// Tells whether a zero-ended text has the shape of UTF-8: each lead byte
// (0xC0-0xF7) is followed by as many continuation bytes (0x80-0xBF) as it
// announces, no continuation byte starts a character, and no byte 0xF8-0xFF
// occurs. Nothing is decoded, so overlong forms, surrogates and code points
// above U+10FFFF pass as long as their shape is right. `text` must not be
// null; the zero ends it, also where a continuation byte is due.
//
//   TvxIsValidUtf8("caf\xC3\xA9");  // true
//   TvxIsValidUtf8("\xC3");         // false: the zero comes too soon
//
// Nothing throws. Mostly-ASCII text is checked eight bytes at a time. Those reads are of
// aligned words, which never cross a page, so they may look at bytes behind
// the zero but never fault.
[[nodiscard]] TVBASE_EXPORT bool TvxIsValidUtf8(const char* text) noexcept;

#endif  // TVBASE_TEXT_UTF8_H
