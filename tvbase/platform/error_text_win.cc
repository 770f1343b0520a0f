#include <tvbase/platform/error_text.h>

#include <windows.h>

namespace platform {

std::string error_text(std::uint32_t code) {
  char text[512];
  DWORD n = ::FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
                             code, 0, text, sizeof text, nullptr);
  while (n > 0 && (text[n - 1] == '\n' || text[n - 1] == '\r' || text[n - 1] == ' ')) --n;
  if (n == 0) return "error " + std::to_string(code);
  return std::string(text, n);
}

}  // namespace platform
