#include "peximage/platform/foundation/LocalTime.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <ctime>

namespace pex {
namespace {

using std::chrono::days;
using std::chrono::seconds;
using std::chrono::sys_seconds;

std::tm localParts(sys_seconds moment) {
    const std::time_t count = moment.time_since_epoch().count();
    std::tm parts{};
    localtime_r(&count, &parts);
    return parts;
}

/// How far the machine's clocks are ahead of UTC.
seconds offsetAt(sys_seconds moment) { return seconds(localParts(moment).tm_gmtoff); }

/// The moment at which the machine's clocks show `time` (given as if they showed UTC). `mktime` is not
/// used: its answer for an hour that comes twice depends on its previous calls.
sys_seconds whenClocksShow(sys_seconds time) {
    const seconds before = offsetAt(time - days(1)), after = offsetAt(time + days(1));
    for (const seconds offset :
         {std::max(before, after), std::min(before, after)}) // the earlier moment first
        if (offsetAt(time - offset) == offset) return time - offset;
    return time - before;
}

} // namespace

std::optional<Moment> momentFromExifText(std::string_view text) {
    constexpr std::string_view form = "0000:00:00 00:00:00";
    const bool fits = std::ranges::equal(text, form, [](char c, char f) {
        return f == '0' ? std::isdigit(static_cast<unsigned char>(c)) != 0 : c == f;
    });
    if (!fits) return std::nullopt;
    const auto number = [&](std::size_t at, std::size_t digits) {
        int value = 0;
        for (const char digit : text.substr(at, digits))
            value = value * 10 + (digit - '0');
        return value;
    };
    const std::chrono::year_month_day date{std::chrono::year(number(0, 4)),
                                           std::chrono::month(static_cast<unsigned>(number(5, 2))),
                                           std::chrono::day(static_cast<unsigned>(number(8, 2)))};
    const int hour = number(11, 2), minute = number(14, 2), second = number(17, 2);
    if (!date.ok() || hour > 23 || minute > 59 || second > 59) return std::nullopt;
    ::tzset(); // the zone may have changed since the last time
    return whenClocksShow(std::chrono::sys_days(date) + seconds((hour * 60 + minute) * 60 + second));
}

std::string localTimeText(Moment moment) {
    ::tzset();
    const std::tm parts = localParts(std::chrono::floor<seconds>(moment));
    char text[96];
    std::snprintf(text, sizeof text, "%04ld-%02d-%02d %02d:%02d:%02d", parts.tm_year + 1900L,
                  parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec);
    return text;
}

} // namespace pex
