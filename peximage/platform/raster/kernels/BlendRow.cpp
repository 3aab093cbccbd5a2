#include "peximage/platform/raster/kernels/BlendRow.h"

#include <algorithm>
#include <cstring>

namespace pex::kernels {
namespace {

/// Rounded x / 255 for 0 ≤ x ≤ 255 × 255.
constexpr int divideBy255(int x) { return (x + 128 + ((x + 128) >> 8)) >> 8; }

} // namespace

void blendRowOver(const std::uint8_t* from, std::uint8_t* to, int pixels, int opacity) {
    for (int i = 0; i < pixels; ++i, from += 4, to += 4) {
        const int rest = 255 - divideBy255(from[3] * opacity);
        for (int c = 0; c < 4; ++c) {
            const int sum = divideBy255(from[c] * opacity) + divideBy255(to[c] * rest);
            to[c] = static_cast<std::uint8_t>(std::min(sum, 255));
        }
    }
}

void blendRowCopy(const std::uint8_t* from, std::uint8_t* to, int pixels, int opacity) {
    if (opacity == 255) {
        std::memcpy(to, from, static_cast<std::size_t>(pixels) * 4);
        return;
    }
    for (int i = 0; i < pixels * 4; ++i)
        to[i] = static_cast<std::uint8_t>(divideBy255(from[i] * opacity));
}

} // namespace pex::kernels
