#include "peximage/platform/codecs/jpeg/decode/Stuffing.h"

#include <cstddef>
#include <cstring>

namespace pex::jpeg {

std::uint8_t* unstuff(const std::uint8_t*& from, const std::uint8_t* end, std::uint8_t* to) {
    while (from < end) {
        const auto left = static_cast<std::size_t>(end - from);
        const void* const found = std::memchr(from, 0xFF, left);
        const auto plain =
            found ? static_cast<std::size_t>(static_cast<const std::uint8_t*>(found) - from) : left;
        std::memcpy(to, from, plain);
        to += plain;
        from += plain;
        if (end - from < 2 || from[1] != 0) break;
        *to++ = 0xFF;
        from += 2;
    }
    return to;
}

} // namespace pex::jpeg
