#include "peximage/platform/foundation/LocalTime.h"

#include <algorithm>
#include <cctype>
#include <ctime>

namespace pex {

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
    std::tm parts{};
    parts.tm_year = number(0, 4) - 1900;
    parts.tm_mon = number(5, 2) - 1;
    parts.tm_mday = number(8, 2);
    parts.tm_hour = number(11, 2);
    parts.tm_min = number(14, 2);
    parts.tm_sec = number(17, 2);
    parts.tm_isdst = -1;
    if (!date.ok() || parts.tm_hour > 23 || parts.tm_min > 59 || parts.tm_sec > 59) return std::nullopt;
    return std::chrono::system_clock::from_time_t(std::mktime(&parts));
}

std::string localTimeText(Moment moment) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(moment);
    std::tm parts{};
    char text[64] = {};
    if (localtime_r(&seconds, &parts) == nullptr) return {};
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts);
    return text;
}

} // namespace pex
