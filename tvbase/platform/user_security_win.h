#ifndef TVBASE_PLATFORM_USER_SECURITY_WIN_H
#define TVBASE_PLATFORM_USER_SECURITY_WIN_H

// Windows only, inside tvbase/platform/: the security descriptor that keeps
// an object to the process's user, for the log file and the shared block.

#include <windows.h>

#include <accctrl.h>

#include <string>

namespace platform::win {

// A security descriptor whose owner is the process's user and whose DACL,
// protected from inheritance, grants all access to that user and to
// SYSTEM when `with_system` is set, and to nobody else.
class user_only_security {
 public:
  explicit user_only_security(bool with_system) noexcept;
  user_only_security(const user_only_security&) = delete;
  user_only_security& operator=(const user_only_security&) = delete;

  // False if the user's SID or the descriptor could not be had.
  bool valid() const noexcept { return valid_; }
  SECURITY_ATTRIBUTES* attributes() noexcept { return valid_ ? &attributes_ : nullptr; }
  PSID user() const noexcept { return reinterpret_cast<PSID>(const_cast<unsigned char*>(user_)); }
  // The user's SID as text ("S-1-5-21-..."); empty if invalid.
  const std::wstring& user_text() const noexcept { return user_text_; }

 private:
  bool valid_ = false;
  unsigned char user_[SECURITY_MAX_SID_SIZE] = {};
  unsigned char system_[SECURITY_MAX_SID_SIZE] = {};
  unsigned char acl_[256] = {};
  SECURITY_DESCRIPTOR descriptor_{};
  SECURITY_ATTRIBUTES attributes_{};
  std::wstring user_text_;
};

// True if the object behind `handle` is owned by `user`.
bool owned_by(HANDLE handle, SE_OBJECT_TYPE type, PSID user) noexcept;

}  // namespace platform::win

#endif  // TVBASE_PLATFORM_USER_SECURITY_WIN_H
