#include <tvbase/platform/user.h>

#include <pwd.h>
#include <unistd.h>

#include <cstdio>

namespace platform {

bool effective_user(user_account& out) noexcept {
  const int n =
      std::snprintf(out.id, sizeof out.id, "%lu", static_cast<unsigned long>(::geteuid()));
  return n > 0 && static_cast<std::size_t>(n) < sizeof out.id;
}

bool find_user(const char* login, user_account& out) noexcept {
  if (login == nullptr || *login == 0) return false;
  char buffer[4096];
  struct passwd entry {};
  struct passwd* found = nullptr;
  if (::getpwnam_r(login, &entry, buffer, sizeof buffer, &found) != 0 || found == nullptr) {
    return false;
  }
  const int n =
      std::snprintf(out.id, sizeof out.id, "%lu", static_cast<unsigned long>(found->pw_uid));
  return n > 0 && static_cast<std::size_t>(n) < sizeof out.id;
}

bool acts_for_every_user() noexcept { return ::geteuid() == 0; }

}  // namespace platform
