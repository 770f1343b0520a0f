#ifndef TVBASE_PLATFORM_OLE_TIME_H
#define TVBASE_PLATFORM_OLE_TIME_H

namespace platform {

struct calendar_time {
  int year, month, day, hour, minute, second;
};

// Turns an OLE automation date into calendar fields: whole days counted from
// 30 December 1899, the fraction of a day as the time of day. For a negative
// date the fraction counts forward from its whole day too (-1.25 is 29
// December 1899, 06:00). The time is rounded to the nearest second; rounding
// up to midnight moves to the next day. A date before 1 January 100 or after
// 31 December 9999, or one that is not a number, gives false.
bool variant_time_to_calendar(double date, calendar_time& out) noexcept;

}  // namespace platform

#endif  // TVBASE_PLATFORM_OLE_TIME_H
