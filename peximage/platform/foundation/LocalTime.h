#pragma once

#include "peximage/platform/Export.h"

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace pex {

/// A moment of any year: microseconds reach 290 000 years. A `std::chrono::system_clock::time_point` counts
/// nanoseconds and holds the years 1678 to 2261 alone.
using Moment = std::chrono::sys_time<std::chrono::microseconds>;

/// Reads "yyyy:MM:dd HH:mm:ss", as EXIF writes dates, in the machine's time zone: every digit must be there
/// and the date exist. Of an hour that comes twice, when the clocks are put back, it is the first one; a time
/// that the clocks skip, when they are put forward, counts on from before. Absent for anything else. Safe
/// from any thread.
PEX_EXPORT std::optional<Moment> momentFromExifText(std::string_view text);

/// "2021-07-14 18:03:55" in the machine's time zone.
PEX_EXPORT std::string localTimeText(Moment moment);

} // namespace pex
