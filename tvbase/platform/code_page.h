#ifndef TVBASE_PLATFORM_CODE_PAGE_H
#define TVBASE_PLATFORM_CODE_PAGE_H

// Code-page conversions between the system's narrow text and wide text. Wide
// text is UTF-16: each wchar_t element holds one UTF-16 code unit, also where
// wchar_t is wider than 16 bits.
//
// On Windows these are MultiByteToWideChar and WideCharToMultiByte, for every
// code page the system has, and 0 is the ANSI code page. Elsewhere:
//
// Code page numbers follow the Windows numbering. Here 0 (the system's default
// narrow code page) and 65001 are UTF-8, 28591 is ISO-8859-1, 20127 is
// US-ASCII, and 1250-1258, 437, 850, 866, 874, 932, 936, 949, 950,
// 28592-28605, 20866 and 21866 are served through iconv. Any other number is
// unknown, and a conversion to it fails.

#include <cstddef>
#include <string>
#include <string_view>

namespace platform {

// The number of the system's default narrow code page: 65001 (UTF-8) on
// POSIX, the ANSI code page (GetACP) on Windows.
unsigned int default_code_page() noexcept;

// True if wide_to_code_page() serves the code page.
bool code_page_known(unsigned int code_page);

// Decodes the system's default narrow code page into UTF-16 units: UTF-8
// here, where a byte that starts no valid sequence becomes U+FFFD, as the
// Windows conversion does by default; the ANSI code page on Windows.
std::wstring default_to_wide(std::string_view text);

// Encodes UTF-16 units as bytes of `code_page`, appending to `out`. A
// character that the code page lacks, an unpaired surrogate and an element
// above 0xFFFF each become `substitute` (on Windows, what the system
// substitutes: see <tvbase/text/convert.h>). Returns false, leaving `out` as it
// was, for an unknown code page.
bool wide_to_code_page(std::wstring_view text, unsigned int code_page, std::string_view substitute,
                       std::string& out);

// The same into a caller's buffer, for code page 0 only, with no allocation:
// writes at most `capacity` bytes and returns how many it wrote, never cutting
// a character in two.
std::size_t wide_to_default(std::wstring_view text, std::string_view substitute, char* out,
                            std::size_t capacity);

}  // namespace platform

#endif  // TVBASE_PLATFORM_CODE_PAGE_H
