#ifndef TVBASE_PLATFORM_SLEEP_H
#define TVBASE_PLATFORM_SLEEP_H

namespace platform {

// Suspends the calling thread for at least `milliseconds`.
void sleep_milliseconds(unsigned milliseconds) noexcept;

}  // namespace platform

#endif  // TVBASE_PLATFORM_SLEEP_H
