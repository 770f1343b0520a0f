#include <tvbase/platform/code_page.h>

#include <windows.h>

#include <climits>

namespace platform {
namespace {

// The system's calls take int lengths: longer texts go in pieces that end
// before a high surrogate, so that no pair is cut in two.
constexpr std::size_t kPiece = INT_MAX / 4;

std::size_t piece_length(std::wstring_view text) {
  if (text.size() <= kPiece) return text.size();
  std::size_t n = kPiece;
  if (text[n - 1] >= 0xD800 && text[n - 1] <= 0xDBFF) --n;
  return n;
}

}  // namespace

unsigned int default_code_page() noexcept { return ::GetACP(); }

bool code_page_known(unsigned int code_page) {
  return code_page == CP_ACP || ::IsValidCodePage(code_page) != 0;
}

std::wstring default_to_wide(std::string_view text) {
  std::wstring out;
  while (!text.empty()) {
    // A piece may cut a multi-byte character; such a cut is as rare as a
    // text of half a gigabyte, and gives one substitute character.
    const std::size_t size = text.size() < kPiece ? text.size() : kPiece;
    const int in = static_cast<int>(size);
    const int needed = ::MultiByteToWideChar(CP_ACP, 0, text.data(), in, nullptr, 0);
    if (needed <= 0) break;
    const std::size_t at = out.size();
    out.resize(at + static_cast<std::size_t>(needed));
    const int got = ::MultiByteToWideChar(CP_ACP, 0, text.data(), in, out.data() + at, needed);
    out.resize(at + static_cast<std::size_t>(got > 0 ? got : 0));
    text.remove_prefix(size);
  }
  return out;
}

// The system's conversion with no flags and no substitute of the caller's:
// a character that the code page lacks becomes the code page's own default
// character ("?" for most).
bool wide_to_code_page(std::wstring_view text, unsigned int code_page, std::string_view,
                       std::string& out) {
  const std::size_t start = out.size();
  while (!text.empty()) {
    const std::size_t size = piece_length(text);
    const int in = static_cast<int>(size);
    const int needed =
        ::WideCharToMultiByte(code_page, 0, text.data(), in, nullptr, 0, nullptr, nullptr);
    if (needed <= 0) {
      out.resize(start);
      return false;
    }
    const std::size_t at = out.size();
    out.resize(at + static_cast<std::size_t>(needed));
    const int got = ::WideCharToMultiByte(code_page, 0, text.data(), in, out.data() + at, needed,
                                          nullptr, nullptr);
    if (got <= 0) {
      out.resize(start);
      return false;
    }
    out.resize(at + static_cast<std::size_t>(got));
    text.remove_prefix(size);
  }
  return true;
}

std::size_t wide_to_default(std::wstring_view text, std::string_view substitute, char* out,
                            std::size_t capacity) {
  // The system's substitute is one character; "*" is what callers give.
  const char* fallback = substitute.empty() ? nullptr : substitute.data();
  std::size_t units = text.size() < kPiece ? text.size() : kPiece;
  while (units > 0) {
    const int room = capacity > INT_MAX ? INT_MAX : static_cast<int>(capacity);
    int got = ::WideCharToMultiByte(CP_ACP, 0, text.data(), static_cast<int>(units), out, room,
                                    fallback, nullptr);
    // Code pages such as UTF-8 take no substitute of the caller's.
    if (got == 0 && ::GetLastError() == ERROR_INVALID_PARAMETER && fallback != nullptr) {
      fallback = nullptr;
      continue;
    }
    if (got > 0) return static_cast<std::size_t>(got);
    if (::GetLastError() != ERROR_INSUFFICIENT_BUFFER) return 0;
    // Too long for the buffer: the system writes all or nothing, so try a
    // shorter head, never ending between the units of a pair.
    units /= 2;
    if (units > 0 && text[units - 1] >= 0xD800 && text[units - 1] <= 0xDBFF) --units;
  }
  return 0;
}

}  // namespace platform
