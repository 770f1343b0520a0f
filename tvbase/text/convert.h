#ifndef TVBASE_TEXT_CONVERT_H
#define TVBASE_TEXT_CONVERT_H

#include <string>
#include <string_view>

#include <tvbase/export.h>

namespace convert {

// Encodes text for a URL query or a form body: a space becomes "+", the bytes
// A-Z a-z 0-9 ! $ ' ( ) * , - . _ stay, and every other byte becomes "%XX"
// with upper-case hex digits ("~" too). The result is plain ASCII.
//
//   convert::url_encode("a b&c", 0);     // "a+b%26c"
//   convert::url_encode(L"\u00E9", 28591);  // "%E9"
//
// Wide text holds UTF-16 units and is first converted to bytes of `code_page`.
// An unknown code page gives the empty string: for a non-empty text that is
// the only sign of the failure. The narrow form with code page 0 encodes the
// bytes as they are; with any other code page it reads the bytes in the
// system's default code page and continues as the wide form: a recoding from
// the default code page to `code_page`.
//
// On Windows the conversions are the system's (MultiByteToWideChar,
// WideCharToMultiByte with no flags): every code page it has, 0 for the
// ANSI code page (also as the default), and a character that the code page
// lacks becomes what the system puts there: a similar character where the
// code page has a "best fit" (an "e" for e-acute in US-ASCII), else the code
// page's default character ("?" for most, each unit of a surrogate pair on its
// own); to UTF-8 an unpaired surrogate becomes U+FFFD.
//
// Elsewhere the default code page is UTF-8 (a malformed sequence reads as
// U+FFFD), and 0 and 65001 are UTF-8, 28591 ISO-8859-1, 20127 US-ASCII,
// 1252 Windows-1252; 1250-1258, 437, 850, 866, 874, 932, 936, 949, 950,
// 28592-28605, 20866 and 21866 go through iconv. A character that the code
// page lacks, and an unpaired surrogate, becomes "?", so encodes as "%3F".
[[nodiscard]] TVBASE_EXPORT std::string url_encode(std::string_view text, unsigned int code_page);
[[nodiscard]] TVBASE_EXPORT std::string url_encode(std::wstring_view text, unsigned int code_page);

}  // namespace convert

#endif  // TVBASE_TEXT_CONVERT_H
