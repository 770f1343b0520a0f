#ifndef TVBASE_PLATFORM_ERROR_TEXT_H
#define TVBASE_PLATFORM_ERROR_TEXT_H

// The system's own words for the error codes that the functions of this
// layer give: errno values on POSIX (strerror), Win32 codes on Windows
// (FormatMessageA, in the user's language, without the line end).

#include <cstdint>
#include <string>

namespace platform {

// "No such file or directory", "The system cannot find the path specified.";
// for a code the system doesn't know, its own "Unknown error" text or
// "error <code>".
std::string error_text(std::uint32_t code);

}  // namespace platform

#endif  // TVBASE_PLATFORM_ERROR_TEXT_H
