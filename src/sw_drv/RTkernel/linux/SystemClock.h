#pragma once
/// The machine's clock in local calendar terms, and setting it. "Now" is simulated time when there is one (Clock.h),
/// else the second that `time` shows, but setting starts from the machine's own clock and changes that. Safe from any
/// thread.

#include <sys/time.h>

#include "sw_drv/RTkernel/linux/TimeFormat.h"

namespace threadfunc {

/// The local time now.
PackedTime packedLocalTime();

/// The local date now, with the full year.
PackedDate packedLocalDate();

/// Sets the machine's clock to time of day `t`, in UTC, of the current UTC day. Returns 0, or -1 with errno set when
/// the system refuses (it asks for the right to set the clock).
int setClockTime(PackedTime t);

/// Sets the machine's clock to local midnight (standard time) of date `d` plus the UTC time of day that it shows now.
/// The year counts from 1998: 28 is 2026. Returns as `setClockTime`.
int setClockDate(PackedDate d);

/// What `setClockTime(t)` sets the clock to when it stands at `now`.
timeval clockWithTime(timeval now, PackedTime t);

/// What `setClockDate(d)` sets the clock to when it stands at `now`.
timeval clockWithDate(timeval now, PackedDate d);

/// `formatTime` of the local time now.
int formatLocalTime(char* dst, const char* pattern);

/// `formatDate` of the local date now.
int formatLocalDate(char* dst, const char* pattern);

}  // namespace threadfunc
