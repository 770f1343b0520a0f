#include <tvbase/platform/sleep.h>

#include <time.h>

#include <cerrno>

namespace platform {

void sleep_milliseconds(unsigned milliseconds) noexcept {
  struct timespec left {
    static_cast<time_t>(milliseconds / 1000), static_cast<long>(milliseconds % 1000) * 1000000
  };
  while (::nanosleep(&left, &left) != 0 && errno == EINTR) {
  }
}

}  // namespace platform
