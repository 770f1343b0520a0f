#include <tvbase/platform/ole_time.h>

#include <windows.h>

#include <oleauto.h>

#include <cmath>

namespace platform {

bool variant_time_to_calendar(double date, calendar_time& out) noexcept {
  // Wine's conversion takes a NaN for a date; the system's refuses it.
  if (!std::isfinite(date)) return false;
  SYSTEMTIME t{};
  if (!::VariantTimeToSystemTime(date, &t)) return false;
  out = {t.wYear, t.wMonth, t.wDay, t.wHour, t.wMinute, t.wSecond};
  return true;
}

}  // namespace platform
