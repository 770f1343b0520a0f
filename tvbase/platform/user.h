#ifndef TVBASE_PLATFORM_USER_H
#define TVBASE_PLATFORM_USER_H

// The users of the machine, told apart by the system's own identity of a
// user, never by a name that another user could choose. Here the identity is
// the uid; where the system names users by security identifiers (Windows),
// it is the identifier's text form ("S-1-5-21-...") of the token's user.

#include <cstring>

namespace platform {

// One user: the text of the system's identity, zero-ended ("1000" for uid
// 1000 here). It is fit to be part of an object's name.
struct user_account {
  char id[192] = {};
};

inline bool same_user(const user_account& a, const user_account& b) noexcept {
  return std::strcmp(a.id, b.id) == 0;
}

// The effective user of this process. False if it can't be had.
[[nodiscard]] bool effective_user(user_account& out) noexcept;

// The user whose login name is `login`. False if there is none.
[[nodiscard]] bool find_user(const char* login, user_account& out) noexcept;

// Whether the process may act on other users' objects and give them away:
// whether its effective user is root. Always false on Windows, where giving
// an object to another user takes privileges the library never asks for:
// there each user sets their own block.
[[nodiscard]] bool acts_for_every_user() noexcept;

}  // namespace platform

#endif  // TVBASE_PLATFORM_USER_H
