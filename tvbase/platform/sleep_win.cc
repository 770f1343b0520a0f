#include <tvbase/platform/sleep.h>

#include <windows.h>

namespace platform {

void sleep_milliseconds(unsigned milliseconds) noexcept { ::Sleep(milliseconds); }

}  // namespace platform
