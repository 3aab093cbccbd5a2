#pragma once

#include "peximage/platform/Export.h"

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace pex {

using Moment = std::chrono::system_clock::time_point;

/// Reads "yyyy:MM:dd HH:mm:ss", as EXIF writes dates, in the machine's time zone: every digit must be there
/// and the date exist. A time that the clocks skip, when they are put forward, counts on from before. Absent
/// for anything else. Safe from any thread.
PEX_EXPORT std::optional<Moment> momentFromExifText(std::string_view text);

/// "2021-07-14 18:03:55" in the machine's time zone.
PEX_EXPORT std::string localTimeText(Moment moment);

} // namespace pex
