#include "peximage/platform/raster/kernels/MatrixRow.h"

#include <algorithm>
#include <cstddef>

namespace pex::kernels {
namespace {

std::size_t placeOf(float light) {
    const float visible = std::clamp(light, MatrixTables::leastLight, 1.0F);
    return (std::bit_cast<std::uint32_t>(visible) - MatrixTables::leastBits) >> MatrixTables::droppedBits;
}

} // namespace

// Plain: the time goes into looking up, which vectors do no faster.
void matrixRow(const std::uint8_t* from, std::uint8_t* to, int pixels, const MatrixTables& tables) {
    const auto& [reds, greens, blues] = tables.light;
    const std::uint8_t* const bytes[] = {tables.bytes[0].data(), tables.bytes[1].data(),
                                         tables.bytes[2].data()};
    for (int i = 0; i < pixels; ++i, from += 4, to += 4) {
        const auto &red = reds[from[0]], &green = greens[from[1]], &blue = blues[from[2]];
        to[3] = from[3];
        for (std::size_t c = 0; c < 3; ++c)
            to[c] = bytes[c][placeOf(red[c] + green[c] + blue[c])];
    }
}

} // namespace pex::kernels
