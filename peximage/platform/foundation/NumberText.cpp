#include "peximage/platform/foundation/NumberText.h"

#include <charconv>

namespace pex {

std::string decimalText(double value) {
    char buffer[40];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
    std::string text(buffer, result.ptr);
    if (text.find_first_not_of("-0123456789") == std::string::npos) text += ".0";
    return text;
}

} // namespace pex
