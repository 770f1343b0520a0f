#include <tvbase/platform/user_security_win.h>

#include <aclapi.h>
#include <sddl.h>

namespace platform::win {

user_only_security::user_only_security(bool with_system) noexcept {
  HANDLE token = nullptr;
  if (!::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &token)) return;
  alignas(TOKEN_USER) unsigned char buffer[sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE];
  DWORD size = 0;
  const bool have_user =
      ::GetTokenInformation(token, TokenUser, buffer, sizeof buffer, &size) != 0 &&
      ::CopySid(sizeof user_, user_, reinterpret_cast<TOKEN_USER*>(buffer)->User.Sid) != 0;
  ::CloseHandle(token);
  if (!have_user) return;
  DWORD system_size = sizeof system_;
  if (with_system && !::CreateWellKnownSid(WinLocalSystemSid, nullptr, system_, &system_size))
    return;
  auto* acl = reinterpret_cast<PACL>(acl_);
  if (!::InitializeAcl(acl, sizeof acl_, ACL_REVISION) ||
      !::AddAccessAllowedAce(acl, ACL_REVISION, GENERIC_ALL, user()) ||
      (with_system && !::AddAccessAllowedAce(acl, ACL_REVISION, GENERIC_ALL, system_)) ||
      !::InitializeSecurityDescriptor(&descriptor_, SECURITY_DESCRIPTOR_REVISION) ||
      !::SetSecurityDescriptorOwner(&descriptor_, user(), FALSE) ||
      !::SetSecurityDescriptorDacl(&descriptor_, TRUE, acl, FALSE) ||
      !::SetSecurityDescriptorControl(&descriptor_, SE_DACL_PROTECTED, SE_DACL_PROTECTED)) {
    return;
  }
  LPWSTR text = nullptr;
  if (!::ConvertSidToStringSidW(user(), &text)) return;
  try {
    user_text_ = text;
  } catch (...) {
    ::LocalFree(text);
    return;
  }
  ::LocalFree(text);
  attributes_ = {sizeof attributes_, &descriptor_, FALSE};
  valid_ = true;
}

bool owned_by(HANDLE handle, SE_OBJECT_TYPE type, PSID user) noexcept {
  PSID owner = nullptr;
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  if (::GetSecurityInfo(handle, type, OWNER_SECURITY_INFORMATION, &owner, nullptr, nullptr, nullptr,
                        &descriptor) != ERROR_SUCCESS) {
    return false;
  }
  const bool same = owner != nullptr && ::EqualSid(owner, user) != 0;
  ::LocalFree(descriptor);
  return same;
}

}  // namespace platform::win
