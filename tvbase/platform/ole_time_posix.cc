#include <tvbase/platform/ole_time.h>

#include <cmath>
#include <cstdint>

namespace platform {
namespace {

// Days between 1 January 1970 and the civil date, proleptic Gregorian.
constexpr std::int64_t days_from_civil(std::int64_t y, unsigned m, unsigned d) {
  y -= m <= 2;
  const std::int64_t era = (y >= 0 ? y : y - 399) / 400;
  const auto yoe = static_cast<unsigned>(y - era * 400);
  const unsigned doy = (153 * (m > 2 ? m - 3 : m + 9) + 2) / 5 + d - 1;
  const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + static_cast<std::int64_t>(doe) - 719468;
}

void civil_from_days(std::int64_t z, calendar_time& out) {
  z += 719468;
  const std::int64_t era = (z >= 0 ? z : z - 146096) / 146097;
  const auto doe = static_cast<unsigned>(z - era * 146097);
  const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  const unsigned mp = (5 * doy + 2) / 153;
  const unsigned d = doy - (153 * mp + 2) / 5 + 1;
  const unsigned m = mp < 10 ? mp + 3 : mp - 9;
  out.year = static_cast<int>(static_cast<std::int64_t>(yoe) + era * 400 + (m <= 2));
  out.month = static_cast<int>(m);
  out.day = static_cast<int>(d);
}

constexpr std::int64_t kEpoch = days_from_civil(1899, 12, 30);
constexpr double kFirst = static_cast<double>(days_from_civil(100, 1, 1) - kEpoch);
constexpr double kLast = static_cast<double>(days_from_civil(9999, 12, 31) - kEpoch) + 1.0;

}  // namespace

bool variant_time_to_calendar(double date, calendar_time& out) noexcept {
  if (!(date > kFirst - 1.0 && date < kLast)) return false;
  const double whole = std::trunc(date);
  auto days = static_cast<std::int64_t>(whole);
  auto seconds = static_cast<std::int64_t>(std::llround(std::fabs(date - whole) * 86400.0));
  if (seconds >= 86400) {
    seconds -= 86400;
    ++days;
  }
  if (days < static_cast<std::int64_t>(kFirst) || days >= static_cast<std::int64_t>(kLast))
    return false;
  civil_from_days(days + kEpoch, out);
  out.hour = static_cast<int>(seconds / 3600);
  out.minute = static_cast<int>(seconds / 60 % 60);
  out.second = static_cast<int>(seconds % 60);
  return true;
}

}  // namespace platform
