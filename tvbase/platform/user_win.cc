#include <tvbase/platform/user.h>

#include <windows.h>

#include <sddl.h>

#include <cstring>

namespace platform {
namespace {

// The text form of `sid` into `out`; false if it doesn't fit.
bool sid_text(PSID sid, user_account& out) {
  LPSTR text = nullptr;
  if (!::ConvertSidToStringSidA(sid, &text)) return false;
  const std::size_t length = std::strlen(text);
  const bool fits = length < sizeof out.id;
  if (fits) std::memcpy(out.id, text, length + 1);
  ::LocalFree(text);
  return fits;
}

}  // namespace

bool effective_user(user_account& out) noexcept {
  HANDLE token = nullptr;
  if (!::OpenThreadToken(::GetCurrentThread(), TOKEN_QUERY, TRUE, &token) &&
      !::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &token)) {
    return false;
  }
  alignas(TOKEN_USER) unsigned char buffer[sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE];
  DWORD size = 0;
  const bool ok = ::GetTokenInformation(token, TokenUser, buffer, sizeof buffer, &size) != 0 &&
                  sid_text(reinterpret_cast<TOKEN_USER*>(buffer)->User.Sid, out);
  ::CloseHandle(token);
  return ok;
}

bool find_user(const char* login, user_account& out) noexcept {
  if (login == nullptr || *login == 0) return false;
  unsigned char sid[SECURITY_MAX_SID_SIZE];
  DWORD sid_size = sizeof sid;
  char domain[256];
  DWORD domain_size = sizeof domain;
  SID_NAME_USE use{};
  if (!::LookupAccountNameA(nullptr, login, sid, &sid_size, domain, &domain_size, &use) ||
      use != SidTypeUser) {
    return false;
  }
  return sid_text(sid, out);
}

// Making a block owned by another user needs privileges that the library
// does not ask for; no process acts for other users here.
bool acts_for_every_user() noexcept { return false; }

}  // namespace platform
